#include "noneplatform.h"

#include "l.h"
#include "standardfileservices.h"

#include <QDesktopServices>
#include <QDir>
#include <QLoggingCategory>
#include <QTimer>
#include <QUrl>

Q_LOGGING_CATEGORY(lcNone, "velm.none")

NonePlatform::NonePlatform(QObject *parent)
    : Platform(parent)
{
    files = std::make_shared<StandardFileServices>();
    unsupported = QStringList { L::installedApps, L::currentApp, L::appIcon, L::activateApp,
        L::closeApp, L::quitApp, L::toggleMinimizeApp, L::toggleMaximizeApp, L::toggleFullscreenApp,
        L::appScroll, L::keySequence, L::appCommands, L::commandIcon, L::siteCommands, L::appMenu,
        L::performMenu, L::focusValue, L::performFocus, L::focusedElement, L::fileApps, L::volume,
        L::volumeMute, L::brightness, L::screenLock, L::logout, L::sleep, L::restart, L::shutdown,
        L::playPause, L::previousTrack, L::nextTrack };
}

void NonePlatform::init()
{
    qCInfo(lcNone) << "No desktop backend in this build: files only; the rest is unsupported";
    // As the other backends, ready once the caller has connected to the signal.
    QTimer::singleShot(0, this, &Platform::ready);
}

void NonePlatform::setAutostart(bool enabled)
{
    if (enabled)
        qCInfo(lcNone) << "Start at login is up to this computer's own service manager";
}

QPixmap NonePlatform::iconForFileType(const QString &type, int size)
{
    return ::iconForFileType(type, size);
}

void NonePlatform::openFile(const QString &path, const QString &type, const QString &appId)
{
    // No application is known; the system's handler for the file is all there is.
    if (!appId.isEmpty() || type.isEmpty()) {
        qCWarning(lcNone) << "Cannot open" << path;
        return;
    }
    if (!QDesktopServices::openUrl(
            QUrl::fromLocalFile(QDir::cleanPath(QDir::current().absoluteFilePath(path)))))
        qCWarning(lcNone) << "Cannot open" << path;
}

void NonePlatform::refuse(const char *operation)
{
    qCWarning(lcNone) << operation << "is not available in this build";
}

#include "desktop.h"

#include "constants.h"
#include "linuxlogging.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusReply>
#include <QDesktopServices>
#include <QFileInfo>
#include <QGuiApplication>
#include <QScreen>
#include <QUrl>

namespace {
const QString notificationsService = QStringLiteral("org.freedesktop.Notifications");
const QString fileManagerService = QStringLiteral("org.freedesktop.FileManager1");

bool hasService(const QString &name)
{
    const QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return false;
    QDBusConnectionInterface *interface = bus.interface();
    if (!interface)
        return false;
    // Activatable services count: a file manager may be started on demand.
    if (interface->isServiceRegistered(name))
        return true;
    const QDBusReply<QStringList> activatable = interface->activatableServiceNames();
    return activatable.isValid() && activatable.value().contains(name);
}

void openFolder(const QString &path)
{
    const QFileInfo info(path);
    const QString folder = info.isDir() ? info.absoluteFilePath() : info.absolutePath();
    if (!QDesktopServices::openUrl(QUrl::fromLocalFile(folder)))
        qCWarning(lcLinux) << "Cannot open folder" << folder;
}
} // namespace

bool desktop::canNotify() { return hasService(notificationsService); }

void desktop::notify(const QString &title, const QString &subtitle, const QString &text)
{
    // Desktop notifications have no subtitle: it becomes the first line of the body.
    const QString body = subtitle.isEmpty() ? text : subtitle + QLatin1Char('\n') + text;
    QDBusMessage call = QDBusMessage::createMethodCall(notificationsService,
        QStringLiteral("/org/freedesktop/Notifications"), notificationsService,
        QStringLiteral("Notify"));
    QVariantMap hints;
    hints.insert(QStringLiteral("desktop-entry"), QString(Constants::UNIX_NAME));
    call << QString(Constants::NAME) << uint(0) << QString(Constants::UNIX_NAME) << title << body
         << QStringList() << hints << int(-1);
    auto *watcher = new QDBusPendingCallWatcher(QDBusConnection::sessionBus().asyncCall(call));
    QObject::connect(watcher, &QDBusPendingCallWatcher::finished, [](QDBusPendingCallWatcher *w) {
        const QDBusPendingReply<uint> reply = *w;
        if (reply.isError())
            qCWarning(lcLinux) << "Cannot show notification" << reply.error().message();
        w->deleteLater();
    });
}

void desktop::showInFinder(const QString &path)
{
    if (!hasService(fileManagerService)) {
        openFolder(path);
        return;
    }
    QDBusMessage call = QDBusMessage::createMethodCall(fileManagerService,
        QStringLiteral("/org/freedesktop/FileManager1"), fileManagerService,
        QStringLiteral("ShowItems"));
    call << QStringList { QUrl::fromLocalFile(QFileInfo(path).absoluteFilePath()).toString() }
         << QString();
    auto *watcher = new QDBusPendingCallWatcher(QDBusConnection::sessionBus().asyncCall(call));
    QObject::connect(
        watcher, &QDBusPendingCallWatcher::finished, [path](QDBusPendingCallWatcher *w) {
            if (w->isError()) {
                qCWarning(lcLinux) << "Cannot show file" << w->error().message();
                openFolder(path);
            }
            w->deleteLater();
        });
}

bool desktop::isHiDPI()
{
    const QScreen *screen = QGuiApplication::primaryScreen();
    return screen && screen->devicePixelRatio() > 1.5;
}

QVariant desktop::lightFont(int)
{
    // Linux desktops have no dedicated thin system face; callers pick their own light font.
    return QVariant();
}

QStringList desktop::accessibilitySteps()
{
    // The desktop decides whether applications expose their menus and fields; the steps name
    // where the common desktops keep that switch.
    return { QCoreApplication::translate("desktop",
                 "Open the accessibility settings of your desktop (GNOME: Settings, "
                 "Accessibility; KDE Plasma: System Settings, Accessibility)"),
        QCoreApplication::translate("desktop",
            "Turn on the support for assistive technologies (on GNOME you can also run "
            "<code>gsettings set org.gnome.desktop.interface toolkit-accessibility "
            "true</code>)"),
        QCoreApplication::translate(
            "desktop", "Restart the applications you want to control, or log out and back in") };
}

#include "desktop.h"

#include <QDesktopServices>
#include <QFileInfo>
#include <QGuiApplication>
#include <QLoggingCategory>
#include <QScreen>
#include <QUrl>

Q_LOGGING_CATEGORY(lcNoneDesktop, "velm.none.desktop")

bool desktop::canNotify() { return false; }

void desktop::notify(const QString &title, const QString &subtitle, const QString &text)
{
    // No notification service: the log is where it shows.
    qCInfo(lcNoneDesktop).noquote() << title << subtitle << text;
}

void desktop::showInFinder(const QString &path)
{
    QDesktopServices::openUrl(QUrl::fromLocalFile(QFileInfo(path).absolutePath()));
}

bool desktop::isHiDPI()
{
    const QScreen *screen = QGuiApplication::primaryScreen();
    return screen && screen->devicePixelRatio() > 1.5;
}

QVariant desktop::lightFont(int) { return QVariant(); }

// Nothing here reads menus or fields, so there is nothing to turn on.
QStringList desktop::accessibilitySteps() { return {}; }

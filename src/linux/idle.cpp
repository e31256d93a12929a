#include "idle.h"

#include "constants.h"
#include "linuxlogging.h"
#include "login1manager.h"
#include "screensaver.h"

#include <QDBusConnection>
#include <QDBusReply>
#include <QDBusUnixFileDescriptor>

Q_LOGGING_CATEGORY(lcLinuxIdle, "velm.linux.idle")

namespace {

// Both are asked while a client connects: never let a stuck service hold the program up long.
constexpr int callTimeout = 2000;

// The inhibition cookie of the display assertion; 0 when none is held.
uint displayCookie = 0;
bool screenSaverMissingReported = false;
// logind keeps the system awake while this descriptor is open.
QDBusUnixFileDescriptor systemInhibitor;

OrgFreedesktopScreenSaverInterface *screenSaver()
{
    static OrgFreedesktopScreenSaverInterface *proxy = [] {
        auto *created
            = new OrgFreedesktopScreenSaverInterface(QStringLiteral("org.freedesktop.ScreenSaver"),
                QStringLiteral("/org/freedesktop/ScreenSaver"), QDBusConnection::sessionBus());
        created->setTimeout(callTimeout);
        return created;
    }();
    return proxy;
}

bool succeeded(const QDBusPendingCall &call)
{
    if (!call.isError())
        return true;
    // A desktop without the service: say so once, then stay quiet.
    if (!screenSaverMissingReported) {
        screenSaverMissingReported = true;
        qCWarning(lcLinuxIdle) << "Cannot keep the display awake:" << call.error().message();
    }
    return false;
}

} // namespace

namespace Idle {

bool preventDisplaySleep(const QString &reason)
{
    QDBusPendingReply<uint> reply = screenSaver()->Inhibit(QString(Constants::NAME), reason);
    reply.waitForFinished();
    if (!succeeded(reply))
        return false;
    displayCookie = reply.value();
    return true;
}

bool allowDisplaySleep()
{
    if (!displayCookie)
        return false;
    const uint cookie = displayCookie;
    displayCookie = 0;
    QDBusPendingReply<> reply = screenSaver()->UnInhibit(cookie);
    reply.waitForFinished();
    return succeeded(reply);
}

bool preventSystemSleep(const QString &reason)
{
    OrgFreedesktopLogin1ManagerInterface manager(QStringLiteral("org.freedesktop.login1"),
        QStringLiteral("/org/freedesktop/login1"), QDBusConnection::systemBus());
    manager.setTimeout(callTimeout);
    // "idle" keeps the machine from going to sleep on its own, as an idle timer would send
    // it; sleeping on purpose (from a client too) stays possible.
    QDBusPendingReply<QDBusUnixFileDescriptor> reply = manager.Inhibit(
        QStringLiteral("idle"), QString(Constants::NAME), reason, QStringLiteral("block"));
    reply.waitForFinished();
    if (reply.isError()) {
        qCWarning(lcLinuxIdle) << "Cannot keep the system awake:" << reply.error().message();
        return false;
    }
    // A second call replaces the lock it held; callers pair prevent and allow anyway.
    systemInhibitor = reply.value();
    return systemInhibitor.isValid();
}

bool allowSystemSleep()
{
    if (!systemInhibitor.isValid())
        return false;
    // Closing the descriptor (the last copy of it) is what releases the lock.
    systemInhibitor = QDBusUnixFileDescriptor();
    return true;
}

QString displayErrorMessage() { return QString(); }

QString systemErrorMessage() { return QString(); }

} // namespace Idle

#include "idle.h"

#include "constants.h"
#include "linuxlogging.h"
#include "login1manager.h"
#include "screensaver.h"

#include <QDBusConnection>
#include <QDBusPendingCallWatcher>
#include <QDBusReply>
#include <QDBusUnixFileDescriptor>

#include <utility>

Q_LOGGING_CATEGORY(lcLinuxIdle, "velm.linux.idle")

namespace {

// Both are asked while a client connects: never let a stuck service hold the program up long.
constexpr int callTimeout = 2000;

// The display assertion. Every call to the screen saver is asynchronous: a desktop service that
// hangs must never hold up the clients, so the cookie arrives later and is kept then.
struct DisplayAssertion
{
    uint cookie = 0; // the assertion held; 0 when none is
    int requests = 0; // Inhibit calls not answered yet
    bool wanted = false; // what the latest prevent or allow asked for
};
DisplayAssertion display;
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

// A desktop without the service: say so once, then stay quiet.
void reportMissing(const QString &message)
{
    if (screenSaverMissingReported)
        return;
    screenSaverMissingReported = true;
    qCWarning(lcLinuxIdle) << "Cannot keep the display awake:" << message;
}

void release(uint cookie)
{
    auto *watcher = new QDBusPendingCallWatcher(screenSaver()->UnInhibit(cookie));
    QObject::connect(
        watcher, &QDBusPendingCallWatcher::finished, [](QDBusPendingCallWatcher *call) {
            call->deleteLater();
            if (call->isError())
                reportMissing(call->error().message());
        });
}

void onInhibited(QDBusPendingCallWatcher *call)
{
    call->deleteLater();
    --display.requests;
    const QDBusPendingReply<uint> reply = *call;
    if (reply.isError()) {
        reportMissing(reply.error().message());
        return;
    }
    // One assertion at a time: a newer one replaces (and hands back) the one held.
    if (display.cookie)
        release(display.cookie);
    display.cookie = reply.value();
    // Allowed again while the answer was on its way.
    if (!display.wanted) {
        release(display.cookie);
        display.cookie = 0;
    }
}

} // namespace

namespace Idle {

bool preventDisplaySleep(const QString &reason)
{
    if (!QDBusConnection::sessionBus().isConnected()) {
        reportMissing(QStringLiteral("no session bus"));
        return false;
    }
    display.wanted = true;
    ++display.requests;
    auto *watcher
        = new QDBusPendingCallWatcher(screenSaver()->Inhibit(QString(Constants::NAME), reason));
    QObject::connect(watcher, &QDBusPendingCallWatcher::finished, &onInhibited);
    return true;
}

bool allowDisplaySleep()
{
    display.wanted = false;
    if (display.cookie) {
        release(std::exchange(display.cookie, 0u));
        return true;
    }
    // A cookie on its way is handed back when it arrives.
    return display.requests > 0;
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

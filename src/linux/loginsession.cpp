#include "loginsession.h"

#include "linuxlogging.h"
#include "login1manager.h"
#include "login1session.h"
#include "logintypes.h"
#include "screensaver.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusServiceWatcher>
#include <QDBusVariant>

#include <unistd.h>

Q_LOGGING_CATEGORY(lcLinuxSession, "velm.linux.session")

namespace {

const QString loginService = QStringLiteral("org.freedesktop.login1");
const QString loginPath = QStringLiteral("/org/freedesktop/login1");
const QString sessionInterface = QStringLiteral("org.freedesktop.login1.Session");
const QString screenSaverService = QStringLiteral("org.freedesktop.ScreenSaver");
const QString screenSaverPath = QStringLiteral("/org/freedesktop/ScreenSaver");
const QString propertiesInterface = QStringLiteral("org.freedesktop.DBus.Properties");
const QString lockedHint = QStringLiteral("LockedHint");

// Runs `then` with the finished call, in `context`'s thread, unless `context` is gone.
template<typename Then>
void whenFinished(QObject *context, const QDBusPendingCall &call, Then then)
{
    auto *watcher = new QDBusPendingCallWatcher(call, context);
    QObject::connect(watcher, &QDBusPendingCallWatcher::finished, context,
        [watcher, then](QDBusPendingCallWatcher *) {
            then(*watcher);
            watcher->deleteLater();
        });
}

QString describe(const QDBusError &error)
{
    return QStringLiteral("%1: %2").arg(error.name(), error.message());
}

} // namespace

LoginSession::LoginSession(QObject *parent)
    : QObject(parent)
{
    registerLoginTypes();
    QDBusConnection system = QDBusConnection::systemBus();
    if (system.isConnected()) {
        loginWatcher = new QDBusServiceWatcher(loginService, system,
            QDBusServiceWatcher::WatchForRegistration | QDBusServiceWatcher::WatchForUnregistration,
            this);
        connect(loginWatcher, &QDBusServiceWatcher::serviceRegistered, this, [this] {
            forgetManager();
            findManager();
        });
        connect(loginWatcher, &QDBusServiceWatcher::serviceUnregistered, this, [this] {
            forgetManager();
            emit availabilityChanged();
        });
        findManager();
    }

    QDBusConnection sessionBus = QDBusConnection::sessionBus();
    if (sessionBus.isConnected()) {
        screenSaver = new OrgFreedesktopScreenSaverInterface(
            screenSaverService, screenSaverPath, sessionBus, this);
        connect(screenSaver, &OrgFreedesktopScreenSaverInterface::ActiveChanged, this,
            &LoginSession::screenLockReported);
        screenSaverWatcher = new QDBusServiceWatcher(screenSaverService, sessionBus,
            QDBusServiceWatcher::WatchForRegistration | QDBusServiceWatcher::WatchForUnregistration,
            this);
        connect(screenSaverWatcher, &QDBusServiceWatcher::serviceRegistered, this,
            [this] { setScreenSaverPresent(true); });
        connect(screenSaverWatcher, &QDBusServiceWatcher::serviceUnregistered, this,
            [this] { setScreenSaverPresent(false); });
        if (sessionBus.interface()
            && sessionBus.interface()->isServiceRegistered(screenSaverService).value())
            setScreenSaverPresent(true);
    }
}

LoginSession::~LoginSession() = default;

void LoginSession::findManager()
{
    manager = new OrgFreedesktopLogin1ManagerInterface(
        loginService, loginPath, QDBusConnection::systemBus(), this);
    askAllowed(QStringLiteral("CanPowerOff"), &powerOffAllowed);
    askAllowed(QStringLiteral("CanReboot"), &rebootAllowed);
    askAllowed(QStringLiteral("CanSuspend"), &suspendAllowed);
    // The session this program runs in; "auto" also finds the user's graphical session for a
    // program started outside of it (by a service manager, say).
    QStringList candidates;
    if (qEnvironmentVariableIsSet("XDG_SESSION_ID"))
        candidates << qEnvironmentVariable("XDG_SESSION_ID");
    candidates << QStringLiteral("auto");
    tryCandidate(candidates);
}

void LoginSession::forgetManager()
{
    ++generation;
    if (session) {
        QDBusConnection::systemBus().disconnect(loginService, session->path(), propertiesInterface,
            QStringLiteral("PropertiesChanged"), this,
            SLOT(onSessionPropertiesChanged(QString, QVariantMap, QStringList)));
    }
    delete session;
    session = nullptr;
    delete manager;
    manager = nullptr;
    id.clear();
    powerOffAllowed = rebootAllowed = suspendAllowed = false;
}

void LoginSession::askAllowed(const QString &method, bool *flag)
{
    const int asked = generation;
    whenFinished(this, manager->asyncCall(method), [this, asked, flag](QDBusPendingCall &call) {
        const QDBusPendingReply<QString> reply = call;
        if (asked != generation)
            return;
        // "challenge" would need the user to authenticate, which a phone cannot do.
        const bool allowed = !reply.isError() && reply.value() == QLatin1String("yes");
        if (allowed != *flag) {
            *flag = allowed;
            emit availabilityChanged();
        }
    });
}

void LoginSession::tryCandidate(const QStringList &candidates)
{
    const int asked = generation;
    if (candidates.isEmpty()) {
        // Not started from a session: take this user's, preferring one on a seat (a graphical
        // or console login over, say, an ssh one).
        whenFinished(this, manager->ListSessions(), [this, asked](QDBusPendingCall &call) {
            const QDBusPendingReply<LoginSessionList> reply = call;
            if (asked != generation)
                return;
            if (reply.isError()) {
                qCWarning(lcLinuxSession).noquote()
                    << "Cannot list the login sessions:" << describe(reply.error());
                return;
            }
            const LoginSessionEntry *chosen = nullptr;
            const LoginSessionList sessions = reply.value();
            for (const LoginSessionEntry &entry : sessions) {
                if (entry.uid != uint(getuid()))
                    continue;
                if (!chosen || (chosen->seat.isEmpty() && !entry.seat.isEmpty()))
                    chosen = &entry;
            }
            if (chosen)
                useSession(chosen->path.path(), chosen->id);
            else
                qCInfo(lcLinuxSession) << "No login session of this user";
        });
        return;
    }
    const QString candidate = candidates.first();
    const QStringList rest = candidates.mid(1);
    whenFinished(this, manager->GetSession(candidate), [this, asked, rest](QDBusPendingCall &call) {
        const QDBusPendingReply<QDBusObjectPath> reply = call;
        if (asked != generation)
            return;
        if (reply.isError()) {
            tryCandidate(rest);
            return;
        }
        // Check that the object is really there before relying on it.
        const QString path = reply.value().path();
        QDBusMessage get = QDBusMessage::createMethodCall(
            loginService, path, propertiesInterface, QStringLiteral("Get"));
        get << sessionInterface << QStringLiteral("Id");
        whenFinished(this, QDBusConnection::systemBus().asyncCall(get),
            [this, asked, rest, path](QDBusPendingCall &idCall) {
                const QDBusPendingReply<QDBusVariant> sessionId = idCall;
                if (asked != generation)
                    return;
                if (sessionId.isError() || sessionId.value().variant().toString().isEmpty())
                    tryCandidate(rest);
                else
                    useSession(path, sessionId.value().variant().toString());
            });
    });
}

void LoginSession::useSession(const QString &path, const QString &sessionId)
{
    QDBusConnection system = QDBusConnection::systemBus();
    id = sessionId;
    session = new OrgFreedesktopLogin1SessionInterface(loginService, path, system, this);
    connect(session, &OrgFreedesktopLogin1SessionInterface::Lock, this,
        [this] { emit screenLockReported(true); });
    connect(session, &OrgFreedesktopLogin1SessionInterface::Unlock, this,
        [this] { emit screenLockReported(false); });
    system.connect(loginService, path, propertiesInterface, QStringLiteral("PropertiesChanged"),
        this, SLOT(onSessionPropertiesChanged(QString, QVariantMap, QStringList)));
    qCInfo(lcLinuxSession) << "Login session" << id;
    readLockedHint();
    emit availabilityChanged();
}

void LoginSession::readLockedHint()
{
    QDBusMessage get = QDBusMessage::createMethodCall(
        loginService, session->path(), propertiesInterface, QStringLiteral("Get"));
    get << sessionInterface << lockedHint;
    const int asked = generation;
    whenFinished(
        this, QDBusConnection::systemBus().asyncCall(get), [this, asked](QDBusPendingCall &call) {
            const QDBusPendingReply<QDBusVariant> reply = call;
            if (asked == generation && !reply.isError())
                emit screenLockReported(reply.value().variant().toBool());
        });
}

void LoginSession::onSessionPropertiesChanged(
    const QString &interface, const QVariantMap &changed, const QStringList &invalidated)
{
    if (interface != sessionInterface || !session)
        return;
    if (changed.contains(lockedHint))
        emit screenLockReported(changed.value(lockedHint).toBool());
    else if (invalidated.contains(lockedHint))
        readLockedHint();
}

void LoginSession::setScreenSaverPresent(bool present)
{
    if (present == screenSaverPresent)
        return;
    screenSaverPresent = present;
    if (present) {
        whenFinished(this, screenSaver->GetActive(), [this](QDBusPendingCall &call) {
            const QDBusPendingReply<bool> reply = call;
            if (!reply.isError() && reply.value())
                emit screenLockReported(true);
        });
    }
    emit availabilityChanged();
}

void LoginSession::finish(const QDBusPendingCall &call, const char *operation)
{
    whenFinished(this, call, [operation](QDBusPendingCall &done) {
        if (done.isError())
            qCWarning(lcLinuxSession).noquote() << operation << describe(done.error());
    });
}

void LoginSession::powerOff(const char *operation)
{
    if (!manager) {
        qCWarning(lcLinuxSession).noquote() << operation << "no login manager";
        return;
    }
    // Not interactive: nobody at the machine is asked to authenticate.
    finish(manager->PowerOff(false), operation);
}

void LoginSession::reboot(const char *operation)
{
    if (!manager) {
        qCWarning(lcLinuxSession).noquote() << operation << "no login manager";
        return;
    }
    finish(manager->Reboot(false), operation);
}

void LoginSession::suspend(const char *operation)
{
    if (!manager) {
        qCWarning(lcLinuxSession).noquote() << operation << "no login manager";
        return;
    }
    finish(manager->Suspend(false), operation);
}

void LoginSession::terminateSession(const char *operation)
{
    if (!session) {
        qCWarning(lcLinuxSession).noquote() << operation << "no login session";
        return;
    }
    finish(manager->TerminateSession(id), operation);
}

void LoginSession::lock()
{
    if (!session) {
        lockWithScreenSaver();
        return;
    }
    whenFinished(this, manager->LockSession(id), [this](QDBusPendingCall &call) {
        if (!call.isError())
            return;
        qCWarning(lcLinuxSession).noquote() << "Cannot lock the session:" << describe(call.error());
        lockWithScreenSaver();
    });
}

void LoginSession::lockWithScreenSaver()
{
    if (!screenSaver) {
        qCWarning(lcLinuxSession) << "Cannot lock the screen: no session bus";
        return;
    }
    whenFinished(this, screenSaver->Lock(), [](QDBusPendingCall &call) {
        if (call.isError())
            qCWarning(lcLinuxSession).noquote()
                << "Cannot lock the screen:" << describe(call.error());
    });
}

void LoginSession::setBrightness(const QString &device, uint level, std::function<void(bool)> done)
{
    if (!session) {
        done(false);
        return;
    }
    whenFinished(this, session->SetBrightness(QStringLiteral("backlight"), device, level),
        [done](QDBusPendingCall &call) {
            if (call.isError())
                qCInfo(lcLinuxSession).noquote()
                    << "Cannot set the brightness through logind:" << describe(call.error());
            done(!call.isError());
        });
}

#pragma once

#include <QDBusPendingCall>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QVariantMap>

#include <functional>

class QDBusMessage;
class QDBusServiceWatcher;
class OrgFreedesktopLogin1ManagerInterface;
class OrgFreedesktopLogin1SessionInterface;
class OrgFreedesktopScreenSaverInterface;

// The user's login session and the machine's power through systemd-logind (or elogind), and the
// desktop's screen saver. The session is looked up in the background; until it is found, and
// without logind, only what does not need it is offered. Nothing here ever asks the user for
// authorisation: an action that would need it is not offered.
class LoginSession : public QObject
{
    Q_OBJECT
public:
    explicit LoginSession(QObject *parent = nullptr);
    ~LoginSession() override;

    // What logind allows this user without asking ("yes" from CanPowerOff and its siblings).
    bool canPowerOff() const { return powerOffAllowed; }
    bool canReboot() const { return rebootAllowed; }
    bool canSuspend() const { return suspendAllowed; }
    bool hasSession() const { return session != nullptr; }
    QString sessionId() const { return id; }
    bool hasScreenSaver() const { return screenSaverPresent; }

    // `operation` names the caller in the warning logged when logind refuses or fails.
    void powerOff(const char *operation);
    void reboot(const char *operation);
    void suspend(const char *operation);
    void terminateSession(const char *operation);
    // Through the session, falling back to the screen saver.
    void lock();
    // Asks logind to set a backlight device to a raw level; `done` tells whether it did.
    void setBrightness(const QString &device, uint level, std::function<void(bool)> done);

signals:
    // One of the above changed.
    void availabilityChanged();
    // The session was locked or unlocked, the screen saver started or stopped: locked is what
    // the screen now counts as. Reported also when nothing changed.
    void screenLockReported(bool locked);

private slots:
    void onSessionPropertiesChanged(
        const QString &interface, const QVariantMap &changed, const QStringList &invalidated);

private:
    void findManager();
    void forgetManager();
    void askAllowed(const QString &method, bool *flag);
    void tryCandidate(const QStringList &candidates);
    void useSession(const QString &path, const QString &sessionId);
    void readLockedHint();
    void lockWithScreenSaver();
    void finish(const QDBusPendingCall &call, const char *operation);
    void setScreenSaverPresent(bool present);

    OrgFreedesktopLogin1ManagerInterface *manager = nullptr;
    OrgFreedesktopLogin1SessionInterface *session = nullptr;
    OrgFreedesktopScreenSaverInterface *screenSaver = nullptr;
    QDBusServiceWatcher *loginWatcher = nullptr;
    QDBusServiceWatcher *screenSaverWatcher = nullptr;
    QString id;
    bool powerOffAllowed = false;
    bool rebootAllowed = false;
    bool suspendAllowed = false;
    bool screenSaverPresent = false;
    // Bumped whenever logind goes away, so that answers to an earlier lookup are dropped.
    int generation = 0;
};

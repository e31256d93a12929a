#pragma once

#include <QDBusObjectPath>
#include <QList>
#include <QObject>
#include <QVariantMap>

#include <functional>

class QDBusMessage;

// Keys and wheel steps through the XDG desktop portal's RemoteDesktop interface, the way a
// desktop without window protocols for other programs (GNOME) lets one control it. The first
// use opens the desktop's consent dialog; the restore token it grants is kept in the settings
// ("remoteDesktopToken"), so later sessions, also after a restart, start without asking again.
// Input asked for while the session starts waits for it, in order. Input calls go one at a
// time, each after the answer to the one before: the portal handles calls concurrently, and
// keys sent without waiting arrived out of order (a modifier released before its key, a key's
// release before its press).
class RemoteDesktopPortal : public QObject
{
    Q_OBJECT
public:
    enum State { Unknown, Unavailable, Idle, Starting, Ready, Refused };
    Q_ENUM(State)

    explicit RemoteDesktopPortal(QObject *parent = nullptr);

    State state() const { return m_state; }
    // The desktop has the portal and it offers a keyboard and a pointer, and the user has not
    // refused them.
    bool isUsable() const { return m_state == Idle || m_state == Starting || m_state == Ready; }

    // Presses the keys in order, then releases them in reverse order.
    void pressKeysyms(const QList<unsigned> &modifiers, unsigned keysym);
    // One wheel step: up or down.
    void scroll(bool up);

    // The settings key of the restore token.
    static const QString tokenKey;

signals:
    void stateChanged(RemoteDesktopPortal::State state);

private:
    using Step = std::function<void()>;
    void setState(State state);
    void onAvailability(const QVariantMap &properties);
    // Version 2 and later keep the user's permission through a restore token.
    bool keepsPermission() const { return m_version >= 2; }
    // Sends now when the session is there, else starts it and sends once it is.
    void whenReady(const Step &step);
    void createSession();
    void selectDevices();
    void start();
    // Calls a portal method that answers through a Request object's Response signal.
    void request(const QString &method, QList<QVariant> arguments, QVariantMap options,
        void (RemoteDesktopPortal::*onResponse)(uint, const QVariantMap &));
    void onCreated(uint response, const QVariantMap &results);
    void onSelected(uint response, const QVariantMap &results);
    void onStarted(uint response, const QVariantMap &results);
    void fail(const QString &why, State state);
    // Queues an input call on the session; sendNext() sends the first once nothing is under way.
    void notify(const QString &method, const QList<QVariant> &arguments);
    void sendNext();

    State m_state = Unknown;
    // The portal's RemoteDesktop interface version.
    uint m_version = 0;
    QDBusObjectPath m_session;
    QList<Step> m_waiting;
    // Input calls not yet sent, and whether one is awaiting its answer.
    QList<QDBusMessage> m_outgoing;
    bool m_sending = false;
    // Said once while input is dropped.
    bool m_dropping = false;
    // The reply handler of the request now under way.
    void (RemoteDesktopPortal::*m_onResponse)(uint, const QVariantMap &) = nullptr;
    QString m_requestPath;

private slots:
    void onResponse(uint response, const QVariantMap &results);
    void onSessionClosed();
};

#include "remotedesktopportal.h"

#include "linuxlogging.h"
#include "windowsession.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusVariant>
#include <QSettings>

const QString RemoteDesktopPortal::tokenKey = QStringLiteral("remoteDesktopToken");

namespace {
const QString service = QStringLiteral("org.freedesktop.portal.Desktop");
const QString path = QStringLiteral("/org/freedesktop/portal/desktop");
const QString remoteDesktop = QStringLiteral("org.freedesktop.portal.RemoteDesktop");
const QString requestInterface = QStringLiteral("org.freedesktop.portal.Request");
const QString sessionInterface = QStringLiteral("org.freedesktop.portal.Session");
constexpr uint keyboard = 1;
constexpr uint pointer = 2;
// Kept until the user revokes it.
constexpr uint persistUntilRevoked = 2;
// Input waiting for the consent dialog is kept within reason.
constexpr int maxWaiting = 256;
// Input calls queued behind the one awaiting its answer (a long text is two calls a character).
constexpr int maxOutgoing = 8192;

// Tokens name request and session objects of this connection: never the same twice.
QString newToken()
{
    static int count = 0;
    return QStringLiteral("velm%1").arg(++count);
}
} // namespace

RemoteDesktopPortal::RemoteDesktopPortal(QObject *parent)
    : QObject(parent)
{
    QDBusMessage get = QDBusMessage::createMethodCall(
        service, path, QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("GetAll"));
    get << remoteDesktop;
    auto *watcher = new QDBusPendingCallWatcher(QDBusConnection::sessionBus().asyncCall(get), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, watcher] {
        watcher->deleteLater();
        const QDBusPendingReply<QVariantMap> reply = *watcher;
        if (reply.isError()) {
            qCInfo(lcLinux) << "No remote desktop portal:" << reply.error().message();
            m_waiting.clear();
            setState(Unavailable);
            return;
        }
        onAvailability(reply.value());
    });
}

void RemoteDesktopPortal::onAvailability(const QVariantMap &properties)
{
    // Version 1 grants no restore token: the desktop asks at every start of the program.
    m_version = properties.value(QStringLiteral("version"), 1u).toUInt();
    const uint types = properties.value(QStringLiteral("AvailableDeviceTypes")).toUInt();
    if ((types & (keyboard | pointer)) != (keyboard | pointer)) {
        qCInfo(lcLinux) << "The remote desktop portal offers no keyboard and pointer";
        m_waiting.clear();
        setState(Unavailable);
        return;
    }
    if (m_state != Unknown)
        return;
    if (!keepsPermission()) {
        qCInfo(lcLinux).noquote() << QStringLiteral(
            "The desktop's remote desktop portal is of version %1 and keeps no permission: it "
            "asks at every start of Velm Server, at the first key or wheel step")
                                         .arg(m_version);
    }
    setState(Idle);
    if (!m_waiting.isEmpty())
        createSession();
}

void RemoteDesktopPortal::setState(State state)
{
    if (m_state == state)
        return;
    m_state = state;
    emit stateChanged(state);
}

void RemoteDesktopPortal::pressKeysyms(const QList<unsigned> &modifiers, unsigned keysym)
{
    whenReady([this, modifiers, keysym] {
        auto key = [this](unsigned sym, bool press) {
            notify(QStringLiteral("NotifyKeyboardKeysym"),
                { QVariantMap(), int(sym), press ? 1u : 0u });
        };
        pressInChordOrder(modifiers, keysym, key);
    });
}

void RemoteDesktopPortal::scroll(bool up)
{
    whenReady([this, up] {
        // Axis 0 is the vertical one; a negative step scrolls up.
        notify(QStringLiteral("NotifyPointerAxisDiscrete"), { QVariantMap(), 0u, up ? -1 : 1 });
    });
}

void RemoteDesktopPortal::notify(const QString &method, const QList<QVariant> &arguments)
{
    QDBusMessage call = QDBusMessage::createMethodCall(service, path, remoteDesktop, method);
    call << QVariant::fromValue(m_session);
    for (const QVariant &argument : arguments)
        call << argument;
    // A portal that stops answering must not make the queue grow without end; a press whose
    // release is dropped is let go by the desktop when the session ends.
    if (m_outgoing.size() >= maxOutgoing) {
        if (!m_dropping)
            qCWarning(lcLinux) << "Remote desktop: the portal does not keep up; input dropped";
        m_dropping = true;
        return;
    }
    m_dropping = false;
    m_outgoing.append(call);
    sendNext();
}

void RemoteDesktopPortal::sendNext()
{
    if (m_sending || m_outgoing.isEmpty())
        return;
    const QDBusMessage call = m_outgoing.takeFirst();
    m_sending = true;
    auto *watcher
        = new QDBusPendingCallWatcher(QDBusConnection::sessionBus().asyncCall(call), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, call, watcher] {
        watcher->deleteLater();
        // A failure is only logged; what follows is still sent.
        if (watcher->isError())
            qCWarning(lcLinux) << "Remote desktop" << call.member() << watcher->error().message();
        m_sending = false;
        sendNext();
    });
}

void RemoteDesktopPortal::whenReady(const Step &step)
{
    switch (m_state) {
    case Ready:
        step();
        return;
    case Idle:
        if (m_waiting.size() < maxWaiting)
            m_waiting.append(step);
        createSession();
        return;
    case Starting:
    case Unknown:
        // Unknown: the availability answer comes first, then the session.
        if (m_waiting.size() < maxWaiting)
            m_waiting.append(step);
        else
            qCWarning(lcLinux) << "Remote desktop: input dropped while the session starts";
        return;
    case Unavailable:
    case Refused:
        qCWarning(lcLinux) << "Remote desktop: no input allowed";
        return;
    }
}

void RemoteDesktopPortal::createSession()
{
    setState(Starting);
    request(QStringLiteral("CreateSession"), {},
        { { QStringLiteral("session_handle_token"), newToken() } },
        &RemoteDesktopPortal::onCreated);
}

void RemoteDesktopPortal::request(const QString &method, QList<QVariant> arguments,
    QVariantMap options, void (RemoteDesktopPortal::*onResponse)(uint, const QVariantMap &))
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    // The answer comes as a signal of a Request object whose path the caller can know in
    // advance: listen there before asking, so that it cannot be missed.
    const QString token = newToken();
    QString sender = bus.baseService().mid(1);
    sender.replace(QLatin1Char('.'), QLatin1Char('_'));
    if (!m_requestPath.isEmpty())
        bus.disconnect(service, m_requestPath, requestInterface, QStringLiteral("Response"), this,
            SLOT(onResponse(uint, QVariantMap)));
    m_requestPath
        = QStringLiteral("/org/freedesktop/portal/desktop/request/%1/%2").arg(sender, token);
    m_onResponse = onResponse;
    bus.connect(service, m_requestPath, requestInterface, QStringLiteral("Response"), this,
        SLOT(onResponse(uint, QVariantMap)));
    options.insert(QStringLiteral("handle_token"), token);
    QDBusMessage call = QDBusMessage::createMethodCall(service, path, remoteDesktop, method);
    arguments.append(options);
    call.setArguments(arguments);
    auto *watcher = new QDBusPendingCallWatcher(bus.asyncCall(call), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, method, watcher] {
        watcher->deleteLater();
        if (watcher->isError())
            fail(method + QLatin1Char(' ') + watcher->error().message(), Idle);
    });
}

void RemoteDesktopPortal::onResponse(uint response, const QVariantMap &results)
{
    if (auto handler = std::exchange(m_onResponse, nullptr))
        (this->*handler)(response, results);
}

void RemoteDesktopPortal::onCreated(uint response, const QVariantMap &results)
{
    if (response != 0) {
        fail(QStringLiteral("the desktop did not open a session"), Idle);
        return;
    }
    m_session = QDBusObjectPath(results.value(QStringLiteral("session_handle")).toString());
    QDBusConnection::sessionBus().connect(service, m_session.path(), sessionInterface,
        QStringLiteral("Closed"), this, SLOT(onSessionClosed()));
    selectDevices();
}

void RemoteDesktopPortal::selectDevices()
{
    QVariantMap options { { QStringLiteral("types"), keyboard | pointer } };
    // Before version 2 neither option exists.
    if (keepsPermission()) {
        options.insert(QStringLiteral("persist_mode"), persistUntilRevoked);
        const QString token = QSettings().value(tokenKey).toString();
        if (!token.isEmpty())
            options.insert(QStringLiteral("restore_token"), token);
    }
    request(QStringLiteral("SelectDevices"), { QVariant::fromValue(m_session) }, options,
        &RemoteDesktopPortal::onSelected);
}

void RemoteDesktopPortal::onSelected(uint response, const QVariantMap &)
{
    if (response != 0) {
        fail(QStringLiteral("the desktop refused the devices"), Refused);
        return;
    }
    start();
}

void RemoteDesktopPortal::start()
{
    // No window of ours to attach the consent dialog to.
    request(QStringLiteral("Start"), { QVariant::fromValue(m_session), QString() }, {},
        &RemoteDesktopPortal::onStarted);
}

void RemoteDesktopPortal::onStarted(uint response, const QVariantMap &results)
{
    if (response != 0) {
        // 1: the user said no; 2: the dialog went away otherwise.
        fail(response == 1 ? QStringLiteral("the user refused remote input")
                           : QStringLiteral("the desktop ended the request"),
            response == 1 ? Refused : Idle);
        return;
    }
    // Tokens are used once: each start gives the one for the next.
    const QString token = results.value(QStringLiteral("restore_token")).toString();
    if (keepsPermission() && !token.isEmpty())
        QSettings().setValue(tokenKey, token);
    qCInfo(lcLinux) << "Remote desktop session started";
    setState(Ready);
    const QList<Step> waiting = std::exchange(m_waiting, {});
    for (const Step &step : waiting)
        step();
}

void RemoteDesktopPortal::fail(const QString &why, State state)
{
    qCWarning(lcLinux).noquote() << "Remote desktop:" << why;
    m_waiting.clear();
    m_outgoing.clear();
    m_session = QDBusObjectPath();
    setState(state);
}

void RemoteDesktopPortal::onSessionClosed()
{
    // The desktop ended it (the user stopped sharing): the next input starts a new one, with
    // the restore token when there is one.
    QDBusConnection::sessionBus().disconnect(service, m_session.path(), sessionInterface,
        QStringLiteral("Closed"), this, SLOT(onSessionClosed()));
    qCInfo(lcLinux) << "Remote desktop session closed by the desktop";
    // Calls for the ended session would only fail.
    m_outgoing.clear();
    m_session = QDBusObjectPath();
    if (m_state == Ready)
        setState(Idle);
}

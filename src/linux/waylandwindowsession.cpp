#include "waylandwindowsession.h"

#include "linuxlogging.h"
#include "waylandconnection.h"

#include <QMetaObject>

#include <xkbcommon/xkbcommon.h>

WaylandWindowSession::WaylandWindowSession(WaylandConnection *connection, QObject *parent)
    : WindowSession(parent)
    , m_connection(connection)
{
    connection->setParent(this);
    m_context = xkb_context_new(XKB_CONTEXT_NO_FLAGS);
    m_seat = new WaylandSeat(connection, this);
    connect(m_seat, &WaylandSeat::keymapReceived, this, &WaylandWindowSession::onKeymap);
    // Every proxy goes before the connection does; the windows are gone with it.
    connect(connection, &WaylandConnection::lost, this, [this] {
        releaseProxies();
        m_seat->release();
        withdrawAll();
        emit capabilitiesChanged();
    });
}

WaylandWindowSession::~WaylandWindowSession()
{
    // The keymap goes before its context, the seat before its connection.
    setKeymap(nullptr);
    if (m_context)
        xkb_context_unref(m_context);
    delete m_seat;
    m_seat = nullptr;
    delete m_connection;
    m_connection = nullptr;
}

QIcon WaylandWindowSession::windowIcon(WId id) const
{
    const QByteArray appId = m_windows.value(id).className;
    return appId.isEmpty() ? QIcon() : QIcon::fromTheme(QString::fromUtf8(appId));
}

xkb_keymap *WaylandWindowSession::compile(const QByteArray &text) const
{
    if (!m_context || text.isEmpty())
        return nullptr;
    return xkb_keymap_new_from_buffer(m_context, text.constData(), size_t(text.size()),
        XKB_KEYMAP_FORMAT_TEXT_V1, XKB_KEYMAP_COMPILE_NO_FLAGS);
}

QByteArray WaylandWindowSession::textOf(xkb_keymap *keymap)
{
    char *text = keymap ? xkb_keymap_get_as_string(keymap, XKB_KEYMAP_FORMAT_TEXT_V1) : nullptr;
    QByteArray result(text);
    free(text);
    return result;
}

void WaylandWindowSession::onKeymap(const QByteArray &text)
{
    xkb_keymap *received = compile(text);
    if (!received) {
        qCWarning(lcLinux) << "Unreadable keymap from the compositor";
        return;
    }
    // The same layout again (a virtual keyboard's own keymap coming back, or another keyboard
    // with the same layout becoming the seat's) changes nothing.
    if (hasLayout() && textOf(received) == textOf(keymap())) {
        xkb_keymap_unref(received);
        return;
    }
    setKeymap(received);
    keymapTaken();
}

void WaylandWindowSession::publish(const DesktopWindow &info, bool activated)
{
    const WId id = info.id;
    const auto known = m_windows.constFind(id);
    if (known == m_windows.constEnd()) {
        m_windows.insert(id, info);
        m_order.append(id);
        emit windowAdded(id);
    } else {
        const DesktopWindow before = *known;
        m_windows.insert(id, info);
        if (before.title != info.title || before.className != info.className
            || before.pid != info.pid || before.regular != info.regular
            || before.minimized != info.minimized || before.maximized != info.maximized
            || before.fullscreen != info.fullscreen)
            emit windowChanged(id);
    }
    if (activated && m_active != id) {
        m_active = id;
        m_order.removeOne(id);
        m_order.append(id);
        emit activeWindowChanged(id);
    } else if (!activated && m_active == id) {
        // Another window is usually activated in the same burst of events: announce "none"
        // only when that did not happen.
        m_active = 0;
        QMetaObject::invokeMethod(
            this,
            [this] {
                if (!m_active)
                    emit activeWindowChanged(0);
            },
            Qt::QueuedConnection);
    }
}

void WaylandWindowSession::withdraw(WId id)
{
    if (!m_windows.remove(id))
        return;
    m_order.removeOne(id);
    emit windowRemoved(id);
    if (m_active == id) {
        m_active = 0;
        emit activeWindowChanged(0);
    }
}

void WaylandWindowSession::withdrawAll()
{
    const QList<WId> gone = m_order;
    for (WId id : gone)
        withdraw(id);
}

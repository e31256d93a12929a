#include "waylandconnection.h"

#include "linuxlogging.h"

#include <QFile>
#include <QSocketNotifier>

#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>
#include <wayland-client.h>

namespace {
const wl_registry_listener registryListener = {
    &WaylandConnection::onGlobal,
    &WaylandConnection::onGlobalRemove,
};

void onSeatCapabilities(void *data, wl_seat *, uint32_t capabilities)
{
    static_cast<WaylandSeat *>(data)->onCapabilities(capabilities);
}

void onSeatName(void *, wl_seat *, const char *) { }

// The listeners are filled by name, so that a header with newer events still compiles; those
// events cannot arrive, since the seat is bound at the version below.
constexpr uint32_t seatVersion = 5;
const wl_seat_listener seatListener = [] {
    wl_seat_listener listener {};
    listener.capabilities = onSeatCapabilities;
    listener.name = onSeatName;
    return listener;
}();

void onKeymap(void *data, wl_keyboard *, uint32_t format, int fd, uint32_t size)
{
    static_cast<WaylandSeat *>(data)->onKeymap(format, fd, size);
}
void onEnter(void *, wl_keyboard *, uint32_t, wl_surface *, wl_array *) { }
void onLeave(void *, wl_keyboard *, uint32_t, wl_surface *) { }
void onKey(void *, wl_keyboard *, uint32_t, uint32_t, uint32_t, uint32_t) { }
void onModifiers(void *, wl_keyboard *, uint32_t, uint32_t, uint32_t, uint32_t, uint32_t) { }
void onRepeatInfo(void *, wl_keyboard *, int32_t, int32_t) { }

// The keyboard comes from the seat, at the seat's version.
const wl_keyboard_listener keyboardListener = [] {
    wl_keyboard_listener listener {};
    listener.keymap = onKeymap;
    listener.enter = onEnter;
    listener.leave = onLeave;
    listener.key = onKey;
    listener.modifiers = onModifiers;
    listener.repeat_info = onRepeatInfo;
    return listener;
}();

// The version from which a message exists: the digits its signature starts with, 1 without.
uint32_t sinceVersion(const wl_message &message)
{
    uint32_t since = 0;
    for (const char *c = message.signature; *c >= '0' && *c <= '9'; ++c)
        since = since * 10 + uint32_t(*c - '0');
    return since ? since : 1;
}
} // namespace

QList<QByteArray> unansweredEvents(const WaylandListener &listener)
{
    QList<QByteArray> unanswered;
    // A listener is a struct of function pointers in the order of the interface's events, the
    // layout libwayland itself relies on.
    using Function = void (*)();
    const auto *functions = static_cast<const Function *>(listener.functions);
    for (int i = 0; i < listener.interface->event_count; ++i) {
        const wl_message &event = listener.interface->events[i];
        if (sinceVersion(event) <= listener.version && (!functions || !functions[i]))
            unanswered << QByteArray(event.name);
    }
    return unanswered;
}

WaylandConnection::WaylandConnection(QObject *parent)
    : QObject(parent)
{
    if (qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY"))
        return;
    m_display = wl_display_connect(nullptr);
    if (!m_display) {
        qCWarning(lcLinux) << "Cannot connect to the Wayland compositor"
                           << qgetenv("WAYLAND_DISPLAY");
        return;
    }
    m_registry = wl_display_get_registry(m_display);
    wl_registry_add_listener(m_registry, &registryListener, this);
    m_notifier = new QSocketNotifier(wl_display_get_fd(m_display), QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, &WaylandConnection::dispatch);
    if (!roundtrip())
        qCWarning(lcLinux) << "The Wayland compositor did not answer";
}

WaylandConnection::~WaylandConnection()
{
    if (m_registry)
        wl_registry_destroy(m_registry);
    if (m_display)
        wl_display_disconnect(m_display);
}

bool WaylandConnection::sessionIsWayland()
{
    return !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY")
        || qgetenv("XDG_SESSION_TYPE") == "wayland";
}

void WaylandConnection::onGlobal(
    void *data, wl_registry *, uint32_t name, const char *interface, uint32_t version)
{
    static_cast<WaylandConnection *>(data)->m_globals.insert(
        QByteArray(interface), Global { name, version });
}

void WaylandConnection::onGlobalRemove(void *data, wl_registry *, uint32_t name)
{
    auto &globals = static_cast<WaylandConnection *>(data)->m_globals;
    for (auto it = globals.begin(); it != globals.end(); ++it) {
        if (it->name == name) {
            globals.erase(it);
            return;
        }
    }
}

void *WaylandConnection::bind(const WaylandListener &listener, void *data)
{
    const QByteArray name(listener.interface->name);
    const auto it = m_globals.constFind(name);
    if (!m_registry || it == m_globals.constEnd())
        return nullptr;
    const uint32_t version = qMin(it->version, listener.version);
    auto *proxy = static_cast<wl_proxy *>(
        wl_registry_bind(m_registry, it->name, listener.interface, version));
    if (!proxy)
        return nullptr;
    if (listener.functions) {
        wl_proxy_add_listener(proxy,
            const_cast<void (**)()>(static_cast<void (*const *)()>(listener.functions)), data);
    }
    m_bound.insert(name, version);
    return proxy;
}

uint32_t WaylandConnection::version(const char *interface) const
{
    return m_globals.value(QByteArray(interface)).version;
}

uint32_t WaylandConnection::boundVersion(const char *interface) const
{
    return m_bound.value(QByteArray(interface));
}

QByteArray WaylandConnection::compositorName() const
{
    if (!m_display)
        return QByteArray();
    ucred peer {};
    socklen_t size = sizeof peer;
    if (getsockopt(wl_display_get_fd(m_display), SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0
        || peer.pid <= 0)
        return QByteArray();
    QFile comm(QStringLiteral("/proc/%1/comm").arg(peer.pid));
    if (!comm.open(QIODevice::ReadOnly))
        return QByteArray();
    return comm.readAll().trimmed();
}

void WaylandConnection::flush()
{
    if (m_display && wl_display_flush(m_display) < 0 && errno != EAGAIN)
        fail();
}

bool WaylandConnection::roundtrip()
{
    if (!m_display)
        return false;
    if (wl_display_roundtrip(m_display) < 0) {
        fail();
        return false;
    }
    return true;
}

void WaylandConnection::dispatch()
{
    if (!m_display)
        return;
    // The reading protocol libwayland asks of anyone sharing a connection with other readers.
    while (wl_display_prepare_read(m_display) != 0) {
        if (wl_display_dispatch_pending(m_display) < 0) {
            fail();
            return;
        }
    }
    if (wl_display_read_events(m_display) < 0 || wl_display_dispatch_pending(m_display) < 0) {
        fail();
        return;
    }
    flush();
}

void WaylandConnection::fail()
{
    if (!m_display)
        return;
    qCWarning(lcLinux) << "Lost the Wayland compositor:"
                       << strerror(wl_display_get_error(m_display));
    // The objects of the connection are gone with it; the session drops its pointers first.
    emit lost();
    delete m_notifier;
    m_notifier = nullptr;
    m_globals.clear();
    m_bound.clear();
    if (m_registry)
        wl_registry_destroy(m_registry);
    m_registry = nullptr;
    wl_display_disconnect(m_display);
    m_display = nullptr;
}

WaylandSeat::WaylandSeat(WaylandConnection *connection, QObject *parent)
    : QObject(parent)
{
    m_seat = static_cast<wl_seat *>(connection->bind(listeners().first(), this));
}

QList<WaylandListener> WaylandSeat::listeners()
{
    return {
        { &wl_seat_interface, &seatListener, seatVersion },
        { &wl_keyboard_interface, &keyboardListener, seatVersion },
    };
}

WaylandSeat::~WaylandSeat() { release(); }

void WaylandSeat::release()
{
    if (m_keyboard)
        wl_keyboard_destroy(m_keyboard);
    if (m_seat)
        wl_seat_destroy(m_seat);
    m_keyboard = nullptr;
    m_seat = nullptr;
}

void WaylandSeat::onCapabilities(uint32_t capabilities)
{
    const bool keyboard = capabilities & WL_SEAT_CAPABILITY_KEYBOARD;
    if (keyboard && !m_keyboard) {
        m_keyboard = wl_seat_get_keyboard(m_seat);
        wl_keyboard_add_listener(m_keyboard, &keyboardListener, this);
    } else if (!keyboard && m_keyboard) {
        wl_keyboard_release(m_keyboard);
        m_keyboard = nullptr;
    }
}

void WaylandSeat::onKeymap(uint32_t format, int fd, uint32_t size)
{
    QByteArray text;
    if (format == WL_KEYBOARD_KEYMAP_FORMAT_XKB_V1 && size > 0) {
        void *data = mmap(nullptr, size, PROT_READ, MAP_PRIVATE, fd, 0);
        if (data != MAP_FAILED) {
            const auto *begin = static_cast<const char *>(data);
            text = QByteArray(begin, int(strnlen(begin, size)));
            munmap(data, size);
        }
    }
    ::close(fd);
    if (text.isEmpty())
        qCWarning(lcLinux) << "Unreadable keymap from the compositor";
    else
        emit keymapReceived(text);
}

#include "waylandconnection.h"

#include "linuxlogging.h"

#include <QFile>
#include <QSocketNotifier>

#include <sys/socket.h>
#include <wayland-client.h>

namespace {
const wl_registry_listener registryListener = {
    &WaylandConnection::onGlobal,
    &WaylandConnection::onGlobalRemove,
};
} // namespace

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

void *WaylandConnection::bind(const wl_interface *interface, uint32_t maxVersion) const
{
    const auto it = m_globals.constFind(QByteArray(interface->name));
    if (!m_registry || it == m_globals.constEnd())
        return nullptr;
    return wl_registry_bind(m_registry, it->name, interface, qMin(it->version, maxVersion));
}

uint32_t WaylandConnection::version(const char *interface) const
{
    return m_globals.value(QByteArray(interface)).version;
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
    if (m_registry)
        wl_registry_destroy(m_registry);
    m_registry = nullptr;
    wl_display_disconnect(m_display);
    m_display = nullptr;
}

#include "networkchanges.h"

#include "serverlogging.h"

#include <QSocketNotifier>

#ifdef Q_OS_LINUX
#include <cerrno>
#include <cstring>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>
#include <unistd.h>
#endif

NetworkChanges::NetworkChanges(QObject *parent)
    : QObject(parent)
{
#ifdef Q_OS_LINUX
    m_socket = ::socket(AF_NETLINK, SOCK_RAW | SOCK_NONBLOCK | SOCK_CLOEXEC, NETLINK_ROUTE);
    if (m_socket < 0) {
        qCWarning(lcServer) << "Cannot watch the network for changes:" << strerror(errno);
        return;
    }
    sockaddr_nl address;
    memset(&address, 0, sizeof address);
    address.nl_family = AF_NETLINK;
    // Links coming and going, up and down, and IPv4 addresses: all the network check looks at.
    address.nl_groups = RTMGRP_LINK | RTMGRP_IPV4_IFADDR;
    if (::bind(m_socket, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0) {
        qCWarning(lcServer) << "Cannot watch the network for changes:" << strerror(errno);
        stopWatching();
        return;
    }
    m_notifier = new QSocketNotifier(m_socket, QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, &NetworkChanges::onReadable);
#endif
}

NetworkChanges::~NetworkChanges() { stopWatching(); }

bool NetworkChanges::takeChanged()
{
    const bool changed = m_changed || !isWatching();
    m_changed = false;
    return changed;
}

void NetworkChanges::onReadable()
{
#ifdef Q_OS_LINUX
    // What changed does not matter, only that something did: the messages are read and dropped.
    char buffer[8192];
    for (;;) {
        const ssize_t size = ::recv(m_socket, buffer, sizeof buffer, 0);
        if (size > 0)
            continue;
        // ENOBUFS: the kernel dropped messages it had no room for; a change is all that counts,
        // and one is recorded below either way.
        if (size < 0 && (errno == EINTR || errno == ENOBUFS))
            continue;
        if (size == 0 || errno == EAGAIN || errno == EWOULDBLOCK)
            break;
        qCWarning(lcServer) << "Cannot watch the network for changes:" << strerror(errno);
        stopWatching();
        break;
    }
#endif
    m_changed = true;
    emit changed();
}

void NetworkChanges::stopWatching()
{
    delete m_notifier;
    m_notifier = nullptr;
#ifdef Q_OS_LINUX
    if (m_socket >= 0)
        ::close(m_socket);
#endif
    m_socket = -1;
}

#include "server.h"

#include "constants.h"
#include "framegate.h"
#include "json.h"
#include "l.h"
#include "messagehandler.h"
#include "networkchanges.h"
#include "random.h"
#include "request.h"
#include "serverlogging.h"
#include "webremote.h"

#include <QCryptographicHash>
#include <QDateTime>
#include <QGuiApplication>
#include <QHostInfo>
#include <QJsonDocument>
#include <QNetworkInterface>
#include <QSettings>
#include <QSysInfo>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>
#include <QUrlQuery>
#include <QWebSocket>
#include <QWebSocketCorsAuthenticator>
#include <QWebSocketServer>

#include <QtEndian>
#include <cerrno>
#ifdef __GLIBC__
#include <malloc.h>
#endif
#include <cstring>
#include <sys/resource.h>
#include <sys/socket.h>

Q_LOGGING_CATEGORY(lcServer, "velm.server")
Q_LOGGING_CATEGORY(lcZeroConf, "velm.server.zeroconf")

namespace {

constexpr int networkWatchInterval = 5000;
constexpr int listenRetryDelay = 100;
// Set on a TCP connection once its request head has come whole, and once it has been handed
// to the WebSocket layer.
constexpr const char *headProperty = "head";
constexpr const char *upgradedProperty = "upgraded";
// Out of descriptors: accepting again at once would fail again at once.
constexpr int acceptPause = 1000;
constexpr int handshakeTimeout = 10000;
constexpr int tokenLength = 32;
// Logged payloads come from unauthenticated peers too: keep the lines bounded.
constexpr int maxLoggedBytes = 1024;

// Set while the application is suspended and the advertisement withdrawn.
bool suspended = false;

QByteArray excerpt(const QByteArray &bytes)
{
    if (bytes.size() <= maxLoggedBytes)
        return bytes;
    return bytes.left(maxLoggedBytes) + "... (" + QByteArray::number(bytes.size()) + " bytes)";
}

// Connections arrive dual-stack: an IPv4 peer is one address however it arrived.
QHostAddress plainAddress(const QHostAddress &address)
{
    bool isIPv4 = false;
    const quint32 ipv4 = address.toIPv4Address(&isIPv4);
    return isIPv4 ? QHostAddress(ipv4) : address;
}

QString operatingSystemName()
{
#if defined(Q_OS_MACOS)
    return QStringLiteral("mac");
#elif defined(Q_OS_LINUX)
    return QStringLiteral("linux");
#else
    return QSysInfo::kernelType();
#endif
}

} // namespace

Server::Server(QObject *parent)
    : QObject(parent)
    , zeroConf(this)
    , aes(QAESEncryption::AES_128, QAESEncryption::CBC, QAESEncryption::PKCS7)
{
    connect(&zeroConf, &QZeroConf::error, this, &Server::onZeroConfError);
    connect(&zeroConf, &QZeroConf::servicePublished, this, &Server::onZeroConfServicePublished);

    zeroConf.addServiceTxtRecord(QStringLiteral("os"), operatingSystemName());
    const QList<QHostAddress> addresses = QNetworkInterface::allAddresses();
    for (const QHostAddress &address : addresses) {
        if (address.protocol() == QAbstractSocket::IPv4Protocol
            && address != QHostAddress(QHostAddress::LocalHost) && !address.isLoopback()) {
            zeroConf.addServiceTxtRecord(QStringLiteral("ip"), address.toString());
            break;
        }
    }

    raiseDescriptorLimit();
    keepHeapThroughBursts();
    startMonitoringConnection();
    startWebSocketServer();

    if (auto *app = qobject_cast<QGuiApplication *>(QCoreApplication::instance())) {
        connect(app, &QGuiApplication::applicationStateChanged, this,
            &Server::onApplicationStateChanged);
    }
}

Server::~Server()
{
    delete tcpServer;
    delete webSocketServer;
}

void Server::raiseDescriptorLimit()
{
    // Every connection costs a descriptor; the usual soft limit of 1,024 is soon reached.
    struct rlimit limit;
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0)
        return;
    rlim_t wanted = limit.rlim_max;
    // Some systems have no hard limit but refuse an infinite soft one.
    if (wanted == RLIM_INFINITY)
        wanted = 10240;
    if (limit.rlim_cur != RLIM_INFINITY && limit.rlim_cur >= wanted)
        return;
    limit.rlim_cur = wanted;
    if (setrlimit(RLIMIT_NOFILE, &limit) != 0)
        qCWarning(lcServer) << "Cannot raise the limit of open files:" << strerror(errno);
}

void Server::keepHeapThroughBursts()
{
#ifdef __GLIBC__
    // Every read from a connection takes a 16 KiB buffer from the allocator and gives it back
    // once the frame is read. With many clients those come and go in waves of megabytes, and
    // glibc's default (the top of the heap handed back to the kernel beyond 128 KiB) returned
    // each wave's memory and faulted it in again on the next, a page fault for every message
    // with 100 clients. The top is kept up to a few MiB; the coordinator hands freed memory
    // back a minute after the last client leaves.
    static const bool done = mallopt(M_TRIM_THRESHOLD, 4 * 1024 * 1024) != 0;
    Q_UNUSED(done)
#endif
}

void Server::startMonitoringConnection()
{
    if (!networkChanges)
        networkChanges = new NetworkChanges(this);
    // Taken before the check, so that a change while it looks is looked at again.
    networkChanges->takeChanged();
    networkUp = networkCheck();
    networkWatchTimer = new QTimer(this);
    networkWatchTimer->setInterval(networkWatchInterval);
    networkWatchTimer->setTimerType(Qt::VeryCoarseTimer);
    connect(networkWatchTimer, &QTimer::timeout, this, &Server::onNetworkWatch);
    if (networkChanges->isWatching()) {
        // The kernel says when something changes: the watch runs 5 s after a change, as it
        // would on its own, and the program does not wake while the network is quiet.
        networkWatchTimer->setSingleShot(true);
        connect(networkChanges, &NetworkChanges::changed, networkWatchTimer, [this] {
            if (!networkWatchTimer->isActive())
                networkWatchTimer->start();
        });
    } else {
        networkWatchTimer->start();
    }
}

bool Server::networkCheck()
{
    const QList<QNetworkInterface> interfaces = QNetworkInterface::allInterfaces();
    for (const QNetworkInterface &interface : interfaces) {
        if (interface.type() == QNetworkInterface::Loopback
            || !(interface.flags() & QNetworkInterface::IsRunning))
            continue;
        const QList<QNetworkAddressEntry> entries = interface.addressEntries();
        for (const QNetworkAddressEntry &entry : entries) {
            if (!entry.broadcast().toString().isEmpty())
                return true;
        }
    }
    return false;
}

void Server::onNetworkWatch()
{
    if (!networkChanges->isWatching() && networkWatchTimer->isSingleShot()) {
        // The kernel stopped answering: back to looking every 5 s.
        networkWatchTimer->setSingleShot(false);
        networkWatchTimer->start();
    }
    // Looking at every interface costs a dump of them all from the kernel; while no link or
    // address changed, the answer would be the one already held.
    if (!networkChanges->takeChanged())
        return;
    const bool up = networkCheck();
    if (up == networkUp)
        return;
    networkUp = up;
    if (up && zeroConf.publishExists()) {
        zeroConf.stopServicePublish();
        publishZeroConfService();
    }
}

void Server::onApplicationStateChanged(Qt::ApplicationState state)
{
    if (state == Qt::ApplicationSuspended) {
        if (zeroConf.publishExists()) {
            zeroConf.stopServicePublish();
            suspended = true;
        }
    } else if (suspended) {
        suspended = false;
        publishZeroConfService();
    }
}

void Server::startWebSocketServer()
{
    QSettings settings;
    quint16 port = quint16(settings.value(QStringLiteral("lastUsedPort")).toUInt());
    // Only a port of the dynamic range (49152 to 65535) is worth remembering.
    if ((port & 0xC000) != 0xC000)
        port = quint16(Random::integer(49152, 65535));

    if (tcpServer) {
        tcpServer->close();
        tcpServer->deleteLater();
    }
    if (webSocketServer)
        webSocketServer->deleteLater();
    // The WebSocket endpoint does not listen itself: it is handed each connection.
    webSocketServer = new QWebSocketServer(Constants::NAME, QWebSocketServer::NonSecureMode);
    webSocketServer->setHandshakeTimeout(handshakeTimeout);
    connect(webSocketServer, &QWebSocketServer::newConnection, this, &Server::onNewConnection);
    connect(webSocketServer, &QWebSocketServer::originAuthenticationRequired, this,
        &Server::onOriginAuthenticationRequired);
    tcpServer = new QTcpServer;

    if (tcpServer->listen(QHostAddress::Any, port)) {
        connect(tcpServer, &QTcpServer::newConnection, this, &Server::onTcpConnection);
        connect(tcpServer, &QTcpServer::acceptError, this, &Server::onAcceptError);
        settings.setValue(QStringLiteral("lastUsedPort"), uint(port));
        // So that a person can point a client at it when nothing advertises it.
        qCInfo(lcServer).noquote() << zeroConfServiceName() << "listens on port" << port << "at"
                                   << reachableAddresses().join(QStringLiteral(", "));
        qCInfo(lcServer).noquote() << "The web remote is at" << webRemoteAddress();
        publishZeroConfService();
    } else {
        settings.remove(QStringLiteral("lastUsedPort"));
        QTimer::singleShot(listenRetryDelay, this, &Server::startWebSocketServer);
    }
}

quint16 Server::serverPort() const
{
    return tcpServer && tcpServer->isListening() ? tcpServer->serverPort() : 0;
}

void Server::onTcpConnection()
{
    while (QTcpSocket *transport = tcpServer->nextPendingConnection()) {
        // The listening socket is replaced on restart; its connections must outlive it.
        transport->setParent(this);
        // A reply with an attachment leaves in several writes; with Nagle's algorithm the last
        // piece would wait for the client's delayed acknowledgement (40 ms).
        transport->setSocketOption(QAbstractSocket::LowDelayOption, 1);
        const QHostAddress peer = plainAddress(transport->peerAddress());
        if (isRefused(peer)) {
            transport->abort();
            transport->deleteLater();
            continue;
        }
        makeRoomForStranger();
        strangers.append(transport);
        // Reads before the WebSocket layer does, and lets it see whole frames only.
        auto *gate = new FrameGate(transport);
        gate->setFrameLimit(maxIncomingMessageSizeBeforeAuthentication);
        // Connected before the WebSocket layer connects its own: each time the peer sends
        // something, first see whether it reads what it is sent.
        connect(transport, &QTcpSocket::readyRead, this, [this, transport] {
            checkBacklog(transport, authenticatedTransports.contains(transport));
        });
        connect(transport, &QObject::destroyed, this,
            [this](QObject *gone) { authenticatedTransports.remove(gone); });
        // The same port serves the web remote's files: only an upgrade goes to the WebSocket
        // layer, any other request is answered here and the connection closes.
        connect(
            gate, &FrameGate::headReceived, this, [this, transport, gate](const QByteArray &head) {
                transport->setProperty(headProperty, true);
                if (WebRemote::isUpgrade(head)) {
                    transport->setProperty(upgradedProperty, true);
                    webSocketServer->handleConnection(transport);
                    return;
                }
                gate->answer(WebRemote::respond(head));
            });
        // Once handed to the WebSocket layer the connection is that layer's to end; before
        // (answered, refused or timed out) it is this server's.
        connect(transport, &QTcpSocket::disconnected, this, [transport] {
            if (!transport->property(upgradedProperty).toBool())
                transport->deleteLater();
        });
        // Until its head is whole nobody else watches the connection's time.
        QTimer::singleShot(handshakeTimeout, transport, [transport] {
            if (!transport->property(headProperty).toBool())
                transport->abort();
        });
    }
}

void Server::onAcceptError(QAbstractSocket::SocketError error)
{
    // The listening socket stops accepting on such an error; it starts again after a while,
    // by which time connections may have ended (the oldest strangers are closed for room).
    qCWarning(lcServer) << "Cannot accept connections for now:" << error;
    makeRoomForStranger();
    const QPointer<QTcpServer> listening(tcpServer);
    QTimer::singleShot(acceptPause, this, [listening] {
        if (listening)
            listening->resumeAccepting();
    });
}

void Server::makeRoomForStranger()
{
    strangers.erase(std::remove_if(strangers.begin(), strangers.end(),
                        [](const QPointer<QTcpSocket> &t) { return t.isNull(); }),
        strangers.end());
    const QTcpSocket *prompted = pendingSocket ? transports.value(pendingSocket).data() : nullptr;
    while (strangers.size() >= maxUnauthenticatedConnections) {
        // The device at the pairing prompt keeps its place: the user is looking at it.
        auto oldest = strangers.begin();
        if (*oldest == prompted && strangers.size() > 1)
            ++oldest;
        QPointer<QTcpSocket> victim = *oldest;
        strangers.erase(oldest);
        if (victim)
            victim->abort();
    }
}

bool Server::checkBacklog(QTcpSocket *transport, bool authenticated)
{
    const qint64 limit = authenticated ? maxQueuedBytes : maxQueuedBytesBeforeAuthentication;
    if (transport->bytesToWrite() <= limit)
        return true;
    qCWarning(lcServer) << "Closing a connection that does not read:" << transport->bytesToWrite()
                        << "bytes wait for" << plainAddress(transport->peerAddress()).toString();
    transport->abort();
    return false;
}

void Server::onOriginAuthenticationRequired(QWebSocketCorsAuthenticator *authenticator)
{
    // Native clients send no Origin; a browser always does. Only pages of this server's own
    // origin may connect, so no other web page can raise the pairing prompt or use a token.
    const QString origin = authenticator->origin();
    if (origin.isEmpty() || isOwnOrigin(origin))
        return;
    authenticator->setAllowed(false);
    qCWarning(lcServer) << "Refused a connection from the web page" << excerpt(origin.toUtf8());
}

bool Server::isOwnOrigin(const QString &origin) const
{
    const QUrl url(origin, QUrl::StrictMode);
    if (!url.isValid() || url.scheme() != QLatin1String("http") || url.port() != serverPort()
        || !url.path().isEmpty() || !url.userInfo().isEmpty())
        return false;
    const QString host = url.host().toLower();
    const QString localHost = QHostInfo::localHostName().toLower();
    if (host == QLatin1String("localhost") || host == localHost
        || host == localHost + QStringLiteral(".local"))
        return true;
    const QHostAddress address(host);
    if (address.isNull())
        return false;
    const QList<QHostAddress> own = QNetworkInterface::allAddresses();
    for (const QHostAddress &candidate : own) {
        if (plainAddress(candidate).isEqual(plainAddress(address)))
            return true;
    }
    return false;
}

void Server::onServerClosed() { startWebSocketServer(); }

void Server::onSslErrors(const QList<QSslError> &errors)
{
    qCWarning(lcServer) << "void Server::onSslErrors(const QList<QSslError> &)" << errors;
}

void Server::onNewConnection()
{
    QWebSocket *socket = webSocketServer->nextPendingConnection();
    if (!socket)
        return;
    // The endpoint is replaced on restart; its connections must outlive it.
    socket->setParent(this);
    for (const QPointer<QTcpSocket> &transport : qAsConst(strangers)) {
        if (transport && transport->peerPort() == socket->peerPort()
            && transport->peerAddress() == socket->peerAddress()) {
            transports.insert(socket, transport);
            if (auto *gate = transport->findChild<FrameGate *>())
                gate->handshakeTaken();
            break;
        }
    }

    socket->setMaxAllowedIncomingMessageSize(maxIncomingMessageSizeBeforeAuthentication);
    socket->setMaxAllowedIncomingFrameSize(maxIncomingMessageSizeBeforeAuthentication);
    connections.append(socket);
    // The socket is bound here rather than looked up with sender(), which walks every
    // connection to the server on each message.
    connect(socket, &QWebSocket::binaryMessageReceived, this,
        [this, socket](const QByteArray &message) { dispatch(socket, message); });
    connect(socket, &QWebSocket::disconnected, this, &Server::socketDisconnected);

    const QUrlQuery query(socket->requestUrl());
    if (query.hasQueryItem(L::id)) {
        const QString id = query.queryItemValue(L::id, QUrl::FullyDecoded);
        if (isAuthorized(id))
            startAuthentication(id, socket);
        else
            startAuthorization(id, socket);
    } else {
        closeSocket(socket);
    }
    if (query.hasQueryItem(L::version))
        socket->setProperty(protocolVersionProperty, query.queryItemValue(L::version).toInt());
}

void Server::socketDisconnected()
{
    auto *socket = qobject_cast<QWebSocket *>(sender());
    if (!socket)
        return;
    disconnect(socket, nullptr, this, nullptr);
    connections.removeAll(socket);
    transports.remove(socket);
    sessionKeys.remove(socket);
    if (pendingSocket == socket)
        pendingSocket = nullptr;
    if (clients.removeAll(socket) > 0)
        emit clientCountChanged(clients.size());
    socket->deleteLater();
}

void Server::closeSocket(QWebSocket *socket)
{
    socket->close(QWebSocketProtocol::CloseCodeNormal, QString());
}

void Server::sendMessage(QWebSocket *socket, const QString &method, QJsonObject &&obj)
{
    // Written with "_" in its place, without inserting it into the object first.
    sendFramed(socket, Json::compact(obj, method), QVector<MessagePart>());
}

void Server::sendMessage(
    QWebSocket *socket, const QString &method, std::initializer_list<Json::Field> fields)
{
    sendFramed(socket, Json::compact(method, fields), QVector<MessagePart>());
}

void Server::sendMessage(
    QWebSocket *socket, const QJsonObject &obj, const QVector<MessagePart> &parts)
{
    sendFramed(socket, Json::compact(obj), parts);
}

void Server::sendMessage(QWebSocket *socket, const QJsonObject &obj, const MessagePart &part)
{
    sendMessage(socket, obj, QVector<MessagePart> { part });
}

void Server::sendJson(QWebSocket *socket, const QByteArray &json, const QVector<MessagePart> &parts)
{
    sendFramed(socket, json, parts);
}

void Server::broadcastMessage(const QString &method)
{
    if (clients.isEmpty())
        return;
    broadcastMessage(method, QJsonObject());
}

void Server::broadcastMessage(const QString &method, QJsonObject &&obj)
{
    // The text is written only when someone is there to read it.
    if (!clients.isEmpty())
        broadcastJson(Json::compact(obj, method), QVector<MessagePart>());
}

void Server::broadcastMessage(const QString &method, std::initializer_list<Json::Field> fields)
{
    if (!clients.isEmpty())
        broadcastJson(Json::compact(method, fields), QVector<MessagePart>());
}

void Server::broadcastMessage(const QJsonObject &obj, const QVector<MessagePart> &parts)
{
    if (!clients.isEmpty())
        broadcastJson(Json::compact(obj), parts);
}

void Server::broadcastJson(const QByteArray &json, const QVector<MessagePart> &parts)
{
    // A send may close a connection (its backlog), which changes the list.
    const QVector<QWebSocket *> recipients = clients;
    for (QWebSocket *socket : recipients)
        sendFramed(socket, json, parts);
}

void Server::sendFramed(
    QWebSocket *socket, const QByteArray &json, const QVector<MessagePart> &parts)
{
    if (!socket)
        return;
    const auto found = sessionKeys.constFind(socket);
    const QAESEncryption::ExpandedKey *key = found == sessionKeys.constEnd() ? nullptr : &*found;
    // The body is encrypted straight into the message.
    const int bodySize = !key ? json.size() : encryptedSize(json.size());
    int total = 4 + bodySize;
    for (const MessagePart &part : parts)
        total += 5 + part.data.size();
    // Room in front for the frame's header, so that a direct write sends one piece.
    QByteArray buffer(maxFrameHeader + total, Qt::Uninitialized);
    char *const message = buffer.data() + maxFrameHeader;
    char *out = message;
    qToBigEndian<qint32>(bodySize, out);
    if (!key)
        memcpy(out + 4, json.constData(), size_t(json.size()));
    else
        encryptInto(out + 4, json, *key);
    out += 4 + bodySize;
    for (const MessagePart &part : parts) {
        *out = char(part.type);
        qToBigEndian<qint32>(part.data.size(), out + 1);
        memcpy(out + 5, part.data.constData(), size_t(part.data.size()));
        out += 5 + part.data.size();
    }
    QTcpSocket *transport = transports.value(socket);
    if (!writeFrame(socket, transport, message, total))
        socket->sendBinaryMessage(QByteArray::fromRawData(message, total));
    if (transport)
        checkBacklog(transport, authenticatedTransports.contains(transport));
}

bool Server::writeFrame(QWebSocket *socket, QTcpSocket *transport, char *message, int size)
{
#ifdef Q_OS_UNIX
    // The WebSocket layer queues every message on the connection and writes it when the loop
    // next hears that the connection can take it: a notifier switched on and off (each a walk
    // through the loop's list of sockets), a wake-up and one more turn of the loop per reply.
    // The connection nearly always can take it now, so the same frame is written at once;
    // only what the connection does not take is queued as before. Anything already queued
    // (an earlier reply, a pong, a close) goes first, and larger messages, which the layer
    // splits into several frames, keep its way.
    if (!transport || socket->state() != QAbstractSocket::ConnectedState
        || transport->state() != QAbstractSocket::ConnectedState || transport->bytesToWrite() > 0
        || quint64(size) > socket->outgoingFrameSize())
        return false;
    const qintptr descriptor = transport->socketDescriptor();
    if (descriptor < 0)
        return false;
    // FIN and the binary opcode; a server's frames are not masked.
    char *frame = message;
    if (size <= 125) {
        frame -= 2;
        frame[1] = char(size);
    } else if (size <= 0xFFFF) {
        frame -= 4;
        frame[1] = char(126);
        qToBigEndian<quint16>(quint16(size), frame + 2);
    } else {
        frame -= 10;
        frame[1] = char(127);
        qToBigEndian<quint64>(quint64(size), frame + 2);
    }
    frame[0] = char(0x82);
    const qint64 length = message + size - frame;
#ifdef MSG_NOSIGNAL
    const int flags = MSG_NOSIGNAL | MSG_DONTWAIT;
#else
    const int flags = MSG_DONTWAIT;
#endif
    qint64 sent;
    do {
        sent = ::send(int(descriptor), frame, size_t(length), flags);
    } while (sent < 0 && errno == EINTR);
    // A connection that failed is left for the socket to find out on its own write, as it
    // would have without this.
    if (sent < 0)
        sent = 0;
    if (sent < length)
        transport->write(frame + sent, length - sent);
    return true;
#else
    Q_UNUSED(socket)
    Q_UNUSED(transport)
    Q_UNUSED(message)
    Q_UNUSED(size)
    return false;
#endif
}

void Server::addHandler(MessageHandler *handler) { handlers.insert(handler->getName(), handler); }

void Server::runHandler(MessageHandler *handler)
{
    // State goes only to connections that proved who they are.
    if (clients.isEmpty())
        return;
    const QVector<QWebSocket *> sockets = clients;
    for (QWebSocket *socket : sockets)
        handler->handle(Request(), socket);
}

void Server::runHandler(const QString &method)
{
    MessageHandler *handler = handlers.value(method);
    if (handler)
        runHandler(handler);
    else
        qCWarning(lcServer) << "void Server::runHandler(const QString &)"
                            << "No handler for" << method;
}

void Server::onBinaryMessageReceived(const QByteArray &message)
{
    if (auto *socket = qobject_cast<QWebSocket *>(sender()))
        dispatch(socket, message);
}

void Server::dispatch(QWebSocket *socket, const QByteArray &message)
{
    QByteArray data = message;
    const auto key = sessionKeys.constFind(socket);
    if (key != sessionKeys.constEnd())
        data = decrypt(message, *key);

    QJsonParseError error;
    Request request;
    if (!request.read(data, &error)) {
        qCWarning(lcServer) << "Cannot parse JSON" << error.errorString() << excerpt(data)
                            << excerpt(message);
        // A proof that does not decrypt counts as a wrong one. Nothing is forgotten: what a
        // connection sends must never cost a device its approval (the user forgets devices).
        if (isAuthenticating(socket))
            recordFailedProof(socket);
        closeSocket(socket);
        return;
    }

    const QString method = request.method();
    if (method != L::auth && !clients.contains(socket)) {
        qCWarning(lcServer) << "Permission denied" << socket << excerpt(data);
        return;
    }

    MessageHandler *handler = handlers.value(method);
    if (handler) {
        handler->handle(request, socket);
    } else {
        qCWarning(lcServer) << "Unhandled request" << excerpt(data);
        emit unhandledMessage(method);
    }
}

QString Server::makeToken()
{
    static const QString alphabet
        = QStringLiteral("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789");
    QString token;
    token.reserve(tokenLength);
    for (int i = 0; i < tokenLength; ++i)
        token.append(alphabet.at(Random::integer(0, 61)));
    return token;
}

void Server::startAuthorization(const QString &id, QWebSocket *socket)
{
    if (pendingSocket || id.isEmpty()) {
        closeSocket(socket);
        return;
    }
    pendingSocket = socket;
    sendMessage(socket, L::waitingForAuth, QJsonObject());
    QString name = socket->peerName();
    // The endpoint listens dual-stack: show an IPv4 peer as people know it, not as ::ffff:a.b.c.d.
    const QString address = plainAddress(socket->peerAddress()).toString();
    if (name.isEmpty())
        name = address;
    emit needUserAuthorization(socket, id, name, address);
}

void Server::setAuthorization(const QString &id, bool granted)
{
    if (!pendingSocket || !pendingSocket->isValid())
        return;
    if (granted) {
        const QString token = makeToken();
        sendMessage(pendingSocket, L::auth, { { L::token, token } });
        if (pendingSocket->isValid()) {
            QSettings settings;
            settings.beginGroup(L::auth);
            settings.setValue(id, token);
        }
    }
    setAuthentication(id, granted);
}

void Server::startAuthentication(const QString &id, QWebSocket *socket)
{
    // Known devices prove their keys side by side, also while a new device waits at the prompt.
    socket->setProperty(idProperty, id);
    const QString sessionToken = makeToken();
    socket->setProperty(sessionTokenProperty, sessionToken);
    const QByteArray key = computeAESKey(id, getAuthorizationToken(id), sessionToken);
    // Sent before the key is set, so it travels in plain text.
    sendMessage(socket, L::auth, { { L::sessionToken, sessionToken } });
    socket->setProperty(aesKeyProperty, key);
    sessionKeys.insert(socket, QAESEncryption::ExpandedKey(aes.level(), key));
    // A connection that never proves its key holds nothing for long.
    QTimer::singleShot(proofTimeout, socket, [this, socket] {
        if (isAuthenticating(socket)) {
            qCWarning(lcServer) << "No proof in time from"
                                << plainAddress(socket->peerAddress()).toString();
            closeSocket(socket);
        }
    });
}

void Server::setAuthentication(const QString &, bool ok)
{
    if (!pendingSocket)
        return;
    QWebSocket *socket = pendingSocket;
    pendingSocket = nullptr;
    setAuthentication(socket, ok);
}

void Server::setAuthentication(QWebSocket *socket, bool ok)
{
    if (!socket || clients.contains(socket))
        return;
    if (!ok) {
        closeSocket(socket);
        return;
    }
    clients.append(socket);
    socket->setMaxAllowedIncomingMessageSize(maxIncomingMessageSize);
    socket->setMaxAllowedIncomingFrameSize(maxIncomingMessageSize);
    if (QTcpSocket *transport = transports.value(socket)) {
        authenticatedTransports.insert(transport);
        strangers.removeAll(transport);
        if (auto *gate = transport->findChild<FrameGate *>())
            gate->setFrameLimit(maxIncomingMessageSize);
    }
    sendMessage(socket, L::auth, { { L::value, true } });
    emit clientCountChanged(clients.size());
}

bool Server::isAuthenticating(QWebSocket *socket) const
{
    return socket && !clients.contains(socket)
        && !socket->property(sessionTokenProperty).toString().isEmpty();
}

void Server::recordFailedProof(QWebSocket *socket)
{
    const QHostAddress address = plainAddress(socket->peerAddress());
    const qint64 now = QDateTime::currentMSecsSinceEpoch();
    // Bounded however many addresses try: entries whose time is up go first.
    if (failedProofs.size() >= 4096) {
        for (auto entry = failedProofs.begin(); entry != failedProofs.end();) {
            if (entry->refusedUntil <= now && now - entry->since > failedProofWindow)
                entry = failedProofs.erase(entry);
            else
                ++entry;
        }
        if (failedProofs.size() >= 4096)
            return;
    }
    FailedProofs &failed = failedProofs[address];
    if (now - failed.since > failedProofWindow) {
        failed.count = 0;
        failed.since = now;
    }
    if (++failed.count < maxFailedProofs)
        return;
    failed.count = 0;
    failed.refusedUntil = now + failedProofWindow;
    qCWarning(lcServer).noquote() << "Refusing" << address.toString() << "for"
                                  << failedProofWindow / 1000 << "s after" << maxFailedProofs
                                  << "failed proofs";
}

bool Server::isRefused(const QHostAddress &address) const
{
    const auto failed = failedProofs.constFind(plainAddress(address));
    return failed != failedProofs.constEnd()
        && failed->refusedUntil > QDateTime::currentMSecsSinceEpoch();
}

bool Server::isAuthorized(const QString &id) const
{
    QSettings settings;
    settings.beginGroup(L::auth);
    return settings.contains(id);
}

QString Server::getAuthorizationToken(const QString &id) const
{
    QSettings settings;
    settings.beginGroup(L::auth);
    return settings.value(id).toString();
}

void Server::deauthorize(const QString &id)
{
    QSettings settings;
    settings.beginGroup(L::auth);
    settings.remove(id);
}

void Server::deauthorizeAll()
{
    QSettings settings;
    settings.remove(L::auth);
    const QVector<QWebSocket *> sockets = connections;
    for (QWebSocket *socket : sockets)
        closeSocket(socket);
}

int Server::totalAuthorizations() const
{
    QSettings settings;
    settings.beginGroup(L::auth);
    return settings.childKeys().size();
}

QByteArray Server::computeAESKey(
    const QString &id, const QString &token, const QString &sessionToken)
{
    QCryptographicHash hash(QCryptographicHash::Sha1);
    hash.addData(id.toUtf8());
    hash.addData(token.toUtf8());
    const QByteArray s = sessionToken.toUtf8();
    hash.addData(s);
    if (!s.isEmpty()) {
        const int n = static_cast<signed char>(s.at(0)) % s.size();
        if (n > 0)
            hash.addData(s.constData(), n);
    }
    return hash.result();
}

QByteArray Server::encrypt(const QByteArray &plain, const QByteArray &key) const
{
    QByteArray body(encryptedSize(plain.size()), Qt::Uninitialized);
    encryptInto(body.data(), plain, QAESEncryption::ExpandedKey(aes.level(), key));
    return body;
}

int Server::encryptedSize(int plainSize) const
{
    return QAESEncryption::blockLength + aes.encodedSize(plainSize);
}

void Server::encryptInto(
    char *out, const QByteArray &plain, const QAESEncryption::ExpandedKey &key) const
{
    // The vector is four engine outputs, each written big-endian.
    for (int i = 0; i < 4; ++i)
        qToBigEndian<quint32>(Random::generate(), out + 4 * i);
    aes.encodeInto(out + QAESEncryption::blockLength, plain.constData(), plain.size(), key, out);
}

QByteArray Server::decrypt(const QByteArray &body, const QByteArray &key) const
{
    return decrypt(body, QAESEncryption::ExpandedKey(aes.level(), key));
}

QByteArray Server::decrypt(const QByteArray &body, const QAESEncryption::ExpandedKey &key) const
{
    // The vector, then the ciphertext, read where they lie. A body too short for a vector or a
    // block reads as nothing.
    if (body.size() < QAESEncryption::blockLength)
        return QByteArray();
    const int cipherSize = body.size() - QAESEncryption::blockLength;
    QByteArray plain(cipherSize, Qt::Uninitialized);
    const int length = aes.decodeInto(plain.data(), body.constData() + QAESEncryption::blockLength,
        cipherSize, key, body.constData());
    plain.truncate(length);
    return QAESEncryption::RemovePadding(std::move(plain), aes.padding());
}

QString Server::zeroConfServiceName() const
{
    QString host = QHostInfo::localHostName();
    const int nul = host.indexOf(QChar(0));
    if (nul >= 0)
        host.truncate(nul);
    QString name = Constants::NAME + QLatin1Char('@') + host;
    if (nameConflicts > 0)
        name += QLatin1Char(' ') + QString::number(nameConflicts);
    return name;
}

void Server::publishZeroConfService()
{
    zeroConf.startServicePublish(
        zeroConfServiceName().toUtf8().constData(), "_velm._tcp", "local", serverPort());
}

void Server::onZeroConfError(QZeroConf::error_t error)
{
    qCWarning(lcZeroConf) << "ZeroConf error" << int(error);
    if (error == QZeroConf::serviceNameCollision) {
        ++nameConflicts;
        publishZeroConfService();
        return;
    }
    if (!zeroConf.publishExists() && !notAdvertisedReported) {
        notAdvertisedReported = true;
        qCWarning(lcZeroConf).noquote()
            << QStringLiteral("This computer is not advertised on the network (%1):")
                   .arg(QZeroConf::unavailableReason())
            << "clients must be given its address and port" << serverPort();
    }
}

void Server::onZeroConfServicePublished() { notAdvertisedReported = false; }

QString Server::webRemoteAddress() const
{
    const quint16 port = serverPort();
    if (!port)
        return QString();
    // Phones find an IPv4 address easier to type and to reach than an IPv6 one.
    QString host;
    const QStringList addresses = reachableAddresses();
    for (const QString &address : addresses) {
        if (QHostAddress(address).protocol() == QAbstractSocket::IPv4Protocol) {
            host = address;
            break;
        }
    }
    if (host.isEmpty())
        host = addresses.isEmpty() ? QStringLiteral("127.0.0.1")
                                   : QLatin1Char('[') + addresses.first() + QLatin1Char(']');
    return QStringLiteral("http://%1:%2/").arg(host).arg(port);
}

QStringList Server::reachableAddresses()
{
    // Link-local IPv6 addresses need an interface name to be used, and loopback only serves
    // this computer: shown only when there is nothing else.
    QStringList addresses;
    QStringList loopback;
    const QList<QHostAddress> all = QNetworkInterface::allAddresses();
    for (const QHostAddress &address : all) {
        if (address.isLoopback())
            loopback << address.toString();
        else if (!address.isLinkLocal())
            addresses << address.toString();
    }
    return addresses.isEmpty() ? loopback : addresses;
}

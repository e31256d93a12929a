#include "server.h"

#include "constants.h"
#include "json.h"
#include "l.h"
#include "messagehandler.h"
#include "random.h"
#include "serverlogging.h"

#include <QCryptographicHash>
#include <QGuiApplication>
#include <QHostInfo>
#include <QJsonDocument>
#include <QNetworkInterface>
#include <QSettings>
#include <QTimer>
#include <QUrlQuery>
#include <QWebSocket>
#include <QWebSocketServer>

#include <QtEndian>
#include <cerrno>
#include <cstring>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <cstring>

Q_LOGGING_CATEGORY(lcServer, "velm.server")
Q_LOGGING_CATEGORY(lcZeroConf, "velm.server.zeroconf")

namespace {

constexpr int networkWatchInterval = 5000;
constexpr int listenRetryDelay = 100;
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

QString operatingSystemName()
{
#ifdef Q_OS_MACOS
    return QStringLiteral("mac");
#else
    return QStringLiteral("linux");
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

    startMonitoringConnection();
    startWebSocketServer();

    if (auto *app = qobject_cast<QGuiApplication *>(QCoreApplication::instance())) {
        connect(app, &QGuiApplication::applicationStateChanged, this,
            &Server::onApplicationStateChanged);
    }
}

Server::~Server() { delete webSocketServer; }

void Server::startMonitoringConnection()
{
    networkUp = networkCheck();
    auto *timer = new QTimer(this);
    timer->setInterval(networkWatchInterval);
    timer->setTimerType(Qt::VeryCoarseTimer);
    connect(timer, &QTimer::timeout, this, &Server::onNetworkWatch);
    timer->start();
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

    if (webSocketServer) {
        if (webSocketServer->isListening())
            webSocketServer->close();
        webSocketServer->deleteLater();
    }
    webSocketServer = new QWebSocketServer(Constants::NAME, QWebSocketServer::NonSecureMode);

    if (webSocketServer->listen(QHostAddress::Any, port)) {
        // A reply with an attachment leaves in several writes; with Nagle's algorithm the last
        // piece would wait for the client's delayed acknowledgement (40 ms). Connections
        // accepted from the listening socket inherit this; QWebSocket has no option for it.
        const int on = 1;
        if (::setsockopt(
                int(webSocketServer->nativeDescriptor()), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on)
            != 0)
            qCWarning(lcServer) << "Cannot set TCP_NODELAY" << strerror(errno);
        connect(webSocketServer, &QWebSocketServer::newConnection, this, &Server::onNewConnection);
        connect(webSocketServer, &QWebSocketServer::closed, this, &Server::onServerClosed);
        settings.setValue(QStringLiteral("lastUsedPort"), uint(port));
        // So that a person can point a client at it when nothing advertises it.
        qCInfo(lcServer).noquote() << zeroConfServiceName() << "listens on port" << port << "at"
                                   << reachableAddresses().join(QStringLiteral(", "));
        publishZeroConfService();
    } else {
        settings.remove(QStringLiteral("lastUsedPort"));
        QTimer::singleShot(listenRetryDelay, this, &Server::startWebSocketServer);
    }
}

quint16 Server::serverPort() const
{
    return webSocketServer && webSocketServer->isListening() ? webSocketServer->serverPort() : 0;
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

    socket->setMaxAllowedIncomingMessageSize(maxIncomingMessageSize);
    socket->setMaxAllowedIncomingFrameSize(maxIncomingMessageSize);
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
    obj.insert(L::method, method);
    sendMessage(socket, obj, QVector<MessagePart>());
}

void Server::sendMessage(
    QWebSocket *socket, const QJsonObject &obj, const QVector<MessagePart> &parts)
{
    sendFramed(socket, QJsonDocument(obj).toJson(QJsonDocument::Compact), parts);
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
    obj.insert(L::method, method);
    broadcastMessage(obj, QVector<MessagePart>());
}

void Server::broadcastMessage(const QJsonObject &obj, const QVector<MessagePart> &parts)
{
    if (clients.isEmpty())
        return;
    const QByteArray json = QJsonDocument(obj).toJson(QJsonDocument::Compact);
    const QVector<QWebSocket *> recipients = clients;
    for (QWebSocket *socket : recipients)
        sendFramed(socket, json, parts);
}

void Server::sendFramed(
    QWebSocket *socket, const QByteArray &json, const QVector<MessagePart> &parts)
{
    if (!socket)
        return;
    const QByteArray key = socket->property(aesKeyProperty).toByteArray();
    const QByteArray body = key.isEmpty() ? json : encrypt(json, key);

    int total = 4 + body.size();
    for (const MessagePart &part : parts)
        total += 5 + part.data.size();
    QByteArray buffer(total, Qt::Uninitialized);
    char *out = buffer.data();
    qToBigEndian<qint32>(body.size(), out);
    memcpy(out + 4, body.constData(), size_t(body.size()));
    out += 4 + body.size();
    for (const MessagePart &part : parts) {
        *out = char(part.type);
        qToBigEndian<qint32>(part.data.size(), out + 1);
        memcpy(out + 5, part.data.constData(), size_t(part.data.size()));
        out += 5 + part.data.size();
    }
    socket->sendBinaryMessage(buffer);
}

void Server::addHandler(MessageHandler *handler) { handlers.insert(handler->getName(), handler); }

void Server::runHandler(MessageHandler *handler)
{
    if (connections.isEmpty())
        return;
    const QVector<QWebSocket *> sockets = connections;
    for (QWebSocket *socket : sockets)
        handler->handle(QJsonObject(), socket);
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
    const QByteArray key = socket->property(aesKeyProperty).toByteArray();
    if (!key.isEmpty())
        data = decrypt(message, key);

    QJsonParseError error;
    const QJsonDocument document = Json::parse(data, &error);
    if (document.isNull()) {
        qCWarning(lcServer) << "Cannot parse JSON" << error.errorString() << excerpt(data)
                            << excerpt(message);
        closeSocket(socket);
        // On a connection that never authenticated the id is empty, which removes the whole
        // group: every device must pair again.
        QSettings settings;
        settings.beginGroup(L::auth);
        settings.remove(socket->property(idProperty).toString());
        return;
    }

    const QJsonObject object = document.object();
    const QString method = object.value(L::method).toString();
    if (method != L::auth && !clients.contains(socket)) {
        qCWarning(lcServer) << "Permission denied" << socket << excerpt(data);
        return;
    }

    MessageHandler *handler = handlers.value(method);
    if (handler) {
        handler->handle(object, socket);
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
    QHostAddress peer = socket->peerAddress();
    bool isIPv4 = false;
    const quint32 ipv4 = peer.toIPv4Address(&isIPv4);
    if (isIPv4)
        peer = QHostAddress(ipv4);
    const QString address = peer.toString();
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
        sendMessage(pendingSocket, L::auth, QJsonObject { { L::token, token } });
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
    if (pendingSocket) {
        closeSocket(socket);
        return;
    }
    pendingSocket = socket;
    socket->setProperty(idProperty, id);
    const QString sessionToken = makeToken();
    socket->setProperty(sessionTokenProperty, sessionToken);
    const QByteArray key = computeAESKey(id, getAuthorizationToken(id), sessionToken);
    // Sent before the key is set, so it travels in plain text.
    sendMessage(socket, L::auth, QJsonObject { { L::sessionToken, sessionToken } });
    socket->setProperty(aesKeyProperty, key);
}

void Server::setAuthentication(const QString &, bool ok)
{
    if (!pendingSocket)
        return;
    QWebSocket *socket = pendingSocket;
    if (ok) {
        clients.append(socket);
        sendMessage(socket, L::auth, QJsonObject { { L::value, true } });
        emit clientCountChanged(clients.size());
    } else {
        closeSocket(socket);
    }
    pendingSocket = nullptr;
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
    // The vector is four engine outputs, each written big-endian.
    char iv[QAESEncryption::blockLength];
    for (int i = 0; i < 4; ++i)
        qToBigEndian<quint32>(Random::generate(), iv + 4 * i);
    const QByteArray vector = QByteArray::fromRawData(iv, sizeof iv);
    return vector + aes.encode(plain, key, vector);
}

QByteArray Server::decrypt(const QByteArray &body, const QByteArray &key) const
{
    const QByteArray iv = body.left(QAESEncryption::blockLength);
    const QByteArray cipher = body.mid(QAESEncryption::blockLength);
    return aes.removePadding(aes.decode(cipher, key, iv));
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
            << "This computer is not advertised on the network (no DNS-SD daemon answers):"
            << "clients must be given its address and port" << serverPort();
    }
}

void Server::onZeroConfServicePublished() { notAdvertisedReported = false; }

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

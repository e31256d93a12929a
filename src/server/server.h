#pragma once

#include "json.h"
#include "qaesencryption.h"
#include "qzeroconf.h"

#include <QAbstractSocket>
#include <QByteArray>
#include <QHash>
#include <QHostAddress>
#include <QJsonObject>
#include <QList>
#include <QMap>
#include <QObject>
#include <QPointer>
#include <QSet>
#include <QSslError>
#include <QString>
#include <QStringList>
#include <QVector>

class MessageHandler;
class NetworkChanges;
class QTcpServer;
class QTcpSocket;
class QTimer;
class QWebSocket;
class QWebSocketCorsAuthenticator;
class QWebSocketServer;

// The WebSocket endpoint that clients connect to. It remembers its port, advertises itself by
// DNS-SD, pairs devices, encrypts bodies with a per-connection key and dispatches every incoming
// message to the handler registered for its code.
//
// Wire format of one server-to-client binary message: a big-endian signed 32-bit body length,
// the body (JSON text, encrypted once the connection has a session key), then zero or more
// attachments, each a signed type byte, a big-endian signed 32-bit length and the bytes.
// Client-to-server messages are the body alone.
class Server : public QObject
{
    Q_OBJECT
public:
    enum MessageType : qint8 { Json = 0, Png = 1 };
    Q_ENUM(MessageType)

    struct MessagePart
    {
        MessageType type = Json;
        QByteArray data;
    };

    // Dynamic properties kept on each QWebSocket.
    static constexpr const char *idProperty = "i";
    static constexpr const char *sessionTokenProperty = "t";
    static constexpr const char *aesKeyProperty = "k";
    static constexpr const char *protocolVersionProperty = "v";

    // Largest incoming message or frame accepted from an authenticated client; a bigger one
    // closes the connection with close code 1009. Before it has authenticated, a connection
    // can only send its proof, which is far smaller.
    static constexpr qint64 maxIncomingMessageSize = 1024 * 1024;
    static constexpr qint64 maxIncomingMessageSizeBeforeAuthentication = 4 * 1024;
    // What may wait to be sent to a connection that does not read; beyond it, it is closed.
    static constexpr qint64 maxQueuedBytes = 16 * 1024 * 1024;
    static constexpr qint64 maxQueuedBytesBeforeAuthentication = 64 * 1024;
    // Connections that have not authenticated yet; the oldest is closed to make room.
    static constexpr int maxUnauthenticatedConnections = 64;
    // A known device must prove its key this long after it was given its session token.
    static constexpr int proofTimeout = 10000;
    // Failed proofs from one address within failedProofWindow before it is refused for as long.
    static constexpr int maxFailedProofs = 10;
    static constexpr int failedProofWindow = 60000;

    explicit Server(QObject *parent = nullptr);
    ~Server() override;

    void startWebSocketServer();
    void startMonitoringConnection();

    // Inserts "_" = method (replacing any) and sends obj, without attachments, to one socket.
    void sendMessage(QWebSocket *socket, const QString &method, QJsonObject &&obj);
    // The same for the object of those fields, written without making it:
    // sendMessage(socket, name, { { L::value, 3 } }).
    void sendMessage(
        QWebSocket *socket, const QString &method, std::initializer_list<Json::Field> fields);
    // Frames obj ("_" already present) and the attachments and sends them to one socket.
    void sendMessage(QWebSocket *socket, const QJsonObject &obj, const QVector<MessagePart> &parts);
    void sendMessage(QWebSocket *socket, const QJsonObject &obj, const MessagePart &part);
    // Frames an object that is already compact JSON text ("_" present). For replies so large
    // that building them as QJsonObject would cost more than the work behind them.
    void sendJson(QWebSocket *socket, const QByteArray &json,
        const QVector<MessagePart> &parts = QVector<MessagePart>());
    // The broadcasts reach the authenticated clients only, each under its own session key.
    void broadcastMessage(const QString &method);
    void broadcastMessage(const QString &method, QJsonObject &&obj);
    void broadcastMessage(const QString &method, std::initializer_list<Json::Field> fields);
    void broadcastMessage(const QJsonObject &obj, const QVector<MessagePart> &parts);

    // Registers the handler under its code, replacing an earlier one.
    void addHandler(MessageHandler *handler);
    // Asks the handler to send its current state to every authenticated client.
    void runHandler(MessageHandler *handler);
    void runHandler(const QString &method);

    void startAuthorization(const QString &id, QWebSocket *socket);
    // The user's answer to needUserAuthorization; it applies to whichever socket is pending.
    void setAuthorization(const QString &id, bool granted);
    void startAuthentication(const QString &id, QWebSocket *socket);
    // The outcome of the device being authorized (the pending socket).
    void setAuthentication(const QString &id, bool ok);
    // The outcome of a known device's proof.
    void setAuthentication(QWebSocket *socket, bool ok);
    // A known device that was given its session token and has not proved its key yet.
    bool isAuthenticating(QWebSocket *socket) const;
    // A proof that failed (a wrong one, or one that did not decrypt) from socket's address.
    void recordFailedProof(QWebSocket *socket);
    bool isRefused(const QHostAddress &address) const;
    bool isAuthorized(const QString &id) const;
    QString getAuthorizationToken(const QString &id) const;
    void deauthorize(const QString &id);
    Q_INVOKABLE void deauthorizeAll();
    int totalAuthorizations() const;

    static QByteArray computeAESKey(
        const QString &id, const QString &token, const QString &sessionToken);
    QByteArray encrypt(const QByteArray &plain, const QByteArray &key) const;
    QByteArray decrypt(const QByteArray &body, const QByteArray &key) const;
    QByteArray decrypt(const QByteArray &body, const QAESEncryption::ExpandedKey &key) const;
    // The size of the encrypted body of a text, and the body written into out (that many
    // bytes).
    int encryptedSize(int plainSize) const;
    void encryptInto(
        char *out, const QByteArray &plain, const QAESEncryption::ExpandedKey &key) const;

    void publishZeroConfService();

    // Processes one binary message as if it had arrived on socket: decrypt, parse, check the
    // permission, hand it to its handler.
    void dispatch(QWebSocket *socket, const QByteArray &message);

    // The port being listened on, 0 while not listening.
    quint16 serverPort() const;
    // Where another device on the network opens the web remote; empty while not listening.
    QString webRemoteAddress() const;
    const QVector<QWebSocket *> &getConnections() const { return connections; }
    const QVector<QWebSocket *> &getClients() const { return clients; }
    QWebSocket *getPendingSocket() const { return pendingSocket; }
    MessageHandler *handler(const QString &method) const { return handlers.value(method); }
    QByteArray zeroConfTxtRecords() const { return zeroConf.serviceTxtRecords(); }
    QString zeroConfServiceName() const;
    bool isPublished() const { return zeroConf.publishExists(); }

signals:
    void clientCountChanged(int count);
    void unhandledMessage(const QString &method);
    void needUserAuthorization(
        QObject *socket, const QString &id, const QString &name, const QString &address);

private slots:
    void onSslErrors(const QList<QSslError> &errors);
    void onTcpConnection();
    void onAcceptError(QAbstractSocket::SocketError error);
    void onOriginAuthenticationRequired(QWebSocketCorsAuthenticator *authenticator);
    void onNewConnection();
    void onServerClosed();
    void onBinaryMessageReceived(const QByteArray &message);
    void socketDisconnected();
    void onZeroConfError(QZeroConf::error_t error);
    void onZeroConfServicePublished();

private:
    static bool networkCheck();
    // The addresses clients can reach this computer at, as text.
    static QStringList reachableAddresses();
    static QString makeToken();
    void onNetworkWatch();
    void onApplicationStateChanged(Qt::ApplicationState state);
    void closeSocket(QWebSocket *socket);
    // Whether a handshake's Origin is this server's own (a page it serves may connect).
    bool isOwnOrigin(const QString &origin) const;
    // Closes the oldest connections that have not authenticated while there are too many.
    void makeRoomForStranger();
    // Closes a connection whose peer lets more queue up than it may.
    bool checkBacklog(QTcpSocket *transport, bool authenticated);
    static void raiseDescriptorLimit();
    // The allocator's policy for the buffers connections take and give back all the time.
    static void keepHeapThroughBursts();
    void sendFramed(QWebSocket *socket, const QByteArray &json, const QVector<MessagePart> &parts);
    // Writes message (with maxFrameHeader bytes free before it) as one WebSocket frame straight
    // to the connection; false when the WebSocket layer is to send it.
    bool writeFrame(QWebSocket *socket, QTcpSocket *transport, char *message, int size);
    static constexpr int maxFrameHeader = 10;
    void broadcastJson(const QByteArray &json, const QVector<MessagePart> &parts);

    QZeroConf zeroConf;
    int nameConflicts = 0;
    bool notAdvertisedReported = false;
    bool networkUp = false;
    NetworkChanges *networkChanges = nullptr;
    QTimer *networkWatchTimer = nullptr;
    QWebSocketServer *webSocketServer = nullptr;
    // Accepts the TCP connections and hands them to webSocketServer, so that the server sees
    // each connection's socket: what waits to be sent, and how many strangers there are.
    QTcpServer *tcpServer = nullptr;
    // The TCP connections that have not authenticated, oldest first.
    QVector<QPointer<QTcpSocket>> strangers;
    QHash<QWebSocket *, QPointer<QTcpSocket>> transports;
    // Those whose client proved its key; asked on every message, which a property is too slow
    // for.
    QSet<const QObject *> authenticatedTransports;
    // The session key of each connection that has one (its property "k" holds it too), expanded
    // once: looked up for every message, where a property costs a walk through the socket's
    // meta-object.
    QHash<const QWebSocket *, QAESEncryption::ExpandedKey> sessionKeys;
    struct FailedProofs
    {
        int count = 0;
        qint64 since = 0;
        qint64 refusedUntil = 0;
    };
    QHash<QHostAddress, FailedProofs> failedProofs;
    QVector<QWebSocket *> connections;
    QVector<QWebSocket *> clients;
    QAESEncryption aes;
    QWebSocket *pendingSocket = nullptr;
    QMap<QString, MessageHandler *> handlers;
};

Q_DECLARE_TYPEINFO(Server::MessagePart, Q_MOVABLE_TYPE);

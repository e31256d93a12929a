#pragma once

#include "messagehandler.h"
#include "protocolclient.h"

#include <QJsonObject>
#include <QList>
#include <QPointer>
#include <QVariantMap>
#include <QWebSocket>

class QTcpSocket;
class Server;

// A handler for tests: remembers every call and answers each request with the request itself,
// or with {"n": calls} when asked for its state.
class RecordingHandler : public MessageHandler
{
    Q_OBJECT
public:
    RecordingHandler(Server *server, const QString &name);

    void handle(const Request &message, QWebSocket *socket) override;

    struct Call
    {
        QJsonObject message;
        QPointer<QWebSocket> socket;
    };
    QList<Call> calls;
    bool reply = true;
};

// Follows the sockets that a Server accepts (it adopts each one as a child) and keeps what
// their dynamic properties held at the end.
class SocketWatcher : public QObject
{
    Q_OBJECT
public:
    explicit SocketWatcher(Server *server);

    bool eventFilter(QObject *watched, QEvent *event) override;

    QList<QPointer<QWebSocket>> sockets;
    // Properties "i", "t", "k" and "v" of each socket when it was deleted, in accept order.
    QList<QVariantMap> propertiesAtEnd;
    int disconnectedCount = 0;
    int destroyedCount = 0;
};

// The server's port once it listens: a first listen can fail on a port that is taken and is
// retried shortly after on another one, with no port in between.
quint16 listeningPort(const Server *server);

namespace Pairing {
// Stores an authorization as an earlier pairing would have.
void authorize(const QString &id, const QString &token);
// Connects a device whose token is stored and waits until it is authenticated.
bool connectAuthenticated(ProtocolClient &client, quint16 port);
} // namespace Pairing

// A connection that speaks the WebSocket protocol by hand, to see the bytes on the wire.
namespace RawWebSocket {
// The opening handshake of a client asking for "/?query".
QByteArray handshake(
    quint16 port, const QByteArray &query, const QByteArray &origin = QByteArray());
// The first line the server answers with (empty after 5 s without one).
QByteArray statusLine(QTcpSocket &socket);
// Reads the rest of the server's answer to the handshake, up to its empty line.
bool skipHead(QTcpSocket &socket);

// One frame a server sent: its first byte (FIN, opcode) and its payload.
struct Frame
{
    quint8 first = 0;
    QByteArray payload;
};
// Takes the first whole frame off the front of bytes. False when it is not whole yet, or
// (with error set) when it is not what a server may send: masked, or its length not written
// in the fewest bytes.
bool takeFrame(QByteArray &bytes, Frame *frame, QString *error);
} // namespace RawWebSocket

#include "serverfixture.h"

#include "l.h"
#include "server.h"

#include <QChildEvent>
#include <QSettings>
#include <QSignalSpy>
#include <QTcpSocket>
#include <QTest>
#include <QtEndian>

RecordingHandler::RecordingHandler(Server *server, const QString &name)
    : MessageHandler(server, name)
{ }

void RecordingHandler::handle(const Request &message, QWebSocket *socket)
{
    calls.append({ message.toObject(), socket });
    if (!reply)
        return;
    if (message.isEmpty())
        server->sendMessage(socket, name, { { L::name, calls.size() } });
    else
        server->sendMessage(socket, name, message.toObject());
}

SocketWatcher::SocketWatcher(Server *server)
    : QObject(server)
{
    server->installEventFilter(this);
}

bool SocketWatcher::eventFilter(QObject *, QEvent *event)
{
    if (event->type() != QEvent::ChildAdded)
        return false;
    auto *socket = qobject_cast<QWebSocket *>(static_cast<QChildEvent *>(event)->child());
    if (!socket || sockets.contains(socket))
        return false;
    const int index = sockets.size();
    sockets.append(socket);
    propertiesAtEnd.append(QVariantMap());
    connect(socket, &QWebSocket::disconnected, this, [this] { ++disconnectedCount; });
    // The server may still set properties after the socket has disconnected (for example when
    // it closes a connection while accepting it), so read them when the socket goes away.
    connect(socket, &QObject::destroyed, this, [this, index](QObject *object) {
        QVariantMap &properties = propertiesAtEnd[index];
        for (const char *name : { Server::idProperty, Server::sessionTokenProperty,
                 Server::aesKeyProperty, Server::protocolVersionProperty }) {
            const QVariant value = object->property(name);
            if (value.isValid())
                properties.insert(QString::fromLatin1(name), value);
        }
        ++destroyedCount;
    });
    return false;
}

quint16 listeningPort(const Server *server)
{
    if (!QTest::qWaitFor([server] { return server->serverPort() != 0; }, 5000))
        return 0;
    return server->serverPort();
}

namespace Pairing {

void authorize(const QString &id, const QString &token)
{
    QSettings settings;
    settings.beginGroup(L::auth);
    settings.setValue(id, token);
}

bool connectAuthenticated(ProtocolClient &client, quint16 port)
{
    QSettings settings;
    settings.beginGroup(L::auth);
    client.setToken(settings.value(client.id()).toString());
    QSignalSpy spy(&client, &ProtocolClient::authenticated);
    client.open(port);
    return spy.wait(5000) || client.isAuthenticated();
}

} // namespace Pairing

namespace RawWebSocket {

QByteArray handshake(quint16 port, const QByteArray &query, const QByteArray &origin)
{
    QByteArray request = "GET /?" + query
        + " HTTP/1.1\r\nHost: 127.0.0.1:" + QByteArray::number(port)
        + "\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
          "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\nSec-WebSocket-Version: 13\r\n";
    if (!origin.isNull())
        request += "Origin: " + origin + "\r\n";
    return request + "\r\n";
}

QByteArray statusLine(QTcpSocket &socket)
{
    if (!QTest::qWaitFor([&] { return socket.canReadLine(); }, 5000))
        return QByteArray();
    return socket.readLine().trimmed();
}

bool skipHead(QTcpSocket &socket)
{
    for (;;) {
        if (!QTest::qWaitFor([&] { return socket.canReadLine(); }, 5000))
            return false;
        if (socket.readLine() == "\r\n")
            return true;
    }
}

bool takeFrame(QByteArray &bytes, Frame *frame, QString *error)
{
    if (bytes.size() < 2)
        return false;
    const auto *data = reinterpret_cast<const uchar *>(bytes.constData());
    if (data[1] & 0x80) {
        *error = QStringLiteral("a masked frame from the server");
        return false;
    }
    quint64 length = data[1] & 0x7F;
    int header = 2;
    if (length == 126) {
        if (bytes.size() < 4)
            return false;
        length = qFromBigEndian<quint16>(data + 2);
        header = 4;
        if (length < 126) {
            *error = QStringLiteral("a length under 126 in two bytes");
            return false;
        }
    } else if (length == 127) {
        if (bytes.size() < 10)
            return false;
        length = qFromBigEndian<quint64>(data + 2);
        header = 10;
        if (length <= 0xFFFF) {
            *error = QStringLiteral("a length under 65536 in eight bytes");
            return false;
        }
    }
    if (quint64(bytes.size() - header) < length)
        return false;
    frame->first = data[0];
    frame->payload = bytes.mid(header, int(length));
    bytes.remove(0, header + int(length));
    return true;
}

} // namespace RawWebSocket

#include "serverfixture.h"

#include "l.h"
#include "server.h"

#include <QChildEvent>
#include <QSettings>
#include <QSignalSpy>
#include <QTest>

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

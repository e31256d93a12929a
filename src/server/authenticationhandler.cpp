#include "authenticationhandler.h"

#include "l.h"
#include "server.h"
#include "serverlogging.h"

#include <QWebSocket>

AuthenticationHandler::AuthenticationHandler(Server *server, const QString &name)
    : MessageHandler(server, name)
{ }

void AuthenticationHandler::handle(const QJsonObject &message, QWebSocket *socket)
{
    // Pairing has no state to re-send, so a re-run asks nothing of anyone.
    if (!socket || message.isEmpty())
        return;
    // Only the connection being paired may prove anything; otherwise an authenticated client
    // could decide the fate of whichever device happens to be pending.
    if (socket != server->getPendingSocket()) {
        qCWarning(lcServer) << "Unexpected authentication from" << socket;
        return;
    }
    const QString hash = message.value(L::hash).toString();
    const QString id = socket->property(Server::idProperty).toString();
    const QString sessionToken = socket->property(Server::sessionTokenProperty).toString();
    // A connection in the authorization flow has no session token and so nothing to prove.
    if (sessionToken.isEmpty()) {
        server->setAuthentication(id, false);
        return;
    }
    const QString token = server->getAuthorizationToken(id);
    const QString expected
        = QString::fromLatin1(Server::computeAESKey(id, token, sessionToken).toHex());
    server->setAuthentication(id, expected == hash);
}

#include "authenticationhandler.h"

#include "l.h"
#include "server.h"
#include "serverlogging.h"

#include <QWebSocket>

AuthenticationHandler::AuthenticationHandler(Server *server, const QString &name)
    : MessageHandler(server, name)
{ }

void AuthenticationHandler::handle(const Request &message, QWebSocket *socket)
{
    // Pairing has no state to re-send, so a re-run asks nothing of anyone.
    if (!socket || message.isEmpty())
        return;
    // Only a connection that was given a session token may prove anything; otherwise an
    // authenticated client could decide the fate of another device's connection.
    if (socket == server->getPendingSocket()) {
        // The device being authorized has no key yet, so nothing to prove.
        server->setAuthentication(socket->property(Server::idProperty).toString(), false);
        return;
    }
    if (!server->isAuthenticating(socket)) {
        qCWarning(lcServer) << "Unexpected authentication from" << socket;
        return;
    }
    const QString hash = message.string(L::hash);
    const QString id = socket->property(Server::idProperty).toString();
    const QString sessionToken = socket->property(Server::sessionTokenProperty).toString();
    const QString token = server->getAuthorizationToken(id);
    const QString expected
        = QString::fromLatin1(Server::computeAESKey(id, token, sessionToken).toHex());
    const bool proved = expected == hash;
    if (!proved)
        server->recordFailedProof(socket);
    server->setAuthentication(socket, proved);
}

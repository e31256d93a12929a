#pragma once

#include "request.h"

#include <QJsonObject>
#include <QObject>
#include <QString>

class QWebSocket;
class Server;

// Serves one message code. A handler registers itself with its server on the next turn of the
// event loop, once the subclass is fully constructed.
class MessageHandler : public QObject
{
    Q_OBJECT
public:
    MessageHandler(Server *server, QString name);

    const QString &getName() const { return name; }

    // Registers the handler with its server.
    void install();
    // Sends the current state to every accepted socket.
    void run();

public slots:
    // Answers one request. An empty message asks for the current state, sent to socket.
    virtual void handle(const Request &message, QWebSocket *socket) = 0;

protected:
    Server *server;
    QString name;
};

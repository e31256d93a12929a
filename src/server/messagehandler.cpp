#include "messagehandler.h"

#include "server.h"

#include <QTimer>

MessageHandler::MessageHandler(Server *server, QString name)
    : QObject(server)
    , server(server)
    , name(std::move(name))
{
    QTimer::singleShot(0, this, &MessageHandler::install);
}

void MessageHandler::install() { server->addHandler(this); }

void MessageHandler::run() { server->runHandler(this); }

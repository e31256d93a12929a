#pragma once

#include "messagehandler.h"

// "ac": an application's command set from the web service, as a JSON attachment; answered
// once it has loaded, and again at every later load while the asking socket lives.
class CommandsHandler : public MessageHandler
{
    Q_OBJECT
public:
    using MessageHandler::MessageHandler;
    void handle(const Request &message, QWebSocket *socket) override;
};

// "ci": a command's icon from the web service, passed on untouched.
class CommandIconHandler : public MessageHandler
{
    Q_OBJECT
public:
    using MessageHandler::MessageHandler;
    void handle(const Request &message, QWebSocket *socket) override;
};

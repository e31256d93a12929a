#pragma once

#include "messagehandler.h"

// Checks a known device's proof of its session key ("au" with "h").
class AuthenticationHandler : public MessageHandler
{
    Q_OBJECT
public:
    AuthenticationHandler(Server *server, const QString &name);

    void handle(const Request &message, QWebSocket *socket) override;
};

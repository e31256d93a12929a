#pragma once

#include "messagehandler.h"

// "ia": the installed applications in client order, with their running state.
class InstalledAppsHandler : public MessageHandler
{
    Q_OBJECT
public:
    using MessageHandler::MessageHandler;
    void handle(const Request &message, QWebSocket *socket) override;
};

// "ra": the running applications. Never registered: "ra" requests stay unhandled.
class RunningAppsHandler : public MessageHandler
{
    Q_OBJECT
public:
    using MessageHandler::MessageHandler;
    void handle(const Request &message, QWebSocket *socket) override;
};

// "ca": the application in front.
class CurrentAppHandler : public MessageHandler
{
    Q_OBJECT
public:
    using MessageHandler::MessageHandler;
    void handle(const Request &message, QWebSocket *socket) override;
};

// "ai": an application's icon as PNG.
class AppIconHandler : public MessageHandler
{
    Q_OBJECT
public:
    using MessageHandler::MessageHandler;
    void handle(const Request &message, QWebSocket *socket) override;
};

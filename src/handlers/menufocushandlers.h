#pragma once

#include "messagehandler.h"

// "am": the menu tree of the application named by "i", as a JSON attachment.
class MenuHandler : public MessageHandler
{
    Q_OBJECT
public:
    using MessageHandler::MessageHandler;
    void handle(const Request &message, QWebSocket *socket) override;
};

// "pm": invokes the menu item "m" of the application named by "i".
class MenuPerformHandler : public MessageHandler
{
    Q_OBJECT
public:
    using MessageHandler::MessageHandler;
    void handle(const Request &message, QWebSocket *socket) override;
};

// "fv": with "v", replaces the focused element's value; without, answers it (code "fe").
class FocusValueHandler : public MessageHandler
{
    Q_OBJECT
public:
    using MessageHandler::MessageHandler;
    void handle(const Request &message, QWebSocket *socket) override;
};

// "pf": presses the focused element.
class FocusPerformHandler : public MessageHandler
{
    Q_OBJECT
public:
    using MessageHandler::MessageHandler;
    void handle(const Request &message, QWebSocket *socket) override;
};

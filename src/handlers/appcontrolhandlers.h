#pragma once

#include "messagehandler.h"

class App;

// The window and application actions: one application (by "i", or the one in front when "i" is
// empty) and one operation on it. None of them replies.
class AppActionHandler : public MessageHandler
{
    Q_OBJECT
public:
    using MessageHandler::MessageHandler;
    void handle(const Request &message, QWebSocket *socket) override;

protected:
    virtual void act(App *app, const Request &message) = 0;
};

// "aa": brings the application to the front, launching it if needed.
class AppActivateHandler : public AppActionHandler
{
    Q_OBJECT
public:
    using AppActionHandler::AppActionHandler;

protected:
    void act(App *app, const Request &message) override;
};

// "ha": closes the front window (not hide, despite the code).
class AppCloseHandler : public AppActionHandler
{
    Q_OBJECT
public:
    using AppActionHandler::AppActionHandler;

protected:
    void act(App *app, const Request &message) override;
};

// "qa"
class AppQuitHandler : public AppActionHandler
{
    Q_OBJECT
public:
    using AppActionHandler::AppActionHandler;

protected:
    void act(App *app, const Request &message) override;
};

// "ma"
class AppMinimizeHandler : public AppActionHandler
{
    Q_OBJECT
public:
    using AppActionHandler::AppActionHandler;

protected:
    void act(App *app, const Request &message) override;
};

// "xa"
class AppMaximizeHandler : public AppActionHandler
{
    Q_OBJECT
public:
    using AppActionHandler::AppActionHandler;

protected:
    void act(App *app, const Request &message) override;
};

// "fa"
class AppFullscreenHandler : public AppActionHandler
{
    Q_OBJECT
public:
    using AppActionHandler::AppActionHandler;

protected:
    void act(App *app, const Request &message) override;
};

// "as": scrolls by "x" and "y".
class AppScrollHandler : public AppActionHandler
{
    Q_OBJECT
public:
    using AppActionHandler::AppActionHandler;

protected:
    void act(App *app, const Request &message) override;
};

// "ks": one key sequence or several, typed into the application named by "i".
class KeySequenceHandler : public MessageHandler
{
    Q_OBJECT
public:
    using MessageHandler::MessageHandler;
    void handle(const Request &message, QWebSocket *socket) override;
};

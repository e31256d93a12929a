#pragma once

#include "messagehandler.h"

// "v": output volume, read or set.
class VolumeHandler : public MessageHandler
{
    Q_OBJECT
public:
    using MessageHandler::MessageHandler;
    void handle(const Request &message, QWebSocket *socket) override;
};

// "vm": output mute, read or set.
class VolumeMuteHandler : public MessageHandler
{
    Q_OBJECT
public:
    using MessageHandler::MessageHandler;
    void handle(const Request &message, QWebSocket *socket) override;
};

// "b": display brightness, read or set.
class BrightnessHandler : public MessageHandler
{
    Q_OBJECT
public:
    using MessageHandler::MessageHandler;
    void handle(const Request &message, QWebSocket *socket) override;
};

// "lock": the lock state; "v": true locks. The screen is never unlocked remotely.
class ScreenLockHandler : public MessageHandler
{
    Q_OBJECT
public:
    using MessageHandler::MessageHandler;
    void handle(const Request &message, QWebSocket *socket) override;
};

// "un": the message codes this machine cannot serve.
class UnsupportedHandler : public MessageHandler
{
    Q_OBJECT
public:
    using MessageHandler::MessageHandler;
    void handle(const Request &message, QWebSocket *socket) override;
};

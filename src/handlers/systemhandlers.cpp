#include "systemhandlers.h"

#include "handlerutils.h"
#include "l.h"
#include "platform.h"
#include "server.h"

#include <QJsonArray>

using HandlerUtils::platform;

void VolumeHandler::handle(const Request &message, QWebSocket *socket)
{
    if (message.contains(L::value))
        platform()->setVolume(message.value(L::value).toInt());
    else
        server->sendMessage(socket, name, { { L::value, platform()->getVolume() } });
}

void VolumeMuteHandler::handle(const Request &message, QWebSocket *socket)
{
    if (message.contains(L::value))
        platform()->setVolumeMute(message.value(L::value).toBool());
    else
        server->sendMessage(socket, name, { { L::value, platform()->getVolumeMute() } });
}

void BrightnessHandler::handle(const Request &message, QWebSocket *socket)
{
    if (message.contains(L::value))
        platform()->setBrightness(message.value(L::value).toInt());
    else
        server->sendMessage(socket, name, { { L::value, platform()->getBrightness() } });
}

void ScreenLockHandler::handle(const Request &message, QWebSocket *socket)
{
    if (message.contains(L::value)) {
        if (message.value(L::value).toBool())
            platform()->lockScreen();
    } else {
        server->sendMessage(socket, name, { { L::value, platform()->getScreenLocked() } });
    }
}

void UnsupportedHandler::handle(const Request &, QWebSocket *socket)
{
    server->sendMessage(
        socket, name, { { L::value, QJsonArray::fromStringList(platform()->getUnsupported()) } });
}

#include "applisthandlers.h"

#include "app.h"
#include "handlerutils.h"
#include "l.h"
#include "platform.h"
#include "server.h"

#include <QJsonArray>

using HandlerUtils::platform;

namespace {
constexpr int maxIconSize = 1024;
}

void InstalledAppsHandler::handle(const QJsonObject &, QWebSocket *socket)
{
    QJsonArray apps;
    for (App *app : HandlerUtils::sortedApps()) {
        QJsonObject entry { { L::id, app->id }, { L::name, app->name } };
        if (app->running)
            entry.insert(L::status, L::running);
        apps.append(entry);
    }
    server->sendMessage(socket, name, QJsonObject { { L::apps, apps } });
}

void RunningAppsHandler::handle(const QJsonObject &, QWebSocket *socket)
{
    QJsonArray apps;
    for (App *app : platform()->getRunningApps())
        apps.append(QJsonObject { { L::id, app->id } });
    server->sendMessage(socket, name, QJsonObject { { L::apps, apps } });
}

void CurrentAppHandler::handle(const QJsonObject &, QWebSocket *socket)
{
    QJsonObject reply;
    if (App *app = platform()->getCurrentApp())
        reply.insert(L::id, app->id);
    server->sendMessage(socket, name, std::move(reply));
}

void AppIconHandler::handle(const QJsonObject &message, QWebSocket *socket)
{
    const QString id = message.value(L::id).toString();
    App *app = id.isEmpty() ? nullptr : platform()->appforId(id);
    const int size = message.value(L::size).toInt();
    // Bigger than any screen shows an icon: refused, as a 40-gigabyte picture would be.
    if (!app || size < 16 || size > maxIconSize)
        return;
    const QJsonObject reply { { L::method, name }, { L::id, id }, { L::size, size } };
    server->sendMessage(socket, reply, Server::MessagePart { Server::Png, app->iconPng(size) });
}

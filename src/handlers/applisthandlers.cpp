#include "applisthandlers.h"

#include "app.h"
#include "handlerutils.h"
#include "json.h"
#include "l.h"
#include "platform.h"
#include "server.h"

#include <QJsonArray>

using HandlerUtils::platform;

namespace {
constexpr int maxIconSize = 1024;
}

// Written as text: with hundreds of applications, building the list as QJsonObjects and
// writing them out cost most of the reply. The keys are in the order Qt keeps them in ("_",
// then the rest by their code units), so the text is the one Qt would write.
void InstalledAppsHandler::handle(const Request &, QWebSocket *socket)
{
    const QVector<App *> apps = HandlerUtils::sortedApps();
    auto key = [](QByteArray &json, const QString &key) {
        Json::appendString(json, key);
        json += ':';
    };
    QByteArray json;
    json.reserve(32 + apps.size() * 64);
    json += '{';
    key(json, L::method);
    Json::appendString(json, name);
    json += ',';
    key(json, L::apps);
    json += '[';
    for (int i = 0; i < apps.size(); ++i) {
        const App *app = apps.at(i);
        json += i ? ",{" : "{";
        key(json, L::id);
        Json::appendString(json, app->id);
        json += ',';
        key(json, L::name);
        Json::appendString(json, app->name);
        if (app->running) {
            json += ',';
            key(json, L::status);
            Json::appendString(json, L::running);
        }
        json += '}';
    }
    json += "]}";
    server->sendJson(socket, json);
}

void RunningAppsHandler::handle(const Request &, QWebSocket *socket)
{
    QJsonArray apps;
    for (App *app : platform()->getRunningApps())
        apps.append(QJsonObject { { L::id, app->id } });
    server->sendMessage(socket, name, { { L::apps, apps } });
}

void CurrentAppHandler::handle(const Request &, QWebSocket *socket)
{
    QJsonObject reply;
    if (App *app = platform()->getCurrentApp())
        reply.insert(L::id, app->id);
    server->sendMessage(socket, name, std::move(reply));
}

void AppIconHandler::handle(const Request &message, QWebSocket *socket)
{
    const QString id = message.string(L::id);
    App *app = id.isEmpty() ? nullptr : platform()->appforId(id);
    const int size = message.value(L::size).toInt();
    // Bigger than any screen shows an icon: refused, as a 40-gigabyte picture would be.
    if (!app || size < 16 || size > maxIconSize)
        return;
    const QJsonObject reply { { L::method, name }, { L::id, id }, { L::size, size } };
    server->sendMessage(socket, reply, Server::MessagePart { Server::Png, app->iconPng(size) });
}

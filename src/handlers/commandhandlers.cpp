#include "commandhandlers.h"

#include "app.h"
#include "handlerutils.h"
#include "http.h"
#include "httputils.h"
#include "l.h"
#include "server.h"

#include <QPointer>
#include <QUrlQuery>
#include <QWebSocket>

void CommandsHandler::handle(const Request &message, QWebSocket *socket)
{
    App *app = HandlerUtils::appById(message);
    if (!app)
        return;
    const QJsonObject reply { { L::method, name }, { L::id, app->id } };
    if (app->commandsAreLoaded) {
        server->sendMessage(socket, reply, Server::MessagePart { Server::Json, app->commands });
        return;
    }
    // The subscription lives as long as the socket: the disconnect below names the handler,
    // so every later load of this application reaches the socket again.
    connect(app, &App::commandsLoaded, socket, [this, app, socket, reply](const QByteArray &json) {
        server->sendMessage(socket, reply, Server::MessagePart { Server::Json, json });
        disconnect(app, nullptr, this, nullptr);
    });
    app->loadCommands();
}

void CommandIconHandler::handle(const Request &message, QWebSocket *socket)
{
    const QString id = message.string(L::id);
    const int size = message.value(L::size).toInt();
    const QByteArray base = HttpUtils::wsBase();
    if (id.isEmpty() || size < 16 || base.isEmpty())
        return;
    QUrl url(QString::fromUtf8(base + "/icon"));
    QUrlQuery query;
    query.addQueryItem(L::id, id);
    query.addQueryItem(L::size, QString::number(size));
    url.setQuery(query);
    HttpReply *reply = HttpUtils::cached().get(url);
    const QPointer<QWebSocket> asker(socket);
    const QJsonObject answer { { L::method, name }, { L::id, id }, { L::size, size } };
    connect(reply, &HttpReply::finished, this, [this, asker, answer](const HttpReply &result) {
        // Dropped when the socket that asked has gone.
        if (!asker || !result.isSuccessful())
            return;
        server->sendMessage(asker, answer, Server::MessagePart { Server::Png, result.body() });
    });
}

#include "menufocushandlers.h"

#include "app.h"
#include "handlerutils.h"
#include "l.h"
#include "server.h"

#include <QJsonArray>
#include <QJsonDocument>

namespace {
const QString menuKey = QStringLiteral("m");

QJsonArray menuToJson(const std::vector<MenuItem> &items)
{
    QJsonArray array;
    for (const MenuItem &item : items) {
        QJsonObject entry { { L::id, item.id }, { L::name, item.name } };
        if (!item.children.empty())
            entry.insert(menuKey, menuToJson(item.children));
        array.append(entry);
    }
    return array;
}
} // namespace

void MenuHandler::handle(const Request &message, QWebSocket *socket)
{
    App *app = HandlerUtils::appById(message);
    if (!app)
        return;
    const QByteArray tree
        = QJsonDocument(menuToJson(app->getMenuItems())).toJson(QJsonDocument::Compact);
    server->sendMessage(socket, QJsonObject { { L::method, name }, { L::id, app->id } },
        Server::MessagePart { Server::Json, tree });
}

void MenuPerformHandler::handle(const Request &message, QWebSocket *)
{
    if (App *app = HandlerUtils::appById(message))
        app->performMenu(message.string(menuKey));
}

void FocusValueHandler::handle(const Request &message, QWebSocket *socket)
{
    App *app = HandlerUtils::appOrCurrent(message);
    if (!app)
        return;
    if (message.contains(L::value)) {
        app->setFocusValue(message.string(L::value));
        return;
    }
    server->sendMessage(socket, L::focusedElement,
        { { L::id, message.string(L::id) }, { L::value, app->focusValue } });
}

void FocusPerformHandler::handle(const Request &message, QWebSocket *)
{
    if (App *app = HandlerUtils::appOrCurrent(message))
        app->performFocusedElement();
}

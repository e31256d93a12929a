#include "appcontrolhandlers.h"

#include "app.h"
#include "handlerutils.h"
#include "l.h"

#include <QJsonArray>
#include <QLoggingCategory>

Q_LOGGING_CATEGORY(lcHandlers, "velm.handlers")

void AppActionHandler::handle(const Request &message, QWebSocket *)
{
    if (App *app = HandlerUtils::appOrCurrent(message))
        act(app, message);
}

void AppActivateHandler::act(App *app, const Request &) { app->activate(); }

void AppCloseHandler::act(App *app, const Request &) { app->close(); }

void AppQuitHandler::act(App *app, const Request &) { app->quit(); }

void AppMinimizeHandler::act(App *app, const Request &) { app->toggleMiniminize(); }

void AppMaximizeHandler::act(App *app, const Request &) { app->toggleMaximize(); }

void AppFullscreenHandler::act(App *app, const Request &) { app->toggleFullscreen(); }

void AppScrollHandler::act(App *app, const Request &message)
{
    app->scroll(message.value(L::x).toInt(), message.value(L::y).toInt());
}

void KeySequenceHandler::handle(const Request &message, QWebSocket *)
{
    App *app = HandlerUtils::appById(message);
    if (!app)
        return;
    const QJsonValue keys = message.value(L::keys);
    if (keys.isString()) {
        app->performKeySequence(keys.toString());
    } else if (keys.isArray()) {
        QVector<QString> sequences;
        const QJsonArray array = keys.toArray();
        sequences.reserve(array.size());
        for (const QJsonValue &element : array)
            sequences.append(element.toString());
        app->performKeySequences(sequences);
    } else {
        qCWarning(lcHandlers) << "No keys" << keys;
    }
}

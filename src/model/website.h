#pragma once

#include <QJsonObject>
#include <QObject>

// One site document from the web service, kept as received.
class Website : public QObject
{
    Q_OBJECT
public:
    Website(const QJsonObject &json, QObject *parent = nullptr)
        : QObject(parent)
        , json(json)
    { }

    const QJsonObject json;
};

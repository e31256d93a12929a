#pragma once

#include <QDBusConnection>
#include <QList>
#include <QString>
#include <QVariantList>

// What a python3-dbusmock service was asked (its org.freedesktop.DBus.Mock interface).
namespace DBusMock {

struct Call
{
    QString method;
    QVariantList arguments;
};

// Every call the mock at service/path recorded, oldest first; empty when it does not answer.
QList<Call> calls(const QString &service, const QString &path,
    const QDBusConnection &bus = QDBusConnection::sessionBus());
void clearCalls(const QString &service, const QString &path,
    const QDBusConnection &bus = QDBusConnection::sessionBus());

} // namespace DBusMock

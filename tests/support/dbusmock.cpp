#include "dbusmock.h"

#include <QDBusArgument>
#include <QDBusMessage>
#include <QDBusVariant>

namespace {
const QString mockInterface = QStringLiteral("org.freedesktop.DBus.Mock");
}

namespace DBusMock {

QList<Call> calls(const QString &service, const QString &path, const QDBusConnection &bus)
{
    const QDBusMessage reply = QDBusConnection(bus).call(
        QDBusMessage::createMethodCall(service, path, mockInterface, QStringLiteral("GetCalls")));
    QList<Call> result;
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty())
        return result;
    // a(tsav): time, method, arguments.
    const QDBusArgument array = reply.arguments().constFirst().value<QDBusArgument>();
    array.beginArray();
    while (!array.atEnd()) {
        Call entry;
        quint64 time = 0;
        array.beginStructure();
        array >> time >> entry.method;
        array.beginArray();
        while (!array.atEnd()) {
            QDBusVariant value;
            array >> value;
            entry.arguments << value.variant();
        }
        array.endArray();
        array.endStructure();
        result << entry;
    }
    array.endArray();
    return result;
}

void clearCalls(const QString &service, const QString &path, const QDBusConnection &bus)
{
    QDBusConnection(bus).call(
        QDBusMessage::createMethodCall(service, path, mockInterface, QStringLiteral("ClearCalls")));
}

} // namespace DBusMock

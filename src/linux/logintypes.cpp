#include "logintypes.h"

#include <QDBusMetaType>

QDBusArgument &operator<<(QDBusArgument &argument, const LoginSessionEntry &entry)
{
    argument.beginStructure();
    argument << entry.id << entry.uid << entry.user << entry.seat << entry.path;
    argument.endStructure();
    return argument;
}

const QDBusArgument &operator>>(const QDBusArgument &argument, LoginSessionEntry &entry)
{
    argument.beginStructure();
    argument >> entry.id >> entry.uid >> entry.user >> entry.seat >> entry.path;
    argument.endStructure();
    return argument;
}

void registerLoginTypes()
{
    static const bool registered = [] {
        qDBusRegisterMetaType<LoginSessionEntry>();
        qDBusRegisterMetaType<LoginSessionList>();
        return true;
    }();
    Q_UNUSED(registered)
}

#pragma once

#include <QDBusArgument>
#include <QDBusObjectPath>
#include <QList>
#include <QMetaType>
#include <QString>

// One entry of logind's ListSessions answer, a(susso).
struct LoginSessionEntry
{
    QString id;
    uint uid = 0;
    QString user;
    QString seat;
    QDBusObjectPath path;
};
typedef QList<LoginSessionEntry> LoginSessionList;

Q_DECLARE_METATYPE(LoginSessionEntry)
Q_DECLARE_METATYPE(LoginSessionList)

QDBusArgument &operator<<(QDBusArgument &argument, const LoginSessionEntry &entry);
const QDBusArgument &operator>>(const QDBusArgument &argument, LoginSessionEntry &entry);

// Makes the types known to QtDBus; safe to call more than once.
void registerLoginTypes();

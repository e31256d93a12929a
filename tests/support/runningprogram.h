#pragma once

#include <QByteArray>
#include <QMap>
#include <QProcess>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

// The program itself, started as a user would start it: with private folders, on the offscreen
// platform, without buses, and with devices paired earlier (by default "phone" with
// "phone-token"). Its log is collected as it comes, so that it never waits on a full pipe.
class RunningProgram
{
public:
    explicit RunningProgram(const QString &executable, const QStringList &wrapper = QStringList(),
        const QMap<QString, QString> &devices
        = { { QStringLiteral("phone"), QStringLiteral("phone-token") } });
    ~RunningProgram();

    // Waits until it listens; 0 when it never does.
    quint16 port();
    qint64 pid() const { return process.processId(); }
    // Waits up to timeout ms for text in the log.
    bool waitForLog(const QByteArray &text, int timeout = 10000);

    QTemporaryDir home;
    QProcess process;
    QByteArray output;
};

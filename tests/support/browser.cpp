#include "browser.h"

#include <QJsonDocument>
#include <QtTest>

Browser::Browser()
{
    process.setProcessChannelMode(QProcess::SeparateChannels);
    QObject::connect(&process, &QProcess::readyReadStandardError,
        [this] { qDebug().noquote() << "browser:" << process.readAllStandardError().trimmed(); });
}

Browser::~Browser()
{
    if (process.state() == QProcess::NotRunning)
        return;
    process.closeWriteChannel();
    if (!process.waitForFinished(10000))
        process.kill();
    process.waitForFinished(3000);
}

bool Browser::start()
{
    process.start(QStringLiteral("node"), { QStringLiteral(VELM_BROWSER_SCRIPT) });
    bool ok = false;
    // The first line carries the browser's version.
    nextId = 0;
    const QJsonValue version = call(QString(), QJsonObject(), &ok, 60000);
    if (ok)
        qInfo().noquote() << "Chromium" << version.toString();
    return ok;
}

QJsonValue Browser::call(const QString &command, QJsonObject arguments, bool *ok, int timeout)
{
    const int id = nextId++;
    if (ok)
        *ok = false;
    if (!command.isEmpty()) {
        arguments.insert(QStringLiteral("id"), id);
        arguments.insert(QStringLiteral("do"), command);
        process.write(QJsonDocument(arguments).toJson(QJsonDocument::Compact) + '\n');
    }
    QJsonObject answer;
    const bool answered = QTest::qWaitFor(
        [&] {
            pending += process.readAllStandardOutput();
            int end;
            while ((end = pending.indexOf('\n')) >= 0) {
                const QJsonObject line = QJsonDocument::fromJson(pending.left(end)).object();
                pending.remove(0, end + 1);
                if (line.value(QStringLiteral("id")).toInt() == id) {
                    answer = line;
                    return true;
                }
            }
            return process.state() == QProcess::NotRunning;
        },
        timeout);
    if (!answered || answer.isEmpty()) {
        m_error = process.state() == QProcess::NotRunning
            ? QStringLiteral("the browser driver ended: %1").arg(process.errorString())
            : QStringLiteral("%1 did not answer within %2 ms").arg(command).arg(timeout);
        return QJsonValue();
    }
    if (!answer.value(QStringLiteral("ok")).toBool()) {
        m_error = command + QStringLiteral(": ") + answer.value(QStringLiteral("error")).toString();
        return QJsonValue();
    }
    if (ok)
        *ok = true;
    return answer.value(QStringLiteral("value"));
}

bool Browser::run(const QString &command, const QJsonObject &arguments, int timeout)
{
    bool ok = false;
    call(command, arguments, &ok, timeout);
    return ok;
}

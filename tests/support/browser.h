#pragma once

#include <QJsonObject>
#include <QJsonValue>
#include <QProcess>
#include <QString>

// Debian's Chromium, headless, driven through playwright-core (tests/support/browser.mjs): one
// command at a time, answered while the event loop goes on, so that the program under test
// keeps running in the same process.
class Browser
{
public:
    Browser();
    ~Browser();

    // Starts the browser; false (with the reason in error()) when it cannot.
    bool start();
    QString error() const { return m_error; }

    // Runs one command ("do" and its arguments; see browser.mjs) and returns its value; on a
    // failure ok is false and error() says why.
    QJsonValue call(const QString &command, QJsonObject arguments = QJsonObject(),
        bool *ok = nullptr, int timeout = 30000);
    // The same, for commands whose value does not matter: true when it succeeded.
    bool run(
        const QString &command, const QJsonObject &arguments = QJsonObject(), int timeout = 30000);

private:
    QProcess process;
    QByteArray pending;
    QString m_error;
    int nextId = 1;
};

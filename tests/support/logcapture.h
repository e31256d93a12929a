#pragma once

#include <QStringList>
#include <QtGlobal>

// Records the log lines written while it exists, and passes them on to the previous handler
// (QtTest's, so that QTest::ignoreMessage keeps working).
class LogCapture
{
public:
    LogCapture();
    ~LogCapture();

    QStringList lines() const;
    int count(const QString &prefix) const;

private:
    static void handler(QtMsgType type, const QMessageLogContext &context, const QString &message);
    QtMessageHandler m_previous = nullptr;
};

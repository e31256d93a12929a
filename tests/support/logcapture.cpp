#include "logcapture.h"

#include <QMutex>

namespace {
// Messages may come from worker threads too.
QMutex mutex;
LogCapture *current = nullptr;
QStringList captured;
QtMessageHandler previousHandler = nullptr;
} // namespace

LogCapture::LogCapture()
{
    QMutexLocker lock(&mutex);
    captured.clear();
    current = this;
    m_previous = qInstallMessageHandler(&LogCapture::handler);
    previousHandler = m_previous;
}

LogCapture::~LogCapture()
{
    qInstallMessageHandler(m_previous);
    QMutexLocker lock(&mutex);
    current = nullptr;
}

QStringList LogCapture::lines() const
{
    QMutexLocker lock(&mutex);
    return captured;
}

int LogCapture::count(const QString &prefix) const
{
    int n = 0;
    for (const QString &line : lines()) {
        if (line.startsWith(prefix))
            ++n;
    }
    return n;
}

void LogCapture::handler(QtMsgType type, const QMessageLogContext &context, const QString &message)
{
    {
        QMutexLocker lock(&mutex);
        if (current)
            captured.append(message);
    }
    if (previousHandler)
        previousHandler(type, context, message);
}

#include "logcapture.h"

namespace {
LogCapture *current = nullptr;
QStringList captured;
QtMessageHandler previousHandler = nullptr;
} // namespace

LogCapture::LogCapture()
{
    captured.clear();
    current = this;
    m_previous = qInstallMessageHandler(&LogCapture::handler);
    previousHandler = m_previous;
}

LogCapture::~LogCapture()
{
    qInstallMessageHandler(m_previous);
    current = nullptr;
}

QStringList LogCapture::lines() const { return captured; }

int LogCapture::count(const QString &prefix) const
{
    int n = 0;
    for (const QString &line : captured) {
        if (line.startsWith(prefix))
            ++n;
    }
    return n;
}

void LogCapture::handler(QtMsgType type, const QMessageLogContext &context, const QString &message)
{
    if (current)
        captured.append(message);
    if (previousHandler)
        previousHandler(type, context, message);
}

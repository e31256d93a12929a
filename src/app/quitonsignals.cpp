#include "quitonsignals.h"

#include <QCoreApplication>
#include <QLoggingCategory>
#include <QSocketNotifier>

#include <fcntl.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <sys/socket.h>
#include <unistd.h>

Q_LOGGING_CATEGORY(lcQuit, "velm.app.signals")

namespace {
// The handler may only write to a descriptor; the event loop reads the other end.
int s_pipe[2] = { -1, -1 };
const int s_signals[] = { SIGTERM, SIGINT, SIGHUP };
} // namespace

QuitOnSignals::QuitOnSignals(QObject *parent)
    : QObject(parent)
{
    if (s_pipe[0] != -1) {
        qCWarning(lcQuit) << "Signal handling is already installed";
        return;
    }
    // Flags set one by one: socketpair's own flags are not everywhere (macOS has none).
    bool ready = ::socketpair(AF_UNIX, SOCK_STREAM, 0, s_pipe) == 0;
    for (int i = 0; ready && i < 2; ++i) {
        ready = ::fcntl(s_pipe[i], F_SETFD, FD_CLOEXEC) == 0
            && ::fcntl(s_pipe[i], F_SETFL, ::fcntl(s_pipe[i], F_GETFL) | O_NONBLOCK) == 0;
    }
    if (!ready) {
        qCWarning(lcQuit) << "Cannot watch for termination signals:" << ::strerror(errno);
        if (s_pipe[0] != -1) {
            ::close(s_pipe[0]);
            ::close(s_pipe[1]);
        }
        s_pipe[0] = s_pipe[1] = -1;
        return;
    }
    m_notifier = new QSocketNotifier(s_pipe[0], QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, &QuitOnSignals::readSignal);

    struct sigaction action = {};
    action.sa_handler = &QuitOnSignals::onSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    for (int signal : s_signals)
        ::sigaction(signal, &action, nullptr);
}

QuitOnSignals::~QuitOnSignals()
{
    if (!m_notifier)
        return;
    struct sigaction action = {};
    action.sa_handler = SIG_DFL;
    sigemptyset(&action.sa_mask);
    for (int signal : s_signals)
        ::sigaction(signal, &action, nullptr);
    delete m_notifier;
    ::close(s_pipe[0]);
    ::close(s_pipe[1]);
    s_pipe[0] = s_pipe[1] = -1;
}

void QuitOnSignals::onSignal(int signal)
{
    const int savedErrno = errno;
    // The next one is not caught: a shutdown that hangs can still be ended.
    struct sigaction action = {};
    action.sa_handler = SIG_DFL;
    sigemptyset(&action.sa_mask);
    for (int each : s_signals)
        ::sigaction(each, &action, nullptr);
    const unsigned char byte = static_cast<unsigned char>(signal);
    if (::write(s_pipe[1], &byte, 1) < 0) {
        // Nothing more can be done inside a handler; the default action follows next time.
    }
    errno = savedErrno;
}

void QuitOnSignals::readSignal()
{
    unsigned char byte = 0;
    bool received = false;
    while (::read(s_pipe[0], &byte, 1) == 1)
        received = true;
    if (!received)
        return;
    qCInfo(lcQuit) << "Quitting on signal" << int(byte);
    QCoreApplication::quit();
}

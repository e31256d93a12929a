#pragma once

#include <QObject>

class QSocketNotifier;

// Turns SIGTERM, SIGINT and SIGHUP into an ordinary quit of the event loop. A logout or a
// Ctrl+C then shuts down like the tray's Quit does: clients are disconnected, the
// advertisement is withdrawn and the single-instance block, its lock and its key files are
// released instead of being left behind for the next start (or for another user) to trip on.
// A second signal while shutting down ends the process at once.
class QuitOnSignals : public QObject
{
    Q_OBJECT
public:
    explicit QuitOnSignals(QObject *parent = nullptr);
    ~QuitOnSignals() override;

private:
    static void onSignal(int signal);
    void readSignal();

    QSocketNotifier *m_notifier = nullptr;
};

#pragma once

#include <QObject>

class QSocketNotifier;

// Whether this computer's network links or IPv4 addresses may have changed since it was last
// asked, so that the network watch can skip its look at every interface while nothing happens.
// On Linux the kernel says so on a routing socket subscribed to link and address changes, which
// costs nothing while the network is quiet; elsewhere, or without that socket, the answer is
// always yes.
class NetworkChanges : public QObject
{
    Q_OBJECT
public:
    explicit NetworkChanges(QObject *parent = nullptr);
    ~NetworkChanges() override;

    // True when the kernel reports changes as they happen.
    bool isWatching() const { return m_socket >= 0; }
    // Whether something changed (or may have) since the last call; the first call says yes.
    bool takeChanged();

signals:
    // A link or an address changed; emitted once for every batch the kernel sends.
    void changed();

private:
    void onReadable();
    void stopWatching();

    int m_socket = -1;
    QSocketNotifier *m_notifier = nullptr;
    bool m_changed = true;
};

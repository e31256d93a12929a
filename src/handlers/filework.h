#pragma once

#include <QHash>
#include <QObject>
#include <QPointer>
#include <QQueue>

#include <functional>

class QWebSocket;
class Server;

// The file side of the file requests, off the event loop. Paths come from clients and may
// name a named pipe, a device, a huge picture or a file on a mount that never answers, while
// the event loop serves every client. Work runs on a small pool of low-priority threads; at
// most `perClient` requests of one client run at once and the rest wait in order. A request
// is finished on the event loop when its work is done or when its time limit has passed,
// whichever comes first; replies go out in that order, each naming what it answers. Requests
// whose asker has left are dropped.
class FileWork : public QObject
{
    Q_OBJECT
public:
    static constexpr int perClient = 2;
    // Work that outlived its time limit and still holds a thread (a hung mount). Each has a
    // thread of its own beyond the pool's; past this many, requests are answered at once as
    // failed, so that a client cannot stack up threads or waiting work without bound.
    static constexpr int maxStuck = 16;
    // Requests of one client waiting for a free place; more are answered at once as failed.
    static constexpr int maxWaiting = 256;

    // The one of `server`, made on first use.
    static FileWork *of(Server *server);

    // `work` runs on a worker thread and may touch nothing of the event loop's. Then `finish`
    // runs on the event loop, with true when the work was done in time and false when it was
    // not (anything the work writes must then be left alone), unless the asker or `context`
    // is gone by then. `what` names the request in the log ("fp /home/me/photo.png").
    void run(QObject *context, QWebSocket *asker, const QString &what, std::function<void()> work,
        std::function<void(bool done)> finish);

    int timeLimit() const { return m_timeLimit; }
    // In milliseconds.
    void setTimeLimit(int milliseconds) { m_timeLimit = milliseconds; }
    // Work past its time limit that has not returned yet, in all servers of the process.
    static int stuck();

private:
    struct Job
    {
        QPointer<QObject> context;
        QPointer<QWebSocket> asker;
        QString what;
        std::function<void()> work;
        std::function<void(bool)> finish;
    };
    struct Queue
    {
        int running = 0;
        QQueue<Job> waiting;
    };

    explicit FileWork(Server *server);
    void start(Job job);
    // A request of the asker ended (done, failed or timed out): the next one may start.
    void release(QWebSocket *asker);

    QHash<QWebSocket *, Queue> m_queues;
    int m_timeLimit = 15000;
};

#include "filework.h"

#include "server.h"

#include <QFutureWatcher>
#include <QLoggingCategory>
#include <QMutex>
#include <QThread>
#include <QThreadPool>
#include <QTimer>
#include <QWebSocket>
#include <QtConcurrent/QtConcurrentRun>

#include <atomic>
#include <memory>

#ifdef Q_OS_LINUX
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>
#endif

Q_LOGGING_CATEGORY(lcFileWork, "velm.files")

namespace {

constexpr int poolThreads = 4;

QThreadPool *pool()
{
    // Never deleted: deleting a pool waits for its threads, and one may wait on a hung mount
    // for good. Quitting must not wait with it.
    static QThreadPool *const threads = [] {
        auto *created = new QThreadPool;
        created->setMaxThreadCount(poolThreads);
        return created;
    }();
    return threads;
}

// Work past its time limit that still holds a thread. Changed by the event loop (when it gives
// up) and by the workers (when such work returns at last), whoever owns the request by then.
QMutex stuckMutex;
int stuckWork = 0;

// A stuck thread gets a replacement, so that the pool keeps its working threads.
void addStuck(int change)
{
    QMutexLocker lock(&stuckMutex);
    stuckWork += change;
    pool()->setMaxThreadCount(poolThreads + stuckWork);
    if (change > 0 && stuckWork == FileWork::maxStuck)
        qCWarning(lcFileWork).noquote()
            << QStringLiteral("%1 file requests have not returned (a mount that does not "
                              "answer?): file requests fail until they do")
                   .arg(stuckWork);
}

// Decoding a large picture must not take the processor from the event loop.
void lowerPriority()
{
    thread_local bool lowered = false;
    if (lowered)
        return;
    lowered = true;
#ifdef Q_OS_LINUX
    // Each thread has a nice value of its own on Linux, where thread priorities do nothing for
    // ordinary threads.
    setpriority(PRIO_PROCESS, id_t(syscall(SYS_gettid)), 10);
#else
    QThread::currentThread()->setPriority(QThread::LowPriority);
#endif
}

// Waiting -> Running -> Done, or Waiting -> Abandoned (given up before it started), or
// Running -> Stuck (given up while it runs).
enum State { Waiting, Running, Done, Abandoned, Stuck };

} // namespace

FileWork::FileWork(Server *server)
    : QObject(server)
{ }

FileWork *FileWork::of(Server *server)
{
    auto *work = server->findChild<FileWork *>(QString(), Qt::FindDirectChildrenOnly);
    return work ? work : new FileWork(server);
}

int FileWork::stuck()
{
    QMutexLocker lock(&stuckMutex);
    return stuckWork;
}

void FileWork::run(QObject *context, QWebSocket *asker, const QString &what,
    std::function<void()> work, std::function<void(bool)> finish)
{
    if (!asker)
        return;
    if (!m_queues.contains(asker))
        connect(asker, &QObject::destroyed, this, [this, asker] { m_queues.remove(asker); });
    Queue &queue = m_queues[asker];
    if (stuck() >= maxStuck || queue.waiting.size() >= maxWaiting) {
        finish(false);
        return;
    }
    Job job { context, asker, what, std::move(work), std::move(finish) };
    if (queue.running >= perClient) {
        queue.waiting.enqueue(std::move(job));
        return;
    }
    ++queue.running;
    start(std::move(job));
}

void FileWork::start(Job job)
{
    auto pending = std::make_shared<Job>(std::move(job));
    auto state = std::make_shared<std::atomic<int>>(Waiting);
    // Ended on the event loop: answered, or given up.
    auto ended = std::make_shared<bool>(false);

    auto *watcher = new QFutureWatcher<void>(this);
    auto *timer = new QTimer(watcher);
    timer->setSingleShot(true);

    auto end = [this, pending, ended](bool done) {
        *ended = true;
        if (pending->asker && pending->context)
            pending->finish(done);
        if (pending->asker)
            release(pending->asker);
    };
    connect(watcher, &QFutureWatcherBase::finished, this, [watcher, ended, end] {
        watcher->deleteLater();
        if (!*ended)
            end(true);
    });
    connect(timer, &QTimer::timeout, this, [this, pending, state, end] {
        int expected = Waiting;
        if (!state->compare_exchange_strong(expected, Abandoned)) {
            // Done already: its answer is on the way.
            if (expected == Done || !state->compare_exchange_strong(expected, Stuck))
                return;
            addStuck(1);
        }
        qCWarning(lcFileWork).noquote()
            << QStringLiteral("Gave up on %1 after %2 ms").arg(pending->what).arg(m_timeLimit);
        end(false);
    });

    const std::function<void()> work = pending->work;
    watcher->setFuture(QtConcurrent::run(pool(), [state, work] {
        int expected = Waiting;
        // Given up before it started: nothing to do.
        if (!state->compare_exchange_strong(expected, Running))
            return;
        lowerPriority();
        work();
        expected = Running;
        if (!state->compare_exchange_strong(expected, Done))
            addStuck(-1); // given up on meanwhile: its thread is back
    }));
    timer->start(m_timeLimit);
}

void FileWork::release(QWebSocket *asker)
{
    auto queue = m_queues.find(asker);
    if (queue == m_queues.end())
        return;
    --queue->running;
    while (queue->running < perClient && !queue->waiting.isEmpty()) {
        Job next = queue->waiting.dequeue();
        // Nobody to answer any more.
        if (!next.context || !next.asker || next.asker->state() != QAbstractSocket::ConnectedState)
            continue;
        ++queue->running;
        start(std::move(next));
    }
}

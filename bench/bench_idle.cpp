// The program at rest: starts the release binary offscreen with a private home, then reports
// the time until it listens (the median of several everyday starts, and of first starts), and
// over a quiet minute with no client its resident and private dirty memory, CPU time and
// wakeups (context switches of all its threads). When the KDE Connect daemon is installed, the
// same figures for it, started the same way, side by side. On an X display (the rig), also the
// memory of a first start there, with its welcome window shown. It measures; it never passes or
// fails.
//   usage: bench_idle [SECONDS]   (60 by default)

#include "testenvironment.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QProcess>
#include <QStringList>
#include <QTemporaryDir>
#include <QTimer>
#include <QVector>
#include <QtTest>

#include <algorithm>
#include <cstdio>
#include <unistd.h>

namespace {

struct Figures
{
    bool ran = false;
    double startMs = -1; // until it listens, median; -1 when it says nothing of the kind
    double firstStartMs = -1; // the same for the very first start, with its welcome window
    double rssMiB = 0;
    double privateDirtyMiB = 0;
    double cpuMs = 0;
    qint64 wakeups = 0;
};

// A field of /proc/PID/status or smaps_rollup, in kB.
qint64 field(const QString &file, const QByteArray &name)
{
    QFile f(file);
    if (!f.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray &line : f.readAll().split('\n')) {
        if (line.startsWith(name + ':'))
            return line.mid(name.size() + 1).trimmed().split(' ').first().toLongLong();
    }
    return -1;
}

// Time on a processor of all the process's threads, to the nanosecond (the scheduler's own
// account; /proc/PID/stat counts in ticks of 10 ms, too coarse for a quiet minute).
double cpuMilliseconds(qint64 pid)
{
    double total = 0;
    const QDir tasks(QStringLiteral("/proc/%1/task").arg(pid));
    for (const QString &task : tasks.entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        QFile schedstat(tasks.filePath(task) + QStringLiteral("/schedstat"));
        if (schedstat.open(QIODevice::ReadOnly))
            total += schedstat.readAll().split(' ').value(0).toDouble() / 1e6;
    }
    return total;
}

qint64 wakeups(qint64 pid)
{
    qint64 total = 0;
    const QDir tasks(QStringLiteral("/proc/%1/task").arg(pid));
    for (const QString &task : tasks.entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        const QString status = tasks.filePath(task) + QStringLiteral("/status");
        total += qMax<qint64>(0, field(status, "voluntary_ctxt_switches"))
            + qMax<qint64>(0, field(status, "nonvoluntary_ctxt_switches"));
    }
    return total;
}

// A private home for one start. An everyday start is one after the first: the welcome window
// has been seen, as it has on every start but the first.
QProcessEnvironment privateHome(const QString &root, bool everyday, bool offscreen = true)
{
    QProcessEnvironment environment = TestEnvironment::isolatedProgram(root);
    if (offscreen)
        environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    else
        environment.remove(QStringLiteral("QT_QPA_PLATFORM"));
    if (everyday) {
        const QString folder = QDir(root).filePath(QStringLiteral("config/Velm"));
        QDir().mkpath(folder);
        QFile settings(folder + QStringLiteral("/velm-server.conf"));
        if (settings.open(QIODevice::WriteOnly))
            settings.write("[General]\nwelcome=true\n");
    }
    return environment;
}

// Starts the program and returns once it says it listens (or after 20 s), with the time that
// took; the log is read as it arrives, so nothing is added by polling.
double startUntil(QProcess &process, const QString &program, const QByteArray &listening)
{
    QByteArray log;
    double elapsed = -1;
    QElapsedTimer clock;
    QEventLoop loop;
    QObject::connect(&process, &QProcess::readyRead, &loop, [&] {
        log += process.readAll();
        if (elapsed < 0 && !listening.isEmpty() && log.contains(listening)) {
            elapsed = double(clock.nsecsElapsed()) / 1e6;
            loop.quit();
        }
    });
    QObject::connect(&process, &QProcess::errorOccurred, &loop, &QEventLoop::quit);
    QObject::connect(&process, qOverload<int, QProcess::ExitStatus>(&QProcess::finished), &loop,
        &QEventLoop::quit);
    QTimer::singleShot(listening.isEmpty() ? 0 : 20000, &loop, &QEventLoop::quit);
    clock.start();
    process.start(program, QStringList());
    loop.exec();
    return elapsed;
}

void stop(QProcess &process)
{
    process.terminate();
    if (!process.waitForFinished(10000))
        process.kill();
    process.waitForFinished(3000);
}

double median(QVector<double> values)
{
    std::sort(values.begin(), values.end());
    return values.isEmpty() ? -1 : values.at(values.size() / 2);
}

// The median time to listening over several starts, each in a fresh private home.
double startTime(const QString &program, const QByteArray &listening, bool everyday, int runs)
{
    QVector<double> times;
    for (int run = 0; run < runs; ++run) {
        QTemporaryDir root;
        QProcess process;
        process.setProcessEnvironment(privateHome(root.path(), everyday));
        process.setProcessChannelMode(QProcess::MergedChannels);
        const double elapsed = startUntil(process, program, listening);
        stop(process);
        if (elapsed >= 0)
            times << elapsed;
    }
    return median(times);
}

Figures measure(const QString &program, const QByteArray &listening, int seconds)
{
    Figures figures;
    QTemporaryDir root;
    QProcess process;
    process.setProcessEnvironment(privateHome(root.path(), true));
    process.setProcessChannelMode(QProcess::MergedChannels);
    startUntil(process, program, listening);
    if (process.state() != QProcess::Running)
        return figures;
    figures.ran = true;
    if (!listening.isEmpty()) {
        figures.firstStartMs = startTime(program, listening, false, 5);
        figures.startMs = startTime(program, listening, true, 9);
    }
    // Settled: what start-up set going is over before the quiet minute is counted.
    QTest::qWait(2000);
    const qint64 pid = process.processId();
    const double cpuBefore = cpuMilliseconds(pid);
    const qint64 wakeupsBefore = wakeups(pid);
    QTest::qWait(seconds * 1000);
    figures.cpuMs = cpuMilliseconds(pid) - cpuBefore;
    figures.wakeups = wakeups(pid) - wakeupsBefore;
    const QString rollup = QStringLiteral("/proc/%1/smaps_rollup").arg(pid);
    figures.rssMiB = double(field(rollup, "Rss")) / 1024.0;
    figures.privateDirtyMiB = double(field(rollup, "Private_Dirty")) / 1024.0;
    stop(process);
    return figures;
}

// A first start on the X display: the welcome window is shown, as a new user sees it.
Figures measureWindowShown(const QString &program, const QByteArray &listening)
{
    Figures figures;
    QTemporaryDir root;
    QProcess process;
    process.setProcessEnvironment(privateHome(root.path(), false, false));
    process.setProcessChannelMode(QProcess::MergedChannels);
    startUntil(process, program, listening);
    if (process.state() != QProcess::Running)
        return figures;
    figures.ran = true;
    QTest::qWait(3000);
    const QString rollup = QStringLiteral("/proc/%1/smaps_rollup").arg(process.processId());
    figures.rssMiB = double(field(rollup, "Rss")) / 1024.0;
    figures.privateDirtyMiB = double(field(rollup, "Private_Dirty")) / 1024.0;
    stop(process);
    return figures;
}

QString kdeConnect()
{
    for (const char *path : { "/usr/lib/x86_64-linux-gnu/libexec/kdeconnectd",
             "/usr/libexec/kdeconnectd", "/usr/lib/kdeconnectd" }) {
        if (QFile::exists(QString::fromLatin1(path)))
            return QString::fromLatin1(path);
    }
    return QString();
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    const int seconds = argc > 1 ? qMax(1, atoi(argv[1])) : 60;
    const QString velm
        = QCoreApplication::applicationDirPath() + QStringLiteral("/../src/shell/velm-server");
    // A binary linked a moment ago is still dirty in the page cache, and its pages would count
    // as the program's private dirty memory until they are written back.
    ::sync();
    std::printf(
        "At rest, offscreen, a private home, no client; over %d s after start-up\n\n", seconds);
    const Figures ours = measure(velm, "listens on port", seconds);
    if (!ours.ran) {
        std::printf("velm-server did not start (%s)\n", qPrintable(velm));
        return 1;
    }
    const QString other = kdeConnect();
    const Figures theirs = other.isEmpty() ? Figures() : measure(other, QByteArray(), seconds);
    std::printf("%-30s %14s %14s\n", "", "velm-server", theirs.ran ? "kdeconnectd" : "");
    auto row = [&](const char *label, double a, double b, const char *format) {
        char left[32];
        char right[32] = "";
        std::snprintf(left, sizeof left, format, a);
        if (theirs.ran)
            std::snprintf(right, sizeof right, format, b);
        std::printf("%-30s %14s %14s\n", label, left, right);
    };
    row("start to listening (ms)", ours.startMs, -1, "%.0f");
    row("  the first start (ms)", ours.firstStartMs, -1, "%.0f");
    row("resident memory (MiB)", ours.rssMiB, theirs.rssMiB, "%.1f");
    row("private dirty memory (MiB)", ours.privateDirtyMiB, theirs.privateDirtyMiB, "%.1f");
    row("CPU time (ms)", ours.cpuMs, theirs.cpuMs, "%.1f");
    row("wakeups (context switches)", double(ours.wakeups), double(theirs.wakeups), "%.0f");
    if (!theirs.ran)
        std::printf("\n(kdeconnectd is not installed: no comparison)\n");
    if (!qEnvironmentVariableIsEmpty("DISPLAY")) {
        const Figures shown = measureWindowShown(velm, "listens on port");
        if (shown.ran) {
            std::printf("\nA first start on the X display, its welcome window shown:\n");
            std::printf("%-30s %14.1f\n", "resident memory (MiB)", shown.rssMiB);
            std::printf("%-30s %14.1f\n", "private dirty memory (MiB)", shown.privateDirtyMiB);
        }
    }
    return 0;
}

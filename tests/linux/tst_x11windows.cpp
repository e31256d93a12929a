#include "core.h"
#include "keys.h"
#include "l.h"
#include "linuxapp.h"
#include "linuxplatform.h"
#include "logcapture.h"
#include "mediaplayers.h"
#include "protocolclient.h"
#include "server.h"
#include "serverfixture.h"
#include "testenvironment.h"
#include "x11session.h"

#include <algorithm>

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonArray>
#include <QProcess>
#include <QSettings>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

#include <signal.h>

namespace {
const QString probePath = QStringLiteral(VELM_PROBE_WINDOW);

QString run(const QString &program, const QStringList &arguments)
{
    QProcess process;
    process.start(program, arguments);
    process.waitForFinished(10000);
    return QString::fromUtf8(process.readAllStandardOutput()).trimmed();
}

// The EWMH states of a window, as the window manager set them.
QString netState(WId window)
{
    return run(QStringLiteral("xprop"),
        { QStringLiteral("-id"), QString::number(window), QStringLiteral("_NET_WM_STATE") });
}

WId activeWindow()
{
    const QString line = run(
        QStringLiteral("xprop"), { QStringLiteral("-root"), QStringLiteral("_NET_ACTIVE_WINDOW") });
    return line.section(QLatin1Char('#'), 1).trimmed().toULong(nullptr, 16);
}

// One running probe window and its log.
struct Probe
{
    QString log;
    QProcess process;
    WId window = 0;

    QStringList lines() const
    {
        QFile file(log);
        if (!file.open(QIODevice::ReadOnly))
            return {};
        return QString::fromUtf8(file.readAll()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    }
    QStringList keys() const { return lines().filter(QRegularExpression(QStringLiteral("^key "))); }
    bool waitReady()
    {
        if (!QTest::qWaitFor(
                [this] { return !lines().filter(QStringLiteral("ready ")).isEmpty(); }, 10000))
            return false;
        window = lines()
                     .filter(QStringLiteral("ready "))
                     .first()
                     .section(QLatin1Char(' '), 1)
                     .toULong();
        return window != 0;
    }
    ~Probe()
    {
        if (process.state() != QProcess::NotRunning) {
            process.kill();
            process.waitForFinished(3000);
        }
    }
};
} // namespace

// Running applications, the front application, window control, scrolling and keys, on a real
// X server with a window manager, checked on what the windows and applications received.
class TestX11Windows : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanupTestCase();
    void cleanup();
    void installedListOverTheWire();
    void activateLaunchesAndFollowsTheFront();
    void programWithoutEntryIsListedFromItsWindow();
    void matchedByStartupClassAndByExecutable();
    void docksAndSkipTaskbarWindowsAreNoApplications();
    void currentAppReportedOnEveryActivation();
    void activateRaisesTheRecentWindow();
    void minimiseAndRestore();
    void allMinimisedRaisesTheFirst();
    void maximiseTogglesFullScreen();
    void zoomWithoutFullScreen();
    void closeClosesTheFrontWindow();
    void quitAsksEveryWindow();
    void hideMinimisesAll();
    void notRunningIsLogged();
    void scrollDirection();
    void keySequences();
    void keysWaitingForTheWindowManagerBlockNobody();
    void keyTableFollowsTheLayout();
    void mediaKeysWithoutAPlayer();

private:
    Probe *startProbe(const QStringList &arguments, const QString &program = QString());
    Probe *launchedProbe();
    bool send(const QJsonObject &message);
    LinuxApp *app(const QString &id) const;

    QTemporaryDir data;
    QString orphanPath;
    QString execProbePath;
    Core *core = nullptr;
    LinuxPlatform *platform = nullptr;
    ProtocolClient *client = nullptr;
    QList<Probe *> probes;
    int logCount = 0;
};

Probe *TestX11Windows::startProbe(const QStringList &arguments, const QString &program)
{
    auto *probe = new Probe;
    probe->log = data.filePath(QStringLiteral("probe-%1.log").arg(++logCount));
    probe->process.start(program.isEmpty() ? probePath : program,
        QStringList { QStringLiteral("--log"), probe->log } + arguments);
    probes << probe;
    return probe;
}

LinuxApp *TestX11Windows::app(const QString &id) const
{
    return qobject_cast<LinuxApp *>(platform->appforId(id));
}

bool TestX11Windows::send(const QJsonObject &message) { return client->sendAndSync(message); }

void TestX11Windows::initTestCase()
{
    QVERIFY(X11Session::available());
    TestEnvironment::setUp();
    QSettings().setValue(QStringLiteral("preventSleep"), false);
    // Desktop entries of our own: the probe, and one that runs a copy of it under another name.
    const QString applications = data.filePath(QStringLiteral("applications"));
    QVERIFY(QDir().mkpath(applications));
    orphanPath = data.filePath(QStringLiteral("orphan-probe"));
    execProbePath = data.filePath(QStringLiteral("exec-probe"));
    QVERIFY(QFile::copy(probePath, orphanPath));
    QVERIFY(QFile::copy(probePath, execProbePath));
    auto writeEntry = [&](const QString &file, const QString &body) {
        QFile entry(applications + QLatin1Char('/') + file);
        QVERIFY(entry.open(QIODevice::WriteOnly));
        entry.write(body.toUtf8());
    };
    writeEntry(QStringLiteral("velm-probe.desktop"),
        QStringLiteral(
            "[Desktop Entry]\nType=Application\nName=Velm Probe\nExec=%1 --class probeclass "
            "--title Launched --log %2\nStartupWMClass=Probeclass\nStartupNotify=true\n")
            .arg(probePath, data.filePath(QStringLiteral("launched.log"))));
    writeEntry(QStringLiteral("velm-exec-probe.desktop"),
        QStringLiteral("[Desktop Entry]\nType=Application\nName=Exec Probe\nExec=%1\n")
            .arg(execProbePath));
    qputenv("XDG_DATA_HOME", data.path().toUtf8());

    platform = new LinuxPlatform;
    core = new Core(platform);
    core->start();
    QVERIFY(core->server);
    QTRY_VERIFY(core->server->handler(L::unsupported));
    Pairing::authorize(QStringLiteral("phone"), QStringLiteral("phone-token"));
    client = new ProtocolClient(QStringLiteral("phone"));
    QVERIFY(Pairing::connectAuthenticated(*client, listeningPort(core->server)));
    // The client makes the platform active: windows are followed from now on.
    QTRY_VERIFY(!platform->getInstalledApps().isEmpty());
    QVERIFY(!platform->getUnsupported().contains(L::keySequence));
    QVERIFY(!platform->getUnsupported().contains(L::currentApp));
}

void TestX11Windows::cleanup()
{
    qDeleteAll(probes);
    probes.clear();
    // Probes the desktop entry started are no children of this test: end them through their
    // windows' process ids.
    if (LinuxApp *launched = app(QStringLiteral("velm-probe"))) {
        for (WId window : qAsConst(launched->windows)) {
            if (const int pid = platform->session()->window(window).pid; pid > 0)
                ::kill(pid, SIGKILL);
        }
    }
    // Every probe window is gone before the next test counts windows.
    QTRY_VERIFY(!app(QStringLiteral("velm-probe")) || !app(QStringLiteral("velm-probe"))->running);
}

void TestX11Windows::cleanupTestCase()
{
    delete client;
    delete core;
}

void TestX11Windows::installedListOverTheWire()
{
    client->send(QJsonObject { { L::method, L::installedApps } });
    QTRY_VERIFY(!client->framesWith(L::installedApps).isEmpty());
    const QJsonArray apps
        = client->framesWith(L::installedApps).last().object().value(L::apps).toArray();
    QStringList ids;
    for (const QJsonValue &entry : apps)
        ids << entry.toObject().value(L::id).toString();
    QVERIFY(ids.contains(QStringLiteral("velm-probe")));
    QVERIFY(ids.contains(QStringLiteral("velm-exec-probe")));
}

Probe *TestX11Windows::launchedProbe()
{
    // Launched from its entry through the server, as a client's "activate" does.
    auto *probe = new Probe;
    probe->log = data.filePath(QStringLiteral("launched.log"));
    QFile::remove(probe->log);
    probes << probe;
    if (!send(
            QJsonObject { { L::method, L::activateApp }, { L::id, QStringLiteral("velm-probe") } }))
        return nullptr;
    if (!probe->waitReady())
        return nullptr;
    return probe;
}

void TestX11Windows::activateLaunchesAndFollowsTheFront()
{
    QVERIFY(!app(QStringLiteral("velm-probe"))->running);
    QSignalSpy launched(platform, &Platform::appLaunched);
    QSignalSpy runningChanged(platform, &Platform::runningAppsChanged);
    const int currentPushes = client->framesWith(L::currentApp).size();
    Probe *probe = launchedProbe();
    QVERIFY(probe);
    LinuxApp *probeApp = app(QStringLiteral("velm-probe"));
    QTRY_VERIFY(probeApp->running);
    QCOMPARE(launched.count(), 1);
    QCOMPARE(launched.first().first().value<App *>(), probeApp);
    QCOMPARE(runningChanged.count(), 1);
    QCOMPARE(probeApp->windows, QList<WId> { probe->window });
    // The new window takes the front, and every client hears of it.
    QTRY_COMPARE(activeWindow(), probe->window);
    QTRY_COMPARE(platform->getCurrentApp(), static_cast<App *>(probeApp));
    QTRY_VERIFY(client->framesWith(L::currentApp).size() > currentPushes);
    QCOMPARE(client->framesWith(L::currentApp).last().object().value(L::id).toString(),
        QStringLiteral("velm-probe"));
    // "ia" shows it running, first (most recently started).
    const int before = client->framesWith(L::installedApps).size();
    client->send(QJsonObject { { L::method, L::installedApps } });
    QTRY_VERIFY(client->framesWith(L::installedApps).size() > before);
    const QJsonObject first = client->framesWith(L::installedApps)
                                  .last()
                                  .object()
                                  .value(L::apps)
                                  .toArray()
                                  .first()
                                  .toObject();
    QCOMPARE(first.value(L::id).toString(), QStringLiteral("velm-probe"));
    QCOMPARE(first.value(L::status).toString(), L::running);

    // Its window closes: it stops running, once.
    QSignalSpy terminated(platform, &Platform::appTerminated);
    QVERIFY(
        send(QJsonObject { { L::method, L::quitApp }, { L::id, QStringLiteral("velm-probe") } }));
    QTRY_VERIFY(!probeApp->running);
    QCOMPARE(terminated.count(), 1);
    QVERIFY(!platform->getRunningApps().contains(probeApp));
}

void TestX11Windows::programWithoutEntryIsListedFromItsWindow()
{
    QSignalSpy installed(platform, &Platform::installedAppsChanged);
    Probe *probe = startProbe(
        { QStringLiteral("--class"), QStringLiteral("orphan"), QStringLiteral("--red-icon") },
        orphanPath);
    QVERIFY(probe->waitReady());
    QTRY_VERIFY(app(QStringLiteral("orphan")));
    LinuxApp *orphan = app(QStringLiteral("orphan"));
    QVERIFY(installed.count() >= 1);
    QTRY_VERIFY(orphan->running);
    QCOMPARE(orphan->name, QStringLiteral("orphan"));
    QCOMPARE(orphan->path, QFileInfo(orphanPath).canonicalFilePath());
    QVERIFY(!orphan->appInfo());
    QVERIFY(platform->getInstalledApps().contains(orphan));
    // Its icon is the one its window carries.
    const QImage icon = orphan->icon.pixmap(32, 32).toImage();
    QVERIFY(!icon.isNull());
    QCOMPARE(QColor(icon.pixel(16, 16)), QColor(Qt::red));
    // "ia" lists it as running.
    const int before = client->framesWith(L::installedApps).size();
    client->send(QJsonObject { { L::method, L::installedApps } });
    QTRY_VERIFY(client->framesWith(L::installedApps).size() > before);
    bool listed = false;
    for (const QJsonValue &entry :
        client->framesWith(L::installedApps).last().object().value(L::apps).toArray())
        listed |= entry.toObject().value(L::id).toString() == QLatin1String("orphan")
            && entry.toObject().value(L::status).toString() == L::running;
    QVERIFY(listed);
}

void TestX11Windows::matchedByStartupClassAndByExecutable()
{
    // xterm's entry names its class (StartupWMClass=XTerm).
    QProcess xterm;
    xterm.start(QStringLiteral("xterm"), { QStringLiteral("-T"), QStringLiteral("velm-xterm") });
    QTRY_VERIFY_WITH_TIMEOUT(
        app(QStringLiteral("debian-xterm")) && app(QStringLiteral("debian-xterm"))->running, 10000);
    // A class nobody knows, run by the program an entry starts: matched by that program.
    Probe *probe = startProbe(
        { QStringLiteral("--class"), QStringLiteral("unrelatedclass") }, execProbePath);
    QVERIFY(probe->waitReady());
    QTRY_VERIFY(app(QStringLiteral("velm-exec-probe"))->running);
    QVERIFY(!app(QStringLiteral("unrelatedclass")));
    xterm.kill();
    xterm.waitForFinished();
    QTRY_VERIFY(!app(QStringLiteral("debian-xterm"))->running);
}

void TestX11Windows::docksAndSkipTaskbarWindowsAreNoApplications()
{
    const int before = platform->getInstalledApps().size();
    Probe *dock = startProbe(
        { QStringLiteral("--class"), QStringLiteral("dockprobe"), QStringLiteral("--dock") },
        orphanPath);
    Probe *hidden = startProbe({ QStringLiteral("--class"), QStringLiteral("skipprobe"),
                                   QStringLiteral("--skip-taskbar") },
        orphanPath);
    QVERIFY(dock->waitReady());
    QVERIFY(hidden->waitReady());
    // Both are managed by now: a normal window mapped after them shows up after them.
    Probe *normal
        = startProbe({ QStringLiteral("--class"), QStringLiteral("afterprobe") }, orphanPath);
    QVERIFY(normal->waitReady());
    QTRY_VERIFY(app(QStringLiteral("afterprobe")));
    QVERIFY(!app(QStringLiteral("dockprobe")));
    QVERIFY(!app(QStringLiteral("skipprobe")));
    QCOMPARE(platform->getInstalledApps().size(), before + 1);
    // The tray host (a dock) is no application either.
    for (App *entry : platform->getRunningApps())
        QVERIFY2(!entry->id.contains(QStringLiteral("trayer"), Qt::CaseInsensitive),
            qPrintable(entry->id));
}

void TestX11Windows::currentAppReportedOnEveryActivation()
{
    Probe *first = startProbe({ QStringLiteral("--class"), QStringLiteral("twin"),
                                  QStringLiteral("--title"), QStringLiteral("one") },
        orphanPath);
    QVERIFY(first->waitReady());
    Probe *second = startProbe({ QStringLiteral("--class"), QStringLiteral("twin"),
                                   QStringLiteral("--title"), QStringLiteral("two") },
        orphanPath);
    QVERIFY(second->waitReady());
    QTRY_COMPARE(app(QStringLiteral("twin"))->windows.size(), 2);
    QTRY_COMPARE(activeWindow(), second->window);
    QTRY_COMPARE(platform->getCurrentApp(), static_cast<App *>(app(QStringLiteral("twin"))));
    QSignalSpy current(platform, &Platform::currentAppChanged);
    auto reports = [&] {
        int count = 0;
        for (const QList<QVariant> &emission : current)
            count += emission.first().value<App *>() == app(QStringLiteral("twin"));
        return count;
    };
    // Two windows of one application: each switch is reported, the application unchanged.
    // (The window manager may announce a switch in more than one step.)
    app(QStringLiteral("twin"))->session->activate(first->window);
    QTRY_VERIFY(reports() >= 1);
    QTRY_COMPARE(activeWindow(), first->window);
    QTRY_COMPARE(platform->getCurrentApp(), static_cast<App *>(app(QStringLiteral("twin"))));
    const int afterFirst = reports();
    app(QStringLiteral("twin"))->session->activate(second->window);
    QTRY_VERIFY(reports() > afterFirst);
    QTRY_COMPARE(activeWindow(), second->window);
    QCOMPARE(platform->getCurrentApp(), static_cast<App *>(app(QStringLiteral("twin"))));
}

void TestX11Windows::activateRaisesTheRecentWindow()
{
    Probe *probe = launchedProbe();
    QVERIFY(probe);
    Probe *other
        = startProbe({ QStringLiteral("--class"), QStringLiteral("otherprobe") }, orphanPath);
    QVERIFY(other->waitReady());
    QTRY_COMPARE(activeWindow(), other->window);
    QVERIFY(send(
        QJsonObject { { L::method, L::activateApp }, { L::id, QStringLiteral("velm-probe") } }));
    QTRY_COMPARE(activeWindow(), probe->window);
    // No second copy was started.
    QCOMPARE(app(QStringLiteral("velm-probe"))->windows.size(), 1);
}

void TestX11Windows::minimiseAndRestore()
{
    Probe *probe = launchedProbe();
    QVERIFY(probe);
    QVERIFY(send(QJsonObject {
        { L::method, L::toggleMinimizeApp }, { L::id, QStringLiteral("velm-probe") } }));
    QTRY_VERIFY(netState(probe->window).contains(QStringLiteral("_NET_WM_STATE_HIDDEN")));
    QVERIFY(send(QJsonObject {
        { L::method, L::toggleMinimizeApp }, { L::id, QStringLiteral("velm-probe") } }));
    QTRY_VERIFY(!netState(probe->window).contains(QStringLiteral("_NET_WM_STATE_HIDDEN")));
    QTRY_COMPARE(activeWindow(), probe->window);
}

void TestX11Windows::allMinimisedRaisesTheFirst()
{
    Probe *first = startProbe({ QStringLiteral("--class"), QStringLiteral("pair"),
                                  QStringLiteral("--title"), QStringLiteral("first") },
        orphanPath);
    QVERIFY(first->waitReady());
    QTRY_VERIFY(app(QStringLiteral("pair")));
    Probe *second = startProbe({ QStringLiteral("--class"), QStringLiteral("pair"),
                                   QStringLiteral("--title"), QStringLiteral("second") },
        orphanPath);
    QVERIFY(second->waitReady());
    QTRY_COMPARE(
        app(QStringLiteral("pair"))->windows, (QList<WId> { first->window, second->window }));
    app(QStringLiteral("pair"))->hide();
    QTRY_VERIFY(netState(first->window).contains(QStringLiteral("_NET_WM_STATE_HIDDEN")));
    QTRY_VERIFY(netState(second->window).contains(QStringLiteral("_NET_WM_STATE_HIDDEN")));
    // With every window minimised, the first one comes back, and only it.
    QVERIFY(send(
        QJsonObject { { L::method, L::toggleMinimizeApp }, { L::id, QStringLiteral("pair") } }));
    QTRY_VERIFY(!netState(first->window).contains(QStringLiteral("_NET_WM_STATE_HIDDEN")));
    QTRY_COMPARE(activeWindow(), first->window);
    QVERIFY(netState(second->window).contains(QStringLiteral("_NET_WM_STATE_HIDDEN")));
}

void TestX11Windows::maximiseTogglesFullScreen()
{
    Probe *probe = launchedProbe();
    QVERIFY(probe);
    QTRY_VERIFY(app(QStringLiteral("velm-probe"))->supportsFullscreen());
    // A window that can go full screen does so instead of zooming.
    QVERIFY(send(QJsonObject {
        { L::method, L::toggleMaximizeApp }, { L::id, QStringLiteral("velm-probe") } }));
    QTRY_VERIFY(netState(probe->window).contains(QStringLiteral("_NET_WM_STATE_FULLSCREEN")));
    QVERIFY(!netState(probe->window).contains(QStringLiteral("_NET_WM_STATE_MAXIMIZED")));
    QVERIFY(send(QJsonObject {
        { L::method, L::toggleFullscreenApp }, { L::id, QStringLiteral("velm-probe") } }));
    QTRY_VERIFY(!netState(probe->window).contains(QStringLiteral("_NET_WM_STATE_FULLSCREEN")));
    // Without an id the front application is meant.
    QTRY_COMPARE(activeWindow(), probe->window);
    QTRY_COMPARE(platform->getCurrentApp(), static_cast<App *>(app(QStringLiteral("velm-probe"))));
    QVERIFY(send(QJsonObject { { L::method, L::toggleFullscreenApp } }));
    QTRY_VERIFY(netState(probe->window).contains(QStringLiteral("_NET_WM_STATE_FULLSCREEN")));
}

void TestX11Windows::zoomWithoutFullScreen()
{
    Probe *probe
        = startProbe({ QStringLiteral("--class"), QStringLiteral("zoomprobe") }, orphanPath);
    QVERIFY(probe->waitReady());
    QTRY_VERIFY(app(QStringLiteral("zoomprobe")) && app(QStringLiteral("zoomprobe"))->running);
    // A window the window manager will not put in full screen: its allowed actions say so.
    QCOMPARE(
        QProcess::execute(QStringLiteral("xprop"),
            { QStringLiteral("-id"), QString::number(probe->window), QStringLiteral("-f"),
                QStringLiteral("_NET_WM_ALLOWED_ACTIONS"), QStringLiteral("32a"),
                QStringLiteral("-set"), QStringLiteral("_NET_WM_ALLOWED_ACTIONS"),
                QStringLiteral("_NET_WM_ACTION_MOVE,_NET_WM_ACTION_RESIZE,_NET_WM_ACTION_MINIMIZE,"
                               "_NET_WM_ACTION_MAXIMIZE_HORZ,_NET_WM_ACTION_MAXIMIZE_VERT,_NET_WM_"
                               "ACTION_CLOSE") }),
        0);
    QTRY_VERIFY(!app(QStringLiteral("zoomprobe"))->supportsFullscreen());
    // Full screen falls back to zooming, and maximising zooms.
    QVERIFY(send(QJsonObject {
        { L::method, L::toggleFullscreenApp }, { L::id, QStringLiteral("zoomprobe") } }));
    QTRY_VERIFY(netState(probe->window).contains(QStringLiteral("_NET_WM_STATE_MAXIMIZED_VERT")));
    QVERIFY(!netState(probe->window).contains(QStringLiteral("_NET_WM_STATE_FULLSCREEN")));
    QVERIFY(send(QJsonObject {
        { L::method, L::toggleMaximizeApp }, { L::id, QStringLiteral("zoomprobe") } }));
    QTRY_VERIFY(!netState(probe->window).contains(QStringLiteral("_NET_WM_STATE_MAXIMIZED")));
}

void TestX11Windows::closeClosesTheFrontWindow()
{
    Probe *back = startProbe({ QStringLiteral("--class"), QStringLiteral("closer"),
                                 QStringLiteral("--title"), QStringLiteral("back") },
        orphanPath);
    QVERIFY(back->waitReady());
    QTRY_VERIFY(app(QStringLiteral("closer")));
    Probe *front = startProbe({ QStringLiteral("--class"), QStringLiteral("closer"),
                                  QStringLiteral("--title"), QStringLiteral("front") },
        orphanPath);
    QVERIFY(front->waitReady());
    QTRY_COMPARE(app(QStringLiteral("closer"))->windows.size(), 2);
    QTRY_COMPARE(activeWindow(), front->window);
    QVERIFY(send(QJsonObject { { L::method, L::closeApp }, { L::id, QStringLiteral("closer") } }));
    QTRY_VERIFY(front->lines().contains(QStringLiteral("close")));
    QTRY_COMPARE(front->process.state(), QProcess::NotRunning);
    QVERIFY(!back->lines().contains(QStringLiteral("close")));
    QTRY_COMPARE(app(QStringLiteral("closer"))->windows, QList<WId> { back->window });
    QVERIFY(app(QStringLiteral("closer"))->running);
}

void TestX11Windows::quitAsksEveryWindow()
{
    Probe *willing
        = startProbe({ QStringLiteral("--class"), QStringLiteral("quitter") }, orphanPath);
    QVERIFY(willing->waitReady());
    QTRY_VERIFY(app(QStringLiteral("quitter")));
    Probe *stubborn = startProbe(
        { QStringLiteral("--class"), QStringLiteral("quitter"), QStringLiteral("--refuse-close") },
        orphanPath);
    QVERIFY(stubborn->waitReady());
    QTRY_COMPARE(app(QStringLiteral("quitter"))->windows.size(), 2);
    QVERIFY(send(QJsonObject { { L::method, L::quitApp }, { L::id, QStringLiteral("quitter") } }));
    QTRY_VERIFY(willing->lines().contains(QStringLiteral("close")));
    QTRY_VERIFY(stubborn->lines().contains(QStringLiteral("close")));
    QTRY_COMPARE(willing->process.state(), QProcess::NotRunning);
    // Asked, not killed: the window that says no stays, and so does its process.
    QCOMPARE(stubborn->process.state(), QProcess::Running);
    QTRY_COMPARE(app(QStringLiteral("quitter"))->windows, QList<WId> { stubborn->window });
}

void TestX11Windows::hideMinimisesAll()
{
    Probe *one = startProbe({ QStringLiteral("--class"), QStringLiteral("hider") }, orphanPath);
    QVERIFY(one->waitReady());
    QTRY_VERIFY(app(QStringLiteral("hider")));
    Probe *two = startProbe({ QStringLiteral("--class"), QStringLiteral("hider") }, orphanPath);
    QVERIFY(two->waitReady());
    QTRY_COMPARE(app(QStringLiteral("hider"))->windows.size(), 2);
    app(QStringLiteral("hider"))->hide();
    QTRY_VERIFY(netState(one->window).contains(QStringLiteral("_NET_WM_STATE_HIDDEN")));
    QTRY_VERIFY(netState(two->window).contains(QStringLiteral("_NET_WM_STATE_HIDDEN")));
    // Still running: hidden is not gone.
    QVERIFY(app(QStringLiteral("hider"))->running);
}

void TestX11Windows::notRunningIsLogged()
{
    LinuxApp *idle = app(QStringLiteral("velm-exec-probe"));
    QTRY_VERIFY(!idle->running);
    LogCapture log;
    idle->quit();
    idle->hide();
    QCOMPARE(log.lines().filter(QStringLiteral("No running application for")).size(), 2);
    QVERIFY(log.lines()
                .filter(QStringLiteral("No running application for"))
                .first()
                .contains(QStringLiteral("velm-exec-probe")));
}

void TestX11Windows::scrollDirection()
{
    Probe *probe = launchedProbe();
    QVERIFY(probe);
    QVERIFY(QProcess::execute(QStringLiteral("xdotool"),
                { QStringLiteral("mousemove"), QStringLiteral("--window"),
                    QString::number(probe->window), QStringLiteral("100"), QStringLiteral("100") })
        == 0);
    QVERIFY(send(QJsonObject { { L::method, L::appScroll }, { L::id, QStringLiteral("velm-probe") },
        { L::x, 0 }, { L::y, 9 } }));
    QTRY_COMPARE(probe->lines().filter(QStringLiteral("wheel")),
        QStringList { QStringLiteral("wheel down") });
    QVERIFY(send(QJsonObject { { L::method, L::appScroll }, { L::id, QStringLiteral("velm-probe") },
        { L::x, 0 }, { L::y, 10 } }));
    QTRY_COMPARE(probe->lines().filter(QStringLiteral("wheel")),
        (QStringList { QStringLiteral("wheel down"), QStringLiteral("wheel up") }));
}

void TestX11Windows::keySequences()
{
    Probe *probe = launchedProbe();
    QVERIFY(probe);
    // Another window is in front: the keys must bring the application forward first.
    Probe *other
        = startProbe({ QStringLiteral("--class"), QStringLiteral("bystander") }, orphanPath);
    QVERIFY(other->waitReady());
    QTRY_COMPARE(activeWindow(), other->window);

    const QString ctrl = QString::number(int(Qt::ControlModifier), 16);
    const QString ctrlShift = QString::number(int(Qt::ControlModifier | Qt::ShiftModifier), 16);
    const QString none = QStringLiteral("0");
    LogCapture log;
    auto type = [&](const QJsonValue &keys) {
        return send(QJsonObject { { L::method, L::keySequence },
            { L::id, QStringLiteral("velm-probe") }, { L::keys, keys } });
    };
    QVERIFY(type(QStringLiteral("Ctrl+Shift+T")));
    QTRY_COMPARE(probe->keys().size(), 1);
    QCOMPARE(activeWindow(), probe->window);
    QVERIFY(other->keys().isEmpty());
    QCOMPARE(probe->keys().last(),
        QStringLiteral("key 54 %1 14").arg(ctrlShift)); // Ctrl+Shift+T: "T", text ^T
    QVERIFY(type(QStringLiteral("a,,b")));
    QVERIFY(type(QStringLiteral("Ctrl+,")));
    QVERIFY(type(QStringLiteral("x,Ctrl+,")));
    QVERIFY(type(QStringLiteral("ctrl+c")));
    QVERIFY(type(QJsonArray { QStringLiteral("return"), QStringLiteral("f5,pad+") }));
    QTRY_COMPARE(probe->keys().size(), 9);
    QCOMPARE(probe->keys(),
        (QStringList { QStringLiteral("key 54 %1 14").arg(ctrlShift),
            QStringLiteral("key 61 %1 61").arg(none), QStringLiteral("key 62 %1 62").arg(none),
            QStringLiteral("key 2c %1 2c").arg(ctrl), QStringLiteral("key 2c %1 2c").arg(none),
            QStringLiteral("key 63 %1 63").arg(none), QStringLiteral("key ff0d %1 0d").arg(none),
            QStringLiteral("key ffc2 %1 ").arg(none),
            QStringLiteral("key ffab %1 2b").arg(none) }));
    // Unknown keys and modifiers alone send nothing and say so.
    QVERIFY(type(QStringLiteral("nosuchkey")));
    QVERIFY(type(QStringLiteral("Ctrl+Alt")));
    QVERIFY(type(QStringLiteral("space")));
    QTRY_COMPARE(probe->keys().size(), 10);
    QCOMPARE(probe->keys().last(), QStringLiteral("key 20 %1 20").arg(none));
    QCOMPARE(log.lines().filter(QStringLiteral("Unhandled key")).size(), 2);
    QVERIFY(log.lines()
                .filter(QStringLiteral("Unhandled key"))
                .first()
                .contains(QStringLiteral("nosuchkey")));
}

namespace {
// Stops the rig's window manager until it goes out of scope, pass or fail.
class StoppedWindowManager
{
public:
    StoppedWindowManager()
    {
        QFile pids(qEnvironmentVariable("VELM_RIG_DIR") + QStringLiteral("/pids"));
        if (pids.open(QIODevice::ReadOnly)) {
            for (const QByteArray &line : pids.readAll().split('\n')) {
                if (line.endsWith(" openbox"))
                    pid = line.split(' ').first().toInt();
            }
        }
        if (pid > 0 && ::kill(pid, SIGSTOP) != 0)
            pid = 0;
    }
    ~StoppedWindowManager()
    {
        if (pid > 0)
            ::kill(pid, SIGCONT);
    }
    bool isStopped() const { return pid > 0; }

private:
    int pid = 0;
};
} // namespace

void TestX11Windows::keysWaitingForTheWindowManagerBlockNobody()
{
    Probe *probe = launchedProbe();
    QVERIFY(probe);
    Probe *other
        = startProbe({ QStringLiteral("--class"), QStringLiteral("bystander") }, orphanPath);
    QVERIFY(other->waitReady());
    QTRY_COMPARE(activeWindow(), other->window);
    Pairing::authorize(QStringLiteral("tablet"), QStringLiteral("tablet-token"));
    ProtocolClient tablet(QStringLiteral("tablet"));
    QVERIFY(Pairing::connectAuthenticated(tablet, listeningPort(core->server)));

    LogCapture log;
    {
        // A window manager that does not answer: the keys wait for it as long as they may.
        StoppedWindowManager stopped;
        QVERIFY(stopped.isStopped());
        for (const QString &keys : { QStringLiteral("a"), QStringLiteral("b") }) {
            QVERIFY(send(QJsonObject { { L::method, L::keySequence },
                { L::id, QStringLiteral("velm-probe") }, { L::keys, keys } }));
        }
        // Meanwhile another client is served at once, every time.
        QSignalSpy frames(&tablet, &ProtocolClient::frameReceived);
        QElapsedTimer waiting;
        waiting.start();
        int roundTrips = 0;
        qint64 slowest = 0;
        while (log.count(QStringLiteral("Window did not become active")) == 0) {
            QVERIFY2(waiting.elapsed() < 5000, "the keys never stopped waiting");
            const int before = frames.size();
            QElapsedTimer roundTrip;
            roundTrip.start();
            tablet.send(QJsonObject { { L::method, L::unsupported } });
            while (frames.size() == before)
                QVERIFY(frames.wait(1000));
            slowest = qMax(slowest, roundTrip.elapsed());
            ++roundTrips;
        }
        QVERIFY2(roundTrips >= 5, qPrintable(QString::number(roundTrips)));
        QVERIFY2(slowest < 20, qPrintable(QStringLiteral("%1 ms").arg(slowest)));
    }
    // Given up on the window manager, the keys are typed all the same, in order, where the
    // keyboard focus is.
    QTRY_COMPARE(other->keys().size() + probe->keys().size(), 2);
    const QStringList typed = other->keys() + probe->keys();
    QVERIFY2(typed.at(0).startsWith(QStringLiteral("key 61 ")),
        qPrintable(typed.join(QLatin1Char(','))));
    QVERIFY2(typed.at(1).startsWith(QStringLiteral("key 62 ")),
        qPrintable(typed.join(QLatin1Char(','))));
    QCOMPARE(log.count(QStringLiteral("Window did not become active")), 1);
}

void TestX11Windows::keyTableFollowsTheLayout()
{
    X11Session us;
    const Keys::Table usTable(&us);
    QCOMPARE(usTable.code("a"), 38u);
    QCOMPARE(usTable.code("q"), 24u);
    QCOMPARE(usTable.code("return"), 36u);
    QCOMPARE(usTable.code("delete"), usTable.code("backspace"));
    QVERIFY(usTable.code("forwarddelete") != usTable.code("delete"));
    // On a French layout "a" is typed by the key where "q" sits on a US keyboard.
    QCOMPARE(QProcess::execute(QStringLiteral("setxkbmap"), { QStringLiteral("fr") }), 0);
    X11Session french;
    const Keys::Table frenchTable(&french);
    QProcess::execute(QStringLiteral("setxkbmap"), { QStringLiteral("us") });
    QCOMPARE(frenchTable.code("a"), 24u);
    QCOMPARE(frenchTable.code("q"), 38u);
    QCOMPARE(frenchTable.code("return"), 36u);
}

QTEST_MAIN(TestX11Windows)
void TestX11Windows::mediaKeysWithoutAPlayer()
{
    // No media player is on this session's bus: the commands become the keyboard's media keys,
    // which reach the window in front.
    QVERIFY(platform->mediaPlayers());
    QVERIFY(platform->mediaPlayers()->isEmpty());
    for (const QString &code : { L::playPause, L::nextTrack, L::previousTrack })
        QVERIFY2(!platform->getUnsupported().contains(code), qPrintable(code));
    Probe *probe = startProbe({ QStringLiteral("--class"), QStringLiteral("listener") });
    QVERIFY(probe->waitReady());
    QTRY_COMPARE(activeWindow(), probe->window);
    // Naming the active window does not mean keys reach it yet: a freshly started listener can
    // miss the first keys it is sent. An ordinary key, typed from outside until one arrives,
    // shows that the keyboard is there.
    const QString ordinary = QStringLiteral("key 78 0 ");
    bool arrived = false;
    for (int attempt = 0; attempt < 20 && !arrived; ++attempt) {
        QCOMPARE(QProcess::execute(
                     QStringLiteral("xdotool"), { QStringLiteral("key"), QStringLiteral("x") }),
            0);
        arrived = QTest::qWaitFor([&] { return !probe->keys().isEmpty(); }, 500);
    }
    QVERIFY(arrived);
    QVERIFY2(probe->keys().first().startsWith(ordinary), qPrintable(probe->keys().first()));
    QVERIFY(send(QJsonObject { { L::method, L::playPause } }));
    QVERIFY(send(QJsonObject { { L::method, L::nextTrack } }));
    QVERIFY(send(QJsonObject { { L::method, L::previousTrack } }));
    // XF86AudioPlay, XF86AudioNext, XF86AudioPrev; no text.
    const QStringList expected { QStringLiteral("key 1008ff14 0 "),
        QStringLiteral("key 1008ff17 0 "), QStringLiteral("key 1008ff16 0 ") };
    auto mediaKeys = [probe, ordinary] {
        QStringList keys = probe->keys();
        keys.erase(std::remove_if(keys.begin(), keys.end(),
                       [&](const QString &key) { return key.startsWith(ordinary); }),
            keys.end());
        return keys;
    };
    QTRY_VERIFY2(mediaKeys() == expected, qPrintable(probe->keys().join(QStringLiteral(", "))));
}

#include "tst_x11windows.moc"

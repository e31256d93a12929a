#include "core.h"
#include "l.h"
#include "linuxapp.h"
#include "linuxplatform.h"
#include "logcapture.h"
#include "plasmasession.h"
#include "protocolclient.h"
#include "server.h"
#include "serverfixture.h"
#include "testenvironment.h"
#include "waylandconnection.h"
#include "waylandwindowsession.h"
#include "windowsession.h"
#include "wlrootssession.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QProcess>
#include <QSettings>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

#include "virtual-keyboard-unstable-v1-client-protocol.h"

#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>
#include <wayland-client.h>
#include <xkbcommon/xkbcommon.h>

namespace {
// A window as sway shows it.
struct View
{
    QString appId;
    int pid = 0;
    bool focused = false;
    int fullscreenMode = 0;
};

QByteArray swaymsg(const QStringList &arguments)
{
    QProcess process;
    process.start(QStringLiteral("swaymsg"), arguments);
    process.waitForFinished(10000);
    return process.readAllStandardOutput();
}

void collectViews(const QJsonObject &node, QList<View> &views)
{
    if (node.value(QStringLiteral("pid")).toInt() > 0) {
        View view;
        view.appId = node.value(QStringLiteral("app_id")).toString();
        view.pid = node.value(QStringLiteral("pid")).toInt();
        view.focused = node.value(QStringLiteral("focused")).toBool();
        view.fullscreenMode = node.value(QStringLiteral("fullscreen_mode")).toInt();
        views << view;
    }
    for (const char *children : { "nodes", "floating_nodes" }) {
        for (const QJsonValue &child : node.value(QLatin1String(children)).toArray())
            collectViews(child.toObject(), views);
    }
}

// Every application window sway has, from `swaymsg -t get_tree`.
QList<View> views()
{
    QList<View> result;
    collectViews(QJsonDocument::fromJson(swaymsg({ QStringLiteral("-t"), QStringLiteral("get_tree"),
                                             QStringLiteral("-r") }))
                     .object(),
        result);
    return result;
}

QStringList linesOf(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return QString::fromUtf8(file.readAll()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
}

// "key <keysym> <modifiers>": what both probes log alike.
QStringList keysOf(const QString &path)
{
    QStringList keys;
    for (const QString &line : linesOf(path)) {
        if (line.startsWith(QLatin1String("key ")))
            keys << line.section(QLatin1Char(' '), 0, 2);
    }
    return keys;
}

// The last "<what> <0|1>" line of a probe's log.
bool lastSaid(const QString &path, const QString &what)
{
    const QStringList said
        = linesOf(path).filter(QRegularExpression(QLatin1Char('^') + what + QLatin1Char(' ')));
    return !said.isEmpty() && said.last().endsWith(QLatin1Char('1'));
}

// The two native probes: their entry ids, app ids and logs.
struct ProbeKind
{
    QString entry;
    QString appId;
    QString log;
};
} // namespace

// Applications, the front application, window control, keys and scrolling on a Wayland
// compositor (a private headless sway or labwc through tests/rig/sway and tests/rig/labwc, or
// a private KWin through tests/rig/kwin), with native GTK 3 and Qt 5 applications. What the
// compositor did is read back from sway itself there, and from what the applications were
// told everywhere.
class TestWayland : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanupTestCase();
    void cleanup();
    void chosenFromTheCompositor();
    void globalsBoundAtTheVersionTheirListenersAnswer();
    void unsupportedListsWhatTheCompositorCannotDo();
    void compositorsThatIgnoreRequests();
    void runningAndFrontFollowedWithPushes_data();
    void runningAndFrontFollowedWithPushes();
    void activationSwitchesTheFront();
    void closeAndQuit_data();
    void closeAndQuit();
    void fullScreenAndMaximise();
    void minimiseAndRestore();
    void keySequences_data();
    void keySequences();
    void keysOnAFrenchLayout();
    void scrolling_data();
    void scrolling();

private:
    // The app id of the window in front, as the compositor has it.
    QString focusedAppId() const;
    bool isFullscreen(const ProbeKind &probe) const;
    // The processes of every application window there is.
    QList<int> windowProcesses() const;
    bool send(const QJsonObject &message);
    bool launch(const ProbeKind &probe);
    LinuxApp *app(const QString &id) const
    {
        return qobject_cast<LinuxApp *>(platform->appforId(id));
    }

    QTemporaryDir data;
    // The compositor, as the rig names it: sway, labwc or kwin.
    QString compositor;
    bool onSway = false;
    ProbeKind qtProbe, gtkProbe;
    Core *core = nullptr;
    LinuxPlatform *platform = nullptr;
    ProtocolClient *client = nullptr;
};

Q_DECLARE_METATYPE(ProbeKind)

QString TestWayland::focusedAppId() const
{
    if (onSway) {
        for (const View &view : views()) {
            if (view.focused)
                return view.appId;
        }
        return QString();
    }
    for (const ProbeKind &probe : { qtProbe, gtkProbe }) {
        if (lastSaid(probe.log, QStringLiteral("active")))
            return probe.appId;
    }
    return QString();
}

bool TestWayland::isFullscreen(const ProbeKind &probe) const
{
    if (onSway) {
        for (const View &view : views()) {
            if (view.appId == probe.appId)
                return view.fullscreenMode == 1;
        }
        return false;
    }
    return lastSaid(probe.log, QStringLiteral("fullscreen"));
}

QList<int> TestWayland::windowProcesses() const
{
    QList<int> pids;
    if (onSway) {
        for (const View &view : views())
            pids << view.pid;
        return pids;
    }
    // KWin names every window's process to the program.
    WindowSession *session = platform->session();
    if (session->capabilities() & WindowSession::ProcessIds) {
        for (WId window : session->windows()) {
            if (const int pid = session->window(window).pid; pid > 0)
                pids << pid;
        }
        return pids;
    }
    // labwc names none: the probes are the processes whose command line holds this test's
    // folder (their logs are there).
    const QByteArray folder = data.path().toUtf8();
    for (const QString &entry : QDir(QStringLiteral("/proc")).entryList(QDir::Dirs)) {
        bool number = false;
        const int pid = entry.toInt(&number);
        if (!number || pid == getpid())
            continue;
        QFile cmdline(QStringLiteral("/proc/%1/cmdline").arg(pid));
        if (cmdline.open(QIODevice::ReadOnly) && cmdline.readAll().contains(folder)) {
            QFile stat(QStringLiteral("/proc/%1/stat").arg(pid));
            // A probe that has ended but is not reaped yet is gone for this purpose.
            if (stat.open(QIODevice::ReadOnly) && !stat.readAll().contains(") Z "))
                pids << pid;
        }
    }
    return pids;
}

bool TestWayland::send(const QJsonObject &message) { return client->sendAndSync(message); }

bool TestWayland::launch(const ProbeKind &probe)
{
    QFile::remove(probe.log);
    if (!send(QJsonObject { { L::method, L::activateApp }, { L::id, probe.entry } }))
        return false;
    return QTest::qWaitFor(
               [&] { return !linesOf(probe.log).filter(QStringLiteral("ready")).isEmpty(); }, 15000)
        && QTest::qWaitFor([&] { return app(probe.entry)->running; }, 5000);
}

void TestWayland::initTestCase()
{
    QVERIFY2(!qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY"),
        "run through tests/rig/sway, tests/rig/labwc or tests/rig/kwin");
    onSway = !qEnvironmentVariableIsEmpty("SWAYSOCK");
    compositor = qEnvironmentVariable(
        "VELM_RIG_COMPOSITOR", onSway ? QStringLiteral("sway") : QStringLiteral("kwin"));
    TestEnvironment::setUp();
    QSettings().setValue(QStringLiteral("preventSleep"), false);
    qtProbe = { QStringLiteral("velm-probe"), QStringLiteral("probe_window"),
        data.filePath(QStringLiteral("qt.log")) };
    gtkProbe = { QStringLiteral("velm-gtk-probe"), QStringLiteral("velm-gtk-probe"),
        data.filePath(QStringLiteral("gtk.log")) };
    const QString applications = data.filePath(QStringLiteral("applications"));
    QVERIFY(QDir().mkpath(applications));
    auto writeEntry = [&](const QString &file, const QString &body) {
        QFile entry(applications + QLatin1Char('/') + file);
        QVERIFY(entry.open(QIODevice::WriteOnly));
        entry.write(body.toUtf8());
    };
    // Qt names its Wayland window by the program's file name: the entry says so through
    // StartupWMClass, as it would for an X11 class.
    writeEntry(QStringLiteral("velm-probe.desktop"),
        QStringLiteral("[Desktop Entry]\nType=Application\nName=Velm Probe\nExec=env "
                       "QT_QPA_PLATFORM=wayland %1 --log %2\nStartupWMClass=probe_window\n")
            .arg(QStringLiteral(VELM_PROBE_WINDOW), qtProbe.log));
    // The GTK one is found by its app id, which is the entry's id.
    writeEntry(QStringLiteral("velm-gtk-probe.desktop"),
        QStringLiteral("[Desktop Entry]\nType=Application\nName=Velm GTK Probe\nExec=env "
                       "GDK_BACKEND=wayland /usr/bin/python3 %1 --log %2 --app-id velm-gtk-probe\n")
            .arg(QStringLiteral(VELM_PROBE_GTK), gtkProbe.log));
    qputenv("XDG_DATA_HOME", data.path().toUtf8());

    platform = new LinuxPlatform;
    core = new Core(platform);
    core->start();
    QVERIFY(core->server);
    QTRY_VERIFY(core->server->handler(L::unsupported));
    Pairing::authorize(QStringLiteral("phone"), QStringLiteral("phone-token"));
    client = new ProtocolClient(QStringLiteral("phone"));
    QVERIFY(Pairing::connectAuthenticated(*client, listeningPort(core->server)));
    QTRY_VERIFY(!platform->getInstalledApps().isEmpty());
}

void TestWayland::cleanup()
{
    // Launched probes are no children of this test: end them through the windows' processes.
    for (int pid : windowProcesses())
        ::kill(pid, SIGKILL);
    QTRY_VERIFY(windowProcesses().isEmpty());
    QTRY_VERIFY(!app(qtProbe.entry)->running);
    QTRY_VERIFY(!app(gtkProbe.entry)->running);
    // A killed probe never says that it lost the activation: its log goes with it.
    QFile::remove(qtProbe.log);
    QFile::remove(gtkProbe.log);
}

void TestWayland::cleanupTestCase()
{
    delete client;
    delete core;
}

void TestWayland::chosenFromTheCompositor()
{
    QVERIFY(platform->session());
    QCOMPARE(platform->session()->kind(),
        compositor == QLatin1String("kwin") ? QStringLiteral("Plasma") : QStringLiteral("wlroots"));
    QVERIFY(platform->session()->hasLayout());
}

void TestWayland::globalsBoundAtTheVersionTheirListenersAnswer()
{
    auto *session = qobject_cast<WaylandWindowSession *>(platform->session());
    QVERIFY(session);
    const WaylandConnection *connection = session->connection();
    QList<WaylandListener> listeners = WaylandSeat::listeners();
    listeners << (session->kind() == QLatin1String("Plasma") ? PlasmaSession::listeners()
                                                             : WlrootsSession::listeners());
    int globals = 0;
    for (const WaylandListener &listener : qAsConst(listeners)) {
        const char *name = listener.interface->name;
        const uint32_t offered = connection->version(name);
        // Objects the globals make (a window, a keyboard) are no globals themselves.
        if (!offered)
            continue;
        ++globals;
        QCOMPARE(connection->boundVersion(name), qMin(offered, listener.version));
        // What differs between versions: KWin 5.27 offers window management 16, KWin 6.3 offers
        // 18 (and fake input 5), whose new events nothing here reads; they are bound lower.
        if (offered > listener.version)
            qInfo("%s: offered at %u, bound at %u", name, offered, listener.version);
    }
    // The seat and the window list at least; input too where the compositor has it.
    QVERIFY2(globals >= 2, qPrintable(QString::number(globals)));
}

void TestWayland::compositorsThatIgnoreRequests()
{
    // Hyprland (by its process name) takes minimise requests and does nothing; it maximises.
    const WlrootsSession::IgnoredRequests hyprland = WlrootsSession::ignoredBy("Hyprland");
    QVERIFY(hyprland.minimize);
    QVERIFY(!hyprland.maximize);
    const WlrootsSession::IgnoredRequests sway = WlrootsSession::ignoredBy("sway");
    QVERIFY(sway.minimize && sway.maximize);
    for (const QByteArray &other : { QByteArray("labwc"), QByteArray("wayfire"), QByteArray() }) {
        const WlrootsSession::IgnoredRequests entry = WlrootsSession::ignoredBy(other);
        QVERIFY(!entry.minimize && !entry.maximize);
    }
}

void TestWayland::unsupportedListsWhatTheCompositorCannotDo()
{
    const QStringList windowCodes { L::currentApp, L::closeApp, L::quitApp, L::toggleMinimizeApp,
        L::toggleMaximizeApp, L::toggleFullscreenApp, L::appScroll, L::keySequence };
    const QStringList menuCodes { L::appMenu, L::performMenu, L::focusValue, L::performFocus,
        L::focusedElement };
    client->send(QJsonObject { { L::method, L::unsupported } });
    QTRY_VERIFY(!client->framesWith(L::unsupported).isEmpty());
    QStringList windowListed, menuListed;
    for (const QJsonValue &code :
        client->framesWith(L::unsupported).last().object().value(L::value).toArray()) {
        if (windowCodes.contains(code.toString()))
            windowListed << code.toString();
        if (menuCodes.contains(code.toString()))
            menuListed << code.toString();
    }
    if (onSway) {
        // sway tiles: it takes minimise requests and ignores them. Maximise falls back on full
        // screen, which it honours. Menus and fields need the windows' processes, which the
        // compositor does not name.
        QCOMPARE(windowListed, QStringList { L::toggleMinimizeApp });
        QCOMPARE(menuListed, menuCodes);
    } else if (compositor == QLatin1String("labwc")) {
        // labwc stacks windows and does every window request; like sway it does not name the
        // windows' processes, so menus and fields are out of reach.
        QCOMPARE(windowListed, QStringList());
        QCOMPARE(menuListed, menuCodes);
    } else {
        // KWin does everything, and names the processes.
        QCOMPARE(windowListed, QStringList());
        QVERIFY(platform->session()->capabilities() & WindowSession::ProcessIds);
    }
}

void TestWayland::runningAndFrontFollowedWithPushes_data()
{
    QTest::addColumn<ProbeKind>("probe");
    QTest::newRow("Qt") << qtProbe;
    QTest::newRow("GTK") << gtkProbe;
}

void TestWayland::runningAndFrontFollowedWithPushes()
{
    QFETCH(ProbeKind, probe);
    LinuxApp *probeApp = app(probe.entry);
    QVERIFY(probeApp);
    QVERIFY(!probeApp->running);
    QSignalSpy launched(platform, &Platform::appLaunched);
    const int currentPushes = client->framesWith(L::currentApp).size();
    QVERIFY(launch(probe));
    QCOMPARE(launched.count(), 1);
    QCOMPARE(launched.first().first().value<App *>(), static_cast<App *>(probeApp));
    // The new window takes the front, and the client hears of both.
    QTRY_COMPARE(focusedAppId(), probe.appId);
    QTRY_COMPARE(platform->getCurrentApp(), static_cast<App *>(probeApp));
    QTRY_VERIFY(client->framesWith(L::currentApp).size() > currentPushes);
    // The end of an earlier window may be announced late; the last word is this one.
    QTRY_COMPARE(
        client->framesWith(L::currentApp).last().object().value(L::id).toString(), probe.entry);

    // It ends: no longer running, once.
    QSignalSpy terminated(platform, &Platform::appTerminated);
    const QList<int> pids = windowProcesses();
    QCOMPARE(pids.size(), 1);
    ::kill(pids.first(), SIGTERM);
    QTRY_VERIFY(!probeApp->running);
    QCOMPARE(terminated.count(), 1);
    QVERIFY(!platform->getRunningApps().contains(probeApp));
}

void TestWayland::activationSwitchesTheFront()
{
    QVERIFY(launch(qtProbe));
    QVERIFY(launch(gtkProbe));
    QTRY_COMPARE(focusedAppId(), gtkProbe.appId);
    QTRY_COMPARE(platform->getCurrentApp(), static_cast<App *>(app(gtkProbe.entry)));
    // "aa" of a running application brings its window forward, and the push follows.
    const int currentPushes = client->framesWith(L::currentApp).size();
    QVERIFY(send(QJsonObject { { L::method, L::activateApp }, { L::id, qtProbe.entry } }));
    QTRY_COMPARE(focusedAppId(), qtProbe.appId);
    QTRY_COMPARE(platform->getCurrentApp(), static_cast<App *>(app(qtProbe.entry)));
    QTRY_VERIFY(client->framesWith(L::currentApp).size() > currentPushes);
    QTRY_COMPARE(
        client->framesWith(L::currentApp).last().object().value(L::id).toString(), qtProbe.entry);
    // Focus changed by the compositor itself is followed too.
    if (onSway)
        swaymsg({ QStringLiteral("[app_id=\"%1\"] focus").arg(gtkProbe.appId) });
    else
        app(gtkProbe.entry)->activate();
    QTRY_COMPARE(focusedAppId(), gtkProbe.appId);
    QTRY_COMPARE(platform->getCurrentApp(), static_cast<App *>(app(gtkProbe.entry)));
    QTRY_COMPARE(
        client->framesWith(L::currentApp).last().object().value(L::id).toString(), gtkProbe.entry);
}

void TestWayland::closeAndQuit_data()
{
    QTest::addColumn<ProbeKind>("probe");
    QTest::addColumn<QString>("method");
    QTest::newRow("Qt close") << qtProbe << L::closeApp;
    QTest::newRow("Qt quit") << qtProbe << L::quitApp;
    QTest::newRow("GTK close") << gtkProbe << L::closeApp;
    QTest::newRow("GTK quit") << gtkProbe << L::quitApp;
}

void TestWayland::closeAndQuit()
{
    QFETCH(ProbeKind, probe);
    QFETCH(QString, method);
    QVERIFY(launch(probe));
    QVERIFY(send(QJsonObject { { L::method, method }, { L::id, probe.entry } }));
    // The application is asked, as the close button would: it logs it and goes.
    QTRY_VERIFY(linesOf(probe.log).contains(QStringLiteral("close")));
    QTRY_VERIFY(!app(probe.entry)->running);
    QTRY_VERIFY(windowProcesses().isEmpty());
}

void TestWayland::fullScreenAndMaximise()
{
    QVERIFY(launch(qtProbe));
    QTRY_COMPARE(focusedAppId(), qtProbe.appId);
    LinuxApp *probeApp = app(qtProbe.entry);
    QVERIFY(probeApp->supportsFullscreen());
    auto toggle = [&](const QString &method) {
        return send(QJsonObject { { L::method, method }, { L::id, qtProbe.entry } });
    };
    QVERIFY(toggle(L::toggleFullscreenApp));
    QTRY_VERIFY(isFullscreen(qtProbe));
    QTRY_VERIFY(platform->session()->window(probeApp->windows.first()).fullscreen);
    QVERIFY(toggle(L::toggleFullscreenApp));
    QTRY_VERIFY(!isFullscreen(qtProbe));
    QTRY_VERIFY(!platform->session()->window(probeApp->windows.first()).fullscreen);
    // A window that can be full screen is put in full screen by "xa" too.
    QVERIFY(toggle(L::toggleMaximizeApp));
    QTRY_VERIFY(isFullscreen(qtProbe));
    QTRY_VERIFY(platform->session()->window(probeApp->windows.first()).fullscreen);
    QVERIFY(toggle(L::toggleMaximizeApp));
    QTRY_VERIFY(!isFullscreen(qtProbe));
}

void TestWayland::minimiseAndRestore()
{
    QVERIFY(launch(gtkProbe));
    QTRY_COMPARE(focusedAppId(), gtkProbe.appId);
    if (!(platform->session()->capabilities() & WindowSession::Minimize)) {
        // Where the compositor ignores it, the code is listed, not pretended.
        QVERIFY(platform->getUnsupported().contains(L::toggleMinimizeApp));
        return;
    }
    LinuxApp *probeApp = app(gtkProbe.entry);
    QVERIFY(send(QJsonObject { { L::method, L::toggleMinimizeApp }, { L::id, gtkProbe.entry } }));
    QTRY_VERIFY(platform->session()->window(probeApp->windows.first()).minimized);
    QTRY_COMPARE(focusedAppId(), QString());
    // Everything is minimised: "ma" brings the window back, in front.
    QVERIFY(send(QJsonObject { { L::method, L::toggleMinimizeApp }, { L::id, gtkProbe.entry } }));
    QTRY_VERIFY(!platform->session()->window(probeApp->windows.first()).minimized);
    QTRY_COMPARE(focusedAppId(), gtkProbe.appId);
}

void TestWayland::keySequences_data()
{
    QTest::addColumn<ProbeKind>("probe");
    QTest::newRow("Qt") << qtProbe;
    QTest::newRow("GTK") << gtkProbe;
}

void TestWayland::keySequences()
{
    QFETCH(ProbeKind, probe);
    // The other probe is in front: the keys bring this one forward first.
    QVERIFY(launch(probe));
    const ProbeKind &other = probe.entry == qtProbe.entry ? gtkProbe : qtProbe;
    QVERIFY(launch(other));
    QTRY_COMPARE(focusedAppId(), other.appId);

    auto type = [&](const QJsonValue &keys) {
        return send(QJsonObject {
            { L::method, L::keySequence }, { L::id, probe.entry }, { L::keys, keys } });
    };
    const QString ctrl = QString::number(int(Qt::ControlModifier), 16);
    const QString ctrlShift = QString::number(int(Qt::ControlModifier | Qt::ShiftModifier), 16);
    const QString alt = QString::number(int(Qt::AltModifier), 16);
    QVERIFY(type(QStringLiteral("Ctrl+Shift+T")));
    QTRY_COMPARE(keysOf(probe.log).size(), 1);
    QCOMPARE(focusedAppId(), probe.appId);
    QVERIFY(keysOf(other.log).isEmpty());
    QVERIFY(type(QStringLiteral("a,,b")));
    QVERIFY(type(QStringLiteral("Ctrl+,")));
    QVERIFY(type(QStringLiteral("Alt+x")));
    QVERIFY(type(QJsonArray { QStringLiteral("return"), QStringLiteral("f5,1") }));
    QTRY_COMPARE(keysOf(probe.log).size(), 8);
    QCOMPARE(keysOf(probe.log),
        (QStringList { QStringLiteral("key 54 %1").arg(ctrlShift), QStringLiteral("key 61 0"),
            QStringLiteral("key 62 0"), QStringLiteral("key 2c %1").arg(ctrl),
            QStringLiteral("key 78 %1").arg(alt), QStringLiteral("key ff0d 0"),
            QStringLiteral("key ffc2 0"), QStringLiteral("key 31 0") }));
}

namespace {
// A keyboard of the user's with a layout of its own, as a real one would be: a virtual keyboard
// of this test's. When its modifiers change, the seat takes it as its keyboard and tells
// every client its keymap. sway 1.7 applies its input configuration to virtual keyboards too,
// so `swaymsg input` changes the layout there; sway 1.8 and later and labwc leave a virtual
// keyboard's keymap as its client made it, and there a user's layout reaches the program this
// way, as from a keyboard the user types on.
class UserKeyboard
{
public:
    static bool setLayout(const QString &layout)
    {
        UserKeyboard keyboard;
        return keyboard.use(layout);
    }

private:
    UserKeyboard()
    {
        m_display = wl_display_connect(nullptr);
        if (!m_display)
            return;
        m_registry = wl_display_get_registry(m_display);
        static const wl_registry_listener listener = [] {
            wl_registry_listener l {};
            l.global = [](void *data, wl_registry *registry, uint32_t name, const char *interface,
                           uint32_t) {
                auto *self = static_cast<UserKeyboard *>(data);
                if (qstrcmp(interface, wl_seat_interface.name) == 0 && !self->m_seat)
                    self->m_seat = static_cast<wl_seat *>(
                        wl_registry_bind(registry, name, &wl_seat_interface, 1));
                if (qstrcmp(interface, zwp_virtual_keyboard_manager_v1_interface.name) == 0)
                    self->m_manager
                        = static_cast<zwp_virtual_keyboard_manager_v1 *>(wl_registry_bind(
                            registry, name, &zwp_virtual_keyboard_manager_v1_interface, 1));
            };
            l.global_remove = [](void *, wl_registry *, uint32_t) {};
            return l;
        }();
        wl_registry_add_listener(m_registry, &listener, this);
        wl_display_roundtrip(m_display);
    }
    ~UserKeyboard()
    {
        if (m_keyboard)
            zwp_virtual_keyboard_v1_destroy(m_keyboard);
        if (m_manager)
            zwp_virtual_keyboard_manager_v1_destroy(m_manager);
        if (m_seat)
            wl_seat_destroy(m_seat);
        if (m_registry)
            wl_registry_destroy(m_registry);
        if (m_display) {
            wl_display_roundtrip(m_display);
            wl_display_disconnect(m_display);
        }
    }

    bool use(const QString &layout)
    {
        if (!m_seat || !m_manager)
            return false;
        m_keyboard = zwp_virtual_keyboard_manager_v1_create_virtual_keyboard(m_manager, m_seat);
        xkb_context *context = xkb_context_new(XKB_CONTEXT_NO_FLAGS);
        const QByteArray name = layout.toUtf8();
        const xkb_rule_names names { nullptr, nullptr, name.constData(), nullptr, nullptr };
        xkb_keymap *keymap
            = xkb_keymap_new_from_names(context, &names, XKB_KEYMAP_COMPILE_NO_FLAGS);
        char *text = keymap ? xkb_keymap_get_as_string(keymap, XKB_KEYMAP_FORMAT_TEXT_V1) : nullptr;
        bool done = false;
        if (text) {
            const size_t size = strlen(text) + 1;
            const int fd = memfd_create("velm-test-keymap", MFD_CLOEXEC);
            if (fd >= 0 && write(fd, text, size) == ssize_t(size)) {
                zwp_virtual_keyboard_v1_keymap(
                    m_keyboard, WL_KEYBOARD_KEYMAP_FORMAT_XKB_V1, fd, uint32_t(size));
                // A change of modifiers (Num Lock on and off: no key reaches the window in
                // front); a report of the same state would be dropped before the seat sees it.
                const xkb_mod_index_t numLock = xkb_keymap_mod_get_index(keymap, XKB_MOD_NAME_NUM);
                const uint32_t locked = numLock == XKB_MOD_INVALID ? 0 : 1u << numLock;
                zwp_virtual_keyboard_v1_modifiers(m_keyboard, 0, 0, locked, 0);
                zwp_virtual_keyboard_v1_modifiers(m_keyboard, 0, 0, 0, 0);
                done = wl_display_roundtrip(m_display) >= 0;
            }
            if (fd >= 0)
                ::close(fd);
            free(text);
        }
        xkb_keymap_unref(keymap);
        xkb_context_unref(context);
        return done;
    }

    wl_display *m_display = nullptr;
    wl_registry *m_registry = nullptr;
    wl_seat *m_seat = nullptr;
    zwp_virtual_keyboard_manager_v1 *m_manager = nullptr;
    zwp_virtual_keyboard_v1 *m_keyboard = nullptr;
};

// sway from 1.8 on no longer applies its input configuration to virtual keyboards.
bool swayConfiguresVirtualKeyboards()
{
    const QJsonObject version
        = QJsonDocument::fromJson(swaymsg({ QStringLiteral("-t"), QStringLiteral("get_version") }))
              .object();
    return version.value(QLatin1String("major")).toInt() == 1
        && version.value(QLatin1String("minor")).toInt() < 8;
}

// Sets the keyboard layout of the compositor's keyboards.
void setLayout(const QString &compositor, const QString &layout)
{
    if (compositor == QLatin1String("sway") && swayConfiguresVirtualKeyboards()) {
        swaymsg({ QStringLiteral("input"), QStringLiteral("type:keyboard"),
            QStringLiteral("xkb_layout"), layout });
        return;
    }
    if (compositor != QLatin1String("kwin")) {
        QVERIFY(UserKeyboard::setLayout(layout));
        return;
    }
    // KWin reads the layout from its kxkbrc (in the rig's configuration folder, not this
    // test's own) and is told to reload it.
    QSettings kxkbrc(qEnvironmentVariable("VELM_RIG_DIR") + QStringLiteral("/config/kxkbrc"),
        QSettings::IniFormat);
    kxkbrc.setValue(QStringLiteral("Layout/LayoutList"), layout);
    kxkbrc.setValue(QStringLiteral("Layout/Use"), true);
    kxkbrc.sync();
    QProcess::execute(QStringLiteral("dbus-send"),
        { QStringLiteral("--session"), QStringLiteral("--type=signal"), QStringLiteral("/Layouts"),
            QStringLiteral("org.kde.keyboard.reloadConfig") });
}
} // namespace

void TestWayland::keysOnAFrenchLayout()
{
    QVERIFY(launch(gtkProbe));
    QTRY_COMPARE(focusedAppId(), gtkProbe.appId);
    const int generation = platform->session()->layoutGeneration();
    struct BackToUs
    {
        QString compositor;
        ~BackToUs() { setLayout(compositor, QStringLiteral("us")); }
    } backToUs { compositor };
    setLayout(compositor, QStringLiteral("fr"));
    // The compositor tells about the new layout; characters come out as typed on it.
    QTRY_VERIFY(platform->session()->layoutGeneration() > generation);
    QVERIFY(send(QJsonObject { { L::method, L::keySequence }, { L::id, gtkProbe.entry },
        { L::keys, QStringLiteral("a,q,z,w,Ctrl+a") } }));
    const QString ctrl = QString::number(int(Qt::ControlModifier), 16);
    QTRY_COMPARE(keysOf(gtkProbe.log).size(), 5);
    QCOMPARE(keysOf(gtkProbe.log),
        (QStringList { QStringLiteral("key 61 0"), QStringLiteral("key 71 0"),
            QStringLiteral("key 7a 0"), QStringLiteral("key 77 0"),
            QStringLiteral("key 61 %1").arg(ctrl) }));
}

void TestWayland::scrolling_data()
{
    QTest::addColumn<ProbeKind>("probe");
    QTest::newRow("Qt") << qtProbe;
    QTest::newRow("GTK") << gtkProbe;
}

void TestWayland::scrolling()
{
    QFETCH(ProbeKind, probe);
    QVERIFY(launch(probe));
    QTRY_COMPARE(focusedAppId(), probe.appId);
    // The wheel turns where the pointer is: over the window once it fills the screen.
    QVERIFY(send(QJsonObject { { L::method, L::toggleFullscreenApp }, { L::id, probe.entry } }));
    QTRY_VERIFY(isFullscreen(probe));
    QVERIFY(send(QJsonObject {
        { L::method, L::appScroll }, { L::id, probe.entry }, { L::x, 0 }, { L::y, 9 } }));
    QTRY_COMPARE(linesOf(probe.log).filter(QStringLiteral("wheel")),
        QStringList { QStringLiteral("wheel down") });
    QVERIFY(send(QJsonObject {
        { L::method, L::appScroll }, { L::id, probe.entry }, { L::x, 0 }, { L::y, 10 } }));
    QTRY_COMPARE(linesOf(probe.log).filter(QStringLiteral("wheel")),
        (QStringList { QStringLiteral("wheel down"), QStringLiteral("wheel up") }));
}

QTEST_MAIN(TestWayland)
#include "tst_wayland.moc"

#include "core.h"
#include "l.h"
#include "linuxapp.h"
#include "linuxplatform.h"
#include "protocolclient.h"
#include "remotedesktopportal.h"
#include "server.h"
#include "serverfixture.h"
#include "testenvironment.h"
#include "windowsession.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QProcess>
#include <QSettings>
#include <QTemporaryDir>
#include <QtTest>

#include <xkbcommon/xkbcommon-keysyms.h>

namespace {
const QString gtkApp = QStringLiteral(VELM_A11Y_DIR "/gtk_app.py");
const QString qtApp = QStringLiteral(VELM_A11Y_QT_APP);

QString run(const QString &program, const QStringList &arguments)
{
    QProcess process;
    process.start(program, arguments);
    process.waitForFinished(10000);
    return QString::fromUtf8(process.readAllStandardOutput()).trimmed();
}
} // namespace

// The mechanism for desktops whose compositor tells nothing about other programs' windows
// (GNOME): windows and the front one from the accessibility bus, keys, wheel steps and closing
// through the desktop portal. Run on the rig's X desktop with the mechanism asked for by
// VELM_WINDOWS, against real GTK and Qt applications and a recording stand-in of the portal.
class TestPortalSession : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanupTestCase();
    void unsupportedListsWhatCannotBeDone();
    void runningAndFrontFromTheAccessibilityBus();
    void keysScrollingAndClosingThroughThePortal();

private:
    QProcess *startApp(const QStringList &command);
    // The application a process's window was matched to, once it runs.
    LinuxApp *appOf(QProcess *process) const;
    QList<QPair<int, int>> keysyms() const;
    bool send(const QJsonObject &message);

    QTemporaryDir data;
    QProcess mock;
    Core *core = nullptr;
    LinuxPlatform *platform = nullptr;
    ProtocolClient *client = nullptr;
    QList<QProcess *> apps;
};

QProcess *TestPortalSession::startApp(const QStringList &command)
{
    // The test applications take their log file as their first argument.
    auto *process = new QProcess(this);
    process->setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process->start(command.first(),
        command.mid(1)
            + QStringList { data.filePath(QStringLiteral("app-%1.log").arg(apps.size())) });
    apps << process;
    return process;
}

LinuxApp *TestPortalSession::appOf(QProcess *process) const
{
    for (App *app : platform->getRunningApps()) {
        auto *linuxApp = static_cast<LinuxApp *>(app);
        if (linuxApp->processIds().contains(int(process->processId())))
            return linuxApp;
    }
    return nullptr;
}

QList<QPair<int, int>> TestPortalSession::keysyms() const
{
    QList<QPair<int, int>> result;
    QFile file(data.filePath(QStringLiteral("portal.log")));
    if (!file.open(QIODevice::ReadOnly))
        return result;
    for (const QByteArray &line : file.readAll().split('\n')) {
        const QJsonObject call = QJsonDocument::fromJson(line).object();
        if (call.value(QStringLiteral("method")) == QLatin1String("NotifyKeyboardKeysym")) {
            const QJsonArray args = call.value(QStringLiteral("args")).toArray();
            result << qMakePair(args.at(2).toInt(), args.at(3).toInt());
        } else if (call.value(QStringLiteral("method"))
            == QLatin1String("NotifyPointerAxisDiscrete")) {
            // Wheel steps as pseudo keys: -1 for the axis, the step as the state.
            result << qMakePair(-1, call.value(QStringLiteral("args")).toArray().at(3).toInt());
        }
    }
    return result;
}

bool TestPortalSession::send(const QJsonObject &message) { return client->sendAndSync(message); }

void TestPortalSession::initTestCase()
{
    TestEnvironment::setUp();
    QSettings().setValue(QStringLiteral("preventSleep"), false);
    mock.setProcessChannelMode(QProcess::ForwardedChannels);
    mock.start(QStringLiteral("/usr/bin/python3"),
        { QStringLiteral(VELM_PORTAL_MOCK), data.filePath(QStringLiteral("portal.log")) });
    QTRY_VERIFY_WITH_TIMEOUT(QDBusConnection::sessionBus().interface()->isServiceRegistered(
                                 QStringLiteral("org.freedesktop.portal.Desktop")),
        10000);
    qputenv("VELM_WINDOWS", "portal");
    platform = new LinuxPlatform;
    core = new Core(platform);
    core->start();
    QVERIFY(core->server);
    QTRY_VERIFY(core->server->handler(L::unsupported));
    Pairing::authorize(QStringLiteral("phone"), QStringLiteral("phone-token"));
    client = new ProtocolClient(QStringLiteral("phone"));
    QVERIFY(Pairing::connectAuthenticated(*client, listeningPort(core->server)));
    QVERIFY(platform->session());
    QCOMPARE(platform->session()->kind(), QStringLiteral("portal"));
}

void TestPortalSession::cleanupTestCase()
{
    for (QProcess *app : qAsConst(apps)) {
        app->kill();
        app->waitForFinished();
    }
    delete client;
    delete core;
    mock.kill();
    mock.waitForFinished();
    qunsetenv("VELM_WINDOWS");
}

void TestPortalSession::unsupportedListsWhatCannotBeDone()
{
    // Only the compositor could minimise, maximise or fill the screen with another program's
    // window; everything else is served.
    const QStringList windowCodes { L::currentApp, L::closeApp, L::quitApp, L::toggleMinimizeApp,
        L::toggleMaximizeApp, L::toggleFullscreenApp, L::appScroll, L::keySequence, L::appMenu,
        L::performMenu, L::focusValue, L::performFocus, L::focusedElement };
    QTRY_COMPARE(platform->session()->capabilities() & WindowSession::Keys, WindowSession::Keys);
    client->send(QJsonObject { { L::method, L::unsupported } });
    QTRY_VERIFY(!client->framesWith(L::unsupported).isEmpty());
    QStringList listed;
    for (const QJsonValue &code :
        client->framesWith(L::unsupported).last().object().value(L::value).toArray()) {
        if (windowCodes.contains(code.toString()))
            listed << code.toString();
    }
    QCOMPARE(listed,
        (QStringList { L::toggleMinimizeApp, L::toggleMaximizeApp, L::toggleFullscreenApp }));
}

void TestPortalSession::runningAndFrontFromTheAccessibilityBus()
{
    QProcess *gtk = startApp({ QStringLiteral("/usr/bin/python3"), gtkApp });
    QTRY_VERIFY_WITH_TIMEOUT(appOf(gtk), 15000);
    LinuxApp *gtkLinuxApp = appOf(gtk);
    QVERIFY(gtkLinuxApp->running);
    QTRY_COMPARE_WITH_TIMEOUT(platform->getCurrentApp(), static_cast<App *>(gtkLinuxApp), 10000);
    QTRY_COMPARE(
        client->framesWith(L::currentApp).last().object().value(L::id).toString(), gtkLinuxApp->id);

    QProcess *qt = startApp({ qtApp });
    QTRY_VERIFY_WITH_TIMEOUT(appOf(qt), 15000);
    LinuxApp *qtLinuxApp = appOf(qt);
    QVERIFY(qtLinuxApp != gtkLinuxApp);
    QTRY_COMPARE_WITH_TIMEOUT(platform->getCurrentApp(), static_cast<App *>(qtLinuxApp), 10000);
    QTRY_COMPARE(
        client->framesWith(L::currentApp).last().object().value(L::id).toString(), qtLinuxApp->id);

    // The window manager brings the GTK window back: its toolkit says so, and so do we.
    const QString window = run(QStringLiteral("xdotool"),
        { QStringLiteral("search"), QStringLiteral("--pid"), QString::number(gtk->processId()) })
                               .section(QLatin1Char('\n'), -1);
    run(QStringLiteral("xdotool"), { QStringLiteral("windowactivate"), window });
    QTRY_COMPARE_WITH_TIMEOUT(platform->getCurrentApp(), static_cast<App *>(gtkLinuxApp), 10000);
    QTRY_COMPARE(
        client->framesWith(L::currentApp).last().object().value(L::id).toString(), gtkLinuxApp->id);

    // Its window closes: the application stops running.
    qt->kill();
    QTRY_VERIFY_WITH_TIMEOUT(!qtLinuxApp->running, 10000);
}

void TestPortalSession::keysScrollingAndClosingThroughThePortal()
{
    LinuxApp *front = qobject_cast<LinuxApp *>(platform->getCurrentApp());
    QVERIFY(front);
    const QString id = front->id;
    QVERIFY(send(QJsonObject { { L::method, L::keySequence }, { L::id, id },
        { L::keys, QStringLiteral("Ctrl+Shift+t,a") } }));
    using Key = QPair<int, int>;
    QTRY_COMPARE(keysyms().size(), 8);
    QCOMPARE(keysyms(),
        (QList<Key> { { XKB_KEY_Control_L, 1 }, { XKB_KEY_Shift_L, 1 }, { XKB_KEY_t, 1 },
            { XKB_KEY_t, 0 }, { XKB_KEY_Shift_L, 0 }, { XKB_KEY_Control_L, 0 }, { XKB_KEY_a, 1 },
            { XKB_KEY_a, 0 } }));
    QVERIFY(
        send(QJsonObject { { L::method, L::appScroll }, { L::id, id }, { L::x, 0 }, { L::y, 9 } }));
    QVERIFY(send(
        QJsonObject { { L::method, L::appScroll }, { L::id, id }, { L::x, 0 }, { L::y, 10 } }));
    QTRY_COMPARE(keysyms().size(), 10);
    QCOMPARE(keysyms().mid(8), (QList<Key> { { -1, 1 }, { -1, -1 } }));
    // "ha" closes the window in front as the user would, with the desktop's shortcut.
    QVERIFY(send(QJsonObject { { L::method, L::closeApp }, { L::id, id } }));
    QTRY_COMPARE(keysyms().size(), 14);
    QCOMPARE(keysyms().mid(10),
        (QList<Key> {
            { XKB_KEY_Alt_L, 1 }, { XKB_KEY_F4, 1 }, { XKB_KEY_F4, 0 }, { XKB_KEY_Alt_L, 0 } }));
    // One consent for all of it, and the token kept.
    QVERIFY(!QSettings().value(RemoteDesktopPortal::tokenKey).toString().isEmpty());
}

QTEST_MAIN(TestPortalSession)
#include "tst_portalsession.moc"

#include "corefixture.h"
#include "dbusmock.h"
#include "idle.h"
#include "l.h"
#include "logcapture.h"
#include "testenvironment.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVariant>
#include <QSettings>
#include <QtTest>

namespace {
// What the session's ScreenSaver mock was asked, oldest first, without the reads.
QList<DBusMock::Call> screenSaverCalls()
{
    QList<DBusMock::Call> calls;
    for (const DBusMock::Call &call : DBusMock::calls(QStringLiteral("org.freedesktop.ScreenSaver"),
             QStringLiteral("/org/freedesktop/ScreenSaver"))) {
        if (call.method != QLatin1String("GetActive") && call.method != QLatin1String("LastCookie"))
            calls << call;
    }
    return calls;
}

void clearScreenSaverCalls()
{
    DBusMock::clearCalls(QStringLiteral("org.freedesktop.ScreenSaver"),
        QStringLiteral("/org/freedesktop/ScreenSaver"));
}

uint lastCookie()
{
    const QDBusMessage reply = QDBusConnection::sessionBus().call(
        QDBusMessage::createMethodCall(QStringLiteral("org.freedesktop.ScreenSaver"),
            QStringLiteral("/org/freedesktop/ScreenSaver"),
            QStringLiteral("org.freedesktop.ScreenSaver"), QStringLiteral("LastCookie")));
    return reply.arguments().value(0).toUInt();
}

QStringList methods(const QList<DBusMock::Call> &calls)
{
    QStringList names;
    for (const DBusMock::Call &call : calls)
        names << call.method;
    return names;
}
} // namespace

// The coordinator: first run, client counting, sleep prevention against the session's
// ScreenSaver service, system commands.
namespace {
// The coordinator with the build's sleep prevention, as the program makes it.
void useIdle(CoreFixture &f)
{
    f.core->setDisplaySleep({ &Idle::preventDisplaySleep, &Idle::allowDisplaySleep });
}
} // namespace

class TestCore : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void init() { clearScreenSaverCalls(); }

    void firstRunRegistersLoginItem();
    void laterRunKeepsChoice();
    void preventSleepOffStillActivates();
    void clientCountsDriveSleepAndActivity();
    void clientMemoryReleasedAfterTheLastLeaves();
    void switchingPreventSleepOffReleasesAtOnce();
    void sleepRequestReachesPlatformSilently();
    void applicationOrderOnlyWhileConnected();
};

void TestCore::initTestCase()
{
    TestEnvironment::setUp();
    QVERIFY2(QDBusConnection::sessionBus().isConnected(), "run inside the rig (tests/rig/run)");
}

void TestCore::firstRunRegistersLoginItem()
{
    CoreFixture f;
    useIdle(f);
    QVERIFY(!QSettings().contains(QStringLiteral("autoStart")));
    QVERIFY(f.start());
    QCOMPARE(QSettings().value(QStringLiteral("autoStart")).toBool(), true);
    QVERIFY(f.platform->calls.contains(QStringLiteral("setAutostart(true)")));
    QVERIFY(f.core->getAutostart());
}

void TestCore::laterRunKeepsChoice()
{
    CoreFixture f;
    useIdle(f);
    QSettings().setValue(QStringLiteral("autoStart"), false);
    QVERIFY(f.start());
    QVERIFY(!f.platform->calls.contains(QStringLiteral("setAutostart(true)")));
    QVERIFY(!f.core->getAutostart());
    f.core->setAutostart(true);
    QVERIFY(f.platform->calls.contains(QStringLiteral("setAutostart(true)")));
    QCOMPARE(QSettings().value(QStringLiteral("autoStart")).toBool(), true);
}

void TestCore::preventSleepOffStillActivates()
{
    CoreFixture f;
    useIdle(f);
    QVERIFY(!f.core->getPreventSleep());
    QVERIFY(f.start());
    QVERIFY(f.connectClient(QStringLiteral("phone")));
    QTRY_VERIFY(f.platform->calls.contains(QStringLiteral("setActive(true)")));
    f.clients.first()->close();
    QTRY_VERIFY(f.platform->calls.contains(QStringLiteral("setActive(false)")));
    QVERIFY(screenSaverCalls().isEmpty());
}

// The encoded icons stay while clients come and go, and are let go a while after the last one
// left; a client returning within that while finds them kept.
void TestCore::clientMemoryReleasedAfterTheLastLeaves()
{
    CoreFixture f;
    QCOMPARE(f.core->releaseTimer.interval(), Core::releaseDelay);
    QVERIFY(Core::releaseDelay >= 10000);
    // Without a GUI application the icon draws nothing, which is kept all the same.
    FakeApp *app = f.platform->addApp(QStringLiteral("a"), QStringLiteral("A"));
    QVERIFY(f.start());
    ProtocolClient *one = f.connectClient(QStringLiteral("one"));
    QVERIFY(one);
    auto askIcon = [&](ProtocolClient *client, int size) {
        return f.request(client,
            QJsonObject {
                { L::method, L::appIcon }, { L::id, QStringLiteral("a") }, { L::size, size } },
            L::appIcon);
    };
    QVERIFY(askIcon(one, 32));
    QVERIFY(askIcon(one, 48));
    QCOMPARE(app->keptIconPngs(), 2);
    QVERIFY(!f.core->releaseTimer.isActive());

    // The last client leaves and another comes before the while is over: all is kept.
    one->close();
    QTRY_VERIFY(f.core->releaseTimer.isActive());
    ProtocolClient *two = f.connectClient(QStringLiteral("two"));
    QVERIFY(two);
    // Stopped, it cannot fire any more.
    QTRY_VERIFY(!f.core->releaseTimer.isActive());
    QCOMPARE(app->keptIconPngs(), 2);

    // It leaves too, and the while (shortened here) passes.
    f.core->releaseTimer.setInterval(100);
    two->close();
    QTRY_COMPARE(app->keptIconPngs(), 0);
    // Asked again, the icon is made anew.
    ProtocolClient *three = f.connectClient(QStringLiteral("three"));
    QVERIFY(three);
    const auto again = askIcon(three, 32);
    QVERIFY(again);
    QCOMPARE(again->object().value(L::size).toInt(), 32);
    QCOMPARE(app->keptIconPngs(), 1);
}

void TestCore::clientCountsDriveSleepAndActivity()
{
    CoreFixture f(true);
    useIdle(f);
    QVERIFY(f.core->getPreventSleep());
    QVERIFY(f.start());
    ProtocolClient *one = f.connectClient(QStringLiteral("one"));
    QVERIFY(one);
    QTRY_COMPARE(methods(screenSaverCalls()), QStringList { QStringLiteral("Inhibit") });
    const uint first = lastCookie();
    const DBusMock::Call inhibit = screenSaverCalls().first();
    QCOMPARE(inhibit.arguments,
        (QVariantList { QStringLiteral("Velm Server"), QStringLiteral("Velm client connected") }));
    QCOMPARE(f.platform->calls.count(QStringLiteral("setActive(true)")), 1);

    ProtocolClient *two = f.connectClient(QStringLiteral("two"));
    QVERIFY(two);
    ProtocolClient *three = f.connectClient(QStringLiteral("three"));
    QVERIFY(three);
    QVERIFY(two && three);
    // Counts above one change nothing.
    QCOMPARE(f.platform->calls.count(QStringLiteral("setActive(true)")), 1);
    three->close();
    QTRY_COMPARE(f.core->server->getClients().size(), 2);
    QCOMPARE(f.platform->calls.count(QStringLiteral("setActive(true)")), 1);
    QCOMPARE(screenSaverCalls().size(), 1);
    // Down to one: the assertion is requested again and the platform activated again. The
    // new assertion replaces the first, which is handed back rather than kept for good.
    two->close();
    QTRY_COMPARE(f.platform->calls.count(QStringLiteral("setActive(true)")), 2);
    QTRY_COMPARE(methods(screenSaverCalls()),
        (QStringList {
            QStringLiteral("Inhibit"), QStringLiteral("Inhibit"), QStringLiteral("UnInhibit") }));
    QCOMPARE(screenSaverCalls().last().arguments.value(0).toUInt(), first);
    const uint cookie = lastCookie();
    QVERIFY(cookie > first);
    one->close();
    QTRY_VERIFY(f.platform->calls.contains(QStringLiteral("setActive(false)")));
    QTRY_COMPARE(methods(screenSaverCalls()),
        (QStringList { QStringLiteral("Inhibit"), QStringLiteral("Inhibit"),
            QStringLiteral("UnInhibit"), QStringLiteral("UnInhibit") }));
    // The cookie of the latest Inhibit is handed back.
    QCOMPARE(screenSaverCalls().last().arguments.value(0).toUInt(), cookie);
}

void TestCore::switchingPreventSleepOffReleasesAtOnce()
{
    CoreFixture f(true);
    useIdle(f);
    QVERIFY(f.start());
    QVERIFY(f.connectClient(QStringLiteral("phone")));
    QTRY_COMPARE(methods(screenSaverCalls()), QStringList { QStringLiteral("Inhibit") });
    f.core->setPreventSleep(false);
    QTRY_COMPARE(methods(screenSaverCalls()),
        (QStringList { QStringLiteral("Inhibit"), QStringLiteral("UnInhibit") }));
    QCOMPARE(QSettings().value(QStringLiteral("preventSleep")).toBool(), false);
    // Switching on asserts nothing by itself.
    f.core->setPreventSleep(true);
    QCOMPARE(screenSaverCalls().size(), 2);
}

void TestCore::sleepRequestReachesPlatformSilently()
{
    CoreFixture f;
    useIdle(f);
    QVERIFY(f.start());
    ProtocolClient *client = f.connectClient(QStringLiteral("phone"));
    QVERIFY(client);
    const int frames = client->frames.size();
    client->send(QJsonObject { { L::method, L::sleep } });
    QTRY_VERIFY(f.platform->calls.contains(QStringLiteral("sleep")));
    QVERIFY(f.requestAndSettle(client, QJsonObject { { L::method, QStringLiteral("zz") } }));
    QCOMPARE(client->frames.size(), frames + 1);
}

void TestCore::applicationOrderOnlyWhileConnected()
{
    CoreFixture f;
    useIdle(f);
    f.platform->addApp(QStringLiteral("a"), QStringLiteral("A"), 1);
    f.platform->addApp(QStringLiteral("b"), QStringLiteral("B"), 2);
    QVERIFY(f.start());
    QSignalSpy changed(f.core, &Core::sortedAppsChanged);
    // No connection: no order is kept.
    emit f.platform->runningAppsChanged();
    QCOMPARE(changed.size(), 0);
    QVERIFY(f.core->getSortedApps().isEmpty());
    // With a client, asking rebuilds it, most recent first.
    QVERIFY(f.connectClient(QStringLiteral("phone")));
    QCOMPARE(f.core->getSortedApps().size(), 2);
    QCOMPARE(f.core->getSortedApps().at(0)->id, QStringLiteral("b"));
    const int before = changed.size();
    emit f.platform->runningAppsChanged();
    QCOMPARE(changed.size(), before + 1);
}

QTEST_GUILESS_MAIN(TestCore)
#include "tst_core.moc"

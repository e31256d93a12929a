#include "authenticationhandler.h"
#include "fakeplatform.h"
#include "l.h"
#include "protocolclient.h"
#include "server.h"
#include "serverfixture.h"
#include "testenvironment.h"

#include <QDateTime>
#include <QMetaEnum>
#include <QSettings>
#include <QSignalSpy>
#include <QtTest>

// The platform registry and the application model.
class TestModel : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { TestEnvironment::setUp(); }
    void init() { TestEnvironment::clearSettings(); }

    void appforIdEmpty();
    void setCurrentAppTwice();
    void setCurrentAppNull();
    void clearAppsSignals();
    void elementRoleValues();
    void lastRunSavedInBatchesOfEleven();
    void destroyedAppIsNotSaved();
    void lastRunReadAtConstruction();
    void setCurrentFalseClearsSiteAndFocus();
    void comparators();
    void performKeySequencesInOrder();
    void focusRoleBroadcast();
    void focusRoleWithoutConnections();
    void focusRoleAsyncIsQueued();
};

void TestModel::appforIdEmpty()
{
    FakePlatform platform;
    QVERIFY(!platform.appforId(QString()));
    QVERIFY(!platform.appforId(QStringLiteral("x")));
    platform.addApp(QStringLiteral("x"), QStringLiteral("X"));
    QVERIFY(!platform.appforId(QString()));
    QVERIFY(!platform.appforId(QStringLiteral("X")));
    QCOMPARE(platform.appforId(QStringLiteral("x"))->name, QStringLiteral("X"));
}

void TestModel::setCurrentAppTwice()
{
    FakePlatform platform;
    FakeApp *a = platform.addApp(QStringLiteral("a"), QStringLiteral("A"));
    QSignalSpy changed(&platform, &Platform::currentAppChanged);
    platform.setCurrentApp(a);
    platform.setCurrentApp(a);
    QCOMPARE(a->calls,
        (QStringList { QStringLiteral("setCurrent(true)"), QStringLiteral("setCurrent(false)"),
            QStringLiteral("setCurrent(true)") }));
    QCOMPARE(changed.size(), 2);
    QCOMPARE(changed.at(0).at(0).value<App *>(), a);
    QCOMPARE(changed.at(1).at(0).value<App *>(), a);
    QVERIFY(a->current);
}

void TestModel::setCurrentAppNull()
{
    FakePlatform platform;
    FakeApp *a = platform.addApp(QStringLiteral("a"), QStringLiteral("A"));
    platform.setCurrentApp(a);
    QSignalSpy changed(&platform, &Platform::currentAppChanged);
    platform.setCurrentApp(nullptr);
    QVERIFY(!a->current);
    QCOMPARE(changed.size(), 1);
    QCOMPARE(changed.at(0).at(0).value<App *>(), nullptr);
    QVERIFY(!platform.getCurrentApp());
}

void TestModel::clearAppsSignals()
{
    FakePlatform platform;
    FakeApp *a = platform.addApp(QStringLiteral("a"), QStringLiteral("A"));
    platform.addApp(QStringLiteral("b"), QStringLiteral("B"));
    platform.setRunning(a, true);
    platform.setCurrentApp(a);
    QPointer<FakeApp> watched(a);
    QStringList order;
    connect(&platform, &Platform::currentAppChanged, this, [&](App *app) {
        order << (app ? QStringLiteral("current(app)") : QStringLiteral("current(null)"));
    });
    connect(&platform, &Platform::installedAppsChanged, this,
        [&] { order << QStringLiteral("installed"); });
    connect(&platform, &Platform::runningAppsChanged, this,
        [&] { order << QStringLiteral("running"); });
    platform.clearApps();
    QCOMPARE(order, (QStringList { QStringLiteral("current(null)"), QStringLiteral("installed") }));
    QVERIFY(watched.isNull());
    QVERIFY(platform.getInstalledApps().isEmpty());
    QVERIFY(platform.getRunningApps().isEmpty());
    QVERIFY(!platform.appforId(QStringLiteral("b")));
}

void TestModel::elementRoleValues()
{
    const QMetaEnum roles = QMetaEnum::fromType<App::ElementRole>();
    QCOMPARE(roles.keyCount(), 7);
    QCOMPARE(roles.keyToValue("Null"), 1);
    QCOMPARE(roles.keyToValue("TextArea"), 4);
    QCOMPARE(roles.keyToValue("Button"), 7);
    QVERIFY(QMetaType::type("App::ElementRole") != QMetaType::UnknownType);
}

void TestModel::lastRunSavedInBatchesOfEleven()
{
    QList<FakeApp *> apps;
    for (int i = 0; i < 11; ++i)
        apps << new FakeApp(QStringLiteral("app%1").arg(i));
    const qint64 before = QDateTime::currentSecsSinceEpoch();
    for (int i = 0; i < 10; ++i)
        apps.at(i)->setRunning(i % 2 == 0);
    QSettings settings;
    settings.beginGroup(QStringLiteral("t"));
    QCOMPARE(settings.childKeys().size(), 0);
    apps.at(10)->setRunning(true);
    settings.sync();
    QCOMPARE(settings.childKeys().size(), 11);
    for (FakeApp *app : apps) {
        QVERIFY(app->lastRun >= before);
        QCOMPARE(settings.value(app->id).toLongLong(), app->lastRun);
    }
    QVERIFY(apps.at(0)->running);
    QVERIFY(!apps.at(1)->running);
    qDeleteAll(apps);
}

void TestModel::destroyedAppIsNotSaved()
{
    auto *gone = new FakeApp(QStringLiteral("gone"));
    gone->setRunning(true);
    gone->setRunning(false);
    delete gone;
    QList<FakeApp *> apps;
    for (int i = 0; i < 11; ++i) {
        apps << new FakeApp(QStringLiteral("kept%1").arg(i));
        apps.last()->setRunning(true);
    }
    QSettings settings;
    settings.beginGroup(QStringLiteral("t"));
    QVERIFY(!settings.contains(QStringLiteral("gone")));
    QCOMPARE(settings.childKeys().size(), 11);
    qDeleteAll(apps);
}

void TestModel::lastRunReadAtConstruction()
{
    QSettings().setValue(QStringLiteral("t/editor"), 1234567);
    FakeApp app(QStringLiteral("editor"));
    QCOMPARE(app.lastRun, qint64(1234567));
    FakeApp fresh(QStringLiteral("fresh"));
    QCOMPARE(fresh.lastRun, qint64(0));
}

void TestModel::setCurrentFalseClearsSiteAndFocus()
{
    FakeApp app(QStringLiteral("a"));
    app.siteHost = QStringLiteral("example.com");
    app.focusValue = QStringLiteral("typed");
    app.setCurrent(false);
    QVERIFY(app.siteHost.isEmpty());
    QVERIFY(app.focusValue.isEmpty());
    QVERIFY(!app.current);
    app.siteHost = QStringLiteral("example.com");
    app.setCurrent(true);
    QCOMPARE(app.siteHost, QStringLiteral("example.com"));
}

void TestModel::comparators()
{
    FakeApp a(QStringLiteral("a"), QStringLiteral("Zed"));
    FakeApp b(QStringLiteral("b"), QStringLiteral("alpha"));
    QVERIFY(App::nameComparator(&a, &b)); // case-sensitive: "Z" < "a"
    a.lastRun = 10;
    b.lastRun = 20;
    QVERIFY(App::lastRunComparator(&b, &a));
    QVERIFY(!App::lastRunComparator(&a, &b));
}

void TestModel::performKeySequencesInOrder()
{
    FakeApp app(QStringLiteral("a"));
    app.performKeySequences({ QStringLiteral("one"), QString(), QStringLiteral("two") });
    QCOMPARE(app.calls,
        (QStringList { QStringLiteral("performKeySequence(one)"),
            QStringLiteral("performKeySequence()"), QStringLiteral("performKeySequence(two)") }));
}

void TestModel::focusRoleBroadcast()
{
    Server server;
    new AuthenticationHandler(&server, L::auth);
    App::setServer(&server);
    Pairing::authorize(QStringLiteral("phone"), QStringLiteral("tok"));
    ProtocolClient client(QStringLiteral("phone"));
    QVERIFY(Pairing::connectAuthenticated(client, listeningPort(&server)));
    FakeApp app(QStringLiteral("editor"));
    app.setFocusRole(App::TextArea, QStringLiteral("Body"), QStringLiteral("ab\ncd"),
        { { QStringLiteral("multiline"), true } });
    QCOMPARE(app.focusValue, QStringLiteral("ab\ncd"));
    QTRY_COMPARE(client.framesWith(L::focusedElement).size(), 1);
    QCOMPARE(client.framesWith(L::focusedElement).at(0).object(),
        QJsonObject({ { L::method, L::focusedElement }, { L::id, QStringLiteral("editor") },
            { L::role, QStringLiteral("TextArea") }, { L::name, QStringLiteral("Body") },
            { L::value, QStringLiteral("ab...") },
            { L::properties, QJsonObject { { QStringLiteral("multiline"), true } } } }));
    // Fewer than four characters: sent as they are.
    app.setFocusRole(App::Text, QString(), QStringLiteral("a\nb"), {});
    QTRY_COMPARE(client.framesWith(L::focusedElement).size(), 2);
    QCOMPARE(client.framesWith(L::focusedElement).at(1).object().value(L::value).toString(),
        QStringLiteral("a\nb"));
    App::setServer(nullptr);
}

void TestModel::focusRoleWithoutConnections()
{
    FakeApp app(QStringLiteral("editor"));
    app.focusValue = QStringLiteral("old");
    App::setServer(nullptr);
    app.setFocusRole(App::Text, QString(), QStringLiteral("new"), {});
    QCOMPARE(app.focusValue, QStringLiteral("old"));
    Server server;
    App::setServer(&server);
    app.setFocusRole(App::Text, QString(), QStringLiteral("new"), {});
    QCOMPARE(app.focusValue, QStringLiteral("old"));
    App::setServer(nullptr);
}

void TestModel::focusRoleAsyncIsQueued()
{
    Server server;
    App::setServer(&server);
    ProtocolClient stranger(QStringLiteral("stranger"));
    stranger.open(listeningPort(&server));
    QTRY_COMPARE(server.getConnections().size(), 1);
    FakeApp app(QStringLiteral("editor"));
    app.setFocusRoleAsync(App::Text, QString(), QStringLiteral("later"), {});
    QVERIFY(app.focusValue.isEmpty());
    QTRY_COMPARE(app.focusValue, QStringLiteral("later"));
    App::setServer(nullptr);
}

QTEST_GUILESS_MAIN(TestModel)
#include "tst_model.moc"

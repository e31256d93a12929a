#include "corefixture.h"
#include "httpfixture.h"
#include "l.h"
#include "logcapture.h"
#include "testenvironment.h"
#include "website.h"

#include <QJsonDocument>
#include <QProcess>
#include <QSettings>
#include <QTemporaryDir>
#include <QtTest>

namespace {
FixtureResponse ok(const QByteArray &body)
{
    FixtureResponse response;
    response.body = body;
    return response;
}

FixtureResponse missing()
{
    FixtureResponse response;
    response.status = 404;
    response.reason = "Not Found";
    return response;
}

QJsonObject req(const QString &code, const QJsonObject &rest = QJsonObject())
{
    QJsonObject message = rest;
    message.insert(L::method, code);
    return message;
}
} // namespace

// Command sets, websites and command icons from a web service (a real HTTP fixture), through
// the coordinator, the server and a client on loopback.
class TestWebCommands : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void init();

    void idRequestedInLowerCase();
    void bundleIdRetriedOnce();
    void otherIdNotRetried();
    void commandsAnsweredOnceLoaded();
    void laterRequestAnsweredFromMemory();
    void subscriptionLastsAsLongAsTheSocket();
    void browserFlagFromCommandSet();
    void siteCommandsOncePerHost();
    void hostWithoutDocumentClearsSite();
    void catalogueSkipsEmptyHosts();
    void websitesRetriedOnFirstClientOnlyWithPreventSleep();
    void iconBytesPassedThrough();
    void iconTooSmallOrUnknown();
    void iconDroppedWhenAskerLeft();
    void noWebServiceMeansNoRequest();
    void cacheSurvivesRestart();

private:
    QTemporaryDir cacheHome;
    HttpFixture fixture;
    int serial = 0;
    // A fresh path prefix per test keeps the shared on-disk cache out of the way.
    QByteArray base;
};

void TestWebCommands::initTestCase()
{
    qputenv("XDG_CACHE_HOME", cacheHome.path().toUtf8());
    TestEnvironment::setUp();
}

void TestWebCommands::init()
{
    base = "/run" + QByteArray::number(++serial) + "/velm-ws";
    qputenv("VELM_WS_BASE", fixture.base() + base);
}

void TestWebCommands::idRequestedInLowerCase()
{
    fixture.script(base + "/app?q=com.example.editor", { ok("{\"c\":[]}") });
    CoreFixture f;
    App *app = f.platform->addApp(QStringLiteral("Com.Example.Editor"), QStringLiteral("Editor"));
    QVERIFY(f.start());
    app->loadCommands();
    QTRY_VERIFY(app->commandsAreLoaded);
    QCOMPARE(fixture.count(base + "/app?q=com.example.editor"), 1);
    QCOMPARE(app->commands, QByteArray("{\"c\":[]}"));
}

void TestWebCommands::bundleIdRetriedOnce()
{
    fixture.script(base + "/app?q=com.tool.app.helper", { missing() });
    fixture.script(base + "/app?q=com.tool.app", { ok("{\"c\":1}") });
    CoreFixture f;
    App *app = f.platform->addApp(QStringLiteral("Com.Tool.app.Helper"), QStringLiteral("Helper"));
    QVERIFY(f.start());
    LogCapture log;
    app->loadCommands();
    QTRY_VERIFY(app->commandsAreLoaded);
    QCOMPARE(log.count(QStringLiteral("Cannot load commands")), 1);
    QCOMPARE(fixture.count(base + "/app?q=com.tool.app"), 1);
    QCOMPARE(app->commands, QByteArray("{\"c\":1}"));
}

void TestWebCommands::otherIdNotRetried()
{
    fixture.script(base + "/app?q=org.plain.tool", { missing() });
    CoreFixture f;
    App *app = f.platform->addApp(QStringLiteral("org.plain.tool"), QStringLiteral("Tool"));
    QVERIFY(f.start());
    LogCapture log;
    app->loadCommands();
    QTRY_COMPARE(log.count(QStringLiteral("Cannot load commands")), 1);
    const int before = fixture.requests.size();
    QTest::qWait(200);
    QCOMPARE(fixture.requests.size(), before);
    QVERIFY(!app->commandsAreLoaded);
}

void TestWebCommands::commandsAnsweredOnceLoaded()
{
    FixtureResponse slow = ok("{\"b\":false,\"c\":[1,2]}");
    slow.firstByteDelay = 300;
    fixture.script(base + "/app?q=org.slow", { slow });
    CoreFixture f;
    f.platform->addApp(QStringLiteral("org.slow"), QStringLiteral("Slow"));
    QVERIFY(f.start());
    ProtocolClient *client = f.connectClient(QStringLiteral("phone"));
    QVERIFY(client);
    client->send(req(L::appCommands, { { L::id, QStringLiteral("org.slow") } }));
    QTRY_COMPARE(client->framesWith(L::appCommands).size(), 1);
    const Frame reply = client->framesWith(L::appCommands).at(0);
    QCOMPARE(reply.object(),
        QJsonObject({ { L::method, L::appCommands }, { L::id, QStringLiteral("org.slow") } }));
    QCOMPARE(reply.parts.size(), 1);
    QCOMPARE(reply.parts.at(0).first, qint8(Server::Json));
    QCOMPARE(reply.parts.at(0).second, QByteArray("{\"b\":false,\"c\":[1,2]}"));
}

void TestWebCommands::laterRequestAnsweredFromMemory()
{
    fixture.script(base + "/app?q=org.fast", { ok("{\"c\":3}") });
    CoreFixture f;
    f.platform->addApp(QStringLiteral("org.fast"), QStringLiteral("Fast"));
    QVERIFY(f.start());
    ProtocolClient *client = f.connectClient(QStringLiteral("phone"));
    QVERIFY(client);
    QVERIFY(f.request(
        client, req(L::appCommands, { { L::id, QStringLiteral("org.fast") } }), L::appCommands));
    const int requests = fixture.requests.size();
    const auto second = f.request(
        client, req(L::appCommands, { { L::id, QStringLiteral("org.fast") } }), L::appCommands);
    QVERIFY(second);
    QCOMPARE(second->parts.at(0).second, QByteArray("{\"c\":3}"));
    QCOMPARE(fixture.requests.size(), requests);
    // Unknown application: no answer.
    QVERIFY(
        f.requestAndSettle(client, req(L::appCommands, { { L::id, QStringLiteral("org.none") } })));
    QCOMPARE(client->framesWith(L::appCommands).size(), 2);
}

void TestWebCommands::subscriptionLastsAsLongAsTheSocket()
{
    FixtureResponse slow = ok("{\"v\":1}");
    slow.firstByteDelay = 200;
    fixture.script(base + "/app?q=org.sub", { slow });
    CoreFixture f;
    App *app = f.platform->addApp(QStringLiteral("org.sub"), QStringLiteral("Sub"));
    QVERIFY(f.start());
    ProtocolClient *client = f.connectClient(QStringLiteral("phone"));
    QVERIFY(client);
    client->send(req(L::appCommands, { { L::id, QStringLiteral("org.sub") } }));
    QTRY_COMPARE(client->framesWith(L::appCommands).size(), 1);
    // Every later load of that application reaches the socket again.
    emit app->commandsLoaded("{\"v\":2}");
    QTRY_COMPARE(client->framesWith(L::appCommands).size(), 2);
    QCOMPARE(client->framesWith(L::appCommands).at(1).parts.at(0).second, QByteArray("{\"v\":2}"));
    client->close();
    QTRY_VERIFY(f.core->server->getConnections().isEmpty());
    QTRY_COMPARE(f.core->server->findChildren<QWebSocket *>().size(), 0);
    emit app->commandsLoaded("{\"v\":3}");
}

void TestWebCommands::browserFlagFromCommandSet()
{
    fixture.script(base + "/app?q=org.browser", { ok("{\"b\":true}") });
    fixture.script(base + "/app?q=org.notjson", { ok("not json") });
    CoreFixture f;
    App *browser = f.platform->addApp(QStringLiteral("org.browser"), QStringLiteral("Browser"));
    App *broken = f.platform->addApp(QStringLiteral("org.notjson"), QStringLiteral("Broken"));
    QVERIFY(f.start());
    QSignalSpy loaded(broken, &App::commandsLoaded);
    browser->loadCommands();
    broken->loadCommands();
    QTRY_VERIFY(browser->commandsAreLoaded && broken->commandsAreLoaded);
    QVERIFY(browser->browser);
    QVERIFY(!broken->browser);
    QCOMPARE(loaded.size(), 1);
    QCOMPARE(broken->commands, QByteArray("not json"));
}

void TestWebCommands::siteCommandsOncePerHost()
{
    fixture.script(base + "/web/index.json",
        { ok("{\"i\":[{\"n\":\"Example\",\"d\":\"example.org\"},{\"n\":\"Other\",\"d\":\"other."
             "org\"}]}") });
    fixture.script(base + "/web/example.org.json", { ok("{\"i\":\"ignored\",\"c\":[\"find\"]}") });
    fixture.script(base + "/web/other.org.json", { ok("{\"c\":[\"other\"]}") });
    CoreFixture f;
    App *browser = f.platform->addApp(QStringLiteral("org.browser"), QStringLiteral("Browser"));
    QVERIFY(f.start());
    QTRY_COMPARE(f.core->websites.size(), 2);
    ProtocolClient *client = f.connectClient(QStringLiteral("phone"));
    QVERIFY(client);
    browser->onBrowserUrlChanged(QStringLiteral("https://example.org/one"));
    browser->onBrowserUrlChanged(QStringLiteral("https://example.org/two?x=1"));
    browser->onBrowserUrlChanged(QStringLiteral("https://other.org/"));
    QTRY_COMPARE(client->framesWith(L::siteCommands).size(), 2);
    QCOMPARE(client->framesWith(L::siteCommands).at(0).object(),
        QJsonObject({ { L::method, L::siteCommands }, { L::id, QStringLiteral("org.browser") },
            { QStringLiteral("c"), QJsonArray { QStringLiteral("find") } } }));
    QCOMPARE(
        client->framesWith(L::siteCommands).at(1).object().value(QStringLiteral("c")).toArray(),
        QJsonArray { QStringLiteral("other") });
    // Leaving the application forgets the site: coming back sends it again.
    browser->setCurrent(false);
    browser->onBrowserUrlChanged(QStringLiteral("https://other.org/"));
    QTRY_COMPARE(client->framesWith(L::siteCommands).size(), 3);
}

void TestWebCommands::hostWithoutDocumentClearsSite()
{
    fixture.script(base + "/web/index.json", { ok("{\"i\":[]}") });
    CoreFixture f;
    App *browser = f.platform->addApp(QStringLiteral("org.browser"), QStringLiteral("Browser"));
    QVERIFY(f.start());
    ProtocolClient *client = f.connectClient(QStringLiteral("phone"));
    QVERIFY(client);
    browser->onBrowserUrlChanged(QStringLiteral("https://unknown.example/page"));
    QTRY_COMPARE(client->framesWith(L::siteCommands).size(), 1);
    QCOMPARE(client->framesWith(L::siteCommands).at(0).object(),
        QJsonObject({ { L::method, L::siteCommands }, { L::id, QStringLiteral("org.browser") } }));
    QCOMPARE(browser->siteHost, QStringLiteral("unknown.example"));
}

void TestWebCommands::catalogueSkipsEmptyHosts()
{
    fixture.script(base + "/web/index.json",
        { ok("{\"i\":[{\"n\":\"Nothing\",\"d\":\"\"},{\"n\":\"Real\",\"d\":\"real.org\"},{\"n\":"
             "\"Gone\",\"d\":\"gone.org\"}]}") });
    fixture.script(base + "/web/real.org.json", { ok("{\"c\":1}") });
    CoreFixture f;
    QVERIFY(f.start());
    QTRY_COMPARE(fixture.count(base + "/web/gone.org.json"), 1);
    QTRY_COMPARE(f.core->websites.size(), 1);
    QVERIFY(f.core->websites.contains(QStringLiteral("real.org")));
    QCOMPARE(fixture.count(base + "/web/.json"), 0);
}

void TestWebCommands::websitesRetriedOnFirstClientOnlyWithPreventSleep()
{
    fixture.script(base + "/web/index.json", { missing() });
    {
        CoreFixture f;
        LogCapture log;
        QVERIFY(f.start());
        QTRY_COMPARE(log.count(QStringLiteral("Cannot load websites")), 1);
        QCOMPARE(fixture.count(base + "/web/index.json"), 1);
        QVERIFY(f.connectClient(QStringLiteral("phone")));
        QVERIFY(f.requestAndSettle(f.clients.first(), req(L::unsupported)));
        // "preventSleep" is off here: no second attempt.
        QCOMPARE(fixture.count(base + "/web/index.json"), 1);
    }
    base = "/retry" + QByteArray::number(serial) + "/velm-ws";
    qputenv("VELM_WS_BASE", fixture.base() + base);
    fixture.script(base + "/web/index.json", { missing(), ok("{\"i\":[]}") });
    CoreFixture f(true);
    QVERIFY(f.start());
    QTRY_COMPARE(fixture.count(base + "/web/index.json"), 1);
    QVERIFY(f.connectClient(QStringLiteral("phone")));
    QTRY_COMPARE(fixture.count(base + "/web/index.json"), 2);
}

void TestWebCommands::iconBytesPassedThrough()
{
    QByteArray png = QByteArray::fromHex("89504e470d0a1a0a") + QByteArray(300, '\x07');
    fixture.script(base + "/icon?i=find&s=64", { ok(png) });
    CoreFixture f;
    QVERIFY(f.start());
    ProtocolClient *client = f.connectClient(QStringLiteral("phone"));
    QVERIFY(client);
    const auto reply = f.request(client,
        req(L::commandIcon, { { L::id, QStringLiteral("find") }, { L::size, 64 } }),
        L::commandIcon);
    QVERIFY(reply);
    QCOMPARE(reply->object(),
        QJsonObject(
            { { L::method, L::commandIcon }, { L::id, QStringLiteral("find") }, { L::size, 64 } }));
    QCOMPARE(reply->parts.at(0).first, qint8(Server::Png));
    QCOMPARE(reply->parts.at(0).second, png);
}

void TestWebCommands::iconTooSmallOrUnknown()
{
    CoreFixture f;
    QVERIFY(f.start());
    ProtocolClient *client = f.connectClient(QStringLiteral("phone"));
    QVERIFY(client);
    const int before = fixture.requests.size();
    QVERIFY(f.requestAndSettle(
        client, req(L::commandIcon, { { L::id, QStringLiteral("find") }, { L::size, 15 } })));
    QCOMPARE(fixture.requests.size(), before);
    client->send(req(L::commandIcon, { { L::id, QStringLiteral("nope") }, { L::size, 32 } }));
    QTRY_COMPARE(fixture.count(base + "/icon?i=nope&s=32"), 1);
    QVERIFY(f.requestAndSettle(client, req(L::unsupported)));
    QCOMPARE(client->framesWith(L::commandIcon).size(), 0);
}

void TestWebCommands::iconDroppedWhenAskerLeft()
{
    FixtureResponse slow = ok("icon");
    slow.firstByteDelay = 300;
    fixture.script(base + "/icon?i=late&s=32", { slow });
    CoreFixture f;
    QVERIFY(f.start());
    ProtocolClient *leaving = f.connectClient(QStringLiteral("leaving"));
    QVERIFY(leaving);
    ProtocolClient *staying = f.connectClient(QStringLiteral("staying"));
    QVERIFY(staying);
    leaving->send(req(L::commandIcon, { { L::id, QStringLiteral("late") }, { L::size, 32 } }));
    QTRY_COMPARE(fixture.count(base + "/icon?i=late&s=32"), 1);
    leaving->close();
    QTRY_COMPARE(f.core->server->getConnections().size(), 1);
    // The answer arrives after the asker has gone: nobody gets it, nothing breaks.
    staying->send(req(L::commandIcon, { { L::id, QStringLiteral("late") }, { L::size, 32 } }));
    QTRY_COMPARE(staying->framesWith(L::commandIcon).size(), 1);
    QCOMPARE(leaving->framesWith(L::commandIcon).size(), 0);
}

void TestWebCommands::noWebServiceMeansNoRequest()
{
    qunsetenv("VELM_WS_BASE");
    QSettings().remove(QStringLiteral("webService"));
    const int before = fixture.requests.size();
    CoreFixture f;
    App *app = f.platform->addApp(QStringLiteral("org.any"), QStringLiteral("Any"));
    LogCapture log;
    QVERIFY(f.start());
    QCOMPARE(log.count(QStringLiteral("Cannot load websites")), 1);
    app->loadCommands();
    QCOMPARE(log.count(QStringLiteral("Cannot load commands")), 1);
    ProtocolClient *client = f.connectClient(QStringLiteral("phone"));
    QVERIFY(client);
    QVERIFY(f.requestAndSettle(
        client, req(L::commandIcon, { { L::id, QStringLiteral("x") }, { L::size, 32 } })));
    QCOMPARE(fixture.requests.size(), before);
}

void TestWebCommands::cacheSurvivesRestart()
{
    fixture.script(base + "/app?q=persist", { ok("{\"kept\":true}") });
    const QString helper = QStringLiteral(VELM_HTTP_GET);
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    QTemporaryDir home;
    environment.insert(QStringLiteral("XDG_CACHE_HOME"), home.path());
    for (int run = 0; run < 2; ++run) {
        QProcess process;
        process.setProcessEnvironment(environment);
        process.start(helper, { fixture.url(base + "/app?q=persist").toString() });
        QVERIFY(process.waitForStarted());
        QTRY_VERIFY_WITH_TIMEOUT(process.state() == QProcess::NotRunning, 10000);
        QCOMPARE(process.exitCode(), 0);
        QCOMPARE(process.readAllStandardOutput(), QByteArray("{\"kept\":true}"));
    }
    QCOMPARE(fixture.count(base + "/app?q=persist"), 1);
}

QTEST_GUILESS_MAIN(TestWebCommands)
#include "tst_webcommands.moc"

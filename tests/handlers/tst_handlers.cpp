#include "corefixture.h"
#include "filehandlers.h"
#include "filework.h"
#include "l.h"
#include "logcapture.h"
#include "testenvironment.h"

#include <QBuffer>
#include <QDir>
#include <QImage>
#include <QJsonArray>
#include <QJsonDocument>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QtTest>

namespace {
QJsonObject req(const QString &code, const QJsonObject &rest = QJsonObject())
{
    QJsonObject message = rest;
    message.insert(L::method, code);
    return message;
}

QPixmap solid(int width, int height, const QColor &color = Qt::red)
{
    QPixmap pixmap(width, height);
    pixmap.fill(color);
    return pixmap;
}

QImage decodePng(const QByteArray &bytes)
{
    QImage image;
    image.loadFromData(bytes, "PNG");
    return image;
}
} // namespace

// Every handler through the real coordinator, server and a client on loopback, over the fake
// platform.
class TestHandlers : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { TestEnvironment::setUp(); }

    // Application lists
    void installedAppsInClientOrder();
    void installedAppsWithoutRunningHaveNoStatus();
    void installedAppsTextIsQtsText();
    void currentAppPushedWhenItGoesAway();
    void runningAppsRequestGetsNoReply();
    void appIconSizes();
    void appIconUnknownOrEmpty();
    void appIconCachedUntilItChanges();

    // Application control
    void activateFallsBackToCurrentApp();
    void actionsCallTheirOperation_data();
    void actionsCallTheirOperation();
    void scrollAmounts();
    void keySequenceNeedsId();
    void keySequenceArray();
    void keySequenceBadKeys();

    // Menus and focus
    void menuTreeInAttachment();
    void emptyMenuIsEmptyArray();
    void menuWithoutIdNotAnswered();
    void performMenu();
    void focusValueQueryFallsBackToCurrent();
    void focusValueSetNotAnswered();
    void focusPerform();

    // Files
    void listingOfHomeWhenNoPath();
    void listingOrderAndTypes();
    void listingOfMissingDirectory();
    void listingEscapesNames();
    void fileIconSizes();
    void fileIconByType();
    void previewAlwaysAnswered();
    void fileAppsAndOpen();
    void fileWorkLeavesOtherClientsServed();
    void fileRequestsOfOneClientWaitInOrder();
    void lateFileWorkGetsTheFailedAnswer();
    void fileWorkOfALeavingClientIsDropped();
    void stuckFileWorkIsBounded();
    void waitingFileWorkIsBounded();

    // System state
    void volumeQueryAndSet();
    void volumeFromStringIsZero();
    void muteIsBoolean();
    void brightnessQueryAndSet();
    void lockFalseDoesNothing();
    void unsupportedList();
    void platformChangeReachesOnlyAuthenticated();
    void systemCommandsReachThePlatform();
    void messageInTheTurnOfStartIsUnhandled();
};

void TestHandlers::installedAppsInClientOrder()
{
    CoreFixture f;
    f.platform->addApp(QStringLiteral("old"), QStringLiteral("Old"), 100);
    f.platform->addApp(QStringLiteral("new"), QStringLiteral("New"), 300);
    f.platform->addApp(QStringLiteral("mid"), QStringLiteral("Mid"), 200);
    QVERIFY(f.start());
    ProtocolClient *client = f.connectClient(QStringLiteral("phone"));
    QVERIFY(client);
    const auto reply = f.request(client, req(L::installedApps), L::installedApps);
    QVERIFY(reply);
    const QJsonArray apps = reply->object().value(L::apps).toArray();
    QCOMPARE(apps.size(), 3);
    QCOMPARE(apps.at(0).toObject().value(L::id).toString(), QStringLiteral("new"));
    QCOMPARE(apps.at(0).toObject().value(L::name).toString(), QStringLiteral("New"));
    QCOMPARE(apps.at(1).toObject().value(L::id).toString(), QStringLiteral("mid"));
    QCOMPARE(apps.at(2).toObject().value(L::id).toString(), QStringLiteral("old"));

    // A launch changes the order, and every client is told.
    const int before = client->framesWith(L::installedApps).size();
    App *old = f.platform->appforId(QStringLiteral("old"));
    old->lastRun = 400;
    f.platform->setRunning(old, true);
    QTRY_COMPARE(client->framesWith(L::installedApps).size(), before + 1);
    const QJsonArray after
        = client->framesWith(L::installedApps).last().object().value(L::apps).toArray();
    QCOMPARE(after.at(0).toObject().value(L::id).toString(), QStringLiteral("old"));
    QCOMPARE(after.at(0).toObject().value(L::status).toString(), L::running);
}

void TestHandlers::installedAppsWithoutRunningHaveNoStatus()
{
    CoreFixture f;
    f.platform->addApp(QStringLiteral("a"), QStringLiteral("A"));
    f.platform->addApp(QStringLiteral("b"), QStringLiteral("B"));
    QVERIFY(f.start());
    ProtocolClient *client = f.connectClient(QStringLiteral("phone"));
    QVERIFY(client);
    const auto reply = f.request(client, req(L::installedApps), L::installedApps);
    QVERIFY(reply);
    for (const QJsonValue &app : reply->object().value(L::apps).toArray())
        QVERIFY(!app.toObject().contains(L::status));
}

// The list is written as text: byte for byte what Qt writes for the same object, whatever the
// names hold (quotes, backslashes, control characters, other scripts, surrogate pairs and a
// surrogate without its partner).
void TestHandlers::installedAppsTextIsQtsText()
{
    CoreFixture f;
    const QStringList names { QStringLiteral("Plain"), QStringLiteral("Say \"hi\" \\ now"),
        QStringLiteral("Tab\there\nand\x01"
                       "bell"),
        QStringLiteral("Caff\u00e8 \u65e5\u672c"), QString::fromUtf16(u"Smile \U0001F600"),
        QString(QChar(0xD800)) + QStringLiteral("x") };
    for (int i = 0; i < names.size(); ++i)
        f.platform->addApp(QStringLiteral("app%1").arg(i), names.at(i), 100 - i);
    f.platform->setRunning(f.platform->appforId(QStringLiteral("app1")), true);
    QVERIFY(f.start());
    ProtocolClient *client = f.connectClient(QStringLiteral("phone"));
    QVERIFY(client);
    const auto reply = f.request(client, req(L::installedApps), L::installedApps);
    QVERIFY(reply);

    QJsonArray apps;
    for (int i = 0; i < names.size(); ++i) {
        QJsonObject entry { { L::id, QStringLiteral("app%1").arg(i) }, { L::name, names.at(i) } };
        if (i == 1)
            entry.insert(L::status, L::running);
        apps.append(entry);
    }
    QJsonObject expected { { L::apps, apps } };
    expected.insert(L::method, L::installedApps);
    QCOMPARE(reply->json, QJsonDocument(expected).toJson(QJsonDocument::Compact));
}

void TestHandlers::currentAppPushedWhenItGoesAway()
{
    CoreFixture f;
    FakeApp *app = f.platform->addApp(QStringLiteral("a"), QStringLiteral("A"));
    QVERIFY(f.start());
    ProtocolClient *one = f.connectClient(QStringLiteral("one"));
    QVERIFY(one);
    ProtocolClient *two = f.connectClient(QStringLiteral("two"));
    QVERIFY(two);
    f.platform->setCurrentApp(app);
    QTRY_COMPARE(one->framesWith(L::currentApp).size(), 1);
    QCOMPARE(
        one->framesWith(L::currentApp).at(0).object().value(L::id).toString(), QStringLiteral("a"));
    f.platform->setCurrentApp(nullptr);
    QTRY_COMPARE(one->framesWith(L::currentApp).size(), 2);
    QTRY_COMPARE(two->framesWith(L::currentApp).size(), 2);
    QCOMPARE(one->framesWith(L::currentApp).at(1).object(),
        QJsonObject({ { L::method, L::currentApp } }));
    QCOMPARE(two->framesWith(L::currentApp).at(1).object(),
        QJsonObject({ { L::method, L::currentApp } }));
}

void TestHandlers::runningAppsRequestGetsNoReply()
{
    CoreFixture f;
    QVERIFY(f.start());
    ProtocolClient *client = f.connectClient(QStringLiteral("phone"));
    QVERIFY(client);
    LogCapture log;
    QVERIFY(f.requestAndSettle(client, req(L::runningApps)));
    QCOMPARE(client->framesWith(L::runningApps).size(), 0);
    QCOMPARE(log.count(QStringLiteral("Unhandled message \"ra\"")), 1);
}

void TestHandlers::appIconSizes()
{
    CoreFixture f;
    FakeApp *app = f.platform->addApp(QStringLiteral("a"), QStringLiteral("A"));
    app->icon = QIcon(solid(256, 256));
    QVERIFY(f.start());
    ProtocolClient *client = f.connectClient(QStringLiteral("phone"));
    QVERIFY(client);
    QVERIFY(f.requestAndSettle(
        client, req(L::appIcon, { { L::id, QStringLiteral("a") }, { L::size, 15 } })));
    QCOMPARE(client->framesWith(L::appIcon).size(), 0);
    const auto reply = f.request(
        client, req(L::appIcon, { { L::id, QStringLiteral("a") }, { L::size, 16 } }), L::appIcon);
    QVERIFY(reply);
    QCOMPARE(reply->object().value(L::id).toString(), QStringLiteral("a"));
    QCOMPARE(reply->object().value(L::size).toInt(), 16);
    QCOMPARE(reply->parts.size(), 1);
    QCOMPARE(reply->parts.at(0).first, qint8(Server::Png));
    QCOMPARE(decodePng(reply->parts.at(0).second).size(), QSize(16, 16));
    const auto big = f.request(
        client, req(L::appIcon, { { L::id, QStringLiteral("a") }, { L::size, 128 } }), L::appIcon);
    QVERIFY(big);
    QCOMPARE(decodePng(big->parts.at(0).second).size(), QSize(128, 128));
}

void TestHandlers::appIconUnknownOrEmpty()
{
    CoreFixture f;
    f.platform->addApp(QStringLiteral("a"), QStringLiteral("A"));
    QVERIFY(f.start());
    ProtocolClient *client = f.connectClient(QStringLiteral("phone"));
    QVERIFY(client);
    QVERIFY(f.requestAndSettle(
        client, req(L::appIcon, { { L::id, QStringLiteral("zz") }, { L::size, 32 } })));
    QVERIFY(f.requestAndSettle(client, req(L::appIcon, { { L::size, 32 } })));
    QVERIFY(f.requestAndSettle(client, req(L::appIcon, { { L::id, QStringLiteral("a") } })));
    QCOMPARE(client->framesWith(L::appIcon).size(), 0);
}

void TestHandlers::appIconCachedUntilItChanges()
{
    CoreFixture f;
    FakeApp *app = f.platform->addApp(QStringLiteral("a"), QStringLiteral("A"));
    app->icon = QIcon(solid(256, 256, Qt::red));
    QVERIFY(f.start());
    ProtocolClient *client = f.connectClient(QStringLiteral("phone"));
    QVERIFY(client);
    auto png = [&](int size) {
        const auto reply = f.request(client,
            req(L::appIcon, { { L::id, QStringLiteral("a") }, { L::size, size } }), L::appIcon);
        return reply ? reply->parts.at(0).second : QByteArray();
    };
    const QByteArray red = png(64);
    QCOMPARE(QColor(decodePng(red).pixel(5, 5)), QColor(Qt::red));
    QCOMPARE(app->iconPng(64), red);
    // The same bytes again, from the cache; another size is its own entry.
    QCOMPARE(png(64), red);
    QCOMPARE(decodePng(png(32)).size(), QSize(32, 32));
    // A new icon is seen at once.
    app->icon = QIcon(solid(256, 256, Qt::blue));
    const QByteArray blue = png(64);
    QCOMPARE(QColor(decodePng(blue).pixel(5, 5)), QColor(Qt::blue));
    // Many sizes do not pile up, and absurd sizes get no answer.
    for (int size = 16; size < 60; ++size)
        QVERIFY(!png(size).isEmpty());
    QCOMPARE(decodePng(png(1024)).size(), QSize(1024, 1024));
    QVERIFY(f.requestAndSettle(
        client, req(L::appIcon, { { L::id, QStringLiteral("a") }, { L::size, 100000 } })));
    QCOMPARE(client->framesWith(L::appIcon).last().object().value(L::size).toInt(), 1024);
}

void TestHandlers::activateFallsBackToCurrentApp()
{
    CoreFixture f;
    FakeApp *front = f.platform->addApp(QStringLiteral("front"), QStringLiteral("Front"));
    FakeApp *other = f.platform->addApp(QStringLiteral("other"), QStringLiteral("Other"));
    f.platform->setCurrentApp(front);
    QVERIFY(f.start());
    ProtocolClient *client = f.connectClient(QStringLiteral("phone"));
    QVERIFY(client);
    QVERIFY(f.requestAndSettle(client, req(L::activateApp)));
    QVERIFY(front->calls.contains(QStringLiteral("activate")));
    QVERIFY(
        f.requestAndSettle(client, req(L::activateApp, { { L::id, QStringLiteral("nobody") } })));
    QCOMPARE(front->calls.count(QStringLiteral("activate")), 1);
    QVERIFY(!other->calls.contains(QStringLiteral("activate")));
    QVERIFY(
        f.requestAndSettle(client, req(L::activateApp, { { L::id, QStringLiteral("other") } })));
    QVERIFY(other->calls.contains(QStringLiteral("activate")));
    QCOMPARE(client->framesWith(L::activateApp).size(), 0);
}

void TestHandlers::actionsCallTheirOperation_data()
{
    QTest::addColumn<QString>("code");
    QTest::addColumn<QString>("operation");
    QTest::newRow("ha closes, not hides") << L::closeApp << QStringLiteral("close");
    QTest::newRow("qa") << L::quitApp << QStringLiteral("quit");
    QTest::newRow("ma") << L::toggleMinimizeApp << QStringLiteral("toggleMiniminize");
    QTest::newRow("xa") << L::toggleMaximizeApp << QStringLiteral("toggleMaximize");
    QTest::newRow("fa") << L::toggleFullscreenApp << QStringLiteral("toggleFullscreen");
}

void TestHandlers::actionsCallTheirOperation()
{
    QFETCH(QString, code);
    QFETCH(QString, operation);
    CoreFixture f;
    FakeApp *app = f.platform->addApp(QStringLiteral("a"), QStringLiteral("A"));
    QVERIFY(f.start());
    ProtocolClient *client = f.connectClient(QStringLiteral("phone"));
    QVERIFY(client);
    QVERIFY(f.requestAndSettle(client, req(code, { { L::id, QStringLiteral("a") } })));
    QCOMPARE(app->calls, QStringList { operation });
    QCOMPARE(client->framesWith(code).size(), 0);
}

void TestHandlers::scrollAmounts()
{
    CoreFixture f;
    FakeApp *app = f.platform->addApp(QStringLiteral("a"), QStringLiteral("A"));
    f.platform->setCurrentApp(app);
    app->calls.clear();
    QVERIFY(f.start());
    ProtocolClient *client = f.connectClient(QStringLiteral("phone"));
    QVERIFY(client);
    QVERIFY(f.requestAndSettle(client, req(L::appScroll, { { L::x, 0 }, { L::y, -3 } })));
    QVERIFY(f.requestAndSettle(client, req(L::appScroll)));
    QCOMPARE(app->calls,
        (QStringList { QStringLiteral("scroll(0,-3)"), QStringLiteral("scroll(0,0)") }));
}

void TestHandlers::keySequenceNeedsId()
{
    CoreFixture f;
    FakeApp *app = f.platform->addApp(QStringLiteral("a"), QStringLiteral("A"));
    f.platform->setCurrentApp(app);
    app->calls.clear();
    QVERIFY(f.start());
    ProtocolClient *client = f.connectClient(QStringLiteral("phone"));
    QVERIFY(client);
    QVERIFY(
        f.requestAndSettle(client, req(L::keySequence, { { L::keys, QStringLiteral("cmd+c") } })));
    QVERIFY(app->calls.isEmpty());
    QVERIFY(f.requestAndSettle(client,
        req(L::keySequence,
            { { L::id, QStringLiteral("a") }, { L::keys, QStringLiteral("cmd+c") } })));
    QCOMPARE(app->calls, QStringList { QStringLiteral("performKeySequence(cmd+c)") });
}

void TestHandlers::keySequenceArray()
{
    CoreFixture f;
    FakeApp *app = f.platform->addApp(QStringLiteral("a"), QStringLiteral("A"));
    QVERIFY(f.start());
    ProtocolClient *client = f.connectClient(QStringLiteral("phone"));
    QVERIFY(client);
    QVERIFY(f.requestAndSettle(client,
        req(L::keySequence,
            { { L::id, QStringLiteral("a") },
                { L::keys, QJsonArray { QStringLiteral("x"), 5, QStringLiteral("y") } } })));
    QCOMPARE(app->calls,
        (QStringList { QStringLiteral("performKeySequence(x)"),
            QStringLiteral("performKeySequence()"), QStringLiteral("performKeySequence(y)") }));
}

void TestHandlers::keySequenceBadKeys()
{
    CoreFixture f;
    FakeApp *app = f.platform->addApp(QStringLiteral("a"), QStringLiteral("A"));
    QVERIFY(f.start());
    ProtocolClient *client = f.connectClient(QStringLiteral("phone"));
    QVERIFY(client);
    LogCapture log;
    QVERIFY(f.requestAndSettle(
        client, req(L::keySequence, { { L::id, QStringLiteral("a") }, { L::keys, 42 } })));
    QVERIFY(app->calls.isEmpty());
    QCOMPARE(log.count(QStringLiteral("No keys QJsonValue(double, 42)")), 1);
}

void TestHandlers::menuTreeInAttachment()
{
    CoreFixture f;
    FakeApp *app = f.platform->addApp(QStringLiteral("a"), QStringLiteral("A"));
    MenuItem file(QStringLiteral("1"), QStringLiteral("File"), nullptr);
    file.children.emplace_back(QStringLiteral("1.1"), QStringLiteral("Open"), nullptr);
    file.children.emplace_back(QStringLiteral("1.2"), QStringLiteral("Save"), nullptr);
    app->menu.push_back(file);
    app->menu.emplace_back(QStringLiteral("2"), QStringLiteral("Help"), nullptr);
    QVERIFY(f.start());
    ProtocolClient *client = f.connectClient(QStringLiteral("phone"));
    QVERIFY(client);
    const auto reply
        = f.request(client, req(L::appMenu, { { L::id, QStringLiteral("a") } }), L::appMenu);
    QVERIFY(reply);
    QCOMPARE(reply->object(),
        QJsonObject({ { L::method, L::appMenu }, { L::id, QStringLiteral("a") } }));
    QCOMPARE(reply->parts.size(), 1);
    QCOMPARE(reply->parts.at(0).first, qint8(Server::Json));
    QCOMPARE(reply->parts.at(0).second,
        QByteArray(
            "[{\"i\":\"1\",\"m\":[{\"i\":\"1.1\",\"n\":\"Open\"},{\"i\":\"1.2\",\"n\":\"Save\"}],"
            "\"n\":\"File\"},{\"i\":\"2\",\"n\":\"Help\"}]"));
}

void TestHandlers::emptyMenuIsEmptyArray()
{
    CoreFixture f;
    f.platform->addApp(QStringLiteral("a"), QStringLiteral("A"));
    QVERIFY(f.start());
    ProtocolClient *client = f.connectClient(QStringLiteral("phone"));
    QVERIFY(client);
    const auto reply
        = f.request(client, req(L::appMenu, { { L::id, QStringLiteral("a") } }), L::appMenu);
    QVERIFY(reply);
    QCOMPARE(reply->parts.at(0).second, QByteArray("[]"));
}

void TestHandlers::menuWithoutIdNotAnswered()
{
    CoreFixture f;
    FakeApp *app = f.platform->addApp(QStringLiteral("a"), QStringLiteral("A"));
    f.platform->setCurrentApp(app);
    app->calls.clear();
    QVERIFY(f.start());
    ProtocolClient *client = f.connectClient(QStringLiteral("phone"));
    QVERIFY(client);
    QVERIFY(f.requestAndSettle(client, req(L::appMenu)));
    QCOMPARE(client->framesWith(L::appMenu).size(), 0);
    QVERIFY(app->calls.isEmpty());
}

void TestHandlers::performMenu()
{
    CoreFixture f;
    FakeApp *app = f.platform->addApp(QStringLiteral("a"), QStringLiteral("A"));
    QVERIFY(f.start());
    ProtocolClient *client = f.connectClient(QStringLiteral("phone"));
    QVERIFY(client);
    QVERIFY(f.requestAndSettle(client,
        req(L::performMenu,
            { { L::id, QStringLiteral("a") }, { QStringLiteral("m"), QStringLiteral("1.2") } })));
    QCOMPARE(app->calls, QStringList { QStringLiteral("performMenu(1.2)") });
    QCOMPARE(client->framesWith(L::performMenu).size(), 0);
}

void TestHandlers::focusValueQueryFallsBackToCurrent()
{
    CoreFixture f;
    FakeApp *app = f.platform->addApp(QStringLiteral("a"), QStringLiteral("A"));
    f.platform->setCurrentApp(app);
    app->focusValue = QStringLiteral("first line\nsecond line");
    QVERIFY(f.start());
    ProtocolClient *client = f.connectClient(QStringLiteral("phone"));
    QVERIFY(client);
    const auto reply = f.request(client, req(L::focusValue), L::focusedElement);
    QVERIFY(reply);
    QCOMPARE(reply->object(),
        QJsonObject({ { L::method, L::focusedElement }, { L::id, QString() },
            { L::value, QStringLiteral("first line\nsecond line") } }));
    QCOMPARE(client->framesWith(L::focusValue).size(), 0);
}

void TestHandlers::focusValueSetNotAnswered()
{
    CoreFixture f;
    FakeApp *app = f.platform->addApp(QStringLiteral("a"), QStringLiteral("A"));
    QVERIFY(f.start());
    ProtocolClient *client = f.connectClient(QStringLiteral("phone"));
    QVERIFY(client);
    QVERIFY(f.requestAndSettle(client,
        req(L::focusValue,
            { { L::id, QStringLiteral("a") }, { L::value, QStringLiteral("hello") } })));
    QCOMPARE(app->calls, QStringList { QStringLiteral("setFocusValue(hello)") });
    QCOMPARE(client->framesWith(L::focusedElement).size(), 0);
}

void TestHandlers::focusPerform()
{
    CoreFixture f;
    FakeApp *app = f.platform->addApp(QStringLiteral("a"), QStringLiteral("A"));
    f.platform->setCurrentApp(app);
    app->calls.clear();
    QVERIFY(f.start());
    ProtocolClient *client = f.connectClient(QStringLiteral("phone"));
    QVERIFY(client);
    QVERIFY(f.requestAndSettle(client, req(L::performFocus)));
    QCOMPARE(app->calls, QStringList { QStringLiteral("performFocusedElement") });
}

void TestHandlers::listingOfHomeWhenNoPath()
{
    QTemporaryDir home;
    QFile(home.filePath(QStringLiteral("note.txt"))).open(QIODevice::WriteOnly);
    const QByteArray oldHome = qgetenv("HOME");
    qputenv("HOME", home.path().toUtf8());
    CoreFixture f;
    QVERIFY(f.start());
    ProtocolClient *client = f.connectClient(QStringLiteral("phone"));
    QVERIFY(client);
    const auto reply = f.request(client, req(L::directoryListing), L::directoryListing);
    qputenv("HOME", oldHome);
    QVERIFY(reply);
    QCOMPARE(reply->object().value(L::path).toString(), home.path());
    QCOMPARE(reply->object().value(L::name).toString(), QDir(home.path()).dirName());
    const QJsonArray expected { QJsonObject { { L::name, QStringLiteral("note.txt") } } };
    QCOMPARE(reply->object().value(L::files).toArray(), expected);
}

void TestHandlers::listingOrderAndTypes()
{
    QTemporaryDir dir;
    QDir root(dir.path());
    for (const char *folder : { "beta", "Alpha", "Tools.app", "Loud.APP", ".hidden-folder" })
        QVERIFY(root.mkdir(QString::fromLatin1(folder)));
    for (const char *file : { "zeta.txt", "Apple.txt", "banana.txt", ".profile" })
        QVERIFY(QFile(root.filePath(QString::fromLatin1(file))).open(QIODevice::WriteOnly));
    QVERIFY(QFile::link(
        root.filePath(QStringLiteral("nowhere")), root.filePath(QStringLiteral("dangling"))));
    QVERIFY(QFile::link(
        root.filePath(QStringLiteral("beta")), root.filePath(QStringLiteral("link-to-beta"))));

    CoreFixture f;
    QVERIFY(f.start());
    ProtocolClient *client = f.connectClient(QStringLiteral("phone"));
    QVERIFY(client);
    const auto reply = f.request(
        client, req(L::directoryListing, { { L::path, dir.path() } }), L::directoryListing);
    QVERIFY(reply);
    const QString d = QStringLiteral("d");
    const QJsonArray expected {
        QJsonObject { { L::name, QStringLiteral("Alpha") }, { L::type, d } },
        QJsonObject { { L::name, QStringLiteral("beta") }, { L::type, d } },
        QJsonObject { { L::name, QStringLiteral("link-to-beta") }, { L::type, d } },
        QJsonObject { { L::name, QStringLiteral("Loud.APP") }, { L::type, d } },
        QJsonObject { { L::name, QStringLiteral("Tools.app") } },
        QJsonObject { { L::name, QStringLiteral("Apple.txt") } },
        QJsonObject { { L::name, QStringLiteral("banana.txt") } },
        QJsonObject { { L::name, QStringLiteral("zeta.txt") } },
    };
    QCOMPARE(reply->object().value(L::files).toArray(), expected);
    // The same order QDir gives with the same rules.
    QStringList names;
    for (const QJsonValue &entry : expected)
        names << entry.toObject().value(L::name).toString();
    QCOMPARE(QDir(dir.path())
                 .entryList(QDir::Dirs | QDir::Files | QDir::Drives | QDir::NoDotAndDotDot,
                     QDir::Name | QDir::DirsFirst | QDir::IgnoreCase | QDir::LocaleAware),
        names);
}

void TestHandlers::listingOfMissingDirectory()
{
    CoreFixture f;
    QVERIFY(f.start());
    ProtocolClient *client = f.connectClient(QStringLiteral("phone"));
    QVERIFY(client);
    const auto reply = f.request(client,
        req(L::directoryListing, { { L::path, QStringLiteral("/no/such/dir") } }),
        L::directoryListing);
    QVERIFY(reply);
    QCOMPARE(reply->object().value(L::files).toArray(), QJsonArray());
    QCOMPARE(reply->object().value(L::name).toString(), QStringLiteral("dir"));
}

void TestHandlers::listingEscapesNames()
{
    QTemporaryDir dir;
    const QStringList names { QStringLiteral("quote\"d"), QStringLiteral("back\\slash"),
        QStringLiteral("line\nfeed"), QStringLiteral("tab\there"), QStringLiteral("ünïcødé ☃"),
        QStringLiteral("ctrl\x01char") };
    for (const QString &name : names)
        QVERIFY2(QFile(dir.filePath(name)).open(QIODevice::WriteOnly), qPrintable(name));
    CoreFixture f;
    QVERIFY(f.start());
    ProtocolClient *client = f.connectClient(QStringLiteral("phone"));
    QVERIFY(client);
    const auto reply = f.request(
        client, req(L::directoryListing, { { L::path, dir.path() } }), L::directoryListing);
    QVERIFY(reply);
    QStringList listed;
    for (const QJsonValue &entry : reply->object().value(L::files).toArray())
        listed << entry.toObject().value(L::name).toString();
    QStringList expected = names;
    expected.sort(Qt::CaseInsensitive);
    listed.sort(Qt::CaseInsensitive);
    QCOMPARE(listed, expected);
    // The text is what QJsonDocument would have written for the same object.
    QCOMPARE(reply->json, QJsonDocument(reply->object()).toJson(QJsonDocument::Compact));
}

void TestHandlers::fileIconSizes()
{
    CoreFixture f;
    f.platform->fakeFiles->setType(QStringLiteral("/tmp/a.txt"), QStringLiteral("text/plain"));
    f.platform->typeIcons.insert(QStringLiteral("text/plain"), solid(32, 32));
    QVERIFY(f.start());
    ProtocolClient *client = f.connectClient(QStringLiteral("phone"));
    QVERIFY(client);
    QVERIFY(f.requestAndSettle(
        client, req(L::fileIcon, { { L::path, QStringLiteral("/tmp/a.txt") }, { L::size, 8 } })));
    QCOMPARE(client->framesWith(L::fileIcon).size(), 0);
    // Too small to answer: the file is not even looked at.
    QCOMPARE(f.platform->fakeFiles->calls(), QStringList());
    const auto reply = f.request(client,
        req(L::fileIcon, { { L::path, QStringLiteral("/tmp/a.txt") }, { L::size, 32 } }),
        L::fileIcon);
    QVERIFY(reply);
    QCOMPARE(reply->object(),
        QJsonObject({ { L::method, L::fileIcon }, { L::size, 32 },
            { L::path, QStringLiteral("/tmp/a.txt") } }));
    QCOMPARE(decodePng(reply->parts.at(0).second).size(), QSize(32, 32));
    QCOMPARE(
        f.platform->fakeFiles->calls(), QStringList { QStringLiteral("typeOfFile(/tmp/a.txt)") });
    // No icon at all: no answer.
    client->send(req(L::fileIcon, { { L::path, QStringLiteral("/tmp/none") }, { L::size, 32 } }));
    QTRY_VERIFY(f.platform->calls.contains(QStringLiteral("iconForFileType(,32)")));
    QVERIFY(f.requestAndSettle(client, req(L::unsupported)));
    QCOMPARE(client->framesWith(L::fileIcon).size(), 1);
}

void TestHandlers::fileIconByType()
{
    CoreFixture f;
    f.platform->typeIcons.insert(QStringLiteral("pdf"), solid(48, 48));
    QVERIFY(f.start());
    ProtocolClient *client = f.connectClient(QStringLiteral("phone"));
    QVERIFY(client);
    const auto reply = f.request(client,
        req(L::fileIcon, { { L::type, QStringLiteral("pdf") }, { L::size, 48 } }), L::fileIcon);
    QVERIFY(reply);
    QCOMPARE(reply->object(),
        QJsonObject(
            { { L::method, L::fileIcon }, { L::size, 48 }, { L::type, QStringLiteral("pdf") } }));
    QVERIFY(f.platform->calls.contains(QStringLiteral("iconForFileType(pdf,48)")));
}

void TestHandlers::previewAlwaysAnswered()
{
    CoreFixture f;
    f.platform->fakeFiles->setPreview(QStringLiteral("/p.png"), solid(40, 30).toImage());
    QVERIFY(f.start());
    ProtocolClient *client = f.connectClient(QStringLiteral("phone"));
    QVERIFY(client);
    const auto none = f.request(client,
        req(L::filePreview,
            { { L::path, QStringLiteral("/doc.pdf") }, { L::width, 100 }, { L::height, 100 } }),
        L::filePreview);
    QVERIFY(none);
    QCOMPARE(none->object(),
        QJsonObject({ { L::method, L::filePreview }, { L::path, QStringLiteral("/doc.pdf") },
            { L::width, 100 }, { L::height, 100 } }));
    QCOMPARE(none->parts.size(), 1);
    QVERIFY(none->parts.at(0).second.isEmpty());
    const auto some = f.request(
        client, req(L::filePreview, { { L::path, QStringLiteral("/p.png") } }), L::filePreview);
    QVERIFY(some);
    QCOMPARE(decodePng(some->parts.at(0).second).size(), QSize(40, 30));
    QVERIFY(f.platform->fakeFiles->calls().contains(QStringLiteral("previewForFile(/p.png,0,0)")));
    QVERIFY(f.requestAndSettle(client, req(L::filePreview, { { L::width, 10 } })));
    QCOMPARE(client->framesWith(L::filePreview).size(), 2);
}

void TestHandlers::fileAppsAndOpen()
{
    CoreFixture f;
    FakeApp *editor = f.platform->addApp(QStringLiteral("editor"), QStringLiteral("Editor"));
    FakeApp *viewer = f.platform->addApp(QStringLiteral("viewer"), QStringLiteral("Viewer"));
    f.platform->fakeFiles->setType(QStringLiteral("/x.txt"), QStringLiteral("text/plain"));
    f.platform->fakeFiles->setType(QStringLiteral("/y.txt"), QStringLiteral("text/plain"));
    f.platform->typeApps.insert(QStringLiteral("text/plain"), { viewer, editor });
    QVERIFY(f.start());
    ProtocolClient *client = f.connectClient(QStringLiteral("phone"));
    QVERIFY(client);
    const auto reply = f.request(
        client, req(L::fileApps, { { L::path, QStringLiteral("/x.txt") } }), L::fileApps);
    QVERIFY(reply);
    QCOMPARE(reply->object().value(L::path).toString(), QStringLiteral("/x.txt"));
    QCOMPARE(reply->object().value(L::apps).toArray(),
        (QJsonArray { QJsonObject { { L::id, QStringLiteral("viewer") } },
            QJsonObject { { L::id, QStringLiteral("editor") } } }));
    // A missing file has no type and no applications.
    const auto missing = f.request(
        client, req(L::fileApps, { { L::path, QStringLiteral("/gone.txt") } }), L::fileApps);
    QVERIFY(missing);
    QCOMPARE(missing->object().value(L::apps).toArray(), QJsonArray());

    QVERIFY(f.requestAndSettle(client,
        req(L::fileOpen,
            { { L::path, QStringLiteral("/x.txt") }, { L::id, QStringLiteral("editor") } })));
    QVERIFY(f.platform->calls.contains(QStringLiteral("openFile(/x.txt,,editor)")));
    // With a chosen application the file is not read at all.
    QCOMPARE(f.platform->fakeFiles->calls().count(QStringLiteral("typeOfFile(/x.txt)")), 1);
    client->send(req(L::fileOpen, { { L::path, QStringLiteral("/y.txt") } }));
    QTRY_VERIFY(f.platform->calls.contains(QStringLiteral("openFile(/y.txt,text/plain,)")));
    QVERIFY(f.requestAndSettle(client, req(L::unsupported)));
    QCOMPARE(client->framesWith(L::fileOpen).size(), 0);
}

namespace {
QJsonObject previewRequest(const QString &path)
{
    return req(L::filePreview, { { L::path, path }, { L::width, 64 }, { L::height, 64 } });
}

QStringList previewPaths(ProtocolClient *client)
{
    QStringList paths;
    for (const Frame &frame : client->framesWith(L::filePreview))
        paths << frame.object().value(L::path).toString();
    return paths;
}

// Starts f with two clients, "phone" (the asker) and "tablet", and has the asker ask for
// previews of the held paths; true once every one of them waits on its file.
bool askForHeld(
    CoreFixture &f, const QStringList &held, ProtocolClient *&asker, ProtocolClient *&other)
{
    for (const QString &path : held)
        f.platform->fakeFiles->hold(path);
    if (!f.start())
        return false;
    asker = f.connectClient(QStringLiteral("phone"));
    other = f.connectClient(QStringLiteral("tablet"));
    if (!asker || !other)
        return false;
    for (const QString &path : held)
        asker->send(previewRequest(path));
    return QTest::qWaitFor([&] { return f.platform->fakeFiles->waiting() == held.size(); });
}

// Lets every held path go and waits until no file work is left over for the next test.
void letGoAll(FakeFiles *files, const QStringList &paths)
{
    for (const QString &path : paths)
        files->letGo(path);
    QTRY_COMPARE(files->waiting(), 0);
    QTRY_COMPARE(FileWork::stuck(), 0);
}
} // namespace

void TestHandlers::fileWorkLeavesOtherClientsServed()
{
    CoreFixture f;
    f.platform->fakeFiles->hold(QStringLiteral("/hung/a.png"));
    f.platform->fakeFiles->setPreview(QStringLiteral("/hung/a.png"), solid(8, 8).toImage());
    f.platform->typeIcons.insert(QStringLiteral("pdf"), solid(16, 16));
    QVERIFY(f.start());
    ProtocolClient *asker = f.connectClient(QStringLiteral("phone"));
    ProtocolClient *other = f.connectClient(QStringLiteral("tablet"));
    QVERIFY(asker && other);
    asker->send(previewRequest(QStringLiteral("/hung/a.png")));
    QTRY_COMPARE(f.platform->fakeFiles->waiting(), 1);
    // The other client, and the asker itself, are answered while the file does not answer.
    QVERIFY(f.request(other, req(L::volume), L::volume));
    QVERIFY(f.request(asker,
        req(L::fileIcon, { { L::type, QStringLiteral("pdf") }, { L::size, 16 } }), L::fileIcon));
    QCOMPARE(asker->framesWith(L::filePreview).size(), 0);
    letGoAll(f.platform->fakeFiles.get(), { QStringLiteral("/hung/a.png") });
    QTRY_COMPARE(asker->framesWith(L::filePreview).size(), 1);
    QCOMPARE(
        decodePng(asker->framesWith(L::filePreview).at(0).parts.at(0).second).size(), QSize(8, 8));
}

void TestHandlers::fileRequestsOfOneClientWaitInOrder()
{
    CoreFixture f;
    FakeFiles *files = f.platform->fakeFiles.get();
    const QStringList held { QStringLiteral("/h/1.png"), QStringLiteral("/h/2.png") };
    ProtocolClient *asker = nullptr;
    ProtocolClient *other = nullptr;
    QVERIFY(askForHeld(f, held, asker, other));
    const QStringList next { QStringLiteral("/w/3.png"), QStringLiteral("/w/4.png"),
        QStringLiteral("/w/5.png") };
    for (const QString &path : next)
        asker->send(previewRequest(path));
    // Another client's file request does not wait behind them.
    const auto answered
        = f.request(other, previewRequest(QStringLiteral("/o.png")), L::filePreview);
    QVERIFY(answered);
    QCOMPARE(answered->object().value(L::path).toString(), QStringLiteral("/o.png"));
    // The asker's next requests wait for a free place: not one has been started.
    QVERIFY(f.requestAndSettle(asker, req(L::unsupported)));
    for (const QString &path : next)
        QVERIFY2(!files->calls().join(QLatin1Char(' ')).contains(path), qPrintable(path));
    QCOMPARE(asker->framesWith(L::filePreview).size(), 0);

    files->letGo(held.at(1));
    // The second is answered, and the waiting ones follow in the order they were asked.
    QTRY_COMPARE(asker->framesWith(L::filePreview).size(), 4);
    QCOMPARE(previewPaths(asker), QStringList({ held.at(1) }) + next);
    // The other client's request ran beside the asker's two.
    QCOMPARE(files->mostAtOnce(), FileWork::perClient + 1);
    letGoAll(files, held);
    QTRY_COMPARE(asker->framesWith(L::filePreview).size(), 5);
    QCOMPARE(previewPaths(asker).last(), held.at(0));
}

void TestHandlers::lateFileWorkGetsTheFailedAnswer()
{
    CoreFixture f;
    FakeFiles *files = f.platform->fakeFiles.get();
    FakeApp *viewer = f.platform->addApp(QStringLiteral("viewer"), QStringLiteral("Viewer"));
    const QString path = QStringLiteral("/mnt/hung/photo.png");
    files->hold(path);
    files->setType(path, QStringLiteral("image/png"));
    files->setPreview(path, solid(8, 8).toImage());
    f.platform->typeIcons.insert(QStringLiteral("image/png"), solid(16, 16));
    f.platform->typeApps.insert(QStringLiteral("image/png"), { viewer });
    QVERIFY(f.start());
    FileWork::of(f.core->server)->setTimeLimit(300);
    ProtocolClient *client = f.connectClient(QStringLiteral("phone"));
    QVERIFY(client);
    LogCapture log;
    client->send(previewRequest(path));
    client->send(req(L::fileApps, { { L::path, path } }));
    // No preview, and no applications, once the time is up.
    QTRY_COMPARE(client->framesWith(L::filePreview).size(), 1);
    QVERIFY(client->framesWith(L::filePreview).at(0).parts.at(0).second.isEmpty());
    QTRY_COMPARE(client->framesWith(L::fileApps).size(), 1);
    QCOMPARE(client->framesWith(L::fileApps).at(0).object().value(L::apps).toArray(), QJsonArray());
    QCOMPARE(log.count(QStringLiteral("Gave up on fp /mnt/hung/photo.png after 300 ms")), 1);
    QTRY_COMPARE(FileWork::stuck(), 2);
    // An icon without the file's type in time is not sent at all.
    client->send(req(L::fileIcon, { { L::path, path }, { L::size, 16 } }));
    QTRY_COMPARE(log.count(QStringLiteral("Gave up on fi /mnt/hung/photo.png after 300 ms")), 1);
    QVERIFY(f.requestAndSettle(client, req(L::unsupported)));
    QCOMPARE(client->framesWith(L::fileIcon).size(), 0);

    // When the file answers at last, nothing more is sent and the threads are back.
    letGoAll(files, { path });
    QVERIFY(f.requestAndSettle(client, req(L::unsupported)));
    QCOMPARE(client->framesWith(L::filePreview).size(), 1);
    QCOMPARE(client->framesWith(L::fileApps).size(), 1);
    QCOMPARE(client->framesWith(L::fileIcon).size(), 0);
    QVERIFY(!f.platform->calls.contains(QStringLiteral("iconForFileType(image/png,16)")));
}

void TestHandlers::fileWorkOfALeavingClientIsDropped()
{
    CoreFixture f;
    FakeFiles *files = f.platform->fakeFiles.get();
    const QStringList held { QStringLiteral("/h/1.png"), QStringLiteral("/h/2.png") };
    ProtocolClient *leaving = nullptr;
    ProtocolClient *staying = nullptr;
    QVERIFY(askForHeld(f, held, leaving, staying));
    leaving->send(previewRequest(QStringLiteral("/w/never.png")));
    QVERIFY(f.requestAndSettle(leaving, req(L::unsupported)));
    leaving->close();
    QTRY_COMPARE(f.core->server->getClients().size(), 1);
    letGoAll(files, held);
    QVERIFY(f.request(staying, previewRequest(QStringLiteral("/o.png")), L::filePreview));
    // The request that waited behind the others was never started.
    QVERIFY(!files->calls().join(QLatin1Char(' ')).contains(QStringLiteral("/w/never.png")));
}

void TestHandlers::stuckFileWorkIsBounded()
{
    CoreFixture f;
    FakeFiles *files = f.platform->fakeFiles.get();
    QVERIFY(f.start());
    FileWork::of(f.core->server)->setTimeLimit(100);
    QStringList held;
    QList<ProtocolClient *> clients;
    LogCapture log;
    for (int i = 0; i < FileWork::maxStuck / FileWork::perClient; ++i) {
        ProtocolClient *client = f.connectClient(QStringLiteral("device-%1").arg(i));
        QVERIFY(client);
        clients << client;
        for (int j = 0; j < FileWork::perClient; ++j) {
            held << QStringLiteral("/mnt/hung/%1-%2.png").arg(i).arg(j);
            files->hold(held.last());
            client->send(previewRequest(held.last()));
        }
        // Each stuck request got a thread of its own: the next ones start at once.
        QTRY_COMPARE(files->waiting(), held.size());
        QTRY_COMPARE(FileWork::stuck(), held.size());
        QCOMPARE(previewPaths(client).size(), FileWork::perClient);
    }
    QCOMPARE(files->waiting(), FileWork::maxStuck);
    // Now even a healthy file fails at once, and says why once.
    f.platform->fakeFiles->setPreview(QStringLiteral("/ok.png"), solid(8, 8).toImage());
    const auto refused
        = f.request(clients.at(0), previewRequest(QStringLiteral("/ok.png")), L::filePreview);
    QVERIFY(refused);
    QVERIFY(refused->parts.at(0).second.isEmpty());
    QCOMPARE(log.count(QStringLiteral("16 file requests have not returned (a mount that does "
                                      "not answer?): file requests fail until they do")),
        1);
    QVERIFY(!files->calls().contains(QStringLiteral("previewForFile(/ok.png,64,64)")));

    letGoAll(files, held);
    const auto served
        = f.request(clients.at(0), previewRequest(QStringLiteral("/ok.png")), L::filePreview);
    QVERIFY(served);
    QVERIFY(!served->parts.at(0).second.isEmpty());
}

void TestHandlers::waitingFileWorkIsBounded()
{
    CoreFixture f;
    FakeFiles *files = f.platform->fakeFiles.get();
    const QString hung = QStringLiteral("/mnt/hung/a.png");
    files->hold(hung);
    QVERIFY(f.start());
    ProtocolClient *client = f.connectClient(QStringLiteral("phone"));
    QVERIFY(client);
    for (int i = 0; i < FileWork::perClient; ++i)
        client->send(previewRequest(hung));
    for (int i = 0; i < FileWork::maxWaiting; ++i)
        client->send(previewRequest(QStringLiteral("/w/%1.png").arg(i)));
    // One more than may wait is answered at once, with no preview.
    client->send(previewRequest(QStringLiteral("/over.png")));
    QTRY_COMPARE(client->framesWith(L::filePreview).size(), 1);
    QCOMPARE(previewPaths(client), QStringList { QStringLiteral("/over.png") });
    letGoAll(files, { hung });
    QTRY_COMPARE(
        client->framesWith(L::filePreview).size(), 1 + FileWork::perClient + FileWork::maxWaiting);
}

void TestHandlers::volumeQueryAndSet()
{
    CoreFixture f;
    f.platform->volume = 42;
    QVERIFY(f.start());
    ProtocolClient *client = f.connectClient(QStringLiteral("phone"));
    QVERIFY(client);
    ProtocolClient *other = f.connectClient(QStringLiteral("tablet"));
    QVERIFY(other);
    const auto reply = f.request(client, req(L::volume), L::volume);
    QVERIFY(reply);
    QCOMPARE(reply->object(), QJsonObject({ { L::method, L::volume }, { L::value, 42 } }));
    QVERIFY(reply->object().value(L::value).isDouble());
    QVERIFY(f.requestAndSettle(client, req(L::volume, { { L::value, 30 } })));
    QCOMPARE(client->framesWith(L::volume).size(), 1);
    QVERIFY(f.platform->calls.contains(QStringLiteral("setVolume(30)")));
    // The platform reports the change: every client hears it.
    f.platform->volume = 30;
    emit f.platform->volumeChanged();
    QTRY_COMPARE(client->framesWith(L::volume).size(), 2);
    QTRY_COMPARE(other->framesWith(L::volume).size(), 1);
    QCOMPARE(other->framesWith(L::volume).at(0).object(),
        QJsonObject({ { L::method, L::volume }, { L::value, 30 } }));
}

void TestHandlers::volumeFromStringIsZero()
{
    CoreFixture f;
    QVERIFY(f.start());
    ProtocolClient *client = f.connectClient(QStringLiteral("phone"));
    QVERIFY(client);
    QVERIFY(f.requestAndSettle(client, req(L::volume, { { L::value, QStringLiteral("50") } })));
    QVERIFY(f.platform->calls.contains(QStringLiteral("setVolume(0)")));
    QVERIFY(f.requestAndSettle(client, req(L::volume, { { L::value, 150 } })));
    QVERIFY(f.platform->calls.contains(QStringLiteral("setVolume(150)")));
}

void TestHandlers::muteIsBoolean()
{
    CoreFixture f;
    f.platform->muted = true;
    QVERIFY(f.start());
    ProtocolClient *client = f.connectClient(QStringLiteral("phone"));
    QVERIFY(client);
    const auto reply = f.request(client, req(L::volumeMute), L::volumeMute);
    QVERIFY(reply);
    QVERIFY(reply->object().value(L::value).isBool());
    QCOMPARE(reply->object().value(L::value).toBool(), true);
    QVERIFY(f.requestAndSettle(client, req(L::volumeMute, { { L::value, 1 } })));
    QVERIFY(f.platform->calls.contains(QStringLiteral("setVolumeMute(false)")));
    QVERIFY(f.requestAndSettle(client, req(L::volumeMute, { { L::value, true } })));
    QVERIFY(f.platform->calls.contains(QStringLiteral("setVolumeMute(true)")));
}

void TestHandlers::brightnessQueryAndSet()
{
    CoreFixture f;
    f.platform->brightness = 70;
    QVERIFY(f.start());
    ProtocolClient *client = f.connectClient(QStringLiteral("phone"));
    QVERIFY(client);
    const auto reply = f.request(client, req(L::brightness), L::brightness);
    QVERIFY(reply);
    QCOMPARE(reply->object().value(L::value).toInt(), 70);
    QVERIFY(f.requestAndSettle(client, req(L::brightness, { { L::value, 20 } })));
    QVERIFY(f.platform->calls.contains(QStringLiteral("setBrightness(20)")));
    f.platform->brightness = 20;
    emit f.platform->brightnessChanged();
    QTRY_COMPARE(client->framesWith(L::brightness).size(), 2);
    QCOMPARE(client->framesWith(L::brightness).at(1).object().value(L::value).toInt(), 20);
}

void TestHandlers::lockFalseDoesNothing()
{
    CoreFixture f;
    QVERIFY(f.start());
    ProtocolClient *client = f.connectClient(QStringLiteral("phone"));
    QVERIFY(client);
    QVERIFY(f.requestAndSettle(client, req(L::screenLock, { { L::value, false } })));
    QVERIFY(!f.platform->calls.contains(QStringLiteral("lockScreen")));
    QCOMPARE(client->framesWith(L::screenLock).size(), 0);
    QVERIFY(f.requestAndSettle(client, req(L::screenLock, { { L::value, true } })));
    QVERIFY(f.platform->calls.contains(QStringLiteral("lockScreen")));
    const auto state = f.request(client, req(L::screenLock), L::screenLock);
    QVERIFY(state);
    QCOMPARE(state->object(), QJsonObject({ { L::method, L::screenLock }, { L::value, false } }));
    f.platform->locked = true;
    emit f.platform->screenLockChanged();
    QTRY_COMPARE(client->framesWith(L::screenLock).size(), 2);
    QCOMPARE(client->framesWith(L::screenLock).at(1).object().value(L::value).toBool(), true);
}

void TestHandlers::unsupportedList()
{
    CoreFixture f;
    QVERIFY(f.start());
    ProtocolClient *client = f.connectClient(QStringLiteral("phone"));
    QVERIFY(client);
    const auto empty = f.request(client, req(L::unsupported), L::unsupported);
    QVERIFY(empty);
    QCOMPARE(empty->object(),
        QJsonObject({ { L::method, L::unsupported }, { L::value, QJsonArray() } }));
    const int before = client->framesWith(L::unsupported).size();
    f.platform->setUnsupportedList({ L::brightness, L::appMenu });
    QTRY_COMPARE(client->framesWith(L::unsupported).size(), before + 1);
    QCOMPARE(client->framesWith(L::unsupported).last().object().value(L::value).toArray(),
        (QJsonArray { L::brightness, L::appMenu }));
}

void TestHandlers::platformChangeReachesOnlyAuthenticated()
{
    CoreFixture f;
    f.platform->volume = 12;
    QVERIFY(f.start());
    ProtocolClient *client = f.connectClient(QStringLiteral("phone"));
    QVERIFY(client);
    ProtocolClient *stranger = f.connectStranger(QStringLiteral("stranger"));
    QVERIFY(stranger);
    emit f.platform->volumeChanged();
    emit f.platform->installedAppsChanged();
    QTRY_COMPARE(client->framesWith(L::volume).size(), 1);
    QTRY_VERIFY(!client->framesWith(L::installedApps).isEmpty());
    // What reached the stranger, it got before anything pushed after it: only "wa".
    f.core->server->sendMessage(
        f.core->server->getPendingSocket(), QStringLiteral("marker"), QJsonObject());
    QTRY_COMPARE(stranger->framesWith(QStringLiteral("marker")).size(), 1);
    QCOMPARE(stranger->frames.size(), 2);
    QCOMPARE(stranger->frames.first().method(), L::waitingForAuth);
}

void TestHandlers::systemCommandsReachThePlatform()
{
    CoreFixture f;
    QVERIFY(f.start());
    ProtocolClient *client = f.connectClient(QStringLiteral("phone"));
    QVERIFY(client);
    const int framesBefore = client->frames.size();
    for (const QString &code : { L::sleep, L::logout, L::restart, L::shutdown, L::playPause,
             L::previousTrack, L::nextTrack })
        QVERIFY(f.requestAndSettle(client, req(code, { { L::value, 1 } })));
    for (const char *call :
        { "sleep", "logout", "restart", "shutdown", "playPause", "previousTrack", "nextTrack" })
        QVERIFY2(f.platform->calls.contains(QString::fromLatin1(call)), call);
    // Only the markers were answered.
    QCOMPARE(client->frames.size(), framesBefore + 7);
    LogCapture log;
    QVERIFY(f.requestAndSettle(client, req(QStringLiteral("zz"))));
    QCOMPARE(log.count(QStringLiteral("Unhandled message \"zz\"")), 1);
}

void TestHandlers::messageInTheTurnOfStartIsUnhandled()
{
    CoreFixture f;
    f.core->start();
    QVERIFY(f.core->server);
    // The handlers exist but register on the next turn: a message now finds none.
    QWebSocket socket;
    LogCapture log;
    f.core->server->dispatch(&socket, "{\"_\":\"au\",\"h\":\"00\"}");
    QCOMPARE(log.count(QStringLiteral("Unhandled request")), 1);
    QCOMPARE(log.count(QStringLiteral("Unhandled message \"au\"")), 1);
    QTRY_VERIFY(f.core->server->handler(L::auth));
    QVERIFY(f.core->server->handler(L::installedApps));
    QVERIFY(!f.core->server->handler(L::runningApps));
    QVERIFY(!f.core->server->handler(L::siteIcon));
}

QTEST_MAIN(TestHandlers)
#include "tst_handlers.moc"

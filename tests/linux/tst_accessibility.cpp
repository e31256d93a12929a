#include "accessibility.h"
#include "app.h"
#include "core.h"
#include "httpfixture.h"
#include "l.h"
#include "linuxapp.h"
#include "linuxplatform.h"
#include "logcapture.h"
#include "protocolclient.h"
#include "server.h"
#include "serverfixture.h"
#include "testenvironment.h"

#include <QApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVariant>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QProcess>
#include <QSettings>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

namespace {
const QString gtkApp = QStringLiteral(VELM_A11Y_DIR "/gtk_app.py");
const QString qtApp = QStringLiteral(VELM_A11Y_QT_APP);
const QString probeWindow = QStringLiteral(VELM_PROBE_WINDOW);

QString run(const QString &program, const QStringList &arguments)
{
    QProcess process;
    process.start(program, arguments);
    process.waitForFinished(10000);
    return QString::fromUtf8(process.readAllStandardOutput()).trimmed();
}

// A test application and the log of what it received.
struct TestApp
{
    QString log;
    QProcess process;

    QStringList lines() const
    {
        QFile file(log);
        if (!file.open(QIODevice::ReadOnly))
            return {};
        return QString::fromUtf8(file.readAll()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    }
    ~TestApp()
    {
        process.kill();
        process.waitForFinished(3000);
    }
};

// Names of a menu tree, as "File(New,Recent(First File,Second File))".
QString shape(const QJsonArray &items)
{
    QStringList parts;
    for (const QJsonValue &value : items) {
        const QJsonObject item = value.toObject();
        QString part = item.value(L::name).toString();
        if (item.contains(QStringLiteral("m")))
            part += QLatin1Char('(') + shape(item.value(QStringLiteral("m")).toArray())
                + QLatin1Char(')');
        parts << part;
    }
    return parts.join(QLatin1Char(','));
}

QString findId(const QJsonArray &items, const QString &name)
{
    for (const QJsonValue &value : items) {
        const QJsonObject item = value.toObject();
        if (item.value(L::name).toString() == name)
            return item.value(L::id).toString();
        const QString below = findId(item.value(QStringLiteral("m")).toArray(), name);
        if (!below.isEmpty())
            return below;
    }
    return QString();
}

// Every identifier below the top level is a decimal number; the top level has none.
bool idsWellFormed(const QJsonArray &items, bool top)
{
    for (const QJsonValue &value : items) {
        const QJsonObject item = value.toObject();
        const QString id = item.value(L::id).toString();
        bool number = false;
        id.toLongLong(&number);
        if (top ? !id.isEmpty() : !number)
            return false;
        if (!idsWellFormed(item.value(QStringLiteral("m")).toArray(), false))
            return false;
    }
    return true;
}
} // namespace

// Menus, the focused element and a browser's page of real GTK 3 and Qt 5 applications through
// the rig's accessibility bus, over the wire.
class TestAccessibility : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanupTestCase();
    void cleanup();
    void menus_data();
    void menus();
    void restartedApplicationsMenuIsReadAnew();
    void focusedElement_data();
    void focusedElement();
    void focusMovedQuickly_data();
    void focusMovedQuickly();
    void firstFocusChangeOfAnApplication();
    void returnWithoutAFocusedElement();
    void browserPage();
    void accessibilitySwitchedOff();

private:
    TestApp *start(const QString &program, const QStringList &arguments);
    // Waits until the application of the process is the current one.
    LinuxApp *current(TestApp *app);
    void activate(TestApp *app);
    // Another window takes the front, then the application gets it back.
    bool leaveAndReturn(TestApp *app);
    QJsonArray menuOf(LinuxApp *app);
    // The menu once it is there (a toolkit may take a moment after its window shows to put it
    // on the bus) and its shape starts with `begin`; the last one read after 10 s.
    QJsonArray menuOnceThere(LinuxApp *app, const QString &begin = QString());
    void send(const QJsonObject &message);
    // The focus pushes about one application since `from`.
    QList<Frame> focusFrames(int from, const QString &id) const;

    QTemporaryDir data;
    HttpFixture fixture;
    Core *core = nullptr;
    LinuxPlatform *platform = nullptr;
    ProtocolClient *client = nullptr;
    QList<TestApp *> apps;
    int serial = 0;
};

void TestAccessibility::initTestCase()
{
    TestEnvironment::setUp();
    QSettings().setValue(QStringLiteral("preventSleep"), false);
    // The web service: a command set that makes the test browser a browser, and two sites.
    qputenv("VELM_WS_BASE", fixture.base() + "/ws");
    const auto ok = [](const QByteArray &body) {
        FixtureResponse response;
        response.body = body;
        return response;
    };
    fixture.script("/ws/app?q=velmbrowser", { ok("{\"b\":true}") });
    fixture.script("/ws/web/index.json",
        { ok("{\"i\":[{\"n\":\"Example\",\"d\":\"example.org\"},{\"n\":\"Other\",\"d\":\"other."
             "org\"}]}") });
    fixture.script("/ws/web/example.org.json", { ok("{\"c\":[\"find\"]}") });
    fixture.script("/ws/web/other.org.json", { ok("{\"c\":[\"other\"]}") });

    platform = new LinuxPlatform;
    core = new Core(platform);
    core->start();
    QVERIFY(core->server);
    QTRY_COMPARE(core->websites.size(), 2);
    QVERIFY(platform->permissionsGranted());
    for (const QString &code :
        { L::appMenu, L::performMenu, L::focusValue, L::performFocus, L::focusedElement })
        QVERIFY2(!platform->getUnsupported().contains(code), qPrintable(code));
    Pairing::authorize(QStringLiteral("phone"), QStringLiteral("phone-token"));
    client = new ProtocolClient(QStringLiteral("phone"));
    QVERIFY(Pairing::connectAuthenticated(*client, listeningPort(core->server)));
}

void TestAccessibility::cleanupTestCase()
{
    qDeleteAll(apps);
    delete client;
    delete core;
}

void TestAccessibility::cleanup()
{
    qDeleteAll(apps);
    apps.clear();
}

TestApp *TestAccessibility::start(const QString &program, const QStringList &arguments)
{
    auto *app = new TestApp;
    app->log = data.filePath(QStringLiteral("app-%1.log").arg(++serial));
    app->process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    // The probe window takes its log as an option, the accessibility test applications first.
    const QStringList log = program == probeWindow
        ? QStringList { QStringLiteral("--log"), app->log }
        : QStringList { app->log };
    app->process.start(program, log + arguments);
    apps << app;
    return app;
}

LinuxApp *TestAccessibility::current(TestApp *app)
{
    auto isCurrent = [&] {
        auto *linuxApp = qobject_cast<LinuxApp *>(platform->getCurrentApp());
        return linuxApp && linuxApp->processIds().contains(int(app->process.processId()));
    };
    if (!QTest::qWaitFor(isCurrent, 15000))
        return nullptr;
    return qobject_cast<LinuxApp *>(platform->getCurrentApp());
}

void TestAccessibility::activate(TestApp *app)
{
    const QString window = run(QStringLiteral("xdotool"),
        { QStringLiteral("search"), QStringLiteral("--pid"),
            QString::number(app->process.processId()) })
                               .section(QLatin1Char('\n'), -1);
    run(QStringLiteral("xdotool"), { QStringLiteral("windowactivate"), window });
}

bool TestAccessibility::leaveAndReturn(TestApp *testApp)
{
    App *app = platform->getCurrentApp();
    TestApp *bystander
        = start(probeWindow, { QStringLiteral("--class"), QStringLiteral("bystander") });
    if (!QTest::qWaitFor(
            [&] {
                auto *current = qobject_cast<LinuxApp *>(platform->getCurrentApp());
                return current && current != app
                    && current->processIds().contains(int(bystander->process.processId()));
            },
            10000))
        return false;
    activate(testApp);
    return current(testApp) == app;
}

void TestAccessibility::send(const QJsonObject &message) { client->send(message); }

QJsonArray TestAccessibility::menuOf(LinuxApp *app)
{
    const int from = client->framesWith(L::appMenu).size();
    send(QJsonObject { { L::method, L::appMenu }, { L::id, app->id } });
    if (!QTest::qWaitFor([&] { return client->framesWith(L::appMenu).size() > from; }, 10000))
        return QJsonArray();
    const Frame frame = client->framesWith(L::appMenu).at(from);
    if (frame.parts.isEmpty())
        return QJsonArray();
    return QJsonDocument::fromJson(frame.parts.first().second).array();
}

QList<Frame> TestAccessibility::focusFrames(int from, const QString &id) const
{
    QList<Frame> frames = client->framesWith(L::focusedElement).mid(from);
    frames.erase(std::remove_if(frames.begin(), frames.end(),
                     [&](const Frame &frame) {
                         return frame.object().value(L::id).toString() != id
                             || !frame.object().contains(L::role);
                     }),
        frames.end());
    return frames;
}

QJsonArray TestAccessibility::menuOnceThere(LinuxApp *app, const QString &begin)
{
    QJsonArray menu;
    // The callers check what came; after the time, that is what was read last.
    const bool there = QTest::qWaitFor(
        [&] {
            menu = menuOf(app);
            return !menu.isEmpty() && shape(menu).startsWith(begin);
        },
        10000);
    Q_UNUSED(there)
    return menu;
}

void TestAccessibility::menus_data()
{
    QTest::addColumn<QString>("program");
    QTest::addColumn<QStringList>("arguments");
    QTest::newRow("gtk") << gtkApp << QStringList();
    QTest::newRow("qt") << qtApp << QStringList();
}

void TestAccessibility::menus()
{
    QFETCH(QString, program);
    QFETCH(QStringList, arguments);
    TestApp *testApp = start(program, arguments);
    LinuxApp *app = current(testApp);
    QVERIFY(app);

    // The tree without the disabled entries (nor what is below them) and without separators.
    const QJsonArray menu = menuOnceThere(app);
    QVERIFY(!menu.isEmpty());
    QString expected = QStringLiteral(
        "File(New,Recent(First File,Second File)),Edit(Copy,Paste,Transform(Upper,Case(Title)))");
    if (program == gtkApp)
        expected += QStringLiteral(",Tools(Format(Bold,Size(Large)))");
    QCOMPARE(shape(menu), expected);
    QVERIFY(idsWellFormed(menu, true));

    // Entries of submenus that were never opened, two and three levels below the menu bar.
    QStringList entries { QStringLiteral("Upper"), QStringLiteral("Title") };
    if (program == gtkApp)
        entries << QStringLiteral("bold") << QStringLiteral("large");
    for (const QString &entry : qAsConst(entries)) {
        QString title = entry;
        title[0] = title.at(0).toUpper();
        send(QJsonObject { { L::method, L::performMenu }, { L::id, app->id },
            { QStringLiteral("m"), findId(menu, title) } });
        QTRY_VERIFY2(testApp->lines().contains(QStringLiteral("menu ") + entry), qPrintable(entry));
    }
    // The program made those submenus anew since the tree was read: the identifiers still
    // reach the entries of the same titles.
    testApp->process.write("rebuild\n");
    QTRY_VERIFY(testApp->lines().contains(QStringLiteral("rebuilt")));
    for (const QString &entry : { QStringLiteral("Upper"), QStringLiteral("Title") }) {
        send(QJsonObject { { L::method, L::performMenu }, { L::id, app->id },
            { QStringLiteral("m"), findId(menu, entry) } });
        QTRY_COMPARE(testApp->lines().count(QStringLiteral("menu ") + entry), 2);
    }

    // The empty identifier is the first menu-bar entry's: pressing it opens that menu.
    send(QJsonObject {
        { L::method, L::performMenu }, { L::id, app->id }, { QStringLiteral("m"), QString() } });
    QTRY_VERIFY(testApp->lines().contains(QStringLiteral("open File")));
    run(QStringLiteral("xdotool"), { QStringLiteral("key"), QStringLiteral("Escape") });

    // Invoking an entry from the tree.
    const QString firstFile = findId(menu, QStringLiteral("First File"));
    send(QJsonObject {
        { L::method, L::performMenu }, { L::id, app->id }, { QStringLiteral("m"), firstFile } });
    QTRY_VERIFY(testApp->lines().contains(QStringLiteral("menu First File")));

    // Asked again while the application stays in front, the same tree and identifiers.
    QCOMPARE(menuOf(app), menu);

    // After the application lost the front and got it back, old identifiers are gone.
    QVERIFY(leaveAndReturn(testApp));
    LogCapture log;
    const QString copy = findId(menu, QStringLiteral("Copy"));
    send(QJsonObject {
        { L::method, L::performMenu }, { L::id, app->id }, { QStringLiteral("m"), copy } });
    QTRY_COMPARE(log.count(QStringLiteral("Cannot get menu")), 1);
    QVERIFY(!testApp->lines().contains(QStringLiteral("menu Copy")));
    // The new tree works.
    send(QJsonObject { { L::method, L::performMenu }, { L::id, app->id },
        { QStringLiteral("m"), findId(menuOf(app), QStringLiteral("Copy")) } });
    QTRY_VERIFY(testApp->lines().contains(QStringLiteral("menu Copy")));
}

// The program ends and starts again with other menus, and nothing else took the front in
// between: the tree read from the first one must not be answered for the second.
void TestAccessibility::restartedApplicationsMenuIsReadAnew()
{
    TestApp *first = start(gtkApp, {});
    LinuxApp *app = current(first);
    QVERIFY(app);
    QVERIFY(shape(menuOnceThere(app)).startsWith(QStringLiteral("File(")));
    first->process.terminate();
    QTRY_COMPARE(first->process.state(), QProcess::NotRunning);

    TestApp *second = start(gtkApp, { QStringLiteral("--many"), QStringLiteral("24") });
    QCOMPARE(current(second), app);
    const QJsonArray menu = menuOnceThere(app, QStringLiteral("Menu 1(Entry 1.1)"));
    QVERIFY2(shape(menu).startsWith(QStringLiteral("Menu 1(Entry 1.1)")), qPrintable(shape(menu)));
    QCOMPARE(menu.size(), 12);
}

void TestAccessibility::focusedElement_data()
{
    QTest::addColumn<QString>("program");
    QTest::addColumn<QStringList>("arguments");
    // The key that leaves a text area, where Tab types a tab.
    QTest::addColumn<QString>("leave");
    QTest::newRow("gtk") << gtkApp << QStringList() << QStringLiteral("ctrl+Tab");
    QTest::newRow("qt") << qtApp << QStringList { QStringLiteral("--tab-leaves-area") }
                        << QStringLiteral("Tab");
}

void TestAccessibility::focusedElement()
{
    QFETCH(QString, program);
    QFETCH(QStringList, arguments);
    QFETCH(QString, leave);
    const int from = client->framesWith(L::focusedElement).size();
    TestApp *testApp = start(program, arguments);
    LinuxApp *app = current(testApp);
    QVERIFY(app);

    // The entry has the focus, with the caret after the third character. A toolkit that was
    // not on the bus yet when it gave the entry the focus says so again when its window is
    // activated again.
    QVERIFY(leaveAndReturn(testApp));
    auto last = [&](const QString &role) {
        const QList<Frame> frames = focusFrames(from, app->id);
        return !frames.isEmpty() && frames.last().object().value(L::role).toString() == role;
    };
    // What was pushed, for failure messages.
    auto seen = [&] {
        QStringList roles;
        const QList<Frame> frames = focusFrames(from, app->id);
        for (const Frame &frame : frames)
            roles << frame.object().value(L::role).toString() + QLatin1Char(':')
                    + frame.object().value(L::name).toString();
        return roles.join(QLatin1Char(' ')).toUtf8();
    };
    QTRY_VERIFY2(last(QStringLiteral("Text")), seen().constData());
    QJsonObject entry = focusFrames(from, app->id).last().object();
    QCOMPARE(entry.value(L::id).toString(), app->id);
    QCOMPARE(entry.value(L::name).toString(), QStringLiteral("Search"));
    QCOMPARE(entry.value(L::value).toString(), QStringLiteral("hello world"));
    QCOMPARE(
        entry.value(L::properties).toObject(), (QJsonObject { { L::index, 3 }, { L::length, 0 } }));

    // The text area: two lines are shown shortened, and asked for, the value comes whole.
    run(QStringLiteral("xdotool"), { QStringLiteral("key"), QStringLiteral("Tab") });
    QTRY_VERIFY2(last(QStringLiteral("TextArea")), seen().constData());
    const QJsonObject area = focusFrames(from, app->id).last().object();
    QCOMPARE(area.value(L::name).toString(), QStringLiteral("Notes"));
    QCOMPARE(area.value(L::value).toString(), QStringLiteral("first line..."));
    QVERIFY(!area.value(L::properties).toObject().contains(L::index));
    const int asked = client->framesWith(L::focusedElement).size();
    send(QJsonObject { { L::method, L::focusValue }, { L::id, app->id } });
    QTRY_COMPARE(client->framesWith(L::focusedElement).size(), asked + 1);
    QCOMPARE(client->framesWith(L::focusedElement).last().object().value(L::value).toString(),
        QStringLiteral("first line\nsecond line"));

    // Setting the value replaces the text in the application.
    send(QJsonObject { { L::method, L::focusValue }, { L::id, app->id },
        { L::value, QStringLiteral("new\ntext") } });
    QTRY_VERIFY(testApp->lines().contains(QStringLiteral("area new\\ntext")));

    // On to the button, which "pf" presses.
    run(QStringLiteral("xdotool"), { QStringLiteral("key"), leave });
    QTRY_VERIFY2(last(QStringLiteral("Button")), seen().constData());
    QCOMPARE(focusFrames(from, app->id).last().object().value(L::name).toString(),
        QStringLiteral("Press Me"));
    send(QJsonObject { { L::method, L::performFocus }, { L::id, app->id } });
    QTRY_VERIFY(testApp->lines().contains(QStringLiteral("button")));
}

void TestAccessibility::focusMovedQuickly_data()
{
    QTest::addColumn<QString>("program");
    QTest::newRow("gtk") << gtkApp;
    QTest::newRow("qt") << qtApp;
}

void TestAccessibility::focusMovedQuickly()
{
    QFETCH(QString, program);
    TestApp *testApp = start(program, {});
    LinuxApp *app = current(testApp);
    QVERIFY(app);
    QVERIFY(leaveAndReturn(testApp));
    const int from = client->framesWith(L::focusedElement).size();
    // The focus goes round the entry, the text area and the button a hundred times; every
    // push says what the element held.
    const QList<QPair<QByteArray, QString>> targets { { "entry", QStringLiteral("Text") },
        { "area", QStringLiteral("TextArea") }, { "button", QStringLiteral("Button") } };
    const auto lastRole = [&] {
        const QList<Frame> frames = focusFrames(from, app->id);
        return frames.isEmpty() ? QString() : frames.last().object().value(L::role).toString();
    };
    // Starting on the area, so that the first move is one.
    testApp->process.write("focus area\n");
    QTRY_COMPARE(lastRole(), QStringLiteral("TextArea"));
    for (int i = 0; i < 100; ++i) {
        const auto &[target, role] = targets.at(i % 3 == 1 ? 2 : (i % 3 == 2 ? 1 : 0));
        testApp->process.write("focus " + target + '\n');
        QTRY_COMPARE(lastRole(), role);
    }
    const QList<Frame> frames = focusFrames(from, app->id);
    QVERIFY(frames.size() >= 100);
    for (const Frame &frame : frames) {
        const QJsonObject object = frame.object();
        const QString role = object.value(L::role).toString();
        const QByteArray seen = frame.json;
        if (role == QLatin1String("Text")) {
            QVERIFY2(object.value(L::value).toString() == QLatin1String("hello world"), seen);
            QVERIFY2(object.value(L::properties).toObject()
                    == (QJsonObject { { L::index, 3 }, { L::length, 0 } }),
                seen);
        } else if (role == QLatin1String("TextArea")) {
            QVERIFY2(object.value(L::value).toString() == QLatin1String("first line..."), seen);
        } else {
            QVERIFY2(role == QLatin1String("Button"), seen);
            QVERIFY2(object.value(L::name).toString() == QLatin1String("Press Me"), seen);
        }
    }
}

void TestAccessibility::firstFocusChangeOfAnApplication()
{
    // No focus change before: the first ones the program sees from this application say what
    // the elements hold.
    TestApp *testApp = start(gtkApp, {});
    LinuxApp *app = current(testApp);
    QVERIFY(app);
    const int from = client->framesWith(L::focusedElement).size();
    const auto last = [&] {
        const QList<Frame> frames = focusFrames(from, app->id);
        return frames.isEmpty() ? QJsonObject() : frames.last().object();
    };
    // The user types into the entry and moves the caret after the third character.
    run(QStringLiteral("xdotool"), { QStringLiteral("key"), QStringLiteral("ctrl+a") });
    run(QStringLiteral("xdotool"), { QStringLiteral("type"), QStringLiteral("abcdef") });
    run(QStringLiteral("xdotool"),
        { QStringLiteral("key"), QStringLiteral("Home"), QStringLiteral("Right"),
            QStringLiteral("Right"), QStringLiteral("Right") });
    QTRY_VERIFY(testApp->lines().contains(QStringLiteral("entry abcdef")));
    testApp->process.write("focus button\n");
    QTRY_COMPARE(last().value(L::role).toString(), QStringLiteral("Button"));
    testApp->process.write("focus entry\n");
    QTRY_COMPARE(last().value(L::role).toString(), QStringLiteral("Text"));
    QCOMPARE(last().value(L::value).toString(), QStringLiteral("abcdef"));
    QCOMPARE(last().value(L::properties).toObject(),
        (QJsonObject { { L::index, 3 }, { L::length, 0 } }));
}

void TestAccessibility::returnWithoutAFocusedElement()
{
    // A window without any focusable element: "pf" types Return into it.
    TestApp *probe = start(probeWindow, { QStringLiteral("--class"), QStringLiteral("keysonly") });
    LinuxApp *app = current(probe);
    QVERIFY(app);
    QTRY_VERIFY(!probe->lines().filter(QStringLiteral("ready ")).isEmpty());
    send(QJsonObject { { L::method, L::performFocus }, { L::id, app->id } });
    QTRY_VERIFY(probe->lines().contains(QStringLiteral("key ff0d 0 0d")));
}

void TestAccessibility::browserPage()
{
    const int from = client->framesWith(L::siteCommands).size();
    TestApp *testApp = start(gtkApp,
        { QStringLiteral("--app-class"), QStringLiteral("velmbrowser"), QStringLiteral("--page"),
            QStringLiteral("https://example.org/one") });
    LinuxApp *app = current(testApp);
    QVERIFY(app);
    // The phone asks for the application's commands; they say it is a browser, and its page
    // is followed from then on.
    send(QJsonObject { { L::method, L::appCommands }, { L::id, app->id } });
    QTRY_VERIFY2(app->browser, qPrintable(app->id + QString::number(fixture.requests.size())));
    QTRY_COMPARE(client->framesWith(L::siteCommands).size(), from + 1);
    QCOMPARE(client->framesWith(L::siteCommands).last().object(),
        (QJsonObject { { L::method, L::siteCommands }, { L::id, app->id },
            { QStringLiteral("c"), QJsonArray { QStringLiteral("find") } } }));

    // Another page of the same site: nothing new for the clients.
    testApp->process.write("url https://example.org/two\n");
    QTRY_VERIFY(testApp->lines().contains(QStringLiteral("page https://example.org/two")));
    QCOMPARE(app->documentUrl(), QStringLiteral("https://example.org/two"));
    app->pollBrowser();
    QCOMPARE(client->framesWith(L::siteCommands).size(), from + 1);

    // Another site: the next poll (every five seconds) pushes its commands.
    testApp->process.write("url https://other.org/\n");
    QTRY_VERIFY_WITH_TIMEOUT(client->framesWith(L::siteCommands).size() == from + 2, 8000);
    QCOMPARE(client->framesWith(L::siteCommands).last().object().value(QStringLiteral("c")),
        QJsonValue(QJsonArray { QStringLiteral("other") }));
    // The same address again tells nobody anything.
    app->pollBrowser();
    QCOMPARE(client->framesWith(L::siteCommands).size(), from + 2);

    // Out of the front, the page is not followed; marked a browser again meanwhile, it only
    // remembers that, and following starts when the application is back in front (which
    // tells the clients the site again).
    TestApp *bystander
        = start(probeWindow, { QStringLiteral("--class"), QStringLiteral("bystander") });
    QTRY_VERIFY(platform->getCurrentApp() && platform->getCurrentApp() != app
        && qobject_cast<LinuxApp *>(platform->getCurrentApp())
               ->processIds()
               .contains(int(bystander->process.processId())));
    QVERIFY(!app->isPollingBrowser());
    app->setBrowser(true);
    QVERIFY(!app->isPollingBrowser());
    activate(testApp);
    QCOMPARE(current(testApp), app);
    QVERIFY(app->isPollingBrowser());
    QTRY_COMPARE(client->framesWith(L::siteCommands).size(), from + 3);
    QCOMPARE(client->framesWith(L::siteCommands).last().object().value(QStringLiteral("c")),
        QJsonValue(QJsonArray { QStringLiteral("other") }));
}

void TestAccessibility::accessibilitySwitchedOff()
{
    // The desktop has the bus but accessibility is off: the program asks for it and tells the
    // user (applications already running need a restart to show up).
    auto setEnabled = [](bool on) {
        QDBusMessage set = QDBusMessage::createMethodCall(QStringLiteral("org.a11y.Bus"),
            QStringLiteral("/org/a11y/bus"), QStringLiteral("org.freedesktop.DBus.Properties"),
            QStringLiteral("Set"));
        set << QStringLiteral("org.a11y.Status") << QStringLiteral("IsEnabled")
            << QVariant::fromValue(QDBusVariant(on));
        return QDBusConnection::sessionBus().call(set).type() == QDBusMessage::ReplyMessage;
    };
    QVERIFY(setEnabled(false));
    QVERIFY(!Accessibility::enabled());
    LinuxPlatform other;
    QSignalSpy asked(&other, &Platform::needPermissions);
    other.init();
    QCOMPARE(asked.count(), 1);
    QVERIFY(!other.permissionsGranted());
    QVERIFY(Accessibility::enabled());
    QVERIFY(setEnabled(true));
}

QTEST_MAIN(TestAccessibility)
#include "tst_accessibility.moc"

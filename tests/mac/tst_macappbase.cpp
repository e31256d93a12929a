#include "macappbase.h"

#include <QtTest>

namespace {

// Menus as a table: element -> (title, enabled, children).
struct Entry
{
    QString title;
    bool enabled = true;
    std::vector<void *> children;
};

class TableReader : public MacMenu::Reader
{
public:
    QHash<void *, Entry> entries;
    MacMenu::Read<std::vector<void *>> children(void *element) const override
    {
        return { true, 0, entries.value(element).children };
    }
    MacMenu::Read<MacMenu::Title> title(void *element) const override
    {
        return { true, 0, { false, entries.value(element).title } };
    }
    MacMenu::Read<bool> enabled(void *element) const override
    {
        return { true, 0, entries.value(element).enabled };
    }
};

void *handle(int n) { return reinterpret_cast<void *>(quintptr(n)); }

} // namespace

// An application whose process, windows and events are a script of the test's.
class ScriptedApp : public MacAppBase
{
    Q_OBJECT
public:
    using MacAppBase::MacAppBase;

    Process state = Process::None;
    QList<Button> buttons;
    bool fullScreen = false;
    std::optional<std::vector<std::optional<bool>>> windows;
    FocusAction focus = FocusAction::NoElement;
    bool trusted = true;
    bool following = true;
    TableReader reader;
    std::vector<void *> menuBar;
    QStringList calls;
    const MacKeys::Table table = MacKeys::Table::build(nullptr);

    void launch() override { calls << QStringLiteral("launch"); }
    void setFocusValue(const QString &) override { }

protected:
    Process process() const override { return state; }
    void activateProcess() override { calls << QStringLiteral("activate"); }
    void terminateProcess() override { calls << QStringLiteral("terminate"); }
    void hideProcess() override { calls << QStringLiteral("hide"); }
    bool pressWindowButton(Button button) override
    {
        if (!buttons.contains(button))
            return false;
        calls << QStringLiteral("press %1").arg(int(button));
        return true;
    }
    bool hasWindowButton(Button button) override { return buttons.contains(button); }
    bool isFullScreen() override { return fullScreen; }
    void setFullScreen(bool value) override
    {
        calls << QStringLiteral("fullScreen %1").arg(value);
        fullScreen = value;
    }
    std::optional<std::vector<std::optional<bool>>> windowsMinimized() override { return windows; }
    void raiseWindow(int index) override { calls << QStringLiteral("raise %1").arg(index); }
    void postScroll(int wheel) override { calls << QStringLiteral("scroll %1").arg(wheel); }
    void postKey(quint16 code, quint64 flags, bool down) override
    {
        calls << QStringLiteral("key %1 %2 %3")
                     .arg(code)
                     .arg(flags, 0, 16)
                     .arg(down ? QStringLiteral("down") : QStringLiteral("up"));
    }
    const MacKeys::Table &keyTable() override { return table; }
    bool accessibilityTrusted() override { return trusted; }
    const MacMenu::Reader &menuReader() override { return reader; }
    std::vector<void *> menuBarEntries() override { return menuBar; }
    bool pressElement(void *element) override
    {
        calls << QStringLiteral("pressMenu ") + reader.entries.value(element).title;
        return true;
    }
    FocusAction performFocusAction() override { return focus; }
    bool followFocus(bool) override { return following; }
};

class TestMacAppBase : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void activateLaunchesWhatDoesNotRun();
    void quitAndHideNeedTheProcess();
    void minimiseButtonFirstThenTheFirstMinimisedWindow();
    void maximiseTogglesFullScreenWhereThereIsAButton();
    void scrollThresholdIsTen();
    void keySequencesActivateAndPressInOrder();
    void keysSendExactlyTheirModifiers();
    void menusAreReadOnceWhileCurrent();
    void menuIdentifiersDieWithTheCurrentState();
    void untrustedMenusStayEmpty();
    void focusedElementWithoutActionPressesReturn();
    void browserScriptWaitsForTheCurrentState();
    void sameAddressTwiceNotifiesOnce();

private:
    void writeAddress(const QByteArray &address);
    QTemporaryDir bin;
};

void TestMacAppBase::initTestCase()
{
    QVERIFY(bin.isValid());
    // The script runner: prints the address the test left in a file, and counts its runs.
    QFile runner(bin.filePath(QStringLiteral("osascript")));
    QVERIFY(runner.open(QIODevice::WriteOnly));
    runner.write("#!/bin/sh\necho run >> '" + bin.filePath(QStringLiteral("runs")).toLocal8Bit()
        + "'\ncat '" + bin.filePath(QStringLiteral("address")).toLocal8Bit() + "'\n");
    runner.close();
    QVERIFY(runner.setPermissions(
        QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner));
    qputenv("PATH", bin.path().toLocal8Bit() + ':' + qgetenv("PATH"));
}

void TestMacAppBase::writeAddress(const QByteArray &address)
{
    QFile file(bin.filePath(QStringLiteral("address")));
    QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.write(address);
}

void TestMacAppBase::activateLaunchesWhatDoesNotRun()
{
    ScriptedApp app(QStringLiteral("com.a"));
    app.activate();
    QCOMPARE(app.calls, QStringList { QStringLiteral("launch") });
    app.calls.clear();
    app.state = ScriptedApp::Process::Inactive;
    app.activate();
    QCOMPARE(app.calls, QStringList { QStringLiteral("activate") });
}

void TestMacAppBase::quitAndHideNeedTheProcess()
{
    ScriptedApp app(QStringLiteral("com.a"));
    app.quit();
    app.hide();
    QVERIFY(app.calls.isEmpty());
    app.state = ScriptedApp::Process::Active;
    app.quit();
    app.hide();
    QCOMPARE(app.calls, (QStringList { QStringLiteral("terminate"), QStringLiteral("hide") }));
}

void TestMacAppBase::minimiseButtonFirstThenTheFirstMinimisedWindow()
{
    ScriptedApp app(QStringLiteral("com.a"));
    app.buttons = { ScriptedApp::Button::Minimize };
    app.windows = std::vector<std::optional<bool>> { true };
    app.toggleMiniminize();
    QCOMPARE(app.calls, QStringList { QStringLiteral("press 1") });

    // No front window: the first window whose state reads as minimised comes back.
    app.buttons.clear();
    app.calls.clear();
    app.windows = std::vector<std::optional<bool>> { false, std::nullopt, true, true };
    app.toggleMiniminize();
    QCOMPARE(app.calls, QStringList { QStringLiteral("raise 2") });

    app.calls.clear();
    app.windows = std::vector<std::optional<bool>> { true, true };
    app.toggleMiniminize();
    QCOMPARE(app.calls, QStringList { QStringLiteral("raise 0") });

    app.calls.clear();
    app.windows = std::vector<std::optional<bool>> { false };
    app.toggleMiniminize();
    app.windows.reset();
    app.toggleMiniminize();
    QVERIFY(app.calls.isEmpty());
}

void TestMacAppBase::maximiseTogglesFullScreenWhereThereIsAButton()
{
    ScriptedApp app(QStringLiteral("com.a"));
    app.buttons = { ScriptedApp::Button::FullScreen, ScriptedApp::Button::Zoom };
    QVERIFY(app.supportsFullscreen());
    app.toggleMaximize();
    app.toggleMaximize();
    app.toggleFullscreen();
    QCOMPARE(app.calls,
        (QStringList { QStringLiteral("fullScreen 1"), QStringLiteral("fullScreen 0"),
            QStringLiteral("fullScreen 1") }));

    app.calls.clear();
    app.buttons = { ScriptedApp::Button::Zoom };
    QVERIFY(!app.supportsFullscreen());
    app.toggleFullscreen();
    app.toggleMaximize();
    QCOMPARE(app.calls, (QStringList { QStringLiteral("press 2"), QStringLiteral("press 2") }));
}

void TestMacAppBase::scrollThresholdIsTen()
{
    ScriptedApp app(QStringLiteral("com.a"));
    app.scroll(0, 9);
    app.scroll(0, 10);
    app.scroll(500, -3);
    QCOMPARE(app.calls,
        (QStringList { QStringLiteral("scroll -10"), QStringLiteral("scroll 10"),
            QStringLiteral("scroll -10") }));
}

void TestMacAppBase::keySequencesActivateAndPressInOrder()
{
    ScriptedApp app(QStringLiteral("com.a"));
    app.state = ScriptedApp::Process::Inactive;
    app.performKeySequence(QStringLiteral("a,,b"));
    QCOMPARE(app.calls,
        (QStringList { QStringLiteral("activate"), QStringLiteral("key 0 0 down"),
            QStringLiteral("key 0 0 up"), QStringLiteral("key 11 0 down"),
            QStringLiteral("key 11 0 up") }));

    // In front already: no activation; "x,Ctrl+," is one shortcut, the comma key alone.
    app.calls.clear();
    app.state = ScriptedApp::Process::Active;
    app.performKeySequence(QStringLiteral("x,Ctrl+,"));
    QCOMPARE(app.calls,
        (QStringList { QStringLiteral("key 43 0 down"), QStringLiteral("key 43 0 up") }));
}

void TestMacAppBase::keysSendExactlyTheirModifiers()
{
    ScriptedApp app(QStringLiteral("com.a"));
    app.performShortcut(QStringLiteral("Ctrl+Shift+T"));
    QCOMPARE(app.calls,
        (QStringList { QStringLiteral("key 17 120000 down"), QStringLiteral("key 17 120000 up") }));
    app.calls.clear();
    app.performShortcut(QStringLiteral("ctrl+c"));
    QCOMPARE(
        app.calls, (QStringList { QStringLiteral("key 8 0 down"), QStringLiteral("key 8 0 up") }));
    app.calls.clear();
    QTest::ignoreMessage(QtWarningMsg, "Unhandled key \"\"");
    app.performShortcut(QStringLiteral("Ctrl+Alt"));
    QVERIFY(app.calls.isEmpty());
}

void TestMacAppBase::menusAreReadOnceWhileCurrent()
{
    ScriptedApp app(QStringLiteral("com.a"));
    app.state = ScriptedApp::Process::Active;
    app.reader.entries = { { handle(1), { QStringLiteral("Apple"), true, {} } },
        { handle(2), { QStringLiteral("File"), true, { handle(3), handle(4) } } },
        { handle(3), { QStringLiteral("Open"), true, {} } },
        { handle(4), { QStringLiteral("Close"), false, {} } } };
    app.menuBar = { handle(1), handle(2) };
    const std::vector<MenuItem> &menus = app.getMenuItems();
    QCOMPARE(int(menus.size()), 1);
    QCOMPARE(menus.at(0).name, QStringLiteral("File"));
    QCOMPARE(int(menus.at(0).children.size()), 1);
    const QString open = menus.at(0).children.at(0).id;
    // Read once: a changed menu bar is not seen while the tree is held.
    app.menuBar.clear();
    QCOMPARE(int(app.getMenuItems().size()), 1);
    // The empty identifier is the first menu-bar entry's.
    app.performMenu(QString());
    app.performMenu(open);
    QCOMPARE(app.calls,
        (QStringList { QStringLiteral("pressMenu File"), QStringLiteral("pressMenu Open") }));
}

void TestMacAppBase::menuIdentifiersDieWithTheCurrentState()
{
    ScriptedApp app(QStringLiteral("com.a"));
    app.state = ScriptedApp::Process::Active;
    app.reader.entries = { { handle(2), { QStringLiteral("File"), true, { handle(3) } } },
        { handle(3), { QStringLiteral("Open"), true, {} } } };
    app.menuBar = { handle(2) };
    app.setCurrent(true);
    const QString before = app.getMenuItems().at(0).children.at(0).id;
    app.setCurrent(false);
    app.setCurrent(true);
    const QString after = app.getMenuItems().at(0).children.at(0).id;
    if (after != before) {
        QTest::ignoreMessage(
            QtWarningMsg, qPrintable(QStringLiteral("Cannot get menu \"%1\"").arg(before)));
        app.performMenu(before);
        QVERIFY(app.calls.isEmpty());
    }
    // Drawn afresh: the chance of the same number twice is one in two thousand million.
    QVERIFY(after != before);
}

void TestMacAppBase::untrustedMenusStayEmpty()
{
    ScriptedApp app(QStringLiteral("com.a"));
    app.state = ScriptedApp::Process::Active;
    app.reader.entries = { { handle(2), { QStringLiteral("File"), true, {} } } };
    app.menuBar = { handle(2) };
    app.trusted = false;
    QVERIFY(app.getMenuItems().empty());
    app.trusted = true;
    app.state = ScriptedApp::Process::None;
    QVERIFY(app.getMenuItems().empty());
}

void TestMacAppBase::focusedElementWithoutActionPressesReturn()
{
    ScriptedApp app(QStringLiteral("com.a"));
    app.state = ScriptedApp::Process::Active;
    const QStringList returnKey { QStringLiteral("key 36 0 down"), QStringLiteral("key 36 0 up") };
    app.performFocusedElement();
    QCOMPARE(app.calls, returnKey);
    app.calls.clear();
    app.focus = ScriptedApp::FocusAction::NoAction;
    app.performFocusedElement();
    QCOMPARE(app.calls, returnKey);
    app.calls.clear();
    app.focus = ScriptedApp::FocusAction::Performed;
    app.performFocusedElement();
    QVERIFY(app.calls.isEmpty());
}

void TestMacAppBase::browserScriptWaitsForTheCurrentState()
{
    writeAddress("https://a.example/\n");
    ScriptedApp app(QStringLiteral("com.browser"));
    app.name = QStringLiteral("Browser");
    app.commands = R"({"u": "get URL of front document"})";
    app.setBrowser(true);
    QCOMPARE(app.browserAddressScript(),
        QStringLiteral("tell application \"Browser\"\nget URL of front document\nend tell"));
    QVERIFY(!app.isPollingBrowser());

    QSignalSpy addresses(&app, &MacAppBase::browserAddressChanged);
    app.setCurrent(true);
    QVERIFY(app.isPollingBrowser());
    QTRY_COMPARE(addresses.size(), 1);
    QCOMPARE(addresses.at(0).at(0).toString(), QStringLiteral("https://a.example/\n"));
    app.setCurrent(false);
    QVERIFY(!app.isPollingBrowser());

    // Without focus following (no permission), the current state changes nothing else.
    app.following = false;
    app.setCurrent(true);
    QVERIFY(!app.isPollingBrowser());
}

void TestMacAppBase::sameAddressTwiceNotifiesOnce()
{
    QFile::remove(bin.filePath(QStringLiteral("runs")));
    const auto runs = [this] {
        QFile file(bin.filePath(QStringLiteral("runs")));
        return file.open(QIODevice::ReadOnly) ? file.readAll().count('\n') : 0;
    };
    writeAddress("https://a.example/one\n");
    ScriptedApp app(QStringLiteral("com.browser"));
    app.commands = R"({"u": "x"})";
    app.setBrowser(true);
    QSignalSpy addresses(&app, &MacAppBase::browserAddressChanged);
    app.setCurrent(true);
    QTRY_COMPARE(addresses.size(), 1);
    QTRY_COMPARE(runs(), 1);
    app.startPollingBrowser();
    QTRY_COMPARE(runs(), 2);
    QTRY_VERIFY(!app.isBrowserPollPending());
    QCOMPARE(addresses.size(), 1);
    writeAddress("https://a.example/two\n");
    app.startPollingBrowser();
    QTRY_COMPARE(addresses.size(), 2);
    QCOMPARE(runs(), 3);
    QCOMPARE(addresses.at(1).at(0).toString(), QStringLiteral("https://a.example/two\n"));
}

QTEST_GUILESS_MAIN(TestMacAppBase)
#include "tst_macappbase.moc"

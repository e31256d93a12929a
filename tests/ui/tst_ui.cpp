#include "aboutbox.h"
#include "corefixture.h"
#include "feedupdater.h"
#include "l.h"
#include "platform.h"
#include "preferences.h"
#include "testenvironment.h"
#include "ui.h"
#include "updater.h"
#include "webremotedialog.h"
#include "welcomeview.h"

#include <QAction>
#include <QApplication>
#include <QCheckBox>
#include <QLabel>
#include <QMenu>
#include <QMessageBox>
#include <QProcess>
#include <QPushButton>
#include <QSettings>
#include <QSystemTrayIcon>
#include <QTranslator>
#include <QtTest>

namespace {
// Real input through the X server, as a user's hand would give it.
bool xdotool(const QStringList &arguments)
{
    return QProcess::execute(QStringLiteral("xdotool"), arguments) == 0;
}

bool clickOn(QWidget *widget)
{
    const QPoint centre = widget->mapToGlobal(widget->rect().center());
    return xdotool({ QStringLiteral("mousemove"), QString::number(centre.x()),
        QString::number(centre.y()), QStringLiteral("click"), QStringLiteral("1") });
}

QStringList menuTexts(const QMenu *menu)
{
    QStringList texts;
    for (const QAction *action : menu->actions())
        texts << (action->isSeparator() ? QStringLiteral("--") : action->text());
    return texts;
}
} // namespace

// The tray icon and menu, the pairing prompt and the welcome window, on the rig's desktop.
class TestUI : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void init();
    void cleanup();
    void trayMenuEntriesInOrder();
    void clientCountSwitchesTextAndIcon();
    void authorizeClickedOnScreen();
    void denyByKey();
    void closeControlDenies();
    void deviceLeavingClosesThePrompt();
    void welcomeWhenPermissionMissing();
    void welcomeWhenGranted();
    void welcomeNotShownWhenDismissed();
    void needPermissionsShowsWelcome();
    void menuOpensTheDialogsOnce();

private:
    // Makes the interface; it starts the coordinator and waits until the server runs.
    bool startUI();
    QMessageBox *waitForPrompt();

    QTranslator english;
    CoreFixture *fixture = nullptr;
    UI *ui = nullptr;
};

void TestUI::initTestCase()
{
    TestEnvironment::setUp();
    QVERIFY(QSystemTrayIcon::isSystemTrayAvailable());
    // English carries the plural forms.
    QVERIFY(english.load(QStringLiteral("en"), QStringLiteral(VELM_LOCALE_DIR)));
    QCoreApplication::installTranslator(&english);
    Updater::setInstance(new updater::FeedUpdater(this));
}

void TestUI::init()
{
    fixture = new CoreFixture;
    QSettings().setValue(QStringLiteral("welcome"), true);
}

void TestUI::cleanup()
{
    delete ui;
    ui = nullptr;
    delete fixture;
    fixture = nullptr;
    for (QWidget *widget : QApplication::topLevelWidgets()) {
        if (widget->isWindow() && widget->isVisible())
            delete widget;
    }
}

bool TestUI::startUI()
{
    ui = new UI;
    if (!QTest::qWaitFor([this] { return fixture->core->server != nullptr; }, 5000))
        return false;
    QTest::qWait(0);
    return QTest::qWaitFor(
        [this] { return fixture->core->server->handler(L::unsupported) != nullptr; }, 5000);
}

QMessageBox *TestUI::waitForPrompt()
{
    if (!QTest::qWaitFor([this] { return ui->authDialogs.size() == 1; }, 5000))
        return nullptr;
    QMessageBox *box = ui->authDialogs.first();
    if (!QTest::qWaitForWindowExposed(box))
        return nullptr;
    return box;
}

void TestUI::trayMenuEntriesInOrder()
{
    QVERIFY(startUI());
    QVERIFY(ui->trayIcon->isVisible());
    QMenu *menu = ui->trayIcon->contextMenu();
    QVERIFY(menu);
    QCOMPARE(menuTexts(menu),
        (QStringList { QStringLiteral("No clients connected"), QStringLiteral("--"),
            QStringLiteral("Open Web Remote..."), QStringLiteral("Check for Updates..."),
            QStringLiteral("Preferences..."), QStringLiteral("About Velm Server"),
            QStringLiteral("--"), QStringLiteral("Quit") }));
    QVERIFY(!menu->actions().at(0)->isEnabled());
    QCOMPARE(menu->actions().at(3), Updater::instance()->getAction());
    QCOMPARE(menu->actions().at(3)->menuRole(), QAction::NoRole);
    // The menu really opens on the display.
    menu->popup(QPoint(900, 30));
    QVERIFY(QTest::qWaitForWindowExposed(menu));
    menu->hide();
}

void TestUI::clientCountSwitchesTextAndIcon()
{
    QVERIFY(startUI());
    QAction *count = ui->clientCountAction;
    QCOMPARE(count->text(), QStringLiteral("No clients connected"));
    QVERIFY(ui->trayIcon->icon().isMask());
    QVERIFY(Updater::instance()->isImmediateInstallAllowed());
    const qint64 idleKey = ui->trayIcon->icon().pixmap(16).cacheKey();

    ProtocolClient *first = fixture->connectClient(QStringLiteral("phone-1"));
    QVERIFY(first);
    QTRY_COMPARE(count->text(), QStringLiteral("1 client connected"));
    QVERIFY(!ui->trayIcon->icon().isMask());
    QVERIFY(ui->trayIcon->icon().pixmap(16).toImage()
        != QIcon(QStringLiteral(":/icons/light/16/tray.png")).pixmap(16).toImage());
    QVERIFY(ui->trayIcon->icon().pixmap(16).cacheKey() != idleKey);
    // An update never restarts the program under a connected device.
    QVERIFY(!Updater::instance()->isImmediateInstallAllowed());

    ProtocolClient *second = fixture->connectClient(QStringLiteral("phone-2"));
    QVERIFY(second);
    QTRY_COMPARE(count->text(), QStringLiteral("2 clients connected"));
    QVERIFY(!ui->trayIcon->icon().isMask());

    first->close();
    second->close();
    QTRY_COMPARE(count->text(), QStringLiteral("No clients connected"));
    QVERIFY(ui->trayIcon->icon().isMask());
    QVERIFY(Updater::instance()->isImmediateInstallAllowed());
}

void TestUI::authorizeClickedOnScreen()
{
    QVERIFY(startUI());
    ProtocolClient *phone = fixture->connectStranger(QStringLiteral("phone-new"));
    QVERIFY(phone);
    QMessageBox *box = waitForPrompt();
    QVERIFY(box);
    QCOMPARE(box->text(), QStringLiteral("127.0.0.1 would like to connect."));
    QCOMPARE(box->informativeText(), QStringLiteral("127.0.0.1"));
    QVERIFY(!box->iconPixmap().isNull());
    QPushButton *authorize = nullptr;
    for (QAbstractButton *button : box->buttons()) {
        if (button->text() == QLatin1String("Authorize"))
            authorize = static_cast<QPushButton *>(button);
    }
    QVERIFY(authorize);
    QCOMPARE(box->buttonRole(authorize), QMessageBox::AcceptRole);
    QVERIFY(clickOn(authorize));
    QTRY_VERIFY(fixture->core->server->getClients().size() == 1);
    QTRY_COMPARE(phone->frames.size(), 3);
    const QString token = phone->frames.at(1).object().value(L::token).toString();
    QCOMPARE(token.size(), 32);
    QSettings settings;
    settings.beginGroup(L::auth);
    QCOMPARE(settings.value(QStringLiteral("phone-new")).toString(), token);
    QTRY_VERIFY(ui->authDialogs.isEmpty());
    QTRY_COMPARE(ui->clientCountAction->text(), QStringLiteral("1 client connected"));
}

void TestUI::denyByKey()
{
    QVERIFY(startUI());
    ProtocolClient *phone = fixture->connectStranger(QStringLiteral("phone-new"));
    QVERIFY(phone);
    QMessageBox *box = waitForPrompt();
    QVERIFY(box);
    // Return does not let a device in: "Deny" is the default.
    QCOMPARE(box->defaultButton()->text(), QStringLiteral("Deny"));
    QVERIFY(xdotool({ QStringLiteral("windowactivate"), QStringLiteral("--sync"),
        QString::number(box->winId()) }));
    QTRY_VERIFY(box->isActiveWindow());
    QVERIFY(xdotool({ QStringLiteral("key"), QStringLiteral("Return") }));
    QTRY_VERIFY(phone->isClosed());
    QVERIFY(fixture->core->server->getClients().isEmpty());
    QCOMPARE(fixture->core->server->totalAuthorizations(), 0);
    QTRY_VERIFY(ui->authDialogs.isEmpty());
}

void TestUI::closeControlDenies()
{
    QVERIFY(startUI());
    ProtocolClient *phone = fixture->connectStranger(QStringLiteral("phone-new"));
    QVERIFY(phone);
    QMessageBox *box = waitForPrompt();
    QVERIFY(box);
    // The window manager's close control, as the title bar's button sends it.
    QVERIFY(QProcess::execute(QStringLiteral("wmctrl"),
                { QStringLiteral("-i"), QStringLiteral("-c"), QString::number(box->winId()) })
        == 0);
    QTRY_VERIFY(phone->isClosed());
    QCOMPARE(fixture->core->server->totalAuthorizations(), 0);
    QTRY_VERIFY(ui->authDialogs.isEmpty());
}

void TestUI::deviceLeavingClosesThePrompt()
{
    QVERIFY(startUI());
    ProtocolClient *phone = fixture->connectStranger(QStringLiteral("phone-new"));
    QVERIFY(phone);
    QPointer<QMessageBox> box = waitForPrompt();
    QVERIFY(box);
    phone->close();
    QTRY_VERIFY(!box);
    QVERIFY(ui->authDialogs.isEmpty());
    QCOMPARE(fixture->core->server->totalAuthorizations(), 0);
    // The next device gets its own prompt and its own answer.
    ProtocolClient *next = fixture->connectStranger(QStringLiteral("phone-next"));
    QVERIFY(next);
    QVERIFY(waitForPrompt());
    QVERIFY(!next->isClosed());
}

void TestUI::welcomeWhenPermissionMissing()
{
    fixture->platform->granted = false;
    QVERIFY(startUI());
    QTRY_VERIFY(ui->welcomeView);
    WelcomeView *welcome = ui->welcomeView;
    QVERIFY(QTest::qWaitForWindowExposed(welcome));
    QCOMPARE(welcome->windowTitle(), QStringLiteral("Welcome to Velm Server"));
    QVERIFY(!welcome->dontShowBox);
    QVERIFY(welcome->findChildren<QCheckBox *>().isEmpty());
    QCOMPARE(welcome->closeButton->text(), QStringLiteral("OK"));
    const QString text = welcome->textLabel->text();
    QVERIFY(text.contains(
        QStringLiteral("Velm Server needs permissions to use accessibility features.")));
    QCOMPARE(text.count(QStringLiteral("<li>")), 3);
    QVERIFY(text.contains(QStringLiteral("accessibility settings of your desktop")));
    QPointer<WelcomeView> guard(welcome);
    welcome->closeButton->click();
    QTRY_VERIFY(!guard);
}

void TestUI::welcomeWhenGranted()
{
    QSettings().setValue(QStringLiteral("welcome"), false);
    QVERIFY(startUI());
    QTRY_VERIFY(ui->welcomeView);
    WelcomeView *welcome = ui->welcomeView;
    QVERIFY(QTest::qWaitForWindowExposed(welcome));
    QVERIFY(welcome->dontShowBox);
    QCOMPARE(welcome->dontShowBox->text(), QStringLiteral("Do not show this message again"));
    QCOMPARE(welcome->closeButton->text(), QStringLiteral("Use Velm Server"));
    const QString text = welcome->textLabel->text();
    QVERIFY(text.contains(QStringLiteral(
        "You can now connect your device to this Velm Server named <b>studio</b>.")));
    QVERIFY(text.contains(QStringLiteral(":/icons/")));
    QVERIFY(text.contains(QStringLiteral("Velm Server lives as a tray icon on your menu bar.")));
    welcome->dontShowBox->click();
    QCOMPARE(QSettings().value(QStringLiteral("welcome")).toBool(), true);
    welcome->dontShowBox->click();
    QCOMPARE(QSettings().value(QStringLiteral("welcome")).toBool(), false);
}

void TestUI::welcomeNotShownWhenDismissed()
{
    QVERIFY(startUI());
    // The server is up: the start-up reaction has run.
    QVERIFY(!ui->welcomeView);
}

void TestUI::needPermissionsShowsWelcome()
{
    QVERIFY(startUI());
    QVERIFY(!ui->welcomeView);
    fixture->platform->granted = false;
    emit fixture->platform->needPermissions();
    QVERIFY(ui->welcomeView);
    QVERIFY(QTest::qWaitForWindowExposed(ui->welcomeView.data()));
    QCOMPARE(ui->welcomeView->closeButton->text(), QStringLiteral("OK"));
}

void TestUI::menuOpensTheDialogsOnce()
{
    QVERIFY(startUI());
    const QList<QAction *> actions = ui->trayIcon->contextMenu()->actions();
    actions.at(4)->trigger();
    QVERIFY(ui->preferences);
    QVERIFY(QTest::qWaitForWindowExposed(ui->preferences.data()));
    QPointer<Preferences> preferences = ui->preferences.data();
    actions.at(4)->trigger();
    QCOMPARE(ui->preferences.data(), preferences.data());
    actions.at(5)->trigger();
    QVERIFY(ui->aboutBox);
    QVERIFY(QTest::qWaitForWindowExposed(ui->aboutBox.data()));
    ui->preferences->close();
    QTRY_VERIFY(!preferences);
    QVERIFY(!ui->preferences);
    actions.at(4)->trigger();
    QVERIFY(ui->preferences);

    // The web remote's address, as the server gives it, once however often it is asked for.
    actions.at(2)->trigger();
    QVERIFY(ui->webRemote);
    QVERIFY(QTest::qWaitForWindowExposed(ui->webRemote.data()));
    QCOMPARE(ui->webRemote->address(), fixture->core->server->webRemoteAddress());
    QVERIFY(ui->webRemote->address().endsWith(
        QStringLiteral(":%1/").arg(fixture->core->server->serverPort())));
    QPointer<WebRemoteDialog> webRemote = ui->webRemote.data();
    actions.at(2)->trigger();
    QCOMPARE(ui->webRemote.data(), webRemote.data());
    webRemote->close();
    QTRY_VERIFY(!webRemote);
}

QTEST_MAIN(TestUI)
#include "tst_ui.moc"

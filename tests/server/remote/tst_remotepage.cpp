#include "browser.h"
#include "core.h"
#include "dbusmock.h"
#include "feedupdater.h"
#include "httpfixture.h"
#include "l.h"
#include "linuxplatform.h"
#include "server.h"
#include "serverfixture.h"
#include "testenvironment.h"
#include "ui.h"
#include "updater.h"

#include <QAbstractButton>
#include <QApplication>
#include <QBuffer>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVariant>
#include <QDir>
#include <QFile>
#include <QImage>
#include <QMessageBox>
#include <QProcess>
#include <QPushButton>
#include <QSettings>
#include <QTemporaryDir>
#include <QWebSocket>
#include <QtTest>

#include <signal.h>

namespace {
const QString probePath = QStringLiteral(VELM_PROBE_WINDOW);
const QString phone = QStringLiteral("phone");
const QString tablet = QStringLiteral("tablet");

QString run(const QString &program, const QStringList &arguments)
{
    QProcess process;
    process.start(program, arguments);
    process.waitForFinished(10000);
    return QString::fromUtf8(process.readAllStandardOutput()).trimmed();
}

// Real input through the X server, as the tray tests give it.
bool clickOn(QWidget *widget)
{
    const QPoint centre = widget->mapToGlobal(widget->rect().center());
    return QProcess::execute(QStringLiteral("xdotool"),
               { QStringLiteral("mousemove"), QString::number(centre.x()),
                   QString::number(centre.y()), QStringLiteral("click"), QStringLiteral("1") })
        == 0;
}

QString activeWindowPid()
{
    const QString line = run(
        QStringLiteral("xprop"), { QStringLiteral("-root"), QStringLiteral("_NET_ACTIVE_WINDOW") });
    const QString window = line.section(QLatin1Char('#'), 1).trimmed();
    return run(
        QStringLiteral("xprop"), { QStringLiteral("-id"), window, QStringLiteral("_NET_WM_PID") })
        .section(QLatin1Char('='), 1)
        .trimmed();
}

// The null sink's volume in percent and its mute state, as PulseAudio has them.
int sinkVolume()
{
    const QString text = run(QStringLiteral("pactl"),
        { QStringLiteral("get-sink-volume"), QStringLiteral("velm_null") });
    const QRegularExpressionMatch match = QRegularExpression(QStringLiteral("(\\d+)%")).match(text);
    return match.hasMatch() ? match.captured(1).toInt() : -1;
}

bool sinkMuted()
{
    return run(
        QStringLiteral("pactl"), { QStringLiteral("get-sink-mute"), QStringLiteral("velm_null") })
        .endsWith(QLatin1String("yes"));
}

QString playbackStatus(const QString &player)
{
    QDBusMessage get
        = QDBusMessage::createMethodCall(player, QStringLiteral("/org/mpris/MediaPlayer2"),
            QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Get"));
    get << QStringLiteral("org.mpris.MediaPlayer2.Player") << QStringLiteral("PlaybackStatus");
    const QDBusMessage reply = QDBusConnection::sessionBus().call(get, QDBus::Block, 2000);
    if (reply.type() != QDBusMessage::ReplyMessage)
        return QString();
    return reply.arguments().constFirst().value<QDBusVariant>().variant().toString();
}

QJsonObject at(const QString &context, const QString &selector)
{
    return QJsonObject { { QStringLiteral("context"), context },
        { QStringLiteral("selector"), selector } };
}

QJsonObject with(QJsonObject object, const QString &key, const QJsonValue &value)
{
    object.insert(key, value);
    return object;
}
} // namespace

// The web remote in a real browser (Debian's Chromium, headless) at a phone's size, against the
// program on the rig's desktop: paired through the tray prompt, then driving real effects that
// are checked where they happen.
class TestRemotePage : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanupTestCase();
    void deniedBrowserAsksOnlyWhenTold();
    void pairThroughThePromptAndReconnectEncrypted();
    void unsupportedFeaturesAreHidden();
    void applicationLaunchedAndActivated();
    void keysReachTheApplication();
    void commandSetButtons();
    void folderListed();
    void volumeAndMute();
    void mediaPlayerPaused();
    void lockAfterConfirmation();
    void secondBrowserSeesPushes();
    void menusAndTheFocusedField();
    void noScriptErrors();

private:
    // Opens the page in a new browser profile and approves it at the prompt.
    bool pair(const QString &context, const QString &locale, const QString &waiting);
    // Saves the page as a picture for the README, when the screenshots are being made.
    void shoot(const QString &context, const QString &name);
    bool call(const QString &command, const QJsonObject &arguments);
    QStringList probeKeys() const;
    QStringList probeLines(const QByteArray &prefix) const;

    QTemporaryDir data;
    QString files;
    HttpFixture web;
    LinuxPlatform *platform = nullptr;
    Core *core = nullptr;
    UI *ui = nullptr;
    Browser browser;
    QString url;
    QProcess player;
    QProcess accessible;
    QString launchedLog;
};

bool TestRemotePage::call(const QString &command, const QJsonObject &arguments)
{
    if (browser.run(command, arguments))
        return true;
    qWarning().noquote() << browser.error();
    return false;
}

void TestRemotePage::shoot(const QString &context, const QString &name)
{
    const QByteArray dir = qgetenv("VELM_SCREENSHOT_DIR");
    if (dir.isEmpty())
        return;
    const QString path = QString::fromLocal8Bit(dir) + QStringLiteral("/remote-%1.png").arg(name);
    QVERIFY(call(QStringLiteral("screenshot"),
        QJsonObject { { QStringLiteral("context"), context }, { QStringLiteral("path"), path } }));
}

QStringList TestRemotePage::probeLines(const QByteArray &prefix) const
{
    QFile file(launchedLog);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    QStringList lines;
    for (const QByteArray &line : file.readAll().split('\n')) {
        if (line.startsWith(prefix))
            lines << QString::fromUtf8(line);
    }
    return lines;
}

QStringList TestRemotePage::probeKeys() const
{
    QFile file(launchedLog);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    QStringList texts;
    for (const QByteArray &line : file.readAll().split('\n')) {
        if (line.startsWith("key "))
            texts << QString::fromUtf8(QByteArray::fromHex(line.split(' ').value(3)));
    }
    return texts;
}

void TestRemotePage::initTestCase()
{
    TestEnvironment::setUp();
    QSettings().setValue(QStringLiteral("welcome"), true);
    QSettings().setValue(QStringLiteral("preventSleep"), false);
    Updater::setInstance(new updater::FeedUpdater(this));

    // The probe as an installed application, and a command set for it from a web service.
    const QString applications = data.filePath(QStringLiteral("applications"));
    QVERIFY(QDir().mkpath(applications));
    launchedLog = data.filePath(QStringLiteral("launched.log"));
    QFile entry(applications + QStringLiteral("/velm-probe.desktop"));
    QVERIFY(entry.open(QIODevice::WriteOnly));
    entry.write(QStringLiteral("[Desktop Entry]\nType=Application\nName=Velm Probe\nExec=%1 "
                               "--class probeclass --title Launched --log %2\n"
                               "StartupWMClass=Probeclass\n")
                    .arg(probePath, launchedLog)
                    .toUtf8());
    entry.close();
    qputenv("XDG_DATA_HOME", data.path().toUtf8());
    qputenv("VELM_WS_BASE", web.base() + "/velm-ws");
    web.script("/velm-ws/app?q=velm-probe",
        { { 200, "OK", R"({"c":[{"n":"Type ok","k":["o","k"],"i":"ok"}]})", {}, 0, 0 } });
    QImage icon(40, 40, QImage::Format_ARGB32);
    icon.fill(Qt::darkGreen);
    QBuffer png;
    png.open(QIODevice::WriteOnly);
    icon.save(&png, "PNG");
    web.script("/velm-ws/icon?i=ok&s=40",
        { { 200, "OK", png.data(), { { "Content-Type", "image/png" } }, 0, 0 } });

    // A folder of the user's to browse.
    files = QDir::home().filePath(
        QStringLiteral("Remote files %1").arg(QCoreApplication::applicationPid()));
    QVERIFY(QDir().mkpath(files + QStringLiteral("/Inside")));
    for (const QString &name : { QStringLiteral("notes.txt"), QStringLiteral("photo.png") }) {
        QFile file(files + QLatin1Char('/') + name);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("remote");
    }

    platform = new LinuxPlatform;
    core = new Core(platform);
    ui = new UI;
    QTRY_VERIFY(core->server && core->server->handler(L::unsupported));
    url = QStringLiteral("http://127.0.0.1:%1/").arg(listeningPort(core->server));

    QVERIFY2(browser.start(), qPrintable(browser.error()));
}

void TestRemotePage::cleanupTestCase()
{
    for (QProcess *process : { &player, &accessible }) {
        if (process->state() != QProcess::NotRunning) {
            process->kill();
            process->waitForFinished(3000);
        }
    }
    // The launched probe is no child of this test.
    const QString pid = run(QStringLiteral("pgrep"), { QStringLiteral("-f"), launchedLog });
    for (const QString &one : pid.split(QLatin1Char('\n'), Qt::SkipEmptyParts))
        ::kill(one.toInt(), SIGKILL);
    QDir(files).removeRecursively();
    run(QStringLiteral("pactl"),
        { QStringLiteral("set-sink-mute"), QStringLiteral("velm_null"), QStringLiteral("0") });
    delete ui;
    delete core;
}

bool TestRemotePage::pair(const QString &context, const QString &locale, const QString &waiting)
{
    const int before = core->server->getClients().size();
    bool ok = false;
    const int status
        = browser
              .call(QStringLiteral("open"),
                  { { QStringLiteral("context"), context }, { QStringLiteral("url"), url },
                      { QStringLiteral("locale"), locale },
                      { QStringLiteral("colorScheme"),
                          locale.startsWith(QLatin1String("it")) ? QStringLiteral("dark")
                                                                 : QStringLiteral("light") } },
                  &ok)
              .toInt();
    if (!ok || status != 200)
        return false;
    if (!call(QStringLiteral("waitText"),
            with(at(context, QStringLiteral("#pairing-text")), QStringLiteral("text"), waiting)))
        return false;
    if (context == phone)
        shoot(context, QStringLiteral("pairing"));
    if (!QTest::qWaitFor([this] { return ui->authDialogs.size() == 1; }, 10000))
        return false;
    QMessageBox *box = ui->authDialogs.first();
    if (!QTest::qWaitForWindowExposed(box))
        return false;
    QAbstractButton *authorize = nullptr;
    for (QAbstractButton *button : box->buttons()) {
        if (button->text() == QLatin1String("Authorize"))
            authorize = button;
    }
    if (!authorize || !clickOn(authorize))
        return false;
    return call(QStringLiteral("waitVisible"), at(context, QStringLiteral("#main")))
        && QTest::qWaitFor([&] { return core->server->getClients().size() == before + 1; }, 10000);
}

void TestRemotePage::deniedBrowserAsksOnlyWhenTold()
{
    const QString stranger = QStringLiteral("stranger");
    QVERIFY(call(QStringLiteral("open"),
        QJsonObject { { QStringLiteral("context"), stranger }, { QStringLiteral("url"), url } }));
    for (int round = 0; round < 2; ++round) {
        QTRY_COMPARE_WITH_TIMEOUT(ui->authDialogs.size(), 1, 10000);
        QMessageBox *box = ui->authDialogs.first();
        QVERIFY(QTest::qWaitForWindowExposed(box));
        QAbstractButton *deny = nullptr;
        for (QAbstractButton *button : box->buttons()) {
            if (button->text() == QLatin1String("Deny"))
                deny = button;
        }
        QVERIFY(deny);
        QVERIFY(clickOn(deny));
        QVERIFY(call(QStringLiteral("waitText"),
            with(at(stranger, QStringLiteral("#pairing-text")), QStringLiteral("text"),
                QStringLiteral("This device was not approved on the computer."))));
        QTRY_VERIFY(ui->authDialogs.isEmpty());
        // Only when the person asks does the prompt come back.
        QVERIFY(call(QStringLiteral("click"), at(stranger, QStringLiteral("#pair-again"))));
    }
    QTRY_COMPARE(ui->authDialogs.size(), 1);
    QVERIFY(call(QStringLiteral("close"), QJsonObject { { QStringLiteral("context"), stranger } }));
    QTRY_VERIFY(ui->authDialogs.isEmpty());
    QCOMPARE(core->server->totalAuthorizations(), 0);
}

void TestRemotePage::pairThroughThePromptAndReconnectEncrypted()
{
    QVERIFY(pair(
        phone, QStringLiteral("en-US"), QStringLiteral("Waiting for approval on the computer...")));
    QCOMPARE(core->server->totalAuthorizations(), 1);
    // The token was kept, and the connection that stays is the second one, with a key.
    bool ok = false;
    const QString token = browser
                              .call(QStringLiteral("evaluate"),
                                  { { QStringLiteral("context"), phone },
                                      { QStringLiteral("expression"),
                                          QStringLiteral("localStorage.getItem('velm.token')") } },
                                  &ok)
                              .toString();
    QVERIFY(ok);
    const QString id = browser
                           .call(QStringLiteral("evaluate"),
                               { { QStringLiteral("context"), phone },
                                   { QStringLiteral("expression"),
                                       QStringLiteral("localStorage.getItem('velm.deviceId')") } })
                           .toString();
    QCOMPARE(token.size(), 32);
    QCOMPARE(core->server->getAuthorizationToken(id), token);
    QWebSocket *socket = core->server->getClients().constFirst();
    QCOMPARE(socket->property(Server::aesKeyProperty).toByteArray().size(), 20);
    QCOMPARE(socket->property(Server::idProperty).toString(), id);

    // Loaded again, it proves its key at once: no prompt.
    QVERIFY(call(QStringLiteral("reload"), { { QStringLiteral("context"), phone } }));
    QVERIFY(call(QStringLiteral("waitVisible"), at(phone, QStringLiteral("#main"))));
    QTRY_COMPARE(core->server->getClients().size(), 1);
    QVERIFY(ui->authDialogs.isEmpty());
    QCOMPARE(core->server->totalAuthorizations(), 1);
    QVERIFY(core->server->getClients().constFirst() != socket);
    QCOMPARE(core->server->getClients()
                 .constFirst()
                 ->property(Server::aesKeyProperty)
                 .toByteArray()
                 .size(),
        20);
}

void TestRemotePage::unsupportedFeaturesAreHidden()
{
    // Whatever this desktop cannot do is not offered; what it can do is.
    QTRY_VERIFY(call(QStringLiteral("waitVisible"), at(phone, QStringLiteral("#apps li"))));
    const QStringList unsupported = platform->getUnsupported();
    for (const QString &code : { L::volume, L::volumeMute, L::brightness, L::screenLock,
             L::playPause, L::sleep, L::shutdown, L::directoryListing, L::appMenu }) {
        bool ok = false;
        const bool visible
            = browser
                  .call(QStringLiteral("evaluate"),
                      { { QStringLiteral("context"), phone },
                          { QStringLiteral("expression"),
                              QStringLiteral("[...document.querySelectorAll('[data-code=\"%1\"]')]"
                                             ".every((e) => !e.hidden)")
                                  .arg(code) } },
                      &ok)
                  .toBool();
        QVERIFY(ok);
        QVERIFY2(visible == !unsupported.contains(code), qPrintable(code));
    }
}

void TestRemotePage::applicationLaunchedAndActivated()
{
    QVERIFY(call(QStringLiteral("waitVisible"),
        at(phone, QStringLiteral("[data-activate=\"velm-probe\"]"))));
    // Installed applications come with their icons.
    QVERIFY(
        call(QStringLiteral("click"), at(phone, QStringLiteral("[data-activate=\"velm-probe\"]"))));
    QTRY_VERIFY_WITH_TIMEOUT(QFile(launchedLog).size() > 0, 15000);
    QTRY_VERIFY_WITH_TIMEOUT(
        !run(QStringLiteral("pgrep"), { QStringLiteral("-f"), launchedLog }).isEmpty(), 10000);
    const QString pid = run(QStringLiteral("pgrep"), { QStringLiteral("-f"), launchedLog })
                            .section(QLatin1Char('\n'), 0, 0);
    QTRY_COMPARE_WITH_TIMEOUT(activeWindowPid(), pid, 15000);
    // The page marks it as the one in front.
    QVERIFY(call(QStringLiteral("waitText"),
        with(at(phone, QStringLiteral("#apps li.front")), QStringLiteral("text"),
            QStringLiteral("Velm Probe"))));
    QVERIFY(call(QStringLiteral("waitText"),
        with(at(phone, QStringLiteral("#front-name")), QStringLiteral("text"),
            QStringLiteral("Velm Probe"))));
    QVERIFY(call(QStringLiteral("waitVisible"),
        at(phone, QStringLiteral("#apps li.front img[src^=\"blob:\"]"))));
    shoot(phone, QStringLiteral("applications"));
}

void TestRemotePage::keysReachTheApplication()
{
    QVERIFY(call(QStringLiteral("click"), at(phone, QStringLiteral("[data-tab=\"control\"]"))));
    const int before = probeKeys().size();
    QVERIFY(call(QStringLiteral("fill"),
        with(at(phone, QStringLiteral("#type-text")), QStringLiteral("text"),
            QStringLiteral("Hi, a+b"))));
    QVERIFY(call(QStringLiteral("evaluate"),
        { { QStringLiteral("context"), phone },
            { QStringLiteral("expression"),
                QStringLiteral(
                    "document.getElementById('scroll-up').scrollIntoView({block: 'start'})") } }));
    shoot(phone, QStringLiteral("keyboard"));
    QVERIFY(call(QStringLiteral("click"), at(phone, QStringLiteral("#type-send"))));
    QTRY_COMPARE_WITH_TIMEOUT(
        probeKeys().mid(before).join(QString()), QStringLiteral("Hi, a+b"), 10000);
    // A shortcut button: Return.
    QVERIFY(call(QStringLiteral("click"), at(phone, QStringLiteral("[data-keys=\"return\"]"))));
    QTRY_COMPARE(probeKeys().mid(before).join(QString()), QStringLiteral("Hi, a+b\r"));

    // Scrolling: the buttons, and a finger dragged down the pad (the content follows it up).
    QVERIFY(call(QStringLiteral("click"), at(phone, QStringLiteral("#scroll-down"))));
    QTRY_COMPARE(probeLines("wheel"), QStringList { QStringLiteral("wheel down") });
    QVERIFY(call(QStringLiteral("click"), at(phone, QStringLiteral("#scroll-up"))));
    QTRY_COMPARE(probeLines("wheel").size(), 2);
    QCOMPARE(probeLines("wheel").last(), QStringLiteral("wheel up"));
    QVERIFY(call(QStringLiteral("drag"),
        with(at(phone, QStringLiteral("#scroll-pad")), QStringLiteral("dy"), 100)));
    QTRY_VERIFY(probeLines("wheel").size() >= 4);
    QCOMPARE(probeLines("wheel").mid(2).filter(QStringLiteral("down")), QStringList());
}

void TestRemotePage::commandSetButtons()
{
    // The front application's command set, with its icon from the web service.
    QVERIFY(call(
        QStringLiteral("waitVisible"), at(phone, QStringLiteral("[data-command=\"Type ok\"]"))));
    QVERIFY(call(QStringLiteral("waitVisible"),
        at(phone, QStringLiteral("[data-command=\"Type ok\"] img[src^=\"blob:\"]"))));
    const int before = probeKeys().size();
    QVERIFY(call(QStringLiteral("click"), at(phone, QStringLiteral("[data-command=\"Type ok\"]"))));
    QTRY_COMPARE(probeKeys().mid(before).join(QString()), QStringLiteral("ok"));
}

void TestRemotePage::folderListed()
{
    QVERIFY(call(QStringLiteral("click"), at(phone, QStringLiteral("[data-tab=\"files\"]"))));
    const QString folder = QFileInfo(files).fileName();
    QVERIFY(call(QStringLiteral("waitVisible"),
        at(phone, QStringLiteral("#files li[data-file=\"%1\"]").arg(folder))));
    QVERIFY(call(QStringLiteral("click"),
        at(phone, QStringLiteral("#files li[data-file=\"%1\"] button").arg(folder))));
    QVERIFY(call(QStringLiteral("waitText"),
        with(at(phone, QStringLiteral("#files-path")), QStringLiteral("text"), files)));
    bool ok = false;
    const QJsonArray names
        = browser.call(QStringLiteral("texts"), at(phone, QStringLiteral("#files li .name")), &ok)
              .toArray();
    QVERIFY(ok);
    QCOMPARE(names,
        (QJsonArray {
            QStringLiteral("Inside"), QStringLiteral("notes.txt"), QStringLiteral("photo.png") }));
    // Icons as the entries show.
    QVERIFY(call(QStringLiteral("waitVisible"),
        at(phone, QStringLiteral("#files li[data-file=\"notes.txt\"] img[src^=\"blob:\"]"))));
    shoot(phone, QStringLiteral("files"));
    // A file's sheet: its preview and what opens it.
    QVERIFY(call(QStringLiteral("click"),
        at(phone, QStringLiteral("#files li[data-file=\"photo.png\"] button"))));
    QVERIFY(call(QStringLiteral("waitVisible"), at(phone, QStringLiteral("#sheet-open"))));
    QVERIFY(call(QStringLiteral("click"), at(phone, QStringLiteral("#sheet-close"))));
    QVERIFY(call(QStringLiteral("waitHidden"), at(phone, QStringLiteral("#sheet"))));
    // Back up where it came from.
    QVERIFY(call(QStringLiteral("click"), at(phone, QStringLiteral("#files-up"))));
    QVERIFY(call(QStringLiteral("waitVisible"),
        at(phone, QStringLiteral("#files li[data-file=\"%1\"]").arg(folder))));
}

void TestRemotePage::volumeAndMute()
{
    QVERIFY(call(QStringLiteral("click"), at(phone, QStringLiteral("[data-tab=\"system\"]"))));
    const int target = sinkVolume() == 37 ? 38 : 37;
    QVERIFY(call(QStringLiteral("setValue"),
        with(at(phone, QStringLiteral("#volume")), QStringLiteral("value"),
            QString::number(target))));
    QTRY_COMPARE(sinkVolume(), target);
    const bool muted = sinkMuted();
    QVERIFY(call(QStringLiteral("setChecked"),
        with(at(phone, QStringLiteral("#mute")), QStringLiteral("checked"), !muted)));
    QTRY_COMPARE(sinkMuted(), !muted);
    QVERIFY(call(QStringLiteral("setChecked"),
        with(at(phone, QStringLiteral("#mute")), QStringLiteral("checked"), muted)));
    QTRY_COMPARE(sinkMuted(), muted);
    // Changed at the computer: the page follows.
    run(QStringLiteral("pactl"),
        { QStringLiteral("set-sink-volume"), QStringLiteral("velm_null"), QStringLiteral("55%") });
    QVERIFY(call(QStringLiteral("waitValue"),
        with(at(phone, QStringLiteral("#volume")), QStringLiteral("value"), QStringLiteral("55"))));
}

void TestRemotePage::mediaPlayerPaused()
{
    player.setProcessChannelMode(QProcess::ForwardedChannels);
    player.start(QStringLiteral("mpv"),
        { QStringLiteral("--no-config"), QStringLiteral("--no-video"), QStringLiteral("--ao=pulse"),
            QStringLiteral("--really-quiet"),
            QStringLiteral("--script=/usr/lib/mpv-mpris/mpris.so"),
            QStringLiteral("av://lavfi:sine=frequency=440:duration=600") });
    QVERIFY(player.waitForStarted(5000));
    const QString name = QStringLiteral("org.mpris.MediaPlayer2.mpv");
    QTRY_COMPARE_WITH_TIMEOUT(playbackStatus(name), QStringLiteral("Playing"), 10000);
    QVERIFY(call(QStringLiteral("click"), at(phone, QStringLiteral("[data-send=\"pp\"]"))));
    QTRY_COMPARE_WITH_TIMEOUT(playbackStatus(name), QStringLiteral("Paused"), 10000);
}

void TestRemotePage::lockAfterConfirmation()
{
    const QString login = QStringLiteral("org.freedesktop.login1");
    const QString manager = QStringLiteral("/org/freedesktop/login1");
    const QDBusConnection system = QDBusConnection::systemBus();
    DBusMock::clearCalls(login, manager, system);
    auto locked = [&] {
        for (const DBusMock::Call &call : DBusMock::calls(login, manager, system)) {
            if (call.method == QLatin1String("LockSession"))
                return true;
        }
        return false;
    };
    // Cancelled: nothing happens.
    QVERIFY(call(QStringLiteral("click"), at(phone, QStringLiteral("[data-confirm=\"lock\"]"))));
    QVERIFY(call(QStringLiteral("waitText"),
        with(at(phone, QStringLiteral("#confirm-text")), QStringLiteral("text"),
            QStringLiteral("Lock the screen?"))));
    QVERIFY(call(QStringLiteral("click"), at(phone, QStringLiteral("#confirm-cancel"))));
    QVERIFY(call(QStringLiteral("waitHidden"), at(phone, QStringLiteral("#confirm"))));
    QVERIFY(call(QStringLiteral("click"), at(phone, QStringLiteral("[data-send=\"nt\"]"))));
    QVERIFY(core->server->getClients().size() == 1);
    QVERIFY(!locked());
    // Confirmed: locked through logind.
    QVERIFY(call(QStringLiteral("click"), at(phone, QStringLiteral("[data-confirm=\"lock\"]"))));
    QVERIFY(call(QStringLiteral("click"), at(phone, QStringLiteral("#confirm-ok"))));
    QTRY_VERIFY(locked());
}

void TestRemotePage::secondBrowserSeesPushes()
{
    // A second device, in Italian and in the dark.
    QVERIFY(pair(tablet, QStringLiteral("it-IT"),
        QStringLiteral("In attesa di approvazione sul computer...")));
    QCOMPARE(
        browser.call(QStringLiteral("text"), at(tablet, QStringLiteral("[data-tab=\"system\"]")))
            .toString(),
        QStringLiteral("Sistema"));
    QCOMPARE(core->server->getClients().size(), 2);
    QVERIFY(call(QStringLiteral("click"), at(tablet, QStringLiteral("[data-tab=\"system\"]"))));
    QVERIFY(call(QStringLiteral("waitValue"),
        with(
            at(tablet, QStringLiteral("#volume")), QStringLiteral("value"), QStringLiteral("55"))));
    // The phone changes the volume; the tablet shows it.
    QVERIFY(call(QStringLiteral("setValue"),
        with(at(phone, QStringLiteral("#volume")), QStringLiteral("value"), QStringLiteral("42"))));
    QVERIFY(call(QStringLiteral("waitValue"),
        with(
            at(tablet, QStringLiteral("#volume")), QStringLiteral("value"), QStringLiteral("42"))));
    QTRY_COMPARE(sinkVolume(), 42);
    // And the application in front.
    QVERIFY(call(QStringLiteral("waitText"),
        with(at(tablet, QStringLiteral("#front-name")), QStringLiteral("text"),
            QStringLiteral("Velm Probe"))));
}

void TestRemotePage::menusAndTheFocusedField()
{
    // A Qt application with menus and a text field that has the focus, read through the
    // accessibility bus.
    const QString log = data.filePath(QStringLiteral("accessible.log"));
    auto lines = [log] {
        QFile file(log);
        return file.open(QIODevice::ReadOnly)
            ? QString::fromUtf8(file.readAll()).split(QLatin1Char('\n'), Qt::SkipEmptyParts)
            : QStringList();
    };
    accessible.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    accessible.start(QStringLiteral(VELM_A11Y_QT_APP), { log });
    QVERIFY(accessible.waitForStarted(5000));
    QTRY_VERIFY_WITH_TIMEOUT(lines().contains(QStringLiteral("ready")), 10000);
    QVERIFY(call(QStringLiteral("click"), at(phone, QStringLiteral("[data-tab=\"control\"]"))));
    QVERIFY(call(QStringLiteral("waitValue"),
        with(at(phone, QStringLiteral("#focus-value")), QStringLiteral("value"),
            QStringLiteral("hello world"))));
    QVERIFY(call(QStringLiteral("fill"),
        with(at(phone, QStringLiteral("#focus-value")), QStringLiteral("text"),
            QStringLiteral("from the browser"))));
    QVERIFY(call(QStringLiteral("click"), at(phone, QStringLiteral("#focus-set"))));
    QTRY_VERIFY(lines().contains(QStringLiteral("entry from the browser")));

    // The menu tree, opened level by level as a finger would.
    QVERIFY(call(QStringLiteral("click"), at(phone, QStringLiteral("[data-tab=\"menu\"]"))));
    QVERIFY(
        call(QStringLiteral("click"), at(phone, QStringLiteral("[data-menu=\"Edit\"] > summary"))));
    QVERIFY(call(QStringLiteral("click"),
        at(phone, QStringLiteral("[data-menu=\"Edit › Transform\"] > summary"))));
    QVERIFY(call(QStringLiteral("click"),
        at(phone, QStringLiteral("[data-menu=\"Edit › Transform › Upper\"]"))));
    QTRY_VERIFY(lines().contains(QStringLiteral("menu Upper")));
    QVERIFY(
        call(QStringLiteral("click"), at(phone, QStringLiteral("[data-menu=\"File\"] > summary"))));
    QVERIFY(call(QStringLiteral("click"),
        at(phone, QStringLiteral("[data-menu=\"File › Recent\"] > summary"))));
    QVERIFY(call(QStringLiteral("click"),
        at(phone, QStringLiteral("[data-menu=\"File › Recent › First File\"]"))));
    QTRY_VERIFY(lines().contains(QStringLiteral("menu First File")));
    shoot(phone, QStringLiteral("menu"));
}

void TestRemotePage::noScriptErrors()
{
    for (const QString &context : { phone, tablet }) {
        bool ok = false;
        const QJsonArray errors
            = browser
                  .call(QStringLiteral("errors"), { { QStringLiteral("context"), context } }, &ok)
                  .toArray();
        QVERIFY(ok);
        QVERIFY2(errors.isEmpty(), QJsonDocument(errors).toJson().constData());
    }
}

QTEST_MAIN(TestRemotePage)
#include "tst_remotepage.moc"

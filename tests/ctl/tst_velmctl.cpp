#include "corefixture.h"
#include "ctl.h"
#include "l.h"
#include "serverfixture.h"
#include "testenvironment.h"

#include <QCryptographicHash>
#include <QProcess>
#include <QTcpServer>
#include <QTcpSocket>
#include <QtEndian>
#include <QtTest>

#include <sys/stat.h>

namespace {
struct Result
{
    int code = -1;
    QString out;
    QString err;
};

// Whatever answers on the address velmctl was given: it takes the WebSocket handshake and
// then does what the test makes it do, knowing nothing of the protocol's manners.
class HostileServer : public QObject
{
public:
    HostileServer()
    {
        connect(&server, &QTcpServer::newConnection, this, [this] { accept(); });
    }
    bool listen() { return server.listen(QHostAddress::LocalHost); }
    quint16 port() const { return server.serverPort(); }
    // Runs once the handshake has been answered.
    std::function<void(QTcpSocket *)> onOpen;
    QTcpSocket *peer = nullptr;

    // An unmasked binary frame's header for a payload of that size.
    static QByteArray header(quint8 first, quint64 size)
    {
        QByteArray bytes(1, char(first));
        if (size < 126) {
            bytes.append(char(size));
        } else if (size <= 0xffff) {
            bytes.append(char(126));
            quint16 big = qToBigEndian(quint16(size));
            bytes.append(reinterpret_cast<const char *>(&big), 2);
        } else {
            bytes.append(char(127));
            quint64 big = qToBigEndian(size);
            bytes.append(reinterpret_cast<const char *>(&big), 8);
        }
        return bytes;
    }
    // One protocol message: its length, then the body.
    static QByteArray message(const QByteArray &body)
    {
        QByteArray framed(4, Qt::Uninitialized);
        qToBigEndian(qint32(body.size()), framed.data());
        framed += body;
        return header(0x82, quint64(framed.size())) + framed;
    }

private:
    void accept()
    {
        peer = server.nextPendingConnection();
        connect(peer, &QTcpSocket::readyRead, this, [this] {
            if (opened)
                return;
            head += peer->readAll();
            const int end = head.indexOf("\r\n\r\n");
            if (end < 0)
                return;
            const QByteArray keyLine = head.mid(head.toLower().indexOf("sec-websocket-key:"));
            const QByteArray key = keyLine.mid(18, keyLine.indexOf("\r\n") - 18).trimmed();
            const QByteArray accept = QCryptographicHash::hash(
                key + "258EAFA5-E914-47DA-95CA-C5AB0DC85B11", QCryptographicHash::Sha1)
                                          .toBase64();
            peer->write("HTTP/1.1 101 Switching Protocols\r\nUpgrade: websocket\r\n"
                        "Connection: Upgrade\r\nSec-WebSocket-Accept: "
                + accept + "\r\n\r\n");
            opened = true;
            if (onOpen)
                onOpen(peer);
        });
    }
    QTcpServer server;
    QByteArray head;
    bool opened = false;
};
} // namespace

// velmctl against the real server and handlers over the fake platform: every command in this
// process, some through the velmctl program itself, pairing, and each exit code.
class TestVelmctl : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void cleanup();
    void mistakesAreUsageErrors();
    void withoutPairingItSaysSo();
    void pairingStoresTheTokenPrivately();
    void refusedPairingIsExitThree();
    void unknownTokenIsExitThree();
    void noServerIsExitFour();
    void silentServerTimesOut();
    void unsupportedCodesAreExitSix();
    void unsupportedIsSaidBeforeLookingForTheApplication();
    void aServerSendingTooMuchBeforeAuthenticationIsLeft();
    void aServerSendingTooMuchAfterAuthenticationIsLeft();
    void aServerThatDoesNotReadIsLeft();
    void listsAppsAndTheFrontOne();
    void actsOnApplicationsByNameOrId();
    void typesAndScrolls();
    void readsAndChoosesMenus();
    void readsSetsAndPressesTheFocusedElement();
    void machineLevelsAndActions();
    void filesAndIcons();
    void fileTypesPreviewsAndApplications();
    void commandSets();
    void sendPrintsTheReplies();
    void watchSeesWhatAnotherClientCauses();
    void theProgramItself();
    void completionsAndManualKnowEveryCommand();

private:
    Result run(const QStringList &arguments);
    QStringList target() const;
    void pairCtl();

    std::unique_ptr<CoreFixture> core;
    std::unique_ptr<QTemporaryDir> config;
    FakeApp *editor = nullptr;
    FakeApp *browser = nullptr;
};

void TestVelmctl::init()
{
    config = std::make_unique<QTemporaryDir>();
    qputenv("XDG_CONFIG_HOME", config->path().toLocal8Bit());
    qunsetenv("VELM_DEVICE_ID");
    qunsetenv("VELM_TOKEN");
    core = std::make_unique<CoreFixture>();
    editor = core->platform->addApp(
        QStringLiteral("org.example.Editor"), QStringLiteral("Editor"), 200);
    browser = core->platform->addApp(
        QStringLiteral("org.example.Browser"), QStringLiteral("Browser"), 100);
    core->platform->setRunning(editor, true);
    core->platform->setCurrentApp(editor);
    QVERIFY(core->start());
    editor->calls.clear();
    browser->calls.clear();
}

void TestVelmctl::cleanup()
{
    core.reset();
    config.reset();
}

QStringList TestVelmctl::target() const
{
    return { QStringLiteral("--host"), QStringLiteral("127.0.0.1"), QStringLiteral("--port"),
        QString::number(listeningPort(core->core->server)) };
}

void TestVelmctl::pairCtl()
{
    Pairing::authorize(QStringLiteral("ctl"), QStringLiteral("token-ctl"));
    qputenv("VELM_DEVICE_ID", "ctl");
    qputenv("VELM_TOKEN", "token-ctl");
}

Result TestVelmctl::run(const QStringList &arguments)
{
    Result result;
    CtlOptions options;
    QString error;
    if (!parseCtlArguments(QStringList { QStringLiteral("velmctl") } + arguments, &options, &error)
        || !(error = checkCtlCommand(options)).isEmpty()) {
        result.code = Exit::Usage;
        result.err = error;
        return result;
    }
    QTextStream out(&result.out);
    QTextStream err(&result.err);
    Ctl ctl(options, out, err);
    bool finished = false;
    connect(&ctl, &Ctl::finished, this, [&](int code) {
        result.code = code;
        finished = true;
    });
    ctl.start();
    if (!QTest::qWaitFor([&] { return finished; }, 30000))
        result.err += QStringLiteral("(the test gave up waiting)");
    return result;
}

void TestVelmctl::mistakesAreUsageErrors()
{
    QCOMPARE(run({}).code, int(Exit::Usage));
    const Result unknown = run({ QStringLiteral("dance") });
    QCOMPARE(unknown.code, int(Exit::Usage));
    QVERIFY(unknown.err.contains(QStringLiteral("velmctl help")));
    const Result noFile = run({ QStringLiteral("icon"), QStringLiteral("Editor") });
    QCOMPARE(noFile.code, int(Exit::Usage));
    QVERIFY(noFile.err.contains(QStringLiteral("-o FILE")));
    QCOMPARE(run({ QStringLiteral("apps"), QStringLiteral("--colour") }).code, int(Exit::Usage));
    QCOMPARE(
        run({ QStringLiteral("apps"), QStringLiteral("--port"), QStringLiteral("70000") }).code,
        int(Exit::Usage));
    QCOMPARE(run({ QStringLiteral("pair"), QStringLiteral("host:x") }).code, int(Exit::Usage));
    // Numbers beyond 16 and 32 bits are refused, not wrapped to another port.
    for (const QString &port : { QStringLiteral("99999999999"), QStringLiteral("65536"),
             QStringLiteral("4294967297"), QStringLiteral("-1"), QStringLiteral("0") }) {
        const Result result = run({ QStringLiteral("--port"), port, QStringLiteral("apps") });
        QCOMPARE(result.code, int(Exit::Usage));
        QVERIFY2(result.err.contains(QStringLiteral("from 1 to 65535")), qPrintable(result.err));
        QCOMPARE(run({ QStringLiteral("pair"), QStringLiteral("127.0.0.1:") + port }).code,
            int(Exit::Usage));
    }
    // So is a stored port edited by hand.
    {
        QVERIFY(QDir().mkpath(config->filePath(QStringLiteral("velmctl"))));
        QFile stored(config->filePath(QStringLiteral("velmctl/velmctl.conf")));
        QVERIFY(stored.open(QIODevice::WriteOnly));
        stored.write("deviceId=ctl\ntoken=token-ctl\nhost=127.0.0.1\nport=65537\n");
        stored.close();
        const Result result = run({ QStringLiteral("apps") });
        QCOMPARE(result.code, int(Exit::Usage));
        QVERIFY2(result.err.contains(QStringLiteral("\"65537\"")), qPrintable(result.err));
        QVERIFY(stored.remove());
    }
    pairCtl();
    QCOMPARE(
        run(target() << QStringLiteral("volume") << QStringLiteral("101")).code, int(Exit::Usage));
    QCOMPARE(
        run(target() << QStringLiteral("mute") << QStringLiteral("maybe")).code, int(Exit::Usage));
    const Result help = run({ QStringLiteral("help") });
    QCOMPARE(help.code, int(Exit::Done));
    for (const CtlCommand &command : ctlCommands())
        QVERIFY2(help.out.contains(command.usage), qPrintable(command.usage));
}

void TestVelmctl::withoutPairingItSaysSo()
{
    const Result result = run(target() << QStringLiteral("apps"));
    QCOMPARE(result.code, int(Exit::NotPaired));
    QVERIFY(result.err.contains(QStringLiteral("velmctl pair")));
}

void TestVelmctl::pairingStoresTheTokenPrivately()
{
    Server *server = core->core->server;
    QSignalSpy asked(server, &Server::needUserAuthorization);
    connect(server, &Server::needUserAuthorization, this,
        [server](QObject *, const QString &id) { server->setAuthorization(id, true); });
    const Result paired = run(
        { QStringLiteral("pair"), QStringLiteral("127.0.0.1:%1").arg(listeningPort(server)) });
    QCOMPARE(paired.code, int(Exit::Done));
    QCOMPARE(asked.size(), 1);
    QVERIFY(paired.err.contains(QStringLiteral("Waiting for approval")));
    QVERIFY(paired.out.contains(QStringLiteral("Paired with 127.0.0.1")));

    const QString file = CtlConfig::path();
    QVERIFY(file.startsWith(config->path()));
    struct stat info
    {
    };
    QCOMPARE(stat(QFile::encodeName(file).constData(), &info), 0);
    QCOMPARE(info.st_mode & 0777, mode_t(0600));
    const CtlConfig stored = CtlConfig::load();
    QVERIFY2(server->isAuthorized(stored.deviceId), qPrintable(stored.deviceId));
    QCOMPARE(stored.token, server->getAuthorizationToken(stored.deviceId));
    QCOMPARE(stored.port, listeningPort(server));

    // Later runs find the computer and prove the token without options.
    const Result apps = run({ QStringLiteral("apps") });
    QCOMPARE(apps.code, int(Exit::Done));
    QVERIFY(apps.out.contains(QStringLiteral("Editor (org.example.Editor), running")));

    const Result forgotten = run({ QStringLiteral("forget") });
    QCOMPARE(forgotten.code, int(Exit::Done));
    QVERIFY(!QFile::exists(file));
    QCOMPARE(run({ QStringLiteral("apps") }).code, int(Exit::NotPaired));
}

void TestVelmctl::refusedPairingIsExitThree()
{
    Server *server = core->core->server;
    connect(server, &Server::needUserAuthorization, this,
        [server](QObject *, const QString &id) { server->setAuthorization(id, false); });
    const Result refused = run({ QStringLiteral("pair"), QStringLiteral("127.0.0.1"),
        QStringLiteral("--port"), QString::number(listeningPort(server)) });
    QCOMPARE(refused.code, int(Exit::NotPaired));
    QVERIFY(refused.err.contains(QStringLiteral("did not approve")));
    QVERIFY(!QFile::exists(CtlConfig::path()));
}

void TestVelmctl::unknownTokenIsExitThree()
{
    pairCtl();
    qputenv("VELM_TOKEN", "not-the-token");
    const Result wrong = run(target() << QStringLiteral("apps"));
    QCOMPARE(wrong.code, int(Exit::NotPaired));
    // A device the computer has never seen is not put before the user by a plain command.
    Server *server = core->core->server;
    QSignalSpy asked(server, &Server::needUserAuthorization);
    qputenv("VELM_DEVICE_ID", "unknown");
    const Result unknown = run(target() << QStringLiteral("apps"));
    QCOMPARE(unknown.code, int(Exit::NotPaired));
    QVERIFY(unknown.err.contains(QStringLiteral("pair again")));
}

void TestVelmctl::noServerIsExitFour()
{
    pairCtl();
    QTcpServer closed;
    QVERIFY(closed.listen(QHostAddress::LocalHost));
    const quint16 port = closed.serverPort();
    closed.close();
    const Result result = run({ QStringLiteral("--host"), QStringLiteral("127.0.0.1"),
        QStringLiteral("--port"), QString::number(port), QStringLiteral("apps") });
    QCOMPARE(result.code, int(Exit::NoServer));
    QVERIFY(result.err.contains(QStringLiteral("is Velm Server running")));
}

void TestVelmctl::silentServerTimesOut()
{
    pairCtl();
    // Takes the connection and never answers the WebSocket handshake.
    QTcpServer silent;
    QVERIFY(silent.listen(QHostAddress::LocalHost));
    const Result result = run({ QStringLiteral("--host"), QStringLiteral("127.0.0.1"),
        QStringLiteral("--port"), QString::number(silent.serverPort()), QStringLiteral("--timeout"),
        QStringLiteral("0.5"), QStringLiteral("apps") });
    QCOMPARE(result.code, int(Exit::TimedOut));
    QVERIFY(result.err.contains(QStringLiteral("--timeout")));
}

void TestVelmctl::unsupportedCodesAreExitSix()
{
    pairCtl();
    core->platform->setUnsupportedList({ L::brightness, L::shutdown });
    const Result brightness = run(target() << QStringLiteral("brightness") << QStringLiteral("20"));
    QCOMPARE(brightness.code, int(Exit::Unsupported));
    QCOMPARE(core->platform->brightness, 0);
    QCOMPARE(run(target() << QStringLiteral("shutdown")).code, int(Exit::Unsupported));
    QVERIFY(!core->platform->calls.contains(QStringLiteral("shutdown")));
    const Result listed = run(target() << QStringLiteral("unsupported"));
    QCOMPARE(listed.out.trimmed(), QStringLiteral("b shutdown"));
}

void TestVelmctl::unsupportedIsSaidBeforeLookingForTheApplication()
{
    pairCtl();
    // Nothing in front, and the computer cannot type: the second is what matters.
    core->platform->setCurrentApp(nullptr);
    core->platform->setUnsupportedList({ L::keySequence, L::appMenu, L::appScroll });
    editor->calls.clear();
    for (const QStringList &command :
        { QStringList { QStringLiteral("keys"), QStringLiteral("Ctrl+t") },
            QStringList { QStringLiteral("menu") },
            QStringList { QStringLiteral("scroll"), QStringLiteral("1") } }) {
        const Result result = run(target() + command);
        QVERIFY2(result.code == Exit::Unsupported, qPrintable(result.err));
        QVERIFY2(result.err.contains(QStringLiteral("unsupported list")), qPrintable(result.err));
    }
    QVERIFY2(editor->calls.isEmpty(), qPrintable(editor->calls.join(QLatin1Char(' '))));
}

void TestVelmctl::aServerSendingTooMuchBeforeAuthenticationIsLeft()
{
    pairCtl();
    HostileServer hostile;
    QVERIFY(hostile.listen());
    // A header announcing a gigabyte, and the first bytes of it.
    hostile.onOpen = [](QTcpSocket *peer) {
        peer->write(HostileServer::header(0x82, 1024ull * 1024 * 1024));
        peer->write(QByteArray(64 * 1024, 'x'));
    };
    const Result result = run({ QStringLiteral("--host"), QStringLiteral("127.0.0.1"),
        QStringLiteral("--port"), QString::number(hostile.port()), QStringLiteral("apps") });
    QCOMPARE(result.code, int(Exit::NoServer));
    QVERIFY2(result.err.contains(QStringLiteral("larger than 4 KiB")), qPrintable(result.err));

    // A message just over the bound, in small fragments.
    HostileServer fragments;
    QVERIFY(fragments.listen());
    fragments.onOpen = [](QTcpSocket *peer) {
        peer->write(HostileServer::header(0x02, 3000) + QByteArray(3000, 'x'));
        peer->write(HostileServer::header(0x80, 3000) + QByteArray(3000, 'x'));
    };
    const Result fragmented = run({ QStringLiteral("--host"), QStringLiteral("127.0.0.1"),
        QStringLiteral("--port"), QString::number(fragments.port()), QStringLiteral("apps") });
    QCOMPARE(fragmented.code, int(Exit::NoServer));
    QVERIFY2(fragmented.err.contains(QStringLiteral("larger than")), qPrintable(fragmented.err));
}

void TestVelmctl::aServerSendingTooMuchAfterAuthenticationIsLeft()
{
    pairCtl();
    HostileServer hostile;
    QVERIFY(hostile.listen());
    // It lets the device in as a real computer would, then announces 65 MiB.
    const QByteArray key = ClientSession::deriveKey(
        QStringLiteral("ctl"), QStringLiteral("token-ctl"), QStringLiteral("session"));
    hostile.onOpen = [key](QTcpSocket *peer) {
        peer->write(HostileServer::message(R"({"_":"au","st":"session"})"));
        peer->write(
            HostileServer::message(ClientSession::encryptBody(R"({"_":"au","v":true})", key)));
        // A message the size of a big folder listing passes.
        peer->write(HostileServer::message(ClientSession::encryptBody(
            R"({"_":"xx","v":")" + QByteArray(2 * 1024 * 1024, 'a') + R"("})", key)));
        peer->write(HostileServer::header(0x82, 65ull * 1024 * 1024));
        peer->write(QByteArray(64 * 1024, 'x'));
    };
    const Result result = run({ QStringLiteral("--host"), QStringLiteral("127.0.0.1"),
        QStringLiteral("--port"), QString::number(hostile.port()), QStringLiteral("apps") });
    QCOMPARE(result.code, int(Exit::NoServer));
    QVERIFY2(result.err.contains(QStringLiteral("larger than 65536 KiB")), qPrintable(result.err));
}

void TestVelmctl::aServerThatDoesNotReadIsLeft()
{
    pairCtl();
    HostileServer hostile;
    QVERIFY(hostile.listen());
    // Pings, each owed a pong, from a server that never reads: the pongs pile up in velmctl.
    QByteArray pings;
    for (int i = 0; i < 512; ++i)
        pings += HostileServer::header(0x89, 125) + QByteArray(125, 'p');
    int sent = 0;
    const auto more = [&hostile, &pings, &sent] {
        while (hostile.peer && hostile.peer->state() == QAbstractSocket::ConnectedState
            && hostile.peer->bytesToWrite() < 1024 * 1024 && sent < 100 * 1024 * 1024) {
            hostile.peer->write(pings);
            sent += pings.size();
        }
    };
    hostile.onOpen = [&more, &hostile](QTcpSocket *peer) {
        // Nothing that arrives is read: the kernel's buffers fill, then velmctl's queue.
        peer->setReadBufferSize(1);
        QObject::connect(peer, &QTcpSocket::bytesWritten, &hostile, more);
        more();
    };
    const Result result = run({ QStringLiteral("--host"), QStringLiteral("127.0.0.1"),
        QStringLiteral("--port"), QString::number(hostile.port()), QStringLiteral("--timeout"),
        QStringLiteral("60"), QStringLiteral("apps") });
    QCOMPARE(result.code, int(Exit::NoServer));
    QVERIFY2(result.err.contains(QStringLiteral("does not read")), qPrintable(result.err));
    QVERIFY(sent < 100 * 1024 * 1024);
}

void TestVelmctl::listsAppsAndTheFrontOne()
{
    pairCtl();
    const Result apps = run(target() << QStringLiteral("apps"));
    QCOMPARE(apps.code, int(Exit::Done));
    QCOMPARE(apps.out,
        QStringLiteral("Editor (org.example.Editor), running\nBrowser (org.example.Browser)\n"));
    const Result json = run(target() << QStringLiteral("--json") << QStringLiteral("apps"));
    const QJsonObject document = QJsonDocument::fromJson(json.out.toUtf8()).object();
    QCOMPARE(document.value(L::method).toString(), L::installedApps);
    QCOMPARE(document.value(L::apps).toArray().size(), 2);
    QCOMPARE(run(target() << QStringLiteral("front")).out, QStringLiteral("org.example.Editor\n"));
}

void TestVelmctl::actsOnApplicationsByNameOrId()
{
    pairCtl();
    QCOMPARE(run(target() << QStringLiteral("activate") << QStringLiteral("browser")).code,
        int(Exit::Done));
    QCOMPARE(browser->calls, QStringList { QStringLiteral("activate") });
    for (const QString &command : { QStringLiteral("close"), QStringLiteral("quit"),
             QStringLiteral("minimize"), QStringLiteral("maximize"), QStringLiteral("fullscreen") })
        QCOMPARE(run(target() << command).code, int(Exit::Done));
    QCOMPARE(editor->calls,
        (QStringList { QStringLiteral("close"), QStringLiteral("quit"),
            QStringLiteral("toggleMiniminize"), QStringLiteral("toggleMaximize"),
            QStringLiteral("toggleFullscreen") }));
    const Result missing = run(target() << QStringLiteral("quit") << QStringLiteral("Nothing"));
    QCOMPARE(missing.code, int(Exit::Failed));
    QVERIFY(missing.err.contains(QStringLiteral("velmctl apps")));
}

void TestVelmctl::typesAndScrolls()
{
    pairCtl();
    QCOMPARE(run(target() << QStringLiteral("keys") << QStringLiteral("Ctrl+c,Ctrl+v")).code,
        int(Exit::Done));
    QCOMPARE(run(target() << QStringLiteral("scroll") << QStringLiteral("3")
                          << QStringLiteral("org.example.Browser"))
                 .code,
        int(Exit::Done));
    QCOMPARE(editor->calls, QStringList { QStringLiteral("performKeySequence(Ctrl+c,Ctrl+v)") });
    QCOMPARE(browser->calls, QStringList { QStringLiteral("scroll(0,3)") });
}

void TestVelmctl::readsAndChoosesMenus()
{
    pairCtl();
    MenuItem edit(QString(), QStringLiteral("Edit"), nullptr);
    MenuItem transform(QStringLiteral("17"), QStringLiteral("Transform"), nullptr);
    transform.children.emplace_back(QStringLiteral("42"), QStringLiteral("Upper"), nullptr);
    edit.children.push_back(transform);
    edit.children.emplace_back(QStringLiteral("9"), QStringLiteral("Copy"), nullptr);
    editor->menu = { edit };
    const Result tree = run(target() << QStringLiteral("menu"));
    QCOMPARE(tree.code, int(Exit::Done));
    QCOMPARE(tree.out, QStringLiteral("Edit\n  Transform\n    Upper\n  Copy\n"));
    QCOMPARE(run(target() << QStringLiteral("menu") << QStringLiteral("Editor")
                          << QStringLiteral("--invoke") << QStringLiteral("Edit/Transform/Upper"))
                 .code,
        int(Exit::Done));
    QVERIFY(editor->calls.contains(QStringLiteral("performMenu(42)")));
    const Result wrong = run(target()
        << QStringLiteral("menu") << QStringLiteral("--invoke") << QStringLiteral("Edit/Paste"));
    QCOMPARE(wrong.code, int(Exit::Failed));
    QVERIFY(wrong.err.contains(QStringLiteral("no menu entry")));
}

void TestVelmctl::readsSetsAndPressesTheFocusedElement()
{
    pairCtl();
    editor->focusValue = QStringLiteral("draft");
    const Result value = run(target() << QStringLiteral("focus"));
    QCOMPARE(value.code, int(Exit::Done));
    QCOMPARE(value.out, QStringLiteral("draft\n"));
    QCOMPARE(run(target() << QStringLiteral("focus") << QStringLiteral("--set")
                          << QStringLiteral("final"))
                 .code,
        int(Exit::Done));
    QCOMPARE(run(target() << QStringLiteral("focus") << QStringLiteral("--press")).code,
        int(Exit::Done));
    QCOMPARE(editor->calls,
        (QStringList {
            QStringLiteral("setFocusValue(final)"), QStringLiteral("performFocusedElement") }));
}

void TestVelmctl::machineLevelsAndActions()
{
    pairCtl();
    core->platform->volume = 35;
    QCOMPARE(run(target() << QStringLiteral("volume")).out, QStringLiteral("35\n"));
    QCOMPARE(
        run(target() << QStringLiteral("volume") << QStringLiteral("60")).code, int(Exit::Done));
    QVERIFY(core->platform->calls.contains(QStringLiteral("setVolume(60)")));
    QCOMPARE(run(target() << QStringLiteral("mute") << QStringLiteral("on")).code, int(Exit::Done));
    QVERIFY(core->platform->calls.contains(QStringLiteral("setVolumeMute(true)")));
    core->platform->muted = true;
    QCOMPARE(run(target() << QStringLiteral("mute")).out, QStringLiteral("on\n"));
    QCOMPARE(
        run(target() << QStringLiteral("brightness") << QStringLiteral("0")).code, int(Exit::Done));
    QVERIFY(core->platform->calls.contains(QStringLiteral("setBrightness(0)")));
    QCOMPARE(
        run(target() << QStringLiteral("--json") << QStringLiteral("brightness")).out.trimmed(),
        QStringLiteral("{\"_\":\"b\",\"v\":0}"));
    const QStringList actions { QStringLiteral("lock"), QStringLiteral("sleep"),
        QStringLiteral("restart"), QStringLiteral("shutdown"), QStringLiteral("logout"),
        QStringLiteral("play-pause"), QStringLiteral("next"), QStringLiteral("previous") };
    for (const QString &action : actions)
        QCOMPARE(run(target() << action).code, int(Exit::Done));
    for (const QString &call :
        { QStringLiteral("lockScreen"), QStringLiteral("sleep"), QStringLiteral("restart"),
            QStringLiteral("shutdown"), QStringLiteral("logout"), QStringLiteral("playPause"),
            QStringLiteral("nextTrack"), QStringLiteral("previousTrack") })
        QVERIFY2(core->platform->calls.contains(call), qPrintable(call));
}

void TestVelmctl::filesAndIcons()
{
    pairCtl();
    QTemporaryDir dir;
    QVERIFY(QDir(dir.path()).mkdir(QStringLiteral("folder")));
    QFile file(dir.filePath(QStringLiteral("notes.txt")));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.close();
    const Result listing = run(target() << QStringLiteral("ls") << dir.path());
    QCOMPARE(listing.code, int(Exit::Done));
    QCOMPARE(listing.out, QStringLiteral("folder/\nnotes.txt\n"));

    const QString png = dir.filePath(QStringLiteral("icon.png"));
    editor->icon = QIcon(QPixmap(64, 64));
    const Result icon = run(target()
        << QStringLiteral("icon") << QStringLiteral("Editor") << QStringLiteral("--size")
        << QStringLiteral("32") << QStringLiteral("-o") << png);
    QCOMPARE(icon.code, int(Exit::Done));
    QCOMPARE(QImage(png).size(), QSize(32, 32));

    QCOMPARE(run(target() << QStringLiteral("open") << file.fileName()).code, int(Exit::Done));
    QTRY_VERIFY(core->platform->calls.join(QLatin1Char(' ')).contains(file.fileName()));
}

void TestVelmctl::fileTypesPreviewsAndApplications()
{
    pairCtl();
    QTemporaryDir dir;
    const QString photo = QStringLiteral("/photos/cat.png");
    core->platform->fakeFiles->setType(photo, QStringLiteral("image/png"));
    QPixmap typeIcon(48, 48);
    typeIcon.fill(Qt::red);
    core->platform->typeIcons.insert(QStringLiteral("image/png"), typeIcon);
    QImage picture(300, 200, QImage::Format_RGB32);
    picture.fill(Qt::blue);
    core->platform->fakeFiles->setPreview(photo, picture);
    core->platform->typeApps.insert(QStringLiteral("image/png"), { browser, editor });

    const QString icon = dir.filePath(QStringLiteral("type.png"));
    QCOMPARE(run(target() << QStringLiteral("file-icon") << photo << QStringLiteral("--size")
                          << QStringLiteral("48") << QStringLiteral("-o") << icon)
                 .code,
        int(Exit::Done));
    QCOMPARE(QImage(icon).size(), QSize(48, 48));

    const QString preview = dir.filePath(QStringLiteral("preview.png"));
    QCOMPARE(
        run(target() << QStringLiteral("preview") << photo << QStringLiteral("-o") << preview).code,
        int(Exit::Done));
    QCOMPARE(QImage(preview).size(), QSize(300, 200));
    // A file without a preview writes nothing and says so.
    const QString none = dir.filePath(QStringLiteral("none.png"));
    const Result missing = run(target()
        << QStringLiteral("preview") << QStringLiteral("/absent") << QStringLiteral("-o") << none);
    QCOMPARE(missing.code, int(Exit::Failed));
    QVERIFY(!QFile::exists(none));

    const Result apps = run(target() << QStringLiteral("open-with") << photo);
    QCOMPARE(apps.code, int(Exit::Done));
    QCOMPARE(apps.out, QStringLiteral("org.example.Browser\norg.example.Editor\n"));
}

void TestVelmctl::commandSets()
{
    pairCtl();
    browser->commands = R"({"b":true,"c":[{"n":"Reload","k":"Ctrl+r"}]})";
    browser->commandsAreLoaded = true;
    const Result set = run(target()
        << QStringLiteral("--json") << QStringLiteral("commands") << QStringLiteral("Browser"));
    QCOMPARE(set.code, int(Exit::Done));
    const QJsonObject json = QJsonDocument::fromJson(set.out.toUtf8()).object();
    QCOMPARE(json.value(L::id).toString(), QStringLiteral("org.example.Browser"));
    QCOMPARE(json.value(QStringLiteral("commands")).toObject().value(QStringLiteral("b")).toBool(),
        true);
    // Without a web service the computer has nothing to send: said plainly, after the wait.
    QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral("Cannot load commands")));
    const Result silent = run(target() << QStringLiteral("--timeout") << QStringLiteral("1")
                                       << QStringLiteral("commands") << QStringLiteral("Editor"));
    QCOMPARE(silent.code, int(Exit::TimedOut));
    QVERIFY(silent.err.contains(QStringLiteral("web service")));
}

void TestVelmctl::sendPrintsTheReplies()
{
    pairCtl();
    const Result sent = run(target() << QStringLiteral("send") << QStringLiteral("{\"_\":\"ca\"}"));
    QCOMPARE(sent.code, int(Exit::Done));
    QCOMPARE(sent.out, QStringLiteral("{\"_\":\"ca\",\"i\":\"org.example.Editor\"}\n"));
    QCOMPARE(
        run(target() << QStringLiteral("send") << QStringLiteral("[1]")).code, int(Exit::Usage));
}

void TestVelmctl::watchSeesWhatAnotherClientCauses()
{
    pairCtl();
    CtlOptions options;
    QString error;
    QVERIFY(parseCtlArguments(
        QStringList { QStringLiteral("velmctl") } + target() << QStringLiteral("watch"), &options,
        &error));
    QString printed;
    QTextStream out(&printed);
    QTextStream err(&printed);
    Ctl watcher(options, out, err);
    watcher.start();
    QTRY_VERIFY(watcher.session() && watcher.session()->isAuthenticated());
    ProtocolClient *phone = core->connectClient(QStringLiteral("phone"));
    QVERIFY(phone);
    QVERIFY(phone->sendAndSync(QJsonObject { { L::method, L::volume }, { L::value, 77 } }));
    QVERIFY(core->platform->calls.contains(QStringLiteral("setVolume(77)")));
    // The sound system reports the change, and every client hears of it.
    core->platform->volume = 77;
    emit core->platform->volumeChanged();
    QTRY_VERIFY(printed.contains(QStringLiteral("{\"_\":\"v\",\"v\":77}")));
    watcher.finish(Exit::Done);
}

void TestVelmctl::theProgramItself()
{
    pairCtl();
    QProcess velmctl;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    velmctl.setProcessEnvironment(environment);
    velmctl.start(
        QStringLiteral(VELMCTL), target() << QStringLiteral("--json") << QStringLiteral("front"));
    QSignalSpy done(&velmctl, qOverload<int, QProcess::ExitStatus>(&QProcess::finished));
    QTRY_COMPARE_WITH_TIMEOUT(done.size(), 1, 20000);
    QCOMPARE(velmctl.exitCode(), 0);
    QCOMPARE(
        QJsonDocument::fromJson(velmctl.readAllStandardOutput()).object().value(L::id).toString(),
        QStringLiteral("org.example.Editor"));

    velmctl.start(
        QStringLiteral(VELMCTL), target() << QStringLiteral("volume") << QStringLiteral("12"));
    QTRY_COMPARE_WITH_TIMEOUT(done.size(), 2, 20000);
    QCOMPARE(velmctl.exitCode(), 0);
    QVERIFY(core->platform->calls.contains(QStringLiteral("setVolume(12)")));

    velmctl.start(QStringLiteral(VELMCTL), { QStringLiteral("nonsense") });
    QTRY_COMPARE_WITH_TIMEOUT(done.size(), 3, 20000);
    QCOMPARE(velmctl.exitCode(), int(Exit::Usage));

    // The other commands that need nothing prepared, each as its own process.
    const QList<QStringList> commands { { QStringLiteral("apps") }, { QStringLiteral("activate") },
        { QStringLiteral("keys"), QStringLiteral("Ctrl+s") },
        { QStringLiteral("scroll"), QStringLiteral("20") }, { QStringLiteral("focus") },
        { QStringLiteral("brightness") }, { QStringLiteral("mute") }, { QStringLiteral("lock") },
        { QStringLiteral("next") }, { QStringLiteral("unsupported") },
        { QStringLiteral("ls"), QDir::tempPath() } };
    int runs = 3;
    for (const QStringList &command : commands) {
        velmctl.start(QStringLiteral(VELMCTL), target() + command);
        ++runs;
        QTRY_COMPARE_WITH_TIMEOUT(done.size(), runs, 20000);
        QVERIFY2(velmctl.exitCode() == 0,
            qPrintable(command.join(QLatin1Char(' ')) + QLatin1String(": ")
                + QString::fromUtf8(velmctl.readAllStandardError())));
        velmctl.readAllStandardOutput();
    }
    QVERIFY(editor->calls.contains(QStringLiteral("performKeySequence(Ctrl+s)")));
    QVERIFY(core->platform->calls.contains(QStringLiteral("nextTrack")));
}

void TestVelmctl::completionsAndManualKnowEveryCommand()
{
    const auto read = [](const QString &name) {
        QFile file(QStringLiteral(VELM_SOURCE_DIR "/data/") + name);
        return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
    };
    const QString bash = read(QStringLiteral("completions/velmctl.bash"));
    const QString zsh = read(QStringLiteral("completions/_velmctl"));
    const QString manual = read(QStringLiteral("man/velmctl.1"));
    QVERIFY(!bash.isEmpty() && !zsh.isEmpty() && !manual.isEmpty());
    const QRegularExpression bashList(QStringLiteral("local commands=\"([^\"]*)\""));
    QStringList completed = bashList.match(bash).captured(1).split(QLatin1Char(' '));
    QStringList known;
    for (const CtlCommand &command : ctlCommands()) {
        known.append(command.name);
        QVERIFY2(zsh.contains(QLatin1Char('\'') + command.name + QLatin1Char(':')),
            qPrintable(command.name));
        // Man pages escape the minus sign.
        QString escaped = command.name;
        escaped.replace(QLatin1Char('-'), QStringLiteral("\\-"));
        QVERIFY2(command.name == QLatin1String("help") || manual.contains(escaped),
            qPrintable(command.name));
    }
    completed.sort();
    known.sort();
    QCOMPARE(completed, known);
}

QTEST_MAIN(TestVelmctl)
#include "tst_velmctl.moc"

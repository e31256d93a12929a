#include "authenticationhandler.h"
#include "l.h"
#include "logcapture.h"
#include "protocolclient.h"
#include "runningprogram.h"
#include "server.h"
#include "serverfixture.h"
#include "testenvironment.h"

#include <QDir>
#include <QElapsedTimer>
#include <QProcess>
#include <QRandomGenerator>
#include <QSettings>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QWebSocket>
#include <QtEndian>
#include <QtTest>

#include <sys/resource.h>
#include <unistd.h>

namespace {

using RawWebSocket::handshake;
using RawWebSocket::statusLine;

// One client-to-server WebSocket frame, masked as clients must mask them (unless told not to).
QByteArray clientFrame(quint8 opcode, const QByteArray &payload, bool masked = true)
{
    QByteArray frame;
    frame.append(char(0x80 | opcode));
    const qint64 size = payload.size();
    const char maskBit = masked ? char(0x80) : char(0);
    if (size < 126) {
        frame.append(char(maskBit | size));
    } else if (size < 65536) {
        frame.append(char(maskBit | 126));
        char length[2];
        qToBigEndian<quint16>(quint16(size), length);
        frame.append(length, 2);
    } else {
        frame.append(char(maskBit | 127));
        char length[8];
        qToBigEndian<quint64>(quint64(size), length);
        frame.append(length, 8);
    }
    if (!masked)
        return frame + payload;
    const char mask[4] = { 0x12, 0x34, 0x56, 0x78 };
    frame.append(mask, 4);
    QByteArray body = payload;
    for (int i = 0; i < body.size(); ++i)
        body[i] = char(body.at(i) ^ mask[i % 4]);
    return frame + body;
}

int openDescriptors()
{
    return QDir(QStringLiteral("/proc/self/fd"))
        .entryList(QDir::NoDotAndDotDot | QDir::System)
        .size();
}

qint64 residentKiB(qint64 pid)
{
    QFile status(QStringLiteral("/proc/%1/status").arg(pid));
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray &line : status.readAll().split('\n')) {
        if (line.startsWith("VmRSS:"))
            return line.mid(6).trimmed().split(' ').first().toLongLong();
    }
    return -1;
}

// User and system CPU time of a process, in milliseconds.
qint64 cpuMilliseconds(qint64 pid)
{
    QFile stat(QStringLiteral("/proc/%1/stat").arg(pid));
    if (!stat.open(QIODevice::ReadOnly))
        return -1;
    const QByteArray text = stat.readAll();
    // Fields after the command name, which is in parentheses and may hold blanks.
    const QList<QByteArray> fields = text.mid(text.lastIndexOf(')') + 2).split(' ');
    const qint64 ticks = fields.value(11).toLongLong() + fields.value(12).toLongLong();
    return ticks * 1000 / sysconf(_SC_CLK_TCK);
}

// The program with a device paired earlier ("phone" with "phone-token").
class Program : public RunningProgram
{
public:
    explicit Program(const QStringList &wrapper = QStringList())
        : RunningProgram(QStringLiteral(VELM_SERVER_EXECUTABLE), wrapper)
    { }
};

} // namespace

// What a stranger on the network, or a web page, can do to the server: attacks over loopback,
// each checked for what it must not achieve.
class TestHardening : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void init();
    void cleanup();
    void nothingUnpairsADevice();
    void failedProofsAreLimited();
    void webPagesOfOtherOriginsAreRefused_data();
    void webPagesOfOtherOriginsAreRefused();
    void silentConnectionIsClosedAndBlocksNobody();
    void tooManyStrangersCloseTheOldest();
    void bigMessagesBeforeAuthenticationAreRefusedEarly();
    void unmaskedFramesCloseTheConnection();
    void framesInPiecesAndBehindTheHandshake();
    void oversizedHandshakeIsRefused();
    void pingFloodFromAPeerThatDoesNotRead();
    void bigBodiesBeforeAuthenticationCostLittle();
    void outOfDescriptors();
    void soak();

private:
    quint16 port() const { return listeningPort(server); }
    // Authorizes "device-0" .. "device-(n-1)".
    void authorizeMany(int n);

    Server *server = nullptr;
    RecordingHandler *volumeHandler = nullptr;
};

void TestHardening::initTestCase() { TestEnvironment::setUp(); }

void TestHardening::init()
{
    TestEnvironment::clearSettings();
    server = new Server;
    new AuthenticationHandler(server, L::auth);
    volumeHandler = new RecordingHandler(server, L::volume);
    Pairing::authorize(QStringLiteral("phone"), QStringLiteral("phone-token"));
}

void TestHardening::cleanup()
{
    delete server;
    server = nullptr;
}

void TestHardening::authorizeMany(int n)
{
    for (int i = 0; i < n; ++i)
        Pairing::authorize(QStringLiteral("device-%1").arg(i), QStringLiteral("token-%1").arg(i));
}

void TestHardening::nothingUnpairsADevice()
{
    authorizeMany(40);
    const int paired = server->totalAuthorizations();
    QCOMPARE(paired, 41);

    // A stranger's garbage, pipelined with its handshake in one write.
    QTcpSocket stranger;
    stranger.connectToHost(QHostAddress::LocalHost, port());
    QVERIFY(stranger.waitForConnected(5000));
    stranger.write(handshake(port(), "i=nobody&v=1") + clientFrame(2, "\x01\x02not json"));
    QTRY_VERIFY(stranger.state() == QAbstractSocket::UnconnectedState);
    QCOMPARE(server->totalAuthorizations(), paired);

    // A known device's connection that sends garbage instead of its proof.
    ProtocolClient garbled(QStringLiteral("device-3"));
    garbled.setToken(QStringLiteral("token-3"));
    garbled.setAutoProve(false);
    garbled.open(port());
    QTRY_VERIFY(!garbled.sessionToken().isEmpty());
    garbled.sendRaw("garbage");
    QTRY_VERIFY(garbled.isClosed());
    QCOMPARE(server->totalAuthorizations(), paired);

    // A wrong proof, and one made with a wrong token.
    ProtocolClient wrong(QStringLiteral("device-4"));
    wrong.setToken(QStringLiteral("token-4"));
    wrong.setUpperCaseProof(true);
    wrong.open(port());
    QTRY_VERIFY(wrong.isClosed());
    ProtocolClient guessed(QStringLiteral("device-5"));
    guessed.setToken(QStringLiteral("a guess"));
    guessed.open(port());
    QTRY_VERIFY(guessed.isClosed());
    QCOMPARE(server->totalAuthorizations(), paired);

    // An authenticated client that sends garbage loses its connection, and nothing else.
    ProtocolClient phone(QStringLiteral("phone"));
    QVERIFY(Pairing::connectAuthenticated(phone, port()));
    phone.sendRaw(QByteArray(48, 'x'));
    QTRY_VERIFY(phone.isClosed());
    QCOMPARE(server->totalAuthorizations(), paired);

    // Every approval is still in the settings file, and each device still gets a session.
    QSettings settings;
    settings.sync();
    settings.beginGroup(L::auth);
    QCOMPARE(settings.childKeys().size(), paired);
    for (const QString &id : { QStringLiteral("device-3"), QStringLiteral("device-4"),
             QStringLiteral("device-5"), QStringLiteral("phone") }) {
        ProtocolClient again(id);
        QVERIFY2(Pairing::connectAuthenticated(again, port()), qPrintable(id));
    }
}

void TestHardening::failedProofsAreLimited()
{
    LogCapture log;
    for (int i = 0; i < Server::maxFailedProofs; ++i) {
        ProtocolClient wrong(QStringLiteral("phone"));
        wrong.setToken(QStringLiteral("phone-token"));
        wrong.setUpperCaseProof(true);
        wrong.open(port());
        QTRY_VERIFY(wrong.isClosed());
    }
    QTRY_COMPARE(
        log.count(QStringLiteral("Refusing 127.0.0.1 for 60 s after 10 failed proofs")), 1);
    QVERIFY(server->isRefused(QHostAddress::LocalHost));
    // Now even the right proof is not heard from that address, for a while.
    for (int i = 0; i < 3; ++i) {
        ProtocolClient phone(QStringLiteral("phone"));
        phone.setToken(QStringLiteral("phone-token"));
        phone.open(port());
        QTRY_VERIFY(phone.isClosed());
        QVERIFY(phone.frames.isEmpty());
        QVERIFY(!phone.isAuthenticated());
    }
    // Said once, not at every refused connection; and the device stays paired.
    QCOMPARE(log.count(QStringLiteral("Refusing")), 1);
    QVERIFY(server->isAuthorized(QStringLiteral("phone")));
}

void TestHardening::webPagesOfOtherOriginsAreRefused_data()
{
    QTest::addColumn<QByteArray>("origin");
    QTest::addColumn<bool>("accepted");
    QTest::newRow("native client, no Origin") << QByteArray() << true;
    QTest::newRow("another site") << QByteArray("https://evil.example") << false;
    QTest::newRow("opaque origin") << QByteArray("null") << false;
    QTest::newRow("look-alike host") << QByteArray("http://localhost.evil.example:%1") << false;
    QTest::newRow("local file") << QByteArray("file://") << false;
    QTest::newRow("own address, other port") << QByteArray("http://127.0.0.1:1") << false;
    QTest::newRow("own address, https") << QByteArray("https://127.0.0.1:%1") << false;
    QTest::newRow("own address") << QByteArray("http://127.0.0.1:%1") << true;
    QTest::newRow("own name") << QByteArray("http://localhost:%1") << true;
}

void TestHardening::webPagesOfOtherOriginsAreRefused()
{
    QFETCH(QByteArray, origin);
    QFETCH(bool, accepted);
    origin.replace("%1", QByteArray::number(port()));
    LogCapture log;
    QSignalSpy prompts(server, &Server::needUserAuthorization);
    QTcpSocket page;
    page.connectToHost(QHostAddress::LocalHost, port());
    QVERIFY(page.waitForConnected(5000));
    page.write(handshake(port(), "i=page-device&v=1", origin.isEmpty() ? QByteArray() : origin));
    const QByteArray status = statusLine(page);
    if (accepted) {
        QCOMPARE(status, QByteArray("HTTP/1.1 101 Switching Protocols"));
        QTRY_COMPARE(prompts.size(), 1);
        QCOMPARE(log.count(QStringLiteral("Refused a connection from the web page")), 0);
    } else {
        QCOMPARE(status, QByteArray("HTTP/1.1 403 Access Forbidden"));
        QCOMPARE(log.count(QStringLiteral("Refused a connection from the web page")), 1);
        QCOMPARE(prompts.size(), 0);
    }
}

void TestHardening::silentConnectionIsClosedAndBlocksNobody()
{
    LogCapture log;
    // A known device's connection that never proves its key.
    ProtocolClient silent(QStringLiteral("phone"));
    silent.setToken(QStringLiteral("phone-token"));
    silent.setAutoProve(false);
    QElapsedTimer since;
    silent.open(port());
    QTRY_VERIFY(!silent.sessionToken().isEmpty());
    since.start();
    // A new device at the prompt as well.
    ProtocolClient newcomer(QStringLiteral("newcomer"));
    newcomer.open(port());
    QTRY_COMPARE(newcomer.framesWith(L::waitingForAuth).size(), 1);
    // Meanwhile another paired device is served.
    Pairing::authorize(QStringLiteral("tablet"), QStringLiteral("tablet-token"));
    ProtocolClient tablet(QStringLiteral("tablet"));
    QVERIFY(Pairing::connectAuthenticated(tablet, port()));
    QVERIFY(!silent.isClosed());
    QTRY_VERIFY_WITH_TIMEOUT(silent.isClosed(), Server::proofTimeout + 3000);
    QVERIFY2(since.elapsed() >= Server::proofTimeout - 500,
        qPrintable(QString::number(since.elapsed())));
    QCOMPARE(log.count(QStringLiteral("No proof in time from")), 1);
    // The others are untouched, and the device may try again.
    QVERIFY(!tablet.isClosed());
    QVERIFY(!newcomer.isClosed());
    ProtocolClient again(QStringLiteral("phone"));
    QVERIFY(Pairing::connectAuthenticated(again, port()));
}

void TestHardening::tooManyStrangersCloseTheOldest()
{
    QList<QTcpSocket *> strangers;
    const int count = Server::maxUnauthenticatedConnections + 6;
    for (int i = 0; i < count; ++i) {
        auto *socket = new QTcpSocket(this);
        socket->connectToHost(QHostAddress::LocalHost, port());
        strangers << socket;
        // One at a time, so that the server sees them in this order.
        QTRY_COMPARE(socket->state(), QAbstractSocket::ConnectedState);
        QTRY_VERIFY(i < Server::maxUnauthenticatedConnections
            || strangers.at(i - Server::maxUnauthenticatedConnections)->state()
                == QAbstractSocket::UnconnectedState);
    }
    // The oldest ones were closed to make room; the newest are still open.
    for (int i = 0; i < count - Server::maxUnauthenticatedConnections; ++i)
        QCOMPARE(strangers.at(i)->state(), QAbstractSocket::UnconnectedState);
    for (int i = count - Server::maxUnauthenticatedConnections + 1; i < count; ++i)
        QCOMPARE(strangers.at(i)->state(), QAbstractSocket::ConnectedState);
    // A paired device still gets in (making room in its turn).
    ProtocolClient phone(QStringLiteral("phone"));
    QVERIFY(Pairing::connectAuthenticated(phone, port()));
    qDeleteAll(strangers);
}

void TestHardening::bigMessagesBeforeAuthenticationAreRefusedEarly()
{
    // Before it has proved its key, a connection can only send its proof: 4 KiB at most.
    ProtocolClient stranger(QStringLiteral("stranger"));
    stranger.open(port());
    QTRY_COMPARE(stranger.framesWith(L::waitingForAuth).size(), 1);
    stranger.sendRaw(QByteArray(Server::maxIncomingMessageSizeBeforeAuthentication + 1, '{'));
    QTRY_VERIFY(stranger.isClosed());
    QCOMPARE(stranger.closeCode(), 1009);
    // After it, 1 MiB.
    ProtocolClient phone(QStringLiteral("phone"));
    QVERIFY(Pairing::connectAuthenticated(phone, port()));
    phone.send(QJsonObject {
        { L::method, L::volume }, { QStringLiteral("x"), QString(300 * 1024, QLatin1Char('a')) } });
    QTRY_COMPARE(phone.framesWith(L::volume).size(), 1);
    QVERIFY(!phone.isClosed());
}

void TestHardening::unmaskedFramesCloseTheConnection()
{
    LogCapture log;
    QSignalSpy prompts(server, &Server::needUserAuthorization);
    QTcpSocket raw;
    raw.connectToHost(QHostAddress::LocalHost, port());
    QVERIFY(raw.waitForConnected(5000));
    raw.write(handshake(port(), "i=stranger&v=1"));
    QCOMPARE(statusLine(raw), QByteArray("HTTP/1.1 101 Switching Protocols"));
    raw.write(clientFrame(2, "{\"_\":\"au\",\"h\":\"00\"}", false));
    QTRY_COMPARE(raw.state(), QAbstractSocket::UnconnectedState);
    QCOMPARE(log.count(QStringLiteral("Closing a connection that sent an unmasked frame")), 1);
    QCOMPARE(server->getClients().size(), 0);
    // The handshake was fine: the device had been put before the user, and is gone again.
    QCOMPARE(prompts.size(), 1);
    QTRY_VERIFY(!server->getPendingSocket());
}

void TestHardening::framesInPiecesAndBehindTheHandshake()
{
    // Frames that arrive with the handshake, and a frame that arrives a byte at a time, are
    // taken as whole frames.
    QTcpSocket raw;
    raw.connectToHost(QHostAddress::LocalHost, port());
    QVERIFY(raw.waitForConnected(5000));
    raw.write(handshake(port(), "i=newcomer&v=1") + clientFrame(2, "{\"_\":\"v\"}"));
    QTRY_COMPARE(server->getConnections().size(), 1);
    // Not authenticated: "v" is refused, but it was read as a message.
    LogCapture log;
    const QByteArray frame = clientFrame(2, "{\"_\":\"v\",\"x\":1}");
    for (char byte : frame) {
        raw.write(&byte, 1);
        raw.flush();
        QTest::qWait(2);
    }
    QTRY_COMPARE(log.count(QStringLiteral("Permission denied")), 1);
    QVERIFY(volumeHandler->calls.isEmpty());
    QCOMPARE(raw.state(), QAbstractSocket::ConnectedState);
}

void TestHardening::oversizedHandshakeIsRefused()
{
    QTcpSocket raw;
    raw.connectToHost(QHostAddress::LocalHost, port());
    QVERIFY(raw.waitForConnected(5000));
    raw.write("GET /?i=x&v=1 HTTP/1.1\r\nX-Padding: " + QByteArray(9000, 'a'));
    QTRY_COMPARE(raw.state(), QAbstractSocket::UnconnectedState);
    QVERIFY(server->getConnections().isEmpty());
}

void TestHardening::pingFloodFromAPeerThatDoesNotRead()
{
    Program program;
    const quint16 port = program.port();
    QVERIFY2(port, program.output.constData());
    const qint64 before = residentKiB(program.pid());
    QVERIFY(before > 0);
    // A stranger that sends pings as fast as it can and never reads the pongs.
    QTcpSocket flooder;
    flooder.setReadBufferSize(1);
    flooder.connectToHost(QHostAddress::LocalHost, port);
    QVERIFY(flooder.waitForConnected(5000));
    flooder.write(handshake(port, "i=flooder&v=1"));
    const QByteArray pings = clientFrame(9, QByteArray()).repeated(10000);
    QElapsedTimer flooding;
    flooding.start();
    qint64 peak = before;
    while (flooder.state() == QAbstractSocket::ConnectedState && flooding.elapsed() < 15000) {
        if (flooder.bytesToWrite() < 4 * 1024 * 1024)
            flooder.write(pings);
        QTest::qWait(1);
        peak = qMax(peak, residentKiB(program.pid()));
    }
    // The server closed the connection that let its answers pile up.
    QCOMPARE(flooder.state(), QAbstractSocket::UnconnectedState);
    QVERIFY2(peak - before < 32 * 1024,
        qPrintable(QStringLiteral("%1 KiB -> %2 KiB").arg(before).arg(peak)));
    QVERIFY2(program.waitForLog("Closing a connection that does not read"),
        qPrintable(QStringLiteral("closed after %1 ms, %2 bytes unsent; the program said: %3")
                       .arg(flooding.elapsed())
                       .arg(flooder.bytesToWrite())
                       .arg(QString::fromUtf8(program.output.right(3000)))));
}

void TestHardening::bigBodiesBeforeAuthenticationCostLittle()
{
    Program program;
    const quint16 port = program.port();
    QVERIFY2(port, program.output.constData());
    const qint64 cpuBefore = cpuMilliseconds(program.pid());
    QByteArray body(1024 * 1024, ' ');
    body[0] = '[';
    body[body.size() - 1] = ']';
    QList<QTcpSocket *> senders;
    for (int i = 0; i < 20; ++i) {
        auto *sender = new QTcpSocket(this);
        sender->connectToHost(QHostAddress::LocalHost, port);
        sender->write(
            handshake(port, "i=big" + QByteArray::number(i) + "&v=1") + clientFrame(2, body));
        senders << sender;
    }
    for (QTcpSocket *sender : qAsConst(senders))
        QTRY_COMPARE_WITH_TIMEOUT(sender->state(), QAbstractSocket::UnconnectedState, 15000);
    const qint64 spent = cpuMilliseconds(program.pid()) - cpuBefore;
    QVERIFY2(spent < 200, qPrintable(QStringLiteral("%1 ms of CPU").arg(spent)));
    qDeleteAll(senders);
}

void TestHardening::outOfDescriptors()
{
    // The program with the common limit of 1,024 open files, hard as well as soft.
    Program program({ QStringLiteral("prlimit"), QStringLiteral("--nofile=1024:1024") });
    const quint16 port = program.port();
    QVERIFY2(port, program.output.constData());
    // This process needs more than that for its side of the connections.
    struct rlimit limit;
    QCOMPARE(getrlimit(RLIMIT_NOFILE, &limit), 0);
    limit.rlim_cur = qMax<rlim_t>(limit.rlim_cur, qMin<rlim_t>(limit.rlim_max, 4096));
    QCOMPARE(setrlimit(RLIMIT_NOFILE, &limit), 0);
    QList<QTcpSocket *> idle;
    for (int i = 0; i < 1050; ++i) {
        auto *socket = new QTcpSocket(this);
        socket->connectToHost(QHostAddress::LocalHost, port);
        idle << socket;
    }
    QTRY_VERIFY(std::all_of(idle.cbegin(), idle.cend(), [](QTcpSocket *s) {
        return s->state() != QAbstractSocket::ConnectingState
            && s->state() != QAbstractSocket::HostLookupState;
    }));
    // Idle, not spinning.
    const qint64 cpuBefore = cpuMilliseconds(program.pid());
    QElapsedTimer measured;
    measured.start();
    QTest::qWait(3000);
    const qint64 spent = cpuMilliseconds(program.pid()) - cpuBefore;
    QVERIFY2(spent * 100 < 15 * measured.elapsed(),
        qPrintable(QStringLiteral("%1 ms of CPU in %2 ms").arg(spent).arg(measured.elapsed())));
    // A paired device gets its session in time.
    TestEnvironment::clearSettings();
    Pairing::authorize(QStringLiteral("phone"), QStringLiteral("phone-token"));
    ProtocolClient phone(QStringLiteral("phone"));
    QElapsedTimer waited;
    waited.start();
    QVERIFY(Pairing::connectAuthenticated(phone, port));
    QVERIFY2(waited.elapsed() < 3000, qPrintable(QString::number(waited.elapsed())));
    qDeleteAll(idle);
}

void TestHardening::soak()
{
    const auto cycle = [&](int rounds) {
        for (int i = 0; i < rounds; ++i) {
            QTcpSocket stranger;
            stranger.connectToHost(QHostAddress::LocalHost, port());
            if (!stranger.waitForConnected(5000))
                return false;
            stranger.write(handshake(port(), "i=soak" + QByteArray::number(i % 7) + "&v=1")
                + clientFrame(2, QByteArray::number(QRandomGenerator::global()->generate())));
            stranger.waitForBytesWritten(1000);
            stranger.abort();
            QCoreApplication::processEvents();
        }
        return QTest::qWaitFor([&] { return server->getConnections().isEmpty(); }, 10000);
    };
    const auto sessions = [&](int count) {
        for (int i = 0; i < count; ++i) {
            ProtocolClient phone(QStringLiteral("phone"));
            phone.setKeepFrames(false);
            int replies = 0;
            connect(&phone, &ProtocolClient::frameReceived, this, [&](const Frame &frame) {
                if (frame.method() == L::volume)
                    ++replies;
            });
            if (!Pairing::connectAuthenticated(phone, port()))
                return false;
            for (int r = 0; r < 20; ++r)
                phone.send(QJsonObject { { L::method, L::volume } });
            if (!QTest::qWaitFor([&] { return replies == 20; }, 5000))
                return false;
            phone.close();
            // The recording handler's memory is the test's, not the server's.
            volumeHandler->calls.clear();
        }
        return QTest::qWaitFor([&] { return server->getConnections().isEmpty(); }, 10000);
    };
    // Warmed up first, so that what is allocated once is not counted.
    QVERIFY(cycle(200));
    QVERIFY(sessions(40));
    const qint64 rssBefore = residentKiB(QCoreApplication::applicationPid());
    const int descriptorsBefore = openDescriptors();
    QVERIFY(cycle(1000));
    QVERIFY(sessions(200));
    const qint64 rssAfter = residentKiB(QCoreApplication::applicationPid());
    const int descriptorsAfter = openDescriptors();
    QVERIFY2(rssAfter <= rssBefore * 105 / 100,
        qPrintable(QStringLiteral("%1 KiB -> %2 KiB").arg(rssBefore).arg(rssAfter)));
    QVERIFY2(descriptorsAfter <= descriptorsBefore * 105 / 100,
        qPrintable(QStringLiteral("%1 -> %2").arg(descriptorsBefore).arg(descriptorsAfter)));
    // Every connection's objects are gone with it.
    QTRY_COMPARE(server->findChildren<QTcpSocket *>().size(), 0);
    QTRY_COMPARE(server->findChildren<QWebSocket *>().size(), 0);
}

QTEST_GUILESS_MAIN(TestHardening)
#include "tst_hardening.moc"

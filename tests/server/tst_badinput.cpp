#include "authenticationhandler.h"
#include "l.h"
#include "logcapture.h"
#include "protocolclient.h"
#include "qaesencryption.h"
#include "server.h"
#include "serverfixture.h"
#include "testenvironment.h"

#include <QRandomGenerator>
#include <QSignalSpy>
#include <QtTest>

namespace {
enum Outcome { ClosedAndKept, Unhandled };

QByteArray randomBytes(int n)
{
    QByteArray bytes(n, Qt::Uninitialized);
    for (char &c : bytes)
        c = char(QRandomGenerator::global()->bounded(256));
    return bytes;
}

// Encrypts one whole block exactly as given, so the padding byte is ours to choose.
QByteArray encryptBlockAsIs(const QByteArray &block, const QByteArray &key)
{
    const QByteArray iv = randomBytes(16);
    return iv
        + QAESEncryption::Crypt(QAESEncryption::AES_128, QAESEncryption::CBC, block, key.left(16),
            iv, QAESEncryption::ZERO);
}
} // namespace

// Whatever a peer sends, the server neither crashes nor hangs nor hoards memory, and the
// connection ends the way the protocol says.
class TestBadInput : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { TestEnvironment::setUp(); }
    void init();
    void cleanup();

    void encryptedBodies_data();
    void encryptedBodies();
    void oversizedMessageClosesConnection();
    void garbageInAuthorizationFlowForgetsNothing();
    void plainTextOnEncryptedConnection();
    void manyConnectionsComeAndGo();

private:
    // A known device, authenticated and encrypted.
    void connectPhone(ProtocolClient &phone);
    Server *server = nullptr;
};

void TestBadInput::init()
{
    TestEnvironment::clearSettings();
    server = new Server;
    new AuthenticationHandler(server, L::auth);
    Pairing::authorize(QStringLiteral("phone"), QStringLiteral("phone-token"));
    Pairing::authorize(QStringLiteral("other"), QStringLiteral("other-token"));
}

void TestBadInput::cleanup()
{
    delete server;
    server = nullptr;
}

void TestBadInput::connectPhone(ProtocolClient &phone)
{
    QVERIFY(Pairing::connectAuthenticated(phone, listeningPort(server)));
}

void TestBadInput::encryptedBodies_data()
{
    QTest::addColumn<QByteArray>("plainOrRaw");
    // 0: sent as is; 1: encrypted with PKCS#7; 2: one block encrypted without padding.
    QTest::addColumn<int>("encoding");
    QTest::addColumn<int>("outcome");

    QTest::newRow("0 bytes") << QByteArray() << 0 << int(ClosedAndKept);
    QTest::newRow("1 byte") << randomBytes(1) << 0 << int(ClosedAndKept);
    QTest::newRow("15 bytes") << randomBytes(15) << 0 << int(ClosedAndKept);
    QTest::newRow("16 bytes (vector only)") << randomBytes(16) << 0 << int(ClosedAndKept);
    QTest::newRow("17 bytes") << randomBytes(17) << 0 << int(ClosedAndKept);
    QTest::newRow("ciphertext not a multiple of 16")
        << randomBytes(16 + 20) << 0 << int(ClosedAndKept);
    QTest::newRow("random whole blocks") << randomBytes(16 + 64) << 0 << int(ClosedAndKept);
    QTest::newRow("padding byte 0")
        << QByteArray("{\"_\":\"zz\"}     \x00", 16) << 2 << int(ClosedAndKept);
    QTest::newRow("padding byte 200")
        << QByteArray("{\"_\":\"zz\"}     \xc8", 16) << 2 << int(ClosedAndKept);
    QTest::newRow("padding longer than the text")
        << QByteArray("{\"_\":\"zz\"}     \x7f", 16) << 2 << int(ClosedAndKept);
    QTest::newRow("invalid UTF-8") << QByteArray("{\"_\":\"\xff\xfe\"}") << 1 << int(ClosedAndKept);
    QTest::newRow("deeply nested JSON") << QByteArray(100000, '[') << 1 << int(ClosedAndKept);
    QTest::newRow("nested but within limits")
        << QByteArray("{\"_\":\"zz\",\"x\":") + QByteArray(63, '[') + QByteArray(63, ']') + "}" << 1
        << int(Unhandled);
    QTest::newRow("nested more than 64 deep")
        << QByteArray("{\"_\":\"zz\",\"x\":") + QByteArray(64, '[') + QByteArray(64, ']') + "}" << 1
        << int(ClosedAndKept);
    QTest::newRow("JSON array") << QByteArray("[1,2,3]") << 1 << int(Unhandled);
    QTest::newRow("code not a string") << QByteArray("{\"_\":[\"ia\"]}") << 1 << int(Unhandled);
    // Qt's parser would keep the first value of a repeated key for good: refused instead.
    QTest::newRow("repeated key after an object")
        << QByteArray("{\"_\":\"zz\",\"d\":{\"i\":[{\"n\":\"\"}]},\"d\":\"\"}") << 1
        << int(ClosedAndKept);
    QTest::newRow("repeated key after an array, escaped")
        << QByteArray("[{\"_\":[1],\"\\u005f\":\"zz\"}]") << 1 << int(ClosedAndKept);
    QTest::newRow("repeated key with plain values")
        << QByteArray("{\"_\":\"yy\",\"_\":\"zz\"}") << 1 << int(Unhandled);
    QTest::newRow("plain JSON on encrypted connection")
        << QByteArray("{\"_\":\"zz\"}") << 0 << int(ClosedAndKept);
}

void TestBadInput::encryptedBodies()
{
    QFETCH(QByteArray, plainOrRaw);
    QFETCH(int, encoding);
    QFETCH(int, outcome);

    QSignalSpy unhandled(server, &Server::unhandledMessage);
    ProtocolClient phone(QStringLiteral("phone"));
    connectPhone(phone);
    QByteArray body = plainOrRaw;
    if (encoding == 1)
        body = ProtocolClient::encryptBody(plainOrRaw, phone.key());
    else if (encoding == 2)
        body = encryptBlockAsIs(plainOrRaw, phone.key());

    LogCapture log;
    phone.sendRaw(body);
    if (outcome == ClosedAndKept) {
        QTRY_VERIFY(phone.isClosed());
        QCOMPARE(phone.closeCode(), 1000);
        QCOMPARE(log.count(QStringLiteral("Cannot parse JSON")), 1);
        // Garbage costs the connection, never an approval.
        QVERIFY(server->isAuthorized(QStringLiteral("phone")));
        QVERIFY(server->isAuthorized(QStringLiteral("other")));
        QTRY_VERIFY(server->getConnections().isEmpty());
    } else {
        QTRY_COMPARE(unhandled.size(), 1);
        QVERIFY(!phone.isClosed());
        QVERIFY(server->isAuthorized(QStringLiteral("phone")));
    }
    // Nothing else was lost: another device is served as before.
    ProtocolClient other(QStringLiteral("other"));
    QVERIFY(Pairing::connectAuthenticated(other, listeningPort(server)));
}

void TestBadInput::oversizedMessageClosesConnection()
{
    ProtocolClient phone(QStringLiteral("phone"));
    connectPhone(phone);
    QSignalSpy unhandled(server, &Server::unhandledMessage);
    phone.sendRaw(QByteArray(10 * 1024 * 1024, 'x'));
    QTRY_VERIFY_WITH_TIMEOUT(phone.isClosed(), 15000);
    // The server refuses the frame from its header (close code 1009) and drops the connection
    // while the client is still sending, so the client may see only the reset.
    QTRY_VERIFY(server->getConnections().isEmpty());
    QCOMPARE(unhandled.size(), 0);
    // Too big is not an attack on the pairing: the device stays approved.
    QVERIFY(server->isAuthorized(QStringLiteral("phone")));
    ProtocolClient again(QStringLiteral("phone"));
    QVERIFY(Pairing::connectAuthenticated(again, listeningPort(server)));
}

void TestBadInput::garbageInAuthorizationFlowForgetsNothing()
{
    ProtocolClient stranger(QStringLiteral("stranger"));
    stranger.open(listeningPort(server));
    QTRY_COMPARE(stranger.frames.size(), 1);
    QCOMPARE(server->totalAuthorizations(), 2);
    stranger.sendRaw("not json at all");
    QTRY_VERIFY(stranger.isClosed());
    QCOMPARE(stranger.closeCode(), 1000);
    QCOMPARE(server->totalAuthorizations(), 2);
    QVERIFY(!server->getPendingSocket());
}

void TestBadInput::plainTextOnEncryptedConnection()
{
    ProtocolClient phone(QStringLiteral("phone"));
    connectPhone(phone);
    phone.sendRaw("{\"_\":\"au\",\"h\":\"00\"}");
    QTRY_VERIFY(phone.isClosed());
    QVERIFY(server->isAuthorized(QStringLiteral("phone")));
    QVERIFY(server->isAuthorized(QStringLiteral("other")));
}

void TestBadInput::manyConnectionsComeAndGo()
{
    // Half-open pairings and abrupt disconnects leave nothing behind.
    for (int round = 0; round < 20; ++round) {
        ProtocolClient stranger(QStringLiteral("s%1").arg(round));
        stranger.open(listeningPort(server));
        ProtocolClient phone(QStringLiteral("phone"));
        phone.setToken(QStringLiteral("phone-token"));
        phone.open(listeningPort(server));
        QTRY_VERIFY(!stranger.frames.isEmpty() || stranger.isClosed());
        QTRY_VERIFY(phone.isAuthenticated() || phone.isClosed());
        stranger.socket().abort();
        phone.socket().abort();
        QTRY_VERIFY(server->getConnections().isEmpty());
        QVERIFY(server->getClients().isEmpty());
        QVERIFY(!server->getPendingSocket());
    }
    QTRY_COMPARE(server->findChildren<QWebSocket *>().size(), 0);
}

QTEST_GUILESS_MAIN(TestBadInput)
#include "tst_badinput.moc"

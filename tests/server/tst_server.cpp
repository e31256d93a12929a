#include "authenticationhandler.h"
#include "l.h"
#include "networkchanges.h"
#include "protocolclient.h"
#include "server.h"
#include "serverfixture.h"
#include "testenvironment.h"

#include <QSettings>
#include <QSignalSpy>
#include <QTcpServer>
#include <QTimer>
#include <QtTest>

namespace {
const QString lastUsedPort = QStringLiteral("lastUsedPort");

quint16 freePortInDynamicRange()
{
    for (quint16 port = 52000; port < 53000; ++port) {
        QTcpServer probe;
        if (probe.listen(QHostAddress::Any, port))
            return port;
    }
    return 0;
}
} // namespace

// The endpoint's life: ports, accepting and dropping connections, broadcasting, framing.
class TestServer : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { TestEnvironment::setUp(); }
    void init() { TestEnvironment::clearSettings(); }

    void remembersDynamicPort();
    void randomPortOutsideDynamicRange_data();
    void randomPortOutsideDynamicRange();
    void failedListenForgetsPortAndRetries();
    void closedEndpointReopens();
    void connectionWithoutIdIsClosedButVersionKept();
    void versionPropertyNotANumber();
    void broadcastReachesAuthenticatedOnly();
    void disconnectCounts();
    void textMessagesIgnored();
    void quietNetworkWakesNothing();

    void framingWithoutAttachments();
    void framingTwoAttachments();
    void framingEncryptedLength();
    void decryptReadsAnyBody();
    void sendMessageReplacesMethod();
    void broadcastMethodOnly();
    void maxIncomingMessageSize();
};

void TestServer::quietNetworkWakesNothing()
{
    Server server;
    auto *changes = server.findChild<NetworkChanges *>();
    QVERIFY(changes);
    QTimer *watch = nullptr;
    const QList<QTimer *> timers = server.findChildren<QTimer *>();
    for (QTimer *timer : timers) {
        if (timer->interval() == 5000 && timer->timerType() == Qt::VeryCoarseTimer)
            watch = timer;
    }
    QVERIFY(watch);
#ifdef Q_OS_LINUX
    // The kernel reports changes: nothing runs until one comes, then the watch looks once, 5 s
    // later.
    QVERIFY(changes->isWatching());
    QVERIFY(!watch->isActive());
    emit changes->changed();
    QVERIFY(watch->isActive());
    QVERIFY(watch->isSingleShot());
    QVERIFY(watch->remainingTime() > 4000);
#else
    QVERIFY(watch->isActive());
    QVERIFY(!watch->isSingleShot());
#endif
}

void TestServer::remembersDynamicPort()
{
    const quint16 port = freePortInDynamicRange();
    QVERIFY(port);
    QSettings().setValue(lastUsedPort, uint(port));
    Server server;
    new AuthenticationHandler(&server, L::auth);
    QCOMPARE(server.serverPort(), port);
    QCOMPARE(QSettings().value(lastUsedPort).toUInt(), uint(port));
}

void TestServer::randomPortOutsideDynamicRange_data()
{
    QTest::addColumn<QVariant>("remembered");
    QTest::newRow("8080") << QVariant(8080u);
    QTest::newRow("absent") << QVariant();
    QTest::newRow("49151") << QVariant(49151u);
    QTest::newRow("not a number") << QVariant(QStringLiteral("port"));
}

void TestServer::randomPortOutsideDynamicRange()
{
    QFETCH(QVariant, remembered);
    if (remembered.isValid())
        QSettings().setValue(lastUsedPort, remembered);
    Server server;
    new AuthenticationHandler(&server, L::auth);
    QTRY_VERIFY(server.serverPort() != 0);
    QVERIFY(server.serverPort() >= 49152);
    QCOMPARE(QSettings().value(lastUsedPort).toUInt(), uint(server.serverPort()));
}

void TestServer::failedListenForgetsPortAndRetries()
{
    QTcpServer occupier;
    quint16 port = 0;
    for (quint16 candidate = 52500; candidate < 53500 && !port; ++candidate) {
        if (occupier.listen(QHostAddress::Any, candidate))
            port = candidate;
    }
    QVERIFY(port);
    QSettings().setValue(lastUsedPort, uint(port));
    Server server;
    new AuthenticationHandler(&server, L::auth);
    QCOMPARE(server.serverPort(), quint16(0));
    QVERIFY(!QSettings().contains(lastUsedPort));
    // The retry picks a fresh random port after 100 ms.
    QTRY_VERIFY(server.serverPort() != 0);
    QVERIFY(server.serverPort() != port);
    QVERIFY(server.serverPort() >= 49152);
    QCOMPARE(QSettings().value(lastUsedPort).toUInt(), uint(server.serverPort()));
}

void TestServer::closedEndpointReopens()
{
    Server server;
    new AuthenticationHandler(&server, L::auth);
    const quint16 port = listeningPort(&server);
    QVERIFY(port);
    // What the endpoint's closed() signal runs.
    QVERIFY(QMetaObject::invokeMethod(&server, "onServerClosed"));
    QCOMPARE(server.serverPort(), port);
}

void TestServer::connectionWithoutIdIsClosedButVersionKept()
{
    Server server;
    new AuthenticationHandler(&server, L::auth);
    SocketWatcher watcher(&server);
    ProtocolClient client(QStringLiteral("unused"));
    client.open(listeningPort(&server), QStringLiteral("v=3"));
    QTRY_VERIFY(client.isClosed());
    QCOMPARE(client.closeCode(), 1000);
    QTRY_COMPARE(watcher.destroyedCount, 1);
    QCOMPARE(watcher.disconnectedCount, 1);
    QCOMPARE(watcher.propertiesAtEnd.at(0).value(QStringLiteral("v")).toInt(), 3);
    QVERIFY(!watcher.propertiesAtEnd.at(0).contains(QStringLiteral("i")));
    QVERIFY(client.frames.isEmpty());
    QTRY_VERIFY(server.getConnections().isEmpty());
}

void TestServer::versionPropertyNotANumber()
{
    Server server;
    new AuthenticationHandler(&server, L::auth);
    SocketWatcher watcher(&server);
    ProtocolClient client(QStringLiteral("device"));
    client.open(listeningPort(&server), QStringLiteral("i=device&v=abc"));
    QTRY_COMPARE(client.framesWith(L::waitingForAuth).size(), 1);
    QCOMPARE(watcher.sockets.at(0)->property(Server::protocolVersionProperty).toInt(), 0);
    QVERIFY(watcher.sockets.at(0)->property(Server::protocolVersionProperty).isValid());
}

void TestServer::broadcastReachesAuthenticatedOnly()
{
    Pairing::authorize(QStringLiteral("phone"), QStringLiteral("token-of-phone"));
    Server server;
    new AuthenticationHandler(&server, L::auth);
    SocketWatcher watcher(&server);
    ProtocolClient known(QStringLiteral("phone"));
    QVERIFY(Pairing::connectAuthenticated(known, listeningPort(&server)));
    ProtocolClient stranger(QStringLiteral("tablet"));
    stranger.open(listeningPort(&server));
    QTRY_COMPARE(stranger.framesWith(L::waitingForAuth).size(), 1);
    QCOMPARE(server.getConnections().size(), 2);
    QCOMPARE(server.getClients().size(), 1);

    server.broadcastMessage(L::brightness, QJsonObject { { L::value, 0.5 } });
    // A marker sent after the broadcast: whatever the broadcast sent the stranger would arrive
    // before it.
    server.sendMessage(watcher.sockets.at(1), QStringLiteral("marker"), QJsonObject());
    QTRY_COMPARE(known.framesWith(L::brightness).size(), 1);
    QCOMPARE(known.framesWith(L::brightness).at(0).object().value(L::value).toDouble(), 0.5);
    QTRY_COMPARE(stranger.framesWith(QStringLiteral("marker")).size(), 1);
    QCOMPARE(stranger.framesWith(L::brightness).size(), 0);
}

void TestServer::disconnectCounts()
{
    Pairing::authorize(QStringLiteral("phone"), QStringLiteral("token-of-phone"));
    Server server;
    new AuthenticationHandler(&server, L::auth);
    QSignalSpy counts(&server, &Server::clientCountChanged);
    ProtocolClient known(QStringLiteral("phone"));
    QVERIFY(Pairing::connectAuthenticated(known, listeningPort(&server)));
    QCOMPARE(counts.size(), 1);
    QCOMPARE(counts.at(0).at(0).toInt(), 1);

    ProtocolClient stranger(QStringLiteral("tablet"));
    stranger.open(listeningPort(&server));
    QTRY_COMPARE(server.getConnections().size(), 2);
    stranger.close();
    QTRY_COMPARE(server.getConnections().size(), 1);
    QCOMPARE(counts.size(), 1);
    QVERIFY(!server.getPendingSocket());

    known.close();
    QTRY_COMPARE(counts.size(), 2);
    QCOMPARE(counts.at(1).at(0).toInt(), 0);
    QVERIFY(server.getConnections().isEmpty());
    QVERIFY(server.getClients().isEmpty());
}

void TestServer::textMessagesIgnored()
{
    Pairing::authorize(QStringLiteral("phone"), QStringLiteral("token-of-phone"));
    Server server;
    new AuthenticationHandler(&server, L::auth);
    auto *handler = new RecordingHandler(&server, QStringLiteral("echo"));
    ProtocolClient known(QStringLiteral("phone"));
    QVERIFY(Pairing::connectAuthenticated(known, listeningPort(&server)));
    known.socket().sendTextMessage(QStringLiteral("{\"_\":\"echo\"}"));
    known.send(QJsonObject { { L::method, QStringLiteral("echo") } });
    QTRY_COMPARE(handler->calls.size(), 1);
    QTRY_COMPARE(known.framesWith(QStringLiteral("echo")).size(), 1);
    QVERIFY(!known.isClosed());
}

void TestServer::framingWithoutAttachments()
{
    Server server;
    new AuthenticationHandler(&server, L::auth);
    SocketWatcher watcher(&server);
    ProtocolClient client(QStringLiteral("device"));
    client.open(listeningPort(&server));
    QTRY_COMPARE(client.frames.size(), 1);
    const QJsonObject object { { L::method, QStringLiteral("x") }, { L::value, 1 } };
    server.sendMessage(watcher.sockets.at(0), object, QVector<Server::MessagePart>());
    QTRY_COMPARE(client.rawMessages.size(), 2);
    const QByteArray json = QJsonDocument(object).toJson(QJsonDocument::Compact);
    const QByteArray expected = QByteArray::fromHex("000000") + char(json.size()) + json;
    QCOMPARE(client.rawMessages.at(1), expected);
    // The first message, {"_":"wa"}, has the same shape.
    QCOMPARE(client.rawMessages.at(0), QByteArray::fromHex("0000000a") + "{\"_\":\"wa\"}");
}

void TestServer::framingTwoAttachments()
{
    Server server;
    new AuthenticationHandler(&server, L::auth);
    SocketWatcher watcher(&server);
    ProtocolClient client(QStringLiteral("device"));
    client.open(listeningPort(&server));
    QTRY_COMPARE(client.frames.size(), 1);
    const QJsonObject object { { L::method, L::appIcon } };
    server.sendMessage(watcher.sockets.at(0), object,
        QVector<Server::MessagePart> {
            { Server::Png, QByteArray("abc") }, { Server::Json, QByteArray() } });
    QTRY_COMPARE(client.rawMessages.size(), 2);
    const QByteArray raw = client.rawMessages.at(1);
    QVERIFY(raw.endsWith(
        QByteArray::fromHex("0100000003") + "abc" + QByteArray::fromHex("0000000000")));
    QCOMPARE(raw.size(), 4 + 10 + 5 + 3 + 5);
    QCOMPARE(client.frames.at(1).parts.size(), 2);
    QCOMPARE(client.frames.at(1).parts.at(0).first, qint8(1));
    QCOMPARE(client.frames.at(1).parts.at(0).second, QByteArray("abc"));

    server.sendMessage(
        watcher.sockets.at(0), object, Server::MessagePart { Server::Json, QByteArray("{}") });
    QTRY_COMPARE(client.frames.size(), 3);
    QCOMPARE(client.frames.at(2).parts.size(), 1);
    QCOMPARE(client.frames.at(2).parts.at(0).first, qint8(0));
}

void TestServer::framingEncryptedLength()
{
    Pairing::authorize(QStringLiteral("phone"), QStringLiteral("token-of-phone"));
    Server server;
    new AuthenticationHandler(&server, L::auth);
    ProtocolClient known(QStringLiteral("phone"));
    QVERIFY(Pairing::connectAuthenticated(known, listeningPort(&server)));
    const QByteArray png(300, 'p');
    server.broadcastMessage(
        QJsonObject { { L::method, L::appIcon }, { L::id, QStringLiteral("a") } },
        { { Server::Png, png } });
    QTRY_COMPARE(known.framesWith(L::appIcon).size(), 1);
    const Frame frame = known.framesWith(L::appIcon).at(0);
    QVERIFY(frame.encrypted);
    const qint32 length = qFromBigEndian<qint32>(frame.raw.constData());
    QCOMPARE(length, frame.body.size());
    QVERIFY(length != frame.json.size());
    QCOMPARE(length % 16, 0);
    QVERIFY(length >= 32);
    // The attachment is not encrypted.
    QCOMPARE(frame.parts.at(0).second, png);
    QVERIFY(frame.raw.endsWith(png));
}

void TestServer::decryptReadsAnyBody()
{
    // Read where it lies, a body decrypts as the vector and ciphertext taken apart would: the
    // padding's last byte taken at its word, short and ragged bodies reading as nothing.
    Server server;
    const QByteArray key = Server::computeAESKey(
        QStringLiteral("phone"), QStringLiteral("token"), QStringLiteral("session"));
    const QAESEncryption aes(QAESEncryption::AES_128, QAESEncryption::CBC, QAESEncryption::PKCS7);
    for (int size = 0; size <= 80; ++size) {
        QByteArray body(size, Qt::Uninitialized);
        for (int i = 0; i < size; ++i)
            body[i] = char(i * 11 + size * 7);
        const QByteArray iv = body.left(16);
        const QByteArray expected = QAESEncryption::RemovePadding(
            aes.decode(body.mid(qMin(16, size)), key, iv), QAESEncryption::PKCS7);
        QCOMPARE(server.decrypt(body, key), expected);
    }
    // And what the server encrypts comes back.
    for (const QByteArray &plain : { QByteArray(), QByteArray("{}"), QByteArray(16, 'x'),
             QByteArray(R"({"_":"bench","i":"com.example.app","s":64})") })
        QCOMPARE(server.decrypt(server.encrypt(plain, key), key), plain);
}

void TestServer::sendMessageReplacesMethod()
{
    Server server;
    new AuthenticationHandler(&server, L::auth);
    SocketWatcher watcher(&server);
    ProtocolClient client(QStringLiteral("device"));
    client.open(listeningPort(&server));
    QTRY_COMPARE(client.frames.size(), 1);
    server.sendMessage(watcher.sockets.at(0), L::currentApp,
        QJsonObject { { L::method, QStringLiteral("x") }, { L::id, QStringLiteral("a") } });
    QTRY_COMPARE(client.frames.size(), 2);
    QCOMPARE(client.frames.at(1).method(), L::currentApp);
    QCOMPARE(client.frames.at(1).object().value(L::id).toString(), QStringLiteral("a"));
}

void TestServer::broadcastMethodOnly()
{
    Pairing::authorize(QStringLiteral("phone"), QStringLiteral("token-of-phone"));
    Server server;
    new AuthenticationHandler(&server, L::auth);
    server.broadcastMessage(L::screenLock); // nobody to send to
    ProtocolClient known(QStringLiteral("phone"));
    QVERIFY(Pairing::connectAuthenticated(known, listeningPort(&server)));
    server.broadcastMessage(L::screenLock);
    QTRY_COMPARE(known.framesWith(L::screenLock).size(), 1);
    QCOMPARE(known.framesWith(L::screenLock).at(0).object(),
        QJsonObject({ { L::method, L::screenLock } }));
}

void TestServer::maxIncomingMessageSize()
{
    Pairing::authorize(QStringLiteral("phone"), QStringLiteral("token-of-phone"));
    Server server;
    new AuthenticationHandler(&server, L::auth);
    auto *handler = new RecordingHandler(&server, QStringLiteral("echo"));
    ProtocolClient known(QStringLiteral("phone"));
    QVERIFY(Pairing::connectAuthenticated(known, listeningPort(&server)));
    // Just under the limit is served.
    const QString filler(Server::maxIncomingMessageSize - 1024, QLatin1Char('a'));
    known.send(QJsonObject { { L::method, QStringLiteral("echo") }, { L::value, filler } });
    QTRY_COMPARE_WITH_TIMEOUT(handler->calls.size(), 1, 10000);
    QCOMPARE(handler->calls.at(0).message.value(L::value).toString().size(), filler.size());
}

QTEST_GUILESS_MAIN(TestServer)
#include "tst_server.moc"

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
#include <QTcpSocket>
#include <QTimer>
#include <QtEndian>
#include <QtTest>

#include <csignal>

namespace {
const QString lastUsedPort = QStringLiteral("lastUsedPort");

// The server side of the raw connection whose local port is port.
QTcpSocket *transportOf(Server &server, quint16 port)
{
    for (QTcpSocket *transport : server.findChildren<QTcpSocket *>()) {
        if (transport->peerPort() == port)
            return transport;
    }
    return nullptr;
}

// A raw connection of an unknown device, past the handshake.
bool connectRaw(QTcpSocket &raw, quint16 port, const QByteArray &id)
{
    raw.connectToHost(QHostAddress::LocalHost, port);
    if (!raw.waitForConnected(5000))
        return false;
    raw.write(RawWebSocket::handshake(port, "i=" + id + "&v=1"));
    return RawWebSocket::statusLine(raw) == "HTTP/1.1 101 Switching Protocols"
        && RawWebSocket::skipHead(raw);
}

// The same, past the server's "wa" too.
bool openRaw(QTcpSocket &raw, quint16 port, const QByteArray &id)
{
    if (!connectRaw(raw, port, id))
        return false;
    QByteArray bytes;
    RawWebSocket::Frame frame;
    QString error;
    return QTest::qWaitFor(
               [&] {
                   bytes += raw.readAll();
                   return RawWebSocket::takeFrame(bytes, &frame, &error);
               },
               5000)
        && frame.payload.endsWith("{\"_\":\"wa\"}");
}

// A message of exactly size bytes: the length of its body, then the body.
QByteArray messageOfSize(int size, char fill)
{
    QByteArray message(size, fill);
    qToBigEndian<qint32>(size - 4, message.data());
    return message;
}

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
    void framesOnTheWire();
    void messagesOfEverySizeArrive_data();
    void messagesOfEverySizeArrive();
    void repliesToAPeerThatDoesNotReadWaitInOrder();
    void sendingToAPeerThatLeftIsHarmless();
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

void TestServer::framesOnTheWire()
{
    // Byte for byte what the WebSocket layer writes: one final binary frame, not masked, its
    // length in the fewest bytes; a message longer than a frame goes out in several.
    Server server;
    new AuthenticationHandler(&server, L::auth);
    SocketWatcher watcher(&server);
    const quint16 port = listeningPort(&server);
    QTcpSocket raw;
    QVERIFY(connectRaw(raw, port, "wire"));
    QByteArray bytes;
    QVERIFY(QTest::qWaitFor(
        [&] {
            bytes += raw.readAll();
            return bytes.size() >= 16;
        },
        5000));
    QCOMPARE(bytes, QByteArray::fromHex("820e0000000a") + "{\"_\":\"wa\"}");
    bytes.clear();

    QWebSocket *socket = watcher.sockets.at(0);
    const QTcpSocket *transport = transportOf(server, raw.localPort());
    QVERIFY(transport);
    const QList<int> sizes { 5, 125, 126, 127, 4000 };
    for (int i = 0; i < sizes.size(); ++i) {
        const QByteArray message = messageOfSize(sizes.at(i), char('a' + i));
        server.sendJson(socket, message.mid(4), {});
        // Written at once, not left for a later turn of the loop.
        QCOMPARE(transport->bytesToWrite(), 0);
    }
    socket->setOutgoingFrameSize(100);
    server.sendJson(socket, messageOfSize(250, 'z').mid(4), {});
    QByteArray expected;
    for (int i = 0; i < sizes.size(); ++i) {
        const int size = sizes.at(i);
        expected += char(0x82);
        if (size <= 125) {
            expected += char(size);
        } else {
            expected += char(126);
            expected += char(size >> 8);
            expected += char(size & 0xFF);
        }
        expected += messageOfSize(size, char('a' + i));
    }
    const QByteArray split = messageOfSize(250, 'z');
    expected += QByteArray::fromHex("0264") + split.left(100);
    expected += QByteArray::fromHex("0064") + split.mid(100, 100);
    expected += QByteArray::fromHex("8032") + split.mid(200);
    QTRY_COMPARE(bytes += raw.readAll(), expected);
}

void TestServer::messagesOfEverySizeArrive_data()
{
    QTest::addColumn<int>("size");
    QTest::newRow("two-byte length, largest") << 0xFFFF;
    QTest::newRow("eight-byte length, smallest") << 0x10000;
    QTest::newRow("a frame's worth") << int(QWebSocket().outgoingFrameSize());
    QTest::newRow("more than a frame") << int(QWebSocket().outgoingFrameSize()) + 1;
    QTest::newRow("four megabytes") << 4 * 1024 * 1024;
}

void TestServer::messagesOfEverySizeArrive()
{
    // A client's WebSocket layer reads them whole; it refuses a length not written in the
    // fewest bytes.
    QFETCH(int, size);
    Pairing::authorize(QStringLiteral("phone"), QStringLiteral("token-of-phone"));
    Server server;
    new AuthenticationHandler(&server, L::auth);
    SocketWatcher watcher(&server);
    ProtocolClient known(QStringLiteral("phone"));
    QVERIFY(Pairing::connectAuthenticated(known, listeningPort(&server)));
    const int before = known.rawMessages.size();
    const QJsonObject object { { L::method, L::appIcon } };
    server.sendMessage(watcher.sockets.at(0), object, QVector<Server::MessagePart>());
    QTRY_COMPARE(known.rawMessages.size(), before + 1);
    // The body is encrypted: an attachment brings the whole message to the size wanted.
    const int attachment = size - known.rawMessages.last().size() - 5;
    QVERIFY(attachment >= 0);
    QByteArray png(attachment, Qt::Uninitialized);
    for (int i = 0; i < attachment; ++i)
        png[i] = char(i * 7 + i / 251);
    server.sendMessage(watcher.sockets.at(0), object, Server::MessagePart { Server::Png, png });
    QTRY_COMPARE_WITH_TIMEOUT(known.rawMessages.size(), before + 2, 10000);
    QCOMPARE(known.rawMessages.last().size(), size);
    QCOMPARE(known.framesWith(L::appIcon).last().parts.at(0).second, png);
    QCOMPARE(known.socket().state(), QAbstractSocket::ConnectedState);
}

void TestServer::repliesToAPeerThatDoesNotReadWaitInOrder()
{
    // What the connection does not take at once waits for it, after what waited before and
    // before what comes later; nothing is lost, and the peer is not closed for it.
    Server server;
    new AuthenticationHandler(&server, L::auth);
    SocketWatcher watcher(&server);
    const quint16 port = listeningPort(&server);
    QTcpSocket raw;
    raw.setSocketOption(QAbstractSocket::ReceiveBufferSizeSocketOption, 4096);
    QVERIFY(openRaw(raw, port, "slow"));
    QTcpSocket *transport = transportOf(server, raw.localPort());
    QVERIFY(transport);
    QWebSocket *socket = watcher.sockets.at(0);
    // Sent without turning the loop, so the peer reads nothing meanwhile.
    const int size = 8000;
    int sent = 0;
    while (transport->bytesToWrite() == 0 && sent < 4000)
        server.sendJson(socket, messageOfSize(size, char('a' + sent++ % 26)).mid(4), {});
    QVERIFY2(transport->bytesToWrite() > 0, "the connection never filled up");
    for (int more = 0; more < 2; ++more)
        server.sendJson(socket, messageOfSize(size, char('a' + sent++ % 26)).mid(4), {});

    QByteArray bytes;
    int received = 0;
    QString error;
    QVERIFY(QTest::qWaitFor(
        [&] {
            bytes += raw.readAll();
            RawWebSocket::Frame frame;
            while (RawWebSocket::takeFrame(bytes, &frame, &error)) {
                if (frame.first != 0x82
                    || frame.payload != messageOfSize(size, char('a' + received % 26)))
                    return true;
                ++received;
            }
            return received == sent || !error.isEmpty();
        },
        20000));
    QVERIFY2(error.isEmpty(), qPrintable(error));
    QCOMPARE(received, sent);
    QVERIFY(bytes.isEmpty());
    QCOMPARE(raw.state(), QAbstractSocket::ConnectedState);
    QCOMPARE(watcher.disconnectedCount, 0);
}

void TestServer::sendingToAPeerThatLeftIsHarmless()
{
    // The peer is gone before the server has heard of it: the writes fail (a broken pipe,
    // which must not end the program) and the connection ends as any other.
    Server server;
    new AuthenticationHandler(&server, L::auth);
    SocketWatcher watcher(&server);
    const quint16 port = listeningPort(&server);
    {
        QTcpSocket raw;
        QVERIFY(openRaw(raw, port, "gone"));
        raw.abort();
    }
    QWebSocket *socket = watcher.sockets.at(0);
    QCOMPARE(socket->state(), QAbstractSocket::ConnectedState);
    // Qt's network layer sets broken pipes aside for the whole process when it makes its
    // first socket; the server's own writes must not depend on that.
    const auto previous = std::signal(SIGPIPE, SIG_DFL);
    const auto restore = qScopeGuard([previous] { std::signal(SIGPIPE, previous); });
    for (int i = 0; i < 5; ++i)
        server.sendJson(socket, messageOfSize(8000, 'x').mid(4), {});
    QTRY_COMPARE(watcher.disconnectedCount, 1);
}

QTEST_GUILESS_MAIN(TestServer)
#include "tst_server.moc"

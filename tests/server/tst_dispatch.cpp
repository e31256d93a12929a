#include "authenticationhandler.h"
#include "l.h"
#include "logcapture.h"
#include "protocolclient.h"
#include "server.h"
#include "serverfixture.h"
#include "testenvironment.h"

#include <QSettings>
#include <QSignalSpy>
#include <QtTest>

// The handler registry, the dispatch of incoming messages and its permission rule.
class TestDispatch : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { TestEnvironment::setUp(); }
    void init();
    void cleanup();

    void unauthenticatedIsDenied();
    void authReachesItsHandlerBeforeAuthentication();
    void runHandlerReachesOnlyClients();
    void runHandlerWithoutConnections();
    void runHandlerByCode();
    void unknownCodeIsUnhandled();
    void missingCodeIsUnhandled();
    void handlerRegistersOnNextTurn();
    void laterRegistrationReplaces();
    void encryptedRequestAndReply();
    void encryptionRoundTrip();
    void decryptEdgeCases();

private:
    Server *server = nullptr;
};

void TestDispatch::init()
{
    TestEnvironment::clearSettings();
    server = new Server;
    new AuthenticationHandler(server, L::auth);
    Pairing::authorize(QStringLiteral("phone"), QStringLiteral("phone-token"));
}

void TestDispatch::cleanup()
{
    delete server;
    server = nullptr;
}

void TestDispatch::unauthenticatedIsDenied()
{
    auto *handler = new RecordingHandler(server, L::installedApps);
    ProtocolClient stranger(QStringLiteral("stranger"));
    stranger.open(listeningPort(server));
    QTRY_COMPARE(stranger.frames.size(), 1);
    LogCapture log;
    stranger.send(QJsonObject { { L::method, L::installedApps } });
    QTRY_COMPARE(log.count(QStringLiteral("Permission denied QWebSocket")), 1);
    QVERIFY(handler->calls.isEmpty());
    // No reply, and the connection is kept: it may still prove itself.
    server->sendMessage(server->getPendingSocket(), QStringLiteral("marker"), QJsonObject());
    QTRY_COMPARE(stranger.framesWith(QStringLiteral("marker")).size(), 1);
    QCOMPARE(stranger.frames.size(), 2);
    QVERIFY(!stranger.isClosed());
    QVERIFY(server->getPendingSocket());
}

void TestDispatch::authReachesItsHandlerBeforeAuthentication()
{
    ProtocolClient stranger(QStringLiteral("stranger"));
    stranger.open(listeningPort(server));
    QTRY_COMPARE(stranger.frames.size(), 1);
    // Replace the authentication handler to watch what reaches it.
    auto *recorder = new RecordingHandler(server, L::auth);
    recorder->reply = false;
    QTRY_COMPARE(server->handler(L::auth), recorder);
    const QJsonObject request { { L::method, L::auth }, { L::hash, QStringLiteral("abc") } };
    stranger.send(request);
    QTRY_COMPARE(recorder->calls.size(), 1);
    QCOMPARE(recorder->calls.at(0).message, request);
    QCOMPARE(recorder->calls.at(0).socket.data(), server->getPendingSocket());
}

void TestDispatch::runHandlerReachesOnlyClients()
{
    auto *handler = new RecordingHandler(server, L::volume);
    ProtocolClient known(QStringLiteral("phone"));
    QVERIFY(Pairing::connectAuthenticated(known, listeningPort(server)));
    ProtocolClient waiting(QStringLiteral("stranger"));
    waiting.open(listeningPort(server));
    QTRY_COMPARE(waiting.frames.size(), 1);

    // As a platform change does: re-run the handler. Only the authenticated connection is
    // told anything; the one waiting for approval learns nothing of this computer.
    handler->run();
    QCOMPARE(handler->calls.size(), 1);
    QCOMPARE(handler->calls.at(0).message, QJsonObject());
    QCOMPARE(handler->calls.at(0).socket.data(), server->getClients().at(0));
    QTRY_COMPARE(known.framesWith(L::volume).size(), 1);
    QVERIFY(known.framesWith(L::volume).at(0).encrypted);
    server->sendMessage(server->getPendingSocket(), QStringLiteral("marker"), QJsonObject());
    QTRY_COMPARE(waiting.framesWith(QStringLiteral("marker")).size(), 1);
    QVERIFY(waiting.framesWith(L::volume).isEmpty());
}

void TestDispatch::runHandlerWithoutConnections()
{
    auto *handler = new RecordingHandler(server, L::volume);
    server->runHandler(handler);
    QVERIFY(handler->calls.isEmpty());
}

void TestDispatch::runHandlerByCode()
{
    auto *handler = new RecordingHandler(server, L::volumeMute);
    ProtocolClient known(QStringLiteral("phone"));
    QVERIFY(Pairing::connectAuthenticated(known, listeningPort(server)));
    server->runHandler(L::volumeMute);
    QCOMPARE(handler->calls.size(), 1);
    QTest::ignoreMessage(
        QtWarningMsg, "void Server::runHandler(const QString &) No handler for \"nope\"");
    server->runHandler(QStringLiteral("nope"));
    QCOMPARE(handler->calls.size(), 1);
}

void TestDispatch::unknownCodeIsUnhandled()
{
    QSignalSpy unhandled(server, &Server::unhandledMessage);
    ProtocolClient known(QStringLiteral("phone"));
    QVERIFY(Pairing::connectAuthenticated(known, listeningPort(server)));
    QTest::ignoreMessage(QtWarningMsg, "Unhandled request \"{\\\"_\\\":\\\"zz\\\"}\"");
    known.send(QJsonObject { { L::method, QStringLiteral("zz") } });
    QTRY_COMPARE(unhandled.size(), 1);
    QCOMPARE(unhandled.at(0).at(0).toString(), QStringLiteral("zz"));
    QVERIFY(!known.isClosed());
}

void TestDispatch::missingCodeIsUnhandled()
{
    QSignalSpy unhandled(server, &Server::unhandledMessage);
    ProtocolClient known(QStringLiteral("phone"));
    QVERIFY(Pairing::connectAuthenticated(known, listeningPort(server)));
    known.send(QJsonObject { { L::value, 1 } });
    known.send(QJsonObject { { L::method, 5 } });
    QTRY_COMPARE(unhandled.size(), 2);
    QCOMPARE(unhandled.at(0).at(0).toString(), QString());
    QCOMPARE(unhandled.at(1).at(0).toString(), QString());
}

void TestDispatch::handlerRegistersOnNextTurn()
{
    QSignalSpy unhandled(server, &Server::unhandledMessage);
    ProtocolClient known(QStringLiteral("phone"));
    QVERIFY(Pairing::connectAuthenticated(known, listeningPort(server)));
    QWebSocket *socket = server->getClients().at(0);
    const QByteArray body = ProtocolClient::encryptBody("{\"_\":\"late\"}", known.key());

    auto *handler = new RecordingHandler(server, QStringLiteral("late"));
    QVERIFY(!server->handler(QStringLiteral("late")));
    // Delivered in the same turn as the construction: nobody is registered yet.
    emit socket->binaryMessageReceived(body);
    QCOMPARE(unhandled.size(), 1);
    QCOMPARE(unhandled.at(0).at(0).toString(), QStringLiteral("late"));
    QVERIFY(handler->calls.isEmpty());

    QTRY_COMPARE(server->handler(QStringLiteral("late")), handler);
    emit socket->binaryMessageReceived(body);
    QCOMPARE(handler->calls.size(), 1);
    QCOMPARE(unhandled.size(), 1);
}

void TestDispatch::laterRegistrationReplaces()
{
    auto *first = new RecordingHandler(server, QStringLiteral("dup"));
    auto *second = new RecordingHandler(server, QStringLiteral("dup"));
    QTRY_COMPARE(server->handler(QStringLiteral("dup")), second);
    ProtocolClient known(QStringLiteral("phone"));
    QVERIFY(Pairing::connectAuthenticated(known, listeningPort(server)));
    known.send(QJsonObject { { L::method, QStringLiteral("dup") } });
    QTRY_COMPARE(second->calls.size(), 1);
    QCOMPARE(first->calls.size(), 0);
}

void TestDispatch::encryptedRequestAndReply()
{
    auto *handler = new RecordingHandler(server, QStringLiteral("echo"));
    ProtocolClient known(QStringLiteral("phone"));
    QVERIFY(Pairing::connectAuthenticated(known, listeningPort(server)));
    const QJsonObject request { { L::method, QStringLiteral("echo") },
        { L::path, QStringLiteral("/home/ünïcødé") }, { L::value, 42 } };
    known.send(request);
    QTRY_COMPARE(known.framesWith(QStringLiteral("echo")).size(), 1);
    QCOMPARE(handler->calls.at(0).message, request);
    const Frame reply = known.framesWith(QStringLiteral("echo")).at(0);
    QVERIFY(reply.encrypted);
    QCOMPARE(reply.object(), request);
}

void TestDispatch::encryptionRoundTrip()
{
    const QByteArray key = Server::computeAESKey(QStringLiteral("id"), QStringLiteral("token"),
        QStringLiteral("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdef"));
    const QByteArray two = server->encrypt("{}", key);
    QCOMPARE(two.size(), 16 + 16);
    QCOMPARE(server->encrypt(QByteArray(16, 'x'), key).size(), 16 + 32);
    QCOMPARE(server->encrypt(QByteArray(15, 'x'), key).size(), 16 + 16);
    QCOMPARE(server->decrypt(two, key), QByteArray("{}"));
    // A fresh vector each time.
    QVERIFY(server->encrypt("{}", key) != two);
    QCOMPARE(server->encrypt("{}", key).size(), two.size());
    // The client's strict decryption agrees.
    bool ok = false;
    QCOMPARE(ProtocolClient::decryptBody(two, key, &ok), QByteArray("{}"));
    QVERIFY(ok);
    // A wrong key yields something that is not JSON.
    const QByteArray wrong = Server::computeAESKey(QStringLiteral("id"), QStringLiteral("other"),
        QStringLiteral("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdef"));
    const QByteArray json = "{\"_\":\"ia\",\"v\":[1,2,3]}";
    const QByteArray garbage = server->decrypt(server->encrypt(json, key), wrong);
    QVERIFY(garbage != json);
    QVERIFY(QJsonDocument::fromJson(garbage).isNull());
}

void TestDispatch::decryptEdgeCases()
{
    const QByteArray key(20, 'k');
    QVERIFY(server->decrypt(QByteArray(), key).isEmpty());
    QVERIFY(server->decrypt(QByteArray(15, 'a'), key).isEmpty());
    QVERIFY(server->decrypt(QByteArray(16, 'a'), key).isEmpty());
    // 17 bytes: one byte of ciphertext, not a whole block.
    QVERIFY(server->decrypt(QByteArray(17, 'a'), key).isEmpty());
}

QTEST_GUILESS_MAIN(TestDispatch)
#include "tst_dispatch.moc"

#include "authenticationhandler.h"
#include "l.h"
#include "protocolclient.h"
#include "server.h"
#include "serverfixture.h"
#include "testenvironment.h"

#include <QSettings>
#include <QSignalSpy>
#include <QtTest>

namespace {
QString storedToken(const QString &id)
{
    QSettings settings;
    settings.beginGroup(L::auth);
    return settings.value(id).toString();
}
} // namespace

// Approval of new devices and authentication of known ones.
class TestPairing : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { TestEnvironment::setUp(); }
    void init();
    void cleanup();

    void newDeviceApproved();
    void newDeviceDenied();
    void approvedDeviceReconnectsEncrypted();
    void tokenFormat();
    void upperCaseProofRefused();
    void wrongProofRefused();
    void secondDeviceClosedWhilePending();
    void knownDeviceAuthenticatesWhileANewOneWaits();
    void approvalAfterDisconnectStoresNothing();
    void deauthorizeAllClosesEverything();
    void answerGoesToWhicheverSocketIsPending();
    void proofFromAuthorizationFlowRejected();
    void proofFromAuthenticatedClientIgnored();
    void emptyIdClosed();
    void deauthorizeKeepsOpenConnection();
    void accessors();
    void keyDerivationExample();

private:
    Server *server = nullptr;
};

void TestPairing::init()
{
    TestEnvironment::clearSettings();
    server = new Server;
    new AuthenticationHandler(server, L::auth);
}

void TestPairing::cleanup()
{
    delete server;
    server = nullptr;
}

void TestPairing::newDeviceApproved()
{
    QSignalSpy prompts(server, &Server::needUserAuthorization);
    QSignalSpy counts(server, &Server::clientCountChanged);
    ProtocolClient phone(QStringLiteral("phone-1"));
    phone.open(listeningPort(server));
    QTRY_COMPARE(prompts.size(), 1);
    QCOMPARE(prompts.at(0).at(1).toString(), QStringLiteral("phone-1"));
    // No peer name on loopback: the address names the device.
    QCOMPARE(prompts.at(0).at(2).toString(), QStringLiteral("127.0.0.1"));
    QCOMPARE(prompts.at(0).at(3).toString(), QStringLiteral("127.0.0.1"));
    QTRY_COMPARE(phone.frames.size(), 1);
    QCOMPARE(phone.frames.at(0).object(), QJsonObject({ { L::method, L::waitingForAuth } }));
    QVERIFY(!phone.frames.at(0).encrypted);

    server->setAuthorization(QStringLiteral("phone-1"), true);
    QTRY_COMPARE(phone.frames.size(), 3);
    const QString token = phone.frames.at(1).object().value(L::token).toString();
    QCOMPARE(phone.frames.at(1).method(), L::auth);
    QCOMPARE(token.size(), 32);
    QCOMPARE(storedToken(QStringLiteral("phone-1")), token);
    // The connection stays unencrypted to its end.
    QCOMPARE(
        phone.frames.at(2).object(), QJsonObject({ { L::method, L::auth }, { L::value, true } }));
    QVERIFY(!phone.frames.at(2).encrypted);
    QCOMPARE(counts.size(), 1);
    QCOMPARE(counts.at(0).at(0).toInt(), 1);
    QCOMPARE(server->getClients().size(), 1);
    QVERIFY(!server->getPendingSocket());
    QCOMPARE(server->totalAuthorizations(), 1);
}

void TestPairing::newDeviceDenied()
{
    QSignalSpy counts(server, &Server::clientCountChanged);
    ProtocolClient phone(QStringLiteral("phone-1"));
    phone.open(listeningPort(server));
    QTRY_COMPARE(phone.frames.size(), 1);
    server->setAuthorization(QStringLiteral("phone-1"), false);
    QTRY_VERIFY(phone.isClosed());
    QCOMPARE(phone.closeCode(), 1000);
    QCOMPARE(phone.frames.size(), 1);
    QCOMPARE(server->totalAuthorizations(), 0);
    QCOMPARE(counts.size(), 0);
    QVERIFY(!server->getPendingSocket());
}

void TestPairing::approvedDeviceReconnectsEncrypted()
{
    ProtocolClient phone(QStringLiteral("phone-1"));
    phone.open(listeningPort(server));
    QTRY_COMPARE(phone.frames.size(), 1);
    server->setAuthorization(QStringLiteral("phone-1"), true);
    QTRY_COMPARE(phone.frames.size(), 3);
    phone.close();
    QTRY_VERIFY(server->getConnections().isEmpty());

    ProtocolClient again(QStringLiteral("phone-1"));
    again.setToken(phone.token());
    again.open(listeningPort(server));
    QTRY_VERIFY(again.isAuthenticated());
    QCOMPARE(again.frames.size(), 2);
    // The session token comes in plain text, the confirmation encrypted.
    QCOMPARE(again.frames.at(0).method(), L::auth);
    QCOMPARE(again.frames.at(0).object().value(L::sessionToken).toString().size(), 32);
    QVERIFY(!again.frames.at(0).encrypted);
    QCOMPARE(again.frames.at(0).json, again.frames.at(0).body);
    QVERIFY(again.frames.at(1).encrypted);
    QCOMPARE(
        again.frames.at(1).object(), QJsonObject({ { L::method, L::auth }, { L::value, true } }));
    QCOMPARE(server->getClients().size(), 1);
    QCOMPARE(
        server->getClients().at(0)->property(Server::aesKeyProperty).toByteArray(), again.key());
    QCOMPARE(server->getClients().at(0)->property(Server::idProperty).toString(),
        QStringLiteral("phone-1"));
}

void TestPairing::tokenFormat()
{
    const QRegularExpression alphabet(QStringLiteral("^[A-Za-z0-9]{32}$"));
    QSet<QString> tokens;
    for (int i = 0; i < 5; ++i) {
        ProtocolClient phone(QStringLiteral("phone-%1").arg(i));
        phone.open(listeningPort(server));
        QTRY_COMPARE(phone.frames.size(), 1);
        server->setAuthorization(phone.id(), true);
        QTRY_COMPARE(phone.frames.size(), 3);
        QVERIFY2(alphabet.match(phone.token()).hasMatch(), qPrintable(phone.token()));
        tokens.insert(phone.token());
        phone.close();
        QTRY_VERIFY(server->getConnections().isEmpty());
    }
    QCOMPARE(tokens.size(), 5);
    QCOMPARE(server->totalAuthorizations(), 5);
}

void TestPairing::upperCaseProofRefused()
{
    Pairing::authorize(QStringLiteral("phone"), QStringLiteral("the-token"));
    QSignalSpy counts(server, &Server::clientCountChanged);
    ProtocolClient phone(QStringLiteral("phone"));
    phone.setToken(QStringLiteral("the-token"));
    phone.setUpperCaseProof(true);
    phone.open(listeningPort(server));
    QTRY_VERIFY(phone.isClosed());
    QCOMPARE(phone.closeCode(), 1000);
    QVERIFY(!phone.isAuthenticated());
    QCOMPARE(counts.size(), 0);
    QCOMPARE(storedToken(QStringLiteral("phone")), QStringLiteral("the-token"));
    QVERIFY(!server->getPendingSocket());
}

void TestPairing::wrongProofRefused()
{
    Pairing::authorize(QStringLiteral("phone"), QStringLiteral("the-token"));
    ProtocolClient phone(QStringLiteral("phone"));
    phone.setToken(QStringLiteral("another-token"));
    phone.open(listeningPort(server));
    // The proof made with the wrong token does not even decrypt: the connection is dropped,
    // and the approval stays (a stranger must not be able to unpair a device).
    QTRY_VERIFY(phone.isClosed());
    QCOMPARE(phone.closeCode(), 1000);
    QVERIFY(!phone.isAuthenticated());
    QCOMPARE(storedToken(QStringLiteral("phone")), QStringLiteral("the-token"));
}

void TestPairing::secondDeviceClosedWhilePending()
{
    QSignalSpy prompts(server, &Server::needUserAuthorization);
    ProtocolClient a(QStringLiteral("device-a"));
    a.open(listeningPort(server));
    QTRY_COMPARE(a.frames.size(), 1);
    ProtocolClient b(QStringLiteral("device-b"));
    b.open(listeningPort(server));
    QTRY_VERIFY(b.isClosed());
    QCOMPARE(b.closeCode(), 1000);
    QVERIFY(b.frames.isEmpty());
    QCOMPARE(prompts.size(), 1);

    server->setAuthorization(QStringLiteral("device-a"), false);
    QTRY_VERIFY(a.isClosed());
    ProtocolClient b2(QStringLiteral("device-b"));
    b2.open(listeningPort(server));
    QTRY_COMPARE(b2.framesWith(L::waitingForAuth).size(), 1);
    QCOMPARE(prompts.size(), 2);
    QCOMPARE(prompts.at(1).at(1).toString(), QStringLiteral("device-b"));
}

void TestPairing::knownDeviceAuthenticatesWhileANewOneWaits()
{
    Pairing::authorize(QStringLiteral("known"), QStringLiteral("tok"));
    ProtocolClient a(QStringLiteral("device-a"));
    a.open(listeningPort(server));
    QTRY_COMPARE(a.frames.size(), 1);
    // Only prompts come one at a time: a paired device gets in while A waits for the user.
    ProtocolClient known(QStringLiteral("known"));
    known.setToken(QStringLiteral("tok"));
    QVERIFY(Pairing::connectAuthenticated(known, listeningPort(server)));
    QCOMPARE(server->getPendingSocket() != nullptr, true);
    QVERIFY(!a.isClosed());
    // A second known device too, while the first has not proved its key yet.
    Pairing::authorize(QStringLiteral("other"), QStringLiteral("tok2"));
    ProtocolClient slow(QStringLiteral("other"));
    slow.setToken(QStringLiteral("tok2"));
    slow.setAutoProve(false);
    slow.open(listeningPort(server));
    QTRY_VERIFY(!slow.sessionToken().isEmpty());
    ProtocolClient fast(QStringLiteral("other"));
    fast.setToken(QStringLiteral("tok2"));
    QVERIFY(Pairing::connectAuthenticated(fast, listeningPort(server)));
    slow.prove();
    QTRY_VERIFY(slow.isAuthenticated());
    QCOMPARE(server->getClients().size(), 3);
}

void TestPairing::approvalAfterDisconnectStoresNothing()
{
    QSignalSpy counts(server, &Server::clientCountChanged);
    ProtocolClient phone(QStringLiteral("phone-1"));
    phone.open(listeningPort(server));
    QTRY_COMPARE(phone.frames.size(), 1);
    phone.close();
    QTRY_VERIFY(server->getConnections().isEmpty());
    QVERIFY(!server->getPendingSocket());
    server->setAuthorization(QStringLiteral("phone-1"), true);
    QCOMPARE(server->totalAuthorizations(), 0);
    QVERIFY(!server->isAuthorized(QStringLiteral("phone-1")));
    QCOMPARE(counts.size(), 0);
}

void TestPairing::deauthorizeAllClosesEverything()
{
    Pairing::authorize(QStringLiteral("known"), QStringLiteral("tok"));
    Pairing::authorize(QStringLiteral("other"), QStringLiteral("tok2"));
    ProtocolClient known(QStringLiteral("known"));
    QVERIFY(Pairing::connectAuthenticated(known, listeningPort(server)));
    ProtocolClient pending(QStringLiteral("new"));
    pending.open(listeningPort(server));
    QTRY_COMPARE(pending.frames.size(), 1);
    QCOMPARE(server->totalAuthorizations(), 2);

    QVERIFY(QMetaObject::invokeMethod(server, "deauthorizeAll"));
    QTRY_VERIFY(known.isClosed());
    QTRY_VERIFY(pending.isClosed());
    QCOMPARE(known.closeCode(), 1000);
    QCOMPARE(pending.closeCode(), 1000);
    QCOMPARE(server->totalAuthorizations(), 0);
    QTRY_VERIFY(server->getConnections().isEmpty());
    QVERIFY(server->getClients().isEmpty());
}

void TestPairing::answerGoesToWhicheverSocketIsPending()
{
    QSignalSpy counts(server, &Server::clientCountChanged);
    ProtocolClient first(QStringLiteral("first"));
    first.open(listeningPort(server));
    QTRY_COMPARE(first.frames.size(), 1);
    first.close();
    QTRY_VERIFY(server->getConnections().isEmpty());
    ProtocolClient second(QStringLiteral("second"));
    second.open(listeningPort(server));
    QTRY_COMPARE(second.frames.size(), 1);

    // The user answers the prompt that named the first device.
    server->setAuthorization(QStringLiteral("first"), true);
    QTRY_COMPARE(second.frames.size(), 3);
    QCOMPARE(second.frames.at(1).object().value(L::token).toString(),
        storedToken(QStringLiteral("first")));
    QVERIFY(!server->isAuthorized(QStringLiteral("second")));
    QCOMPARE(second.frames.at(2).object().value(L::value).toBool(), true);
    QCOMPARE(counts.size(), 1);
    QCOMPARE(server->getClients().size(), 1);
}

void TestPairing::proofFromAuthorizationFlowRejected()
{
    Pairing::authorize(QStringLiteral("someone-else"), QStringLiteral("tok"));
    ProtocolClient phone(QStringLiteral("phone-1"));
    phone.open(listeningPort(server));
    QTRY_COMPARE(phone.frames.size(), 1);
    phone.send(QJsonObject { { L::method, L::auth },
        { L::hash, QStringLiteral("da39a3ee5e6b4b0d3255bfef95601890afd80709") } });
    QTRY_VERIFY(phone.isClosed());
    QCOMPARE(phone.closeCode(), 1000);
    QVERIFY(!server->getPendingSocket());
    QCOMPARE(server->getClients().size(), 0);
    QVERIFY(server->isAuthorized(QStringLiteral("someone-else")));
}

void TestPairing::proofFromAuthenticatedClientIgnored()
{
    Pairing::authorize(QStringLiteral("known"), QStringLiteral("tok"));
    ProtocolClient known(QStringLiteral("known"));
    QVERIFY(Pairing::connectAuthenticated(known, listeningPort(server)));
    ProtocolClient stranger(QStringLiteral("stranger"));
    stranger.open(listeningPort(server));
    QTRY_COMPARE(stranger.frames.size(), 1);
    QVERIFY(server->getPendingSocket());

    // The known client's valid proof, sent again, must not let the pending stranger in.
    QTest::ignoreMessage(
        QtWarningMsg, QRegularExpression(QStringLiteral("^Unexpected authentication")));
    known.prove();
    QTRY_VERIFY(QTest::currentTestFailed() || server->getPendingSocket());
    server->sendMessage(server->getPendingSocket(), QStringLiteral("marker"), QJsonObject());
    QTRY_COMPARE(stranger.framesWith(QStringLiteral("marker")).size(), 1);
    QCOMPARE(stranger.framesWith(L::auth).size(), 0);
    QVERIFY(!stranger.isClosed());
    QCOMPARE(server->getClients().size(), 1);
    QVERIFY(!known.isClosed());
}

void TestPairing::emptyIdClosed()
{
    QSignalSpy prompts(server, &Server::needUserAuthorization);
    ProtocolClient phone { QString() };
    phone.open(listeningPort(server), QStringLiteral("i=&v=1"));
    QTRY_VERIFY(phone.isClosed());
    QCOMPARE(phone.closeCode(), 1000);
    QCOMPARE(prompts.size(), 0);
}

void TestPairing::deauthorizeKeepsOpenConnection()
{
    Pairing::authorize(QStringLiteral("known"), QStringLiteral("tok"));
    ProtocolClient known(QStringLiteral("known"));
    QVERIFY(Pairing::connectAuthenticated(known, listeningPort(server)));
    server->deauthorize(QStringLiteral("known"));
    QVERIFY(!server->isAuthorized(QStringLiteral("known")));
    server->broadcastMessage(L::screenLock);
    QTRY_COMPARE(known.framesWith(L::screenLock).size(), 1);
    QVERIFY(!known.isClosed());
}

void TestPairing::accessors()
{
    QVERIFY(!server->isAuthorized(QStringLiteral("x")));
    QCOMPARE(server->getAuthorizationToken(QStringLiteral("x")), QString());
    Pairing::authorize(QStringLiteral("x"), QStringLiteral("token-x"));
    Pairing::authorize(QStringLiteral("y"), QStringLiteral("token-y"));
    QVERIFY(server->isAuthorized(QStringLiteral("x")));
    QCOMPARE(server->getAuthorizationToken(QStringLiteral("y")), QStringLiteral("token-y"));
    QCOMPARE(server->totalAuthorizations(), 2);
    server->deauthorize(QStringLiteral("x"));
    QCOMPARE(server->totalAuthorizations(), 1);
}

void TestPairing::keyDerivationExample()
{
    // A session token starting with Q (81): 81 mod 32 = 17 characters are hashed once more.
    const QString session = QStringLiteral("Q") + QString(31, QLatin1Char('z'));
    const QByteArray expected = QCryptographicHash::hash(
        QByteArray("id") + "token" + session.toUtf8() + session.toUtf8().left(17),
        QCryptographicHash::Sha1);
    QCOMPARE(
        Server::computeAESKey(QStringLiteral("id"), QStringLiteral("token"), session), expected);
    QCOMPARE(
        Server::computeAESKey(QStringLiteral("id"), QStringLiteral("token"), session).size(), 20);
    // An empty token is allowed.
    QCOMPARE(Server::computeAESKey(QStringLiteral("id"), QString(), session),
        QCryptographicHash::hash(QByteArray("id") + session.toUtf8() + session.toUtf8().left(17),
            QCryptographicHash::Sha1));
    // A first byte of 0x80 or more reads as negative: nothing is repeated.
    const QString high = QStringLiteral("\u00e9abc");
    QCOMPARE(Server::computeAESKey(QStringLiteral("id"), QStringLiteral("t"), high),
        QCryptographicHash::hash(QByteArray("idt") + high.toUtf8(), QCryptographicHash::Sha1));
    // "a" is 97; 97 mod 2 = 1 byte repeated.
    QCOMPARE(Server::computeAESKey(QString(), QString(), QStringLiteral("ab")),
        QCryptographicHash::hash(QByteArray("aba"), QCryptographicHash::Sha1));
}

QTEST_GUILESS_MAIN(TestPairing)
#include "tst_pairing.moc"

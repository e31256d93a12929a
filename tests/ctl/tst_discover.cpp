#include "authenticationhandler.h"
#include "ctl.h"
#include "l.h"
#include "server.h"
#include "testenvironment.h"

#include <QJsonDocument>
#include <QProcess>
#include <QtTest>

// velmctl finding the computer through the rig's Avahi daemon, as it does on a network.
class TestDiscover : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void discoverListsTheServer();
    void pairingFindsTheOnlyServer();

private:
    QProcess *velmctl(const QStringList &arguments);
    QTemporaryDir config;
};

void TestDiscover::initTestCase()
{
    TestEnvironment::setUp();
    QVERIFY2(
        !qEnvironmentVariableIsEmpty("VELM_RIG_DESK_IP"), "run inside the rig (tests/rig/run)");
    QVERIFY(config.isValid());
}

QProcess *TestDiscover::velmctl(const QStringList &arguments)
{
    auto *process = new QProcess(this);
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("XDG_CONFIG_HOME"), config.path());
    process->setProcessEnvironment(environment);
    process->start(QStringLiteral(VELMCTL), arguments);
    return process;
}

void TestDiscover::discoverListsTheServer()
{
    Server server;
    new AuthenticationHandler(&server, L::auth);
    QTRY_VERIFY_WITH_TIMEOUT(server.isPublished(), 10000);
    // The daemon may still answer for the same name from an earlier test's program for a few
    // seconds (its records age out): asked again until this server's own port shows.
    QJsonObject found;
    for (int attempt = 0; attempt < 10 && found.isEmpty(); ++attempt) {
        QProcess *discover = velmctl({ QStringLiteral("--json"), QStringLiteral("discover") });
        QTRY_COMPARE_WITH_TIMEOUT(discover->state(), QProcess::NotRunning, 20000);
        QCOMPARE(discover->exitCode(), int(Exit::Done));
        for (const QByteArray &line : discover->readAllStandardOutput().split('\n')) {
            const QJsonObject service = QJsonDocument::fromJson(line).object();
            if (service.value(QStringLiteral("name")).toString() == server.zeroConfServiceName()
                && service.value(QStringLiteral("port")).toInt() == int(server.serverPort()))
                found = service;
        }
    }
    QVERIFY2(!found.isEmpty(), qPrintable(server.zeroConfServiceName()));
    QCOMPARE(found.value(QStringLiteral("address")).toString(),
        qEnvironmentVariable("VELM_RIG_DESK_IP"));
    QCOMPARE(found.value(QStringLiteral("txt")).toObject().value(QStringLiteral("os")).toString(),
        QStringLiteral("linux"));
}

void TestDiscover::pairingFindsTheOnlyServer()
{
    Server server;
    new AuthenticationHandler(&server, L::auth);
    QTRY_VERIFY_WITH_TIMEOUT(server.isPublished(), 10000);
    connect(&server, &Server::needUserAuthorization, this,
        [&server](QObject *, const QString &id) { server.setAuthorization(id, true); });
    // As above, an earlier program's record may still be answered for: that address refuses
    // the connection (exit 4), and pairing is tried again.
    int code = -1;
    QByteArray errors;
    for (int attempt = 0; attempt < 10 && code != int(Exit::Done); ++attempt) {
        QProcess *pair = velmctl({ QStringLiteral("pair") });
        QTRY_COMPARE_WITH_TIMEOUT(pair->state(), QProcess::NotRunning, 30000);
        code = pair->exitCode();
        errors += pair->readAllStandardError();
        QVERIFY2(code == int(Exit::Done) || code == int(Exit::NoServer), errors.constData());
    }
    QVERIFY2(code == int(Exit::Done), errors.constData());
    qputenv("XDG_CONFIG_HOME", config.path().toLocal8Bit());
    const CtlConfig stored = CtlConfig::load();
    QCOMPARE(stored.port, server.serverPort());
    QCOMPARE(stored.host, qEnvironmentVariable("VELM_RIG_DESK_IP"));
    QVERIFY(server.isAuthorized(stored.deviceId));
}

QTEST_MAIN(TestDiscover)
#include "tst_discover.moc"

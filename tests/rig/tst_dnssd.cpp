#include "authenticationhandler.h"
#include "l.h"
#include "protocolclient.h"
#include "qzeroconf.h"
#include "server.h"
#include "serverfixture.h"
#include "testenvironment.h"

#include <QGuiApplication>
#include <QJsonDocument>
#include <QProcess>
#include <QSignalSpy>
#include <QtTest>
#include <qpa/qwindowsysteminterface.h>

namespace {
QString env(const char *name) { return qEnvironmentVariable(name); }

// Browses from the phone's network namespace until the named service shows up.
QList<QJsonObject> browseFromPhone(const QString &name, int seconds = 10)
{
    QProcess browser;
    browser.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    browser.start(QStringLiteral("ip"),
        { QStringLiteral("netns"), QStringLiteral("exec"), env("VELM_RIG_PHONE_NS"),
            QStringLiteral("/usr/bin/python3"),
            env("VELM_RIG_SOURCE") + QStringLiteral("/browse.py"), env("VELM_RIG_PHONE_IP"),
            QString::number(seconds), name });
    browser.waitForFinished((seconds + 10) * 1000);
    QList<QJsonObject> services;
    const QList<QByteArray> lines = browser.readAllStandardOutput().split('\n');
    for (const QByteArray &line : lines) {
        const QJsonDocument document = QJsonDocument::fromJson(line);
        if (document.isObject())
            services.append(document.object());
    }
    return services;
}

QJsonObject find(const QList<QJsonObject> &services, const QString &name)
{
    for (const QJsonObject &service : services) {
        if (service.value(QStringLiteral("name")).toString() == name)
            return service;
    }
    return QJsonObject();
}
} // namespace

// The advertisement as a phone on the network sees it, through a real Avahi daemon.
class TestDnsSd : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void serverIsFoundByThePhone();
    void publishingTwiceFails();
    void nameCollisionGetsANumber();
    void stoppedServiceCanBePublishedAgain();
    void suspensionWithdrawsAdvertisement();
    void networkReturningRepublishes();
};

void TestDnsSd::initTestCase()
{
    TestEnvironment::setUp();
    QVERIFY2(!env("VELM_RIG_PHONE_NS").isEmpty(), "run inside the rig (tests/rig/run)");
    // Avahi must still be alive: a dead daemon would make every check below time out.
    QProcess state;
    state.start(QStringLiteral("dbus-send"),
        { QStringLiteral("--system"), QStringLiteral("--dest=org.freedesktop.Avahi"),
            QStringLiteral("--print-reply"), QStringLiteral("/"),
            QStringLiteral("org.freedesktop.Avahi.Server.GetState") });
    QVERIFY(state.waitForFinished(5000));
    QVERIFY2(state.readAllStandardOutput().contains("int32 2"), "Avahi is not running");
}

void TestDnsSd::serverIsFoundByThePhone()
{
    Server server;
    new AuthenticationHandler(&server, L::auth);
    QTRY_VERIFY(server.serverPort() != 0);
    QCOMPARE(server.zeroConfServiceName(), QStringLiteral("Velm Server@studio"));
    QVERIFY(server.isPublished());

    const QList<QJsonObject> services = browseFromPhone(QStringLiteral("Velm Server@studio"));
    const QJsonObject service = find(services, QStringLiteral("Velm Server@studio"));
    QVERIFY2(!service.isEmpty(), QJsonDocument(QJsonArray()).toJson().constData());
    QCOMPARE(service.value(QStringLiteral("type")).toString(), QStringLiteral("_velm._tcp.local."));
    QCOMPARE(service.value(QStringLiteral("port")).toInt(), int(server.serverPort()));
    const QJsonObject txt = service.value(QStringLiteral("txt")).toObject();
    QCOMPARE(txt.value(QStringLiteral("os")).toString(), QStringLiteral("linux"));
    QCOMPARE(txt.value(QStringLiteral("ip")).toString(), env("VELM_RIG_DESK_IP"));
    QCOMPARE(txt.size(), 2);
    QVERIFY(service.value(QStringLiteral("addresses")).toArray().contains(env("VELM_RIG_DESK_IP")));
}

void TestDnsSd::publishingTwiceFails()
{
    QZeroConf zeroConf;
    QSignalSpy published(&zeroConf, &QZeroConf::servicePublished);
    QSignalSpy errors(&zeroConf, &QZeroConf::error);
    zeroConf.addServiceTxtRecord(QStringLiteral("os"), QStringLiteral("linux"));
    zeroConf.startServicePublish("Velm Rig Twice", "_velm._tcp", "local", 50001);
    QVERIFY(published.wait(10000));
    QCOMPARE(errors.size(), 0);
    zeroConf.startServicePublish("Velm Rig Twice", "_velm._tcp", "local", 50002);
    QCOMPARE(errors.size(), 1);
    QCOMPARE(errors.at(0).at(0).value<QZeroConf::error_t>(), QZeroConf::serviceRegistrationFailed);
    QCOMPARE(int(QZeroConf::serviceRegistrationFailed), -1);
    // The first registration, with its port, stays.
    QVERIFY(zeroConf.publishExists());
    const QJsonObject service
        = find(browseFromPhone(QStringLiteral("Velm Rig Twice")), QStringLiteral("Velm Rig Twice"));
    QCOMPARE(service.value(QStringLiteral("port")).toInt(), 50001);
}

void TestDnsSd::nameCollisionGetsANumber()
{
    // Another program (say, the server of another user on this computer) holds the name.
    QZeroConf other;
    QSignalSpy otherPublished(&other, &QZeroConf::servicePublished);
    other.startServicePublish("Velm Server@studio", "_velm._tcp", "local", 50003);
    QVERIFY(otherPublished.wait(10000));

    Server server;
    QTRY_COMPARE_WITH_TIMEOUT(
        server.zeroConfServiceName(), QStringLiteral("Velm Server@studio 1"), 10000);
    const QString name = QStringLiteral("Velm Server@studio 1");
    const QJsonObject service = find(browseFromPhone(name), name);
    QCOMPARE(service.value(QStringLiteral("port")).toInt(), int(server.serverPort()));
    QVERIFY(other.publishExists());
}

void TestDnsSd::stoppedServiceCanBePublishedAgain()
{
    QZeroConf zeroConf;
    QSignalSpy published(&zeroConf, &QZeroConf::servicePublished);
    zeroConf.startServicePublish("Velm Rig Again", "_velm._tcp", "local", 50005);
    QVERIFY(published.wait(10000));
    zeroConf.stopServicePublish();
    QVERIFY(!zeroConf.publishExists());
    zeroConf.startServicePublish("Velm Rig Again", "_velm._tcp", "local", 50006);
    QVERIFY(zeroConf.publishExists());
    QVERIFY(published.wait(10000));
    const QJsonObject service
        = find(browseFromPhone(QStringLiteral("Velm Rig Again")), QStringLiteral("Velm Rig Again"));
    QCOMPARE(service.value(QStringLiteral("port")).toInt(), 50006);
}

void TestDnsSd::suspensionWithdrawsAdvertisement()
{
    Server server;
    QVERIFY(server.isPublished());
    QWindowSystemInterface::handleApplicationStateChanged(Qt::ApplicationSuspended);
    QTRY_VERIFY(!server.isPublished());
    QWindowSystemInterface::handleApplicationStateChanged(Qt::ApplicationInactive);
    QTRY_VERIFY(server.isPublished());
    const QJsonObject service
        = find(browseFromPhone(server.zeroConfServiceName()), server.zeroConfServiceName());
    QCOMPARE(service.value(QStringLiteral("port")).toInt(), int(server.serverPort()));
    // Resuming again without a suspension in between publishes nothing new.
    auto *zeroConf = server.findChild<QZeroConf *>();
    QVERIFY(zeroConf);
    QSignalSpy errors(zeroConf, &QZeroConf::error);
    QWindowSystemInterface::handleApplicationStateChanged(Qt::ApplicationActive);
    QCoreApplication::processEvents();
    QCOMPARE(errors.size(), 0);
}

void TestDnsSd::networkReturningRepublishes()
{
    const QString interface = env("VELM_RIG_DESK_IF");
    auto link = [&](const char *state) {
        return QProcess::execute(QStringLiteral("ip"),
            { QStringLiteral("link"), QStringLiteral("set"), interface,
                QString::fromLatin1(state) });
    };
    Server server;
    auto *zeroConf = server.findChild<QZeroConf *>();
    QVERIFY(zeroConf);
    QSignalSpy published(zeroConf, &QZeroConf::servicePublished);
    QVERIFY(published.wait(10000));
    published.clear();

    QCOMPARE(link("down"), 0);
    // The watch looks every 5 s; nothing is published while the network is away.
    QTest::qWait(6000);
    QCOMPARE(published.size(), 0);
    QCOMPARE(link("up"), 0);
    QTRY_VERIFY_WITH_TIMEOUT(published.size() >= 1, 12000);
    QVERIFY(server.isPublished());
    const QJsonObject service
        = find(browseFromPhone(server.zeroConfServiceName()), server.zeroConfServiceName());
    QCOMPARE(service.value(QStringLiteral("port")).toInt(), int(server.serverPort()));
}

QTEST_MAIN(TestDnsSd)
#include "tst_dnssd.moc"

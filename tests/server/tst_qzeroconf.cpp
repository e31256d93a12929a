#include "qzeroconf.h"
#include "server.h"
#include "testenvironment.h"

#include <QHostInfo>
#include <QNetworkInterface>
#include <QtTest>

// The parts of the advertisement that need no daemon: TXT data and the service name.
class TestQZeroConf : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { TestEnvironment::setUp(); }
    void txtWireFormat();
    void txtKeyOnlyAndClear();
    void serverTxtRecords();
    void serverServiceName();
};

void TestQZeroConf::txtWireFormat()
{
    QZeroConf zeroConf;
    zeroConf.addServiceTxtRecord(QStringLiteral("os"), QStringLiteral("mac"));
    zeroConf.addServiceTxtRecord(QStringLiteral("ip"), QStringLiteral("192.168.1.20"));
    QCOMPARE(zeroConf.serviceTxtRecords(), QByteArray("\x06os=mac\x0fip=192.168.1.20"));
}

void TestQZeroConf::txtKeyOnlyAndClear()
{
    QZeroConf zeroConf;
    zeroConf.addServiceTxtRecord(QStringLiteral("flag"));
    QCOMPARE(zeroConf.serviceTxtRecords(),
        QByteArray("\x04"
                   "flag"));
    zeroConf.clearServiceTxtRecords();
    QVERIFY(zeroConf.serviceTxtRecords().isEmpty());
    QVERIFY(!zeroConf.publishExists());
}

void TestQZeroConf::serverTxtRecords()
{
    Server server;
    QString ip;
    const QList<QHostAddress> addresses = QNetworkInterface::allAddresses();
    for (const QHostAddress &address : addresses) {
        if (address.protocol() == QAbstractSocket::IPv4Protocol && !address.isLoopback()) {
            ip = address.toString();
            break;
        }
    }
    QByteArray expected("\x08os=linux");
    if (!ip.isEmpty())
        expected += char(3 + ip.size()) + QByteArray("ip=") + ip.toLatin1();
    QCOMPARE(server.zeroConfTxtRecords(), expected);
}

void TestQZeroConf::serverServiceName()
{
    Server server;
    QCOMPARE(
        server.zeroConfServiceName(), QStringLiteral("Velm Server@") + QHostInfo::localHostName());
}

QTEST_GUILESS_MAIN(TestQZeroConf)
#include "tst_qzeroconf.moc"

#include "networkchanges.h"

#include <QProcess>
#include <QSignalSpy>
#include <QtTest>

// The kernel's word on network changes, in the rig's desktop namespace, on a pair of links of
// the test's own: the desktop's link stays as it is, since the DNS-SD daemon announces on it.
// What a test changes is undone in cleanup, pass or fail.
class TestNetworkChanges : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanup();
    void cleanupTestCase();
    void quietNetworkReportsNothing();
    void linkAddedAndRemovedIsReported();
    void linkDownAndUpIsReported();
    void addressAddedAndRemovedIsReported();
    void manyChangesAtOnceAreOneAnswer();

private:
    static int ip(const QStringList &arguments);
    // Runs `ip` with the arguments and tells whether the change it made was reported.
    static bool reported(NetworkChanges &changes, const QStringList &command);
    QString link;
};

namespace {
const QString extraAddress = QStringLiteral("198.51.100.77/32");
}

int TestNetworkChanges::ip(const QStringList &arguments)
{
    return QProcess::execute(QStringLiteral("ip"), arguments);
}

void TestNetworkChanges::initTestCase()
{
    QVERIFY2(
        !qEnvironmentVariable("VELM_RIG_DESK_NS").isEmpty(), "run inside the rig (tests/rig/run)");
    link = QStringLiteral("vtn%1").arg(QCoreApplication::applicationPid());
    QCOMPARE(ip({ QStringLiteral("link"), QStringLiteral("add"), link, QStringLiteral("type"),
                 QStringLiteral("veth"), QStringLiteral("peer"), QStringLiteral("name"),
                 link + QStringLiteral("p") }),
        0);
    QCOMPARE(ip({ QStringLiteral("link"), QStringLiteral("set"), link, QStringLiteral("up") }), 0);
}

void TestNetworkChanges::cleanupTestCase()
{
    QProcess::execute(QStringLiteral("sh"),
        { QStringLiteral("-c"), QStringLiteral("ip link del %1 2>/dev/null || true").arg(link) });
}

void TestNetworkChanges::cleanup()
{
    ip({ QStringLiteral("link"), QStringLiteral("set"), link, QStringLiteral("up") });
    QProcess::execute(QStringLiteral("sh"),
        { QStringLiteral("-c"),
            QStringLiteral("ip addr del %1 dev %2 2>/dev/null || true").arg(extraAddress, link) });
}

void TestNetworkChanges::quietNetworkReportsNothing()
{
    NetworkChanges changes;
    QVERIFY(changes.isWatching());
    // Nothing was known before the first question.
    QVERIFY(changes.takeChanged());
    QVERIFY(!changes.takeChanged());
    QCoreApplication::processEvents();
    QVERIFY(!changes.takeChanged());
}

bool TestNetworkChanges::reported(NetworkChanges &changes, const QStringList &command)
{
    QSignalSpy changed(&changes, &NetworkChanges::changed);
    if (ip(command) != 0)
        return false;
    // Reported, and taken once.
    return changed.wait(5000) && changes.takeChanged() && !changes.takeChanged();
}

void TestNetworkChanges::linkAddedAndRemovedIsReported()
{
    NetworkChanges changes;
    changes.takeChanged();
    const QString extra = link + QStringLiteral("x");
    QVERIFY(reported(changes,
        { QStringLiteral("link"), QStringLiteral("add"), extra, QStringLiteral("type"),
            QStringLiteral("veth"), QStringLiteral("peer"), QStringLiteral("name"),
            extra + QStringLiteral("p") }));
    QVERIFY(reported(changes, { QStringLiteral("link"), QStringLiteral("del"), extra }));
}

void TestNetworkChanges::linkDownAndUpIsReported()
{
    NetworkChanges changes;
    changes.takeChanged();
    QVERIFY(reported(
        changes, { QStringLiteral("link"), QStringLiteral("set"), link, QStringLiteral("down") }));
    QVERIFY(reported(
        changes, { QStringLiteral("link"), QStringLiteral("set"), link, QStringLiteral("up") }));
}

void TestNetworkChanges::addressAddedAndRemovedIsReported()
{
    NetworkChanges changes;
    changes.takeChanged();
    QVERIFY(reported(changes,
        { QStringLiteral("addr"), QStringLiteral("add"), extraAddress, QStringLiteral("dev"),
            link }));
    QVERIFY(reported(changes,
        { QStringLiteral("addr"), QStringLiteral("del"), extraAddress, QStringLiteral("dev"),
            link }));
}

void TestNetworkChanges::manyChangesAtOnceAreOneAnswer()
{
    NetworkChanges changes;
    changes.takeChanged();
    QSignalSpy changed(&changes, &NetworkChanges::changed);
    // Forty changes before the event loop looks (the commands do not run it): they are read
    // in one go, and once read, nothing more is reported.
    for (int i = 0; i < 20; ++i) {
        QCOMPARE(
            ip({ QStringLiteral("link"), QStringLiteral("set"), link, QStringLiteral("down") }), 0);
        QCOMPARE(
            ip({ QStringLiteral("link"), QStringLiteral("set"), link, QStringLiteral("up") }), 0);
    }
    QVERIFY(changed.wait(5000));
    QCoreApplication::processEvents();
    QCOMPARE(changed.size(), 1);
    QVERIFY(changes.takeChanged());
    QVERIFY(!changes.takeChanged());
}

QTEST_GUILESS_MAIN(TestNetworkChanges)
#include "tst_networkchanges.moc"

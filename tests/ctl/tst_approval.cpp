#include "ctl.h"
#include "runningprogram.h"
#include "testenvironment.h"

#include <QtTest>

namespace {
struct Outcome
{
    int code = -1;
    QString out;
    QString err;
};
} // namespace

// Approving a new device from a terminal: velmctl asks to pair with the running program, and
// `velm-server --pending`, `--approve` and `--deny` answer it through the single-instance
// channel, without a display.
class TestApproval : public QObject
{
    Q_OBJECT
private slots:
    void approvedFromATerminal();
    void deniedFromATerminal();
    void withoutARunningProgram();

private:
    Outcome runServer(const QStringList &arguments, const QProcessEnvironment &environment);
    QProcess *startPairing(RunningProgram &program, const QString &configHome);
    static bool finished(QProcess *process, int timeout = 30000)
    {
        return QTest::qWaitFor(
            [process] { return process->state() == QProcess::NotRunning; }, timeout);
    }
};

Outcome TestApproval::runServer(
    const QStringList &arguments, const QProcessEnvironment &environment)
{
    QProcess process;
    process.setProcessEnvironment(environment);
    process.start(QStringLiteral(VELM_SERVER_EXECUTABLE), arguments);
    Outcome outcome;
    if (!finished(&process, 20000))
        return outcome;
    outcome.code = process.exitCode();
    outcome.out = QString::fromUtf8(process.readAllStandardOutput());
    outcome.err = QString::fromUtf8(process.readAllStandardError());
    return outcome;
}

QProcess *TestApproval::startPairing(RunningProgram &program, const QString &configHome)
{
    const quint16 port = program.port();
    if (!port)
        return nullptr;
    auto *pairing = new QProcess(this);
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("XDG_CONFIG_HOME"), configHome);
    environment.remove(QStringLiteral("VELM_DEVICE_ID"));
    environment.remove(QStringLiteral("VELM_TOKEN"));
    pairing->setProcessEnvironment(environment);
    pairing->start(QStringLiteral(VELMCTL),
        { QStringLiteral("pair"), QStringLiteral("127.0.0.1:%1").arg(port) });
    return pairing;
}

void TestApproval::approvedFromATerminal()
{
    RunningProgram program(QStringLiteral(VELM_SERVER_EXECUTABLE));
    const QProcessEnvironment environment = program.process.processEnvironment();
    QTemporaryDir config;
    QProcess *pairing = startPairing(program, config.path());
    QVERIFY(pairing);

    Outcome pending;
    QTRY_VERIFY_WITH_TIMEOUT((pending = runServer({ QStringLiteral("--pending") }, environment))
                                 .out.contains(QStringLiteral("is waiting")),
        20000);
    QCOMPARE(pending.code, 0);
    QVERIFY2(pending.out.contains(QStringLiteral("velmctl-")), qPrintable(pending.out));
    QVERIFY(pending.out.contains(QStringLiteral("127.0.0.1")));

    const Outcome approved = runServer({ QStringLiteral("--approve") }, environment);
    QCOMPARE(approved.code, 0);
    QVERIFY2(
        approved.out.startsWith(QStringLiteral("Approved velmctl-")), qPrintable(approved.out));
    QVERIFY(finished(pairing));
    QCOMPARE(pairing->exitCode(), int(Exit::Done));
    QVERIFY(QFile::exists(config.filePath(QStringLiteral("velmctl/velmctl.conf"))));

    // Nobody waits any more.
    QVERIFY(runServer({ QStringLiteral("--pending") }, environment)
                .out.contains(QStringLiteral("No device is waiting")));
    const Outcome again = runServer({ QStringLiteral("--approve") }, environment);
    QCOMPARE(again.code, 1);
    QVERIFY(again.err.contains(QStringLiteral("no device is waiting")));

    // The paired device is let in.
    QProcess apps;
    QProcessEnvironment ctlEnvironment = QProcessEnvironment::systemEnvironment();
    ctlEnvironment.insert(QStringLiteral("XDG_CONFIG_HOME"), config.path());
    apps.setProcessEnvironment(ctlEnvironment);
    apps.start(QStringLiteral(VELMCTL), { QStringLiteral("unsupported") });
    QVERIFY(finished(&apps));
    QCOMPARE(apps.exitCode(), int(Exit::Done));
    // The program kept running on its own: the requests did not start a second one.
    QCOMPARE(program.process.state(), QProcess::Running);
}

void TestApproval::deniedFromATerminal()
{
    RunningProgram program(QStringLiteral(VELM_SERVER_EXECUTABLE));
    const QProcessEnvironment environment = program.process.processEnvironment();
    QTemporaryDir config;
    QProcess *pairing = startPairing(program, config.path());
    QVERIFY(pairing);
    QTRY_VERIFY_WITH_TIMEOUT(runServer({ QStringLiteral("--pending") }, environment)
                                 .out.contains(QStringLiteral("is waiting")),
        20000);
    const Outcome denied = runServer({ QStringLiteral("--deny") }, environment);
    QCOMPARE(denied.code, 0);
    QVERIFY(denied.out.startsWith(QStringLiteral("Denied velmctl-")));
    QVERIFY(finished(pairing));
    QCOMPARE(pairing->exitCode(), int(Exit::NotPaired));
    QVERIFY(!QFile::exists(config.filePath(QStringLiteral("velmctl/velmctl.conf"))));
}

void TestApproval::withoutARunningProgram()
{
    QTemporaryDir root;
    const QProcessEnvironment environment = TestEnvironment::isolatedProgram(root.path());
    const Outcome outcome = runServer({ QStringLiteral("--pending") }, environment);
    QCOMPARE(outcome.code, 4);
    QVERIFY(outcome.err.contains(QStringLiteral("not running")));
}

QTEST_GUILESS_MAIN(TestApproval)
#include "tst_approval.moc"

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
    void answeringNamesTheDevice();
    void aNewcomerIsNotApprovedInsteadOfWhoLeft();
    void commandLine();

private:
    static QString waitingId(const QString &pendingOutput);
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

QString TestApproval::waitingId(const QString &pendingOutput)
{
    const QRegularExpressionMatch match
        = QRegularExpression(QStringLiteral(" \\(([^()]+)\\) from ")).match(pendingOutput);
    return match.hasMatch() ? match.captured(1) : QString();
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

    const QString id = waitingId(pending.out);
    QVERIFY2(id.startsWith(QStringLiteral("velmctl-")), qPrintable(pending.out));
    const Outcome approved = runServer({ QStringLiteral("--approve"), id }, environment);
    QCOMPARE(approved.code, 0);
    QVERIFY2(
        approved.out.startsWith(QStringLiteral("Approved velmctl-")), qPrintable(approved.out));
    QVERIFY(finished(pairing));
    QCOMPARE(pairing->exitCode(), int(Exit::Done));
    // velmctl told its user the very command.
    QVERIFY(pairing->readAllStandardError().contains(
        QStringLiteral("velm-server --approve %1").arg(id).toUtf8()));
    QVERIFY(QFile::exists(config.filePath(QStringLiteral("velmctl/velmctl.conf"))));

    // Nobody waits any more.
    QVERIFY(runServer({ QStringLiteral("--pending") }, environment)
                .out.contains(QStringLiteral("No device is waiting")));
    const Outcome again = runServer({ QStringLiteral("--approve"), id }, environment);
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
    Outcome pending;
    QTRY_VERIFY_WITH_TIMEOUT((pending = runServer({ QStringLiteral("--pending") }, environment))
                                 .out.contains(QStringLiteral("is waiting")),
        20000);
    const Outcome denied
        = runServer({ QStringLiteral("--deny"), waitingId(pending.out) }, environment);
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

void TestApproval::answeringNamesTheDevice()
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
    const QString id = waitingId(pending.out);
    QVERIFY(!id.isEmpty());

    // Without an id: who is waiting and how to answer, and nothing changes.
    for (const QString &answer : { QStringLiteral("--approve"), QStringLiteral("--deny") }) {
        const Outcome bare = runServer({ answer }, environment);
        QCOMPARE(bare.code, 2);
        QVERIFY2(bare.err.contains(id + QStringLiteral(") from")), qPrintable(bare.err));
        QVERIFY2(bare.err.contains(QStringLiteral("velm-server %1 %2").arg(answer, id)),
            qPrintable(bare.err));
    }
    // Another id: refused, naming who is waiting.
    const Outcome other
        = runServer({ QStringLiteral("--approve"), QStringLiteral("someone-else") }, environment);
    QCOMPARE(other.code, 1);
    QVERIFY2(
        other.err.contains(QStringLiteral("someone-else is not waiting")), qPrintable(other.err));
    QVERIFY(other.err.contains(id + QStringLiteral(") from")));
    QCOMPARE(pairing->state(), QProcess::Running);
    QVERIFY(runServer({ QStringLiteral("--pending") }, environment).out.contains(id));

    const Outcome approved = runServer({ QStringLiteral("--approve"), id }, environment);
    QCOMPARE(approved.code, 0);
    QVERIFY(finished(pairing));
    QCOMPARE(pairing->exitCode(), int(Exit::Done));
}

void TestApproval::aNewcomerIsNotApprovedInsteadOfWhoLeft()
{
    RunningProgram program(QStringLiteral(VELM_SERVER_EXECUTABLE));
    const QProcessEnvironment environment = program.process.processEnvironment();
    QTemporaryDir firstConfig;
    QProcess *first = startPairing(program, firstConfig.path());
    QVERIFY(first);
    Outcome pending;
    QTRY_VERIFY_WITH_TIMEOUT((pending = runServer({ QStringLiteral("--pending") }, environment))
                                 .out.contains(QStringLiteral("is waiting")),
        20000);
    const QString shown = waitingId(pending.out);
    QVERIFY(!shown.isEmpty());

    // The device the user saw goes away, and another arrives before the answer.
    first->kill();
    QVERIFY(finished(first));
    QTRY_VERIFY_WITH_TIMEOUT(runServer({ QStringLiteral("--pending") }, environment)
                                 .out.contains(QStringLiteral("No device is waiting")),
        20000);
    QTemporaryDir secondConfig;
    QProcess *second = startPairing(program, secondConfig.path());
    QVERIFY(second);
    QString newcomer;
    QTRY_VERIFY_WITH_TIMEOUT(
        !(newcomer = waitingId(runServer({ QStringLiteral("--pending") }, environment).out))
             .isEmpty(),
        20000);
    QVERIFY(newcomer != shown);

    const Outcome approved = runServer({ QStringLiteral("--approve"), shown }, environment);
    QCOMPARE(approved.code, 1);
    QVERIFY2(
        approved.err.contains(shown + QStringLiteral(" is not waiting")), qPrintable(approved.err));
    QVERIFY2(approved.err.contains(newcomer), qPrintable(approved.err));
    QCOMPARE(second->state(), QProcess::Running);
    QVERIFY(!QFile::exists(secondConfig.filePath(QStringLiteral("velmctl/velmctl.conf"))));
    second->kill();
    QVERIFY(finished(second));
}

void TestApproval::commandLine()
{
    QTemporaryDir root;
    const QProcessEnvironment environment = TestEnvironment::isolatedProgram(root.path());
    const Outcome help = runServer({ QStringLiteral("--help") }, environment);
    QCOMPARE(help.code, 0);
    for (const char *listed : { "--pending", "--approve", "--deny", "--version", "VELM_WINDOWS" })
        QVERIFY2(help.out.contains(QLatin1String(listed)), qPrintable(help.out));
    // It printed and ended (runServer waits for that); it started no server.
    QVERIFY(!help.err.contains(QStringLiteral("listening"), Qt::CaseInsensitive));

    const Outcome version = runServer({ QStringLiteral("--version") }, environment);
    QCOMPARE(version.code, 0);
    QVERIFY2(version.out.startsWith(QStringLiteral("velm-server ")), qPrintable(version.out));

    const Outcome unknown = runServer({ QStringLiteral("--frobnicate") }, environment);
    QCOMPARE(unknown.code, 2);
    QVERIFY2(unknown.err.contains(QStringLiteral("frobnicate")), qPrintable(unknown.err));
    QCOMPARE(runServer({ QStringLiteral("stray") }, environment).code, 2);
    QCOMPARE(
        runServer({ QStringLiteral("--pending"), QStringLiteral("--deny") }, environment).code, 2);
}

QTEST_GUILESS_MAIN(TestApproval)
#include "tst_approval.moc"

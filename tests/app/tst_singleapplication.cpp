#include "singleapplication_p.h"

#include <QCryptographicHash>
#include <QDataStream>
#include <QElapsedTimer>
#include <QLocalSocket>
#include <QProcess>
#include <QSharedMemory>
#include <QTemporaryDir>
#include <QtTest>

#include <cerrno>
#include <cstring>
#include <sched.h>
#include <unistd.h>

namespace {
const QString probePath = QStringLiteral(VELM_SINGLE_PROBE);

// The probe, started and followed line by line.
struct Probe
{
    QProcess process;
    QByteArray output;

    explicit Probe(const QProcessEnvironment &environment, const QStringList &runAs = {})
    {
        process.setProcessEnvironment(environment);
        process.setProcessChannelMode(QProcess::SeparateChannels);
        if (runAs.isEmpty())
            process.start(probePath, QStringList());
        else
            process.start(runAs.first(), runAs.mid(1));
    }
    ~Probe()
    {
        if (process.state() != QProcess::NotRunning) {
            process.closeWriteChannel();
            if (!process.waitForFinished(3000))
                process.kill();
            process.waitForFinished(1000);
        }
    }
    QByteArray read()
    {
        output += process.readAllStandardOutput();
        return output;
    }
};
} // namespace

// One instance per user, between real processes.
class TestSingleApplication : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void blockLayout();
    void secondInstanceExitsAndIsAnnounced();
    void badInitMessageClosesWithoutSignal();
    void inconsistentBlockRecoveredAfterFiveSeconds();
    void differentUsersEachGetAPrimary();

private:
    QString blockName();
    QTemporaryDir runtime;
    QProcessEnvironment environment;
};

void TestSingleApplication::initTestCase()
{
    // System V keys come from the key file's inode number, cut to 16 bits: a lock or block left
    // on this machine by any other program that died can carry the key of a fresh key file, and
    // then refuses another user or blocks forever. Where it can (as root, as on the CI machine),
    // the test runs its processes in a new, empty IPC namespace, so that it is about our names
    // and nothing else.
    if (::geteuid() == 0)
        QVERIFY2(::unshare(CLONE_NEWIPC) == 0, ::strerror(errno));
    environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    // A private place for the local socket and the shared memory's key files.
    environment.insert(QStringLiteral("TMPDIR"), runtime.path());
    qputenv("TMPDIR", runtime.path().toUtf8());
}

QString TestSingleApplication::blockName()
{
    Probe probe(environment);
    if (!QTest::qWaitFor([&probe] { return probe.read().contains('\n'); }, 10000))
        return QString();
    const QByteArray line = probe.read().split('\n').first();
    return QString::fromLatin1(line.mid(qstrlen("primary ")));
}

void TestSingleApplication::blockLayout()
{
    InstancesInfo info;
    memset(&info, 0xab, sizeof info);
    info.primary = false;
    info.secondary = 0;
    info.primaryPid = -1;
    info.primaryUser[0] = '\0';
    const quint16 expected = qChecksum(reinterpret_cast<const char *>(&info), 144);
    QCOMPARE(SingleApplicationPrivate::blockChecksum(&info), expected);
    // The padding counts: changing byte 1 changes the checksum.
    reinterpret_cast<char *>(&info)[1] = 0;
    QVERIFY(SingleApplicationPrivate::blockChecksum(&info) != expected);
}

void TestSingleApplication::secondInstanceExitsAndIsAnnounced()
{
    Probe primary(environment);
    QTRY_VERIFY_WITH_TIMEOUT(primary.read().startsWith("primary "), 10000);
    {
        Probe second(environment);
        QVERIFY(second.process.waitForFinished(10000));
        QCOMPARE(second.process.exitStatus(), QProcess::NormalExit);
        QCOMPARE(second.process.exitCode(), 0);
        QVERIFY(!second.read().contains("primary"));
    }
    QTRY_VERIFY_WITH_TIMEOUT(primary.read().contains("started\n"), 5000);
    QCOMPARE(primary.read().count("started\n"), 1);
    QCOMPARE(primary.process.state(), QProcess::Running);
}

void TestSingleApplication::badInitMessageClosesWithoutSignal()
{
    Probe primary(environment);
    QTRY_VERIFY_WITH_TIMEOUT(primary.read().startsWith("primary "), 10000);
    const QString name = QString::fromLatin1(primary.read().split('\n').first().mid(8));
    QLocalSocket socket;
    socket.connectToServer(name);
    QVERIFY(socket.waitForConnected(5000));
    QByteArray body;
    QDataStream stream(&body, QIODevice::WriteOnly);
    stream.setVersion(17);
    stream << name.toLatin1() << quint8(1) << quint32(0);
    stream << quint16(qChecksum(body.constData(), uint(body.size())) ^ 0x5555);
    QByteArray header;
    QDataStream headerStream(&header, QIODevice::WriteOnly);
    headerStream.setVersion(17);
    headerStream << quint64(body.size());
    socket.write(header);
    QVERIFY(socket.waitForReadyRead(5000));
    QCOMPARE(socket.read(1), QByteArray("\n"));
    socket.write(body);
    QTRY_VERIFY_WITH_TIMEOUT(socket.state() == QLocalSocket::UnconnectedState, 5000);
    QVERIFY(!primary.read().contains("started"));
}

void TestSingleApplication::inconsistentBlockRecoveredAfterFiveSeconds()
{
    const QString name = blockName();
    QVERIFY(!name.isEmpty());
    // A block whose checksum does not match, as a dying primary could leave it.
    QSharedMemory block(name);
    QVERIFY2(block.create(sizeof(InstancesInfo)), qPrintable(block.errorString()));
    block.lock();
    auto *info = static_cast<InstancesInfo *>(block.data());
    info->primary = true;
    info->primaryPid = 1;
    info->checksum = quint16(SingleApplicationPrivate::blockChecksum(info) + 1);
    block.unlock();

    QElapsedTimer timer;
    timer.start();
    Probe probe(environment);
    QTRY_VERIFY_WITH_TIMEOUT(probe.read().startsWith("primary "), 15000);
    QVERIFY2(timer.elapsed() > 5000, qPrintable(QString::number(timer.elapsed())));
    QVERIFY(probe.process.readAllStandardError().contains("inconsistent state"));
}

void TestSingleApplication::differentUsersEachGetAPrimary()
{
    if (::geteuid() != 0)
        QSKIP("starting a process as another user needs root (the CI machine runs as root)");
    // The other user needs to reach the probe and the temporary folder, so it is not inside
    // this test's private one.
    QTemporaryDir shared(QStringLiteral("/tmp/velm-users-XXXXXX"));
    QVERIFY(QFile::setPermissions(shared.path(),
        QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner | QFile::ReadGroup
            | QFile::WriteGroup | QFile::ExeGroup | QFile::ReadOther | QFile::WriteOther
            | QFile::ExeOther));
    const QString probeCopy = shared.filePath(QStringLiteral("probe"));
    QVERIFY(QFile::copy(probePath, probeCopy));
    QProcessEnvironment sharedEnvironment = environment;
    sharedEnvironment.insert(QStringLiteral("TMPDIR"), shared.path());
    sharedEnvironment.insert(QStringLiteral("HOME"), shared.path());

    QProcess mine;
    mine.setProcessEnvironment(sharedEnvironment);
    mine.start(probeCopy, QStringList());
    QByteArray mineOutput;
    QTRY_VERIFY_WITH_TIMEOUT(
        (mineOutput += mine.readAllStandardOutput()).startsWith("primary "), 10000);

    // "nobody" is another user with another user name: it gets a primary of its own.
    Probe theirs(sharedEnvironment,
        { QStringLiteral("setpriv"), QStringLiteral("--reuid=65534"),
            QStringLiteral("--regid=65534"), QStringLiteral("--clear-groups"), probeCopy });
    QTRY_VERIFY2_WITH_TIMEOUT(theirs.read().startsWith("primary "),
        theirs.process.readAllStandardError().constData(), 10000);
    QVERIFY(theirs.read() != mineOutput.left(theirs.read().size()));
    QCOMPARE(theirs.process.state(), QProcess::Running);
    QCOMPARE(mine.state(), QProcess::Running);
    // And the first user's primary was not told about it.
    QVERIFY(!(mineOutput += mine.readAllStandardOutput()).contains("started"));
    mine.closeWriteChannel();
    QVERIFY(mine.waitForFinished(5000));
}

QTEST_GUILESS_MAIN(TestSingleApplication)
#include "tst_singleapplication.moc"

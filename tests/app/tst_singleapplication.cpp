#include "singleapplication_p.h"

#include <QCryptographicHash>
#include <QDataStream>
#include <QElapsedTimer>
#include <QLocalSocket>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
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
    QByteArray errors()
    {
        errorOutput += process.readAllStandardError();
        return errorOutput;
    }
    QByteArray errorOutput;
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
    void everythingLivesInThePrivateFolder();
    void runtimeFolderOthersCanReachIsNotUsed();
    void fallbackFolderOfAnotherUserIsRefused();
    void anotherUserCannotTakeTheChannel();
    void blockOfAnotherUserIsRefused();
    void failureToListenIsLogged();

private:
    QString blockName();
    static QProcessEnvironment withFolders(
        QProcessEnvironment environment, const QString &runtime, const QString &temporary);
    QTemporaryDir runtime;
    QTemporaryDir temporary;
    QProcessEnvironment environment;
};

void TestSingleApplication::initTestCase()
{
    QVERIFY(runtime.isValid() && temporary.isValid());
    // What a login session gives: a runtime folder of the user's alone.
    QVERIFY(QFile::setPermissions(
        runtime.path(), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
    environment
        = withFolders(QProcessEnvironment::systemEnvironment(), runtime.path(), temporary.path());
    environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
}

QProcessEnvironment TestSingleApplication::withFolders(
    QProcessEnvironment environment, const QString &runtime, const QString &temporary)
{
    if (runtime.isEmpty())
        environment.remove(QStringLiteral("XDG_RUNTIME_DIR"));
    else
        environment.insert(QStringLiteral("XDG_RUNTIME_DIR"), runtime);
    environment.insert(QStringLiteral("TMPDIR"), temporary);
    return environment;
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
    socket.connectToServer(runtime.filePath(name));
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
    // A block whose checksum does not match, as a dying primary could leave it, while another
    // instance is still attached (a block nobody holds is started afresh at once).
    InstanceBlock block;
    QVERIFY2(block.attach(runtime.filePath(name)), qPrintable(block.errorString()));
    InstancesInfo *info = block.data();
    info->primary = true;
    info->primaryPid = 1;
    info->checksum = quint16(SingleApplicationPrivate::blockChecksum(info) + 1);
    QVERIFY(block.unlock());

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
    // Neither has a runtime folder: each makes a private one in the shared temporary folder.
    QProcessEnvironment sharedEnvironment = withFolders(environment, QString(), shared.path());
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

void TestSingleApplication::everythingLivesInThePrivateFolder()
{
    const QString name = blockName();
    QVERIFY(!name.isEmpty());
    Probe primary(environment);
    QTRY_VERIFY_WITH_TIMEOUT(primary.read().startsWith("primary "), 10000);
    const QString socketPath = runtime.filePath(name);
    struct stat info;
    QVERIFY(::lstat(QFile::encodeName(socketPath).constData(), &info) == 0);
    QVERIFY(S_ISSOCK(info.st_mode));
    for (const QString &suffix : { QStringLiteral(".block"), QStringLiteral(".lock") }) {
        QVERIFY(::lstat(QFile::encodeName(socketPath + suffix).constData(), &info) == 0);
        QCOMPARE(info.st_mode & 0777, mode_t(0600));
        QCOMPARE(info.st_uid, ::geteuid());
    }
    // Nothing in the temporary folder, where any user could have made it first.
    QCOMPARE(
        QDir(temporary.path()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot), QStringList());
}

void TestSingleApplication::runtimeFolderOthersCanReachIsNotUsed()
{
    QTemporaryDir open;
    QTemporaryDir shared;
    QVERIFY(QFile::setPermissions(open.path(),
        QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner | QFile::ReadOther
            | QFile::ExeOther));
    const QProcessEnvironment openEnvironment
        = withFolders(environment, open.path(), shared.path());
    Probe primary(openEnvironment);
    QTRY_VERIFY_WITH_TIMEOUT(primary.read().startsWith("primary "), 10000);
    QTRY_VERIFY_WITH_TIMEOUT(primary.errors().contains("Not using XDG_RUNTIME_DIR"), 5000);
    QCOMPARE(QDir(open.path()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot), QStringList());
    const QString fallback = shared.filePath(QStringLiteral("velm-server-%1").arg(::geteuid()));
    struct stat info;
    QVERIFY(::lstat(QFile::encodeName(fallback).constData(), &info) == 0);
    QCOMPARE(info.st_mode & 0777, mode_t(0700));
    const QString name = QString::fromLatin1(primary.read().split('\n').first().mid(8));
    QVERIFY(QFile::exists(fallback + QLatin1Char('/') + name));
    // And a second start finds it there.
    Probe second(openEnvironment);
    QVERIFY(second.process.waitForFinished(10000));
    QCOMPARE(second.process.exitCode(), 0);
    QTRY_VERIFY_WITH_TIMEOUT(primary.read().contains("started\n"), 5000);
}

void TestSingleApplication::fallbackFolderOfAnotherUserIsRefused()
{
    if (::geteuid() != 0)
        QSKIP("making a folder of another user needs root (the CI machine runs as root)");
    QTemporaryDir shared;
    const QString taken = shared.filePath(QStringLiteral("velm-server-%1").arg(::geteuid()));
    QVERIFY(QDir().mkdir(taken));
    QVERIFY(::chmod(QFile::encodeName(taken).constData(), 0777) == 0);
    QVERIFY(::chown(QFile::encodeName(taken).constData(), 65534, 65534) == 0);
    Probe probe(withFolders(environment, QString(), shared.path()));
    QVERIFY(probe.process.waitForFinished(10000));
    QCOMPARE(probe.process.exitCode(), 1);
    QVERIFY2(probe.errors().contains("belongs to another user"), probe.errors().constData());
    QVERIFY(!probe.read().contains("primary"));
    QCOMPARE(QDir(taken).entryList(QDir::AllEntries | QDir::NoDotAndDotDot), QStringList());
}

void TestSingleApplication::anotherUserCannotTakeTheChannel()
{
    if (::geteuid() != 0)
        QSKIP("starting a process as another user needs root (the CI machine runs as root)");
    QTemporaryDir shared(QStringLiteral("/tmp/velm-users-XXXXXX"));
    QVERIFY(::chmod(QFile::encodeName(shared.path()).constData(), 01777) == 0);
    const QString probeCopy = shared.filePath(QStringLiteral("probe"));
    QVERIFY(QFile::copy(probePath, probeCopy));
    // The other user starts first, pointed at our runtime folder and our temporary folder:
    // it cannot use the first, and in the second it gets a folder of its own.
    QProcessEnvironment theirEnvironment = withFolders(environment, runtime.path(), shared.path());
    theirEnvironment.insert(QStringLiteral("HOME"), shared.path());
    Probe theirs(theirEnvironment,
        { QStringLiteral("setpriv"), QStringLiteral("--reuid=65534"),
            QStringLiteral("--regid=65534"), QStringLiteral("--clear-groups"), probeCopy });
    QTRY_VERIFY2_WITH_TIMEOUT(theirs.read().startsWith("primary "),
        theirs.process.readAllStandardError().constData(), 10000);

    // Ours becomes the primary rather than handing itself over, and its second start is
    // announced to it, not to them.
    QProcessEnvironment ourEnvironment = theirEnvironment;
    Probe mine(ourEnvironment, { probeCopy });
    QTRY_VERIFY_WITH_TIMEOUT(mine.read().startsWith("primary "), 10000);
    Probe second(ourEnvironment, { probeCopy });
    QVERIFY(second.process.waitForFinished(10000));
    QCOMPARE(second.process.exitCode(), 0);
    QTRY_VERIFY_WITH_TIMEOUT(mine.read().contains("started\n"), 5000);
    QVERIFY(!theirs.read().contains("started"));
    const QString name = QString::fromLatin1(mine.read().split('\n').first().mid(8));
    QVERIFY(QFile::exists(runtime.filePath(name)));
}

void TestSingleApplication::blockOfAnotherUserIsRefused()
{
    if (::geteuid() != 0)
        QSKIP("making a file of another user needs root (the CI machine runs as root)");
    const QString name = blockName();
    QVERIFY(!name.isEmpty());
    const QByteArray blockPath
        = QFile::encodeName(runtime.filePath(name + QStringLiteral(".block")));
    QVERIFY(::chown(blockPath.constData(), 65534, 65534) == 0);
    Probe probe(environment);
    QVERIFY(probe.process.waitForFinished(10000));
    QCOMPARE(probe.process.exitCode(), 1);
    QVERIFY2(probe.errors().contains("is not a file of this user's"), probe.errors().constData());
    QVERIFY(::unlink(blockPath.constData()) == 0);
}

void TestSingleApplication::failureToListenIsLogged()
{
    const QString name = blockName();
    QVERIFY(!name.isEmpty());
    // Something that cannot be removed where the socket goes.
    QVERIFY(QDir().mkpath(runtime.filePath(name + QStringLiteral("/in-the-way"))));
    Probe primary(environment);
    QTRY_VERIFY_WITH_TIMEOUT(primary.read().startsWith("primary "), 10000);
    QTRY_VERIFY_WITH_TIMEOUT(primary.errors().contains("Unable to listen on"), 5000);
    QCOMPARE(primary.process.state(), QProcess::Running);
    QVERIFY(QDir(runtime.filePath(name)).removeRecursively());
}

QTEST_GUILESS_MAIN(TestSingleApplication)
#include "tst_singleapplication.moc"

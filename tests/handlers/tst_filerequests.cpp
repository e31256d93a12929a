#include "l.h"
#include "protocolclient.h"
#include "runningprogram.h"
#include "testenvironment.h"
#include "testfiles.h"

#include <QElapsedTimer>
#include <QImage>
#include <QJsonArray>
#include <QMutex>
#include <QProcess>
#include <QTemporaryDir>
#include <QThread>
#include <QTimer>
#include <QtTest>

#include <algorithm>
#include <unistd.h>

namespace {

QJsonObject req(const QString &code, const QJsonObject &rest)
{
    QJsonObject message = rest;
    message.insert(L::method, code);
    return message;
}

// A client on a thread of its own that asks "un" again and again and keeps the round-trip
// times, so that nothing the test does on its own thread delays them.
class Pinger : public QObject
{
    Q_OBJECT
public:
    explicit Pinger(quint16 port)
        : m_port(port)
    { }

    // Microseconds, sorted.
    QVector<qint64> samples() const
    {
        QMutexLocker lock(&m_mutex);
        QVector<qint64> sorted = m_samples;
        std::sort(sorted.begin(), sorted.end());
        return sorted;
    }

public slots:
    void start()
    {
        m_client = new ProtocolClient(QStringLiteral("tablet"), this);
        m_client->setToken(QStringLiteral("tablet-token"));
        m_client->setKeepFrames(false);
        connect(m_client, &ProtocolClient::authenticated, this, &Pinger::ping);
        connect(m_client, &ProtocolClient::frameReceived, this, [this](const Frame &frame) {
            if (frame.method() != L::unsupported)
                return;
            {
                QMutexLocker lock(&m_mutex);
                m_samples << m_clock.nsecsElapsed() / 1000;
            }
            QTimer::singleShot(5, this, &Pinger::ping);
        });
        m_client->open(m_port);
    }

private:
    void ping()
    {
        m_clock.start();
        m_client->send(QJsonObject { { L::method, L::unsupported } });
    }

    quint16 m_port;
    ProtocolClient *m_client = nullptr;
    QElapsedTimer m_clock;
    mutable QMutex m_mutex;
    QVector<qint64> m_samples;
};

// A file system that never answers, mounted for as long as it lives; unmounted however the
// test ends, before the program (whose stuck threads wait on it) is stopped.
class HungMount
{
public:
    explicit HungMount(const QString &mountPoint)
        : m_mountPoint(mountPoint)
    {
        m_process.start(QStringLiteral(VELM_HANGFS), { mountPoint });
    }
    ~HungMount()
    {
        m_process.terminate();
        if (!m_process.waitForFinished(5000))
            m_process.kill();
        m_process.waitForFinished(3000);
        // A daemon that could not unmount leaves the mount point dead; take it away lazily.
        if (QProcess::execute(QStringLiteral("mountpoint"), { QStringLiteral("-q"), m_mountPoint })
            == 0)
            QProcess::execute(QStringLiteral("umount"), { QStringLiteral("-l"), m_mountPoint });
    }
    bool waitUntilMounted()
    {
        return QTest::qWaitFor(
            [this] { return m_process.readAllStandardOutput().contains("mounted"); }, 10000);
    }
    QByteArray errors() { return m_process.readAllStandardError(); }

private:
    QString m_mountPoint;
    QProcess m_process;
};

QString microseconds(const QVector<qint64> &sorted, double share)
{
    if (sorted.isEmpty())
        return QStringLiteral("-");
    return QString::number(sorted.at(int(share * (sorted.size() - 1))) / 1000.0, 'f', 2);
}

} // namespace

// The program serving file requests that are hard on whoever reads them (special files,
// picture bombs, a huge folder, a mount that never answers) while another client's requests
// keep their pace.
class TestFileRequests : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void hardFilesLeaveOtherClientsServed();

private:
    QTemporaryDir disk;
};

void TestFileRequests::initTestCase()
{
    TestEnvironment::setUp();
    QVERIFY(disk.isValid());
    QVERIFY(TestFiles::makeFifo(disk.filePath(QStringLiteral("pipe.png"))));
    QVERIFY(TestFiles::bindSocket(disk.filePath(QStringLiteral("socket.png"))) >= 0);
    QVERIFY(QFile::link(QStringLiteral("/dev/zero"), disk.filePath(QStringLiteral("zero.png"))));
    QVERIFY(TestFiles::writePngDeclaring(disk.filePath(QStringLiteral("bomb.png")), 20000, 20000));
    QVERIFY(TestFiles::writeTruncatedPng(disk.filePath(QStringLiteral("truncated.png")), 800, 600));
    QVERIFY(TestFiles::writeJpeg(disk.filePath(QStringLiteral("photo.jpg")), 8660, 5774));
    QVERIFY(QDir(disk.path()).mkdir(QStringLiteral("many")));
    QVERIFY(TestFiles::fillFolder(disk.filePath(QStringLiteral("many")), 100000));
    QVERIFY(QDir(disk.path()).mkdir(QStringLiteral("mnt")));
}

void TestFileRequests::hardFilesLeaveOtherClientsServed()
{
    // The sanitizer build of the suite records a full stack at every allocation, which alone
    // makes a round trip take milliseconds. The program keeps every check of the sanitizers
    // with their quick stacks, so that the times are the program's own.
    const QByteArray sanitizer = qgetenv("ASAN_OPTIONS");
    const TestEnvironment::Variable quickStacks("ASAN_OPTIONS",
        sanitizer.isEmpty() ? QByteArray() : sanitizer + ":fast_unwind_on_malloc=1");
    RunningProgram program(QStringLiteral(VELM_SERVER_EXECUTABLE), QStringList(),
        { { QStringLiteral("phone"), QStringLiteral("phone-token") },
            { QStringLiteral("tablet"), QStringLiteral("tablet-token") },
            { QStringLiteral("laptop"), QStringLiteral("laptop-token") } });
    const quint16 port = program.port();
    QVERIFY2(port, program.output.constData());

    QThread pingerThread;
    auto *pinger = new Pinger(port);
    pinger->moveToThread(&pingerThread);
    connect(&pingerThread, &QThread::finished, pinger, &QObject::deleteLater);
    pingerThread.start();
    QMetaObject::invokeMethod(pinger, &Pinger::start);
    auto stopPinger = qScopeGuard([&pingerThread] {
        pingerThread.quit();
        pingerThread.wait();
    });
    QTRY_VERIFY_WITH_TIMEOUT(pinger->samples().size() >= 10, 10000);

    ProtocolClient phone(QStringLiteral("phone"));
    phone.setToken(QStringLiteral("phone-token"));
    phone.open(port);
    QTRY_VERIFY(phone.isAuthenticated());

    // Previews and icons of what is hard to read, and the listing of a huge folder.
    const QStringList hard { QStringLiteral("pipe.png"), QStringLiteral("socket.png"),
        QStringLiteral("zero.png"), QStringLiteral("bomb.png"), QStringLiteral("truncated.png"),
        QStringLiteral("photo.jpg") };
    for (const QString &name : hard) {
        const QString path = disk.filePath(name);
        phone.send(
            req(L::filePreview, { { L::path, path }, { L::width, 128 }, { L::height, 128 } }));
        phone.send(req(L::fileIcon, { { L::path, path }, { L::size, 32 } }));
    }
    phone.send(req(L::directoryListing, { { L::path, disk.filePath(QStringLiteral("many")) } }));
    QTRY_COMPARE_WITH_TIMEOUT(phone.framesWith(L::filePreview).size(), hard.size(), 30000);
    QTRY_COMPARE_WITH_TIMEOUT(phone.framesWith(L::fileIcon).size(), hard.size(), 30000);
    QTRY_COMPARE_WITH_TIMEOUT(phone.framesWith(L::directoryListing).size(), 1, 30000);
    for (const Frame &preview : phone.framesWith(L::filePreview)) {
        const QString name
            = preview.object().value(L::path).toString().section(QLatin1Char('/'), -1);
        QCOMPARE(preview.object().value(L::width).toInt(), 128);
        QCOMPARE(preview.parts.size(), 1);
        const QImage image = QImage::fromData(preview.parts.at(0).second, "PNG");
        if (name == QLatin1String("photo.jpg"))
            QCOMPARE(image.size(), QSize(128, 85));
        else if (name == QLatin1String("truncated.png"))
            QVERIFY(image.isNull() || (image.width() <= 128 && image.height() <= 128));
        else
            QVERIFY2(preview.parts.at(0).second.isEmpty(), qPrintable(name));
    }
    for (const Frame &icon : phone.framesWith(L::fileIcon)) {
        QCOMPARE(icon.object().value(L::size).toInt(), 32);
        QVERIFY(!QImage::fromData(icon.parts.at(0).second, "PNG").isNull());
    }
    QCOMPARE(phone.framesWith(L::directoryListing).at(0).object().value(L::files).toArray().size(),
        100000);

    // A mount that never answers: the listing, an icon and a preview inside it.
    const QString mountPoint = disk.filePath(QStringLiteral("mnt"));
    HungMount mount(mountPoint);
    QVERIFY2(mount.waitUntilMounted(), mount.errors().constData());
    ProtocolClient laptop(QStringLiteral("laptop"));
    laptop.setToken(QStringLiteral("laptop-token"));
    laptop.open(port);
    QTRY_VERIFY(laptop.isAuthenticated());
    const QString inside = mountPoint + QStringLiteral("/photo.png");
    laptop.send(req(L::directoryListing, { { L::path, mountPoint } }));
    laptop.send(req(L::fileIcon, { { L::path, inside }, { L::size, 32 } }));
    laptop.send(req(L::filePreview, { { L::path, inside }, { L::width, 64 }, { L::height, 64 } }));
    // Everybody else is served meanwhile, file requests included.
    const int previews = phone.framesWith(L::filePreview).size();
    phone.send(req(L::filePreview,
        { { L::path, disk.filePath(QStringLiteral("photo.jpg")) }, { L::width, 64 },
            { L::height, 64 } }));
    phone.send(req(L::directoryListing, { { L::path, disk.path() } }));
    QTRY_COMPARE_WITH_TIMEOUT(phone.framesWith(L::filePreview).size(), previews + 1, 10000);
    QTRY_COMPARE_WITH_TIMEOUT(phone.framesWith(L::directoryListing).size(), 2, 10000);
    QCOMPARE(laptop.framesWith(L::directoryListing).size(), 0);
    // Past the time limit the hung requests get the answers for what cannot be read.
    QTRY_COMPARE_WITH_TIMEOUT(laptop.framesWith(L::directoryListing).size(), 1, 40000);
    QCOMPARE(laptop.framesWith(L::directoryListing).at(0).object().value(L::files).toArray(),
        QJsonArray());
    QTRY_COMPARE_WITH_TIMEOUT(laptop.framesWith(L::filePreview).size(), 1, 40000);
    QVERIFY(laptop.framesWith(L::filePreview).at(0).parts.at(0).second.isEmpty());
    QVERIFY(program.waitForLog("Gave up on dl " + QFile::encodeName(mountPoint)));
    QCOMPARE(laptop.framesWith(L::fileIcon).size(), 0);

    // Read before the thread ends, which deletes the pinger.
    const QVector<qint64> samples = pinger->samples();
    const QString figures = QStringLiteral("%1 round trips: median %2 ms, p99 %3 ms, max %4 ms")
                                .arg(samples.size())
                                .arg(microseconds(samples, 0.5), microseconds(samples, 0.99),
                                    microseconds(samples, 1.0));
    qInfo().noquote() << figures;
    QVERIFY2(samples.size() >= 100, qPrintable(figures));
    QVERIFY2(samples.at(int(0.99 * (samples.size() - 1))) < 20000, qPrintable(figures));
}

QTEST_MAIN(TestFileRequests)
#include "tst_filerequests.moc"

#include "logcapture.h"
#include "pulseaudio.h"
#include "soundserver.h"
#include "testenvironment.h"

#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

#include <memory>
#include <vector>

namespace {
// Whether the sound server's client library is mapped into this process.
bool pulseMapped()
{
    QFile maps(QStringLiteral("/proc/self/maps"));
    return maps.open(QIODevice::ReadOnly) && maps.readAll().contains("/libpulse.so");
}

const char noServer[] = "No sound server is running: volume and mute wait for one to start";
} // namespace

// The sound server's library is loaded only once a server may be there. The test functions
// run in order: nothing loads it until the last one starts a real server.
class TestPulseLibrary : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void cleanup();
    void notLoadedWithoutAServer();
    void serverMayBeThere_data();
    void serverMayBeThere();
    void loadedWhenAServerStarts();

private:
    // Where a server could be named or found, all of it within `root`, and none there.
    void nothingAnywhere();
    void set(const QByteArray &name, const QByteArray &value);
    QString path(const char *name) const { return root->filePath(QString::fromUtf8(name)); }

    std::unique_ptr<QTemporaryDir> root;
    std::vector<std::unique_ptr<TestEnvironment::Variable>> variables;
};

void TestPulseLibrary::set(const QByteArray &name, const QByteArray &value)
{
    variables.push_back(std::make_unique<TestEnvironment::Variable>(name, value));
}

void TestPulseLibrary::init()
{
    root = std::make_unique<QTemporaryDir>();
    QVERIFY(root->isValid());
    nothingAnywhere();
}

void TestPulseLibrary::cleanup()
{
    // Restored newest first, so that a variable set twice ends as it was before the test.
    while (!variables.empty())
        variables.pop_back();
    root.reset();
}

void TestPulseLibrary::nothingAnywhere()
{
    set("PULSE_SERVER", QByteArray());
    set("DISPLAY", QByteArray());
    set("DBUS_SESSION_BUS_ADDRESS", "unix:path=" + QFile::encodeName(path("no-bus")));
    set("XDG_RUNTIME_DIR", QFile::encodeName(root->path()));
    set("PULSE_RUNTIME_PATH", QFile::encodeName(path("pulse")));
    // The machine's own configuration is not the test's to read.
    set("PULSE_CLIENTCONFIG", QFile::encodeName(path("client.conf")));
}

void TestPulseLibrary::notLoadedWithoutAServer()
{
    QVERIFY2(!pulseMapped(), "loaded before the test began");
    LogCapture log;
    PulseAudio audio;
    QCOMPARE(log.count(QString::fromLatin1(noServer)), 1);
    QVERIFY(!audio.isAvailable());
    QCOMPARE(audio.volume(), 0);
    QVERIFY(!audio.muted());
    // Asked to change something, it has nothing to change it with, and says nothing more.
    audio.setVolume(40);
    audio.setMuted(true);
    QVERIFY(!audio.isAvailable());
    QVERIFY(!pulseMapped());
    QCOMPARE(log.count(QStringLiteral("Cannot")), 0);
}

void TestPulseLibrary::serverMayBeThere_data()
{
    QTest::addColumn<QByteArray>("variable");
    QTest::addColumn<QByteArray>("value");
    // A file of this name is made in the test's folder first, when given.
    QTest::addColumn<QString>("file");
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<bool>("expected");

    QTest::newRow("nothing") << QByteArray() << QByteArray() << QString() << QByteArray() << false;
    QTest::newRow("server named") << QByteArrayLiteral("PULSE_SERVER")
                                  << QByteArrayLiteral("tcp:192.0.2.1") << QString() << QByteArray()
                                  << true;
    QTest::newRow("X display") << QByteArrayLiteral("DISPLAY") << QByteArrayLiteral(":9")
                               << QString() << QByteArray() << true;
    QTest::newRow("bus socket there")
        << QByteArrayLiteral("DBUS_SESSION_BUS_ADDRESS") << QByteArrayLiteral("unix:path=@bus")
        << QStringLiteral("bus") << QByteArray() << true;
    QTest::newRow("bus socket with a guid")
        << QByteArrayLiteral("DBUS_SESSION_BUS_ADDRESS")
        << QByteArrayLiteral("unix:path=@bus,guid=0123456789abcdef") << QStringLiteral("bus")
        << QByteArray() << true;
    QTest::newRow("second bus address there") << QByteArrayLiteral("DBUS_SESSION_BUS_ADDRESS")
                                              << QByteArrayLiteral("unix:path=@gone;unix:path=@bus")
                                              << QStringLiteral("bus") << QByteArray() << true;
    QTest::newRow("abstract bus") << QByteArrayLiteral("DBUS_SESSION_BUS_ADDRESS")
                                  << QByteArrayLiteral("unix:abstract=/tmp/dbus-x") << QString()
                                  << QByteArray() << true;
    QTest::newRow("no bus address, runtime bus there")
        << QByteArrayLiteral("DBUS_SESSION_BUS_ADDRESS") << QByteArray() << QStringLiteral("bus")
        << QByteArray() << true;
    QTest::newRow("no bus address, no runtime bus")
        << QByteArrayLiteral("DBUS_SESSION_BUS_ADDRESS") << QByteArray() << QString()
        << QByteArray() << false;
    QTest::newRow("socket there") << QByteArray() << QByteArray() << QStringLiteral("pulse/native")
                                  << QByteArray() << true;
    QTest::newRow("only the folder")
        << QByteArray() << QByteArray() << QStringLiteral("pulse/cookie") << QByteArray() << false;
    QTest::newRow("configuration names a server")
        << QByteArray() << QByteArray() << QStringLiteral("client.conf")
        << QByteArrayLiteral("; a comment\n  default-server = tcp:192.0.2.1\n") << true;
    QTest::newRow("configuration without a server")
        << QByteArray() << QByteArray() << QStringLiteral("client.conf")
        << QByteArrayLiteral("; default-server = tcp:192.0.2.1\nautospawn = no\n") << false;
}

void TestPulseLibrary::serverMayBeThere()
{
    QFETCH(QByteArray, variable);
    QFETCH(QByteArray, value);
    QFETCH(QString, file);
    QFETCH(QByteArray, content);
    QFETCH(bool, expected);
    if (!file.isEmpty()) {
        QVERIFY(QDir(root->path()).mkpath(QFileInfo(root->filePath(file)).path()));
        QFile made(root->filePath(file));
        QVERIFY(made.open(QIODevice::WriteOnly));
        made.write(content);
    }
    if (!variable.isEmpty())
        set(variable, value.replace('@', QFile::encodeName(root->path() + QLatin1Char('/'))));
    QCOMPARE(PulseAudio::serverMayBeThere(), expected);
    QVERIFY(!pulseMapped());
}

void TestPulseLibrary::loadedWhenAServerStarts()
{
    LogCapture log;
    PulseAudio audio;
    QCOMPARE(log.count(QString::fromLatin1(noServer)), 1);
    QVERIFY(!pulseMapped());

    SoundServer daemon;
    QVERIFY(daemon.start(root->path(), path("pulse"), QStringLiteral("velm_loaded")));
    QTRY_VERIFY_WITH_TIMEOUT(audio.isAvailable(), 10000);
    QVERIFY(pulseMapped());
    // The null sink starts at the normal volume, unmuted.
    QCOMPARE(audio.volume(), 100);
    QVERIFY(!audio.muted());
    QVERIFY(daemon.stop());
    QTRY_VERIFY_WITH_TIMEOUT(!audio.isAvailable(), 10000);
}

QTEST_GUILESS_MAIN(TestPulseLibrary)
#include "tst_pulselibrary.moc"

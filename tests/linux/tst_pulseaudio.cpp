#include "core.h"
#include "l.h"
#include "linuxplatform.h"
#include "logcapture.h"
#include "protocolclient.h"
#include "pulseaudio.h"
#include "server.h"
#include "serverfixture.h"
#include "testenvironment.h"

#include <QApplication>
#include <QFile>
#include <QJsonArray>
#include <QProcess>
#include <QSettings>
#include <QtTest>

#include <signal.h>

namespace {
QString pactl(const QStringList &arguments)
{
    QProcess process;
    process.start(QStringLiteral("pactl"), arguments);
    process.waitForFinished(10000);
    return QString::fromUtf8(process.readAllStandardOutput()).trimmed();
}

bool hasFrame(ProtocolClient *client, const QString &code, const QJsonValue &value, int from)
{
    const QList<Frame> frames = client->framesWith(code);
    for (int i = from; i < frames.size(); ++i) {
        if (frames.at(i).object().value(L::value) == value)
            return true;
    }
    return false;
}

QStringList unsupportedIn(const Frame &frame)
{
    QStringList codes;
    for (const QJsonValue &code : frame.object().value(L::value).toArray())
        codes << code.toString();
    return codes;
}
} // namespace

// Volume and mute of the default output through a real PulseAudio with null sinks.
class TestPulseAudio : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanupTestCase();
    void readAndPushed();
    void setThroughTheServer();
    void roundedPercentage();
    void everyPercentageSurvivesARoundTrip();
    void everyPercentageSetElsewhereReadsTheSame();
    void mute();
    void defaultOutputFollowed();
    void soundServerRestarted();
    void unreachableSoundServerIsReported();

private:
    Core *core = nullptr;
    LinuxPlatform *platform = nullptr;
    ProtocolClient *phone = nullptr;
    ProtocolClient *tablet = nullptr;
};

void TestPulseAudio::initTestCase()
{
    TestEnvironment::setUp();
    QSettings().setValue(QStringLiteral("preventSleep"), false);
    QCOMPARE(pactl({ QStringLiteral("get-default-sink") }), QStringLiteral("velm_null"));
    pactl(
        { QStringLiteral("set-sink-volume"), QStringLiteral("velm_null"), QStringLiteral("50%") });
    pactl({ QStringLiteral("set-sink-mute"), QStringLiteral("velm_null"), QStringLiteral("0") });
    platform = new LinuxPlatform;
    core = new Core(platform);
    core->start();
    QVERIFY(core->server);
    QTRY_VERIFY(core->server->handler(L::unsupported));
    QTRY_VERIFY(!platform->getUnsupported().contains(L::volume));
    QVERIFY(!platform->getUnsupported().contains(L::volumeMute));
    QCOMPARE(platform->getVolume(), 50);
    QCOMPARE(platform->getVolumeMute(), false);
    Pairing::authorize(QStringLiteral("phone"), QStringLiteral("phone-token"));
    Pairing::authorize(QStringLiteral("tablet"), QStringLiteral("tablet-token"));
    phone = new ProtocolClient(QStringLiteral("phone"));
    tablet = new ProtocolClient(QStringLiteral("tablet"));
    QVERIFY(Pairing::connectAuthenticated(*phone, listeningPort(core->server)));
    QVERIFY(Pairing::connectAuthenticated(*tablet, listeningPort(core->server)));
}

void TestPulseAudio::cleanupTestCase()
{
    delete phone;
    delete tablet;
    delete core;
}

void TestPulseAudio::readAndPushed()
{
    const int phoneFrom = phone->framesWith(L::volume).size();
    const int tabletFrom = tablet->framesWith(L::volume).size();
    // A change made outside the program reaches every client.
    pactl(
        { QStringLiteral("set-sink-volume"), QStringLiteral("velm_null"), QStringLiteral("40%") });
    QTRY_VERIFY(hasFrame(phone, L::volume, 40, phoneFrom));
    QTRY_VERIFY(hasFrame(tablet, L::volume, 40, tabletFrom));
    // Asked, it answers the asker.
    const int asked = phone->framesWith(L::volume).size();
    phone->send(QJsonObject { { L::method, L::volume } });
    QTRY_VERIFY(phone->framesWith(L::volume).size() > asked);
    QCOMPARE(phone->framesWith(L::volume).last().object().value(L::value).toInt(), 40);
}

void TestPulseAudio::setThroughTheServer()
{
    const int from = tablet->framesWith(L::volume).size();
    phone->send(QJsonObject { { L::method, L::volume }, { L::value, 65 } });
    QTRY_COMPARE(pactl({ QStringLiteral("get-sink-volume"), QStringLiteral("velm_null") })
                     .count(QStringLiteral("65%")),
        2);
    QTRY_VERIFY(hasFrame(tablet, L::volume, 65, from));
    QCOMPARE(platform->getVolume(), 65);
    // Not clamped: 150 is 150% of the normal volume.
    phone->send(QJsonObject { { L::method, L::volume }, { L::value, 150 } });
    QTRY_VERIFY(pactl({ QStringLiteral("get-sink-volume"), QStringLiteral("velm_null") })
                    .contains(QStringLiteral("150%")));
    QTRY_COMPARE(platform->getVolume(), 150);
    phone->send(QJsonObject { { L::method, L::volume }, { L::value, 50 } });
    QTRY_COMPARE(platform->getVolume(), 50);
}

void TestPulseAudio::roundedPercentage()
{
    // Levels between two whole percentages read as the nearer one.
    const QList<QPair<int, int>> levels { { 21823, 33 }, { 65470, 100 }, { 32440, 49 },
        { 32441, 50 }, { 327, 0 }, { 328, 1 } };
    for (const auto &[level, percent] : levels) {
        pactl({ QStringLiteral("set-sink-volume"), QStringLiteral("velm_null"),
            QString::number(level) });
        QTRY_COMPARE(platform->getVolume(), percent);
    }
}

void TestPulseAudio::everyPercentageSurvivesARoundTrip()
{
    // What a client sets is what every client reads back, and what the sound server shows.
    pactl({ QStringLiteral("set-sink-volume"), QStringLiteral("velm_null"), QStringLiteral("7") });
    QTRY_COMPARE(platform->getVolume(), 0);
    for (int percent = 0; percent <= 150; ++percent) {
        // 0 is already the volume: set it through a detour so that a push follows.
        if (percent == 0)
            phone->send(QJsonObject { { L::method, L::volume }, { L::value, 1 } });
        const int from = tablet->framesWith(L::volume).size();
        phone->send(QJsonObject { { L::method, L::volume }, { L::value, percent } });
        QTRY_VERIFY2(
            hasFrame(tablet, L::volume, percent, from), qPrintable(QString::number(percent)));
        QCOMPARE(pactl({ QStringLiteral("get-sink-volume"), QStringLiteral("velm_null") })
                     .count(QStringLiteral(" %1% ").arg(percent)),
            2);
        QCOMPARE(platform->getVolume(), percent);
    }
}

void TestPulseAudio::everyPercentageSetElsewhereReadsTheSame()
{
    for (int percent = 0; percent <= 150; ++percent) {
        if (percent == 0)
            pactl({ QStringLiteral("set-sink-volume"), QStringLiteral("@DEFAULT_SINK@"),
                QStringLiteral("1%") });
        const int from = phone->framesWith(L::volume).size();
        pactl({ QStringLiteral("set-sink-volume"), QStringLiteral("@DEFAULT_SINK@"),
            QStringLiteral("%1%").arg(percent) });
        QTRY_VERIFY2(
            hasFrame(phone, L::volume, percent, from), qPrintable(QString::number(percent)));
    }
}

void TestPulseAudio::mute()
{
    const int from = tablet->framesWith(L::volumeMute).size();
    phone->send(QJsonObject { { L::method, L::volumeMute }, { L::value, true } });
    QTRY_COMPARE(pactl({ QStringLiteral("get-sink-mute"), QStringLiteral("velm_null") }),
        QStringLiteral("Mute: yes"));
    QTRY_VERIFY(hasFrame(tablet, L::volumeMute, true, from));
    const int asked = phone->framesWith(L::volumeMute).size();
    phone->send(QJsonObject { { L::method, L::volumeMute } });
    QTRY_VERIFY(phone->framesWith(L::volumeMute).size() > asked);
    QCOMPARE(phone->framesWith(L::volumeMute).last().object().value(L::value).toBool(), true);
    // Unmuted outside the program: pushed too, and the volume along with it.
    const int volumes = tablet->framesWith(L::volume).size();
    pactl({ QStringLiteral("set-sink-mute"), QStringLiteral("velm_null"), QStringLiteral("0") });
    QTRY_VERIFY(hasFrame(tablet, L::volumeMute, false, from));
    QTRY_VERIFY(tablet->framesWith(L::volume).size() > volumes);
}

void TestPulseAudio::defaultOutputFollowed()
{
    const QString module = pactl({ QStringLiteral("load-module"),
        QStringLiteral("module-null-sink"), QStringLiteral("sink_name=velm_other") });
    QVERIFY(!module.isEmpty());
    pactl({ QStringLiteral("set-sink-volume"), QStringLiteral("velm_other"),
        QStringLiteral("13108") });
    pactl({ QStringLiteral("set-sink-mute"), QStringLiteral("velm_other"), QStringLiteral("1") });
    const int volumes = phone->framesWith(L::volume).size();
    const int mutes = phone->framesWith(L::volumeMute).size();
    pactl({ QStringLiteral("set-default-sink"), QStringLiteral("velm_other") });
    QTRY_VERIFY(hasFrame(phone, L::volume, 20, volumes));
    QTRY_VERIFY(hasFrame(phone, L::volumeMute, true, mutes));
    // Setting now acts on the new default output.
    phone->send(QJsonObject { { L::method, L::volume }, { L::value, 30 } });
    QTRY_VERIFY(pactl({ QStringLiteral("get-sink-volume"), QStringLiteral("velm_other") })
                    .contains(QStringLiteral("30%")));
    QVERIFY(!pactl({ QStringLiteral("get-sink-volume"), QStringLiteral("velm_null") })
                 .contains(QStringLiteral(" 30%")));
    pactl({ QStringLiteral("set-default-sink"), QStringLiteral("velm_null") });
    pactl({ QStringLiteral("unload-module"), module });
    QTRY_COMPARE(platform->getVolumeMute(), false);
}

void TestPulseAudio::soundServerRestarted()
{
    const QString rig = qEnvironmentVariable("VELM_RIG_DIR");
    QVERIFY(!rig.isEmpty());
    const QString config = rig + QStringLiteral("/pulse/default.pa");
    QProcess find;
    find.start(QStringLiteral("pgrep"),
        { QStringLiteral("-f"), QStringLiteral("pulseaudio .*") + config });
    QVERIFY(find.waitForFinished(5000));
    const qint64 pid = find.readAllStandardOutput().split('\n').first().trimmed().toLongLong();
    QVERIFY(pid > 0);
    const int from = phone->framesWith(L::unsupported).size();
    QCOMPARE(::kill(pid_t(pid), SIGKILL), 0);
    // Gone: volume and mute are no longer offered.
    QTRY_VERIFY(!phone->framesWith(L::unsupported).mid(from).isEmpty()
        && unsupportedIn(phone->framesWith(L::unsupported).last()).contains(L::volume));
    QVERIFY(unsupportedIn(phone->framesWith(L::unsupported).last()).contains(L::volumeMute));
    QVERIFY(platform->getUnsupported().contains(L::volume));
    // Back: offered again, with its current values pushed.
    qint64 newPid = 0;
    QProcess server;
    server.setProgram(QStringLiteral("pulseaudio"));
    server.setArguments({ QStringLiteral("-n"), QStringLiteral("-F"), config,
        QStringLiteral("--exit-idle-time=-1"), QStringLiteral("--disallow-exit"),
        QStringLiteral("--daemonize=no"), QStringLiteral("--use-pid-file=no") });
    // Not on this test's output: whoever reads it would wait for the daemon to end.
    server.setStandardInputFile(QProcess::nullDevice());
    server.setStandardOutputFile(QProcess::nullDevice());
    server.setStandardErrorFile(QProcess::nullDevice());
    QVERIFY(server.startDetached(&newPid));
    // The rig stops it with the rest.
    QFile pids(rig + QStringLiteral("/pids"));
    QVERIFY(pids.open(QIODevice::Append));
    pids.write(QByteArray::number(newPid) + " pulseaudio\n");
    pids.close();
    const int volumes = phone->framesWith(L::volume).size();
    QTRY_VERIFY_WITH_TIMEOUT(!platform->getUnsupported().contains(L::volume), 15000);
    QTRY_VERIFY(!unsupportedIn(phone->framesWith(L::unsupported).last()).contains(L::volume));
    QTRY_VERIFY(phone->framesWith(L::volume).size() > volumes);
    phone->send(QJsonObject { { L::method, L::volume }, { L::value, 45 } });
    QTRY_VERIFY(pactl({ QStringLiteral("get-sink-volume"), QStringLiteral("velm_null") })
                    .contains(QStringLiteral("45%")));
}

QTEST_MAIN(TestPulseAudio)

void TestPulseAudio::unreachableSoundServerIsReported()
{
    QTemporaryDir runtime;
    const TestEnvironment::Variable server(
        "PULSE_SERVER", "unix:" + runtime.filePath(QStringLiteral("none")).toUtf8());
    const TestEnvironment::Variable rest("PULSE_RUNTIME_PATH", runtime.path().toUtf8());
    LogCapture log;
    PulseAudio audio;
    QTRY_COMPARE(log.count(QStringLiteral("Sound server connection lost Connection refused")), 1);
    QVERIFY(!audio.isAvailable());
}

#include "tst_pulseaudio.moc"

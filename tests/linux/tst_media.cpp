#include "core.h"
#include "l.h"
#include "linuxplatform.h"
#include "mediaplayers.h"
#include "protocolclient.h"
#include "server.h"
#include "serverfixture.h"
#include "testenvironment.h"

#include <QApplication>
#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVariant>
#include <QProcess>
#include <QSettings>
#include <QtTest>

namespace {
const QString playerPath = QStringLiteral("/org/mpris/MediaPlayer2");
const QString playerInterface = QStringLiteral("org.mpris.MediaPlayer2.Player");

// mpv with its MPRIS plugin, playing (or paused on) a playlist of two generated tones into the
// rig's null sink.
struct Player
{
    QProcess process;
    QString name;

    bool start(const QString &busName, bool paused)
    {
        name = busName;
        QStringList arguments { QStringLiteral("--no-config"), QStringLiteral("--no-video"),
            QStringLiteral("--ao=pulse"), QStringLiteral("--really-quiet"),
            QStringLiteral("--script=/usr/lib/mpv-mpris/mpris.so"),
            QStringLiteral("--loop-playlist=inf"),
            QStringLiteral("av://lavfi:sine=frequency=440:duration=600"),
            QStringLiteral("av://lavfi:sine=frequency=880:duration=600") };
        if (paused)
            arguments.prepend(QStringLiteral("--pause"));
        process.setProcessChannelMode(QProcess::ForwardedChannels);
        process.start(QStringLiteral("mpv"), arguments);
        if (!process.waitForStarted(5000))
            return false;
        // The plugin takes "mpv" or, when that is taken, a name with the process id.
        if (name.isEmpty())
            name = QStringLiteral("org.mpris.MediaPlayer2.mpv.instance%1").arg(process.processId());
        // Ready once the first tone is loaded; until then it reports "Stopped".
        const QString expected = paused ? QStringLiteral("Paused") : QStringLiteral("Playing");
        return QTest::qWaitFor(
            [this, expected] { return status() == expected && !track().isEmpty(); }, 10000);
    }
    QString property(const QString &property) const
    {
        QDBusMessage get = QDBusMessage::createMethodCall(name, playerPath,
            QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Get"));
        get << playerInterface << property;
        const QDBusMessage reply = QDBusConnection::sessionBus().call(get, QDBus::Block, 2000);
        if (reply.type() != QDBusMessage::ReplyMessage)
            return QString();
        const QVariant value = reply.arguments().constFirst().value<QDBusVariant>().variant();
        if (property == QLatin1String("Metadata")) {
            QVariantMap metadata;
            value.value<QDBusArgument>() >> metadata;
            return metadata.value(QStringLiteral("xesam:url")).toString();
        }
        return value.toString();
    }
    QString status() const { return property(QStringLiteral("PlaybackStatus")); }
    QString track() const { return property(QStringLiteral("Metadata")); }
    // What another program (or the user at the machine) does.
    void call(const QString &method) const
    {
        QDBusConnection::sessionBus().call(
            QDBusMessage::createMethodCall(name, playerPath, playerInterface, method));
    }
    ~Player()
    {
        process.kill();
        process.waitForFinished(3000);
    }
};

const QString first = QStringLiteral("av://lavfi:sine=frequency=440:duration=600");
const QString second = QStringLiteral("av://lavfi:sine=frequency=880:duration=600");
const QString playing = QStringLiteral("Playing");
const QString paused = QStringLiteral("Paused");
} // namespace

// Play/pause, next and previous on real MPRIS players (mpv), sent through the server.
class TestMedia : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanupTestCase();
    void controlsThePlayer();
    void playingPlayerFirstThenTheLastUsed();

private:
    void send(const QString &code) { phone->send(QJsonObject { { L::method, code } }); }

    Core *core = nullptr;
    LinuxPlatform *platform = nullptr;
    ProtocolClient *phone = nullptr;
    Player *mpv = nullptr;
};

void TestMedia::initTestCase()
{
    TestEnvironment::setUp();
    QSettings().setValue(QStringLiteral("preventSleep"), false);
    platform = new LinuxPlatform;
    core = new Core(platform);
    core->start();
    QVERIFY(core->server);
    Pairing::authorize(QStringLiteral("phone"), QStringLiteral("phone-token"));
    phone = new ProtocolClient(QStringLiteral("phone"));
    QVERIFY(Pairing::connectAuthenticated(*phone, listeningPort(core->server)));
    QVERIFY(platform->mediaPlayers());
    QVERIFY(platform->mediaPlayers()->isEmpty());
    mpv = new Player;
    QVERIFY(mpv->start(QStringLiteral("org.mpris.MediaPlayer2.mpv"), false));
    QTRY_COMPARE(platform->mediaPlayers()->target(), mpv->name);
}

void TestMedia::cleanupTestCase()
{
    delete mpv;
    QTRY_VERIFY(platform->mediaPlayers()->isEmpty());
    delete phone;
    delete core;
}

void TestMedia::controlsThePlayer()
{
    QTRY_COMPARE(mpv->status(), playing);
    QCOMPARE(mpv->track(), first);
    send(L::playPause);
    QTRY_COMPARE(mpv->status(), paused);
    send(L::playPause);
    QTRY_COMPARE(mpv->status(), playing);
    send(L::nextTrack);
    QTRY_COMPARE(mpv->track(), second);
    send(L::previousTrack);
    QTRY_COMPARE(mpv->track(), first);
}

void TestMedia::playingPlayerFirstThenTheLastUsed()
{
    // A second player appears paused: the one that plays keeps the commands.
    Player other;
    QVERIFY(other.start(QString(), true));
    QCOMPARE(other.status(), paused);
    QTRY_COMPARE(platform->mediaPlayers()->statusOf(other.name), paused);
    QCOMPARE(platform->mediaPlayers()->target(), mpv->name);
    send(L::playPause);
    QTRY_COMPARE(mpv->status(), paused);
    QCOMPARE(other.status(), paused);

    // The user starts the other one, then stops it: with nothing playing, the commands go to
    // the player used last.
    other.call(QStringLiteral("Play"));
    QTRY_COMPARE(platform->mediaPlayers()->target(), other.name);
    other.call(QStringLiteral("Pause"));
    QTRY_COMPARE(platform->mediaPlayers()->statusOf(other.name), paused);
    send(L::playPause);
    QTRY_COMPARE(other.status(), playing);
    QCOMPARE(mpv->status(), paused);
    send(L::nextTrack);
    QTRY_COMPARE(other.track(), second);
    QCOMPARE(mpv->track(), first);
}

QTEST_MAIN(TestMedia)
#include "tst_media.moc"

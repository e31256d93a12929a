#include "logcapture.h"
#include "remotedesktopportal.h"
#include "testenvironment.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QSettings>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

#include <xkbcommon/xkbcommon-keysyms.h>

namespace {
struct Call
{
    QString method;
    QJsonArray args;
};
} // namespace

// Keys and wheel steps through the desktop portal's RemoteDesktop interface, against a
// recording stand-in of the portal on a private session bus: one consent per session, the
// restore token kept and offered again, the keysyms and axis steps sent.
class TestPortal : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanupTestCase();
    void init();
    void firstInputStartsOneSessionAndKeepsTheToken();
    void tokenOfferedAgainAfterARestart();
    void wheelStepsGoAsDiscreteAxisSteps();
    void sessionClosedByTheDesktopStartsAgain();
    void refusalDropsInputAndSaysSo();
    void versionOneKeepsNoPermissionAndSaysSo();

private:
    QList<Call> calls() const;
    QList<Call> callsOf(const QString &method) const;
    QString logPath() const { return dir.filePath(QStringLiteral("portal.log")); }

    QTemporaryDir dir;
    QProcess bus, mock;
};

QList<Call> TestPortal::calls() const
{
    QList<Call> result;
    QFile file(logPath());
    if (!file.open(QIODevice::ReadOnly))
        return result;
    for (const QByteArray &line : file.readAll().split('\n')) {
        const QJsonObject call = QJsonDocument::fromJson(line).object();
        if (!call.isEmpty())
            result << Call { call.value(QStringLiteral("method")).toString(),
                call.value(QStringLiteral("args")).toArray() };
    }
    return result;
}

QList<Call> TestPortal::callsOf(const QString &method) const
{
    QList<Call> result;
    for (const Call &call : calls()) {
        if (call.method == method)
            result << call;
    }
    return result;
}

void TestPortal::initTestCase()
{
    TestEnvironment::setUp();
    // A session bus of our own, before anything talks to one.
    bus.start(QStringLiteral("dbus-daemon"),
        { QStringLiteral("--session"), QStringLiteral("--nofork"),
            QStringLiteral("--print-address") });
    QVERIFY(bus.waitForReadyRead(10000));
    const QByteArray address = bus.readLine().trimmed();
    QVERIFY(!address.isEmpty());
    qputenv("DBUS_SESSION_BUS_ADDRESS", address);
    mock.setProcessChannelMode(QProcess::ForwardedChannels);
    mock.start(QStringLiteral("/usr/bin/python3"), { QStringLiteral(VELM_PORTAL_MOCK), logPath() });
    QTRY_VERIFY_WITH_TIMEOUT(QDBusConnection::sessionBus().interface()->isServiceRegistered(
                                 QStringLiteral("org.freedesktop.portal.Desktop")),
        10000);
}

void TestPortal::cleanupTestCase()
{
    mock.kill();
    mock.waitForFinished();
    bus.kill();
    bus.waitForFinished();
}

void TestPortal::init()
{
    QFile::remove(logPath());
    QFile::remove(logPath() + QStringLiteral(".refuse"));
    QFile::remove(logPath() + QStringLiteral(".version1"));
}

void TestPortal::firstInputStartsOneSessionAndKeepsTheToken()
{
    TestEnvironment::clearSettings();
    RemoteDesktopPortal portal;
    QTRY_COMPARE(portal.state(), RemoteDesktopPortal::Idle);
    QVERIFY(portal.isUsable());
    // Keys asked for before the session exists wait for it, in order.
    portal.pressKeysyms({ XKB_KEY_Control_L, XKB_KEY_Shift_L }, XKB_KEY_t);
    portal.pressKeysyms({}, XKB_KEY_Return);
    QTRY_COMPARE(portal.state(), RemoteDesktopPortal::Ready);
    QTRY_COMPARE(callsOf(QStringLiteral("NotifyKeyboardKeysym")).size(), 8);
    QCOMPARE(callsOf(QStringLiteral("CreateSession")).size(), 1);
    QCOMPARE(callsOf(QStringLiteral("Start")).size(), 1);
    // Keyboard and pointer, kept until revoked; no token yet.
    const QJsonObject options
        = callsOf(QStringLiteral("SelectDevices")).first().args.at(1).toObject();
    QCOMPARE(options.value(QStringLiteral("types")).toInt(), 3);
    QCOMPARE(options.value(QStringLiteral("persist_mode")).toInt(), 2);
    QVERIFY(!options.contains(QStringLiteral("restore_token")));
    QList<QPair<int, int>> keys;
    for (const Call &call : callsOf(QStringLiteral("NotifyKeyboardKeysym")))
        keys << qMakePair(call.args.at(2).toInt(), call.args.at(3).toInt());
    const QList<QPair<int, int>> expected { { XKB_KEY_Control_L, 1 }, { XKB_KEY_Shift_L, 1 },
        { XKB_KEY_t, 1 }, { XKB_KEY_t, 0 }, { XKB_KEY_Shift_L, 0 }, { XKB_KEY_Control_L, 0 },
        { XKB_KEY_Return, 1 }, { XKB_KEY_Return, 0 } };
    QCOMPARE(keys, expected);
    // Sent on the session the portal made.
    const QString session = callsOf(QStringLiteral("SelectDevices")).first().args.at(0).toString();
    QVERIFY(session.startsWith(QLatin1String("/org/freedesktop/portal/desktop/session/")));
    QCOMPARE(callsOf(QStringLiteral("NotifyKeyboardKeysym")).last().args.at(0).toString(), session);
    QCOMPARE(
        QSettings().value(RemoteDesktopPortal::tokenKey).toString(), QStringLiteral("token-1"));
    // More keys: the same session, no new dialog.
    portal.pressKeysyms({}, XKB_KEY_a);
    QTRY_COMPARE(callsOf(QStringLiteral("NotifyKeyboardKeysym")).size(), 10);
    QCOMPARE(callsOf(QStringLiteral("CreateSession")).size(), 1);
    QCOMPARE(callsOf(QStringLiteral("Start")).size(), 1);
}

void TestPortal::tokenOfferedAgainAfterARestart()
{
    QSettings().setValue(RemoteDesktopPortal::tokenKey, QStringLiteral("kept-token"));
    RemoteDesktopPortal portal;
    portal.pressKeysyms({}, XKB_KEY_b);
    QTRY_COMPARE(portal.state(), RemoteDesktopPortal::Ready);
    QCOMPARE(callsOf(QStringLiteral("SelectDevices"))
                 .first()
                 .args.at(1)
                 .toObject()
                 .value(QStringLiteral("restore_token"))
                 .toString(),
        QStringLiteral("kept-token"));
    // The portal hands out a new token each time; the newest is kept.
    QTRY_VERIFY(
        QSettings().value(RemoteDesktopPortal::tokenKey).toString() != QLatin1String("kept-token"));
    QVERIFY(QSettings()
                .value(RemoteDesktopPortal::tokenKey)
                .toString()
                .startsWith(QLatin1String("token-")));
}

void TestPortal::wheelStepsGoAsDiscreteAxisSteps()
{
    RemoteDesktopPortal portal;
    portal.scroll(false);
    portal.scroll(true);
    QTRY_COMPARE(callsOf(QStringLiteral("NotifyPointerAxisDiscrete")).size(), 2);
    const QList<Call> steps = callsOf(QStringLiteral("NotifyPointerAxisDiscrete"));
    // The vertical axis; positive is down.
    QCOMPARE(steps.at(0).args.at(2).toInt(), 0);
    QCOMPARE(steps.at(0).args.at(3).toInt(), 1);
    QCOMPARE(steps.at(1).args.at(3).toInt(), -1);
}

void TestPortal::sessionClosedByTheDesktopStartsAgain()
{
    RemoteDesktopPortal portal;
    portal.pressKeysyms({}, XKB_KEY_c);
    QTRY_COMPARE(portal.state(), RemoteDesktopPortal::Ready);
    // The key is pressed and released before the desktop ends the session; input still queued
    // for an ended session is dropped with it.
    QTRY_COMPARE(callsOf(QStringLiteral("NotifyKeyboardKeysym")).size(), 2);
    const QString token = QSettings().value(RemoteDesktopPortal::tokenKey).toString();
    QDBusConnection::sessionBus().call(
        QDBusMessage::createMethodCall(QStringLiteral("org.freedesktop.portal.Desktop"),
            QStringLiteral("/org/freedesktop/portal/desktop"),
            QStringLiteral("org.freedesktop.DBus.Mock"), QStringLiteral("CloseSessions")));
    QTRY_COMPARE(portal.state(), RemoteDesktopPortal::Idle);
    portal.pressKeysyms({}, XKB_KEY_d);
    QTRY_COMPARE(callsOf(QStringLiteral("CreateSession")).size(), 2);
    QTRY_COMPARE(callsOf(QStringLiteral("NotifyKeyboardKeysym")).size(), 4);
    // Started again with the token of the first session.
    QCOMPARE(callsOf(QStringLiteral("SelectDevices"))
                 .last()
                 .args.at(1)
                 .toObject()
                 .value(QStringLiteral("restore_token"))
                 .toString(),
        token);
}

void TestPortal::refusalDropsInputAndSaysSo()
{
    TestEnvironment::clearSettings();
    QFile refuse(logPath() + QStringLiteral(".refuse"));
    QVERIFY(refuse.open(QIODevice::WriteOnly));
    refuse.close();
    LogCapture log;
    RemoteDesktopPortal portal;
    QSignalSpy changes(&portal, &RemoteDesktopPortal::stateChanged);
    portal.pressKeysyms({}, XKB_KEY_e);
    QTRY_COMPARE(portal.state(), RemoteDesktopPortal::Refused);
    QVERIFY(!portal.isUsable());
    QVERIFY(log.lines().filter(QStringLiteral("the user refused remote input")).size() == 1);
    // Nothing was typed, then or later, and no dialog is opened again.
    portal.pressKeysyms({}, XKB_KEY_f);
    portal.scroll(true);
    QTRY_VERIFY(log.lines().filter(QStringLiteral("no input allowed")).size() == 2);
    QVERIFY(callsOf(QStringLiteral("NotifyKeyboardKeysym")).isEmpty());
    QVERIFY(callsOf(QStringLiteral("NotifyPointerAxisDiscrete")).isEmpty());
    QCOMPARE(callsOf(QStringLiteral("Start")).size(), 1);
    QVERIFY(QSettings().value(RemoteDesktopPortal::tokenKey).toString().isEmpty());
}

void TestPortal::versionOneKeepsNoPermissionAndSaysSo()
{
    // A token kept from a desktop of version 2, then a desktop of version 1 (Debian 12's GNOME).
    TestEnvironment::clearSettings();
    QSettings().setValue(RemoteDesktopPortal::tokenKey, QStringLiteral("token-old"));
    QFile version1(logPath() + QStringLiteral(".version1"));
    QVERIFY(version1.open(QIODevice::WriteOnly));
    version1.close();
    LogCapture log;
    RemoteDesktopPortal portal;
    QTRY_COMPARE(portal.state(), RemoteDesktopPortal::Idle);
    QCOMPARE(log.lines().filter(QStringLiteral("asks at every start")).size(), 1);
    portal.pressKeysyms({}, XKB_KEY_g);
    QTRY_COMPARE(callsOf(QStringLiteral("NotifyKeyboardKeysym")).size(), 2);
    // Neither option that version 1 lacks is sent, and nothing is stored.
    const QJsonObject options
        = callsOf(QStringLiteral("SelectDevices")).first().args.at(1).toObject();
    QCOMPARE(options.value(QStringLiteral("types")).toInt(), 3);
    QVERIFY(!options.contains(QStringLiteral("persist_mode")));
    QVERIFY(!options.contains(QStringLiteral("restore_token")));
    QCOMPARE(
        QSettings().value(RemoteDesktopPortal::tokenKey).toString(), QStringLiteral("token-old"));
    QCOMPARE(log.lines().filter(QStringLiteral("asks at every start")).size(), 1);
}

QTEST_MAIN(TestPortal)
#include "tst_portal.moc"

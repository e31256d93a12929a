#include "core.h"
#include "dbusmock.h"
#include "idle.h"
#include "l.h"
#include "linuxplatform.h"
#include "logcapture.h"
#include "loginsession.h"
#include "protocolclient.h"
#include "server.h"
#include "serverfixture.h"
#include "testenvironment.h"

#include <QApplication>
#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVariant>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QSettings>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

namespace {
const QString loginService = QStringLiteral("org.freedesktop.login1");
const QString managerPath = QStringLiteral("/org/freedesktop/login1");
const QString managerInterface = QStringLiteral("org.freedesktop.login1.Manager");
const QString sessionPath = QStringLiteral("/org/freedesktop/login1/session/c1");
const QString sessionInterface = QStringLiteral("org.freedesktop.login1.Session");
const QString screenSaverService = QStringLiteral("org.freedesktop.ScreenSaver");
const QString screenSaverPath = QStringLiteral("/org/freedesktop/ScreenSaver");
const QString mockInterface = QStringLiteral("org.freedesktop.DBus.Mock");

QDBusMessage call(const QDBusConnection &bus, const QString &service, const QString &path,
    const QString &interface, const QString &method, const QVariantList &arguments = {})
{
    QDBusMessage message = QDBusMessage::createMethodCall(service, path, interface, method);
    message.setArguments(arguments);
    return QDBusConnection(bus).call(message);
}

QDBusMessage callLogin(const QString &path, const QString &interface, const QString &method,
    const QVariantList &arguments = {})
{
    return call(QDBusConnection::systemBus(), loginService, path, interface, method, arguments);
}

// Makes a method of the logind mock fail as logind does when it refuses.
void refuse(
    const QString &path, const QString &interface, const QString &method, const QString &signature)
{
    const QDBusMessage reply = callLogin(path, mockInterface, QStringLiteral("AddMethod"),
        { interface, method, signature, QString(),
            QStringLiteral("raise dbus.exceptions.DBusException('Operation not permitted', "
                           "name='org.freedesktop.DBus.Error.AccessDenied')") });
    QCOMPARE(reply.type(), QDBusMessage::ReplyMessage);
}

void accept(
    const QString &path, const QString &interface, const QString &method, const QString &signature)
{
    const QDBusMessage reply = callLogin(path, mockInterface, QStringLiteral("AddMethod"),
        { interface, method, signature, QString(), QString() });
    QCOMPARE(reply.type(), QDBusMessage::ReplyMessage);
}

bool wasCalled(const QString &service, const QString &path, const QString &method,
    const QVariantList &arguments, const QDBusConnection &bus)
{
    const QList<DBusMock::Call> calls = DBusMock::calls(service, path, bus);
    for (const DBusMock::Call &entry : calls) {
        if (entry.method == method && entry.arguments == arguments)
            return true;
    }
    return false;
}

bool loginCalled(const QString &path, const QString &method, const QVariantList &arguments)
{
    return wasCalled(loginService, path, method, arguments, QDBusConnection::systemBus());
}

QList<QJsonValue> valuesOf(ProtocolClient *client, const QString &code, int from = 0)
{
    QList<QJsonValue> values;
    const QList<Frame> frames = client->framesWith(code);
    for (int i = from; i < frames.size(); ++i)
        values << frames.at(i).object().value(L::value);
    return values;
}

// (what, who, why, mode) of every inhibitor lock the logind mock holds.
QList<QStringList> inhibitors()
{
    const QDBusMessage reply
        = callLogin(managerPath, managerInterface, QStringLiteral("ListInhibitors"));
    QList<QStringList> result;
    if (reply.type() != QDBusMessage::ReplyMessage)
        return result;
    const QDBusArgument array = reply.arguments().constFirst().value<QDBusArgument>();
    array.beginArray();
    while (!array.atEnd()) {
        QString what, who, why, mode;
        uint uid = 0, pid = 0;
        array.beginStructure();
        array >> what >> who >> why >> mode >> uid >> pid;
        array.endStructure();
        result << QStringList { what, who, why, mode };
    }
    array.endArray();
    return result;
}

void writeNumber(const QString &file, int value)
{
    QFile out(file);
    QVERIFY(out.open(QIODevice::WriteOnly));
    out.write(QByteArray::number(value) + '\n');
}

int readNumber(const QString &file)
{
    QFile in(file);
    return in.open(QIODevice::ReadOnly) ? in.readAll().trimmed().toInt() : -1;
}
} // namespace

// Power, the login session, screen lock, sleep prevention and brightness through logind and
// the screen saver (recording mocks on the rig's buses), over the wire.
class TestSession : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanupTestCase();
    void init();
    void sessionFound();
    void powerActions();
    void refusedPowerActionIsLogged();
    void lockThroughTheSession();
    void lockFallsBackToTheScreenSaver();
    void lockStatePushedOnChangesOnly();
    void screenSaverThenLockIsOneChange();
    void systemSleepInhibitor();
    void brightnessThroughLogind();
    void brightnessWrittenWhenLogindRefuses();

private:
    QString deviceFile(const QString &name) const
    {
        return sysfs.filePath(QStringLiteral("class/backlight/acpi_video0/") + name);
    }

    QTemporaryDir sysfs;
    Core *core = nullptr;
    LinuxPlatform *platform = nullptr;
    ProtocolClient *phone = nullptr;
    ProtocolClient *tablet = nullptr;
};

void TestSession::initTestCase()
{
    TestEnvironment::setUp();
    QSettings().setValue(QStringLiteral("preventSleep"), false);
    // A laptop's backlight: a firmware interface and the raw register it drives.
    const QList<QPair<QString, QByteArray>> devices { { QStringLiteral("acpi_video0"), "firmware" },
        { QStringLiteral("intel_backlight"), "raw" } };
    for (const auto &device : devices) {
        const QString directory = sysfs.filePath(QStringLiteral("class/backlight/") + device.first);
        QVERIFY(QDir().mkpath(directory));
        QFile type(directory + QStringLiteral("/type"));
        QVERIFY(type.open(QIODevice::WriteOnly));
        type.write(device.second + '\n');
        writeNumber(directory + QStringLiteral("/max_brightness"), 15);
        writeNumber(directory + QStringLiteral("/brightness"), 6);
    }
    qputenv("VELM_SYSFS_ROOT", sysfs.path().toUtf8());

    platform = new LinuxPlatform;
    core = new Core(platform);
    core->start();
    QVERIFY(core->server);
    QTRY_VERIFY(platform->loginSession() && platform->loginSession()->hasSession());
    Pairing::authorize(QStringLiteral("phone"), QStringLiteral("phone-token"));
    Pairing::authorize(QStringLiteral("tablet"), QStringLiteral("tablet-token"));
    phone = new ProtocolClient(QStringLiteral("phone"));
    tablet = new ProtocolClient(QStringLiteral("tablet"));
    QVERIFY(Pairing::connectAuthenticated(*phone, listeningPort(core->server)));
    QVERIFY(Pairing::connectAuthenticated(*tablet, listeningPort(core->server)));
    // With clients connected the backlight is polled: the first reading is pushed.
    QTRY_VERIFY(valuesOf(tablet, L::brightness).contains(40));
}

void TestSession::cleanupTestCase()
{
    delete phone;
    delete tablet;
    delete core;
}

void TestSession::init()
{
    DBusMock::clearCalls(loginService, managerPath, QDBusConnection::systemBus());
    DBusMock::clearCalls(loginService, sessionPath, QDBusConnection::systemBus());
    DBusMock::clearCalls(screenSaverService, screenSaverPath);
}

void TestSession::sessionFound()
{
    // This test does not run inside a session: it is found among the user's sessions.
    QCOMPARE(platform->loginSession()->sessionId(), QStringLiteral("c1"));
    QTRY_VERIFY(platform->loginSession()->canPowerOff());
    const QStringList unsupported = platform->getUnsupported();
    for (const QString &code : { L::shutdown, L::restart, L::sleep, L::logout, L::screenLock,
             L::brightness, L::playPause })
        QVERIFY2(!unsupported.contains(code), qPrintable(code));
}

void TestSession::powerActions()
{
    for (const QString &code : { L::shutdown, L::restart, L::sleep, L::logout })
        phone->send(QJsonObject { { L::method, code } });
    // Never interactive: nobody at the machine would see a password prompt.
    QTRY_VERIFY(loginCalled(managerPath, QStringLiteral("PowerOff"), { false }));
    QTRY_VERIFY(loginCalled(managerPath, QStringLiteral("Reboot"), { false }));
    QTRY_VERIFY(loginCalled(managerPath, QStringLiteral("Suspend"), { false }));
    QTRY_VERIFY(
        loginCalled(managerPath, QStringLiteral("TerminateSession"), { QStringLiteral("c1") }));
}

void TestSession::refusedPowerActionIsLogged()
{
    refuse(managerPath, managerInterface, QStringLiteral("PowerOff"), QStringLiteral("b"));
    refuse(managerPath, managerInterface, QStringLiteral("TerminateSession"), QStringLiteral("s"));
    LogCapture log;
    phone->send(QJsonObject { { L::method, L::shutdown } });
    phone->send(QJsonObject { { L::method, L::logout } });
    const QString refused
        = QStringLiteral(" org.freedesktop.DBus.Error.AccessDenied: Operation not permitted");
    QTRY_COMPARE(log.count(QStringLiteral("virtual void LinuxPlatform::shutdown()") + refused), 1);
    QTRY_COMPARE(log.count(QStringLiteral("virtual void LinuxPlatform::logout()") + refused), 1);
    accept(managerPath, managerInterface, QStringLiteral("PowerOff"), QStringLiteral("b"));
    accept(managerPath, managerInterface, QStringLiteral("TerminateSession"), QStringLiteral("s"));
}

void TestSession::lockThroughTheSession()
{
    const int phoneFrom = phone->framesWith(L::screenLock).size();
    const int tabletFrom = tablet->framesWith(L::screenLock).size();
    // False is accepted and ignored: a phone cannot unlock the screen.
    phone->send(QJsonObject { { L::method, L::screenLock }, { L::value, false } });
    phone->send(QJsonObject { { L::method, L::screenLock }, { L::value, true } });
    QTRY_VERIFY(loginCalled(managerPath, QStringLiteral("LockSession"), { QStringLiteral("c1") }));
    QVERIFY(!loginCalled(managerPath, QStringLiteral("UnlockSession"), { QStringLiteral("c1") }));
    QVERIFY(DBusMock::calls(screenSaverService, screenSaverPath).isEmpty());
    // logind passes the request on as the session's Lock signal, which the mock sends when its
    // Lock method is called.
    callLogin(sessionPath, sessionInterface, QStringLiteral("Lock"));
    QTRY_COMPARE(valuesOf(phone, L::screenLock, phoneFrom), (QList<QJsonValue> { true }));
    QTRY_COMPARE(valuesOf(tablet, L::screenLock, tabletFrom), (QList<QJsonValue> { true }));
    QVERIFY(platform->getScreenLocked());
    callLogin(sessionPath, sessionInterface, QStringLiteral("Unlock"));
    QTRY_COMPARE(valuesOf(tablet, L::screenLock, tabletFrom), (QList<QJsonValue> { true, false }));
    QCOMPARE(valuesOf(phone, L::screenLock, phoneFrom), (QList<QJsonValue> { true, false }));
}

void TestSession::lockFallsBackToTheScreenSaver()
{
    refuse(managerPath, managerInterface, QStringLiteral("LockSession"), QStringLiteral("s"));
    phone->send(QJsonObject { { L::method, L::screenLock }, { L::value, true } });
    QTRY_VERIFY(wasCalled(screenSaverService, screenSaverPath, QStringLiteral("Lock"), {},
        QDBusConnection::sessionBus()));
    accept(managerPath, managerInterface, QStringLiteral("LockSession"), QStringLiteral("s"));
}

void TestSession::lockStatePushedOnChangesOnly()
{
    QVERIFY(!platform->getScreenLocked());
    const int from = phone->framesWith(L::screenLock).size();
    QSignalSpy changes(platform, &Platform::screenLockChanged);
    callLogin(sessionPath, sessionInterface, QStringLiteral("SetLockedHint"), { true });
    QTRY_COMPARE(valuesOf(phone, L::screenLock, from), (QList<QJsonValue> { true }));
    // The same hint again, then a change: only the change is pushed.
    callLogin(sessionPath, sessionInterface, QStringLiteral("SetLockedHint"), { true });
    callLogin(sessionPath, sessionInterface, QStringLiteral("SetLockedHint"), { false });
    QTRY_COMPARE(valuesOf(phone, L::screenLock, from), (QList<QJsonValue> { true, false }));
    QCOMPARE(changes.count(), 2);
    // Asked, it answers with a boolean.
    const int asked = phone->framesWith(L::screenLock).size();
    phone->send(QJsonObject { { L::method, L::screenLock } });
    QTRY_COMPARE(valuesOf(phone, L::screenLock, asked), (QList<QJsonValue> { false }));
}

void TestSession::screenSaverThenLockIsOneChange()
{
    const int from = phone->framesWith(L::screenLock).size();
    QSignalSpy changes(platform, &Platform::screenLockChanged);
    QSignalSpy reports(platform->loginSession(), &LoginSession::screenLockReported);
    auto screenSaverActive = [](bool active) {
        const QDBusMessage reply = call(QDBusConnection::sessionBus(), screenSaverService,
            screenSaverPath, mockInterface, QStringLiteral("EmitSignal"),
            { screenSaverService, QStringLiteral("ActiveChanged"), QStringLiteral("b"),
                QVariant::fromValue(QVariantList { QVariant::fromValue(QDBusVariant(active)) }) });
        QCOMPARE(reply.type(), QDBusMessage::ReplyMessage);
    };
    screenSaverActive(true);
    QTRY_COMPARE(valuesOf(phone, L::screenLock, from), (QList<QJsonValue> { true }));
    callLogin(sessionPath, sessionInterface, QStringLiteral("Lock"));
    QTRY_COMPARE(reports.count(), 2);
    QCOMPARE(changes.count(), 1);
    // The screen saver stopping counts as unlocked, also while the lock screen is still up.
    screenSaverActive(false);
    QTRY_COMPARE(valuesOf(phone, L::screenLock, from), (QList<QJsonValue> { true, false }));
    QCOMPARE(changes.count(), 2);
}

void TestSession::systemSleepInhibitor()
{
    QVERIFY(inhibitors().isEmpty());
    QVERIFY(Idle::preventSystemSleep(QStringLiteral("Velm client connected")));
    QCOMPARE(inhibitors(),
        (QList<QStringList> { { QStringLiteral("idle"), QStringLiteral("Velm Server"),
            QStringLiteral("Velm client connected"), QStringLiteral("block") } }));
    QVERIFY(Idle::allowSystemSleep());
    // Closing the descriptor releases the lock.
    QTRY_VERIFY(inhibitors().isEmpty());
    QVERIFY(!Idle::allowSystemSleep());
    QVERIFY(Idle::systemErrorMessage().isEmpty());
    QVERIFY(Idle::displayErrorMessage().isEmpty());
}

void TestSession::brightnessThroughLogind()
{
    // 6 of 15 is 40%. The firmware device is chosen over the raw one.
    const int asked = phone->framesWith(L::brightness).size();
    phone->send(QJsonObject { { L::method, L::brightness } });
    QTRY_COMPARE(valuesOf(phone, L::brightness, asked), (QList<QJsonValue> { 40 }));

    const int from = tablet->framesWith(L::brightness).size();
    phone->send(QJsonObject { { L::method, L::brightness }, { L::value, 50 } });
    // 7.5 rounds up to 8, which reads back as 53: the nearest level at or above the wish.
    QTRY_VERIFY(loginCalled(sessionPath, QStringLiteral("SetBrightness"),
        { QStringLiteral("backlight"), QStringLiteral("acpi_video0"), 8u }));
    QCOMPARE(readNumber(deviceFile(QStringLiteral("brightness"))), 6);
    // The kernel applies it; the next poll tells every client.
    writeNumber(deviceFile(QStringLiteral("brightness")), 8);
    QTRY_COMPARE(valuesOf(tablet, L::brightness, from), (QList<QJsonValue> { 53 }));
}

void TestSession::brightnessWrittenWhenLogindRefuses()
{
    refuse(sessionPath, sessionInterface, QStringLiteral("SetBrightness"), QStringLiteral("ssu"));
    const int from = tablet->framesWith(L::brightness).size();
    phone->send(QJsonObject { { L::method, L::brightness }, { L::value, 100 } });
    QTRY_COMPARE(readNumber(deviceFile(QStringLiteral("brightness"))), 15);
    QTRY_COMPARE(valuesOf(tablet, L::brightness, from), (QList<QJsonValue> { 100 }));
    QCOMPARE(
        readNumber(sysfs.filePath(QStringLiteral("class/backlight/intel_backlight/brightness"))),
        6);
    accept(sessionPath, sessionInterface, QStringLiteral("SetBrightness"), QStringLiteral("ssu"));
}

QTEST_MAIN(TestSession)
#include "tst_session.moc"

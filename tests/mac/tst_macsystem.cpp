#include "logcapture.h"
#include "macsystem.h"

#include <QSignalSpy>
#include <QTimer>
#include <QtTest>

using namespace MacSystem;

// The macOS system controls' rules: conversions, media keys, power events, screen lock, and
// the brightness poll.
class TestMacSystem : public QObject
{
    Q_OBJECT
private slots:
    void volumeReadTruncates();
    void volumeWrittenUnclamped();
    void powerActions();
    void mediaKeys();
    void screenSaverThenLockIsOneChange();
    void unlockAfterScreenSaverStops();
    void pollWithUnchangedBrightnessEmitsNothing();
    void stopBeforeStartLogsTimerIsNull();
    void startCreatesOneTimerOnly();
};

void TestMacSystem::volumeReadTruncates()
{
    QCOMPARE(percentFromScalar(0.333f), 33);
    QCOMPARE(percentFromScalar(0.5f), 50);
    QCOMPARE(percentFromScalar(0.999f), 99);
    QCOMPARE(percentFromScalar(1.0f), 100);
    QCOMPARE(percentFromScalar(0.0f), 0);
}

void TestMacSystem::volumeWrittenUnclamped()
{
    QCOMPARE(scalarFromPercent(50), 0.5f);
    QCOMPARE(scalarFromPercent(150), 1.5f);
    QCOMPARE(scalarFromPercent(-10), -0.1f);
    QCOMPARE(QList<unsigned>(std::begin(volumeWriteElements), std::end(volumeWriteElements)),
        (QList<unsigned> { 1, 2 }));
}

void TestMacSystem::powerActions()
{
    QCOMPARE(fourCharCode("aevt"), 0x61657674u);
    QCOMPARE(appleEventId(PowerAction::Shutdown), 0x73687574u);
    QCOMPARE(appleEventId(PowerAction::Restart), fourCharCode("rest"));
    QCOMPARE(appleEventId(PowerAction::Sleep), fourCharCode("slep"));
    QCOMPARE(appleEventId(PowerAction::Logout), fourCharCode("rlgo"));
    QCOMPARE(
        signature(PowerAction::Shutdown), QStringLiteral("virtual void MacPlatform::shutdown()"));
    QCOMPARE(signature(PowerAction::Logout), QStringLiteral("virtual void MacPlatform::logout()"));
}

void TestMacSystem::mediaKeys()
{
    QCOMPARE(mediaKeyDown(MediaKey::PlayPause).data1, 0x100a00L);
    QCOMPARE(mediaKeyUp(MediaKey::PlayPause).data1, 0x100b00L);
    QCOMPARE(mediaKeyDown(MediaKey::Next).data1, 0x130a00L);
    QCOMPARE(mediaKeyUp(MediaKey::Next).data1, 0x130b00L);
    QCOMPARE(mediaKeyDown(MediaKey::Previous).data1, 0x140a00L);
    QCOMPARE(mediaKeyUp(MediaKey::Previous).data1, 0x140b00L);
    QCOMPARE(mediaKeyDown(MediaKey::Next).modifierFlags, 0xa00u);
    QCOMPARE(mediaKeyUp(MediaKey::Next).modifierFlags, 0xb00u);
}

void TestMacSystem::screenSaverThenLockIsOneChange()
{
    ScreenLock lock;
    bool changed = false;
    QVERIFY(lock.notify(QStringLiteral("com.apple.screensaver.didstart"), &changed));
    QVERIFY(changed);
    QVERIFY(lock.notify(QStringLiteral("com.apple.screenIsLocked"), &changed));
    QVERIFY(!changed);
    // Anything else changes nothing.
    QVERIFY(lock.notify(QStringLiteral("com.apple.other"), &changed));
    QVERIFY(!changed);
}

void TestMacSystem::unlockAfterScreenSaverStops()
{
    ScreenLock lock;
    bool changed = false;
    lock.notify(QStringLiteral("com.apple.screenIsLocked"), &changed);
    // The screen saver stopping reports unlocked even though the lock screen is still up.
    QVERIFY(!lock.notify(QStringLiteral("com.apple.screensaver.didstop"), &changed));
    QVERIFY(changed);
    QVERIFY(!lock.notify(QStringLiteral("com.apple.screenIsUnlocked"), &changed));
    QVERIFY(!changed);
}

void TestMacSystem::pollWithUnchangedBrightnessEmitsNothing()
{
    int value = 0;
    BrightnessPoll poll([&] { return value; });
    QSignalSpy changes(&poll, &BrightnessPoll::brightnessChanged);
    // Brightness is 0 until a poll differs.
    poll.poll();
    QCOMPARE(changes.count(), 0);
    value = 40;
    poll.poll();
    QCOMPARE(changes.count(), 1);
    QCOMPARE(poll.brightness(), 40);
    poll.poll();
    QCOMPARE(changes.count(), 1);
}

void TestMacSystem::stopBeforeStartLogsTimerIsNull()
{
    BrightnessPoll poll([] { return 0; });
    LogCapture log;
    poll.stop();
    QCOMPARE(log.lines().filter(QStringLiteral("timer is null")).size(), 1);
}

void TestMacSystem::startCreatesOneTimerOnly()
{
    int reads = 0;
    BrightnessPoll poll([&] { return ++reads; });
    poll.start();
    QTimer *timer = poll.timer();
    QVERIFY(timer);
    QCOMPARE(timer->interval(), 1000);
    QCOMPARE(timer->timerType(), Qt::VeryCoarseTimer);
    poll.start();
    QCOMPARE(poll.timer(), timer);
    QVERIFY(timer->isActive());
    LogCapture log;
    poll.stop();
    QVERIFY(!timer->isActive());
    QVERIFY(log.lines().filter(QStringLiteral("timer is null")).isEmpty());
}

QTEST_GUILESS_MAIN(TestMacSystem)
#include "tst_macsystem.moc"

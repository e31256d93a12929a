#include "backlight.h"
#include "l.h"
#include "linuxplatform.h"
#include "logcapture.h"

#include <QDir>
#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

namespace {
void writeFile(const QString &path, const QByteArray &content)
{
    QVERIFY(QDir().mkpath(QFileInfo(path).absolutePath()));
    QFile out(path);
    QVERIFY(out.open(QIODevice::WriteOnly));
    out.write(content);
}

// A backlight device in a sysfs tree of our own.
void addDevice(
    const QTemporaryDir &root, const QString &name, const QByteArray &type, int max, int level)
{
    const QString directory = root.filePath(QStringLiteral("class/backlight/") + name);
    if (!type.isEmpty())
        writeFile(directory + QStringLiteral("/type"), type + '\n');
    writeFile(directory + QStringLiteral("/max_brightness"), QByteArray::number(max) + '\n');
    writeFile(directory + QStringLiteral("/brightness"), QByteArray::number(level) + '\n');
}

QByteArray readFile(const QString &path)
{
    QFile in(path);
    return in.open(QIODevice::ReadOnly) ? in.readAll().trimmed() : QByteArray();
}
} // namespace

// The backlight on fake sysfs trees, and the platform's brightness without logind (this test
// has no system bus, so the device is written directly).
class TestBacklight : public QObject
{
    Q_OBJECT
private slots:
    void noDevice();
    void deviceOrder();
    void unusableDevicesAreSkipped();
    void percentTruncates();
    void actualLevelPreferred();
    void levelsRoundUpAndStayInRange();
    void platformWritesTheDevice();
    void pollEmitsOnChangesOnly();
    void stopPollingBeforeStartLogs();
    void pollingFollowsTheClients();
};

void TestBacklight::noDevice()
{
    QTemporaryDir root;
    const Backlight backlight(root.path());
    QVERIFY(!backlight.isAvailable());
    QCOMPARE(backlight.percent(), -1);
    QVERIFY(!backlight.write(5));

    // The platform lists "b" as unsupported and never polls, so leaving logs nothing.
    qputenv("VELM_SYSFS_ROOT", root.path().toUtf8());
    LinuxPlatform platform;
    QVERIFY(platform.getUnsupported().contains(L::brightness));
    QCOMPARE(platform.getBrightness(), 0);
    QSignalSpy changes(&platform, &Platform::brightnessChanged);
    platform.setBrightness(50);
    LogCapture log;
    platform.setActive(true);
    platform.setActive(false);
    QCOMPARE(log.count(QStringLiteral("timer is null")), 0);
    QCOMPARE(changes.count(), 0);
}

void TestBacklight::deviceOrder()
{
    QTemporaryDir root;
    addDevice(root, QStringLiteral("a_raw"), "raw", 100, 1);
    addDevice(root, QStringLiteral("b_platform"), "platform", 100, 2);
    addDevice(root, QStringLiteral("c_unknown"), QByteArray(), 100, 3);
    QCOMPARE(Backlight(root.path()).name(), QStringLiteral("b_platform"));
    addDevice(root, QStringLiteral("z_firmware"), "firmware", 100, 4);
    QCOMPARE(Backlight(root.path()).name(), QStringLiteral("z_firmware"));
}

void TestBacklight::unusableDevicesAreSkipped()
{
    QTemporaryDir root;
    addDevice(root, QStringLiteral("broken"), "firmware", 0, 0);
    writeFile(root.filePath(QStringLiteral("class/backlight/garbled/max_brightness")), "lots\n");
    addDevice(root, QStringLiteral("panel"), "raw", 255, 51);
    const Backlight backlight(root.path());
    QCOMPARE(backlight.name(), QStringLiteral("panel"));
    QCOMPARE(backlight.maximum(), 255);
    QCOMPARE(backlight.percent(), 20);
}

void TestBacklight::percentTruncates()
{
    QTemporaryDir root;
    addDevice(root, QStringLiteral("panel"), "raw", 1000, 333);
    const Backlight backlight(root.path());
    QCOMPARE(backlight.percent(), 33);
    writeFile(root.filePath(QStringLiteral("class/backlight/panel/brightness")), "999\n");
    QCOMPARE(backlight.percent(), 99);
    writeFile(root.filePath(QStringLiteral("class/backlight/panel/brightness")), "1000\n");
    QCOMPARE(backlight.percent(), 100);
    writeFile(root.filePath(QStringLiteral("class/backlight/panel/brightness")), "junk\n");
    QCOMPARE(backlight.percent(), -1);
}

void TestBacklight::actualLevelPreferred()
{
    QTemporaryDir root;
    addDevice(root, QStringLiteral("panel"), "raw", 200, 100);
    writeFile(root.filePath(QStringLiteral("class/backlight/panel/actual_brightness")), "20\n");
    QCOMPARE(Backlight(root.path()).percent(), 10);
}

void TestBacklight::levelsRoundUpAndStayInRange()
{
    QTemporaryDir root;
    addDevice(root, QStringLiteral("panel"), "raw", 937, 0);
    const Backlight backlight(root.path());
    QCOMPARE(backlight.levelFor(50), 469u); // 468.5
    QCOMPARE(backlight.levelFor(0), 0u);
    QCOMPARE(backlight.levelFor(100), 937u);
    // The hardware has no levels outside its range.
    QCOMPARE(backlight.levelFor(150), 937u);
    QCOMPARE(backlight.levelFor(-20), 0u);
    // Every percentage reads back as itself.
    for (int percent = 0; percent <= 100; ++percent) {
        QVERIFY(backlight.write(backlight.levelFor(percent)));
        QCOMPARE(backlight.percent(), percent);
    }
}

void TestBacklight::platformWritesTheDevice()
{
    QTemporaryDir root;
    addDevice(root, QStringLiteral("panel"), "raw", 15, 6);
    qputenv("VELM_SYSFS_ROOT", root.path().toUtf8());
    LinuxPlatform platform;
    platform.init();
    QVERIFY(!platform.getUnsupported().contains(L::brightness));
    QCOMPARE(platform.getBrightness(), 40);
    QSignalSpy changes(&platform, &Platform::brightnessChanged);
    platform.setBrightness(50);
    // Without logind the device is written directly, and the new value is announced at once.
    QTRY_COMPARE(changes.count(), 1);
    QCOMPARE(readFile(root.filePath(QStringLiteral("class/backlight/panel/brightness"))),
        QByteArray("8"));
    QCOMPARE(platform.getBrightness(), 53);
}

void TestBacklight::pollEmitsOnChangesOnly()
{
    QTemporaryDir root;
    addDevice(root, QStringLiteral("panel"), "raw", 100, 30);
    qputenv("VELM_SYSFS_ROOT", root.path().toUtf8());
    LinuxPlatform platform;
    QSignalSpy changes(&platform, &Platform::brightnessChanged);
    platform.poll();
    QCOMPARE(changes.count(), 1);
    platform.poll();
    QCOMPARE(changes.count(), 1);
    writeFile(root.filePath(QStringLiteral("class/backlight/panel/brightness")), "31\n");
    platform.poll();
    QCOMPARE(changes.count(), 2);
    QCOMPARE(platform.getBrightness(), 31);
}

void TestBacklight::stopPollingBeforeStartLogs()
{
    QTemporaryDir root;
    addDevice(root, QStringLiteral("panel"), "raw", 100, 30);
    qputenv("VELM_SYSFS_ROOT", root.path().toUtf8());
    LinuxPlatform platform;
    LogCapture log;
    platform.stopPolling();
    QCOMPARE(log.count(QStringLiteral("timer is null")), 1);
    // Likewise when the last client leaves before any came.
    platform.setActive(false);
    QCOMPARE(log.count(QStringLiteral("timer is null")), 2);
}

void TestBacklight::pollingFollowsTheClients()
{
    QTemporaryDir root;
    addDevice(root, QStringLiteral("panel"), "raw", 100, 30);
    qputenv("VELM_SYSFS_ROOT", root.path().toUtf8());
    LinuxPlatform platform;
    QSignalSpy changes(&platform, &Platform::brightnessChanged);
    platform.setActive(true);
    QTRY_COMPARE(changes.count(), 1);
    writeFile(root.filePath(QStringLiteral("class/backlight/panel/brightness")), "45\n");
    QTRY_COMPARE(changes.count(), 2);
    QCOMPARE(platform.getBrightness(), 45);
    LogCapture log;
    platform.setActive(false);
    QCOMPARE(log.count(QStringLiteral("timer is null")), 0);
}

QTEST_MAIN(TestBacklight)
#include "tst_backlight.moc"

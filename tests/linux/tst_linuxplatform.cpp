#include "app.h"
#include "core.h"
#include "fileservices.h"
#include "idle.h"
#include "l.h"
#include "linuxapp.h"
#include "linuxplatform.h"
#include "logcapture.h"
#include "protocolclient.h"
#include "pulseaudio.h"
#include "server.h"
#include "serverfixture.h"
#include "soundserver.h"
#include "testenvironment.h"
#include "testfiles.h"
#include "windowsession.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QImage>
#include <QJsonArray>
#include <QProcess>
#include <QSaveFile>
#include <QSettings>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QUrl>
#include <QtTest>

#include <unistd.h>

namespace {
QTemporaryDir *dataHome = nullptr;
QTemporaryDir *configHome = nullptr;
const QString noSoundServer
    = QStringLiteral("No sound server is running: volume and mute wait for one to start");
QTemporaryDir *files = nullptr;

QString applicationsDir() { return dataHome->filePath(QStringLiteral("applications")); }

// A desktop entry for an application that records its arguments, one per line, in
// <files>/<id>.argv.
void writeDesktopFile(const QString &id, const QString &name, const QString &extra = QString())
{
    const QString recorder = files->filePath(QStringLiteral("record.sh"));
    QFile file(applicationsDir() + QLatin1Char('/') + id + QStringLiteral(".desktop"));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(QStringLiteral("[Desktop Entry]\nType=Application\nName=%1\nExec=%2 %3 %U\n%4")
                   .arg(name, recorder, id, extra)
                   .toUtf8());
}

void updateMimeCache()
{
    QCOMPARE(
        QProcess::execute(QStringLiteral("update-desktop-database"), { applicationsDir() }), 0);
}

QImage makeImage(int width, int height, const QString &path, const char *format)
{
    QImage image(width, height, QImage::Format_RGB32);
    image.fill(Qt::blue);
    image.save(path, format);
    return image;
}
} // namespace

// The Linux platform on real desktop entries, real files and GIO.
class TestLinuxPlatform : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanupTestCase();

    void installedAppsFromDesktopEntries();
    void newDesktopEntryIsPickedUp();
    void windowsOfOneInterpreterMatchTheirOwnEntries();
    void previews_data();
    void previews();
    void iconsAlwaysComeBack();
    void specialFilesAreNeverRead();
    void picturesThatCostTooMuchHaveNoPreview();
    void appsForFileAndOpen();
    void autostartEntry();
    void unsupportedIsHonest();
    void withoutXWindowOperationsDoNothing();
    void idleWithoutScreenSaverLogsOnce();
    void noSoundServerIsSaidInWords();
    void soundServerStartingLaterIsFound();
    void configurationNamingAServerIsNoticed();
    void namedServerThatDoesNotAnswerIsAskedAgain();
    void sessionActionsWithoutServices();
    void installedAppsOverTheWire();

private:
    QString typeOf(const QString &path) const { return platform->fileServices()->typeOfFile(path); }

    LinuxPlatform *platform = nullptr;
};

void TestLinuxPlatform::initTestCase()
{
    dataHome = new QTemporaryDir;
    configHome = new QTemporaryDir;
    files = new QTemporaryDir;
    qputenv("XDG_DATA_HOME", dataHome->path().toUtf8());
    qputenv("XDG_CONFIG_HOME", configHome->path().toUtf8());
    // A sysfs without backlights, whatever this machine has.
    qputenv("VELM_SYSFS_ROOT", files->path().toUtf8());
    QVERIFY(QDir().mkpath(applicationsDir()));
    QFile recorder(files->filePath(QStringLiteral("record.sh")));
    QVERIFY(recorder.open(QIODevice::WriteOnly));
    recorder.write("#!/bin/sh\nid=\"$1\"\nshift\nfor a in \"$@\"; do echo \"$a\"; done > "
                   "\"$(dirname \"$0\")/$id.argv\"\n");
    recorder.close();
    recorder.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    makeImage(64, 64, files->filePath(QStringLiteral("icon.png")), "PNG");

    writeDesktopFile(QStringLiteral("org.velm.Zebra"), QStringLiteral("Zebra Tool"),
        QStringLiteral("MimeType=text/plain;\nIcon=%1\n")
            .arg(files->filePath(QStringLiteral("icon.png"))));
    writeDesktopFile(QStringLiteral("org.velm.Bundle"), QStringLiteral("Alpha.app"),
        QStringLiteral("MimeType=text/plain;image/png;\n"));
    writeDesktopFile(QStringLiteral("org.velm.Loud"), QStringLiteral("Beta.APP"));
    writeDesktopFile(QStringLiteral("org.velm.Hidden"), QStringLiteral("Hidden"),
        QStringLiteral("NoDisplay=true\n"));
    updateMimeCache();

    TestEnvironment::setUp();
    platform = new LinuxPlatform;
    QSignalSpy ready(platform, &Platform::ready);
    platform->init();
    QCOMPARE(ready.size(), 1);
    // Nothing is read for clients before the first one arrives.
    QVERIFY(platform->getInstalledApps().isEmpty());
    QSignalSpy changed(platform, &Platform::installedAppsChanged);
    platform->setActive(true);
    QCOMPARE(changed.size(), 1);
    QVERIFY(platform->appforId(QStringLiteral("org.velm.Zebra")));
    // Activated again (the last client left and another came), the list is not read again: it
    // is watched.
    platform->setActive(false);
    platform->setActive(true);
    QCOMPARE(changed.size(), 1);
}

void TestLinuxPlatform::cleanupTestCase()
{
    delete platform;
    delete files;
    delete configHome;
    delete dataHome;
}

void TestLinuxPlatform::installedAppsFromDesktopEntries()
{
    App *zebra = platform->appforId(QStringLiteral("org.velm.Zebra"));
    App *bundle = platform->appforId(QStringLiteral("org.velm.Bundle"));
    App *loud = platform->appforId(QStringLiteral("org.velm.Loud"));
    QVERIFY(zebra && bundle && loud);
    QVERIFY(!platform->appforId(QStringLiteral("org.velm.Hidden")));
    QCOMPARE(zebra->name, QStringLiteral("Zebra Tool"));
    QCOMPARE(bundle->name, QStringLiteral("Alpha"));
    QCOMPARE(loud->name, QStringLiteral("Beta.APP"));
    QCOMPARE(zebra->path, applicationsDir() + QStringLiteral("/org.velm.Zebra.desktop"));
    QVERIFY(!zebra->icon.isNull());
    QCOMPARE(zebra->icon.pixmap(48, 48).size(), QSize(48, 48));
    // Ordered by display name.
    const QVector<App *> &installed = platform->getInstalledApps();
    QVERIFY(installed.indexOf(bundle) < installed.indexOf(loud));
    QVERIFY(installed.indexOf(loud) < installed.indexOf(zebra));
    for (int i = 1; i < installed.size(); ++i)
        QVERIFY(!App::nameComparator(installed.at(i), installed.at(i - 1)));
}

void TestLinuxPlatform::newDesktopEntryIsPickedUp()
{
    QSignalSpy changed(platform, &Platform::installedAppsChanged);
    writeDesktopFile(QStringLiteral("org.velm.Fresh"), QStringLiteral("Fresh"));
    QTRY_VERIFY_WITH_TIMEOUT(
        platform->appforId(QStringLiteral("org.velm.Fresh")) != nullptr, 15000);
    QVERIFY(changed.size() >= 1);
    QCOMPARE(platform->appforId(QStringLiteral("org.velm.Fresh"))->name, QStringLiteral("Fresh"));
}

void TestLinuxPlatform::windowsOfOneInterpreterMatchTheirOwnEntries()
{
    // A script that waits: as sh runs it, or as the kernel runs it for its first line. Entries
    // that run it through the interpreter differ only in the words after it.
    const QString script = files->filePath(QStringLiteral("serve.sh"));
    QFile serve(script);
    QVERIFY(serve.open(QIODevice::WriteOnly));
    serve.write("#!/bin/sh\nread line\n");
    serve.close();
    serve.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    auto entry = [&](const QString &id, const QString &exec) {
        QFile file(applicationsDir() + QLatin1Char('/') + id + QStringLiteral(".desktop"));
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(QStringLiteral("[Desktop Entry]\nType=Application\nName=%1\nExec=%2\n")
                       .arg(id, exec)
                       .toUtf8());
    };
    entry(QStringLiteral("org.velm.ServeOne"), QStringLiteral("sh %1 one %F").arg(script));
    entry(QStringLiteral("org.velm.ServeTwo"), QStringLiteral("sh %1 two").arg(script));
    entry(QStringLiteral("org.velm.ServeItself"), QStringLiteral("%1 three %u").arg(script));
    QTRY_VERIFY_WITH_TIMEOUT(platform->appforId(QStringLiteral("org.velm.ServeOne"))
            && platform->appforId(QStringLiteral("org.velm.ServeTwo"))
            && platform->appforId(QStringLiteral("org.velm.ServeItself")),
        15000);

    auto matched = [&](QProcess &process) -> QString {
        DesktopWindow window;
        window.regular = true;
        window.pid = int(process.processId());
        // What a window known only from the accessibility bus carries: the program's name.
        window.className = window.instanceName = "dash";
        const LinuxApp *app = platform->matchWindow(window);
        return app ? app->id : QString();
    };
    QProcess two, itself, other;
    two.start(QStringLiteral("/bin/sh"), { script, QStringLiteral("two"), QStringLiteral("x") });
    itself.start(script, { QStringLiteral("three"), files->filePath(QStringLiteral("icon.png")) });
    other.start(QStringLiteral("/bin/sh"), { script, QStringLiteral("four") });
    QVERIFY(two.waitForStarted() && itself.waitForStarted() && other.waitForStarted());
    QCOMPARE(matched(two), QStringLiteral("org.velm.ServeTwo"));
    QCOMPARE(matched(itself), QStringLiteral("org.velm.ServeItself"));
    // Run by the same interpreter, but from no entry: none of them.
    QCOMPARE(matched(other), QString());
    for (QProcess *process : { &two, &itself, &other }) {
        process->closeWriteChannel();
        QVERIFY(process->waitForFinished(5000));
    }
}

void TestLinuxPlatform::previews_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QSize>("source");
    QTest::addColumn<QSize>("asked");
    QTest::addColumn<QSize>("expected");
    QTest::newRow("large image fits")
        << QStringLiteral("large.jpg") << QSize(4000, 3000) << QSize(400, 400) << QSize(400, 300);
    QTest::newRow("small image unscaled")
        << QStringLiteral("small.png") << QSize(100, 100) << QSize(400, 400) << QSize(100, 100);
    QTest::newRow("upper-case extension")
        << QStringLiteral("photo.PNG") << QSize(80, 60) << QSize(40, 40) << QSize(40, 30);
    QTest::newRow("text file") << QStringLiteral("notes.txt") << QSize() << QSize(100, 100)
                               << QSize();
    QTest::newRow("pdf") << QStringLiteral("paper.pdf") << QSize() << QSize(100, 100) << QSize();
    QTest::newRow("no extension") << QStringLiteral("README") << QSize(50, 50) << QSize(100, 100)
                                  << QSize();
    QTest::newRow("ends with a dot")
        << QStringLiteral("archive.") << QSize(50, 50) << QSize(100, 100) << QSize();
}

void TestLinuxPlatform::previews()
{
    QFETCH(QString, name);
    QFETCH(QSize, source);
    QFETCH(QSize, asked);
    QFETCH(QSize, expected);
    const QString path = files->filePath(name);
    if (source.isValid()) {
        makeImage(source.width(), source.height(), path,
            name.endsWith(QLatin1String("jpg")) ? "JPG" : "PNG");
    } else {
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(name.endsWith(QLatin1String("pdf")) ? "%PDF-1.4\n%%EOF\n" : "plain text\n");
    }
    const QImage preview
        = platform->fileServices()->previewForFile(path, asked.width(), asked.height());
    if (expected.isValid())
        QCOMPARE(preview.size(), expected);
    else
        QVERIFY(preview.isNull());
}

void TestLinuxPlatform::iconsAlwaysComeBack()
{
    const QString text = files->filePath(QStringLiteral("icons.txt"));
    QFile(text).open(QIODevice::WriteOnly);
    for (int size : { 16, 48, 128 }) {
        const QPixmap forFile = platform->iconForFileType(typeOf(text), size);
        QVERIFY(!forFile.isNull());
        QVERIFY(forFile.width() <= size && forFile.height() <= size);
        QVERIFY(!platform->iconForFileType(typeOf(files->path()), size).isNull());
        // A file that is not there has no type, and still an icon.
        QVERIFY(!platform->iconForFileType(typeOf(files->filePath(QStringLiteral("gone"))), size)
                     .isNull());
        for (const char *type : { "png", ".pdf", "image/jpeg", "no-such-type-at-all" }) {
            const QPixmap forType = platform->iconForFileType(QString::fromLatin1(type), size);
            QVERIFY2(!forType.isNull(), type);
            QVERIFY(forType.width() <= size);
        }
    }
}

void TestLinuxPlatform::specialFilesAreNeverRead()
{
    // Named like pictures, so that nothing but their kind keeps them from being opened.
    const QString fifo = files->filePath(QStringLiteral("pipe.png"));
    QVERIFY(TestFiles::makeFifo(fifo));
    const QString socket = files->filePath(QStringLiteral("socket.png"));
    const int fd = TestFiles::bindSocket(socket);
    QVERIFY(fd >= 0);
    const QString zero = files->filePath(QStringLiteral("zero.png"));
    QVERIFY(QFile::link(QStringLiteral("/dev/zero"), zero));
    // Opening the pipe for reading would wait for a writer for good; reading /dev/zero never
    // ends. Each answer is there at once.
    const QHash<QString, QString> types { { fifo, QStringLiteral("inode/fifo") },
        { socket, QStringLiteral("inode/socket") }, { zero, QStringLiteral("inode/chardevice") },
        { QStringLiteral("/dev/zero"), QStringLiteral("inode/chardevice") } };
    for (auto type = types.cbegin(); type != types.cend(); ++type) {
        QCOMPARE(typeOf(type.key()), type.value());
        QVERIFY(platform->fileServices()->previewForFile(type.key(), 100, 100).isNull());
        QVERIFY(!platform->iconForFileType(typeOf(type.key()), 32).isNull());
    }
    ::close(fd);
}

void TestLinuxPlatform::picturesThatCostTooMuchHaveNoPreview()
{
    FileServices *services = platform->fileServices().get();
    const QString bomb = files->filePath(QStringLiteral("bomb.png"));
    QVERIFY(TestFiles::writePngDeclaring(bomb, 20000, 20000));
    QVERIFY(QFileInfo(bomb).size() < 2 * 1024 * 1024);
    QElapsedTimer clock;
    clock.start();
    QVERIFY(services->previewForFile(bomb, 200, 200).isNull());
    // Refused from its header, not after decoding (which takes seconds).
    QVERIFY2(clock.elapsed() < 1000, qPrintable(QString::number(clock.elapsed())));
    // A smaller one of the same kind is fine.
    const QString fair = files->filePath(QStringLiteral("fair.png"));
    QVERIFY(TestFiles::writePngDeclaring(fair, 3000, 2000));
    QCOMPARE(services->previewForFile(fair, 300, 300).size(), QSize(300, 200));

    const QString truncated = files->filePath(QStringLiteral("truncated.png"));
    QVERIFY(TestFiles::writeTruncatedPng(truncated, 800, 600));
    const QImage partial = services->previewForFile(truncated, 100, 100);
    // What was read may be shown, within the asked size; it never fails harder than that.
    QVERIFY(partial.isNull() || (partial.width() <= 100 && partial.height() <= 100));

    // A 50-megapixel photograph is decoded at a fraction of its size.
    const QString photo = files->filePath(QStringLiteral("photo.jpg"));
    QVERIFY(TestFiles::writeJpeg(photo, 8660, 5774));
    QCOMPARE(services->previewForFile(photo, 200, 200).size(), QSize(200, 133));
    // Asked at its full size, it would take more than a preview is allowed.
    QVERIFY(services->previewForFile(photo, 10000, 10000).isNull());
    // Nothing fits into no room.
    QVERIFY(services->previewForFile(photo, 0, 0).isNull());
}

void TestLinuxPlatform::appsForFileAndOpen()
{
    const QString text = files->filePath(QStringLiteral("open me.txt"));
    QFile file(text);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("hello\n");
    file.close();
    QCOMPARE(typeOf(text), QStringLiteral("text/plain"));
    QVector<App *> apps = platform->appsForFileType(typeOf(text));
    QStringList ids;
    for (App *app : apps)
        ids << app->id;
    QVERIFY2(
        ids.contains(QStringLiteral("org.velm.Zebra")), qPrintable(ids.join(QLatin1Char(','))));
    QVERIFY(ids.contains(QStringLiteral("org.velm.Bundle")));
    QVERIFY(!ids.contains(QStringLiteral("org.velm.Loud")));
    QCOMPARE(typeOf(files->filePath(QStringLiteral("missing.txt"))), QString());
    QVERIFY(platform->appsForFileType(QString()).isEmpty());

    const QString argv = files->filePath(QStringLiteral("org.velm.Zebra.argv"));
    platform->openFile(text, QString(), QStringLiteral("org.velm.Zebra"));
    auto recorded = [&argv] {
        QFile file(argv);
        return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()).trimmed()
                                              : QString();
    };
    QTRY_VERIFY_WITH_TIMEOUT(!recorded().isEmpty(), 10000);
    const QString argument = recorded();
    QVERIFY2(argument == text || QUrl(argument).toLocalFile() == text, qPrintable(argument));

    // An id that is not installed does nothing.
    platform->openFile(text, QString(), QStringLiteral("org.velm.Nobody"));

    // Without an id, the default application for the type opens it.
    QFile::remove(argv);
    QFile::remove(files->filePath(QStringLiteral("org.velm.Bundle.argv")));
    platform->openFile(text, typeOf(text), QString());
    QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(argv)
            || QFile::exists(files->filePath(QStringLiteral("org.velm.Bundle.argv"))),
        10000);
    LogCapture log;
    platform->openFile(files->filePath(QStringLiteral("missing.txt")), QString(), QString());
    QCOMPARE(log.count(QStringLiteral("Cannot open")), 1);
}

void TestLinuxPlatform::autostartEntry()
{
    const QString entry = LinuxPlatform::autostartFile();
    QVERIFY(
        entry.startsWith(qEnvironmentVariable("XDG_CONFIG_HOME") + QStringLiteral("/autostart/")));
    platform->setAutostart(true);
    QVERIFY(QFile::exists(entry));
    QSettings desktop(entry, QSettings::IniFormat);
    desktop.beginGroup(QStringLiteral("Desktop Entry"));
    QCOMPARE(
        desktop.value(QStringLiteral("Exec")).toString(), QCoreApplication::applicationFilePath());
    QCOMPARE(desktop.value(QStringLiteral("Type")).toString(), QStringLiteral("Application"));
    platform->setAutostart(false);
    QVERIFY(!QFile::exists(entry));
}

void TestLinuxPlatform::unsupportedIsHonest()
{
    const QStringList unsupported = platform->getUnsupported();
    // No backlight, no sound server, no logind, no screen saver, no media player and no X
    // server here: none of what they serve is offered.
    for (const QString &code : { L::brightness, L::volume, L::volumeMute, L::screenLock, L::appMenu,
             L::keySequence, L::sleep, L::restart, L::shutdown, L::logout, L::playPause,
             L::nextTrack, L::previousTrack })
        QVERIFY2(unsupported.contains(code), qPrintable(code));
    for (const QString &code : { L::installedApps, L::appIcon, L::directoryListing, L::fileIcon,
             L::filePreview, L::fileOpen, L::fileApps, L::unsupported })
        QVERIFY2(!unsupported.contains(code), qPrintable(code));
    // This process has no X server (offscreen): windows, the front application and input are
    // out of reach; starting applications ("aa") still works through GIO.
    for (const QString &code : { L::currentApp, L::closeApp, L::quitApp, L::toggleMinimizeApp,
             L::toggleMaximizeApp, L::toggleFullscreenApp, L::appScroll, L::keySequence })
        QVERIFY2(unsupported.contains(code), qPrintable(code));
    QVERIFY(!unsupported.contains(L::activateApp));
    QVERIFY(!platform->session());
    // No accessibility bus either: menus and fields are out of reach, and the user is told.
    for (const QString &code :
        { L::appMenu, L::performMenu, L::focusValue, L::performFocus, L::focusedElement })
        QVERIFY2(unsupported.contains(code), qPrintable(code));
    QVERIFY(!platform->permissionsGranted());
}

void TestLinuxPlatform::withoutXWindowOperationsDoNothing()
{
    auto *app = qobject_cast<LinuxApp *>(platform->getInstalledApps().first());
    QVERIFY(app);
    QVERIFY(!app->session);
    LogCapture log;
    app->close();
    app->toggleMiniminize();
    app->toggleMaximize();
    app->toggleFullscreen();
    QVERIFY(!app->supportsFullscreen());
    app->scroll(0, 5);
    app->performKeySequence(QStringLiteral("Ctrl+c"));
    app->quit();
    QCOMPARE(log.lines().filter(QStringLiteral("No running application for")).size(), 1);
    QVERIFY(!app->running);
    platform->setActive(true);
    QVERIFY(platform->getRunningApps().isEmpty());
    QCOMPARE(platform->getCurrentApp(), nullptr);
}

void TestLinuxPlatform::idleWithoutScreenSaverLogsOnce()
{
    // This process has no session bus, so no ScreenSaver service.
    LogCapture log;
    QVERIFY(!Idle::preventDisplaySleep(QStringLiteral("test")));
    QVERIFY(!Idle::preventDisplaySleep(QStringLiteral("test")));
    QVERIFY(!Idle::allowDisplaySleep());
    QCOMPARE(log.count(QStringLiteral("Cannot keep the display awake")), 1);
}

void TestLinuxPlatform::noSoundServerIsSaidInWords()
{
    // No server named, none where one would be, and no D-Bus on which the sound server's
    // library could wait for one: the program says so once and watches for one.
    QTemporaryDir runtime;
    const TestEnvironment::Variable server("PULSE_SERVER", QByteArray());
    const TestEnvironment::Variable pulseRuntime("PULSE_RUNTIME_PATH", runtime.path().toUtf8());
    const TestEnvironment::Variable xdgRuntime("XDG_RUNTIME_DIR", runtime.path().toUtf8());
    const TestEnvironment::Variable display("DISPLAY", QByteArray());
    LogCapture log;
    PulseAudio audio;
    QTRY_COMPARE(log.count(noSoundServer), 1);
    QVERIFY(!audio.isAvailable());
    QCOMPARE(log.count(QStringLiteral("Cannot connect to the sound server")), 0);
    // Nothing names a server: what could is watched, and nothing is polled.
    QVERIFY(!audio.isPolling());
    QVERIFY(audio.watchedFolders().contains(QFileInfo(runtime.path()).absoluteFilePath()));
    QVERIFY2(audio.watchedFolders().contains(QStringLiteral("/etc/pulse"))
            || audio.watchedFolders().contains(QStringLiteral("/etc")),
        qPrintable(audio.watchedFolders().join(QLatin1Char(' '))));
}

void TestLinuxPlatform::configurationNamingAServerIsNoticed()
{
    // No server where the program looks, and no D-Bus: then a server starts somewhere else and
    // the user's client configuration is written to name it, folder and all. Nothing polls for
    // it; the configuration appearing is what is noticed.
    QTemporaryDir root;
    const QString home = root.filePath(QStringLiteral("home"));
    const QString config = home + QStringLiteral("/.config");
    QVERIFY(QDir().mkpath(config));
    const TestEnvironment::Variable homeHere("HOME", home.toUtf8());
    const TestEnvironment::Variable server("PULSE_SERVER", QByteArray());
    const TestEnvironment::Variable clientConfig("PULSE_CLIENTCONFIG", QByteArray());
    const TestEnvironment::Variable configPath("PULSE_CONFIG_PATH", QByteArray());
    const TestEnvironment::Variable pulseRuntime(
        "PULSE_RUNTIME_PATH", root.filePath(QStringLiteral("nowhere")).toUtf8());
    const TestEnvironment::Variable xdgRuntime("XDG_RUNTIME_DIR", root.path().toUtf8());
    const TestEnvironment::Variable display("DISPLAY", QByteArray());
    LogCapture log;
    PulseAudio audio;
    QTRY_COMPARE(log.count(noSoundServer), 1);
    QVERIFY(!audio.isPolling());
    QVERIFY(audio.watchedFolders().contains(QFileInfo(config).absoluteFilePath()));

    const QString elsewhere = root.filePath(QStringLiteral("elsewhere"));
    QVERIFY(QDir().mkpath(root.filePath(QStringLiteral("daemon"))));
    QVERIFY(QDir().mkpath(elsewhere));
    SoundServer daemon;
    QVERIFY(daemon.start(
        root.filePath(QStringLiteral("daemon")), elsewhere, QStringLiteral("velm_configured")));
    QVERIFY(!audio.isAvailable());
    QVERIFY(QDir().mkpath(config + QStringLiteral("/pulse")));
    QSaveFile file(config + QStringLiteral("/pulse/client.conf"));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("# written while the program waits\ndefault-server = unix:"
        + QFile::encodeName(elsewhere) + "/native\n");
    QVERIFY(file.commit());
    QTRY_VERIFY_WITH_TIMEOUT(audio.isAvailable(), 10000);
    QVERIFY(!audio.isPolling());
    QVERIFY(audio.watchedFolders().isEmpty());
    QVERIFY(audio.watchedFiles().isEmpty());
    QVERIFY(daemon.stop());
}

void TestLinuxPlatform::namedServerThatDoesNotAnswerIsAskedAgain()
{
    // A server is named but nothing answers there: only asking again now and then can find it.
    QTemporaryDir root;
    const TestEnvironment::Variable server("PULSE_SERVER",
        QByteArray("unix:") + QFile::encodeName(root.filePath(QStringLiteral("none"))));
    const TestEnvironment::Variable pulseRuntime(
        "PULSE_RUNTIME_PATH", root.filePath(QStringLiteral("pulse")).toUtf8());
    const TestEnvironment::Variable xdgRuntime("XDG_RUNTIME_DIR", root.path().toUtf8());
    const TestEnvironment::Variable display("DISPLAY", QByteArray());
    LogCapture log;
    PulseAudio audio;
    QTRY_COMPARE(log.count(QStringLiteral("Sound server connection lost Connection refused")), 1);
    QVERIFY(audio.isPolling());
    // Asked less and less often: again after 1 s, then 2 s, then 4 s; and said once.
    QTRY_COMPARE_WITH_TIMEOUT(audio.retryInterval(), 4000, 10000);
    QCOMPARE(log.count(QStringLiteral("Sound server connection lost Connection refused")), 1);
    QCOMPARE(log.count(QStringLiteral("Cannot connect to the sound server Connection refused")), 0);
    QVERIFY(audio.isPolling());
    QVERIFY(!audio.isAvailable());
}

void TestLinuxPlatform::soundServerStartingLaterIsFound()
{
    // As above, and then a server starts: its socket appearing is what is waited for (the poll
    // for servers named elsewhere comes far later than this test waits).
    QVERIFY(PulseAudio::serverPollInterval >= 30000);
    QTemporaryDir root;
    const QString runtime = root.filePath(QStringLiteral("pulse"));
    const TestEnvironment::Variable server("PULSE_SERVER", QByteArray());
    const TestEnvironment::Variable pulseRuntime("PULSE_RUNTIME_PATH", runtime.toUtf8());
    const TestEnvironment::Variable xdgRuntime("XDG_RUNTIME_DIR", root.path().toUtf8());
    const TestEnvironment::Variable display("DISPLAY", QByteArray());
    LogCapture log;
    PulseAudio audio;
    QTRY_COMPARE(log.count(noSoundServer), 1);
    // The server's folder, or while it is not there, the one it will be made in.
    const QStringList watched = audio.watchedFolders();
    QVERIFY2(watched.contains(runtime) || watched.contains(root.path()),
        qPrintable(watched.join(QLatin1Char(' '))));

    SoundServer daemon;
    QVERIFY(daemon.start(root.path(), runtime, QStringLiteral("velm_later")));
    QTRY_VERIFY_WITH_TIMEOUT(audio.isAvailable(), 10000);
    QVERIFY(audio.watchedFolders().isEmpty());
    QVERIFY(daemon.stop());
}

void TestLinuxPlatform::installedAppsOverTheWire()
{
    QSettings().setValue(QStringLiteral("preventSleep"), false);
    Core core(new LinuxPlatform);
    core.start();
    QVERIFY(core.server);
    QTRY_VERIFY(core.server->handler(L::appIcon));
    Pairing::authorize(QStringLiteral("phone"), QStringLiteral("tok"));
    ProtocolClient client(QStringLiteral("phone"));
    QVERIFY(Pairing::connectAuthenticated(client, listeningPort(core.server)));
    client.send(QJsonObject { { L::method, L::installedApps } });
    QTRY_VERIFY(!client.framesWith(L::installedApps).isEmpty());
    bool found = false;
    for (const QJsonValue &app :
        client.framesWith(L::installedApps).last().object().value(L::apps).toArray()) {
        if (app.toObject().value(L::id).toString() == QLatin1String("org.velm.Zebra")) {
            found = true;
            QCOMPARE(app.toObject().value(L::name).toString(), QStringLiteral("Zebra Tool"));
        }
    }
    QVERIFY(found);
    client.send(QJsonObject {
        { L::method, L::appIcon }, { L::id, QStringLiteral("org.velm.Zebra") }, { L::size, 64 } });
    QTRY_COMPARE(client.framesWith(L::appIcon).size(), 1);
    QImage icon;
    QVERIFY(icon.loadFromData(client.framesWith(L::appIcon).at(0).parts.at(0).second, "PNG"));
    QCOMPARE(icon.size(), QSize(64, 64));
}

void TestLinuxPlatform::sessionActionsWithoutServices()
{
    // Nothing to act on: each says so (or quietly does nothing) and the program goes on.
    LogCapture log;
    platform->shutdown();
    platform->restart();
    platform->sleep();
    platform->logout();
    platform->lockScreen();
    platform->playPause();
    platform->nextTrack();
    platform->previousTrack();
    for (const QString &operation : { QStringLiteral("virtual void LinuxPlatform::shutdown()"),
             QStringLiteral("virtual void LinuxPlatform::restart()"),
             QStringLiteral("virtual void LinuxPlatform::sleep()") })
        QCOMPARE(log.count(operation + QStringLiteral(" no login manager")), 1);
    QCOMPARE(log.count(QStringLiteral("virtual void LinuxPlatform::logout() no login session")), 1);
    QCOMPARE(log.count(QStringLiteral("Cannot lock the screen: no session bus")), 1);
    QVERIFY(!platform->getScreenLocked());
    QVERIFY(!Idle::preventSystemSleep(QStringLiteral("Velm client connected")));
    QVERIFY(!Idle::allowSystemSleep());
}

QTEST_MAIN(TestLinuxPlatform)
#include "tst_linuxplatform.moc"

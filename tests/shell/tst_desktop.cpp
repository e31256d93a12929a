#include "testenvironment.h"

#include <QDir>
#include <QFile>
#include <QLabel>
#include <QProcess>
#include <QProcessEnvironment>
#include <QSettings>
#include <QTemporaryDir>
#include <QtTest>

namespace {
const QString serverPath = QStringLiteral(VELM_SERVER_EXECUTABLE);

// The X windows whose title is exactly `title`.
QStringList windowsNamed(const QString &title)
{
    QProcess search;
    search.start(QStringLiteral("xdotool"),
        { QStringLiteral("search"), QStringLiteral("--onlyvisible"), QStringLiteral("--name"),
            QLatin1Char('^') + QRegularExpression::escape(title) + QLatin1Char('$') });
    search.waitForFinished(5000);
    return QString::fromLatin1(search.readAllStandardOutput())
        .split(QLatin1Char('\n'), Qt::SkipEmptyParts);
}

// Whether a vendor's OpenGL library (Mesa's or another driver's) is mapped into a process.
bool openGlDriverLoaded(const QString &pid)
{
    QFile maps(QStringLiteral("/proc/%1/maps").arg(pid));
    if (!maps.open(QIODevice::ReadOnly))
        return false;
    const QByteArray text = maps.readAll();
    return text.contains("/libGLX_") || text.contains("_dri.so");
}
} // namespace

// The program as a user meets it on a desktop: started from the launcher, started again, its
// windows opened and closed.
class TestDesktop : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void cleanup();
    void startingAgainOpensPreferences();
    void closingTheLastWindowDoesNotQuit();
    void windowsLoadNoOpenGlDriver();

private:
    bool startPrimary();
    int startSecond();

    QTemporaryDir *home = nullptr;
    QProcessEnvironment environment;
    QProcess *primary = nullptr;
};

void TestDesktop::init()
{
    home = new QTemporaryDir;
    environment = TestEnvironment::isolatedProgram(home->path());
    // A welcome already dismissed: the only windows are the ones the test opens.
    QSettings settings(
        home->filePath(QStringLiteral("config/Velm/velm-server.conf")), QSettings::IniFormat);
    settings.setValue(QStringLiteral("welcome"), true);
    settings.setValue(QStringLiteral("autoStart"), false);
    settings.sync();
}

void TestDesktop::cleanup()
{
    if (primary) {
        primary->terminate();
        if (!primary->waitForFinished(5000))
            primary->kill();
        primary->waitForFinished(2000);
        delete primary;
        primary = nullptr;
    }
    delete home;
    home = nullptr;
}

bool TestDesktop::startPrimary()
{
    primary = new QProcess;
    primary->setProcessEnvironment(environment);
    primary->setProcessChannelMode(QProcess::ForwardedErrorChannel);
    primary->start(serverPath, QStringList());
    if (!primary->waitForStarted(5000))
        return false;
    // Its tray icon docks into the tray host: the program is up.
    return QTest::qWaitFor(
        [] {
            QProcess tree;
            tree.start(QStringLiteral("xdotool"),
                { QStringLiteral("search"), QStringLiteral("--class"),
                    QStringLiteral("velm-server") });
            tree.waitForFinished(5000);
            return !tree.readAllStandardOutput().trimmed().isEmpty();
        },
        15000);
}

int TestDesktop::startSecond()
{
    QProcess second;
    second.setProcessEnvironment(environment);
    second.start(serverPath, QStringList());
    if (!second.waitForFinished(15000))
        return -1;
    return second.exitStatus() == QProcess::NormalExit ? second.exitCode() : -1;
}

void TestDesktop::startingAgainOpensPreferences()
{
    QVERIFY(startPrimary());
    const QString title = QStringLiteral("Velm Server Preferences");
    QVERIFY(windowsNamed(title).isEmpty());
    QCOMPARE(startSecond(), 0);
    QTRY_COMPARE_WITH_TIMEOUT(windowsNamed(title).size(), 1, 10000);
    // Again: still one window, raised.
    QCOMPARE(startSecond(), 0);
    QCOMPARE(windowsNamed(title).size(), 1);
    QCOMPARE(primary->state(), QProcess::Running);
}

void TestDesktop::closingTheLastWindowDoesNotQuit()
{
    QVERIFY(startPrimary());
    const QString title = QStringLiteral("Velm Server Preferences");
    QCOMPARE(startSecond(), 0);
    QTRY_COMPARE_WITH_TIMEOUT(windowsNamed(title).size(), 1, 10000);
    // Closed as the title bar's close button does, through the window manager.
    QCOMPARE(QProcess::execute(QStringLiteral("wmctrl"),
                 { QStringLiteral("-i"), QStringLiteral("-c"), windowsNamed(title).first() }),
        0);
    QTRY_VERIFY_WITH_TIMEOUT(windowsNamed(title).isEmpty(), 10000);
    // Still the primary: a new start hands over to it and the dialog comes back, made anew.
    QCOMPARE(startSecond(), 0);
    QTRY_COMPARE_WITH_TIMEOUT(windowsNamed(title).size(), 1, 10000);
    QCOMPARE(primary->state(), QProcess::Running);
}

void TestDesktop::windowsLoadNoOpenGlDriver()
{
    QVERIFY(startPrimary());
    const QString title = QStringLiteral("Velm Server Preferences");
    QCOMPARE(startSecond(), 0);
    QTRY_COMPARE_WITH_TIMEOUT(windowsNamed(title).size(), 1, 10000);
    const QString pid = QString::number(primary->processId());
    QVERIFY(QFile::exists(QStringLiteral("/proc/%1/maps").arg(pid)));
    QVERIFY(!openGlDriverLoaded(pid));

    // What the check above would see otherwise: a window of this test's own, on the same
    // display, with Qt's defaults.
    QVERIFY(!openGlDriverLoaded(QStringLiteral("self")));
    QLabel window(QStringLiteral("Control"));
    window.show();
    QVERIFY(QTest::qWaitForWindowExposed(&window));
    QVERIFY(openGlDriverLoaded(QStringLiteral("self")));
}

QTEST_MAIN(TestDesktop)
#include "tst_desktop.moc"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QProcessEnvironment>
#include <QTemporaryDir>
#include <QtTest>

#include <csignal>

// The program as started from a shell.
class TestMain : public QObject
{
    Q_OBJECT
private slots:
    void logLinesNameTheirFunction();
    void startsWithoutTranslations();
    void quitsCleanlyOnSignal_data();
    void quitsCleanlyOnSignal();
};

void TestMain::logLinesNameTheirFunction()
{
    QTemporaryDir home;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("XDG_CONFIG_HOME"), home.path());
    environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    // No Avahi to talk to: the registration fails and the server logs it.
    environment.insert(QStringLiteral("DBUS_SYSTEM_BUS_ADDRESS"),
        QStringLiteral("unix:path=") + home.filePath(QStringLiteral("no-bus")));
    QProcess server;
    server.setProcessEnvironment(environment);
    server.start(QStringLiteral(VELM_SERVER_EXECUTABLE), QStringList());
    QVERIFY(server.waitForStarted());
    QByteArray output;
    // What the program printed is shown when it never gets there.
    QTRY_VERIFY2_WITH_TIMEOUT((output += server.readAllStandardError()).contains("ZeroConf error"),
        output.constData(), 20000);
    server.terminate();
    QVERIFY(server.waitForFinished(10000));
    const QList<QByteArray> lines = output.split('\n');
    QByteArray line;
    for (const QByteArray &candidate : lines) {
        if (candidate.contains("ZeroConf error"))
            line = candidate;
    }
    QCOMPARE(line, QByteArray("[Server::onZeroConfError] ZeroConf error -1"));
    // The port was chosen and remembered under the program's identity.
    QSettings settings(
        home.filePath(QStringLiteral("Velm/velm-server.conf")), QSettings::IniFormat);
    const uint port = settings.value(QStringLiteral("lastUsedPort")).toUInt();
    QVERIFY2(port >= 49152 && port <= 65535, qPrintable(QString::number(port)));
}

void TestMain::startsWithoutTranslations()
{
    // A copy of the program with no "locale" folder beside it and no bundle layout above it.
    QTemporaryDir place;
    const QString copy = place.filePath(QStringLiteral("bin/velm-server"));
    QVERIFY(QDir().mkpath(place.filePath(QStringLiteral("bin"))));
    QVERIFY(QFile::copy(QStringLiteral(VELM_SERVER_EXECUTABLE), copy));
    QVERIFY(!QFileInfo::exists(place.filePath(QStringLiteral("bin/locale"))));
    QVERIFY(!QFileInfo::exists(place.filePath(QStringLiteral("Resources/locale"))));
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("XDG_CONFIG_HOME"), place.filePath(QStringLiteral("config")));
    environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    environment.insert(QStringLiteral("LANG"), QStringLiteral("it_IT.UTF-8"));
    environment.insert(QStringLiteral("DBUS_SYSTEM_BUS_ADDRESS"),
        QStringLiteral("unix:path=") + place.filePath(QStringLiteral("no-bus")));
    QProcess server;
    server.setProcessEnvironment(environment);
    server.start(copy, QStringList());
    QVERIFY(server.waitForStarted());
    // It gets as far as serving: the port is chosen and the advertisement tried.
    QByteArray output;
    // What the program printed is shown when it never gets there.
    QTRY_VERIFY2_WITH_TIMEOUT((output += server.readAllStandardError()).contains("ZeroConf error"),
        output.constData(), 20000);
    QCOMPARE(server.state(), QProcess::Running);
    server.terminate();
    QVERIFY(server.waitForFinished(10000));
}

void TestMain::quitsCleanlyOnSignal_data()
{
    QTest::addColumn<int>("signal");
    QTest::newRow("logout (SIGTERM)") << int(SIGTERM);
    QTest::newRow("Ctrl+C (SIGINT)") << int(SIGINT);
    QTest::newRow("terminal closed (SIGHUP)") << int(SIGHUP);
}

void TestMain::quitsCleanlyOnSignal()
{
    QFETCH(int, signal);
    QTemporaryDir home;
    QTemporaryDir temp;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("XDG_CONFIG_HOME"), home.filePath(QStringLiteral("config")));
    environment.insert(QStringLiteral("XDG_CACHE_HOME"), home.filePath(QStringLiteral("cache")));
    environment.insert(QStringLiteral("XDG_RUNTIME_DIR"), home.path());
    // The local socket and the key files of the single-instance block live here.
    environment.insert(QStringLiteral("TMPDIR"), temp.path());
    environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    environment.insert(QStringLiteral("DBUS_SYSTEM_BUS_ADDRESS"),
        QStringLiteral("unix:path=") + home.filePath(QStringLiteral("no-bus")));
    QProcess server;
    server.setProcessEnvironment(environment);
    server.start(QStringLiteral(VELM_SERVER_EXECUTABLE), QStringList());
    QVERIFY(server.waitForStarted());
    QByteArray output;
    QTRY_VERIFY2_WITH_TIMEOUT((output += server.readAllStandardError()).contains("ZeroConf error"),
        output.constData(), 20000);
    const QDir::Filters everything
        = QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot;
    QVERIFY(!QDir(temp.path()).entryList(everything).isEmpty());

    QCOMPARE(::kill(pid_t(server.processId()), signal), 0);
    QVERIFY(server.waitForFinished(10000));
    output += server.readAllStandardError();
    QCOMPARE(server.exitStatus(), QProcess::NormalExit);
    QVERIFY2(server.exitCode() == 0, output.constData());
    QVERIFY2(
        output.contains("Quitting on signal " + QByteArray::number(signal)), output.constData());
    // Nothing is left behind for the next start to find.
    QCOMPARE(QDir(temp.path()).entryList(everything), QStringList());
}

QTEST_GUILESS_MAIN(TestMain)
#include "tst_main.moc"

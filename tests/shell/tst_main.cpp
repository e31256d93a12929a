#include "protocolclient.h"
#include "testenvironment.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHostAddress>
#include <QHostInfo>
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
    void saysWhereItListens();
    void withoutADisplayTheLogIsTheProgramsOwn();
    void runsBesideTheUsersOwnCopy();
    void startsWithoutTranslations();
    void quitsCleanlyOnSignal_data();
    void quitsCleanlyOnSignal();
};

void TestMain::logLinesNameTheirFunction()
{
    QTemporaryDir home;
    QProcessEnvironment environment = TestEnvironment::isolatedProgram(home.path());
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
        home.filePath(QStringLiteral("config/Velm/velm-server.conf")), QSettings::IniFormat);
    const uint port = settings.value(QStringLiteral("lastUsedPort")).toUInt();
    QVERIFY2(port >= 49152 && port <= 65535, qPrintable(QString::number(port)));
}

void TestMain::saysWhereItListens()
{
    QTemporaryDir home;
    QProcessEnvironment environment = TestEnvironment::isolatedProgram(home.path());
    environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    // No DNS-SD daemon answers.
    environment.insert(QStringLiteral("DBUS_SYSTEM_BUS_ADDRESS"),
        QStringLiteral("unix:path=") + home.filePath(QStringLiteral("no-bus")));
    QProcess server;
    server.setProcessEnvironment(environment);
    server.start(QStringLiteral(VELM_SERVER_EXECUTABLE), QStringList());
    QVERIFY(server.waitForStarted());
    QByteArray output;
    QTRY_VERIFY2_WITH_TIMEOUT(
        (output += server.readAllStandardError()).contains("clients must be given"),
        output.constData(), 20000);
    server.terminate();
    QVERIFY(server.waitForFinished(10000));
    output += server.readAllStandardError();

    QSettings settings(
        home.filePath(QStringLiteral("config/Velm/velm-server.conf")), QSettings::IniFormat);
    const QByteArray port
        = QByteArray::number(settings.value(QStringLiteral("lastUsedPort")).toUInt());
    QByteArray listening;
    QByteArray unadvertised;
    for (const QByteArray &line : output.split('\n')) {
        if (line.contains("listens on port"))
            listening = line;
        if (line.contains("not advertised"))
            unadvertised = line;
    }
    // The name it would be advertised under, the port, and at least one address.
    const QByteArray name = "Velm Server@" + QHostInfo::localHostName().toUtf8();
    QVERIFY2(listening.startsWith(
                 "[Server::startWebSocketServer] " + name + " listens on port " + port + " at "),
        output.constData());
    const QByteArray addresses = listening.mid(listening.indexOf(" at ") + 4);
    QVERIFY2(!addresses.isEmpty(), listening.constData());
    for (const QByteArray &address : addresses.split(','))
        QVERIFY2(
            !QHostAddress(QString::fromUtf8(address.trimmed())).isNull(), listening.constData());
    QCOMPARE(unadvertised,
        "[Server::onZeroConfError] This computer is not advertised on the network (no DNS-SD "
        "daemon answers): clients must be given its address and port "
            + port);
    // Said once, however often the advertisement is tried again.
    QCOMPARE(output.count("not advertised"), 1);
}

void TestMain::withoutADisplayTheLogIsTheProgramsOwn()
{
    QTemporaryDir home;
    QProcessEnvironment environment = TestEnvironment::isolatedProgram(home.path());
    environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    QProcess server;
    server.setProcessEnvironment(environment);
    server.start(QStringLiteral(VELM_SERVER_EXECUTABLE), QStringList());
    QVERIFY(server.waitForStarted());
    QByteArray output;
    QTRY_VERIFY2_WITH_TIMEOUT((output += server.readAllStandardError()).contains("No display:"),
        output.constData(), 20000);
    QTRY_VERIFY2_WITH_TIMEOUT(output.contains("listens on port"),
        (output += server.readAllStandardError()).constData(), 20000);
    // A pairing request has nobody to click its prompt: the log says where to answer it.
    const quint16 port
        = quint16(output.mid(output.indexOf("listens on port ") + 16).split(' ').first().toUInt());
    QVERIFY(port);
    ProtocolClient client(QStringLiteral("headless-device"));
    client.open(port);
    QTRY_VERIFY2_WITH_TIMEOUT(
        (output += server.readAllStandardError()).contains("A device asks to connect"),
        output.constData(), 20000);
    server.terminate();
    QVERIFY(server.waitForFinished(10000));
    output += server.readAllStandardError();
    // Qt's complaints about windows and a tray that a screenless platform cannot have.
    for (const char *noise : { "does not support", "No such signal", "QObject::connect" })
        QVERIFY2(!output.contains(noise), output.constData());
}

void TestMain::runsBesideTheUsersOwnCopy()
{
    // A desktop session of the user's: a runtime folder and a temporary folder that this test
    // and every program it starts would share. They are the test's own rather than the
    // session's real ones, so that a copy the user runs there is left alone and does not stand
    // in for the one started here.
    QTemporaryDir session;
    const QString runtime = session.filePath(QStringLiteral("runtime"));
    const QString temporary = session.filePath(QStringLiteral("tmp"));
    QVERIFY(QDir().mkpath(runtime) && QDir().mkpath(temporary));
    QVERIFY(QFile::setPermissions(runtime, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
    const TestEnvironment::Variable runtimeVariable("XDG_RUNTIME_DIR", runtime.toUtf8());
    const TestEnvironment::Variable temporaryVariable("TMPDIR", temporary.toUtf8());

    // The user's own copy, as that session starts it (only the settings are kept apart, to
    // leave the user's alone).
    QTemporaryDir userConfig;
    QProcessEnvironment user = QProcessEnvironment::systemEnvironment();
    user.insert(QStringLiteral("XDG_CONFIG_HOME"), userConfig.path());
    user.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    user.insert(QStringLiteral("DBUS_SYSTEM_BUS_ADDRESS"),
        QStringLiteral("unix:path=") + userConfig.filePath(QStringLiteral("no-bus")));
    QProcess users;
    users.setProcessEnvironment(user);
    users.start(QStringLiteral(VELM_SERVER_EXECUTABLE), QStringList());
    QVERIFY(users.waitForStarted());
    QByteArray usersOutput;
    QTRY_VERIFY2_WITH_TIMEOUT(
        (usersOutput += users.readAllStandardError()).contains("listens on port"),
        usersOutput.constData(), 20000);

    // A test's copy serves beside it instead of handing over to it.
    QTemporaryDir home;
    QProcessEnvironment environment = TestEnvironment::isolatedProgram(home.path());
    environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    environment.insert(QStringLiteral("DBUS_SYSTEM_BUS_ADDRESS"),
        QStringLiteral("unix:path=") + home.filePath(QStringLiteral("no-bus")));
    QProcess server;
    server.setProcessEnvironment(environment);
    server.start(QStringLiteral(VELM_SERVER_EXECUTABLE), QStringList());
    QVERIFY(server.waitForStarted());
    QByteArray output;
    QTRY_VERIFY2_WITH_TIMEOUT((output += server.readAllStandardError()).contains("listens on port"),
        output.constData(), 20000);
    QCOMPARE(server.state(), QProcess::Running);
    server.terminate();
    QVERIFY(server.waitForFinished(10000));
    QCOMPARE(server.exitCode(), 0);
    // The user's copy never heard of it.
    QCOMPARE(users.state(), QProcess::Running);
    users.terminate();
    QVERIFY(users.waitForFinished(10000));
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
    QProcessEnvironment environment
        = TestEnvironment::isolatedProgram(place.filePath(QStringLiteral("home")));
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
    QProcessEnvironment environment = TestEnvironment::isolatedProgram(home.path());
    // The single-instance socket, block and lock live here.
    const QDir runtime(environment.value(QStringLiteral("XDG_RUNTIME_DIR")));
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
    const QStringList running = runtime.entryList(everything);
    const auto sockets = [&runtime, everything] {
        QStringList found;
        for (const QFileInfo &entry : runtime.entryInfoList(everything)) {
            if (!entry.isFile() && !entry.isDir())
                found << entry.fileName();
        }
        return found;
    };
    QCOMPARE(sockets().size(), 1);

    QCOMPARE(::kill(pid_t(server.processId()), signal), 0);
    QVERIFY(server.waitForFinished(10000));
    output += server.readAllStandardError();
    QCOMPARE(server.exitStatus(), QProcess::NormalExit);
    QVERIFY2(server.exitCode() == 0, output.constData());
    QVERIFY2(
        output.contains("Quitting on signal " + QByteArray::number(signal)), output.constData());
    // The socket is gone; the block and its lock stay for the next start, which finds nobody
    // attached and starts them afresh.
    QCOMPARE(sockets(), QStringList());
    QCOMPARE(runtime.entryList(everything).size(), running.size() - 1);
    QProcess again;
    again.setProcessEnvironment(environment);
    again.start(QStringLiteral(VELM_SERVER_EXECUTABLE), QStringList());
    QByteArray againOutput;
    QTRY_VERIFY2_WITH_TIMEOUT(
        (againOutput += again.readAllStandardError()).contains("listens on port"),
        againOutput.constData(), 20000);
    again.terminate();
    QVERIFY(again.waitForFinished(10000));
}

QTEST_GUILESS_MAIN(TestMain)
#include "tst_main.moc"

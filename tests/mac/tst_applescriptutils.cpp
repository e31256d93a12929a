#include "applescriptutils.h"
#include "macapps.h"

#include <QtTest>

using namespace AppleScriptUtils;

// Scripts run through a stand-in "osascript" on the PATH that shows what it was given, and the
// installation of the resource scripts into a private home folder.
class TestAppleScriptUtils : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void runPassesTheScriptAndReturnsItsOutput();
    void failingScriptWarnsAndKeepsItsOutput();
    void missingRunnerWarnsAndGivesNothing();
    void startedScriptAnswersLater();
    void startedScriptForgetsAGoneReceiver();
    void fileIsReadUpToTheFirstZero();
    void resourceScriptsRunByName();
    void installWritesMissingScripts();
    void installKeepsANewerCopyOfTheSameLength();
    void installRewritesACopyOlderThanTheProgram();
    void installRewritesACopyOfAnotherLength();
    void installReportsAFolderItCannotWrite();

private:
    void writeRunner(const QByteArray &body);
    QString folder() const { return home.path() + QStringLiteral("/scripts"); }
    QTemporaryDir bin;
    QTemporaryDir home;
    QByteArray originalPath;
};

void TestAppleScriptUtils::writeRunner(const QByteArray &body)
{
    QFile runner(bin.filePath(QStringLiteral("osascript")));
    QVERIFY(runner.open(QIODevice::WriteOnly | QIODevice::Truncate));
    runner.write("#!/bin/sh\n" + body);
    runner.close();
    QVERIFY(runner.setPermissions(
        QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner));
}

void TestAppleScriptUtils::initTestCase()
{
    QVERIFY(bin.isValid());
    QVERIFY(home.isValid());
    originalPath = qgetenv("PATH");
    qputenv("PATH", bin.path().toLocal8Bit() + ':' + originalPath);
    qputenv("HOME", home.path().toLocal8Bit());
}

void TestAppleScriptUtils::runPassesTheScriptAndReturnsItsOutput()
{
    writeRunner("printf '%s|%s\\n' \"$1\" \"$2\"\n");
    QCOMPARE(runScript(QStringLiteral("return 1")), QByteArray("-e|return 1\n"));
}

void TestAppleScriptUtils::failingScriptWarnsAndKeepsItsOutput()
{
    writeRunner("echo partial; echo 'execution error: boom' >&2; exit 1\n");
    QTest::ignoreMessage(
        QtWarningMsg, QRegularExpression(QStringLiteral("^Error running script: .*boom")));
    QCOMPARE(runScript(QStringLiteral("error \"boom\"")), QByteArray("partial\n"));
}

void TestAppleScriptUtils::missingRunnerWarnsAndGivesNothing()
{
    QFile::remove(bin.filePath(QStringLiteral("osascript")));
    qputenv("PATH", bin.path().toLocal8Bit());
    QTest::ignoreMessage(
        QtWarningMsg, QRegularExpression(QStringLiteral("^Error running script:")));
    const QByteArray output = runScript(QStringLiteral("return 1"));
    qputenv("PATH", bin.path().toLocal8Bit() + ':' + originalPath);
    QVERIFY(output.isEmpty());
}

void TestAppleScriptUtils::startedScriptAnswersLater()
{
    writeRunner("printf '%s\\n' \"$2\"\n");
    QObject receiver;
    QByteArrayList answers;
    startScript(QStringLiteral("the URL"), &receiver,
        [&answers](const QByteArray &output) { answers.append(output); });
    QVERIFY(answers.isEmpty());
    QTRY_COMPARE(answers, QByteArrayList { "the URL\n" });

    // A runner that cannot start answers too, once, with nothing.
    QFile::remove(bin.filePath(QStringLiteral("osascript")));
    qputenv("PATH", bin.path().toLocal8Bit());
    QTest::ignoreMessage(
        QtWarningMsg, QRegularExpression(QStringLiteral("^Error running script:")));
    startScript(QStringLiteral("x"), &receiver,
        [&answers](const QByteArray &output) { answers.append(output); });
    qputenv("PATH", bin.path().toLocal8Bit() + ':' + originalPath);
    QTRY_COMPARE(answers.size(), 2);
    QVERIFY(answers.last().isEmpty());
}

void TestAppleScriptUtils::startedScriptForgetsAGoneReceiver()
{
    // The runner leaves a mark when it has ended, so the test knows the answer is due.
    const QString mark = bin.filePath(QStringLiteral("ended"));
    writeRunner("echo late; touch '" + mark.toLocal8Bit() + "'\n");
    int calls = 0;
    auto *receiver = new QObject;
    startScript(QStringLiteral("x"), receiver, [&calls](const QByteArray &) { ++calls; });
    delete receiver;
    QObject other;
    bool otherAnswered = false;
    startScript(QStringLiteral("y"), &other, [&](const QByteArray &) { otherAnswered = true; });
    QTRY_VERIFY(otherAnswered);
    QTRY_VERIFY(QFile::exists(mark));
    QCoreApplication::processEvents();
    QCOMPARE(calls, 0);
}

void TestAppleScriptUtils::fileIsReadUpToTheFirstZero()
{
    QFile file(home.filePath(QStringLiteral("z.applescript")));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(QByteArray("say \xc3\xa9t\xc3\xa9\0tail", 14));
    file.close();
    QCOMPARE(readScriptFromFile(file.fileName()), QStringLiteral("say été"));
    QCOMPARE(readScriptFromFile(home.filePath(QStringLiteral("absent"))), QString());

    writeRunner("printf '%s' \"$2\"\n");
    QCOMPARE(runScriptFromFile(file.fileName()), QByteArray("say \xc3\xa9t\xc3\xa9"));
}

void TestAppleScriptUtils::resourceScriptsRunByName()
{
    writeRunner("printf '%s' \"$2\"\n");
    const QByteArray script = runScriptWithName(QStringLiteral("refresh"));
    QVERIFY2(script.contains("tell application \"Finder\""), script.constData());
    QVERIFY(script.contains("update"));
}

void TestAppleScriptUtils::installWritesMissingScripts()
{
    installSandboxScripts();
    const QString sandbox = MacApps::sandboxScriptFolder(home.path());
    for (const QString &name : MacApps::sandboxScripts()) {
        const QString installed = readScriptFromFile(sandbox + QLatin1Char('/') + name);
        QVERIFY2(!installed.isEmpty(), qPrintable(name));
        QCOMPARE(installed, readScriptFromFile(QStringLiteral(":/") + name));
    }
}

void TestAppleScriptUtils::installKeepsANewerCopyOfTheSameLength()
{
    const QString name = QStringLiteral("delete.applescript");
    const QString target = folder() + QLatin1Char('/') + name;
    installScriptFromFile(name, folder());
    // Same length, other text, newer than the program: taken as current.
    const QByteArray same(readScriptFromFile(QStringLiteral(":/") + name).size(), 'x');
    QFile file(target);
    QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.write(same);
    file.close();
    installScriptFromFile(name, folder());
    QCOMPARE(readScriptFromFile(target).toUtf8(), same);
}

void TestAppleScriptUtils::installRewritesACopyOlderThanTheProgram()
{
    const QString name = QStringLiteral("delete.applescript");
    const QString target = folder() + QLatin1Char('/') + name;
    installScriptFromFile(name, folder());
    QFile file(target);
    QVERIFY(file.open(QIODevice::ReadWrite));
    const QDateTime old
        = QFileInfo(QCoreApplication::applicationFilePath()).lastModified().addSecs(-3600);
    QVERIFY(file.setFileTime(old, QFileDevice::FileModificationTime));
    file.close();
    installScriptFromFile(name, folder());
    QVERIFY(QFileInfo(target).lastModified() > old);
    QCOMPARE(readScriptFromFile(target), readScriptFromFile(QStringLiteral(":/") + name));
}

void TestAppleScriptUtils::installRewritesACopyOfAnotherLength()
{
    const QString name = QStringLiteral("refresh.applescript");
    const QString target = folder() + QLatin1Char('/') + name;
    QVERIFY(QDir().mkpath(folder()));
    QFile file(target);
    QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.write("stale");
    file.close();
    installScriptFromFile(name, folder());
    QCOMPARE(readScriptFromFile(target), readScriptFromFile(QStringLiteral(":/") + name));
}

void TestAppleScriptUtils::installReportsAFolderItCannotWrite()
{
    // A plain file where the folder should be.
    const QString blocked = home.filePath(QStringLiteral("blocked"));
    QFile file(blocked);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.close();
    QTest::ignoreMessage(QtWarningMsg,
        qPrintable(QStringLiteral("Error opening file for writing \"%1/delete.applescript\"")
                       .arg(blocked)));
    installScriptFromFile(QStringLiteral("delete.applescript"), blocked);
}

QTEST_GUILESS_MAIN(TestAppleScriptUtils)
#include "tst_applescriptutils.moc"

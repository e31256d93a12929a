#include "l.h"
#include "protocolclient.h"
#include "runningprogram.h"
#include "testenvironment.h"

#include <QDir>
#include <QJsonArray>
#include <QTemporaryDir>
#include <QtTest>

// The program built without a desktop backend, as on a headless computer: it starts, listens,
// lets a device paired earlier in, lists folders and says what it cannot do.
class TestNoneProgram : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { TestEnvironment::setUp(); }
    void servesFilesAndSaysWhatItCannotDo();
};

void TestNoneProgram::servesFilesAndSaysWhatItCannotDo()
{
    RunningProgram program(QStringLiteral(VELM_SERVER_EXECUTABLE));
    const quint16 port = program.port();
    QVERIFY2(port, program.output.constData());
    QVERIFY(program.waitForLog("This computer is not advertised on the network (this build has "
                               "no service advertisement)"));

    ProtocolClient phone(QStringLiteral("phone"));
    phone.setToken(QStringLiteral("phone-token"));
    phone.open(port);
    QTRY_VERIFY(phone.isAuthenticated());
    QVERIFY(phone.key().size() > 0);

    QTemporaryDir folder;
    QVERIFY(QFile(folder.filePath(QStringLiteral("notes.txt"))).open(QIODevice::WriteOnly));
    QVERIFY(QDir(folder.path()).mkdir(QStringLiteral("Pictures")));
    phone.send(QJsonObject { { L::method, L::directoryListing }, { L::path, folder.path() } });
    QTRY_COMPARE(phone.framesWith(L::directoryListing).size(), 1);
    QCOMPARE(phone.framesWith(L::directoryListing).at(0).object().value(L::files).toArray(),
        (QJsonArray { QJsonObject { { L::name, QStringLiteral("Pictures") },
                          { L::type, QStringLiteral("d") } },
            QJsonObject { { L::name, QStringLiteral("notes.txt") } } }));

    phone.send(QJsonObject { { L::method, L::unsupported } });
    QTRY_COMPARE(phone.framesWith(L::unsupported).size(), 1);
    QStringList codes;
    for (const QJsonValue &code :
        phone.framesWith(L::unsupported).at(0).object().value(L::value).toArray())
        codes << code.toString();
    // Everything that takes a desktop backend.
    const QStringList backend { L::installedApps, L::currentApp, L::appIcon, L::activateApp,
        L::closeApp, L::quitApp, L::toggleMinimizeApp, L::toggleMaximizeApp, L::toggleFullscreenApp,
        L::appScroll, L::keySequence, L::appCommands, L::commandIcon, L::siteCommands, L::appMenu,
        L::performMenu, L::focusValue, L::performFocus, L::focusedElement, L::fileApps, L::volume,
        L::volumeMute, L::brightness, L::screenLock, L::logout, L::sleep, L::restart, L::shutdown,
        L::playPause, L::previousTrack, L::nextTrack };
    for (const QString &code : backend)
        QVERIFY2(codes.contains(code), qPrintable(code));
    QCOMPARE(codes.size(), backend.size());
    // What it serves is not among them.
    for (const QString &served : { L::directoryListing, L::fileIcon, L::filePreview, L::fileOpen })
        QVERIFY2(!codes.contains(served), qPrintable(served));
}

QTEST_MAIN(TestNoneProgram)
#include "tst_noneprogram.moc"

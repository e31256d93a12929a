#include "corefixture.h"
#include "dbusmock.h"
#include "desktop.h"
#include "testenvironment.h"
#include "ui.h"
#include "urlrecorder.h"

#include <QApplication>
#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusVariant>
#include <QDesktopServices>
#include <QProcess>
#include <QSystemTrayIcon>
#include <QTemporaryDir>
#include <QtTest>

namespace {
// A python3-dbusmock service on the session bus, recording every call.
class Mock
{
public:
    Mock(const QString &name, const QString &path, const QStringList &arguments)
        : name(name)
        , path(path)
    {
        process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        process.start(QStringLiteral("/usr/bin/python3"),
            QStringList {
                QStringLiteral("-m"), QStringLiteral("dbusmock"), QStringLiteral("--session") }
                + arguments);
    }
    ~Mock()
    {
        process.terminate();
        if (!process.waitForFinished(5000))
            process.kill();
        process.waitForFinished(2000);
        // Gone from the bus before the next test looks for it.
        if (!QTest::qWaitFor(
                [this] {
                    return !QDBusConnection::sessionBus().interface()->isServiceRegistered(name);
                },
                5000))
            qWarning("mock %s still on the bus", qPrintable(name));
    }
    bool waitForBus()
    {
        return QTest::qWaitFor(
            [this] { return QDBusConnection::sessionBus().interface()->isServiceRegistered(name); },
            10000);
    }
    QDBusMessage mockCall(const QString &method, const QVariantList &arguments = {})
    {
        QDBusMessage call = QDBusMessage::createMethodCall(
            name, path, QStringLiteral("org.freedesktop.DBus.Mock"), method);
        call.setArguments(arguments);
        return QDBusConnection::sessionBus().call(call);
    }
    QList<DBusMock::Call> callsOf(const QString &method)
    {
        QList<DBusMock::Call> result;
        for (const DBusMock::Call &call : DBusMock::calls(name, path)) {
            if (call.method == method)
                result << call;
        }
        return result;
    }

    QString name;
    QString path;
    QProcess process;
};

Mock *notificationDaemon()
{
    return new Mock(QStringLiteral("org.freedesktop.Notifications"),
        QStringLiteral("/org/freedesktop/Notifications"),
        { QStringLiteral("--template"), QStringLiteral("notification_daemon") });
}
} // namespace

// Notifications and the file manager through the session's D-Bus services.
class TestDesktopUtils : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void notifyWithSubtitle();
    void notifyWithoutSubtitleSetsNone();
    void noNotificationServiceMeansNoNotifications();
    void showInFileManager();
    void showInFolderWithoutFileManager();
    void lightFontIsInvalidEveryTime();
    void withoutTrayTheUserIsTold();

private:
    UrlRecorder recorder;
    QTemporaryDir files;
};

void TestDesktopUtils::initTestCase()
{
    TestEnvironment::setUp();
    QVERIFY(QDBusConnection::sessionBus().isConnected());
    QDesktopServices::setUrlHandler(QStringLiteral("file"), &recorder, "open");
}

void TestDesktopUtils::notifyWithSubtitle()
{
    QScopedPointer<Mock> daemon(notificationDaemon());
    QVERIFY(daemon->waitForBus());
    QVERIFY(desktop::canNotify());
    desktop::notify(QStringLiteral("Title"), QStringLiteral("Subtitle"), QStringLiteral("Text"));
    QTRY_COMPARE(daemon->callsOf(QStringLiteral("Notify")).size(), 1);
    const DBusMock::Call call = daemon->callsOf(QStringLiteral("Notify")).first();
    QCOMPARE(call.arguments.at(0).toString(), QStringLiteral("Velm Server"));
    QCOMPARE(call.arguments.at(2).toString(), QStringLiteral("velm-server"));
    QCOMPARE(call.arguments.at(3).toString(), QStringLiteral("Title"));
    QCOMPARE(call.arguments.at(4).toString(), QStringLiteral("Subtitle\nText"));
}

void TestDesktopUtils::notifyWithoutSubtitleSetsNone()
{
    QScopedPointer<Mock> daemon(notificationDaemon());
    QVERIFY(daemon->waitForBus());
    desktop::notify(QStringLiteral("Title"), QString(), QStringLiteral("Only text"));
    QTRY_COMPARE(daemon->callsOf(QStringLiteral("Notify")).size(), 1);
    QCOMPARE(daemon->callsOf(QStringLiteral("Notify")).first().arguments.at(4).toString(),
        QStringLiteral("Only text"));
}

void TestDesktopUtils::noNotificationServiceMeansNoNotifications()
{
    QVERIFY(!QDBusConnection::sessionBus().interface()->isServiceRegistered(
        QStringLiteral("org.freedesktop.Notifications")));
    QVERIFY(!desktop::canNotify());
}

void TestDesktopUtils::showInFileManager()
{
    Mock manager(QStringLiteral("org.freedesktop.FileManager1"),
        QStringLiteral("/org/freedesktop/FileManager1"),
        { QStringLiteral("org.freedesktop.FileManager1"),
            QStringLiteral("/org/freedesktop/FileManager1"),
            QStringLiteral("org.freedesktop.FileManager1") });
    QVERIFY(manager.waitForBus());
    QCOMPARE(manager
                 .mockCall(QStringLiteral("AddMethod"),
                     { QString(), QStringLiteral("ShowItems"), QStringLiteral("ass"), QString(),
                         QString() })
                 .type(),
        QDBusMessage::ReplyMessage);
    const QString file = files.filePath(QStringLiteral("report one.txt"));
    desktop::showInFinder(file);
    QTRY_COMPARE(manager.callsOf(QStringLiteral("ShowItems")).size(), 1);
    const DBusMock::Call call = manager.callsOf(QStringLiteral("ShowItems")).first();
    QCOMPARE(
        call.arguments.at(0).toStringList(), QStringList { QUrl::fromLocalFile(file).toString() });
    QVERIFY(recorder.opened.isEmpty());
}

void TestDesktopUtils::showInFolderWithoutFileManager()
{
    recorder.opened.clear();
    const QString file = files.filePath(QStringLiteral("notes.txt"));
    desktop::showInFinder(file);
    QCOMPARE(recorder.opened, QList<QUrl> { QUrl::fromLocalFile(files.path()) });
    // A folder opens as itself.
    desktop::showInFinder(files.path());
    QCOMPARE(recorder.opened.last(), QUrl::fromLocalFile(files.path()));
}

void TestDesktopUtils::lightFontIsInvalidEveryTime()
{
    QVERIFY(!desktop::lightFont(12).isValid());
    QVERIFY(!desktop::lightFont(30).isValid());
}

void TestDesktopUtils::withoutTrayTheUserIsTold()
{
    // This process runs on Qt's VNC platform: windows, but no tray.
    QVERIFY(!QSystemTrayIcon::isSystemTrayAvailable());
    QScopedPointer<Mock> daemon(notificationDaemon());
    QVERIFY(daemon->waitForBus());
    CoreFixture fixture;
    UI ui;
    QTRY_COMPARE(daemon->callsOf(QStringLiteral("Notify")).size(), 1);
    QVERIFY(daemon->callsOf(QStringLiteral("Notify"))
                .first()
                .arguments.at(4)
                .toString()
                .contains(QStringLiteral("start Velm Server again")));
}

int main(int argc, char *argv[])
{
    // A platform with windows but no tray, whatever the rig offers: Qt's VNC server on a port
    // of its choosing (screenless platforms show neither windows nor tray icons).
    qputenv("QT_QPA_PLATFORM", "vnc:port=0:size=800x600");
    QApplication app(argc, argv);
    TestDesktopUtils test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_desktoputils.moc"

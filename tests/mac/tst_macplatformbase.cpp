#include "fakeplatform.h"
#include "macplatformbase.h"

#include <QtTest>

// The Mac platform's bookkeeping, fed with what the workspace and the search would say.
class TestPlatform : public MacPlatformBase
{
    Q_OBJECT
public:
    int searches = 0;
    QStringList handlers;
    QStringList opened;
    int brightness = 0;
    QStringList events;

    TestPlatform()
    {
        connect(this, &Platform::installedAppsChanged, this,
            [this] { events << QStringLiteral("installedAppsChanged"); });
        connect(this, &Platform::runningAppsChanged, this,
            [this] { events << QStringLiteral("runningAppsChanged"); });
        connect(this, &Platform::appLaunched, this,
            [this](App *app) { events << QStringLiteral("appLaunched ") + app->id; });
        connect(this, &Platform::appTerminated, this,
            [this](App *app) { events << QStringLiteral("appTerminated ") + app->id; });
        connect(this, &Platform::currentAppChanged, this, [this](App *app) {
            events << QStringLiteral("currentAppChanged ") + (app ? app->id : QStringLiteral("-"));
        });
        connect(this, &Platform::brightnessChanged, this,
            [this] { events << QStringLiteral("brightnessChanged"); });
        connect(this, &Platform::screenLockChanged, this,
            [this] { events << QStringLiteral("screenLockChanged"); });
    }

    void init() override { }
    void setAutostart(bool) override { }
    QPixmap iconForFileType(const QString &, int) override { return QPixmap(); }
    void shutdown() override { }
    void restart() override { }
    void sleep() override { }
    void lockScreen() override { }
    void logout() override { }
    int getBrightness() override { return brightness; }
    void setBrightness(int) override { }
    int getVolume() override { return 0; }
    void setVolume(int) override { }
    bool getVolumeMute() override { return false; }
    void setVolumeMute(bool) override { }
    void previousTrack() override { }
    void nextTrack() override { }
    void playPause() override { }
    bool permissionsGranted() override { return true; }

protected:
    App *createApp(const QString &id) override { return new FakeApp(id); }
    void findInstalledApps() override { ++searches; }
    QStringList handlersForType(const QString &) override { return handlers; }
    void openWithDefault(const QString &path) override
    {
        opened << QStringLiteral("default ") + path;
    }
    void openWithApplication(const QString &path, const QString &name) override
    {
        opened << name + QLatin1Char(' ') + path;
    }
};

class TestMacPlatformBase : public QObject
{
    Q_OBJECT
private slots:
    void searchResultsKeepTheirOrderAndNames();
    void twoCopiesStandTwiceAndTheLaterWins();
    void appRunningOutsideTheSearchIsAddedWithItsUrl();
    void removalOfAnUnknownAppCreatesItFirst();
    void accessoryAppsChangeNothing();
    void runningListFollowsInsertionsAndRemovals();
    void sameFrontAppTwiceAnnouncesTwice();
    void activationSearchesOnceAndPollsUntilDeactivated();
    void deactivationDropsTheFrontAppQuietly();
    void stoppingAPollThatNeverStartedIsLogged();
    void screenSaverThenLockIsOneChange();
    void appsForAFileAreKnownOnesInTheSystemsOrder();
    void filesOpenWithTheDefaultOrAKnownApp();

private:
    static RunningApplication running(
        const QString &id, const QString &name = QString(), bool regular = true)
    {
        RunningApplication app;
        app.regular = regular;
        app.bundleIdentifier = id;
        app.localizedName = name.isEmpty() ? id : name;
        app.bundleUrl = QStringLiteral("file:///Volumes/Disk/%1.app/").arg(app.localizedName);
        return app;
    }
};

void TestMacPlatformBase::searchResultsKeepTheirOrderAndNames()
{
    TestPlatform platform;
    int iconsMade = 0;
    const auto icon = [&iconsMade] {
        ++iconsMade;
        return QIcon();
    };
    platform.addFoundApps({ { QStringLiteral("com.a"), QStringLiteral("Foo.app"),
                                QStringLiteral("/Applications/Foo.app"), icon },
        { QStringLiteral("com.b"), QStringLiteral("Bar.APP"),
            QStringLiteral("/Applications/Bar.APP"), icon },
        { QString(), QStringLiteral("Nameless"), QStringLiteral("/Applications/N.app"), icon } });
    QCOMPARE(platform.events, QStringList { QStringLiteral("installedAppsChanged") });
    QCOMPARE(platform.getInstalledApps().size(), 3);
    QCOMPARE(platform.getInstalledApps().at(0)->name, QStringLiteral("Foo"));
    QCOMPARE(platform.getInstalledApps().at(1)->name, QStringLiteral("Bar.APP"));
    QCOMPARE(platform.getInstalledApps().at(0)->path, QStringLiteral("/Applications/Foo.app"));
    QCOMPARE(iconsMade, 3);
    // A result without identifier is entered under the empty one; nobody can ask for it.
    QCOMPARE(platform.getInstalledApps().at(2)->id, QString());
    QVERIFY(!platform.appforId(QString()));
    QCOMPARE(platform.appforId(QStringLiteral("com.b"))->name, QStringLiteral("Bar.APP"));
}

void TestMacPlatformBase::twoCopiesStandTwiceAndTheLaterWins()
{
    TestPlatform platform;
    platform.addFoundApps({ { QStringLiteral("com.a"), QStringLiteral("A"),
                                QStringLiteral("/Applications/A.app"), nullptr },
        { QStringLiteral("com.a"), QStringLiteral("A"),
            QStringLiteral("/Users/ann/Applications/A.app"), nullptr } });
    QCOMPARE(platform.getInstalledApps().size(), 2);
    QCOMPARE(platform.appforId(QStringLiteral("com.a"))->path,
        QStringLiteral("/Users/ann/Applications/A.app"));
    // Seen running, it is matched through the registry: no third object.
    platform.addRunningApps({ running(QStringLiteral("com.a")) });
    QCOMPARE(platform.getInstalledApps().size(), 2);
    QCOMPARE(platform.getRunningApps().first(), platform.appforId(QStringLiteral("com.a")));
}

void TestMacPlatformBase::appRunningOutsideTheSearchIsAddedWithItsUrl()
{
    TestPlatform platform;
    platform.addFoundApps({});
    platform.events.clear();
    platform.addRunningApps({ running(QStringLiteral("com.disk"), QStringLiteral("Disk.app")) });
    App *app = platform.appforId(QStringLiteral("com.disk"));
    QVERIFY(app);
    QCOMPARE(app->name, QStringLiteral("Disk"));
    QCOMPARE(app->path, QStringLiteral("file:///Volumes/Disk/Disk.app.app/"));
    QVERIFY(app->running);
    QCOMPARE(platform.getInstalledApps(), QVector<App *> { app });
    QCOMPARE(platform.events,
        (QStringList { QStringLiteral("installedAppsChanged"),
            QStringLiteral("appLaunched com.disk"), QStringLiteral("runningAppsChanged") }));
}

void TestMacPlatformBase::removalOfAnUnknownAppCreatesItFirst()
{
    TestPlatform platform;
    platform.removeRunningApps({ running(QStringLiteral("com.ghost")) });
    QVERIFY(platform.appforId(QStringLiteral("com.ghost")));
    QVERIFY(!platform.appforId(QStringLiteral("com.ghost"))->running);
    QCOMPARE(platform.events,
        (QStringList { QStringLiteral("installedAppsChanged"),
            QStringLiteral("appTerminated com.ghost"), QStringLiteral("runningAppsChanged") }));
}

void TestMacPlatformBase::accessoryAppsChangeNothing()
{
    TestPlatform platform;
    const RunningApplication menuBarOnly = running(QStringLiteral("com.menu"), QString(), false);
    platform.addRunningApps({ menuBarOnly });
    platform.removeRunningApps({ menuBarOnly });
    QVERIFY(!platform.appForRunningApp(menuBarOnly));
    QVERIFY(platform.events.isEmpty());
    QVERIFY(platform.getInstalledApps().isEmpty());
    QVERIFY(platform.getRunningApps().isEmpty());
}

void TestMacPlatformBase::runningListFollowsInsertionsAndRemovals()
{
    TestPlatform platform;
    platform.setRunningApps({ running(QStringLiteral("com.a")), running(QStringLiteral("com.b")) });
    QCOMPARE(platform.getRunningApps().size(), 2);
    platform.events.clear();
    // One announcement of the list per change, whatever the number of applications.
    platform.addRunningApps({ running(QStringLiteral("com.c")), running(QStringLiteral("com.d")) });
    QCOMPARE(platform.events.count(QStringLiteral("runningAppsChanged")), 1);
    platform.removeRunningApps({ running(QStringLiteral("com.a")) });
    QCOMPARE(platform.getRunningApps().size(), 3);
    QVERIFY(!platform.appforId(QStringLiteral("com.a"))->running);
    QVERIFY(platform.appforId(QStringLiteral("com.b"))->running);
    // Starting over empties the list without touching the applications' state.
    platform.events.clear();
    platform.setRunningApps({});
    QVERIFY(platform.getRunningApps().isEmpty());
    QVERIFY(platform.appforId(QStringLiteral("com.b"))->running);
    QVERIFY(platform.events.isEmpty());
}

void TestMacPlatformBase::sameFrontAppTwiceAnnouncesTwice()
{
    TestPlatform platform;
    const RunningApplication front = running(QStringLiteral("com.a"));
    platform.setCurrentRunningApp(&front);
    platform.setCurrentRunningApp(&front);
    auto *app = qobject_cast<FakeApp *>(platform.appforId(QStringLiteral("com.a")));
    QCOMPARE(app->calls,
        (QStringList { QStringLiteral("setCurrent(true)"), QStringLiteral("setCurrent(false)"),
            QStringLiteral("setCurrent(true)") }));
    QCOMPARE(platform.events.count(QStringLiteral("currentAppChanged com.a")), 2);
    platform.setCurrentRunningApp(nullptr);
    QCOMPARE(platform.events.last(), QStringLiteral("currentAppChanged -"));
    QVERIFY(!app->current);
}

void TestMacPlatformBase::activationSearchesOnceAndPollsUntilDeactivated()
{
    TestPlatform platform;
    platform.setActive(true);
    platform.setActive(true);
    QCOMPARE(platform.searches, 1);
    QVERIFY(platform.isActivated());
    // The poll announces a change of brightness only.
    platform.poll();
    QVERIFY(!platform.events.contains(QStringLiteral("brightnessChanged")));
    platform.brightness = 40;
    platform.poll();
    platform.poll();
    QCOMPARE(platform.events.count(QStringLiteral("brightnessChanged")), 1);
    // The timer polls by itself while active.
    platform.brightness = 41;
    QTRY_COMPARE_WITH_TIMEOUT(platform.events.count(QStringLiteral("brightnessChanged")), 2, 5000);
    platform.setActive(false);
    QVERIFY(!platform.isActivated());

    // Found applications: a later activation does not search again.
    platform.addFoundApps({ { QStringLiteral("com.a"), QStringLiteral("A"), QString(), nullptr } });
    platform.setActive(true);
    QCOMPARE(platform.searches, 1);
}

void TestMacPlatformBase::deactivationDropsTheFrontAppQuietly()
{
    TestPlatform platform;
    platform.setActive(true);
    const RunningApplication front = running(QStringLiteral("com.a"));
    platform.setCurrentRunningApp(&front);
    platform.events.clear();
    platform.setActive(false);
    QVERIFY(!platform.getCurrentApp());
    QVERIFY(!platform.appforId(QStringLiteral("com.a"))->current);
    QVERIFY(platform.events.isEmpty());
    // Deactivating again does nothing.
    platform.setActive(false);
    QVERIFY(platform.events.isEmpty());
}

void TestMacPlatformBase::stoppingAPollThatNeverStartedIsLogged()
{
    TestPlatform platform;
    QTest::ignoreMessage(QtWarningMsg, "timer is null");
    platform.stopPolling();
}

void TestMacPlatformBase::screenSaverThenLockIsOneChange()
{
    TestPlatform platform;
    platform.screenNotification(QStringLiteral("com.apple.screensaver.didstart"));
    platform.screenNotification(QStringLiteral("com.apple.screenIsLocked"));
    QCOMPARE(platform.events, QStringList { QStringLiteral("screenLockChanged") });
    QVERIFY(platform.getScreenLocked());
    // The screen saver stopping reports unlocked, even with the lock screen still up.
    platform.screenNotification(QStringLiteral("com.apple.screensaver.didstop"));
    QVERIFY(!platform.getScreenLocked());
    platform.setScreenLocked(false);
    QCOMPARE(platform.events.size(), 2);
    platform.setScreenLocked(true);
    QCOMPARE(platform.events.size(), 3);
}

void TestMacPlatformBase::appsForAFileAreKnownOnesInTheSystemsOrder()
{
    TestPlatform platform;
    platform.addFoundApps(
        { { QStringLiteral("com.preview"), QStringLiteral("Preview"), QString(), nullptr },
            { QStringLiteral("com.editor"), QStringLiteral("Editor"), QString(), nullptr } });
    platform.handlers = QStringList { QStringLiteral("com.editor"), QStringLiteral("com.elsewhere"),
        QStringLiteral("com.preview") };
    const QVector<App *> apps = platform.appsForFileType(QStringLiteral("png"));
    QCOMPARE(apps.size(), 2);
    QCOMPARE(apps.at(0)->id, QStringLiteral("com.editor"));
    QCOMPARE(apps.at(1)->id, QStringLiteral("com.preview"));
    QCOMPARE(platform.getInstalledApps().size(), 2);
    QVERIFY(platform.appsForFileType(QString()).isEmpty());
}

void TestMacPlatformBase::filesOpenWithTheDefaultOrAKnownApp()
{
    TestPlatform platform;
    platform.addFoundApps({ { QStringLiteral("com.preview"), QStringLiteral("Preview.app"),
        QStringLiteral("/Applications/Preview.app"), nullptr } });
    platform.openFile(QStringLiteral("/p/a.png"), QStringLiteral("png"), QString());
    platform.openFile(
        QStringLiteral("/p/a.png"), QStringLiteral("png"), QStringLiteral("com.nobody"));
    platform.openFile(
        QStringLiteral("/p/a.png"), QStringLiteral("png"), QStringLiteral("com.preview"));
    // By the display name, not the path.
    QCOMPARE(platform.opened,
        (QStringList { QStringLiteral("default /p/a.png"), QStringLiteral("Preview /p/a.png") }));
}

QTEST_MAIN(TestMacPlatformBase)
#include "tst_macplatformbase.moc"

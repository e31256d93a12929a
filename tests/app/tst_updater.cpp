#include "appcast.h"
#include "constants.h"
#include "feedupdater.h"
#include "httpfixture.h"
#include "logcapture.h"
#include "testenvironment.h"
#include "updater.h"
#include "urlrecorder.h"

#include <QAction>
#include <QApplication>
#include <QDesktopServices>
#include <QFile>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QSettings>
#include <QSignalSpy>
#include <QVBoxLayout>
#include <QtTest>

namespace {
QByteArray feed(const char *name)
{
    QFile file(QStringLiteral(VELM_FEEDS_DIR "/") + QLatin1String(name));
    if (!file.open(QIODevice::ReadOnly))
        qFatal("missing feed %s", name);
    return file.readAll();
}

QList<QMessageBox *> openBoxes()
{
    QList<QMessageBox *> boxes;
    for (QWidget *widget : QApplication::topLevelWidgets()) {
        if (auto *box = qobject_cast<QMessageBox *>(widget); box && box->isVisible())
            boxes << box;
    }
    return boxes;
}
} // namespace

// The update model, its widgets and texts, and the update feed.
class TestUpdater : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void init();
    void cleanup();
    void textsFollowTheStatus_data();
    void textsFollowTheStatus();
    void sameStatusTwiceEmitsOnce();
    void buttonHiddenWhileDownloading();
    void failedDownloadButtonStartsAUserVisibleCheck();
    void widgetsAreRemadeAfterDestruction();
    void withoutFeedNothingIsChecked();
    void newerReleaseIsOffered();
    void sameVersionIsUpToDate();
    void olderVersionIsUpToDate();
    void malformedFeedChangesNothing();
    void unreachableFeedIsReported();
    void userActionOpensTheDownloadPage();
    void parserPicksTheNewestItemForThisSystem();

private:
    HttpFixture *http = nullptr;
    UrlRecorder recorder;
    updater::FeedUpdater *updater = nullptr;
    void useFeed(const QByteArray &target, const QByteArray &body, int status = 200);
    bool checkInBackground();
};

void TestUpdater::initTestCase()
{
    TestEnvironment::setUp();
    QDesktopServices::setUrlHandler(QStringLiteral("https"), &recorder, "open");
}

void TestUpdater::init()
{
    TestEnvironment::clearSettings();
    recorder.opened.clear();
    http = new HttpFixture;
    updater = new updater::FeedUpdater;
    Updater::setInstance(updater);
}

void TestUpdater::cleanup()
{
    for (QMessageBox *box : openBoxes())
        delete box;
    delete updater;
    updater = nullptr;
    delete http;
}

void TestUpdater::useFeed(const QByteArray &target, const QByteArray &body, int status)
{
    FixtureResponse response;
    response.status = status;
    response.reason = status == 200 ? QByteArray("OK") : QByteArray("Not Found");
    response.body = body;
    response.headers = { { "Content-Type", "application/rss+xml" } };
    http->script(target, { response });
    QSettings().setValue(QStringLiteral("updateFeed"), http->url(target).toString());
}

bool TestUpdater::checkInBackground()
{
    QSignalSpy finished(updater, &updater::FeedUpdater::checkFinished);
    updater->checkAndMaybeShowUI();
    return finished.count() == 1 || finished.wait(10000);
}

void TestUpdater::textsFollowTheStatus_data()
{
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("action");
    QTest::addColumn<QString>("button");
    QTest::addColumn<QString>("label");
    QTest::newRow("not checked") << 0 << "Check for Updates..."
                                 << "Check for Updates"
                                 << "Didn't check for updates.";
    QTest::newRow("up to date") << 1 << "Check for Updates..."
                                << "Check for Updates"
                                << "You have the latest version.";
    QTest::newRow("available") << 2 << "Version 2.0 is available..."
                               << "Download Update"
                               << "Version 2.0 is available.";
    QTest::newRow("downloading") << 3 << "Downloading version 2.0..."
                                 << "Downloading update..."
                                 << "Downloading update...";
    QTest::newRow("downloaded") << 4 << "Restart to Update"
                                << "Restart to Update"
                                << "An update has been downloaded and is ready to be installed.";
    QTest::newRow("failed") << 5 << "Version 2.0 download failed"
                            << "Retry Update Download"
                            << "Version 2.0 download failed.";
}

void TestUpdater::textsFollowTheStatus()
{
    QFETCH(int, status);
    QFETCH(QString, action);
    QFETCH(QString, button);
    QFETCH(QString, label);
    // The display version wins over the version when there is one.
    updater->setVersion(QStringLiteral("200"));
    updater->setDisplayVersion(QStringLiteral("2.0"));
    QAction *menuAction = updater->getAction();
    QPushButton *pushButton = updater->getButton();
    QLabel *statusLabel = updater->getLabel();
    QCOMPARE(menuAction->menuRole(), QAction::ApplicationSpecificRole);
    updater->setStatus(Updater::Status(status));
    QCOMPARE(menuAction->text(), action);
    QCOMPARE(pushButton->text(), button);
    QCOMPARE(statusLabel->text(), label);
    // Widgets made later start with the current texts.
    delete statusLabel;
    QCOMPARE(updater->getLabel()->text(), label);
    updater->setDisplayVersion(QString());
    if (status == 2) {
        updater->setStatus(Updater::UpToDate);
        updater->setStatus(Updater::UpdateAvailable);
        QCOMPARE(menuAction->text(), QStringLiteral("Version 200 is available..."));
    }
}

void TestUpdater::sameStatusTwiceEmitsOnce()
{
    QSignalSpy status(updater, &Updater::statusChanged);
    QSignalSpy actionText(updater, &Updater::actionTextChanged);
    updater->setStatus(Updater::UpToDate);
    updater->setStatus(Updater::UpToDate);
    QCOMPARE(status.count(), 1);
    QCOMPARE(status.at(0).at(0).value<Updater::Status>(), Updater::UpToDate);
    QCOMPARE(actionText.count(), 1);
    QCOMPARE(actionText.at(0).at(0).toString(), QStringLiteral("Check for Updates..."));
    updater->setStatus(Updater::NotChecked);
    QCOMPARE(status.count(), 2);
}

void TestUpdater::buttonHiddenWhileDownloading()
{
    QWidget box;
    auto *layout = new QVBoxLayout(&box);
    layout->addWidget(updater->getButton());
    box.show();
    QVERIFY(QTest::qWaitForWindowExposed(&box));
    QVERIFY(updater->getButton()->isVisible());
    updater->setStatus(Updater::DownloadingUpdate);
    QVERIFY(!updater->getButton()->isVisible());
    updater->setStatus(Updater::UpdateDownloaded);
    QVERIFY(updater->getButton()->isVisible());
}

void TestUpdater::failedDownloadButtonStartsAUserVisibleCheck()
{
    useFeed("/feed.xml", feed("same.xml"));
    updater->setVersion(QStringLiteral("1.6"));
    updater->setStatus(Updater::UpdateDownloadFailed);
    QPushButton *button = updater->getButton();
    QCOMPARE(button->text(), QStringLiteral("Retry Update Download"));
    QSignalSpy finished(updater, &updater::FeedUpdater::checkFinished);
    button->click();
    QVERIFY(finished.wait(10000));
    QCOMPARE(http->count("/feed.xml"), 1);
    QCOMPARE(updater->getStatus(), Updater::UpToDate);
    // Asked by the user, the answer is shown to them.
    QTRY_COMPARE(openBoxes().size(), 1);
    QCOMPARE(openBoxes().first()->text(), QStringLiteral("You have the latest version."));
}

void TestUpdater::widgetsAreRemadeAfterDestruction()
{
    QPushButton *first = updater->getButton();
    QCOMPARE(updater->getButton(), first);
    delete first;
    QPushButton *second = updater->getButton();
    QVERIFY(second);
    QCOMPARE(second->text(), QStringLiteral("Check for Updates"));
    // An unplaced button never opens as a window of its own.
    updater->setStatus(Updater::UpToDate);
    QVERIFY(!second->isVisible());
}

void TestUpdater::withoutFeedNothingIsChecked()
{
    QVERIFY(updater->feedUrl().isEmpty());
    QVERIFY(checkInBackground());
    QCOMPARE(updater->getStatus(), Updater::NotChecked);
    QVERIFY(http->requests.isEmpty());
    QVERIFY(openBoxes().isEmpty());
    // The user asking gets told why nothing happens.
    updater->getAction()->trigger();
    QTRY_COMPARE(openBoxes().size(), 1);
    QVERIFY(openBoxes().first()->text().contains(QStringLiteral("does not check for updates")));
    QCOMPARE(updater->getStatus(), Updater::NotChecked);
}

void TestUpdater::newerReleaseIsOffered()
{
    useFeed("/appcast.xml", feed("newer.xml"));
    QSignalSpy status(updater, &Updater::statusChanged);
    QVERIFY(checkInBackground());
    QCOMPARE(updater->getStatus(), Updater::UpdateAvailable);
    QCOMPARE(status.count(), 1);
    QCOMPARE(updater->getVersion(), QStringLiteral("1.6.2"));
    QCOMPARE(updater->getLabel()->text(), QStringLiteral("Version 1.6.2 \"Spring\" is available."));
    QCOMPARE(updater->downloadPage(), QUrl(QStringLiteral("https://velm.app/download/1.6.2")));
    // A background check opens nothing.
    QVERIFY(recorder.opened.isEmpty());
    QVERIFY(openBoxes().isEmpty());
    const FixtureRequest request = http->requests.first();
    QCOMPARE(request.method, QByteArray("GET"));
}

void TestUpdater::sameVersionIsUpToDate()
{
    useFeed("/appcast.xml", feed("same.xml"));
    QVERIFY(checkInBackground());
    QCOMPARE(updater->getStatus(), Updater::UpToDate);
    QCOMPARE(updater->getLabel()->text(), QStringLiteral("You have the latest version."));
}

void TestUpdater::olderVersionIsUpToDate()
{
    useFeed("/appcast.xml", feed("older.xml"));
    QVERIFY(checkInBackground());
    QCOMPARE(updater->getStatus(), Updater::UpToDate);
}

void TestUpdater::malformedFeedChangesNothing()
{
    useFeed("/appcast.xml", feed("malformed.xml"));
    LogCapture log;
    QVERIFY(checkInBackground());
    QCOMPARE(updater->getStatus(), Updater::NotChecked);
    QCOMPARE(log.count(QStringLiteral("Cannot check for updates")), 1);
    // A good feed afterwards is read as usual.
    useFeed("/appcast.xml", feed("newer.xml"));
    QVERIFY(checkInBackground());
    QCOMPARE(updater->getStatus(), Updater::UpdateAvailable);
}

void TestUpdater::unreachableFeedIsReported()
{
    useFeed("/gone.xml", QByteArray("gone"), 404);
    updater->setStatus(Updater::UpToDate);
    QSignalSpy finished(updater, &updater::FeedUpdater::checkFinished);
    updater->checkAndShowUI();
    QVERIFY(finished.wait(10000));
    QVERIFY(!finished.first().first().toString().isEmpty());
    // The last answer stands; the user learns that this check failed.
    QCOMPARE(updater->getStatus(), Updater::UpToDate);
    QTRY_COMPARE(openBoxes().size(), 1);
    QCOMPARE(openBoxes().first()->text(), QStringLiteral("Cannot check for updates."));
}

void TestUpdater::userActionOpensTheDownloadPage()
{
    useFeed("/appcast.xml", feed("newer.xml"));
    QVERIFY(checkInBackground());
    QCOMPARE(updater->getStatus(), Updater::UpdateAvailable);
    const int requests = http->requests.size();
    updater->getButton()->click();
    QCOMPARE(
        recorder.opened, QList<QUrl> { QUrl(QStringLiteral("https://velm.app/download/1.6.2")) });
    // Nothing was downloaded or checked again.
    QCOMPARE(http->requests.size(), requests);
    QCOMPARE(updater->getStatus(), Updater::UpdateAvailable);
}

void TestUpdater::parserPicksTheNewestItemForThisSystem()
{
    QString error;
    const QList<AppcastItem> items = Appcast::parse(feed("newer.xml"), &error);
    QVERIFY(error.isEmpty());
    // The macOS-only release is not for us.
    QCOMPARE(items.size(), 3);
    QCOMPARE(items.at(0).version, QStringLiteral("1.4"));
    QCOMPARE(items.at(2).version, QStringLiteral("1.6"));
    QCOMPARE(items.at(2).downloadPage,
        QUrl(QStringLiteral("https://velm.app/files/velm-server-1.6.tar.gz")));
    QCOMPARE(Appcast::newest(items, QStringLiteral("1.5"))->version, QStringLiteral("1.6.2"));
    QCOMPARE(Appcast::newest(items, QStringLiteral("1.6.2")), nullptr);
    QVERIFY(Appcast::parse(feed("malformed.xml"), &error).isEmpty());
    QVERIFY(!error.isEmpty());
    error.clear();
    QVERIFY(Appcast::parse(QByteArray("<html><body>hi</body></html>"), &error).isEmpty());
    QCOMPARE(error, QStringLiteral("not an RSS document"));
}

QTEST_MAIN(TestUpdater)
#include "tst_updater.moc"

#include "aboutbox.h"
#include "clickablelabel.h"
#include "constants.h"
#include "corefixture.h"
#include "feedupdater.h"
#include "preferences.h"
#include "serverfixture.h"
#include "testenvironment.h"
#include "updater.h"
#include "urlrecorder.h"
#include "webremotedialog.h"

#include <QCheckBox>
#include <QDesktopServices>
#include <QLabel>
#include <QLayout>
#include <QPushButton>
#include <QSettings>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QtTest>

// The preferences and about dialogs, and the clickable label.
class TestDialogs : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void init();
    void cleanup();
    void preferencesWithoutDevicesShowOnlyTheSwitches();
    void preferencesLayout();
    void switchesWriteThrough();
    void deauthorizeAllEmptiesTheSection();
    void aboutBoxLayout();
    void aboutBoxHidesTheButtonWhileDownloading();
    void aboutBoxIconOpensTheWebPage();
    void clickableLabelNeedsReleaseInside();
    void dialogsDeleteThemselvesWhenClosed();
    void webRemoteCodeReadsAsTheAddress_data();
    void webRemoteCodeReadsAsTheAddress();
    void webRemoteWithoutAddress();

private:
    CoreFixture *fixture = nullptr;
    UrlRecorder recorder;
};

void TestDialogs::initTestCase()
{
    TestEnvironment::setUp();
    QDesktopServices::setUrlHandler(QStringLiteral("https"), &recorder, "open");
    Updater::setInstance(new updater::FeedUpdater(this));
}

void TestDialogs::init()
{
    fixture = new CoreFixture;
    QVERIFY(fixture->start());
    recorder.opened.clear();
}

void TestDialogs::cleanup()
{
    delete fixture;
    fixture = nullptr;
    Updater::instance()->setStatus(Updater::NotChecked);
}

void TestDialogs::preferencesWithoutDevicesShowOnlyTheSwitches()
{
    QCOMPARE(fixture->core->server->totalAuthorizations(), 0);
    Preferences preferences;
    QCOMPARE(preferences.findChildren<QCheckBox *>().size(), 2);
    QVERIFY(preferences.findChildren<QLabel *>().isEmpty());
    QVERIFY(preferences.findChildren<QPushButton *>().isEmpty());
    QVERIFY(!preferences.devicesLabel);
}

void TestDialogs::preferencesLayout()
{
    Preferences preferences;
    QCOMPARE(preferences.windowTitle(), QStringLiteral("Velm Server Preferences"));
    QCOMPARE(preferences.autostartBox->text(),
        QStringLiteral("Automatically start Velm Server at login"));
    QCOMPARE(preferences.preventSleepBox->text(),
        QStringLiteral("Prevent sleep when clients are connected"));
    QLayout *outer = preferences.layout();
    QCOMPARE(outer->sizeConstraint(), QLayout::SetFixedSize);
    QCOMPARE(outer->contentsMargins(), QMargins(30, 15, 30, 15));
    QCOMPARE(outer->spacing(), 30);
    QVERIFY(preferences.testAttribute(Qt::WA_DeleteOnClose));
    QVERIFY(!preferences.parent());
}

void TestDialogs::switchesWriteThrough()
{
    QSettings().setValue(QStringLiteral("autoStart"), false);
    QSettings().setValue(QStringLiteral("preventSleep"), true);
    Preferences preferences;
    QVERIFY(!preferences.autostartBox->isChecked());
    QVERIFY(preferences.preventSleepBox->isChecked());
    preferences.autostartBox->click();
    QCOMPARE(QSettings().value(QStringLiteral("autoStart")).toBool(), true);
    QVERIFY(fixture->platform->calls.contains(QStringLiteral("setAutostart(true)")));
    preferences.preventSleepBox->click();
    QCOMPARE(QSettings().value(QStringLiteral("preventSleep")).toBool(), false);
    QVERIFY(!fixture->core->getPreventSleep());
}

void TestDialogs::deauthorizeAllEmptiesTheSection()
{
    Pairing::authorize(QStringLiteral("phone-1"), QStringLiteral("token-1"));
    Pairing::authorize(QStringLiteral("phone-2"), QStringLiteral("token-2"));
    QCOMPARE(fixture->core->server->totalAuthorizations(), 2);
    auto *preferences = new Preferences;
    preferences->show();
    QVERIFY(preferences->devicesLabel);
    QCOMPARE(preferences->devicesLabel->text(), QStringLiteral("2 devices authorized"));
    QCOMPARE(preferences->deauthorizeButton->text(), QStringLiteral("Deauthorize All"));
    QCOMPARE(preferences->deauthorizeButton->sizePolicy().horizontalPolicy(), QSizePolicy::Minimum);
    preferences->deauthorizeButton->click();
    QCOMPARE(fixture->core->server->totalAuthorizations(), 0);
    QVERIFY(preferences->devicesLabel->text().isEmpty());
    QVERIFY(!preferences->deauthorizeButton->isEnabled());
    QVERIFY(preferences->isVisible());
    QPointer<Preferences> guard(preferences);
    preferences->close();
    QTRY_VERIFY(!guard);
    // Opened again, there is nothing to deauthorize.
    Preferences again;
    QVERIFY(!again.devicesLabel);
    QVERIFY(again.findChildren<QPushButton *>().isEmpty());
}

void TestDialogs::aboutBoxLayout()
{
    AboutBox box;
    box.show();
    QVERIFY(QTest::qWaitForWindowExposed(&box));
    QCOMPARE(box.windowTitle(), QStringLiteral("About Velm Server"));
    const QList<QLabel *> labels = box.findChildren<QLabel *>();
    QStringList texts;
    for (QLabel *label : labels)
        texts << label->text();
    QVERIFY(texts.contains(QStringLiteral("Velm Server")));
    QVERIFY(texts.contains(QStringLiteral("Remote control")));
    QVERIFY(texts.contains(QStringLiteral("Version 1.5")));
    QVERIFY(texts.contains(QStringLiteral("Didn't check for updates.")));
    QVERIFY(texts.contains(QStringLiteral("© 2022 Velm")));
    QLayout *layout = box.layout();
    QCOMPARE(layout->contentsMargins(), QMargins(50, 25, 50, 25));
    QCOMPARE(layout->sizeConstraint(), QLayout::SetFixedSize);
    // Order: icon, name (bold), tagline, version, status, button, ownership.
    QList<QWidget *> order;
    for (int i = 0; i < layout->count(); ++i) {
        if (QWidget *widget = layout->itemAt(i)->widget())
            order << widget;
    }
    QCOMPARE(order.size(), 7);
    QCOMPARE(order.at(0), box.iconLabel);
    QCOMPARE(static_cast<QLabel *>(order.at(1))->font().weight(), int(QFont::Bold));
    QCOMPARE(order.at(4), Updater::instance()->getLabel());
    QCOMPARE(order.at(5), Updater::instance()->getButton());
    QVERIFY(Updater::instance()->getLabel()->wordWrap());
    QVERIFY(order.at(3)->testAttribute(Qt::WA_MacSmallSize));
    // The image is the 128-pixel application image at the label's ratio.
    QCOMPARE(box.iconLabel->pixmap(Qt::ReturnByValue).size(),
        QSize(128, 128) * box.iconLabel->devicePixelRatioF());
    QVERIFY(Updater::instance()->getButton()->isVisible());
}

void TestDialogs::aboutBoxHidesTheButtonWhileDownloading()
{
    Updater::instance()->setVersion(QStringLiteral("1.6"));
    Updater::instance()->setStatus(Updater::DownloadingUpdate);
    AboutBox box;
    box.show();
    QVERIFY(QTest::qWaitForWindowExposed(&box));
    QVERIFY(!Updater::instance()->getButton()->isVisible());
    QCOMPARE(Updater::instance()->getLabel()->text(), QStringLiteral("Downloading update..."));
    Updater::instance()->setStatus(Updater::UpdateDownloadFailed);
    QVERIFY(Updater::instance()->getButton()->isVisible());
    QCOMPARE(Updater::instance()->getButton()->text(), QStringLiteral("Retry Update Download"));
}

void TestDialogs::aboutBoxIconOpensTheWebPage()
{
    AboutBox box;
    box.show();
    QVERIFY(QTest::qWaitForWindowExposed(&box));
    QTest::mouseClick(box.iconLabel, Qt::LeftButton);
    QCOMPARE(recorder.opened, QList<QUrl> { QUrl(QString(Constants::WEBSITE)) });
}

void TestDialogs::clickableLabelNeedsReleaseInside()
{
    ClickableLabel label;
    label.resize(50, 20);
    label.show();
    QVERIFY(QTest::qWaitForWindowExposed(&label));
    QCOMPARE(label.cursor().shape(), Qt::PointingHandCursor);
    QSignalSpy clicked(&label, &ClickableLabel::clicked);
    QTest::mousePress(&label, Qt::LeftButton, {}, QPoint(10, 10));
    QTest::mouseRelease(&label, Qt::LeftButton, {}, QPoint(10, 10));
    QCOMPARE(clicked.count(), 1);
    // Pressed inside, dragged off and released outside: nothing.
    QTest::mousePress(&label, Qt::LeftButton, {}, QPoint(10, 10));
    QTest::mouseRelease(&label, Qt::LeftButton, {}, QPoint(80, 10));
    QCOMPARE(clicked.count(), 1);
    QTest::mousePress(&label, Qt::LeftButton, {}, QPoint(10, 10));
    QTest::mouseRelease(&label, Qt::LeftButton, {}, QPoint(49, 19));
    QCOMPARE(clicked.count(), 2);
}

void TestDialogs::dialogsDeleteThemselvesWhenClosed()
{
    QPointer<AboutBox> about = new AboutBox;
    about->show();
    QPointer<QLabel> status = Updater::instance()->getLabel();
    about->close();
    QTRY_VERIFY(!about);
    // The shared widgets went with the box; the next box gets new ones.
    QVERIFY(!status);
    AboutBox next;
    QVERIFY(Updater::instance()->getLabel());
    QCOMPARE(Updater::instance()->getLabel()->parentWidget(), &next);
}

void TestDialogs::webRemoteCodeReadsAsTheAddress_data()
{
    QTest::addColumn<QString>("address");
    QTest::newRow("IPv4") << QStringLiteral("http://192.168.1.20:53123/");
    QTest::newRow("IPv6") << QStringLiteral("http://[fd00::2]:65535/");
}

void TestDialogs::webRemoteCodeReadsAsTheAddress()
{
    QFETCH(QString, address);
    WebRemoteDialog dialog;
    dialog.setAddress(address);
    QVERIFY(dialog.addressLabel->text().contains(address));
    QVERIFY(!dialog.codeLabel->pixmap(Qt::ReturnByValue).isNull());

    // Read back by a real decoder, as a phone's camera would read it off the screen.
    const QString zbar = QStandardPaths::findExecutable(QStringLiteral("zbarimg"));
    QVERIFY2(!zbar.isEmpty(), "zbarimg is not installed (scripts/deps installs it)");
    QTemporaryDir dir;
    const QString file = dir.filePath(QStringLiteral("code.png"));
    QVERIFY(dialog.codeLabel->pixmap(Qt::ReturnByValue).toImage().save(file));
    QProcess decoder;
    decoder.start(zbar, { QStringLiteral("--raw"), QStringLiteral("-q"), file });
    qRegisterMetaType<QProcess::ExitStatus>();
    QSignalSpy finished(&decoder, qOverload<int, QProcess::ExitStatus>(&QProcess::finished));
    QVERIFY(finished.wait(20000));
    QCOMPARE(QString::fromUtf8(decoder.readAllStandardOutput()).trimmed(), address);

    // Dark modules on light, with a light quiet zone.
    const QImage code = WebRemoteDialog::qrCode(address);
    QCOMPARE(code.width(), code.height());
    QCOMPARE(QColor(code.pixel(0, 0)), QColor(Qt::white));
    QCOMPARE(QColor(code.pixel(4, 4)), QColor(Qt::black));
}

void TestDialogs::webRemoteWithoutAddress()
{
    WebRemoteDialog dialog;
    dialog.setAddress(QString());
    QCOMPARE(dialog.addressLabel->text(), QStringLiteral("The server is not listening yet."));
    QVERIFY(dialog.codeLabel->pixmap(Qt::ReturnByValue).isNull());
}

QTEST_MAIN(TestDialogs)
#include "tst_dialogs.moc"

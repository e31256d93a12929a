#include "l.h"
#include "macfocus.h"

#include <QtTest>

using namespace MacFocus;

// Focus classification, what a focused element reports, and the browser-address script.
class TestMacFocus : public QObject
{
    Q_OBJECT
private slots:
    void roles_data();
    void roles();
    void searchFieldWithTheCaretAfterTheThirdCharacter();
    void buttonReportsItsTitle();
    void descriptionStandsInForAnEmptyTitle();
    void textAreasReportNoRange();
    void otherElementsReportNothingElse();
    void browserScriptFromTheCommandSet();
    void noScriptWithoutU();
    void addressUpToTheFirstZeroByte();
};

void TestMacFocus::roles_data()
{
    QTest::addColumn<QString>("role");
    QTest::addColumn<int>("expected");
    QTest::newRow("text field") << QStringLiteral("AXTextField") << int(App::Text);
    QTest::newRow("combo box") << QStringLiteral("AXComboBox") << int(App::Text);
    QTest::newRow("text area") << QStringLiteral("AXTextArea") << int(App::TextArea);
    QTest::newRow("button") << QStringLiteral("AXButton") << int(App::Button);
    QTest::newRow("list") << QStringLiteral("AXList") << int(App::List);
    QTest::newRow("outline") << QStringLiteral("AXOutline") << int(App::List);
    QTest::newRow("table") << QStringLiteral("AXTable") << int(App::Table);
    QTest::newRow("window") << QStringLiteral("AXWindow") << int(App::Window);
    QTest::newRow("group") << QStringLiteral("AXGroup") << int(App::Null);
    QTest::newRow("case matters") << QStringLiteral("axbutton") << int(App::Null);
    QTest::newRow("empty") << QString() << int(App::Null);
}

void TestMacFocus::roles()
{
    QFETCH(QString, role);
    QFETCH(int, expected);
    QCOMPARE(int(classify(role)), expected);
}

void TestMacFocus::searchFieldWithTheCaretAfterTheThirdCharacter()
{
    const Report field = report(QStringLiteral("AXTextField"), QStringLiteral("Search"), QString(),
        QStringLiteral("velm"), Range { 3, 0 });
    QCOMPARE(field.role, App::Text);
    QCOMPARE(field.title, QStringLiteral("Search"));
    QCOMPARE(field.value, QStringLiteral("velm"));
    QCOMPARE(field.extras.value(L::index).toInt(), 3);
    QCOMPARE(field.extras.value(L::length).toInt(), 0);
    QCOMPARE(field.extras.size(), 2);
    // Without a readable selection, no range.
    QVERIFY(report(QStringLiteral("AXTextField"), QString(), QString(), QString(), std::nullopt)
                .extras.isEmpty());
}

void TestMacFocus::buttonReportsItsTitle()
{
    const Report button = report(QStringLiteral("AXButton"), QStringLiteral("OK"),
        QStringLiteral("confirms"), QString(), {});
    QCOMPARE(button.role, App::Button);
    QCOMPARE(button.title, QStringLiteral("OK"));
    QVERIFY(button.extras.isEmpty());
}

void TestMacFocus::descriptionStandsInForAnEmptyTitle()
{
    QCOMPARE(
        report(QStringLiteral("AXList"), QString(), QStringLiteral("Files"), QString(), {}).title,
        QStringLiteral("Files"));
}

void TestMacFocus::textAreasReportNoRange()
{
    const Report area = report(QStringLiteral("AXTextArea"), QStringLiteral("Notes"), QString(),
        QStringLiteral("line"), Range { 2, 1 });
    QCOMPARE(area.role, App::TextArea);
    QVERIFY(area.extras.isEmpty());
}

void TestMacFocus::otherElementsReportNothingElse()
{
    const Report other = report(QStringLiteral("AXGroup"), QStringLiteral("title"),
        QStringLiteral("description"), QStringLiteral("value"), Range { 1, 1 });
    QCOMPARE(other.role, App::Null);
    QVERIFY(other.title.isEmpty());
    QVERIFY(other.value.isEmpty());
    QVERIFY(other.extras.isEmpty());
}

void TestMacFocus::browserScriptFromTheCommandSet()
{
    QCOMPARE(browserScript(
                 QStringLiteral("Safari"), "{\"b\":true,\"u\":\"return URL of front document\"}"),
        QStringLiteral("tell application \"Safari\"\nreturn URL of front document\nend tell"));
}

void TestMacFocus::noScriptWithoutU()
{
    QVERIFY(browserScript(QStringLiteral("Safari"), QByteArray()).isEmpty());
    QVERIFY(browserScript(QStringLiteral("Safari"), "{\"b\":true}").isEmpty());
    QVERIFY(browserScript(QStringLiteral("Safari"), "not json").isEmpty());
    QVERIFY(browserScript(QStringLiteral("Safari"), "{\"u\":3}").isEmpty());
}

void TestMacFocus::addressUpToTheFirstZeroByte()
{
    QCOMPARE(addressFromOutput(QByteArray("https://example.org/\n\0garbage", 29)),
        QStringLiteral("https://example.org/\n"));
    QCOMPARE(addressFromOutput("https://example.org/\n"), QStringLiteral("https://example.org/\n"));
    QCOMPARE(addressFromOutput(QByteArray()), QString());
}

QTEST_GUILESS_MAIN(TestMacFocus)
#include "tst_macfocus.moc"

#include "macdesktop.h"

#include <QtTest>

using namespace MacDesktop;

// Notifications, the screen test, the thin font and accessibility ranges.
class TestMacDesktop : public QObject
{
    Q_OBJECT
private slots:
    void emptySubtitleIsLeftOut();
    void highResolutionAboveOneAndAHalf();
    void missingFontIsNotLookedForAgain();
    void negativeRangesAreEmpty();
};

void TestMacDesktop::emptySubtitleIsLeftOut()
{
    const Notification plain = notification(QStringLiteral("T"), QString(), QStringLiteral("x"));
    QCOMPARE(plain.title, QStringLiteral("T"));
    QVERIFY(!plain.subtitle);
    QCOMPARE(plain.informativeText, QStringLiteral("x"));
    const Notification full
        = notification(QStringLiteral("T"), QStringLiteral("S"), QStringLiteral("x"));
    QCOMPARE(full.subtitle.value_or(QString()), QStringLiteral("S"));
}

void TestMacDesktop::highResolutionAboveOneAndAHalf()
{
    QVERIFY(!isHiDPI(std::nullopt));
    QVERIFY(!isHiDPI(1.0));
    QVERIFY(!isHiDPI(1.5));
    QVERIFY(isHiDPI(2.0));
}

void TestMacDesktop::missingFontIsNotLookedForAgain()
{
    QTemporaryDir dir;
    const QString file = dir.filePath(QStringLiteral("SFNSDisplay.ttf"));
    QVERIFY(!lightFont(12, file).isValid());
    // A font file that appears later is not taken: the look-up was made once.
    QFile font(file);
    QVERIFY(font.open(QIODevice::WriteOnly));
    font.close();
    QVERIFY(!lightFont(12, file).isValid());
    QVERIFY(!lightFont(30, file).isValid());
}

void TestMacDesktop::negativeRangesAreEmpty()
{
    QCOMPARE(rangeOrEmpty(-1, 5).location, 0L);
    QCOMPARE(rangeOrEmpty(-1, 5).length, 0L);
    QCOMPARE(rangeOrEmpty(3, -2).length, 0L);
    QCOMPARE(rangeOrEmpty(3, 0).location, 3L);
    QCOMPARE(listLimit, 100L);
}

QTEST_MAIN(TestMacDesktop)
#include "tst_macdesktop.moc"

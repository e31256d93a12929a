#include "macapps.h"

#include <QtTest>

using namespace MacApps;

// Application names, search scopes, icon images and the fixed names of the login item and
// the sandbox scripts.
class TestMacApps : public QObject
{
    Q_OBJECT
private slots:
    void appSuffixRemovedExactly();
    void searchScopesInOrder();
    void iconTakesTheFirstOfEachWantedWidth();
    void iconStopsWhenEverySizeIsTaken();
    void iconWithoutMatchingImagesIsEmpty();
    void fixedNamesAndFolders();
};

void TestMacApps::appSuffixRemovedExactly()
{
    QCOMPARE(displayName(QStringLiteral("Safari.app")), QStringLiteral("Safari"));
    QCOMPARE(displayName(QStringLiteral("Safari")), QStringLiteral("Safari"));
    QCOMPARE(displayName(QStringLiteral("Odd.APP")), QStringLiteral("Odd.APP"));
    QCOMPARE(displayName(QStringLiteral("Two.app.app")), QStringLiteral("Two.app"));
    QCOMPARE(displayName(QStringLiteral(".app")), QString());
}

void TestMacApps::searchScopesInOrder()
{
    QCOMPARE(searchScopes(QStringLiteral("/Users/ann")),
        (QStringList { QStringLiteral("/Applications"), QStringLiteral("/System/Applications"),
            QStringLiteral("/Users/ann/Applications") }));
}

void TestMacApps::iconTakesTheFirstOfEachWantedWidth()
{
    QCOMPARE(iconSizes(), (QVector<int> { 32, 48, 128, 256 }));
    // 16 is not wanted, the second 32 is ignored, 512 is not wanted.
    QCOMPARE(iconRepresentations({ 16, 32, 32, 512, 48, 128 }), (QVector<int> { 1, 4, 5 }));
}

void TestMacApps::iconStopsWhenEverySizeIsTaken()
{
    QCOMPARE(iconRepresentations({ 256, 128, 48, 32, 32, 64 }), (QVector<int> { 0, 1, 2, 3 }));
}

void TestMacApps::iconWithoutMatchingImagesIsEmpty()
{
    QVERIFY(iconRepresentations({ 16, 64, 512, 32.5 }).isEmpty());
    QVERIFY(iconRepresentations({}).isEmpty());
}

void TestMacApps::fixedNamesAndFolders()
{
    QCOMPARE(loginItemIdentifier(), QStringLiteral("org.brannow.quessa.VelmHelper"));
    QCOMPARE(sandboxScriptFolder(QStringLiteral("/Users/ann")),
        QStringLiteral("/Users/ann/Library/Application Scripts/org.brannow.quessa.brellix"));
    QCOMPARE(sandboxScripts(),
        (QStringList { QStringLiteral("delete-refresh.applescript"),
            QStringLiteral("delete.applescript"), QStringLiteral("refresh.applescript") }));
}

QTEST_GUILESS_MAIN(TestMacApps)
#include "tst_macapps.moc"

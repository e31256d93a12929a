#include "keys.h"

#include <QtTest>

// How key sequences are read, and the key table without a keyboard layout.
class TestKeys : public QObject
{
    Q_OBJECT
private slots:
    void sequencesSplitAtCommas_data();
    void sequencesSplitAtCommas();
    void shortcuts_data();
    void shortcuts();
    void tableWithoutLayout();
};

void TestKeys::sequencesSplitAtCommas_data()
{
    QTest::addColumn<QString>("sequence");
    QTest::addColumn<QStringList>("parts");
    QTest::newRow("three keys") << "a,b,c" << QStringList { "a", "b", "c" };
    QTest::newRow("empty part kept") << "a,,b" << QStringList { "a", "", "b" };
    QTest::newRow("ends with a comma: one shortcut") << "Ctrl+," << QStringList { "Ctrl+," };
    QTest::newRow("x then Ctrl+, is one shortcut") << "x,Ctrl+," << QStringList { "x,Ctrl+," };
    QTest::newRow("copy, paste") << "Ctrl+c,Ctrl+v" << QStringList { "Ctrl+c", "Ctrl+v" };
    QTest::newRow("single") << "space" << QStringList { "space" };
}

void TestKeys::sequencesSplitAtCommas()
{
    QFETCH(QString, sequence);
    QFETCH(QStringList, parts);
    QCOMPARE(Keys::shortcuts(sequence), parts);
}

void TestKeys::shortcuts_data()
{
    QTest::addColumn<QString>("shortcut");
    QTest::addColumn<int>("modifiers");
    QTest::addColumn<QByteArray>("key");
    QTest::newRow("Ctrl+Shift+T") << "Ctrl+Shift+T" << int(Keys::Ctrl | Keys::Shift)
                                  << QByteArray("t");
    // "ctrl" is no modifier word: it is a key, replaced by the later "c".
    QTest::newRow("ctrl+c") << "ctrl+c" << 0 << QByteArray("c");
    QTest::newRow("Ctrl+,") << "Ctrl+," << int(Keys::Ctrl) << QByteArray(",");
    QTest::newRow("x,Ctrl+,") << "x,Ctrl+," << 0 << QByteArray(",");
    QTest::newRow("Ctrl+Alt: no key") << "Ctrl+Alt" << int(Keys::Ctrl | Keys::Alt) << QByteArray();
    QTest::newRow("Ctrl++ is the plus key") << "Ctrl++" << int(Keys::Ctrl) << QByteArray("+");
    QTest::newRow("Meta and Alt") << "Meta+Alt+F5" << int(Keys::Meta | Keys::Alt)
                                  << QByteArray("f5");
    QTest::newRow("only ASCII letters fold")
        << QString::fromUtf8("Shift+É") << int(Keys::Shift) << QByteArray("\xc3\x89");
}

void TestKeys::shortcuts()
{
    QFETCH(QString, shortcut);
    QFETCH(int, modifiers);
    QFETCH(QByteArray, key);
    const Keys::Chord chord = Keys::parse(shortcut);
    QCOMPARE(chord.modifiers, modifiers);
    QCOMPARE(chord.key, key);
}

void TestKeys::tableWithoutLayout()
{
    // No X server: the US table on evdev keycodes, then the named keys.
    const Keys::Table table(nullptr);
    QCOMPARE(table.code("a"), 38u);
    QCOMPARE(table.code("z"), 52u);
    QCOMPARE(table.code("0"), 19u);
    QCOMPARE(table.code("\""), 48u);
    // The apostrophe itself is not in the table, as on the other platform.
    QCOMPARE(table.code("'"), 0u);
    QCOMPARE(table.code("return"), 36u);
    QCOMPARE(table.code("delete"), 22u);
    QCOMPARE(table.code("backspace"), 22u);
    QCOMPARE(table.code("forwarddelete"), 119u);
    QCOMPARE(table.code("esc"), table.code("escape"));
    QCOMPARE(table.code("f1"), 67u);
    QCOMPARE(table.code("f20"), 198u);
    QCOMPARE(table.code("pad+"), 86u);
    QCOMPARE(table.code("nosuchkey"), 0u);
    QCOMPARE(table.modifierCodes(Keys::Ctrl | Keys::Shift), (QList<unsigned> { 37, 50 }));
    QCOMPARE(table.modifierCodes(Keys::Meta | Keys::Alt), (QList<unsigned> { 64, 133 }));
}

QTEST_APPLESS_MAIN(TestKeys)
#include "tst_keys.moc"

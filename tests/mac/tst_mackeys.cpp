#include "logcapture.h"
#include "mackeys.h"

#include <QtTest>

using namespace MacKeys;

namespace {
// What a French (AZERTY) layout types without modifiers on a few keys: where a US keyboard has
// "q" (12) it types "a", where it has "a" (0) it types "q", "w" and "z" swap, and the key of
// the US "m" types ",".
QByteArray french(quint16 code)
{
    switch (code) {
    case 0:
        return "q";
    case 12:
        return "a";
    case 13:
        return "z";
    case 6:
        return "w";
    case 46:
        return ",";
    case 41:
        return "m";
    case 69:
        return "+";
    case 36:
        return "\r";
    default:
        return QByteArray();
    }
}
} // namespace

// Key sequences turned into macOS virtual key codes and event flags.
class TestMacKeys : public QObject
{
    Q_OBJECT
private slots:
    void modifierWordsAreExact();
    void ctrlShiftTPressesCommandShiftT();
    void lowerCaseCtrlIsAKey();
    void partsInOrderAndEmptyPartsDoNothing();
    void trailingCommaMakesOneShortcut();
    void modifiersAloneAreUnhandled();
    void unknownKeysAreLoggedAndSkipped();
    void fixedUsTable();
    void namedKeysInEveryTable();
    void frenchLayoutFromItsCharacters();
    void laterCodeForTheSameTextWins();
    void plusNeedsAKeyThatTypesIt();
};

void TestMacKeys::modifierWordsAreExact()
{
    QCOMPARE(modifierFlag(QStringLiteral("Ctrl")), quint64(0x100000));
    QCOMPARE(modifierFlag(QStringLiteral("Shift")), quint64(0x20000));
    QCOMPARE(modifierFlag(QStringLiteral("Alt")), quint64(0x80000));
    QCOMPARE(modifierFlag(QStringLiteral("Meta")), quint64(0x40000));
    QCOMPARE(modifierFlag(QStringLiteral("ctrl")), quint64(0));
    QCOMPARE(modifierFlag(QStringLiteral("CTRL")), quint64(0));
    QCOMPARE(modifierFlag(QStringLiteral("Cmd")), quint64(0));
}

void TestMacKeys::ctrlShiftTPressesCommandShiftT()
{
    const Table table = Table::build(nullptr);
    const auto press = resolve(QStringLiteral("Ctrl+Shift+T"), table);
    QVERIFY(press);
    QCOMPARE(press->code, quint16(17));
    QCOMPARE(press->flags, quint64(Command | Shift));
}

void TestMacKeys::lowerCaseCtrlIsAKey()
{
    // "ctrl" is no modifier word: it is the key, then replaced by "c".
    const Chord chord = parse(QStringLiteral("ctrl+c"));
    QCOMPARE(chord.flags, quint64(0));
    QCOMPARE(chord.key, QByteArray("c"));
    const auto press = resolve(QStringLiteral("ctrl+c"), Table::build(nullptr));
    QVERIFY(press);
    QCOMPARE(press->code, quint16(8));
    QCOMPARE(press->flags, quint64(0));
}

void TestMacKeys::partsInOrderAndEmptyPartsDoNothing()
{
    QCOMPARE(shortcuts(QStringLiteral("a,b,c")),
        (QStringList { QStringLiteral("a"), QStringLiteral("b"), QStringLiteral("c") }));
    QCOMPARE(shortcuts(QStringLiteral("a,,b")),
        (QStringList { QStringLiteral("a"), QString(), QStringLiteral("b") }));
    const Table table = Table::build(nullptr);
    LogCapture log;
    QList<quint16> pressed;
    for (const QString &shortcut : shortcuts(QStringLiteral("a,,b"))) {
        if (const auto press = resolve(shortcut, table))
            pressed << press->code;
    }
    QCOMPARE(pressed, (QList<quint16> { 0, 11 }));
    // The empty part does nothing, not even a warning.
    QVERIFY(log.lines().filter(QStringLiteral("Unhandled key")).isEmpty());
}

void TestMacKeys::trailingCommaMakesOneShortcut()
{
    const Table table = Table::build(nullptr);
    QCOMPARE(shortcuts(QStringLiteral("Ctrl+,")), QStringList { QStringLiteral("Ctrl+,") });
    const auto commandComma = resolve(QStringLiteral("Ctrl+,"), table);
    QVERIFY(commandComma);
    QCOMPARE(commandComma->code, quint16(43));
    QCOMPARE(commandComma->flags, quint64(Command));
    // "x,Ctrl+," is one shortcut whose "+" parts are "x,Ctrl" and ",": plain comma.
    QCOMPARE(shortcuts(QStringLiteral("x,Ctrl+,")), QStringList { QStringLiteral("x,Ctrl+,") });
    const auto comma = resolve(QStringLiteral("x,Ctrl+,"), table);
    QVERIFY(comma);
    QCOMPARE(comma->code, quint16(43));
    QCOMPARE(comma->flags, quint64(0));
}

void TestMacKeys::modifiersAloneAreUnhandled()
{
    LogCapture log;
    QVERIFY(!resolve(QStringLiteral("Ctrl+Alt"), Table::build(nullptr)));
    QCOMPARE(log.lines().filter(QStringLiteral("Unhandled key")).size(), 1);
}

void TestMacKeys::unknownKeysAreLoggedAndSkipped()
{
    LogCapture log;
    const Table table = Table::build(nullptr);
    QList<quint16> pressed;
    for (const QString &shortcut : shortcuts(QStringLiteral("nosuchkey,b"))) {
        if (const auto press = resolve(shortcut, table))
            pressed << press->code;
    }
    // The following shortcuts still run.
    QCOMPARE(pressed, QList<quint16> { 11 });
    const QStringList unhandled = log.lines().filter(QStringLiteral("Unhandled key"));
    QCOMPARE(unhandled.size(), 1);
    QVERIFY(unhandled.first().contains(QStringLiteral("nosuchkey")));
}

void TestMacKeys::fixedUsTable()
{
    const Table table = Table::build(nullptr);
    const QList<QPair<QByteArray, quint16>> expected { { "a", 0 }, { "s", 1 }, { "z", 6 },
        { "q", 12 }, { "0", 29 }, { "9", 25 }, { "`", 50 }, { "=", 24 }, { "-", 27 }, { "]", 30 },
        { "[", 33 }, { "\"", 39 }, { ";", 41 }, { "\\", 42 }, { ",", 43 }, { "/", 44 },
        { ".", 47 } };
    for (const auto &[name, code] : expected)
        QCOMPARE(table.code(name), std::optional<quint16>(code));
    // The apostrophe key is entered under the double quote only.
    QVERIFY(!table.code("'"));
    // 26 letters, 10 digits, 11 punctuation keys, 55 named keys.
    QCOMPARE(table.size(), 26 + 10 + 11 + 55);
}

void TestMacKeys::namedKeysInEveryTable()
{
    for (const Table &table : { Table::build(nullptr), Table::build(&french) }) {
        QCOMPARE(table.code("f1"), std::optional<quint16>(122));
        QCOMPARE(table.code("f20"), std::optional<quint16>(90));
        QCOMPARE(table.code("pad9"), std::optional<quint16>(92));
        QCOMPARE(table.code("padenter"), std::optional<quint16>(76));
        // Both are the backspace key; the forward-delete key is another.
        QCOMPARE(table.code("delete"), std::optional<quint16>(51));
        QCOMPARE(table.code("backspace"), std::optional<quint16>(51));
        QCOMPARE(table.code("forwarddelete"), std::optional<quint16>(117));
        QCOMPARE(table.code("esc"), std::optional<quint16>(53));
        QCOMPARE(table.code("up"), std::optional<quint16>(126));
        // A named key replaces a layout entry of the same name.
        QCOMPARE(table.code("return"), std::optional<quint16>(36));
    }
}

void TestMacKeys::frenchLayoutFromItsCharacters()
{
    const Table table = Table::build(&french);
    QCOMPARE(table.code("a"), std::optional<quint16>(12));
    QCOMPARE(table.code("q"), std::optional<quint16>(0));
    QCOMPARE(table.code("z"), std::optional<quint16>(13));
    QCOMPARE(table.code("w"), std::optional<quint16>(6));
    // Characters come from the layout alone: no US entries beside them.
    QVERIFY(!table.code("b"));
    const auto press = resolve(QStringLiteral("Ctrl+A"), table);
    QVERIFY(press);
    QCOMPARE(press->code, quint16(12));
    QCOMPARE(press->flags, quint64(Command));
}

void TestMacKeys::laterCodeForTheSameTextWins()
{
    const Table table = Table::build(
        [](quint16 code) { return code == 10 || code == 20 ? QByteArray("x") : QByteArray(); });
    QCOMPARE(table.code("x"), std::optional<quint16>(20));
}

void TestMacKeys::plusNeedsAKeyThatTypesIt()
{
    // "Ctrl++" asks for the key named "+": not in the fixed table, typed by the keypad on the
    // French layout above.
    QCOMPARE(parse(QStringLiteral("Ctrl++")).key, QByteArray("+"));
    LogCapture log;
    QVERIFY(!resolve(QStringLiteral("Ctrl++"), Table::build(nullptr)));
    QCOMPARE(log.lines().filter(QStringLiteral("Unhandled key")).size(), 1);
    const auto press = resolve(QStringLiteral("Ctrl++"), Table::build(&french));
    QVERIFY(press);
    QCOMPARE(press->code, quint16(69));
}

QTEST_GUILESS_MAIN(TestMacKeys)
#include "tst_mackeys.moc"

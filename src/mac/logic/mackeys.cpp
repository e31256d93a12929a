#include "mackeys.h"

#include "maclogging.h"

Q_LOGGING_CATEGORY(lcMac, "velm.mac")

namespace MacKeys {

namespace {
struct Entry
{
    const char *name;
    quint16 code;
};

// The US layout, for a machine without layout data.
const Entry usTable[] = { { "a", 0 }, { "b", 11 }, { "c", 8 }, { "d", 2 }, { "e", 14 }, { "f", 3 },
    { "g", 5 }, { "h", 4 }, { "i", 34 }, { "j", 38 }, { "k", 40 }, { "l", 37 }, { "m", 46 },
    { "n", 45 }, { "o", 31 }, { "p", 35 }, { "q", 12 }, { "r", 15 }, { "s", 1 }, { "t", 17 },
    { "u", 32 }, { "v", 9 }, { "w", 13 }, { "x", 7 }, { "y", 16 }, { "z", 6 }, { "0", 29 },
    { "1", 18 }, { "2", 19 }, { "3", 20 }, { "4", 21 }, { "5", 23 }, { "6", 22 }, { "7", 26 },
    { "8", 28 }, { "9", 25 }, { "`", 50 }, { "=", 24 }, { "-", 27 }, { "]", 30 }, { "[", 33 },
    // The apostrophe key, entered under the double quote; the apostrophe itself is not.
    { "\"", 39 }, { ";", 41 }, { "\\", 42 }, { ",", 43 }, { "/", 44 }, { ".", 47 } };

// Named keys, whatever the layout. "delete" is the backspace key, "forwarddelete" the other.
const Entry namedKeys[] = { { "f1", 122 }, { "f2", 120 }, { "f3", 99 }, { "f4", 118 }, { "f5", 96 },
    { "f6", 97 }, { "f7", 98 }, { "f8", 100 }, { "f9", 101 }, { "f10", 109 }, { "f11", 103 },
    { "f12", 111 }, { "f13", 105 }, { "f14", 107 }, { "f15", 113 }, { "f16", 106 }, { "f17", 64 },
    { "f18", 79 }, { "f19", 80 }, { "f20", 90 }, { "pad.", 65 }, { "pad*", 67 }, { "pad+", 69 },
    { "pad/", 75 }, { "pad-", 78 }, { "pad=", 81 }, { "pad0", 82 }, { "pad1", 83 }, { "pad2", 84 },
    { "pad3", 85 }, { "pad4", 86 }, { "pad5", 87 }, { "pad6", 88 }, { "pad7", 89 }, { "pad8", 91 },
    { "pad9", 92 }, { "padclear", 71 }, { "padenter", 76 }, { "return", 36 }, { "tab", 48 },
    { "space", 49 }, { "backspace", 51 }, { "delete", 51 }, { "escape", 53 }, { "esc", 53 },
    { "help", 114 }, { "home", 115 }, { "pageup", 116 }, { "forwarddelete", 117 }, { "end", 119 },
    { "pagedown", 121 }, { "left", 123 }, { "right", 124 }, { "down", 125 }, { "up", 126 } };

QByteArray asciiLower(QByteArray text)
{
    for (char &c : text) {
        if (c >= 'A' && c <= 'Z')
            c = char(c - 'A' + 'a');
    }
    return text;
}
} // namespace

quint64 modifierFlag(const QString &word)
{
    if (word == QLatin1String("Ctrl"))
        return Command;
    if (word == QLatin1String("Shift"))
        return Shift;
    if (word == QLatin1String("Alt"))
        return Option;
    if (word == QLatin1String("Meta"))
        return Control;
    return 0;
}

QStringList shortcuts(const QString &sequence)
{
    if (sequence.endsWith(QLatin1Char(',')))
        return { sequence };
    return sequence.split(QLatin1Char(','), Qt::KeepEmptyParts);
}

Chord parse(const QString &shortcut)
{
    Chord chord;
    QString key;
    const QStringList parts = shortcut.split(QLatin1Char('+'), Qt::KeepEmptyParts);
    for (const QString &part : parts) {
        if (const quint64 flag = modifierFlag(part))
            chord.flags |= flag;
        else if (part.isEmpty())
            key = QStringLiteral("+");
        else
            key = part;
    }
    chord.key = asciiLower(key.toUtf8());
    return chord;
}

Table Table::build(const Translate &layout)
{
    Table table;
    if (layout) {
        for (quint16 code = 0; code <= 255; ++code) {
            const QByteArray text = layout(code);
            if (!text.isEmpty())
                table.insert(text, code);
        }
    } else {
        table.insertUs();
    }
    table.insertNamed();
    return table;
}

void Table::insertUs()
{
    for (const Entry &entry : usTable)
        insert(QByteArray(entry.name), entry.code);
}

void Table::insertNamed()
{
    for (const Entry &entry : namedKeys)
        insert(QByteArray(entry.name), entry.code);
}

std::optional<quint16> Table::code(const QByteArray &name) const
{
    const auto it = codes.constFind(name);
    if (it == codes.constEnd())
        return std::nullopt;
    return *it;
}

std::optional<Press> resolve(const QString &shortcut, const Table &table)
{
    if (shortcut.isEmpty())
        return std::nullopt;
    const Chord chord = parse(shortcut);
    const std::optional<quint16> code = table.code(chord.key);
    if (!code) {
        qCWarning(lcMac) << "Unhandled key" << chord.key;
        return std::nullopt;
    }
    return Press { *code, chord.flags };
}

} // namespace MacKeys

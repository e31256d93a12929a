#pragma once

#include <QByteArray>
#include <QHash>
#include <QString>
#include <QStringList>

#include <functional>
#include <optional>

// Key sequences as clients write them, turned into macOS virtual key codes and event flags.
// Nothing here touches the system: the layout's characters come in through a function, so the
// rules are the same whatever layout or machine they run on.
namespace MacKeys {

// macOS event-flag masks. "Ctrl" stands for Command and "Meta" for Control, so that a
// sequence written for other systems (Ctrl+c) does the usual thing on a Mac.
enum Flag : quint64 {
    Command = 0x100000,
    Shift = 0x20000,
    Option = 0x80000,
    Control = 0x40000,
};

// The flag of a modifier word (exact, case-sensitive), 0 for any other word.
quint64 modifierFlag(const QString &word);

// The shortcuts of a sequence in order: the whole sequence when it ends with ",", otherwise
// its parts between commas (empty ones kept; they do nothing).
QStringList shortcuts(const QString &sequence);

struct Chord
{
    quint64 flags = 0;
    // UTF-8, ASCII letters lower-cased; empty when only modifiers were given.
    QByteArray key;
};
// One shortcut: modifier words OR their flags, any other part is the key (a later one wins),
// and an empty part is the key "+".
Chord parse(const QString &shortcut);

// Key name to virtual key code. Inserting a name that is there already replaces its code.
class Table
{
public:
    // What the keyboard layout types with a key code and no modifier ("" for nothing).
    using Translate = std::function<QByteArray(quint16 code)>;

    // From the layout when there is one (codes 0 to 255, a later code typing the same text
    // replacing an earlier one), else the fixed US table; then the named keys in every case.
    static Table build(const Translate &layout);

    void insert(const QByteArray &name, quint16 code) { codes.insert(name, code); }
    std::optional<quint16> code(const QByteArray &name) const;
    int size() const { return codes.size(); }

private:
    void insertUs();
    void insertNamed();
    QHash<QByteArray, quint16> codes;
};

// The key press a shortcut asks for, or nothing: an empty shortcut does nothing, and a key the
// table does not have (or modifiers alone) is logged as "Unhandled key" with the key.
struct Press
{
    quint16 code = 0;
    quint64 flags = 0;
};
std::optional<Press> resolve(const QString &shortcut, const Table &table);

} // namespace MacKeys

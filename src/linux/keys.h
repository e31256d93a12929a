#pragma once

#include <QByteArray>
#include <QHash>
#include <QString>
#include <QStringList>

class WindowSession;

// Key sequences as clients write them ("Ctrl+Shift+t", "a,,b", "Ctrl+,") and the table that
// turns key names into X keycodes.
namespace Keys {

enum Modifier { Ctrl = 1, Shift = 2, Alt = 4, Meta = 8 };

struct Chord
{
    int modifiers = 0;
    // Lower-cased (ASCII letters only); empty when only modifiers were given.
    QByteArray key;
};

// The shortcuts of a sequence, in order: the whole sequence when it ends with ",", otherwise
// its parts between commas (empty ones kept; they do nothing).
QStringList shortcuts(const QString &sequence);
// One shortcut: modifier words (exact case) and the last other part as the key; an empty part
// is the key "+".
Chord parse(const QString &shortcut);

// Key name to keycode: the unshifted character of every key of the current layout, or the
// US table when there is no layout, then the named keys ("return", "f5", "pad+", ...).
class Table
{
public:
    explicit Table(const WindowSession *session);
    // 0 when the name is unknown here.
    unsigned code(const QByteArray &name) const { return codes.value(name); }
    // The keycodes of the modifier keys in `modifiers`, in the order Ctrl, Shift, Alt, Meta.
    QList<unsigned> modifierCodes(int modifiers) const;
    int size() const { return codes.size(); }

private:
    QHash<QByteArray, unsigned> codes;
    unsigned control = 0, shift = 0, alt = 0, super = 0;
};

} // namespace Keys

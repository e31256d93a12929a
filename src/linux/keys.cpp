#include "keys.h"

#include "windowsession.h"

#include <xkbcommon/xkbcommon-keysyms.h>

namespace Keys {

QStringList shortcuts(const QString &sequence)
{
    if (sequence.endsWith(QLatin1Char(',')))
        return { sequence };
    return sequence.split(QLatin1Char(','));
}

Chord parse(const QString &shortcut)
{
    Chord chord;
    QString key;
    const QStringList parts = shortcut.split(QLatin1Char('+'));
    for (const QString &part : parts) {
        if (part == QLatin1String("Ctrl"))
            chord.modifiers |= Ctrl;
        else if (part == QLatin1String("Shift"))
            chord.modifiers |= Shift;
        else if (part == QLatin1String("Alt"))
            chord.modifiers |= Alt;
        else if (part == QLatin1String("Meta"))
            chord.modifiers |= Meta;
        else if (part.isEmpty())
            key = QStringLiteral("+");
        else
            key = part;
    }
    QByteArray bytes = key.toUtf8();
    for (char &c : bytes) {
        if (c >= 'A' && c <= 'Z')
            c = char(c - 'A' + 'a');
    }
    chord.key = bytes;
    return chord;
}

namespace {
// The US layout on the evdev keycodes every current X server uses, for when the server gives no
// layout. The apostrophe key is entered under the double quote, as on the other platform.
const struct
{
    const char *name;
    unsigned code;
} usTable[] = { { "a", 38 }, { "b", 56 }, { "c", 54 }, { "d", 40 }, { "e", 26 }, { "f", 41 },
    { "g", 42 }, { "h", 43 }, { "i", 31 }, { "j", 44 }, { "k", 45 }, { "l", 46 }, { "m", 58 },
    { "n", 57 }, { "o", 32 }, { "p", 33 }, { "q", 24 }, { "r", 27 }, { "s", 39 }, { "t", 28 },
    { "u", 30 }, { "v", 55 }, { "w", 25 }, { "x", 53 }, { "y", 29 }, { "z", 52 }, { "0", 19 },
    { "1", 10 }, { "2", 11 }, { "3", 12 }, { "4", 13 }, { "5", 14 }, { "6", 15 }, { "7", 16 },
    { "8", 17 }, { "9", 18 }, { "`", 49 }, { "=", 21 }, { "-", 20 }, { "]", 35 }, { "[", 34 },
    { "\"", 48 }, { ";", 47 }, { "\\", 51 }, { ",", 59 }, { "/", 61 }, { ".", 60 } };

// Named keys and their keysyms, with the evdev keycode used when there is no layout.
const struct
{
    const char *name;
    unsigned keysym;
    unsigned code;
} namedKeys[] = { { "f1", XKB_KEY_F1, 67 }, { "f2", XKB_KEY_F2, 68 }, { "f3", XKB_KEY_F3, 69 },
    { "f4", XKB_KEY_F4, 70 }, { "f5", XKB_KEY_F5, 71 }, { "f6", XKB_KEY_F6, 72 },
    { "f7", XKB_KEY_F7, 73 }, { "f8", XKB_KEY_F8, 74 }, { "f9", XKB_KEY_F9, 75 },
    { "f10", XKB_KEY_F10, 76 }, { "f11", XKB_KEY_F11, 95 }, { "f12", XKB_KEY_F12, 96 },
    { "f13", XKB_KEY_F13, 191 }, { "f14", XKB_KEY_F14, 192 }, { "f15", XKB_KEY_F15, 193 },
    { "f16", XKB_KEY_F16, 194 }, { "f17", XKB_KEY_F17, 195 }, { "f18", XKB_KEY_F18, 196 },
    { "f19", XKB_KEY_F19, 197 }, { "f20", XKB_KEY_F20, 198 }, { "pad.", XKB_KEY_KP_Decimal, 91 },
    { "pad*", XKB_KEY_KP_Multiply, 63 }, { "pad+", XKB_KEY_KP_Add, 86 },
    { "pad/", XKB_KEY_KP_Divide, 106 }, { "pad-", XKB_KEY_KP_Subtract, 82 },
    { "pad=", XKB_KEY_KP_Equal, 125 }, { "pad0", XKB_KEY_KP_0, 90 }, { "pad1", XKB_KEY_KP_1, 87 },
    { "pad2", XKB_KEY_KP_2, 88 }, { "pad3", XKB_KEY_KP_3, 89 }, { "pad4", XKB_KEY_KP_4, 83 },
    { "pad5", XKB_KEY_KP_5, 84 }, { "pad6", XKB_KEY_KP_6, 85 }, { "pad7", XKB_KEY_KP_7, 79 },
    { "pad8", XKB_KEY_KP_8, 80 }, { "pad9", XKB_KEY_KP_9, 81 }, { "padclear", XKB_KEY_Clear, 0 },
    { "padenter", XKB_KEY_KP_Enter, 104 }, { "return", XKB_KEY_Return, 36 },
    { "tab", XKB_KEY_Tab, 23 }, { "space", XKB_KEY_space, 65 },
    { "backspace", XKB_KEY_BackSpace, 22 }, { "delete", XKB_KEY_BackSpace, 22 },
    { "escape", XKB_KEY_Escape, 9 }, { "esc", XKB_KEY_Escape, 9 }, { "help", XKB_KEY_Help, 146 },
    { "home", XKB_KEY_Home, 110 }, { "pageup", XKB_KEY_Prior, 112 },
    { "forwarddelete", XKB_KEY_Delete, 119 }, { "end", XKB_KEY_End, 115 },
    { "pagedown", XKB_KEY_Next, 117 }, { "left", XKB_KEY_Left, 113 },
    { "right", XKB_KEY_Right, 114 }, { "down", XKB_KEY_Down, 116 }, { "up", XKB_KEY_Up, 111 } };
} // namespace

Table::Table(const WindowSession *session)
{
    const bool layout = session && session->hasLayout();
    if (layout) {
        codes = session->layoutCharacters();
    } else {
        for (const auto &entry : usTable)
            codes.insert(QByteArray(entry.name), entry.code);
    }
    for (const auto &entry : namedKeys) {
        const unsigned code = layout ? session->keycodeFor(entry.keysym) : entry.code;
        // A name the layout has no key for stays unknown rather than pressing a wrong key.
        if (code)
            codes.insert(QByteArray(entry.name), code);
        else
            codes.remove(QByteArray(entry.name));
    }
    auto modifier = [&](unsigned keysym, unsigned evdev) {
        const unsigned code = layout ? session->keycodeFor(keysym) : 0;
        return code ? code : evdev;
    };
    control = modifier(XKB_KEY_Control_L, 37);
    shift = modifier(XKB_KEY_Shift_L, 50);
    alt = modifier(XKB_KEY_Alt_L, 64);
    super = modifier(XKB_KEY_Super_L, 133);
}

QList<unsigned> Table::modifierCodes(int modifiers) const
{
    QList<unsigned> result;
    if (modifiers & Ctrl)
        result << control;
    if (modifiers & Shift)
        result << shift;
    if (modifiers & Alt)
        result << alt;
    if (modifiers & Meta)
        result << super;
    return result;
}

} // namespace Keys

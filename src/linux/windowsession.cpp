#include "windowsession.h"

#include <xkbcommon/xkbcommon.h>

void pressInChordOrder(const QList<unsigned> &modifiers, unsigned key,
    const std::function<void(unsigned key, bool press)> &press)
{
    for (unsigned modifier : modifiers)
        press(modifier, true);
    press(key, true);
    press(key, false);
    for (auto it = modifiers.crbegin(); it != modifiers.crend(); ++it)
        press(*it, false);
}

WindowSession::WindowSession(QObject *parent)
    : QObject(parent)
{ }

WindowSession::~WindowSession()
{
    if (m_keymap)
        xkb_keymap_unref(m_keymap);
}

QIcon WindowSession::windowIcon(WId) const { return QIcon(); }

void WindowSession::setKeymap(xkb_keymap *keymap)
{
    if (m_keymap)
        xkb_keymap_unref(m_keymap);
    m_keymap = keymap;
    ++m_layoutGeneration;
}

unsigned WindowSession::keycodeFor(unsigned keysym) const
{
    if (!m_keymap)
        return 0;
    unsigned fallback = 0;
    const xkb_keycode_t min = xkb_keymap_min_keycode(m_keymap);
    const xkb_keycode_t max = xkb_keymap_max_keycode(m_keymap);
    for (xkb_keycode_t code = min; code <= max; ++code) {
        const xkb_level_index_t levels = xkb_keymap_num_levels_for_key(m_keymap, code, 0);
        for (xkb_level_index_t level = 0; level < levels; ++level) {
            const xkb_keysym_t *syms = nullptr;
            const int count = xkb_keymap_key_get_syms_by_level(m_keymap, code, 0, level, &syms);
            for (int i = 0; i < count; ++i) {
                if (syms[i] != keysym)
                    continue;
                if (level == 0)
                    return code;
                if (!fallback)
                    fallback = code;
            }
        }
    }
    return fallback;
}

unsigned WindowSession::keysymAt(unsigned keycode) const
{
    const xkb_keysym_t *syms = nullptr;
    if (!m_keymap || xkb_keymap_key_get_syms_by_level(m_keymap, keycode, 0, 0, &syms) < 1)
        return 0;
    return syms[0];
}

QHash<QByteArray, unsigned> WindowSession::layoutCharacters() const
{
    QHash<QByteArray, unsigned> table;
    if (!m_keymap)
        return table;
    const xkb_keycode_t min = xkb_keymap_min_keycode(m_keymap);
    const xkb_keycode_t max = xkb_keymap_max_keycode(m_keymap);
    for (xkb_keycode_t code = min; code <= max && code <= 255; ++code) {
        const xkb_keysym_t *syms = nullptr;
        if (xkb_keymap_key_get_syms_by_level(m_keymap, code, 0, 0, &syms) < 1)
            continue;
        char text[16] = {};
        const int size = xkb_keysym_to_utf8(syms[0], text, sizeof text);
        // Control characters (Return, Tab, Escape) are named keys, not text.
        if (size > 1 && static_cast<unsigned char>(text[0]) >= 0x20 && text[0] != 0x7f)
            table.insert(QByteArray(text), code);
    }
    return table;
}

#pragma once

#include <QByteArray>

#include <memory>
#include <optional>

struct xkb_context;
struct xkb_keymap;

// Finds keys in an XKB keymap by the symbol they give, so that synthetic keys follow the user's layout
// (the `c` of Dvorak is not where QWERTY has it).
class KeymapLookup {
public:
    struct Key {
        quint32 evdevCode; // what wl_keyboard and the virtual keyboard speak: XKB keycode - 8
        quint32 layout;    // the group it is in
        quint32 level;     // 0 plain, 1 with Shift (in the usual types)
    };

    // A keymap in the XKB text format, as wl_keyboard.keymap sends it.
    explicit KeymapLookup(const QByteArray& keymapText);
    // The keymap that xkbcommon's default rules give for this layout (tools and tests).
    static QByteArray keymapForLayout(const char* layout);
    ~KeymapLookup();

    bool valid() const { return m_keymap != nullptr; }
    // The first key that gives `keysym` at the lowest level, searching the first layout first.
    std::optional<Key> find(quint32 keysym) const;
    // The modifier mask of a named modifier (XKB_MOD_NAME_CTRL, ...), 0 when the keymap lacks it.
    quint32 modifierMask(const char* name) const;

private:
    xkb_context* m_context = nullptr;
    xkb_keymap* m_keymap = nullptr;
};

#include "NubraPlatform/wayland/KeymapLookup.h"

#include <xkbcommon/xkbcommon.h>

KeymapLookup::KeymapLookup(const QByteArray& keymapText)
    : m_context(xkb_context_new(XKB_CONTEXT_NO_ENVIRONMENT_NAMES)) {
    if (m_context && !keymapText.isEmpty()) {
        m_keymap = xkb_keymap_new_from_buffer(m_context, keymapText.constData(), size_t(keymapText.size()),
                                              XKB_KEYMAP_FORMAT_TEXT_V1, XKB_KEYMAP_COMPILE_NO_FLAGS);
    }
}

KeymapLookup::~KeymapLookup() {
    xkb_keymap_unref(m_keymap);
    xkb_context_unref(m_context);
}

QByteArray KeymapLookup::keymapForLayout(const char* layout) {
    xkb_context* context = xkb_context_new(XKB_CONTEXT_NO_ENVIRONMENT_NAMES);
    if (!context)
        return {};
    const xkb_rule_names names{nullptr, nullptr, layout, nullptr, nullptr};
    xkb_keymap* keymap = xkb_keymap_new_from_names(context, &names, XKB_KEYMAP_COMPILE_NO_FLAGS);
    QByteArray text;
    if (keymap) {
        char* string = xkb_keymap_get_as_string(keymap, XKB_KEYMAP_FORMAT_TEXT_V1);
        text = QByteArray(string);
        free(string);
    }
    xkb_keymap_unref(keymap);
    xkb_context_unref(context);
    return text;
}

std::optional<KeymapLookup::Key> KeymapLookup::find(quint32 keysym) const {
    if (!m_keymap)
        return std::nullopt;
    const xkb_keycode_t first = xkb_keymap_min_keycode(m_keymap);
    const xkb_keycode_t last = xkb_keymap_max_keycode(m_keymap);
    const xkb_layout_index_t layouts = xkb_keymap_num_layouts(m_keymap);
    for (xkb_layout_index_t layout = 0; layout < layouts; ++layout) {
        for (xkb_level_index_t level = 0; level < 2; ++level) {
            for (xkb_keycode_t code = std::max<xkb_keycode_t>(first, 8); code <= last; ++code) {
                const xkb_keysym_t* symbols = nullptr;
                const int count = xkb_keymap_key_get_syms_by_level(m_keymap, code, layout, level, &symbols);
                for (int i = 0; i < count; ++i) {
                    if (symbols[i] == keysym)
                        return Key{code - 8, layout, level};
                }
            }
        }
    }
    return std::nullopt;
}

quint32 KeymapLookup::modifierMask(const char* name) const {
    if (!m_keymap)
        return 0;
    const xkb_mod_index_t index = xkb_keymap_mod_get_index(m_keymap, name);
    return index == XKB_MOD_INVALID ? 0 : quint32(1) << index;
}

#pragma once

#include <QString>

#include <cstdint>
#include <optional>

class Defaults;

// Where one hot key is kept in the defaults, and whether it falls back to Alt+G when none is stored.
struct HotkeySlot {
    const char* keyCodeKey;
    const char* modifiersKey;
    bool hasDefault;

    // The lookup of the selection.
    static HotkeySlot lookup() { return {"hotkey.keyCode", "hotkey.modifiers", true}; }
    // The lookup of text on the screen: no key unless the user records one.
    static HotkeySlot screenText() { return {"ocrHotkey.keyCode", "ocrHotkey.modifiers", false}; }
    // The other of the two: one combination cannot be both.
    HotkeySlot sibling() const { return hasDefault ? screenText() : lookup(); }
};

// A global hot-key combination: an ANSI virtual key code and device-independent modifier flags.
struct HotkeyCombo {
    static constexpr std::uint64_t shiftFlag = 0x20000;
    static constexpr std::uint64_t controlFlag = 0x40000;
    static constexpr std::uint64_t optionFlag = 0x80000;
    static constexpr std::uint64_t commandFlag = 0x100000;
    static constexpr std::uint64_t modifierMask = 0x1E0000;

    std::uint64_t keyCode = 0; // 0 means no key
    std::uint64_t modifiers = 0;

    // Alt+G.
    static HotkeyCombo defaultCombo() { return {5, optionFlag}; }

    // A key, at least one modifier, and no flag outside the four modifiers.
    bool isMeaningful() const;

    // As Linux desktops write a shortcut: the modifiers, then the key's name: Alt+G, Ctrl+Shift+Space.
    // The Command flag is the Super key, as the X11 grab and the recorder map it.
    QString display() const;
    // The modifiers of `modifiers`, each followed by "+": "Ctrl+Shift+" (empty for none).
    static QString modifiersPrefix(std::uint64_t modifiers);

    // The Carbon modifier mask: Command 0x100, Shift 0x200, Option 0x800, Control 0x1000.
    std::uint32_t carbonModifiers() const;

    // Alt+G when no key code of 1 or more is stored.
    static HotkeyCombo load(const Defaults& defaults);
    void save(Defaults& defaults) const;
    // The combination in `slot`; its default (or none) when no key code of 1 or more is stored.
    static std::optional<HotkeyCombo> load(const Defaults& defaults, const HotkeySlot& slot);
    void save(Defaults& defaults, const HotkeySlot& slot) const;
    static void clear(Defaults& defaults, const HotkeySlot& slot);

    static QString keyName(std::uint64_t keyCode);

    friend bool operator==(const HotkeyCombo&, const HotkeyCombo&) = default;
};

#include "NubraCore/Capture/HotkeyCombo.h"

#include "NubraCore/Support/Defaults.h"

#include <QHash>

#include <array>
#include <string_view>
#include <utility>

bool HotkeyCombo::isMeaningful() const {
    return keyCode != 0 && (modifiers & ~modifierMask) == 0 && (modifiers & modifierMask) != 0;
}

QString HotkeyCombo::modifiersPrefix(std::uint64_t modifiers) {
    // The order Qt and KDE write them in (GTK puts Shift first): Ctrl+Alt+Shift+Super.
    static constexpr std::array<std::pair<std::uint64_t, std::u16string_view>, 4> names{{
        {controlFlag, u"Ctrl+"},
        {optionFlag, u"Alt+"},
        {shiftFlag, u"Shift+"},
        {commandFlag, u"Super+"},
    }};
    QString text;
    for (const auto& [flag, name] : names)
        if (modifiers & flag)
            text += QString::fromUtf16(name.data(), qsizetype(name.size()));
    return text;
}

QString HotkeyCombo::display() const {
    return modifiersPrefix(modifiers) + keyName(keyCode);
}

std::uint32_t HotkeyCombo::carbonModifiers() const {
    std::uint32_t mask = 0;
    if (modifiers & commandFlag)
        mask += 0x100;
    if (modifiers & shiftFlag)
        mask += 0x200;
    if (modifiers & optionFlag)
        mask += 0x800;
    if (modifiers & controlFlag)
        mask += 0x1000;
    return mask;
}

QString HotkeyCombo::keyName(std::uint64_t keyCode) {
    static const QHash<std::uint64_t, QString> names{
        // Special keys first, named as Linux desktops name them (the ANSI "Delete" is the key above
        // Return); letters and digits by their ANSI virtual key codes.
        {36, QStringLiteral("Return")},    {48, QStringLiteral("Tab")},   {49, QStringLiteral("Space")},
        {51, QStringLiteral("Backspace")}, {53, QStringLiteral("Esc")},   {123, QStringLiteral("Left")},
        {124, QStringLiteral("Right")},    {125, QStringLiteral("Down")}, {126, QStringLiteral("Up")},
        {0, QStringLiteral("A")},          {1, QStringLiteral("S")},      {2, QStringLiteral("D")},
        {3, QStringLiteral("F")},          {4, QStringLiteral("H")},      {5, QStringLiteral("G")},
        {6, QStringLiteral("Z")},          {7, QStringLiteral("X")},      {8, QStringLiteral("C")},
        {9, QStringLiteral("V")},          {11, QStringLiteral("B")},     {12, QStringLiteral("Q")},
        {13, QStringLiteral("W")},         {14, QStringLiteral("E")},     {15, QStringLiteral("R")},
        {16, QStringLiteral("Y")},         {17, QStringLiteral("T")},     {18, QStringLiteral("1")},
        {19, QStringLiteral("2")},         {20, QStringLiteral("3")},     {21, QStringLiteral("4")},
        {22, QStringLiteral("6")},         {23, QStringLiteral("5")},     {25, QStringLiteral("9")},
        {26, QStringLiteral("7")},         {28, QStringLiteral("8")},     {29, QStringLiteral("0")},
        {31, QStringLiteral("O")},         {32, QStringLiteral("U")},     {34, QStringLiteral("I")},
        {35, QStringLiteral("P")},         {37, QStringLiteral("L")},     {38, QStringLiteral("J")},
        {40, QStringLiteral("K")},         {45, QStringLiteral("N")},     {46, QStringLiteral("M")},
    };
    const auto found = names.constFind(keyCode);
    return found != names.constEnd() ? *found : u"Key" + QString::number(keyCode);
}

HotkeyCombo HotkeyCombo::load(const Defaults& defaults) {
    return load(defaults, HotkeySlot::lookup()).value_or(defaultCombo());
}

void HotkeyCombo::save(Defaults& defaults) const {
    save(defaults, HotkeySlot::lookup());
}

std::optional<HotkeyCombo> HotkeyCombo::load(const Defaults& defaults, const HotkeySlot& slot) {
    const qint64 storedKey = defaults.integer(QString::fromLatin1(slot.keyCodeKey)).value_or(0);
    const qint64 storedModifiers = defaults.integer(QString::fromLatin1(slot.modifiersKey)).value_or(0);
    if (storedKey < 1 || storedModifiers < 0) // a negative modifier set lies outside the format
        return slot.hasDefault ? std::optional(defaultCombo()) : std::nullopt;
    return HotkeyCombo{std::uint64_t(storedKey), std::uint64_t(storedModifiers)};
}

void HotkeyCombo::save(Defaults& defaults, const HotkeySlot& slot) const {
    defaults.setValue(QString::fromLatin1(slot.keyCodeKey), qulonglong(keyCode));
    defaults.setValue(QString::fromLatin1(slot.modifiersKey), qulonglong(modifiers));
}

void HotkeyCombo::clear(Defaults& defaults, const HotkeySlot& slot) {
    defaults.remove(QString::fromLatin1(slot.keyCodeKey));
    defaults.remove(QString::fromLatin1(slot.modifiersKey));
}

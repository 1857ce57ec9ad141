#include "NubraPlatform/wayland/DesktopShortcutKeys.h"

#include "NubraPlatform/linux/X11KeyMap.h"

#include <QStringList>

#include <xkbcommon/xkbcommon.h>

namespace {

// A modifier by any of the names GNOME or sway accept for it; false for one these combinations
// never use.
bool setModifier(DesktopShortcutKeys& keys, const QString& name) {
    const QString lower = name.toLower();
    if (lower == u"alt" || lower == u"mod1")
        keys.alt = true;
    else if (lower == u"super" || lower == u"mod4" || lower == u"logo")
        keys.super = true;
    else if (lower == u"control" || lower == u"ctrl" || lower == u"primary")
        keys.control = true;
    else if (lower == u"shift")
        keys.shift = true;
    else
        return false;
    return true;
}

} // namespace

std::optional<DesktopShortcutKeys> DesktopShortcutKeys::of(const HotkeyCombo& combo) {
    const std::optional<quint32> keysym = X11KeyMap::keysymFor(quint32(combo.keyCode));
    if (!keysym || !combo.isMeaningful())
        return std::nullopt;
    char name[64];
    if (xkb_keysym_get_name(*keysym, name, sizeof name) <= 0)
        return std::nullopt;
    DesktopShortcutKeys keys;
    keys.alt = combo.modifiers & HotkeyCombo::optionFlag;
    keys.super = combo.modifiers & HotkeyCombo::commandFlag;
    keys.control = combo.modifiers & HotkeyCombo::controlFlag;
    keys.shift = combo.modifiers & HotkeyCombo::shiftFlag;
    keys.key = QString::fromLatin1(name);
    return keys;
}

std::optional<DesktopShortcutKeys> DesktopShortcutKeys::fromGnome(const QString& accelerator) {
    DesktopShortcutKeys keys;
    QStringView rest(accelerator);
    while (rest.startsWith(u'<')) {
        const qsizetype end = rest.indexOf(u'>');
        if (end < 0 || !setModifier(keys, rest.mid(1, end - 1).toString()))
            return std::nullopt;
        rest = rest.mid(end + 1);
    }
    if (rest.isEmpty())
        return std::nullopt;
    keys.key = rest.toString();
    return keys;
}

std::optional<DesktopShortcutKeys> DesktopShortcutKeys::fromSway(const QString& text) {
    QStringList parts = text.split(u'+');
    DesktopShortcutKeys keys;
    keys.key = parts.takeLast();
    for (const QString& part : parts) {
        if (!setModifier(keys, part))
            return std::nullopt;
    }
    if (keys.key.isEmpty())
        return std::nullopt;
    return keys;
}

QString DesktopShortcutKeys::gnome() const {
    QString text;
    if (super)
        text += QStringLiteral("<Super>");
    if (control)
        text += QStringLiteral("<Control>");
    if (alt)
        text += QStringLiteral("<Alt>");
    if (shift)
        text += QStringLiteral("<Shift>");
    return text + key;
}

QString DesktopShortcutKeys::sway() const {
    QStringList parts;
    if (super)
        parts << QStringLiteral("Mod4");
    if (control)
        parts << QStringLiteral("Ctrl");
    if (alt)
        parts << QStringLiteral("Mod1");
    if (shift)
        parts << QStringLiteral("Shift");
    return (parts << key).join(u'+');
}

QString DesktopShortcutKeys::hyprlandModifiers() const {
    QStringList parts;
    if (super)
        parts << QStringLiteral("SUPER");
    if (control)
        parts << QStringLiteral("CTRL");
    if (alt)
        parts << QStringLiteral("ALT");
    if (shift)
        parts << QStringLiteral("SHIFT");
    return parts.join(u' ');
}

QString DesktopShortcutKeys::hyprlandKey() const {
    return key.size() == 1 ? key.toUpper() : key;
}

unsigned int DesktopShortcutKeys::hyprlandModmask() const {
    return (shift ? 1u : 0u) | (control ? 4u : 0u) | (alt ? 8u : 0u) | (super ? 64u : 0u);
}

bool DesktopShortcutKeys::operator==(const DesktopShortcutKeys& other) const {
    return alt == other.alt && super == other.super && control == other.control && shift == other.shift &&
           key.compare(other.key, Qt::CaseInsensitive) == 0;
}

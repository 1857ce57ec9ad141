#include "NubraPlatform/fake/FakeDesktopShortcuts.h"

QString FakeDesktopShortcuts::configLine(const HotkeyCombo& combo) const {
    return kind == Setup::configLine
               ? QStringLiteral("bind ") + combo.display() + QStringLiteral(" nubra --lookup")
               : QString();
}

void FakeDesktopShortcuts::add(const HotkeyCombo& combo, Done done) {
    ++adds;
    if (kind == Setup::automatic && !failing && takenBy.isEmpty())
        bound = combo;
    done(statusOf(combo));
}

void FakeDesktopShortcuts::remove(Done done) {
    ++removes;
    if (kind == Setup::automatic && !failing)
        bound.reset();
    done({false, {}, failing});
}

DesktopShortcuts::Status FakeDesktopShortcuts::statusOf(const HotkeyCombo& combo) const {
    if (failing)
        return {std::nullopt, {}, true};
    return {bound == combo, bound == combo ? QString() : takenBy, false};
}

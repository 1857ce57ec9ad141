#pragma once

#include "NubraPlatform/DesktopShortcuts.h"

// A desktop's shortcut settings in memory, answering at once: one combination bound to Nubra's
// lookup at most, and one user of every other combination when `takenBy` is set.
class FakeDesktopShortcuts final : public DesktopShortcuts {
public:
    Setup kind = Setup::notNeeded;
    QString name = QStringLiteral("GNOME");
    std::optional<HotkeyCombo> bound;
    QString takenBy;
    bool failing = false;
    int adds = 0;
    int removes = 0;

    Setup setup() const override { return kind; }
    QString desktopName() const override { return name; }
    QString configLine(const HotkeyCombo& combo) const override;
    void query(const HotkeyCombo& combo, Done done) override { done(statusOf(combo)); }
    void add(const HotkeyCombo& combo, Done done) override;
    void remove(Done done) override;
    std::optional<bool> lastKnownActive() const override { return bound.has_value(); }

private:
    Status statusOf(const HotkeyCombo& combo) const;
};

#pragma once

#include "NubraPlatform/SyntheticKeyboard.h"

#include <QList>
#include <QString>

#include <optional>

class Pasteboard;

// Records the copy strokes; the simulated front application answers the key-down by putting its
// selection on the pasteboard, or ignores it.
class FakeKeyboard final : public SyntheticKeyboard {
public:
    explicit FakeKeyboard(Pasteboard& pasteboard) : m_pasteboard(pasteboard) {}

    bool canBegin = true;
    // What the front application copies; none: it does not react to the shortcut.
    std::optional<QString> copiedText;
    QList<CopyStroke> strokes;
    int copies = 0;
    Permission permissionState = Permission::notNeeded;

    bool beginCopy() override { return canBegin; }
    Permission permission() const override { return permissionState; }
    bool post(CopyStroke stroke) override;

private:
    Pasteboard& m_pasteboard;
};

#pragma once

#include <QPushButton>

class Accessibility;
class TrustWatcher;

// The accessibility permission at a glance: "Granted ✓" and disabled while the permission is in
// force, otherwise "Enable", which leads to the desktop's switch. Follows the trust watcher's
// answers, and asks it again whenever shown.
class AccessibilityButton final : public QPushButton {
    Q_OBJECT

public:
    // Both must outlive the button.
    AccessibilityButton(Accessibility& accessibility, TrustWatcher& trust, QWidget* parent = nullptr);

protected:
    void showEvent(QShowEvent* event) override;

private:
    void showTrust(bool trusted);

    Accessibility& m_accessibility;
    TrustWatcher& m_trust;
};

#include "NubraApp/Settings/AccessibilityButton.h"

#include "NubraCore/Vocabulary/L10n.h"
#include "NubraPlatform/Accessibility.h"
#include "NubraPlatform/TrustWatcher.h"

AccessibilityButton::AccessibilityButton(Accessibility& accessibility, TrustWatcher& trust, QWidget* parent)
    : QPushButton(parent), m_accessibility(accessibility), m_trust(trust) {
    setObjectName(QStringLiteral("accessibilityButton"));
    setAutoDefault(false);
    showTrust(trust.isTrusted().value_or(false));
    connect(&trust, &TrustWatcher::trustChanged, this, &AccessibilityButton::showTrust);
    connect(this, &QPushButton::clicked, this, [this] {
        m_accessibility.openSettings();
        m_trust.refresh();
    });
}

void AccessibilityButton::showEvent(QShowEvent* event) {
    QPushButton::showEvent(event);
    m_trust.refresh();
}

void AccessibilityButton::showTrust(bool trusted) {
    setText(trusted ? L10n::t(QStringLiteral("Granted ✓"), QStringLiteral("已授权 ✓"))
                    : L10n::t(QStringLiteral("Enable"), QStringLiteral("去授权")));
    setEnabled(!trusted);
}

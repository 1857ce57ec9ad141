#include "NubraCore/Capture/SelectionGate.h"

namespace SelectionGate {

QSet<QString> defaultExcludedApps() {
    return {QStringLiteral("com.agilebits.onepassword"), QStringLiteral("1Password"),
            // The Linux password managers, by the window class they set.
            QStringLiteral("KeePassXC"), QStringLiteral("Bitwarden"), QStringLiteral("Seahorse"),
            QStringLiteral("kwalletmanager5")};
}

bool shouldCapture(bool paused, const std::optional<QString>& frontmostBundleId, const QSet<QString>& excludedApps,
                   bool secureInput) {
    if (paused || secureInput)
        return false;
    if (!frontmostBundleId)
        return true;
    return !excludedApps.contains(*frontmostBundleId);
}

} // namespace SelectionGate

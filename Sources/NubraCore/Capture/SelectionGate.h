#pragma once

#include <QSet>
#include <QString>

#include <optional>

// Whether a capture may happen at all.
namespace SelectionGate {

// Applications whose selections are never read: password managers. 1Password by its macOS bundle
// identifier and its WM_CLASS on Linux; KeePassXC, Bitwarden, GNOME's Passwords and Keys and KDE's
// wallet manager by their WM_CLASS.
QSet<QString> defaultExcludedApps();

// False when paused or in a secure field; otherwise true unless the front application's identifier
// is in the exclusion set (exact, case-sensitive).
bool shouldCapture(bool paused, const std::optional<QString>& frontmostBundleId, const QSet<QString>& excludedApps,
                   bool secureInput);

} // namespace SelectionGate

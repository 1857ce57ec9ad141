#include "NubraApp/Settings/SettingsTab.h"

std::optional<SettingsTab> settingsTabFrom(const QString& name) {
    if (name == u"general")
        return SettingsTab::general;
    if (name == u"gloss")
        return SettingsTab::gloss;
    if (name == u"privacy")
        return SettingsTab::privacy;
    if (name == u"about")
        return SettingsTab::about;
    return std::nullopt;
}

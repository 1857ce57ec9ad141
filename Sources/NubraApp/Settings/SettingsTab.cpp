#include "NubraApp/Settings/SettingsTab.h"

#include <array>

namespace {

// In the order of the enumeration.
constexpr std::array<QStringView, 4> names = {u"general", u"gloss", u"privacy", u"about"};

} // namespace

std::optional<SettingsTab> settingsTabFrom(const QString& name) {
    for (std::size_t i = 0; i < names.size(); ++i) {
        if (names[i] == name)
            return SettingsTab(i);
    }
    return std::nullopt;
}

QString settingsTabName(SettingsTab tab) {
    return names.at(std::size_t(tab)).toString();
}

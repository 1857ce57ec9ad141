#pragma once

#include <QString>

#include <optional>

// The settings window's tabs, in their order, by the names the command line uses.
enum class SettingsTab { general, gloss, privacy, about };

std::optional<SettingsTab> settingsTabFrom(const QString& name);
QString settingsTabName(SettingsTab tab);

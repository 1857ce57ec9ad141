#pragma once

#include "NubraCore/Settings/AppSettings.h"

#include <functional>

// A two-way check mark for one choice of a menu group. Setting it true selects the choice and saves;
// setting it false does nothing, so one item of each group always stays checked.
struct BoolBinding {
    std::function<bool()> get;
    std::function<void(bool)> set;
};

BoolBinding styleBinding(AppSettings& settings, GlossStyle style);
BoolBinding lengthBinding(AppSettings& settings, GlossLength length);
BoolBinding modelTierBinding(AppSettings& settings, ModelTier tier);
BoolBinding outputLangBinding(AppSettings& settings, const QString& code);

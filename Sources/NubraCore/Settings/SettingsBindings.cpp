#include "NubraCore/Settings/SettingsBindings.h"

namespace {

// Compares raw values, as the stored settings do.
template <typename E>
BoolBinding choiceBinding(AppSettings& settings, E choice, E (AppSettings::*getter)() const,
                          void (AppSettings::*setter)(E)) {
    return {
        [&settings, choice, getter] { return rawValue((settings.*getter)()) == rawValue(choice); },
        [&settings, choice, setter](bool on) {
            if (!on)
                return;
            (settings.*setter)(choice);
            settings.persist();
        },
    };
}

} // namespace

BoolBinding styleBinding(AppSettings& settings, GlossStyle style) {
    return choiceBinding(settings, style, &AppSettings::style, &AppSettings::setStyle);
}

BoolBinding lengthBinding(AppSettings& settings, GlossLength length) {
    return choiceBinding(settings, length, &AppSettings::length, &AppSettings::setLength);
}

BoolBinding modelTierBinding(AppSettings& settings, ModelTier tier) {
    return choiceBinding(settings, tier, &AppSettings::modelTier, &AppSettings::setModelTier);
}

BoolBinding outputLangBinding(AppSettings& settings, const QString& code) {
    return {
        [&settings, code] { return settings.outputLang() == code; },
        [&settings, code](bool on) {
            if (!on)
                return;
            settings.setOutputLang(code);
            settings.persist();
        },
    };
}

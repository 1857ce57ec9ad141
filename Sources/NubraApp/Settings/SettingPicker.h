#pragma once

#include "NubraCore/Settings/AppSettings.h"
#include "NubraCore/Vocabulary/Models.h"

#include <QComboBox>

#include <functional>

// Fills `picker` with every case of a vocabulary by its display name, in the vocabulary's order, and
// keeps picker and setting in step both ways: the picker follows the setting's change signal, and a
// choice in the picker goes to `choose` (by default the setter) when it differs from the setting.
template <typename E>
void bindSettingPicker(QComboBox* picker, AppSettings& settings, E (AppSettings::*read)() const,
                       void (AppSettings::*changed)(), std::function<void(E)> choose) {
    for (const E value : allCases<E>())
        picker->addItem(displayName(value), rawValue(value));
    const auto show = [picker, &settings, read] {
        picker->setCurrentIndex(picker->findData(rawValue((settings.*read)())));
    };
    show();
    QObject::connect(&settings, changed, picker, show);
    QObject::connect(picker, &QComboBox::currentIndexChanged, picker,
                     [picker, &settings, read, choose = std::move(choose)](int index) {
                         const std::optional<E> chosen = fromRawValue<E>(picker->itemData(index).toString());
                         if (chosen && *chosen != (settings.*read)())
                             choose(*chosen);
                     });
}

template <typename E>
void bindSettingPicker(QComboBox* picker, AppSettings& settings, E (AppSettings::*read)() const,
                       void (AppSettings::*write)(E), void (AppSettings::*changed)()) {
    bindSettingPicker<E>(picker, settings, read, changed,
                         [&settings, write](E value) { (settings.*write)(value); });
}

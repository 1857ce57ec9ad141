#include "NubraApp/Settings/GeneralPage.h"

#include "NubraApp/Capture/SessionCapabilities.h"
#include "NubraApp/Foundation/AppServices.h"
#include "NubraApp/Foundation/AppState.h"
#include "NubraApp/Foundation/PlatformTexts.h"
#include "NubraApp/Settings/AccessibilityButton.h"
#include "NubraApp/Settings/GlossServiceRow.h"
#include "NubraApp/Settings/HotkeyRow.h"
#include "NubraApp/Settings/LaunchAtLoginToggle.h"
#include "NubraApp/Settings/PickerStatusDelegate.h"
#include "NubraApp/Settings/SettingPicker.h"
#include "NubraApp/Settings/SettingsStyle.h"
#include "NubraApp/Settings/TriggerModeNote.h"
#include "NubraPlatform/Desktop.h"

#include <QAbstractItemView>
#include <QCheckBox>
#include <QFormLayout>
#include <QGroupBox>
#include <QLabel>
#include <QVBoxLayout>

namespace {

// A check box that shows a Boolean setting and changes it.
QCheckBox* settingToggle(const char* name, const QString& text, AppSettings& settings,
                         bool (AppSettings::*read)() const, void (AppSettings::*write)(bool),
                         void (AppSettings::*changed)(), QWidget* parent) {
    auto* toggle = new QCheckBox(text, parent);
    toggle->setObjectName(QString::fromLatin1(name));
    toggle->setChecked((settings.*read)());
    QObject::connect(&settings, changed, toggle,
                     [toggle, &settings, read] { toggle->setChecked((settings.*read)()); });
    QObject::connect(toggle, &QCheckBox::toggled, &settings,
                     [&settings, write](bool on) { (settings.*write)(on); });
    return toggle;
}

} // namespace

GeneralPage::GeneralPage(AppState& state, const AppServices& services, QWidget* parent)
    : QWidget(parent), m_state(state), m_capabilities(SessionCapabilities::now(services.desktop)) {
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(selectionSection(state, services));
    layout->addWidget(systemSection(state, services));
    layout->addStretch(1);
    followTriggerMode();
    connect(&state.settings(), &AppSettings::triggerModeChanged, this, &GeneralPage::followTriggerMode);
}

QWidget* GeneralPage::selectionSection(AppState& state, const AppServices& services) {
    AppSettings& settings = state.settings();
    auto* section = new QGroupBox(L10n::t(QStringLiteral("Selection"), QStringLiteral("划词")), this);
    m_selectionForm = new QFormLayout(section);

    auto* trigger = new QComboBox(section);
    trigger->setObjectName(QStringLiteral("triggerPicker"));
    // Saved at once; the application hands a new mode to the selection monitor and the hot key.
    bindSettingPicker<TriggerMode>(trigger, settings, &AppSettings::triggerMode,
                                   &AppSettings::triggerModeChanged, [&state](TriggerMode mode) {
                                       state.settings().setTriggerMode(mode);
                                       state.persist();
                                   });
    showAvailability(trigger);
    m_selectionForm->addRow(L10n::t(QStringLiteral("Trigger"), QStringLiteral("触发方式")), trigger);
    // Option selection is named by the key it waits for.
    const auto nameTriggerModes = [trigger, &settings] {
        for (int i = 0; i < trigger->count(); ++i)
            if (const auto mode = fromRawValue<TriggerMode>(trigger->itemData(i).toString()))
                trigger->setItemText(i, PlatformTexts::triggerModeName(*mode, settings.optionModifier()));
    };
    nameTriggerModes();
    connect(&settings, &AppSettings::optionModifierChanged, trigger, nameTriggerModes);

    m_modifierPicker = new QComboBox(section);
    m_modifierPicker->setObjectName(QStringLiteral("optionModifierPicker"));
    m_modifierPicker->setToolTip(L10n::t(QStringLiteral("Choose Super where holding Alt while dragging moves "
                                                        "the window."),
                                         QStringLiteral("若按住 Alt 拖动会移动窗口，请选择 Super 键。")));
    bindSettingPicker<OptionModifier>(m_modifierPicker, settings, &AppSettings::optionModifier,
                                      &AppSettings::optionModifierChanged, [&state](OptionModifier modifier) {
                                          state.settings().setOptionModifier(modifier);
                                          state.persist();
                                      });
    m_selectionForm->addRow(L10n::t(QStringLiteral("Key to hold"), QStringLiteral("按住的键")),
                            m_modifierPicker);
    m_triggerNote = SettingsStyle::footnote(QString(), section);
    m_triggerNote->setObjectName(QStringLiteral("triggerNote"));
    m_selectionForm->addRow(m_triggerNote);

    m_selectionForm->addRow(settingToggle(
        "pauseToggle", L10n::t(QStringLiteral("Pause selection popups"), QStringLiteral("暂停划词")),
        settings, &AppSettings::paused, &AppSettings::setPaused, &AppSettings::pausedChanged, section));

    m_hotkeyRow = new HotkeyRow(services.hotkeys, state.defaults(), services.desktop.shortcuts, section);
    m_selectionForm->addRow(m_hotkeyRow);
    // In every trigger mode: text on the screen has no selection to wait for.
    m_selectionForm->addRow(L10n::t(QStringLiteral("Text on screen"), QStringLiteral("屏幕文字")),
                            new HotkeyRow(services.screenTextHotkeys, state.defaults(),
                                          HotkeySlot::screenText(), QStringLiteral("screenTextHotkey"),
                                          section));

    m_selectionForm->addRow(settingToggle(
        "autoHideToggle",
        L10n::t(QStringLiteral("Dismiss card on outside click"), QStringLiteral("点击卡片外部立即消失")),
        settings, &AppSettings::autoHide, &AppSettings::setAutoHide, &AppSettings::autoHideChanged, section));
    return section;
}

QWidget* GeneralPage::systemSection(AppState& state, const AppServices& services) {
    auto* section = new QGroupBox(L10n::t(QStringLiteral("System"), QStringLiteral("系统")), this);
    auto* form = new QFormLayout(section);
    form->addRow(new LaunchAtLoginToggle(services.desktop.tasks, section));
    form->addRow(SettingsStyle::labelledRow(
        L10n::t(QStringLiteral("Accessibility Permission"), QStringLiteral("辅助功能权限")),
        new AccessibilityButton(services.desktop.accessibility, services.trust), section));
    form->addRow(
        SettingsStyle::footnote(L10n::t(QStringLiteral("Only reads selected text. No screen recording "
                                                       "permission needed."),
                                        QStringLiteral("权限仅用于读取选中文本。不需要屏幕录制权限。")),
                                section));
    m_serviceRow = new GlossServiceRow(state.api().baseURL(), *state.api().session(), section);
    form->addRow(m_serviceRow);
    form->setRowVisible(m_serviceRow, false);
    connect(m_serviceRow, &GlossServiceRow::relevanceChanged, this,
            [form, row = m_serviceRow](bool relevant) { form->setRowVisible(row, relevant); });
    return section;
}

void GeneralPage::showEvent(QShowEvent* event) {
    QWidget::showEvent(event);
    m_serviceRow->refresh();
}

void GeneralPage::showAvailability(QComboBox* trigger) {
    trigger->setItemDelegate(new PickerStatusDelegate(trigger));
    for (int i = 0; i < trigger->count(); ++i) {
        const std::optional<TriggerMode> mode = fromRawValue<TriggerMode>(trigger->itemData(i).toString());
        if (!mode)
            continue;
        const Capability status = TriggerModeNote::availability(*mode, m_capabilities);
        trigger->setItemData(i, QString(status.mark() + status.detail), PickerStatusDelegate::statusRole);
    }
    trigger->view()->setMinimumWidth(trigger->view()->sizeHintForColumn(0));
}

void GeneralPage::followTriggerMode() {
    const bool hotkey = m_state.settings().triggerMode() == TriggerMode::hotkey;
    if (!hotkey)
        m_hotkeyRow->recorder().abandon();
    m_selectionForm->setRowVisible(m_hotkeyRow, hotkey);
    m_selectionForm->setRowVisible(m_modifierPicker,
                                   m_state.settings().triggerMode() == TriggerMode::optionSelection);
    const QString note = TriggerModeNote::text(m_state.settings().triggerMode(), m_capabilities);
    m_triggerNote->setText(note);
    m_selectionForm->setRowVisible(m_triggerNote, !note.isEmpty());
}

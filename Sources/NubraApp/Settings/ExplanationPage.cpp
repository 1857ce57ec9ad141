#include "NubraApp/Settings/ExplanationPage.h"

#include "NubraApp/Settings/AnkiSection.h"
#include "NubraApp/Settings/SettingPicker.h"
#include "NubraApp/Settings/SettingsStyle.h"

#include <QFormLayout>
#include <QGroupBox>
#include <QLabel>
#include <QVBoxLayout>

namespace {
const QString automatic = QStringLiteral("auto");
}

ExplanationPage::ExplanationPage(AppSettings& settings, QWidget* parent)
    : QWidget(parent), m_settings(settings) {
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(explanationSection());
    layout->addWidget(modelTierSection());
    layout->addWidget(new AnkiSection(settings, this));
    layout->addStretch(1);
}

QWidget* ExplanationPage::explanationSection() {
    auto* section = new QGroupBox(L10n::t(QStringLiteral("Explanation"), QStringLiteral("解释")), this);
    auto* form = new QFormLayout(section);

    auto* length = new QComboBox(section);
    length->setObjectName(QStringLiteral("lengthPicker"));
    bindSettingPicker<GlossLength>(length, m_settings, &AppSettings::length, &AppSettings::setLength,
                                   &AppSettings::lengthChanged);
    form->addRow(L10n::t(QStringLiteral("Length"), QStringLiteral("长度")), length);

    auto* style = new QComboBox(section);
    style->setObjectName(QStringLiteral("stylePicker"));
    bindSettingPicker<GlossStyle>(style, m_settings, &AppSettings::style, &AppSettings::setStyle,
                                  &AppSettings::styleChanged);
    form->addRow(L10n::t(QStringLiteral("Style"), QStringLiteral("风格")), style);

    m_outputLanguage = new QComboBox(section);
    m_outputLanguage->setObjectName(QStringLiteral("outputLanguagePicker"));
    m_outputLanguage->addItem(L10n::t(QStringLiteral("Match input"), QStringLiteral("跟随输入语言")),
                              automatic);
    m_outputLanguage->addItem(L10n::t(QStringLiteral("Chinese"), QStringLiteral("中文")),
                              QStringLiteral("zh"));
    m_outputLanguage->addItem(L10n::t(QStringLiteral("English"), QStringLiteral("英文")),
                              QStringLiteral("en"));
    form->addRow(L10n::t(QStringLiteral("Output language"), QStringLiteral("输出语言")), m_outputLanguage);

    m_translationNote =
        SettingsStyle::footnote(L10n::t(QStringLiteral("Output is locked to the chosen language — "
                                                       "doubles as a translation tool."),
                                        QStringLiteral("输出固定为所选语言——自带翻译场景。")),
                                section);
    m_translationNote->setObjectName(QStringLiteral("translationNote"));
    form->addRow(m_translationNote);

    showOutputLanguage();
    connect(&m_settings, &AppSettings::outputLangChanged, this, &ExplanationPage::showOutputLanguage);
    connect(m_outputLanguage, &QComboBox::currentIndexChanged, this, [this](int index) {
        if (index >= 0)
            m_settings.setOutputLang(m_outputLanguage->itemData(index).toString());
    });
    return section;
}

QWidget* ExplanationPage::modelTierSection() {
    auto* section = new QGroupBox(L10n::t(QStringLiteral("Model tier"), QStringLiteral("模型档位")), this);
    auto* form = new QFormLayout(section);
    auto* tier = new QComboBox(section);
    tier->setObjectName(QStringLiteral("modelTierPicker"));
    bindSettingPicker<ModelTier>(tier, m_settings, &AppSettings::modelTier, &AppSettings::setModelTier,
                                 &AppSettings::modelTierChanged);
    form->addRow(tier);
    return section;
}

void ExplanationPage::showOutputLanguage() {
    const QString language = m_settings.outputLang();
    int index = m_outputLanguage->findData(language);
    // A code chosen elsewhere (the menu takes any) is listed as it is rather than shown as nothing.
    if (index < 0) {
        m_outputLanguage->addItem(language, language);
        index = m_outputLanguage->count() - 1;
    }
    m_outputLanguage->setCurrentIndex(index);
    m_translationNote->setVisible(language != automatic);
}

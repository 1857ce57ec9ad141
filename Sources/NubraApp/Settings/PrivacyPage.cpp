#include "NubraApp/Settings/PrivacyPage.h"

#include "NubraApp/Foundation/AppState.h"
#include "NubraApp/Foundation/HistoryNotifier.h"
#include "NubraApp/Foundation/PlatformTexts.h"
#include "NubraApp/Settings/SettingsStyle.h"

#include <QCheckBox>
#include <QComboBox>
#include <QFormLayout>
#include <QGroupBox>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

namespace {
constexpr int historyLimits[] = {50, 100, 500, 1000};
}

PrivacyPage::PrivacyPage(AppState& state, QWidget* parent) : QWidget(parent), m_state(state) {
    AppSettings& settings = state.settings();
    auto* section = new QGroupBox(L10n::t(QStringLiteral("Local History"), QStringLiteral("本地历史")), this);
    auto* form = new QFormLayout(section);
    m_form = form;

    // Saved at once: whether lookups are written is not something to lose with a crash.
    auto* record = new QCheckBox(PlatformTexts::text(PlatformText::keepHistoryToggle), section);
    record->setObjectName(QStringLiteral("recordHistoryToggle"));
    record->setChecked(settings.recordHistory());
    connect(&settings, &AppSettings::recordHistoryChanged, record,
            [record, &settings] { record->setChecked(settings.recordHistory()); });
    connect(record, &QCheckBox::toggled, this, [this](bool on) {
        if (on == m_state.settings().recordHistory())
            return;
        m_state.settings().setRecordHistory(on);
        m_state.persist();
    });
    form->addRow(record);

    // The limit lasts for the session only.
    auto* limit = new QComboBox(section);
    limit->setObjectName(QStringLiteral("historyLimitPicker"));
    for (const int count : historyLimits)
        limit->addItem(QString::number(count), count);
    const auto showLimit = [limit, &settings] {
        limit->setCurrentIndex(limit->findData(settings.historyLimit()));
    };
    showLimit();
    connect(&settings, &AppSettings::historyLimitChanged, limit, showLimit);
    connect(limit, &QComboBox::currentIndexChanged, this, [limit, &settings](int index) {
        if (index >= 0)
            settings.setHistoryLimit(limit->itemData(index).toInt());
    });
    form->addRow(L10n::t(QStringLiteral("Keep last"), QStringLiteral("保留条数")), limit);

    auto* clear = new QPushButton(
        L10n::t(QStringLiteral("Clear All History"), QStringLiteral("清除全部历史")), section);
    clear->setObjectName(QStringLiteral("clearHistoryButton"));
    clear->setAutoDefault(false);
    SettingsStyle::setDestructive(clear);
    connect(clear, &QPushButton::clicked, this, &PrivacyPage::clearHistory);
    form->addRow(SettingsStyle::leadingRow(clear, section));

    m_messageLabel = new QLabel(section);
    m_messageLabel->setObjectName(QStringLiteral("historyMessage"));
    m_messageLabel->setWordWrap(true);
    m_messageLabel->setTextInteractionFlags(Qt::TextSelectableByMouse);
    SettingsStyle::setCaption(m_messageLabel);
    SettingsStyle::setSecondary(m_messageLabel);
    form->addRow(m_messageLabel);
    form->setRowVisible(m_messageLabel, false);

    form->addRow(SettingsStyle::footnote(PlatformTexts::text(PlatformText::historyStaysLocal), section));

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(section);
    layout->addStretch(1);
}

void PrivacyPage::clearHistory() {
    try {
        m_state.history().clear();
        setHistoryMessage(L10n::t(QStringLiteral("History cleared."), QStringLiteral("历史记录已清除。")));
    } catch (const HistoryStoreError& error) {
        setHistoryMessage(L10n::t(QStringLiteral("Clear failed: "), QStringLiteral("清除失败：")) +
                          error.localizedDescription());
    }
    // An open history window lists what is left.
    HistoryNotifier::shared().post();
}

void PrivacyPage::setHistoryMessage(const QString& text) {
    m_messageLabel->setText(text);
    m_form->setRowVisible(m_messageLabel, true);
}

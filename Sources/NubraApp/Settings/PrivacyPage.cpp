#include "NubraApp/Settings/PrivacyPage.h"

#include "NubraApp/Foundation/AppState.h"
#include "NubraApp/Foundation/HistoryNotifier.h"
#include "NubraApp/Foundation/PlatformTexts.h"
#include "NubraApp/Settings/SettingsStyle.h"
#include "NubraPlatform/SyntheticKeyboard.h"

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

PrivacyPage::PrivacyPage(AppState& state, SyntheticKeyboard& keyboard, QWidget* parent)
    : QWidget(parent), m_state(state), m_keyboard(keyboard) {
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
    layout->addWidget(remoteControlSection());
    layout->addStretch(1);
}

QWidget* PrivacyPage::remoteControlSection() {
    auto* section = new QGroupBox(L10n::t(QStringLiteral("Copying"), QStringLiteral("复制")), this);
    auto* form = new QFormLayout(section);
    AppSettings& settings = m_state.settings();
    m_remoteControl = new QCheckBox(
        L10n::t(QStringLiteral("Copy in Wayland windows"), QStringLiteral("在 Wayland 窗口中复制")), section);
    m_remoteControl->setObjectName(QStringLiteral("remoteDesktopCopyToggle"));
    m_remoteControl->setChecked(settings.remoteDesktopCopy());
    connect(&settings, &AppSettings::remoteDesktopCopyChanged, m_remoteControl,
            [this] { m_remoteControl->setChecked(m_state.settings().remoteDesktopCopy()); });
    connect(m_remoteControl, &QCheckBox::toggled, this, [this](bool on) {
        if (on == m_state.settings().remoteDesktopCopy())
            return;
        m_state.settings().setRemoteDesktopCopy(on);
        m_state.persist();
    });
    form->addRow(m_remoteControl);

    m_remoteControlNote = new QLabel(section);
    m_remoteControlNote->setObjectName(QStringLiteral("remoteDesktopCopyNote"));
    m_remoteControlNote->setWordWrap(true);
    SettingsStyle::setCaption(m_remoteControlNote);
    SettingsStyle::setSecondary(m_remoteControlNote);
    form->addRow(m_remoteControlNote);
    m_keyboard.watchPermission(this, [this] { renderRemoteControl(); });
    renderRemoteControl();
    return section;
}

void PrivacyPage::renderRemoteControl() {
    using Permission = SyntheticKeyboard::Permission;
    const Permission permission = m_keyboard.permission();
    m_remoteControl->setEnabled(permission != Permission::notNeeded && permission != Permission::unavailable);
    QString note;
    switch (permission) {
    case Permission::notNeeded:
        note = L10n::t(
            QStringLiteral("Not needed on this desktop: Nubra can already press Ctrl+C in every window."),
            QStringLiteral("此桌面无需此项：Nubra 已能在所有窗口中按下 Ctrl+C。"));
        break;
    case Permission::unavailable:
        note = L10n::t(
            QStringLiteral("This desktop offers applications no remote control, so Nubra cannot press "
                           "Ctrl+C in native Wayland windows."),
            QStringLiteral("此桌面不向应用提供远程控制，因此 Nubra 无法在原生 Wayland 窗口中按下 Ctrl+C。"));
        break;
    case Permission::off:
        note = L10n::t(
            QStringLiteral("When a window does not share its selection, Nubra presses Ctrl+C and puts your "
                           "clipboard back. In native Wayland windows that takes the desktop's remote "
                           "control: when you turn this on, the desktop asks for your permission (GNOME 43 "
                           "asks again each time Nubra starts)."),
            QStringLiteral("当窗口不提供所选内容时，Nubra 会按下 Ctrl+C 并恢复你的剪贴板。在原生 Wayland "
                           "窗口中这需要桌面的远程控制：开启后，桌面会请求你的许可（GNOME 43 在 Nubra "
                           "每次启动时都会再次询问）。"));
        break;
    case Permission::asking:
        note = L10n::t(QStringLiteral("Waiting for your answer in the desktop's dialog…"),
                       QStringLiteral("正在等待你在桌面对话框中的答复…"));
        break;
    case Permission::granted:
        note = L10n::t(
            QStringLiteral("Allowed: Nubra can press Ctrl+C in native Wayland windows until it quits."),
            QStringLiteral("已允许：在 Nubra 退出前，它可以在原生 Wayland 窗口中按下 Ctrl+C。"));
        break;
    case Permission::refused:
        note = L10n::t(
            QStringLiteral("You declined in the desktop's dialog, so Nubra does not press Ctrl+C in native "
                           "Wayland windows. Turn this off and on to be asked again."),
            QStringLiteral("你在桌面对话框中拒绝了，因此 Nubra 不会在原生 Wayland 窗口中按下 Ctrl+C。"
                           "关闭后重新开启即可再次询问。"));
        break;
    case Permission::failed:
        note = L10n::t(
            QStringLiteral("The desktop ended or could not start the remote-control session, so Nubra does "
                           "not press Ctrl+C in native Wayland windows. Turn this off and on to try again."),
            QStringLiteral("桌面结束了或无法启动远程控制会话，因此 Nubra 不会在原生 Wayland 窗口中按下 "
                           "Ctrl+C。关闭后重新开启即可重试。"));
        break;
    }
    m_remoteControlNote->setText(note);
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

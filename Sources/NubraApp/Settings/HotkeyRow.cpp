#include "NubraApp/Settings/HotkeyRow.h"

#include "NubraApp/Capture/HotkeyManager.h"
#include "NubraApp/Settings/DesktopShortcutPanel.h"
#include "NubraApp/Settings/SettingsStyle.h"
#include "NubraCore/Vocabulary/L10n.h"

#include <QFontDatabase>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

HotkeyRow::HotkeyRow(HotkeyManager& hotkeys, Defaults& defaults, DesktopShortcuts& shortcuts, QWidget* parent)
    : QWidget(parent), m_hotkeys(hotkeys), m_defaults(defaults),
      m_recorder(new HotkeyRecorder(hotkeys, defaults, HotkeySlot::lookup(), this)), m_text(new QLabel(this)),
      m_desktopBinding(new QLabel(this)) {
    addKeys(QStringLiteral("hotkey"), L10n::t(QStringLiteral("Reset"), QStringLiteral("恢复默认")),
            [this] { m_recorder->adopt(HotkeyCombo::defaultCombo()); });
    layout()->addWidget(m_desktopBinding);
    layout()->addWidget(new DesktopShortcutPanel(shortcuts, *m_recorder, defaults, this));

    m_desktopBinding->setObjectName(QStringLiteral("hotkeyDesktopBinding"));
    m_desktopBinding->setWordWrap(true);
    SettingsStyle::setCaption(m_desktopBinding);
    SettingsStyle::setSecondary(m_desktopBinding);
    hotkeys.globalHotkeys().watchDesktopBinding(this, [this] { renderDesktopBinding(); });
    renderDesktopBinding();
}

HotkeyRow::HotkeyRow(HotkeyManager& hotkeys, Defaults& defaults, const HotkeySlot& slot, const QString& name,
                     QWidget* parent)
    : QWidget(parent), m_hotkeys(hotkeys), m_defaults(defaults),
      m_recorder(new HotkeyRecorder(hotkeys, defaults, slot, this)), m_text(new QLabel(this)) {
    addKeys(name, L10n::t(QStringLiteral("Clear"), QStringLiteral("清除")), [this] { m_recorder->clear(); });
}

void HotkeyRow::addKeys(const QString& name, const QString& resetText, std::function<void()> reset) {
    // The lookup's row keeps its names without a prefix: "hotkeyRow", "recordButton".
    const bool lookup = name == u"hotkey";
    const auto named = [&](const QString& part) {
        return lookup ? part : name + part.at(0).toUpper() + part.mid(1);
    };
    setObjectName(name + QStringLiteral("Row"));
    m_text->setObjectName(name + QStringLiteral("Text"));
    auto* record = new QPushButton(L10n::t(QStringLiteral("Re-record"), QStringLiteral("重新录制")), this);
    record->setObjectName(named(QStringLiteral("recordButton")));
    auto* resetButton = new QPushButton(resetText, this);
    resetButton->setObjectName(named(lookup ? QStringLiteral("resetButton") : QStringLiteral("clearButton")));
    for (QPushButton* button : {record, resetButton})
        button->setAutoDefault(false);

    auto* keys = new QHBoxLayout;
    keys->addWidget(m_text, 1);
    keys->addWidget(record);
    keys->addWidget(resetButton);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addLayout(keys);
    m_refusal = new QLabel(this);
    m_refusal->setObjectName(name + QStringLiteral("Refusal"));
    m_refusal->setWordWrap(true);
    SettingsStyle::setCaption(m_refusal);
    SettingsStyle::setSecondary(m_refusal);
    layout->addWidget(m_refusal);

    // Pressed again while recording, Re-record changes nothing: the recording goes on.
    connect(record, &QPushButton::clicked, this, [this] { m_recorder->start(window()->windowHandle()); });
    connect(resetButton, &QPushButton::clicked, this, std::move(reset));
    connect(m_recorder, &HotkeyRecorder::recordingChanged, this, &HotkeyRow::render);
    connect(m_recorder, &HotkeyRecorder::heldModifiersChanged, this, &HotkeyRow::render);
    connect(m_recorder, &HotkeyRecorder::refusedChanged, this, &HotkeyRow::render);
    connect(m_recorder, &HotkeyRecorder::comboChanged, this, &HotkeyRow::render);
    render();
}

void HotkeyRow::renderDesktopBinding() {
    using State = GlobalHotkeys::DesktopBinding::State;
    const std::optional<GlobalHotkeys::DesktopBinding> binding = m_hotkeys.globalHotkeys().desktopBinding();
    m_desktopBinding->setVisible(binding.has_value());
    if (!binding)
        return;
    switch (binding->state) {
    case State::asking:
        m_desktopBinding->setText(L10n::t(QStringLiteral("Waiting for the desktop to bind the hot key…"),
                                          QStringLiteral("正在等待桌面绑定快捷键…")));
        break;
    case State::bound:
        m_desktopBinding->setText(
            binding->trigger.isEmpty()
                ? L10n::t(QStringLiteral("Bound by the desktop."), QStringLiteral("已由桌面绑定。"))
                : L10n::t(QStringLiteral("Bound by the desktop: %1"), QStringLiteral("已由桌面绑定：%1"))
                      .arg(binding->trigger));
        break;
    case State::declined:
        m_desktopBinding->setText(L10n::t(
            QStringLiteral("Not bound: the desktop's shortcut dialog was cancelled or left the key unset. "
                           "Re-record to be asked again."),
            QStringLiteral("未绑定：桌面的快捷键对话框被取消，或未设置按键。重新录制即可再次询问。")));
        break;
    case State::failed:
        m_desktopBinding->setText(
            L10n::t(QStringLiteral("Not bound: the desktop could not bind the hot key."),
                    QStringLiteral("未绑定：桌面无法绑定快捷键。")));
        break;
    }
}

void HotkeyRow::render() {
    const std::optional<HotkeyCombo>& refused = m_recorder->refused();
    m_refusal->setVisible(m_recorder->isRecording() && refused);
    if (refused)
        m_refusal->setText(
            L10n::t(QStringLiteral("%1 is already the other hot key. Press another combination."),
                    QStringLiteral("%1 已是另一个快捷键，请按下其他组合键。"))
                .arg(refused->display()));
    QFont font = this->font();
    if (m_recorder->isRecording()) {
        const std::uint64_t held = m_recorder->heldModifiers();
        m_text->setText(held ? HotkeyCombo::modifiersPrefix(held) + u"…"
                             : L10n::t(QStringLiteral("Press keys… (Esc to cancel)"),
                                       QStringLiteral("请按下组合键…（Esc 取消）")));
        SettingsStyle::setSecondary(m_text);
    } else {
        const std::optional<HotkeyCombo> combo = m_recorder->combo();
        m_text->setText(combo ? combo->display() : L10n::t(QStringLiteral("None"), QStringLiteral("无")));
        m_text->setPalette(QPalette());
        QFont fixed = QFontDatabase::systemFont(QFontDatabase::FixedFont);
        fixed.setPointSizeF(font.pointSizeF() > 0 ? font.pointSizeF() : fixed.pointSizeF());
        font = fixed;
    }
    m_text->setFont(font);
}

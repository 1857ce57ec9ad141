#include "NubraApp/Settings/HotkeyRow.h"

#include "NubraApp/Settings/DesktopShortcutPanel.h"
#include "NubraApp/Settings/SettingsStyle.h"
#include "NubraCore/Vocabulary/L10n.h"

#include <QFontDatabase>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

HotkeyRow::HotkeyRow(HotkeyManager& hotkeys, Defaults& defaults, DesktopShortcuts& shortcuts, QWidget* parent)
    : QWidget(parent), m_defaults(defaults), m_recorder(new HotkeyRecorder(hotkeys, defaults, this)),
      m_text(new QLabel(this)),
      m_desktopShortcut(new DesktopShortcutPanel(shortcuts, *m_recorder, defaults, this)) {
    setObjectName(QStringLiteral("hotkeyRow"));
    m_text->setObjectName(QStringLiteral("hotkeyText"));
    auto* record = new QPushButton(L10n::t(QStringLiteral("Re-record"), QStringLiteral("重新录制")), this);
    record->setObjectName(QStringLiteral("recordButton"));
    auto* reset = new QPushButton(L10n::t(QStringLiteral("Reset"), QStringLiteral("恢复默认")), this);
    reset->setObjectName(QStringLiteral("resetButton"));
    for (QPushButton* button : {record, reset})
        button->setAutoDefault(false);

    auto* keys = new QHBoxLayout;
    keys->addWidget(m_text, 1);
    keys->addWidget(record);
    keys->addWidget(reset);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addLayout(keys);
    layout->addWidget(m_desktopShortcut);

    // Pressed again while recording, Re-record changes nothing: the recording goes on.
    connect(record, &QPushButton::clicked, this, [this] { m_recorder->start(window()->windowHandle()); });
    connect(reset, &QPushButton::clicked, this, [this] { m_recorder->adopt(HotkeyCombo::defaultCombo()); });
    connect(m_recorder, &HotkeyRecorder::recordingChanged, this, &HotkeyRow::render);
    connect(m_recorder, &HotkeyRecorder::comboChanged, this, &HotkeyRow::render);
    render();
}

void HotkeyRow::render() {
    QFont font = this->font();
    if (m_recorder->isRecording()) {
        m_text->setText(L10n::t(QStringLiteral("Press keys… (Esc to cancel)"),
                                QStringLiteral("请按下组合键…（Esc 取消）")));
        SettingsStyle::setSecondary(m_text);
    } else {
        m_text->setText(HotkeyCombo::load(m_defaults).display());
        m_text->setPalette(QPalette());
        QFont fixed = QFontDatabase::systemFont(QFontDatabase::FixedFont);
        fixed.setPointSizeF(font.pointSizeF() > 0 ? font.pointSizeF() : fixed.pointSizeF());
        font = fixed;
    }
    m_text->setFont(font);
}

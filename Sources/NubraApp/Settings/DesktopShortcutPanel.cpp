#include "NubraApp/Settings/DesktopShortcutPanel.h"

#include "NubraApp/Settings/HotkeyRecorder.h"
#include "NubraApp/Settings/SettingsStyle.h"
#include "NubraCore/Vocabulary/L10n.h"

#include <QClipboard>
#include <QFontDatabase>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPointer>
#include <QPushButton>
#include <QVBoxLayout>

using Setup = DesktopShortcuts::Setup;

DesktopShortcutPanel::DesktopShortcutPanel(DesktopShortcuts& shortcuts, HotkeyRecorder& recorder,
                                           const Defaults& defaults, QWidget* parent)
    : QWidget(parent), m_shortcuts(shortcuts), m_defaults(defaults), m_status(new QLabel(this)) {
    setObjectName(QStringLiteral("desktopShortcutPanel"));
    m_status->setObjectName(QStringLiteral("desktopShortcutStatus"));
    m_status->setWordWrap(true);
    SettingsStyle::setCaption(m_status);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    const QString desktop = shortcuts.desktopName();

    if (shortcuts.setup() == Setup::configLine) {
        auto* intro = SettingsStyle::footnote(
            L10n::t(QStringLiteral("%1 runs Nubra on this shortcut once this line is in its configuration:"),
                    QStringLiteral("把下面这行加入 %1 的配置后，按下此快捷键时 %1 会运行 Nubra："))
                .arg(desktop),
            this);
        m_line = new QLineEdit(this);
        m_line->setObjectName(QStringLiteral("desktopShortcutLine"));
        m_line->setReadOnly(true);
        m_line->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
        auto* copy = new QPushButton(L10n::t(QStringLiteral("Copy"), QStringLiteral("复制")), this);
        copy->setObjectName(QStringLiteral("copyLineButton"));
        copy->setAutoDefault(false);
        connect(copy, &QPushButton::clicked, this,
                [this] { QGuiApplication::clipboard()->setText(m_line->text()); });
        auto* lineRow = new QHBoxLayout;
        lineRow->addWidget(m_line, 1);
        lineRow->addWidget(copy);
        layout->addWidget(intro);
        layout->addLayout(lineRow);
        layout->addWidget(m_status);
    } else {
        m_add =
            new QPushButton(L10n::t(QStringLiteral("Add the shortcut"), QStringLiteral("添加快捷键")), this);
        m_add->setObjectName(QStringLiteral("addShortcutButton"));
        m_remove = new QPushButton(L10n::t(QStringLiteral("Remove"), QStringLiteral("移除")), this);
        m_remove->setObjectName(QStringLiteral("removeShortcutButton"));
        for (QPushButton* button : {m_add, m_remove})
            button->setAutoDefault(false);
        connect(m_add, &QPushButton::clicked, this,
                [this] { m_shortcuts.add(HotkeyCombo::load(m_defaults), answer()); });
        // Asked again afterwards: with Nubra's binding gone, another may now show for the combination.
        connect(m_remove, &QPushButton::clicked, this, [this] {
            QPointer<DesktopShortcutPanel> self(this);
            m_shortcuts.remove([self](const DesktopShortcuts::Status&) {
                if (self)
                    self->refresh();
            });
        });
        auto* row = new QHBoxLayout;
        row->addWidget(m_status, 1);
        row->addWidget(m_add);
        row->addWidget(m_remove);
        layout->addLayout(row);
    }
    setVisible(shortcuts.setup() != Setup::notNeeded);
    connect(&recorder, &HotkeyRecorder::comboChanged, this, &DesktopShortcutPanel::followCombo);
}

void DesktopShortcutPanel::refresh() {
    if (m_shortcuts.setup() == Setup::notNeeded)
        return;
    const HotkeyCombo combo = HotkeyCombo::load(m_defaults);
    if (m_line)
        m_line->setText(m_shortcuts.configLine(combo));
    m_shortcuts.query(combo, answer());
}

void DesktopShortcutPanel::showEvent(QShowEvent* event) {
    QWidget::showEvent(event);
    refresh();
}

// A binding that was set up follows the new combination; otherwise the new one is only looked at.
void DesktopShortcutPanel::followCombo() {
    if (m_active && m_shortcuts.setup() == Setup::automatic)
        m_shortcuts.add(HotkeyCombo::load(m_defaults), answer());
    else
        refresh();
}

DesktopShortcuts::Done DesktopShortcutPanel::answer() {
    return [self = QPointer<DesktopShortcutPanel>(this)](const DesktopShortcuts::Status& status) {
        if (self)
            self->showStatus(status);
    };
}

void DesktopShortcutPanel::showStatus(const DesktopShortcuts::Status& status) {
    const QString desktop = m_shortcuts.desktopName();
    const QString keys = HotkeyCombo::load(m_defaults).display();
    m_active = status.active.value_or(false);
    QString text;
    if (status.failed) {
        text = m_line ? L10n::t(QStringLiteral("Could not ask %1 whether the line is active."),
                                QStringLiteral("无法向 %1 查询这一行是否生效。"))
                      : L10n::t(QStringLiteral("Could not read or change the %1 settings."),
                                QStringLiteral("无法读取或更改 %1 设置。"));
        text = text.arg(desktop);
    } else if (!status.takenBy.isEmpty()) {
        text = L10n::t(QStringLiteral("%2 is already used by %1 for “%3”. Record another combination."),
                       QStringLiteral("%2 已被 %1 用于“%3”。请录制其他组合键。"))
                   .arg(desktop, keys, status.takenBy);
    } else if (m_active) {
        text = m_line
                   ? L10n::t(QStringLiteral("Active in %1."), QStringLiteral("已在 %1 中生效。")).arg(desktop)
                   : L10n::t(QStringLiteral("Set up in %1 settings: %2"),
                             QStringLiteral("已在 %1 设置中添加：%2"))
                         .arg(desktop, keys);
    } else if (status.active.has_value()) {
        text = m_line ? L10n::t(QStringLiteral("Not in the configuration %1 has loaded: add the line, then "
                                               "reload %1."),
                                QStringLiteral("%1 已加载的配置中还没有这一行：请加入后重新加载 %1。"))
                      : L10n::t(QStringLiteral("%1 does not know this shortcut yet."),
                                QStringLiteral("%1 还没有这个快捷键。"));
        text = text.arg(desktop);
    }
    m_status->setText(text);
    m_status->setVisible(!text.isEmpty());
    if (m_add) {
        m_add->setVisible(!m_active);
        m_add->setEnabled(!status.failed);
        m_remove->setVisible(m_active);
    }
}

#include "NubraApp/Settings/AnkiSection.h"

#include "NubraApp/Settings/SettingsStyle.h"
#include "NubraCore/Anki/AnkiConnect.h"
#include "NubraCore/Anki/AnkiTextFile.h"
#include "NubraCore/Service/GlossAPI.h"
#include "NubraCore/Settings/AppSettings.h"
#include "NubraCore/Vocabulary/L10n.h"

#include <QComboBox>
#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>

namespace {

// Typed names count when the field is left or Return is pressed, picked ones at once.
void bindName(QComboBox* picker, AppSettings& settings, const QString& (AppSettings::*read)() const,
              void (AppSettings::*write)(const QString&), void (AppSettings::*changed)()) {
    picker->setEditable(true);
    picker->setInsertPolicy(QComboBox::NoInsert);
    picker->setMinimumContentsLength(18);
    picker->setCurrentText((settings.*read)());
    auto store = [picker, &settings, read, write](const QString& text) {
        (settings.*write)(text);
        // A blank name went back to the default.
        if (picker->currentText() != (settings.*read)())
            picker->setCurrentText((settings.*read)());
    };
    QObject::connect(picker->lineEdit(), &QLineEdit::editingFinished, picker,
                     [picker, store] { store(picker->currentText()); });
    QObject::connect(picker, &QComboBox::textActivated, picker, store);
    QObject::connect(&settings, changed, picker, [picker, &settings, read] {
        if (picker->currentText() != (settings.*read)())
            picker->setCurrentText((settings.*read)());
    });
}

} // namespace

AnkiSection::AnkiSection(AppSettings& settings, QWidget* parent)
    : QGroupBox(QStringLiteral("Anki"), parent), m_settings(settings), m_deck(new QComboBox(this)),
      m_noteType(new QComboBox(this)), m_status(SettingsStyle::footnote(QString(), this)) {
    setObjectName(QStringLiteral("ankiSection"));
    auto* form = new QFormLayout(this);
    m_deck->setObjectName(QStringLiteral("ankiDeckPicker"));
    bindName(m_deck, settings, &AppSettings::ankiDeck, &AppSettings::setAnkiDeck,
             &AppSettings::ankiDeckChanged);
    form->addRow(L10n::t(QStringLiteral("Deck"), QStringLiteral("牌组")), m_deck);
    m_noteType->setObjectName(QStringLiteral("ankiNoteTypePicker"));
    bindName(m_noteType, settings, &AppSettings::ankiNoteType, &AppSettings::setAnkiNoteType,
             &AppSettings::ankiNoteTypeChanged);
    form->addRow(L10n::t(QStringLiteral("Note type"), QStringLiteral("笔记类型")), m_noteType);
    m_status->setObjectName(QStringLiteral("ankiStatus"));
    form->addRow(m_status);
}

void AnkiSection::showEvent(QShowEvent* event) {
    QGroupBox::showEvent(event);
    askAnki();
}

void AnkiSection::askAnki() {
    const AnkiConnect anki(AnkiConnect::configuredURL(), nubraDirectSession());
    anki.deckNames(this, [this](AnkiResult<QStringList> decks) {
        if (const auto* names = std::get_if<QStringList>(&decks)) {
            offer(m_deck, *names, m_settings.ankiDeck());
            m_status->setText(
                L10n::t(QStringLiteral("Anki is running: its decks and note types are listed. A "
                                       "missing deck is made when the first note goes in."),
                        QStringLiteral("Anki 正在运行：列出的是它的牌组和笔记类型。"
                                       "牌组不存在时，添加第一张卡片时会创建。")));
            return;
        }
        const QString folder = AnkiTextFile::pendingFolder();
        m_status->setText(
            L10n::t(QStringLiteral("Anki with the AnkiConnect add-on is not running: notes are "
                                   "saved in %1 to import with File › Import.")
                        .arg(folder),
                    QStringLiteral("未检测到运行中的 Anki（需 AnkiConnect 插件）：卡片会保存在 %1，"
                                   "可在 Anki 中用“文件 › 导入”导入。")
                        .arg(folder)));
    });
    anki.modelNames(this, [this](AnkiResult<QStringList> models) {
        if (const auto* names = std::get_if<QStringList>(&models))
            offer(m_noteType, *names, m_settings.ankiNoteType());
    });
}

void AnkiSection::offer(QComboBox* picker, const QStringList& names, const QString& current) {
    const QSignalBlocker quiet(picker);
    picker->clear();
    picker->addItems(names);
    picker->setCurrentText(current);
}

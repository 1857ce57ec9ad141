#pragma once

#include "NubraCore/Vocabulary/L10n.h"

#include <QJsonObject>
#include <QString>

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

// The closed vocabularies every part of Nubra speaks, and the request and result records of a lookup.

enum class GlossStyle { plain, academic, coding, languageLearning };
enum class GlossLength { short_, medium, detailed };
enum class ModelTier { fast, quality };
enum class TriggerMode { onSelection, optionSelection, doubleClick, hotkey };
// The key held during a selection in Option-selection mode, by the flag it sets: Option is Alt, Command
// is Super. Window managers that move windows on Alt+drag leave Super to Nubra.
enum class OptionModifier { option, command };

// The most of a selection that capture keeps (UTF-16 units on the range path, user-perceived
// characters when only the selected text is known).
inline constexpr int MaxSelectedCharacters = 2000;

namespace vocabulary {

// One row of a vocabulary table: the case, its stored raw value and its two display names.
template <typename E> struct Entry {
    E value;
    std::u16string_view raw;
    std::u16string_view en;
    std::u16string_view zh;
};

template <typename E> struct Table;

template <> struct Table<GlossStyle> {
    static constexpr std::array<Entry<GlossStyle>, 4> entries{{
        {GlossStyle::plain, u"plain", u"Plain", u"通俗"},
        {GlossStyle::academic, u"academic", u"Academic", u"学术"},
        {GlossStyle::coding, u"coding", u"Coding", u"编程"},
        {GlossStyle::languageLearning, u"languageLearning", u"Language learning", u"语言学习"},
    }};
};

template <> struct Table<GlossLength> {
    static constexpr std::array<Entry<GlossLength>, 3> entries{{
        {GlossLength::short_, u"short", u"Short", u"短"},
        {GlossLength::medium, u"medium", u"Medium", u"中"},
        {GlossLength::detailed, u"detailed", u"Detailed", u"详细"},
    }};
};

template <> struct Table<ModelTier> {
    static constexpr std::array<Entry<ModelTier>, 2> entries{{
        {ModelTier::fast, u"fast", u"Fast", u"快速"},
        {ModelTier::quality, u"quality", u"High quality", u"高质量"},
    }};
};

template <> struct Table<TriggerMode> {
    static constexpr std::array<Entry<TriggerMode>, 4> entries{{
        {TriggerMode::onSelection, u"onSelection", u"On selection", u"选中即显示"},
        {TriggerMode::optionSelection, u"optionSelection", u"⌥ + Selection", u"⌥ + 选中"},
        {TriggerMode::doubleClick, u"doubleClick", u"Double-click", u"双击/三击选中"},
        {TriggerMode::hotkey, u"hotkey", u"Hotkey", u"快捷键"},
    }};
};

// Named as the keys are labelled on Linux keyboards; the setting exists for Linux window managers.
template <> struct Table<OptionModifier> {
    static constexpr std::array<Entry<OptionModifier>, 2> entries{{
        {OptionModifier::option, u"option", u"Alt", u"Alt 键"},
        {OptionModifier::command, u"command", u"Super", u"Super 键"},
    }};
};

template <typename E> const Entry<E>& entryOf(E value) {
    for (const auto& entry : Table<E>::entries)
        if (entry.value == value)
            return entry;
    return Table<E>::entries.front(); // unreachable for a valid enumerator
}

inline QString toQString(std::u16string_view text) {
    return QString::fromUtf16(text.data(), qsizetype(text.size()));
}

} // namespace vocabulary

// Every case in its fixed order, the order of every menu and picker.
template <typename E> constexpr auto allCases() {
    std::array<E, vocabulary::Table<E>::entries.size()> cases{};
    for (std::size_t i = 0; i < cases.size(); ++i)
        cases[i] = vocabulary::Table<E>::entries[i].value;
    return cases;
}

// The stored setting (and identifier) of a case.
template <typename E> QString rawValue(E value) {
    return vocabulary::toQString(vocabulary::entryOf(value).raw);
}

// The case whose raw value is exactly `raw` (case-sensitive), or nothing.
template <typename E> std::optional<E> fromRawValue(QStringView raw) {
    for (const auto& entry : vocabulary::Table<E>::entries)
        if (raw == QStringView(entry.raw.data(), qsizetype(entry.raw.size())))
            return entry.value;
    return std::nullopt;
}

// The bilingual name shown in menus and pickers; follows the interface language on every call.
template <typename E> QString displayName(E value) {
    const auto& entry = vocabulary::entryOf(value);
    return L10n::t(vocabulary::toQString(entry.en), vocabulary::toQString(entry.zh));
}

// What the service receives for a style; differs from the raw value only for languageLearning.
QString wireValue(GlossStyle style);

// One lookup as sent to the gloss service; every field is a string as it goes on the wire.
class GlossRequest {
public:
    GlossRequest(QString selectedText, QString contextBefore, QString contextAfter,
                 std::optional<QString> sourceApp, GlossStyle style, GlossLength length, QString lang,
                 ModelTier modelTier, QString requestId = newRequestId());

    // A fresh random UUID in its canonical upper-case hyphenated form.
    static QString newRequestId();

    const QString& selectedText() const { return m_selectedText; }
    const QString& contextBefore() const { return m_contextBefore; }
    const QString& contextAfter() const { return m_contextAfter; }
    const std::optional<QString>& sourceApp() const { return m_sourceApp; }
    const QString& style() const { return m_style; }
    const QString& length() const { return m_length; }
    const QString& lang() const { return m_lang; }
    const QString& modelTier() const { return m_modelTier; }
    const QString& requestId() const { return m_requestId; }

    // Snake-case keys; "source_app" is left out entirely when there is no source application.
    QJsonObject toJson() const;

private:
    QString m_selectedText;
    QString m_contextBefore;
    QString m_contextAfter;
    std::optional<QString> m_sourceApp;
    QString m_style;
    QString m_length;
    QString m_lang;
    QString m_modelTier;
    QString m_requestId;
};

// The finished explanation, delivered by the final event of a lookup and stored in the history.
struct GlossResult {
    QString gloss;
    QString contextualMeaning;
    std::optional<QString> language;
    std::int64_t creditsCost = 0;
    std::int64_t creditsRemaining = 0;
    bool cached = false;

    // Strict: every member but "language" must be present with its JSON type (integers must be
    // whole numbers); anything else fails the decoding as a whole.
    static std::optional<GlossResult> fromJson(const QJsonObject& object);
    QJsonObject toJson() const;

    friend bool operator==(const GlossResult&, const GlossResult&) = default;
};

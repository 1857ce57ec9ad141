#include "NubraCore/Settings/AppSettings.h"

#include <limits>

namespace {
namespace Key {
const QString style = QStringLiteral("style");
const QString length = QStringLiteral("length");
const QString contextRadius = QStringLiteral("contextRadius");
const QString modelTier = QStringLiteral("modelTier");
const QString autoHide = QStringLiteral("autoHide");
const QString recordHistory = QStringLiteral("recordHistory");
const QString outputLang = QStringLiteral("outputLang");
const QString trigger = QStringLiteral("trigger");
const QString optionModifier = QStringLiteral("optionModifier");
const QString remoteDesktopCopy = QStringLiteral("remoteDesktopCopy");
const QString ankiDeck = QStringLiteral("anki.deck");
const QString ankiNoteType = QStringLiteral("anki.noteType");
} // namespace Key

template <typename E>
void loadChoice(const Defaults& defaults, const QString& key, AppSettings& settings,
                void (AppSettings::*setter)(E)) {
    if (const auto stored = defaults.string(key))
        if (const auto value = fromRawValue<E>(*stored))
            (settings.*setter)(*value);
}

} // namespace

AppSettings::AppSettings(Defaults& defaults, QObject* parent) : QObject(parent), m_defaults(defaults) {}

void AppSettings::loadPersisted() {
    loadChoice<GlossStyle>(m_defaults, Key::style, *this, &AppSettings::setStyle);
    loadChoice<GlossLength>(m_defaults, Key::length, *this, &AppSettings::setLength);
    const qint64 radius = m_defaults.integer(Key::contextRadius).value_or(0);
    if (radius > 0)
        setContextRadius(int(std::min<qint64>(radius, std::numeric_limits<int>::max())));
    loadChoice<ModelTier>(m_defaults, Key::modelTier, *this, &AppSettings::setModelTier);
    if (const auto stored = m_defaults.boolean(Key::recordHistory))
        setRecordHistory(*stored);
    if (const auto stored = m_defaults.boolean(Key::autoHide))
        setAutoHide(*stored);
    if (const auto stored = m_defaults.string(Key::outputLang))
        setOutputLang(*stored);
    loadChoice<TriggerMode>(m_defaults, Key::trigger, *this, &AppSettings::setTriggerMode);
    loadChoice<OptionModifier>(m_defaults, Key::optionModifier, *this, &AppSettings::setOptionModifier);
    if (const auto stored = m_defaults.boolean(Key::remoteDesktopCopy))
        setRemoteDesktopCopy(*stored);
    if (const auto stored = m_defaults.string(Key::ankiDeck))
        setAnkiDeck(*stored);
    if (const auto stored = m_defaults.string(Key::ankiNoteType))
        setAnkiNoteType(*stored);
}

void AppSettings::persist() {
    m_defaults.setValue(Key::style, rawValue(m_style));
    m_defaults.setValue(Key::length, rawValue(m_length));
    m_defaults.setValue(Key::contextRadius, m_contextRadius);
    m_defaults.setValue(Key::modelTier, rawValue(m_modelTier));
    m_defaults.setValue(Key::autoHide, m_autoHide);
    m_defaults.setValue(Key::recordHistory, m_recordHistory);
    m_defaults.setValue(Key::outputLang, m_outputLang);
    m_defaults.setValue(Key::trigger, rawValue(m_triggerMode));
    m_defaults.setValue(Key::optionModifier, rawValue(m_optionModifier));
    m_defaults.setValue(Key::remoteDesktopCopy, m_remoteDesktopCopy);
    m_defaults.setValue(Key::ankiDeck, m_ankiDeck);
    m_defaults.setValue(Key::ankiNoteType, m_ankiNoteType);
}

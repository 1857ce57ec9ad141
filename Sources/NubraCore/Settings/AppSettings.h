#pragma once

#include "NubraCore/Capture/SelectionGate.h"
#include "NubraCore/Settings/PermissionPhase.h"
#include "NubraCore/Support/Defaults.h"
#include "NubraCore/Vocabulary/Models.h"

#include <QObject>
#include <QSet>
#include <QString>

// The user's settings and the shared run-time switches, without any user interface. The application
// state wraps one instance together with the gloss client, the credential and the history store.
// Every setting is a Qt property with its own change signal, so a view follows exactly what it shows.
// Setters only change the value and signal it; saving is always an explicit persist().
class AppSettings : public QObject {
    Q_OBJECT
    Q_PROPERTY(GlossStyle style READ style WRITE setStyle NOTIFY styleChanged)
    Q_PROPERTY(GlossLength length READ length WRITE setLength NOTIFY lengthChanged)
    Q_PROPERTY(int contextRadius READ contextRadius WRITE setContextRadius NOTIFY contextRadiusChanged)
    Q_PROPERTY(ModelTier modelTier READ modelTier WRITE setModelTier NOTIFY modelTierChanged)
    Q_PROPERTY(bool paused READ paused WRITE setPaused NOTIFY pausedChanged)
    Q_PROPERTY(bool recordHistory READ recordHistory WRITE setRecordHistory NOTIFY recordHistoryChanged)
    Q_PROPERTY(QString outputLang READ outputLang WRITE setOutputLang NOTIFY outputLangChanged)
    Q_PROPERTY(int historyLimit READ historyLimit WRITE setHistoryLimit NOTIFY historyLimitChanged)
    Q_PROPERTY(TriggerMode triggerMode READ triggerMode WRITE setTriggerMode NOTIFY triggerModeChanged)
    Q_PROPERTY(OptionModifier optionModifier READ optionModifier WRITE setOptionModifier NOTIFY
                   optionModifierChanged)
    Q_PROPERTY(bool autoHide READ autoHide WRITE setAutoHide NOTIFY autoHideChanged)
    Q_PROPERTY(PermissionPhase permissionPhase READ permissionPhase WRITE setPermissionPhase NOTIFY
                   permissionPhaseChanged)
    Q_PROPERTY(QSet<QString> excludedApps READ excludedApps WRITE setExcludedApps NOTIFY excludedAppsChanged)
    Q_PROPERTY(bool remoteDesktopCopy READ remoteDesktopCopy WRITE setRemoteDesktopCopy NOTIFY
                   remoteDesktopCopyChanged)
    Q_PROPERTY(QString ankiDeck READ ankiDeck WRITE setAnkiDeck NOTIFY ankiDeckChanged)
    Q_PROPERTY(QString ankiNoteType READ ankiNoteType WRITE setAnkiNoteType NOTIFY ankiNoteTypeChanged)

public:
    // Starts from the built-in values; nothing is read until loadPersisted().
    explicit AppSettings(Defaults& defaults, QObject* parent = nullptr);

    GlossStyle style() const { return m_style; }
    GlossLength length() const { return m_length; }
    int contextRadius() const { return m_contextRadius; }
    ModelTier modelTier() const { return m_modelTier; }
    bool paused() const { return m_paused; }
    bool recordHistory() const { return m_recordHistory; }
    const QString& outputLang() const { return m_outputLang; }
    int historyLimit() const { return m_historyLimit; }
    TriggerMode triggerMode() const { return m_triggerMode; }
    OptionModifier optionModifier() const { return m_optionModifier; }
    bool autoHide() const { return m_autoHide; }
    PermissionPhase permissionPhase() const { return m_permissionPhase; }
    const QSet<QString>& excludedApps() const { return m_excludedApps; }
    // Whether the synthetic copy may go through a remote-desktop session the desktop asks the user about.
    bool remoteDesktopCopy() const { return m_remoteDesktopCopy; }
    // Where "Add to Anki" puts its notes; a blank choice means the default.
    const QString& ankiDeck() const { return m_ankiDeck; }
    const QString& ankiNoteType() const { return m_ankiNoteType; }

    void setStyle(GlossStyle value) { update(m_style, value, &AppSettings::styleChanged); }
    void setLength(GlossLength value) { update(m_length, value, &AppSettings::lengthChanged); }
    void setContextRadius(int value) { update(m_contextRadius, value, &AppSettings::contextRadiusChanged); }
    void setModelTier(ModelTier value) { update(m_modelTier, value, &AppSettings::modelTierChanged); }
    void setPaused(bool value) { update(m_paused, value, &AppSettings::pausedChanged); }
    void setRecordHistory(bool value) { update(m_recordHistory, value, &AppSettings::recordHistoryChanged); }
    void setOutputLang(const QString& value) { update(m_outputLang, value, &AppSettings::outputLangChanged); }
    void setHistoryLimit(int value) { update(m_historyLimit, value, &AppSettings::historyLimitChanged); }
    void setTriggerMode(TriggerMode value) { update(m_triggerMode, value, &AppSettings::triggerModeChanged); }
    void setOptionModifier(OptionModifier value) {
        update(m_optionModifier, value, &AppSettings::optionModifierChanged);
    }
    void setAutoHide(bool value) { update(m_autoHide, value, &AppSettings::autoHideChanged); }
    void setPermissionPhase(PermissionPhase value) {
        update(m_permissionPhase, value, &AppSettings::permissionPhaseChanged);
    }
    void setExcludedApps(const QSet<QString>& value) {
        update(m_excludedApps, value, &AppSettings::excludedAppsChanged);
    }
    void setRemoteDesktopCopy(bool value) {
        update(m_remoteDesktopCopy, value, &AppSettings::remoteDesktopCopyChanged);
    }
    void setAnkiDeck(const QString& value) {
        update(m_ankiDeck, orDefault(value, defaultAnkiDeck), &AppSettings::ankiDeckChanged);
    }
    void setAnkiNoteType(const QString& value) {
        update(m_ankiNoteType, orDefault(value, defaultAnkiNoteType), &AppSettings::ankiNoteTypeChanged);
    }

    static constexpr const char16_t* defaultAnkiDeck = u"Nubra";
    static constexpr const char16_t* defaultAnkiNoteType = u"Basic";

    // Reads the stored settings over the current values, key by key; a missing or unusable value keeps
    // what is there. The credential is not a setting and is loaded by the caller.
    void loadPersisted();
    // Writes the nine stored settings in their fixed key order, then the Linux remote-desktop switch and
    // the Anki deck and note type.
    // Paused, the history limit and the excluded applications are never stored.
    void persist();

signals:
    void styleChanged();
    void lengthChanged();
    void contextRadiusChanged();
    void modelTierChanged();
    void pausedChanged();
    void recordHistoryChanged();
    void outputLangChanged();
    void historyLimitChanged();
    void triggerModeChanged();
    void optionModifierChanged();
    void autoHideChanged();
    void permissionPhaseChanged();
    void excludedAppsChanged();
    void remoteDesktopCopyChanged();
    void ankiDeckChanged();
    void ankiNoteTypeChanged();

private:
    static QString orDefault(const QString& value, const char16_t* fallback) {
        const QString trimmed = value.trimmed();
        return trimmed.isEmpty() ? QString::fromUtf16(fallback) : trimmed;
    }

    template <typename T> void update(T& field, const T& value, void (AppSettings::*notify)()) {
        if (field == value)
            return;
        field = value;
        emit(this->*notify)();
    }

    Defaults& m_defaults;
    GlossStyle m_style = GlossStyle::plain;
    GlossLength m_length = GlossLength::medium;
    int m_contextRadius = 200;
    ModelTier m_modelTier = ModelTier::fast;
    bool m_paused = false;
    bool m_recordHistory = true;
    QString m_outputLang = QStringLiteral("auto");
    int m_historyLimit = 100;
    TriggerMode m_triggerMode = TriggerMode::onSelection;
    OptionModifier m_optionModifier = OptionModifier::option;
    bool m_autoHide = true;
    PermissionPhase m_permissionPhase = PermissionPhase::notTrusted;
    QSet<QString> m_excludedApps = SelectionGate::defaultExcludedApps();
    bool m_remoteDesktopCopy = false;
    QString m_ankiDeck = QString::fromUtf16(defaultAnkiDeck);
    QString m_ankiNoteType = QString::fromUtf16(defaultAnkiNoteType);
};

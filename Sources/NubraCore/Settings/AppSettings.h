#pragma once

#include "NubraCore/Capture/SelectionGate.h"
#include "NubraCore/History/HistoryStore.h"
#include "NubraCore/Settings/PermissionPhase.h"
#include "NubraCore/Support/Defaults.h"
#include "NubraCore/Vocabulary/Models.h"

#include <QObject>
#include <QSet>
#include <QString>

#include <memory>

// The user's settings and the shared run-time switches, without any user interface. The application
// state wraps one instance together with the gloss client, the credential and the history store.
// Setters only change the value and emit changed(); saving is always an explicit persist().
class AppSettings : public QObject {
    Q_OBJECT
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
    bool autoHide() const { return m_autoHide; }
    PermissionPhase permissionPhase() const { return m_permissionPhase; }
    const QSet<QString>& excludedApps() const { return m_excludedApps; }

    void setStyle(GlossStyle value) { update(m_style, value); }
    void setLength(GlossLength value) { update(m_length, value); }
    void setContextRadius(int value) { update(m_contextRadius, value); }
    void setModelTier(ModelTier value) { update(m_modelTier, value); }
    void setPaused(bool value) { update(m_paused, value); }
    void setRecordHistory(bool value) { update(m_recordHistory, value); }
    void setOutputLang(const QString& value) { update(m_outputLang, value); }
    void setHistoryLimit(int value) { update(m_historyLimit, value); }
    void setTriggerMode(TriggerMode value) { update(m_triggerMode, value); }
    void setAutoHide(bool value) { update(m_autoHide, value); }
    void setPermissionPhase(PermissionPhase value) { update(m_permissionPhase, value); }
    void setExcludedApps(const QSet<QString>& value) { update(m_excludedApps, value); }

    // Reads the eight stored settings over the current values, key by key; a missing or unusable
    // value keeps what is there. The credential is not a setting and is loaded by the caller.
    void loadPersisted();
    // Writes the eight stored settings in their fixed key order. Paused, the history limit and the
    // excluded applications are never stored.
    void persist();

    // ~/.local/share/Nubra/history.sqlite3 on Linux, Application Support/Nubra on macOS (the folder is
    // created); ":memory:" when there is no data location.
    static QString historyPath();
    // The store at `path`, or an in-memory one when that cannot be opened, so lookups keep working
    // for the session; null only when even that fails.
    static std::unique_ptr<HistoryStore> openHistory(const QString& path);
    // Appends "AppState init: api.baseURL=<url>" to the debug log, only if the log already exists.
    static void writeStartupLine(const QString& baseUrl);

signals:
    void changed();

private:
    template <typename T> void update(T& field, const T& value) {
        if (field == value)
            return;
        field = value;
        emit changed();
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
    bool m_autoHide = true;
    PermissionPhase m_permissionPhase = PermissionPhase::notTrusted;
    QSet<QString> m_excludedApps = SelectionGate::defaultExcludedApps();
};

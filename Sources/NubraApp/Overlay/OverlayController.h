#pragma once

#include "NubraApp/Capture/CardHost.h"
#include "NubraApp/Capture/SelectionSnapshot.h"
#include "NubraCore/Lookup/LookupProgress.h"

#include <QObject>
#include <QPointer>
#include <QString>

#include <memory>
#include <optional>

class AnkiDelivery;
class AppState;
class CardWindow;
class FrontApplications;
class GlossLookup;
class GlossRequest;
class ScreenGeometry;

// Runs one lookup from an accepted selection to the finished explanation and owns the card that shows
// it. Main thread only. The card's observable state is here; CardView draws it.
class OverlayController : public QObject, public CardHost {
    Q_OBJECT
    Q_PROPERTY(QString selectedText READ selectedText NOTIFY selectedTextChanged)
    Q_PROPERTY(QString contextBefore READ contextBefore NOTIFY contextBeforeChanged)
    Q_PROPERTY(QString contextAfter READ contextAfter NOTIFY contextAfterChanged)
    Q_PROPERTY(QString gloss READ gloss NOTIFY glossChanged)
    Q_PROPERTY(QString contextualMeaning READ contextualMeaning NOTIFY contextualMeaningChanged)
    Q_PROPERTY(bool isLoading READ isLoading NOTIFY isLoadingChanged)
    // Empty when there is no message.
    Q_PROPERTY(QString errorMessage READ errorMessageText NOTIFY errorMessageChanged)
    Q_PROPERTY(bool visible READ isVisible NOTIFY visibleChanged)

public:
    OverlayController(FrontApplications& frontApplications, ScreenGeometry& screens,
                      QObject* parent = nullptr);
    ~OverlayController() override;

    // The application's controller. The application installs it once and keeps it alive.
    static OverlayController& shared();
    static bool hasShared();
    static void install(OverlayController* controller);

    const QString& selectedText() const { return m_selectedText; }
    const QString& contextBefore() const { return m_contextBefore; }
    const QString& contextAfter() const { return m_contextAfter; }
    const QString& gloss() const { return m_progress.gloss(); }
    const QString& contextualMeaning() const { return m_progress.contextualMeaning(); }
    bool isLoading() const { return m_progress.isLoading(); }
    const std::optional<QString>& errorMessage() const { return m_progress.errorMessage(); }
    QString errorMessageText() const { return m_progress.errorMessage().value_or(QString()); }
    bool isVisible() const { return m_visible; }

    // Resets the card for `snapshot` and puts it on screen next to the selection. Sends nothing.
    void show(const SelectionSnapshot& snapshot);
    // Puts the card on screen next to `bounds`, loading, for text still being read from the screen.
    void showReading(const QRectF& bounds);
    // Ends what the card shows with `message` in place of an explanation. Sends nothing.
    void showMessage(const QString& message);
    // Starts the lookup of the text now shown, with the settings of `state`; the previous lookup stops.
    void request(AppState& state);
    // Stops the lookup and takes the card off screen.
    void close() override;
    std::optional<quint64> windowId() const override;

    // The card window, once the card has been shown.
    CardWindow* window() const { return m_window.get(); }

    // Sends the complete explanation now shown to Anki, to the deck and note type of the settings; the
    // card says what became of it.
    void addToAnki();

signals:
    void selectedTextChanged();
    void contextBeforeChanged();
    void contextAfterChanged();
    void glossChanged();
    void contextualMeaningChanged();
    void isLoadingChanged();
    void errorMessageChanged();
    void visibleChanged();
    // An explanation has arrived in full; emitted before it is written to the history. The application
    // ends its onboarding on the first one.
    void explanationCompleted();

private:
    // Stops the current lookup, or the one waiting for the credential, so that nothing it still reports
    // reaches the card.
    void dropLookup();
    void send(AppState& state, const std::shared_ptr<const GlossRequest>& request);
    void onEvent(const SSEEvent& event, const GlossRequest& request, AppState* state);
    void persistHistory(AppState& state, const GlossRequest& request, const GlossResult& result);
    // Runs `change` on the lookup's progress and announces every property that it changed.
    template <typename Change> void updateProgress(Change&& change);
    void setText(QString& field, const QString& value, void (OverlayController::*changed)());

    FrontApplications& m_frontApplications;
    ScreenGeometry& m_screens;

    QString m_selectedText;
    QString m_contextBefore;
    QString m_contextAfter;
    LookupProgress m_progress;
    bool m_visible = false;

    std::unique_ptr<GlossLookup> m_lookup;
    // Counts the requests dropped; a request waiting for the credential goes out only if it is unchanged.
    quint64 m_requestSerial = 0;
    std::unique_ptr<CardWindow> m_window;
    // What the explanation on the card was asked with, and by which state, for "Add to Anki".
    std::shared_ptr<const GlossRequest> m_sentRequest;
    QPointer<AppState> m_state;
};

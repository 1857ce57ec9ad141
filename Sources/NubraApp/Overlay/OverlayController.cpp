#include "NubraApp/Overlay/OverlayController.h"

#include "NubraApp/Foundation/AppState.h"
#include "NubraApp/Foundation/HistoryNotifier.h"
#include "NubraApp/Foundation/Pronouncer.h"
#include "NubraApp/Overlay/AnkiCardRow.h"
#include "NubraApp/Overlay/CardView.h"
#include "NubraApp/Overlay/CardWindow.h"
#include "NubraCore/Anki/AnkiDelivery.h"
#include "NubraCore/Lookup/LookupHistory.h"
#include "NubraCore/Lookup/SelectionLimit.h"
#include "NubraCore/Service/GlossAPI.h"
#include "NubraCore/Service/GlossLookup.h"
#include "NubraPlatform/FrontApplications.h"
#include "NubraPlatform/ScreenGeometry.h"

#include <QDateTime>
#include <QPointer>

namespace {
OverlayController* installedController = nullptr;
}

OverlayController::OverlayController(FrontApplications& frontApplications, ScreenGeometry& screens,
                                     QObject* parent)
    : QObject(parent), m_frontApplications(frontApplications), m_screens(screens) {}

OverlayController::~OverlayController() {
    dropLookup();
    if (installedController == this)
        installedController = nullptr;
}

OverlayController& OverlayController::shared() {
    Q_ASSERT(installedController);
    return *installedController;
}

bool OverlayController::hasShared() {
    return installedController != nullptr;
}

void OverlayController::install(OverlayController* controller) {
    Q_ASSERT(!installedController || !controller);
    installedController = controller;
}

template <typename Change> void OverlayController::updateProgress(Change&& change) {
    const LookupProgress before = m_progress;
    change(m_progress);
    if (before.gloss() != m_progress.gloss())
        emit glossChanged();
    if (before.contextualMeaning() != m_progress.contextualMeaning())
        emit contextualMeaningChanged();
    if (before.errorMessage() != m_progress.errorMessage())
        emit errorMessageChanged();
    if (before.isLoading() != m_progress.isLoading())
        emit isLoadingChanged();
    if (m_window)
        m_window->view()->present(m_progress);
}

void OverlayController::setText(QString& field, const QString& value, void (OverlayController::*changed)()) {
    if (field == value)
        return;
    field = value;
    emit(this->*changed)();
}

void OverlayController::show(const SelectionSnapshot& snapshot) {
    setText(m_selectedText, snapshot.selectedText, &OverlayController::selectedTextChanged);
    setText(m_contextBefore, snapshot.before, &OverlayController::contextBeforeChanged);
    setText(m_contextAfter, snapshot.after, &OverlayController::contextAfterChanged);
    // Texts and message go; whether a lookup is loading is for request() to say.
    updateProgress([](LookupProgress& progress) {
        const bool loading = progress.isLoading();
        progress = LookupProgress();
        if (loading)
            progress.start();
    });
    if (!m_visible) {
        m_visible = true;
        emit visibleChanged();
    }
    if (!m_window) {
        m_window = std::make_unique<CardWindow>();
        connect(m_window.get(), &CardWindow::dismissRequested, this, &OverlayController::close);
        connect(m_window->view()->ankiRow(), &AnkiCardRow::addRequested, this, &OverlayController::addToAnki);
        m_window->view()->present(m_progress);
    }
    m_window->view()->setSpokenText(m_selectedText);
    m_window->showNear(snapshot.bounds, m_screens.screens());
}

void OverlayController::showReading(const QRectF& bounds) {
    dropLookup();
    show(SelectionSnapshot{{}, {}, {}, {}, bounds});
    updateProgress([](LookupProgress& progress) { progress.start(); });
}

void OverlayController::showMessage(const QString& message) {
    dropLookup();
    updateProgress([&](LookupProgress& progress) { progress.refuse(message); });
}

void OverlayController::request(AppState& state) {
    if (m_selectedText.isEmpty())
        return;
    dropLookup();

    if (const std::optional<QString> refusal = SelectionLimit::refusal(m_selectedText)) {
        updateProgress([&](LookupProgress& progress) { progress.refuse(*refusal); });
        return;
    }
    updateProgress([](LookupProgress& progress) { progress.start(); });

    std::optional<QString> sourceApp;
    if (const std::optional<FrontApp> front = m_frontApplications.frontmost();
        front && !front->name.isEmpty())
        sourceApp = front->name;
    const AppSettings& settings = state.settings();
    auto request = std::make_shared<const GlossRequest>(m_selectedText, m_contextBefore, m_contextAfter,
                                                        sourceApp, settings.style(), settings.length(),
                                                        settings.outputLang(), settings.modelTier());
    // Sent once the stored credential is known: at once, except for the first lookup when the capture
    // did not already start the read. A close or a newer request meanwhile drops it.
    QPointer<AppState> statePointer(&state);
    state.whenCredentialRead(this, [this, request, statePointer, serial = m_requestSerial] {
        if (statePointer && serial == m_requestSerial)
            send(*statePointer, request);
    });
}

void OverlayController::send(AppState& state, const std::shared_ptr<const GlossRequest>& request) {
    std::optional<QString> token;
    if (!state.deviceToken().isEmpty())
        token = state.deviceToken();

    m_lookup = state.api().gloss(*request, token, state.deviceId());
    m_sentRequest = request;
    m_state = &state;
    // Connections made with `this` as context end with the lookup (dropLookup disconnects it first), so
    // a replaced lookup can never reach its successor's state.
    GlossLookup* lookup = m_lookup.get();
    QPointer<AppState> statePointer(&state);
    connect(lookup, &GlossLookup::event, this,
            [this, request, statePointer](const SSEEvent& event) { onEvent(event, *request, statePointer); });
    connect(lookup, &GlossLookup::finished, this,
            [this] { updateProgress([](LookupProgress& progress) { progress.end(); }); });
    connect(lookup, &GlossLookup::failed, this, [this](const GlossAPIError& error) {
        updateProgress([&](LookupProgress& progress) { progress.fail(error); });
    });
}

void OverlayController::onEvent(const SSEEvent& event, const GlossRequest& request, AppState* state) {
    std::optional<GlossResult> result;
    updateProgress([&](LookupProgress& progress) { result = progress.apply(event); });
    if (!result)
        return;
    emit explanationCompleted();
    if (state)
        persistHistory(*state, request, *result);
}

void OverlayController::persistHistory(AppState& state, const GlossRequest& request,
                                       const GlossResult& result) {
    const LookupHistory::Outcome outcome = LookupHistory::persist(
        state.history(), state.settings().recordHistory(), state.settings().historyLimit(), request, result,
        QDateTime::currentDateTime());
    if (outcome != LookupHistory::Outcome::skipped)
        HistoryNotifier::shared().post();
}

void OverlayController::addToAnki() {
    const std::optional<GlossResult>& result = m_progress.result();
    if (!result || !m_sentRequest || !m_state || !m_window)
        return;
    // The card has the whole context, not the history's cut of it.
    HistoryRecord record = LookupHistory::record(*m_sentRequest, *result, QDateTime::currentDateTime());
    record.contextBefore = m_sentRequest->contextBefore();
    record.contextAfter = m_sentRequest->contextAfter();
    const AppSettings& settings = m_state->settings();
    auto* delivery = new AnkiDelivery(AnkiConnect(AnkiConnect::configuredURL(), nubraDirectSession()),
                                      AnkiTextFile::pendingFolder(), this);
    AnkiCardRow* row = m_window->view()->ankiRow();
    row->showSending();
    // A newer lookup or a close in the meantime takes the card; the note is still delivered.
    connect(delivery, &AnkiDelivery::finished, this,
            [this, delivery, row, serial = m_requestSerial](const AnkiReport& report) {
                delivery->deleteLater();
                if (serial == m_requestSerial)
                    row->showResult(report.message());
            });
    delivery->send({AnkiNote::from(record)}, {settings.ankiDeck(), settings.ankiNoteType()});
}

void OverlayController::dropLookup() {
    ++m_requestSerial;
    if (!m_lookup)
        return;
    // This may run inside one of the lookup's own signals (a slot that starts the next request), so it
    // is cut off at once and deleted later; as our child it cannot outlive us.
    GlossLookup* lookup = m_lookup.release();
    lookup->disconnect(this);
    lookup->cancel();
    lookup->setParent(this);
    lookup->deleteLater();
}

void OverlayController::close() {
    dropLookup();
    // Dismissing the card silences its text; a history row being read goes on.
    if (Pronouncer* pronouncer = Pronouncer::installed();
        pronouncer && pronouncer->speakingText() == m_selectedText)
        pronouncer->stop();
    updateProgress([](LookupProgress& progress) { progress.end(); });
    if (m_visible) {
        m_visible = false;
        emit visibleChanged();
    }
    if (m_window)
        m_window->hide();
}

std::optional<quint64> OverlayController::windowId() const {
    if (!m_window || !m_window->isVisible())
        return std::nullopt;
    return quint64(m_window->winId());
}

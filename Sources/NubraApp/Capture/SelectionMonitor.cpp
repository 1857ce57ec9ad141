#include "NubraApp/Capture/SelectionMonitor.h"

#include "NubraApp/Capture/BubbleHost.h"
#include "NubraApp/Capture/BubblePlacement.h"
#include "NubraApp/Capture/CardHost.h"
#include "NubraApp/Capture/SelectionAnchor.h"
#include "NubraCore/Capture/HotkeyCombo.h"
#include "NubraCore/Support/DebugLog.h"
#include "NubraPlatform/DesktopCapabilities.h"
#include "NubraPlatform/ScreenGeometry.h"
#include "NubraPlatform/TaskRunner.h"

#include <QCoreApplication>
#include <QPointer>

#include <algorithm>

namespace {

bool spansWords(const QString& text) {
    const QString word = text.trimmed();
    return std::any_of(word.begin(), word.end(), [](QChar c) { return c.isSpace(); });
}

} // namespace

SelectionMonitor::SelectionMonitor(const Desktop& desktop, SelectionService& service, BubbleHost& bubble,
                                   CardHost& card, QObject* parent)
    : QObject(parent), m_desktop(desktop), m_service(service), m_bubble(bubble), m_card(card) {}

SelectionMonitor::~SelectionMonitor() {
    stop();
    if (m_workItem)
        m_desktop.clock.cancel(*m_workItem);
}

void SelectionMonitor::start(TriggerMode triggerMode, int contextRadius, Gate canCapture, Trigger onTrigger) {
    stop();
    m_triggerMode = triggerMode;
    m_contextRadius = contextRadius;
    m_canCapture = std::move(canCapture);
    m_onTrigger = std::move(onTrigger);
    m_isRunning = true;

    EventMonitors& monitors = m_desktop.eventMonitors;
    QPointer<SelectionMonitor> self(this);
    m_mouseMonitor = monitors.addGlobalMouseUpMonitor([self](const MouseEvent& event) {
        if (self)
            self->onMouseUp(event);
    });
    m_outsideClickMonitor = monitors.addGlobalMouseDownMonitor([self](const MouseEvent&) {
        if (self && self->m_autoHideDismissEnabled)
            self->dismiss();
    });
    m_localClickMonitor = monitors.addLocalMouseDownMonitor([self](const MouseEvent& event) {
        if (!self || !event.windowId)
            return;
        // Clicks on the bubble or inside the card belong to them; any other own window dismisses.
        const std::optional<quint64> bubble = self->m_bubble.windowId();
        const std::optional<quint64> card = self->m_card.windowId();
        if (event.windowId != bubble && event.windowId != card)
            self->dismiss();
    });
    m_escMonitor = monitors.addLocalKeyDownMonitor([self](const KeyEvent& event) {
        if (self && event.keyCode == escapeKeyCode)
            self->dismiss();
    });
    // The bubble never takes focus and the card only once clicked, so Escape usually goes to the
    // application the user reads in. Hear it there too, but only while there is something to dismiss.
    m_globalEscMonitor = monitors.addGlobalKeyDownMonitor([self](const KeyEvent& event) {
        if (self && event.keyCode == escapeKeyCode &&
            (self->m_bubble.isVisible() || self->m_card.isVisible()))
            self->dismiss();
    });
    m_selectionMonitor = monitors.addGlobalSelectionMonitor([self](const SelectionChange& change) {
        if (self)
            self->onSelectionChange(change);
    });
}

void SelectionMonitor::stop() {
    for (std::optional<EventMonitors::Token>* token :
         {&m_mouseMonitor, &m_outsideClickMonitor, &m_localClickMonitor, &m_escMonitor, &m_globalEscMonitor,
          &m_selectionMonitor}) {
        if (*token)
            m_desktop.eventMonitors.removeMonitor(**token);
        token->reset();
    }
    m_isRunning = false;
    ++m_readGeneration; // a read still under way must not bring the bubble back
    hideBubble();
}

void SelectionMonitor::onMouseUp(const MouseEvent& event) {
    if (m_triggerMode == TriggerMode::optionSelection) {
        const std::uint64_t wanted =
            m_optionModifier == OptionModifier::command ? HotkeyCombo::commandFlag : HotkeyCombo::optionFlag;
        const bool held = (event.modifierFlags & wanted) != 0;
        nbDebug(QStringLiteral("optsel: mode=optionSelection key=%1 mods=%2 held=%3")
                    .arg(rawValue(m_optionModifier))
                    .arg(event.modifierFlags)
                    .arg(held ? QStringLiteral("true") : QStringLiteral("false")));
        if (!held)
            return;
    }
    if (m_triggerMode == TriggerMode::doubleClick && event.clickCount < 2)
        return;
    if (m_triggerMode == TriggerMode::hotkey)
        return;
    m_gesture = CaptureTrigger::mouse(event.pressTime, event.dragged || event.clickCount >= 2);
    scheduleCapture();
}

void SelectionMonitor::onSelectionChange(const SelectionChange& change) {
    // Selecting in the card is reading the explanation, not a new selection.
    if (change.processId == QCoreApplication::applicationPid())
        return;
    const bool settling = m_workItem && m_gesture.settledSelection;
    if (change.empty) {
        // A click or a caret move that collapses the selection ends it: nothing to capture, and what
        // was shown for it goes, as a click elsewhere would take it.
        if (settling) {
            m_desktop.clock.cancel(*m_workItem);
            m_workItem.reset();
        }
        if (m_autoHideDismissEnabled && change.source == SelectionChange::Source::accessibility)
            dismiss();
        return;
    }
    // Without the pointer there is no Option key and no click count to go by. Option selection waits
    // for the hot key; a double click is what selects one word, so one word is what counts then. Where
    // no bubble can be shown, only the hot key opens the card.
    if (m_triggerMode == TriggerMode::hotkey || m_triggerMode == TriggerMode::optionSelection ||
        !m_desktop.capabilities.showsBubble())
        return;
    // A release already waits out this burst: it knows more about the gesture.
    if (m_workItem && !m_gesture.settledSelection)
        return;
    const bool fromAccessibility = change.source == SelectionChange::Source::accessibility;
    m_gesture = CaptureTrigger::settled((settling && m_gesture.accessibilityChanged) || fromAccessibility,
                                        (settling && m_gesture.primaryChanged) || !fromAccessibility);
    scheduleCapture(m_gesture.accessibilityChanged ? debounceMs : debounceMs + primaryOnlyGraceMs);
}

void SelectionMonitor::scheduleCapture(int delayMs) {
    if (m_workItem)
        m_desktop.clock.cancel(*m_workItem);
    QPointer<SelectionMonitor> self(this);
    m_workItem = m_desktop.clock.schedule(delayMs, [self]() {
        if (!self)
            return;
        self->m_workItem.reset();
        self->capture();
    });
}

void SelectionMonitor::readSelection(const CaptureTrigger& trigger, qint64 triggeredAtMs,
                                     std::function<void(std::optional<CaptureOutcome>)> done) {
    QPointer<SelectionMonitor> self(this);
    SelectionService* service = &m_service;
    TaskRunner* tasks = &m_desktop.tasks;
    const int radius = m_contextRadius; // a change during the read applies to the next capture
    const quint64 generation = ++m_readGeneration;
    emit readingStarted();
    tasks->runInBackground([self, service, tasks, radius, trigger, triggeredAtMs, generation,
                            done = std::move(done)]() {
        // The gate's last question, asked here because it may wait on another application: a
        // password field in front refuses the capture like a closed gate.
        std::optional<CaptureOutcome> outcome = service->capture(radius, trigger, service->focusGuard());
        tasks->runOnMain([self, outcome = std::move(outcome), triggeredAtMs, generation, done]() mutable {
            // Reads can finish in any order; only the newest one, and none after stop(), counts.
            if (!self || generation != self->m_readGeneration)
                return;
            if (outcome && !outcome->placed)
                outcome->snapshot.bounds = SelectionAnchor::bounds(self->m_desktop.screen.screens(),
                                                                   self->m_desktop.screen.mouseLocation());
            if (outcome)
                self->report(*outcome, triggeredAtMs);
            done(outcome);
        });
    });
}

void SelectionMonitor::report(const CaptureOutcome& outcome, qint64 triggeredAtMs) {
    if (m_observer)
        m_observer(outcome, m_desktop.clock.nowMs() - triggeredAtMs);
}

void SelectionMonitor::capture() {
    if (m_canCapture && !m_canCapture()) {
        ++m_readGeneration; // an older read must not show a bubble the gate just refused
        hideBubble();
        return;
    }
    QPointer<SelectionMonitor> self(this);
    const bool settled = m_gesture.settledSelection;
    const bool oneWordOnly = settled && m_triggerMode == TriggerMode::doubleClick;
    readSelection(m_gesture, m_desktop.clock.nowMs(),
                  [self, settled, oneWordOnly](std::optional<CaptureOutcome> outcome) {
                      if (outcome && oneWordOnly && spansWords(outcome->snapshot.selectedText)) {
                          nbDebug(QStringLiteral(
                              "selection: more than one word settled in double-click mode; not shown"));
                          outcome.reset();
                      }
                      if (outcome && settled && self->answeredOnCard(outcome->snapshot))
                          return; // the card stays, with no bubble beside it
                      if (!outcome) {
                          self->hideBubble();
                          return;
                      }
                      self->m_card.close();
                      self->m_pendingSnapshot = outcome->snapshot;
                      self->showBubble(outcome->snapshot.bounds);
                  });
}

void SelectionMonitor::triggerFromHotkey() {
    if (m_canCapture && !m_canCapture())
        return;
    // The hot key answers the selection itself: a bubble for it, shown or still to come, would only
    // stand beside the card.
    if (m_workItem) {
        m_desktop.clock.cancel(*m_workItem);
        m_workItem.reset();
    }
    hideBubble();
    QPointer<SelectionMonitor> self(this);
    readSelection(CaptureTrigger::hotkey(), m_desktop.clock.nowMs(),
                  [self](std::optional<CaptureOutcome> outcome) {
                      if (!outcome)
                          return;
                      self->m_card.close();
                      self->handOn(outcome->snapshot);
                  });
}

void SelectionMonitor::bubbleClicked() {
    if (!m_pendingSnapshot)
        return;
    hideBubble();
    handOn(*m_pendingSnapshot);
}

void SelectionMonitor::handOn(const SelectionSnapshot& snapshot) {
    m_answered = snapshot;
    if (m_onTrigger)
        m_onTrigger(snapshot);
}

bool SelectionMonitor::answeredOnCard(const SelectionSnapshot& snapshot) const {
    // The rectangle is left out: where the place is unknown it follows the pointer.
    return m_card.isVisible() && m_answered && m_answered->selectedText == snapshot.selectedText &&
           m_answered->before == snapshot.before && m_answered->after == snapshot.after &&
           m_answered->sourceApp == snapshot.sourceApp;
}

void SelectionMonitor::showBubble(const QRectF& near) {
    hideBubble();
    // Placed in the units of the screen that holds the selection.
    const ScreenSpace screens = m_desktop.screen.screens();
    const QPointF lowerLeft =
        BubblePlacement::origin(screens.toPlacement(near), screens.visibleFrameFor(near));
    QPointer<SelectionMonitor> self(this);
    m_bubble.showAt(screens.windowTopLeft(lowerLeft, BubblePlacement::bubbleSize), [self]() {
        if (self)
            self->bubbleClicked();
    });
}

void SelectionMonitor::hideBubble() {
    if (m_bubble.isVisible())
        m_bubble.hide();
}

void SelectionMonitor::dismiss() {
    hideBubble();
    m_card.close();
}

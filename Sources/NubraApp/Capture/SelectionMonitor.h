#pragma once

#include "NubraApp/Capture/SelectionService.h"
#include "NubraCore/Vocabulary/Models.h"
#include "NubraPlatform/Clock.h"
#include "NubraPlatform/Desktop.h"
#include "NubraPlatform/EventMonitors.h"

#include <QObject>

#include <functional>
#include <optional>

class BubbleHost;
class CardHost;

// Watches mouse releases and dismissing clicks and keys (and, on desktops that hide the pointer,
// selection changes, which count once they have settled), decides by trigger mode when a selection was
// just made, has it read off the main thread, then shows the bubble (mouse modes) or hands the snapshot
// on at once (hot key). Lives on the main thread; handlers and pending work hold it only weakly. The
// gate it is given runs on the main thread; the password-field probe, which talks to the application
// in front, runs with the read.
class SelectionMonitor : public QObject {
    Q_OBJECT

public:
    using Gate = std::function<bool()>;
    using Trigger = std::function<void(const SelectionSnapshot&)>;
    // Every capture that produced a snapshot, with the milliseconds from the triggering release or hot
    // key to the snapshot on the main thread, the debounce left out.
    using CaptureObserver = std::function<void(const CaptureOutcome&, qint64 latencyMs)>;

    static constexpr int debounceMs = 300;
    // How much longer a selection only the primary selection told of waits: an application may tell
    // accessibility that much later than the desktop hands its selection on (GTK 4 on GNOME), and
    // accessibility brings the context.
    static constexpr int primaryOnlyGraceMs = 300;
    static constexpr int escapeKeyCode = 53;

    SelectionMonitor(const Desktop& desktop, SelectionService& service, BubbleHost& bubble, CardHost& card,
                     QObject* parent = nullptr);
    ~SelectionMonitor() override;

    void start(TriggerMode triggerMode, int contextRadius, Gate canCapture, Trigger onTrigger);
    void stop();
    void triggerFromHotkey();
    // The bubble's click: hands the pending snapshot on.
    void bubbleClicked();

    bool isRunning() const { return m_isRunning; }
    TriggerMode triggerMode() const { return m_triggerMode; }
    // Read afresh at every release, so a change while running applies to the next one.
    void setTriggerMode(TriggerMode mode) { m_triggerMode = mode; }
    // The key Option selection waits for; read at every release too.
    void setOptionModifier(OptionModifier modifier) { m_optionModifier = modifier; }
    int contextRadius() const { return m_contextRadius; }
    bool autoHideDismissEnabled() const { return m_autoHideDismissEnabled; }
    void setAutoHideDismissEnabled(bool enabled) { m_autoHideDismissEnabled = enabled; }
    const std::optional<SelectionSnapshot>& pendingSnapshot() const { return m_pendingSnapshot; }
    void setCaptureObserver(CaptureObserver observer) { m_observer = std::move(observer); }

signals:
    // A selection is being read, so a lookup may follow: what it needs can be prepared meanwhile.
    void readingStarted();

private:
    void onMouseUp(const MouseEvent& event);
    void onSelectionChange(const SelectionChange& change);
    void scheduleCapture(int delayMs = debounceMs);
    void capture();
    // Reads on a background thread and calls `done` back on the main thread while the monitor lives.
    void readSelection(const CaptureTrigger& trigger, qint64 triggeredAtMs,
                       std::function<void(std::optional<CaptureOutcome>)> done);
    void report(const CaptureOutcome& outcome, qint64 triggeredAtMs);
    // Whether a settled selection is the one the open card already explains: the desktop may tell of a
    // selection's last steps after the hot key has read it.
    bool answeredOnCard(const SelectionSnapshot& snapshot) const;
    void handOn(const SelectionSnapshot& snapshot);
    void showBubble(const QRectF& near);
    void hideBubble();
    void dismiss();

    Desktop m_desktop;
    SelectionService& m_service;
    BubbleHost& m_bubble;
    CardHost& m_card;

    std::optional<EventMonitors::Token> m_mouseMonitor;
    std::optional<EventMonitors::Token> m_outsideClickMonitor;
    std::optional<EventMonitors::Token> m_localClickMonitor;
    std::optional<EventMonitors::Token> m_escMonitor;
    std::optional<EventMonitors::Token> m_globalEscMonitor;
    std::optional<EventMonitors::Token> m_selectionMonitor;
    std::optional<SelectionSnapshot> m_pendingSnapshot;
    std::optional<SelectionSnapshot> m_answered; // the last snapshot handed on to the card
    std::optional<Clock::TaskId> m_workItem;
    CaptureTrigger m_gesture; // the last release (or change) of the burst the debounce is waiting out
    // Bumped by every read, refused capture and stop(): a read whose number is no longer current
    // finished too late and is dropped.
    quint64 m_readGeneration = 0;
    Trigger m_onTrigger;
    Gate m_canCapture;
    bool m_isRunning = false;
    TriggerMode m_triggerMode = TriggerMode::onSelection;
    OptionModifier m_optionModifier = OptionModifier::option;
    int m_contextRadius = 200;
    bool m_autoHideDismissEnabled = true;
    CaptureObserver m_observer;
};

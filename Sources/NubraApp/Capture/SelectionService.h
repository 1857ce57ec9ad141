#pragma once

#include "NubraApp/Capture/SelectionSnapshot.h"
#include "NubraPlatform/Accessibility.h"
#include "NubraPlatform/Desktop.h"

#include <optional>

// Which way a capture got its text.
enum class CapturePath { accessibility, primary, clipboard };

QString capturePathName(CapturePath path);

struct CaptureOutcome {
    SelectionSnapshot snapshot;
    CapturePath path = CapturePath::accessibility;
    // False when neither the selection's rectangle nor the pointer is known: the bounds are then a
    // placeholder that the monitor replaces with the fixed anchor.
    bool placed = true;
};

enum class AXSelfCheckResult { ok, apiDisabled };

// What asked for a capture. It decides how far a capture may go when the accessibility interface gives
// no selection: a mouse gesture is taken to have selected only what it provably did, while the hot key
// is an explicit request.
struct CaptureTrigger {
    // The hot key (and any direct call): PRIMARY as it is, and a synthetic copy except into a terminal.
    static CaptureTrigger hotkey() { return {}; }
    // A mouse gesture: PRIMARY only when an application took it after the press (`pressTime`, server
    // time); a synthetic copy only after a drag or a multi-click, only when the front application is not
    // readable through the accessibility interface, and never into a terminal.
    static CaptureTrigger mouse(quint64 pressTime, bool selecting) { return {false, pressTime, selecting}; }
    // A selection that stopped changing, on a desktop that hides the pointer: the pointer's place says
    // nothing about it; PRIMARY counts only when it changed meanwhile, and when only PRIMARY told of it,
    // accessibility only with the same words; nothing is copied (whatever reported the change can be
    // read).
    static CaptureTrigger settled(bool accessibilityChanged, bool primaryChanged) {
        return {false, 0, true, true, accessibilityChanged, primaryChanged};
    }

    bool explicitRequest = true;
    quint64 pressTime = 0;
    bool selecting = false;
    bool settledSelection = false;
    bool accessibilityChanged = false;
    bool primaryChanged = false;
};

// What the focused element allows a capture to do: a password field refuses it; when the element or
// its role could not be read in time, only what a password field never offers (PRIMARY) is read.
enum class FocusGuard { ordinary, password, unknown };

// Reads the selection the user just made in the front application: through the accessibility
// interface when the focused element gives a selection and its range, otherwise from the PRIMARY
// selection or a synthetic copy whose pasteboard changes are undone. Holds no state of its own.
// Every call blocks (diagnose() asks the accessibility bus and walks the process table) and belongs on a
// background thread.
class SelectionService {
public:
    static constexpr int probeRetryMs = 250;
    static constexpr int copyRetryMs = 150;
    static constexpr int keyHoldMs = 40;
    static constexpr int pasteboardPolls = 40;
    static constexpr int pasteboardPollMs = 10;
    static constexpr int selfCheckAttempts = 3;
    static constexpr int selfCheckRetryMs = 600;
    static constexpr int applicationWakeMs = 200;

    explicit SelectionService(const Desktop& desktop) : m_desktop(desktop) {}

    std::optional<SelectionSnapshot> currentSelection(int contextRadius);
    // The same capture, telling which path produced it.
    std::optional<CaptureOutcome> capture(int contextRadius,
                                          const CaptureTrigger& trigger = CaptureTrigger::hotkey(),
                                          FocusGuard guard = FocusGuard::ordinary);

    // Asks the focused element; says in the debug log why a capture is refused or held back.
    FocusGuard focusGuard();
    std::shared_ptr<AccessibleElement> focusedElement();
    // Top-left-origin, as the platform reports it; the zero rectangle on any failure.
    QRectF selectionBounds(AccessibleElement& element, const TextRange& range);

    std::optional<QString> selectedTextViaClipboard();

    AXSelfCheckResult selfCheck();
    // Several lines describing whether capture can work right now, in the interface language, naming
    // the running applications that keep their text from accessibility.
    QString diagnose();
    void openAccessibilitySettings();

private:
    struct Probe {
        std::optional<QString> selected;
        bool hasRange = false;
        TextRange range;
        QString fullText;
        std::shared_ptr<AccessibleElement> element;
    };
    Probe probeOnce(int contextRadius);
    struct PasteboardText {
        QString text;
        CapturePath path;
    };
    // PRIMARY when the trigger may take it and it holds text, else the synthetic copy when allowed.
    std::optional<PasteboardText> selectedTextViaPasteboard(bool primaryAllowed, bool copyAllowed);
    bool primaryIsFresh(const CaptureTrigger& trigger);
    // Says in the debug log when the application in front keeps its text from accessibility.
    void logTreelessSource(CapturePath path);
    bool isTerminal(const std::shared_ptr<AccessibleElement>& element);
    // The queried element, unless it belongs to an application other than the one in front.
    std::shared_ptr<AccessibleElement> elementInFront(const FocusQuery& query);
    QRectF mouseRect();
    QString frontName();

    Desktop m_desktop;
};

#pragma once

#include "NubraApp/Capture/SelectionSnapshot.h"
#include "NubraApp/ScreenText/AreaPicking.h"
#include "NubraPlatform/Desktop.h"
#include "NubraPlatform/TextRecognizer.h"

#include <QObject>

class AppState;
class OverlayController;

// A lookup of text that no application lets the user select: the screen is frozen, the user marks an
// area on it, the recognizer reads the area (and the lines around it, as context) on a worker thread
// while the card already shows that it is working, and the text read is explained as a selection
// would be. Main thread only.
class ScreenTextLookup final : public QObject {
    Q_OBJECT

public:
    // Lines above and below the area given to the recognizer for context, in heights of the area.
    static constexpr int contextLines = 4;
    // How long the picture waits for what just closed (the tray menu, the card) to leave the screen and
    // the windows under it to repaint.
    static constexpr int settleMs = 150;

    // All must outlive this object; the recognizer also every read still running (the application
    // waits for the pool before tearing down).
    ScreenTextLookup(const Desktop& desktop, TextRecognizer& recognizer, AreaPicking& picker,
                     OverlayController& card, AppState& state, QObject* parent = nullptr);

    // Starts a lookup; nothing while one is being marked or read. When the recognizer cannot run, or
    // no picture of the screen could be taken, says why through `unavailable` instead.
    void start();
    bool isBusy() const { return m_phase != Phase::idle; }

    static QString nothingFoundText();
    static QString unavailableTitle();

    // The part of a picture the recognizer is given for `area`: the full width, and `contextLines`
    // heights of the area above and below it.
    static QRect band(const QRect& area, const QSize& picture);
    // What was read, as a selection: the text and its context, each cut to the limits a selection has.
    static SelectionSnapshot snapshotOf(const ScreenText& text, const QRectF& bounds, int contextRadius);

signals:
    // The reason, in words for an alert.
    void unavailable(const QString& reason);

private:
    enum class Phase { idle, picturing, picking, reading };

    void pictureTaken(const ScreenPicture::Result& result);
    void areaPicked(const ScreenShot& shot, const PickedArea& area);
    void textRead(const std::optional<ScreenText>& text, const QRectF& bounds);

    Desktop m_desktop;
    TextRecognizer& m_recognizer;
    AreaPicking& m_picker;
    OverlayController& m_card;
    AppState& m_state;
    Phase m_phase = Phase::idle;
};

#pragma once

#include "NubraCore/Capture/HotkeyCombo.h"

#include <QObject>
#include <QPointer>
#include <QWindow>

#include <optional>

class Defaults;
class HotkeyManager;

// Records a new global hot key from the keys pressed in one window of ours, and makes a combination
// the hot key: saved to its slot in the defaults and registered at once. Main thread only.
//
// While recording, the hot key that was registered is taken off: its X11 grab would otherwise take
// its own combination before the window sees it, and fire a lookup instead of being recorded again.
// Escape, or the window going away, puts it back.
class HotkeyRecorder final : public QObject {
    Q_OBJECT

public:
    HotkeyRecorder(HotkeyManager& hotkeys, Defaults& defaults, const HotkeySlot& slot = HotkeySlot::lookup(),
                   QObject* parent = nullptr);
    ~HotkeyRecorder() override;

    bool isRecording() const { return m_window != nullptr; }
    // The modifiers held so far while recording, as HotkeyCombo flags.
    std::uint64_t heldModifiers() const { return m_held; }
    // The last combination pressed in this recording that the other hot key already has.
    const std::optional<HotkeyCombo>& refused() const { return m_refused; }

    // Listens to the key events of `window` until Escape or a combination that is accepted: a key the
    // hot key can use with at least one of Shift, Control, Alt and Super, and no other modifier, that
    // the other hot key does not have.
    void start(QWindow* window);
    // Ends a recording without a new combination; the hot key taken off comes back.
    void cancel();
    // Ends a recording and leaves the registration to whoever changed the trigger mode.
    void abandon();
    // Saves `combo` and registers it, ending a recording in progress.
    void adopt(const HotkeyCombo& combo);
    // Removes the hot key: nothing stored, nothing registered.
    void clear();
    // The stored combination, if any.
    std::optional<HotkeyCombo> combo() const { return HotkeyCombo::load(m_defaults, m_slot); }

signals:
    void recordingChanged(bool recording);
    void heldModifiersChanged();
    void refusedChanged();
    // The stored combination changed.
    void comboChanged();

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    // Stops listening; returns the hot key taken off at the start, if any.
    std::optional<HotkeyCombo> stop();

    HotkeyManager& m_hotkeys;
    Defaults& m_defaults;
    HotkeySlot m_slot;
    QPointer<QWindow> m_window;
    std::optional<HotkeyCombo> m_suspended;
    std::uint64_t m_held = 0;
    std::optional<HotkeyCombo> m_refused;
};

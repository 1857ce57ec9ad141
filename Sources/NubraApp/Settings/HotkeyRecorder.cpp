#include "NubraApp/Settings/HotkeyRecorder.h"

#include "NubraApp/Capture/HotkeyManager.h"
#include "NubraCore/Capture/QtKeyMap.h"
#include "NubraCore/Support/DebugLog.h"

#include <QKeyEvent>
#include <QWindow>

#include <utility>

namespace {
constexpr std::uint64_t escapeKeyCode = 53;

// The flag of a modifier key itself. Its own press or release may or may not be counted in the
// event's modifiers yet, depending on the platform plugin.
std::uint64_t modifierKeyFlag(int key) {
    switch (key) {
    case Qt::Key_Shift:
        return HotkeyCombo::shiftFlag;
    case Qt::Key_Control:
        return HotkeyCombo::controlFlag;
    case Qt::Key_Alt:
        return HotkeyCombo::optionFlag;
    case Qt::Key_Meta:
    case Qt::Key_Super_L:
    case Qt::Key_Super_R:
        return HotkeyCombo::commandFlag;
    default:
        return 0;
    }
}
} // namespace

HotkeyRecorder::HotkeyRecorder(HotkeyManager& hotkeys, Defaults& defaults, const HotkeySlot& slot,
                               QObject* parent)
    : QObject(parent), m_hotkeys(hotkeys), m_defaults(defaults), m_slot(slot) {}

HotkeyRecorder::~HotkeyRecorder() {
    if (isRecording())
        cancel();
}

void HotkeyRecorder::start(QWindow* window) {
    if (isRecording() || !window)
        return;
    nbDebug(QStringLiteral("hotkey-rec: recording start"));
    m_suspended = m_hotkeys.registeredCombo();
    m_hotkeys.unregister();
    m_window = window;
    // Key events reach the window object before its focused widget: one look at each, and nothing
    // outside this window is seen.
    window->installEventFilter(this);
    emit recordingChanged(true);
}

std::optional<HotkeyCombo> HotkeyRecorder::stop() {
    if (m_window)
        m_window->removeEventFilter(this);
    m_window = nullptr;
    m_held = 0;
    m_refused.reset();
    emit recordingChanged(false);
    return std::exchange(m_suspended, std::nullopt);
}

void HotkeyRecorder::cancel() {
    if (!isRecording())
        return;
    if (const std::optional<HotkeyCombo> suspended = stop())
        m_hotkeys.registerCombo(*suspended);
}

void HotkeyRecorder::abandon() {
    if (isRecording())
        stop();
}

void HotkeyRecorder::adopt(const HotkeyCombo& combo) {
    abandon();
    combo.save(m_defaults, m_slot);
    m_hotkeys.registerCombo(combo);
    emit comboChanged();
}

void HotkeyRecorder::clear() {
    abandon();
    HotkeyCombo::clear(m_defaults, m_slot);
    m_hotkeys.unregister();
    emit comboChanged();
}

bool HotkeyRecorder::eventFilter(QObject* watched, QEvent* event) {
    if (watched != m_window)
        return QObject::eventFilter(watched, event);
    if (event->type() == QEvent::Hide) {
        cancel();
        return false;
    }
    if (event->type() != QEvent::KeyPress && event->type() != QEvent::KeyRelease)
        return false;

    const auto* key = static_cast<QKeyEvent*>(event);
    const std::optional<std::uint64_t> keyCode = QtKeyMap::ansiKeyCode(key->key(), key->modifiers());
    const std::uint64_t flags = QtKeyMap::modifierFlags(key->modifiers());
    const std::uint64_t ownFlag = modifierKeyFlag(key->key());
    const std::uint64_t held = event->type() == QEvent::KeyPress
                                   ? (flags | ownFlag) & HotkeyCombo::modifierMask
                                   : flags & ~ownFlag & HotkeyCombo::modifierMask;
    if (held != m_held) {
        m_held = held;
        emit heldModifiersChanged();
    }
    nbDebug(QStringLiteral("hotkey-rec: event type=%1 keyCode=%2 mods=%3")
                .arg(int(event->type()))
                .arg(keyCode ? QString::number(*keyCode) : QStringLiteral("none"))
                .arg(flags));
    if (event->type() != QEvent::KeyPress || !keyCode)
        return false;
    if (*keyCode == escapeKeyCode) {
        cancel();
        return true;
    }
    const HotkeyCombo combo{*keyCode, flags};
    if (!combo.isMeaningful())
        return false;
    if (HotkeyCombo::load(m_defaults, m_slot.sibling()) == combo) {
        m_refused = combo;
        emit refusedChanged();
        return true;
    }
    nbDebug(QStringLiteral("hotkey-rec: captured %1 keyCode=%2").arg(combo.display()).arg(combo.keyCode));
    adopt(combo);
    return true;
}

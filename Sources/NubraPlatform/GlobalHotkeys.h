#pragma once

#include <QString>
#include <QtGlobal>

#include <functional>
#include <optional>

class QObject;

// A process-wide hot key in the shape of the Carbon event manager: one handler for hot-key presses and
// registered keys given by an ANSI key code and Carbon modifiers (Command 0x100, Shift 0x200, Option
// 0x800, Control 0x1000). Calls answer a status, 0 for success.
class GlobalHotkeys {
public:
    using HandlerRef = quint64;
    using HotKeyRef = quint64;

    struct Installed {
        int status = 0;
        HandlerRef handler = 0;
    };
    struct Registered {
        int status = 0;
        HotKeyRef hotKey = 0;
    };

    // The ids of Nubra's two keys; a desktop that lists shortcuts by name lists them by these.
    static constexpr quint32 lookupKeyId = 1;
    static constexpr quint32 screenTextKeyId = 2;

    virtual ~GlobalHotkeys() = default;

    // `onPressed` runs on the main thread with the signature and id of the key that fired.
    virtual Installed installHandler(std::function<void(quint32 signature, quint32 id)> onPressed) = 0;
    virtual void removeHandler(HandlerRef handler) = 0;
    virtual Registered registerHotKey(quint32 keyCode, quint32 carbonModifiers, quint32 signature,
                                      quint32 id) = 0;
    virtual void unregisterHotKey(HotKeyRef hotKey) = 0;

    // Where the desktop binds the key itself (a shortcuts portal whose dialog may pick another key, or
    // none), what it made of the latest registration of the lookup's key; empty where registerHotKey's status
    // says it all.
    struct DesktopBinding {
        enum class State { asking, bound, declined, failed };
        State state = State::asking;
        QString trigger; // the desktop's own words for the key it bound, when it gave them
    };
    virtual std::optional<DesktopBinding> desktopBinding() const { return std::nullopt; }
    // Whether the desktop binds keys itself; empty while that is not known yet.
    virtual std::optional<bool> desktopBinds() const { return false; }
    // Calls `changed` on the main thread, for as long as `context` lives, whenever either of the above
    // changes.
    virtual void watchDesktopBinding(QObject* context, std::function<void()> changed) {
        (void)context;
        (void)changed;
    }
};

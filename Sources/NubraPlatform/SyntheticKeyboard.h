#pragma once

#include <functional>

class QObject;

// Posts the copy shortcut (Command+C on macOS, Control+C on X11) into the front application.
class SyntheticKeyboard {
public:
    enum class CopyStroke { modifierDown, keyDown, keyUp, modifierUp };

    virtual ~SyntheticKeyboard() = default;

    // Prepares an event source; false when none can be made, and then nothing is posted.
    virtual bool beginCopy() = 0;
    // Posts one stroke; false when the event could not be made (the caller skips it).
    virtual bool post(CopyStroke stroke) = 0;

    // Where the desktop lets an application type only with the user's leave (a remote-desktop session
    // it asks about), whether that leave is wanted and what came of it. Elsewhere the copy needs none.
    enum class Permission { notNeeded, unavailable, off, asking, granted, refused, failed };
    virtual Permission permission() const { return Permission::notNeeded; }
    // Asks the desktop (or ends the session) in the background; permission() follows.
    virtual void setPermissionWanted(bool wanted) { (void)wanted; }
    // Calls `changed` on the main thread, for as long as `context` lives, when permission() changes.
    virtual void watchPermission(QObject* context, std::function<void()> changed) {
        (void)context;
        (void)changed;
    }
};

#pragma once

// Posts the copy shortcut (Command+C on macOS, Control+C on X11) into the front application.
class SyntheticKeyboard {
public:
    enum class CopyStroke { modifierDown, keyDown, keyUp, modifierUp };

    virtual ~SyntheticKeyboard() = default;

    // Prepares an event source; false when none can be made, and then nothing is posted.
    virtual bool beginCopy() = 0;
    // Posts one stroke; false when the event could not be made (the caller skips it).
    virtual bool post(CopyStroke stroke) = 0;
};

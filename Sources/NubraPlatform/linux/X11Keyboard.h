#pragma once

#include "NubraPlatform/SyntheticKeyboard.h"

#include <mutex>

typedef struct _XDisplay Display;

class QtPasteboard;

// Control+C through XTest on a connection of its own, usable from the background reader.
class X11Keyboard final : public SyntheticKeyboard {
public:
    explicit X11Keyboard(const QtPasteboard& pasteboard) : m_pasteboard(pasteboard) {}
    ~X11Keyboard() override;
    bool beginCopy() override;
    bool post(CopyStroke stroke) override;

private:
    const QtPasteboard& m_pasteboard;
    std::mutex m_lock;
    Display* m_display = nullptr;
};

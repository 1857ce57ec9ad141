#include "NubraPlatform/fake/FakeKeyboard.h"

#include "NubraCore/Capture/Pasteboard.h"

bool FakeKeyboard::post(CopyStroke stroke) {
    strokes.append(stroke);
    if (stroke == CopyStroke::keyDown) {
        ++copies;
        if (copiedText) {
            m_pasteboard.clearContents();
            m_pasteboard.setData(copiedText->toUtf8(), Pasteboard::plainTextType());
        }
    }
    return true;
}

#pragma once

#include "NubraPlatform/TextNode.h"

#include <QRect>

#include <functional>

typedef struct _AtspiAccessible AtspiAccessible;
typedef struct _AtspiText AtspiText;

// The text of one AT-SPI object, as HypertextSelection walks it. Every call goes to the application that
// owns the object, and all of them must be made on the AT-SPI thread.
class AtspiTextNode final : public TextNode {
public:
    // The window the object is shown in, asked only when a rectangle has to count from it.
    struct Window {
        // A native Wayland window: the toolkit counts every rectangle from it.
        bool wayland = false;
        // The screen rectangle of the window's inside: the active X11 window, or the focused Wayland
        // window as the compositor tells; unset or nothing when unknown.
        std::function<std::optional<QRect>()> rect;
    };

    // Takes a reference of its own to `object`.
    AtspiTextNode(AtspiAccessible* object, Window window);
    ~AtspiTextNode() override;
    AtspiTextNode(const AtspiTextNode&) = delete;
    AtspiTextNode& operator=(const AtspiTextNode&) = delete;

    int characterCount() override;
    QString text(int start, int end) override;
    bool countsUtf16() override;
    QList<Span> selections() override;
    std::unique_ptr<TextNode> embeddedAt(int offset) override;
    std::optional<Nesting> parent() override;
    bool isBlock() override;
    bool isPassword() override;
    std::optional<QRectF> extents(int start, int end) override;

private:
    std::unique_ptr<AtspiTextNode> adopt(AtspiAccessible* object) const;
    // The offset of the `index`-th U+FFFC in this object's text, or -1.
    int offsetOfEmbedded(int index);
    std::optional<QRectF> characterExtents(AtspiText* text, int offset, int coordinates);
    // The size the toolkit gives the top-level frame this object is in.
    std::optional<QSizeF> frameSize();

    AtspiAccessible* m_object;
    AtspiText* m_text = nullptr; // null when the object has no text
    Window m_window;
    std::optional<bool> m_utf16; // read once
};

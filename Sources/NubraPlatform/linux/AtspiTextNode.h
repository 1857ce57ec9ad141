#pragma once

#include "NubraPlatform/TextNode.h"

#include <QPoint>

#include <functional>

typedef struct _AtspiAccessible AtspiAccessible;
typedef struct _AtspiText AtspiText;

// The text of one AT-SPI object, as HypertextSelection walks it. Every call goes to the application that
// owns the object, and all of them must be made on the AT-SPI thread.
class AtspiTextNode final : public TextNode {
public:
    // Where the active window begins on the screen, for toolkits that place text relative to their
    // window (GTK 4).
    using WindowOrigin = std::function<std::optional<QPoint>()>;

    // Takes a reference of its own to `object`.
    AtspiTextNode(AtspiAccessible* object, WindowOrigin windowOrigin);
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
    // The toolkit's name and major version, read once.
    struct Toolkit {
        QString name;
        int major = 0;
    };
    const Toolkit& toolkit();
    std::unique_ptr<AtspiTextNode> adopt(AtspiAccessible* object) const;
    // The offset of the `index`-th U+FFFC in this object's text, or -1.
    int offsetOfEmbedded(int index);
    std::optional<QRectF> characterExtents(AtspiText* text, int offset, int coordinates);

    AtspiAccessible* m_object;
    AtspiText* m_text = nullptr; // null when the object has no text
    WindowOrigin m_windowOrigin;
    std::optional<Toolkit> m_toolkit;
};

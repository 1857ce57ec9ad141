#include "NubraPlatform/linux/AtspiTextNode.h"

#include "NubraPlatform/HypertextSelection.h"
#include "NubraPlatform/TextPlacement.h"

#include <atspi/atspi.h>

#include <algorithm>
#include <type_traits>

namespace {

// More selections than anyone makes by hand; bounds what an application can make us read.
constexpr int maxSelections = 16;
// Roles that flow inside a line when the toolkit does not say how the object is displayed.
constexpr AtspiRole inlineRoles[] = {
    ATSPI_ROLE_LINK,        ATSPI_ROLE_STATIC,           ATSPI_ROLE_IMAGE,
    ATSPI_ROLE_MARK,        ATSPI_ROLE_SUBSCRIPT,        ATSPI_ROLE_SUPERSCRIPT,
    ATSPI_ROLE_SUGGESTION,  ATSPI_ROLE_CONTENT_DELETION, ATSPI_ROLE_CONTENT_INSERTION,
    ATSPI_ROLE_PUSH_BUTTON, ATSPI_ROLE_CHECK_BOX,        ATSPI_ROLE_RADIO_BUTTON};

QString takeUtf8(gchar* text) {
    if (!text)
        return {};
    QString result = QString::fromUtf8(text);
    g_free(text);
    return result;
}

// Gives back what a libatspi call returned.
template <typename T> void release(T value) {
    if constexpr (std::is_same_v<T, gchar*> || std::is_same_v<T, AtspiRect*> ||
                  std::is_same_v<T, AtspiRange*>)
        g_free(value);
    else if constexpr (std::is_same_v<T, GHashTable*>) {
        if (value)
            g_hash_table_unref(value);
    } else if constexpr (std::is_pointer_v<T>) {
        if (value)
            g_object_unref(value);
    }
}

// Runs a libatspi call that reports failure through GError; a failure is nothing. libatspi hands back
// an allocated answer (an empty rectangle, an empty string) even when the call failed: it is freed.
template <typename Call> auto ask(Call call) -> std::optional<decltype(call(nullptr))> {
    GError* error = nullptr;
    auto value = call(&error);
    if (error) {
        g_error_free(error);
        release(value);
        return std::nullopt;
    }
    return value;
}

std::optional<QRectF> takeRect(AtspiRect* rect) {
    if (!rect)
        return std::nullopt;
    const QRectF result(rect->x, rect->y, rect->width, rect->height);
    g_free(rect);
    if (result.width() <= 0 || result.height() <= 0)
        return std::nullopt;
    return result;
}

// A document that keeps its paragraphs (or pages) as children and has no text of its own, as an office
// suite and a document viewer do: seen as one U+FFFC per child, like a web document. Only the children
// around the one the reader came from are asked for a selection.
class AtspiDocumentNode final : public TextNode {
public:
    static constexpr int reach = 32;
    static constexpr int maxChildren = 1 << 16;

    AtspiDocumentNode(AtspiAccessible* document, int from, AtspiTextNode::Window window)
        : m_document(ATSPI_ACCESSIBLE(g_object_ref(document))), m_from(from), m_window(std::move(window)) {}
    ~AtspiDocumentNode() override { g_object_unref(m_document); }
    AtspiDocumentNode(const AtspiDocumentNode&) = delete;
    AtspiDocumentNode& operator=(const AtspiDocumentNode&) = delete;

    int characterCount() override {
        return std::min(
            ask([&](GError** e) { return atspi_accessible_get_child_count(m_document, e); }).value_or(0),
            maxChildren);
    }
    QString text(int start, int end) override {
        return QString(std::max(0, std::min(end, characterCount()) - start), QChar(embeddedObject));
    }
    bool countsUtf16() override { return true; }
    QList<Span> selections() override {
        int first = -1;
        int last = -1;
        const int count = characterCount();
        for (int i = std::max(0, m_from - reach); i < std::min(count, m_from + reach + 1); ++i) {
            std::unique_ptr<TextNode> child = embeddedAt(i);
            if (child && !child->selections().isEmpty()) {
                first = first < 0 ? i : first;
                last = i;
            }
        }
        return first < 0 ? QList<Span>{} : QList<Span>{{first, last + 1}};
    }
    std::unique_ptr<TextNode> embeddedAt(int offset) override {
        AtspiAccessible* child = ask([&](GError** e) {
                                     return atspi_accessible_get_child_at_index(m_document, offset, e);
                                 }).value_or(nullptr);
        if (!child)
            return nullptr;
        auto node = std::make_unique<AtspiTextNode>(child, m_window);
        g_object_unref(child);
        return node;
    }
    std::optional<Nesting> parent() override { return std::nullopt; }
    bool isBlock() override { return true; }
    bool isPassword() override { return false; }
    std::optional<QRectF> extents(int, int) override { return std::nullopt; }

private:
    AtspiAccessible* m_document;
    int m_from;
    AtspiTextNode::Window m_window;
};

} // namespace

AtspiTextNode::AtspiTextNode(AtspiAccessible* object, Window window)
    : m_object(ATSPI_ACCESSIBLE(g_object_ref(object))), m_text(atspi_accessible_get_text_iface(object)),
      m_window(std::move(window)) {}

AtspiTextNode::~AtspiTextNode() {
    if (m_text)
        g_object_unref(m_text);
    g_object_unref(m_object);
}

std::unique_ptr<AtspiTextNode> AtspiTextNode::adopt(AtspiAccessible* object) const {
    if (!object)
        return nullptr;
    auto node = std::make_unique<AtspiTextNode>(object, m_window);
    g_object_unref(object);
    return node;
}

int AtspiTextNode::characterCount() {
    if (!m_text)
        return -1;
    return ask([&](GError** e) { return atspi_text_get_character_count(m_text, e); }).value_or(-1);
}

QString AtspiTextNode::text(int start, int end) {
    if (!m_text || start >= end)
        return {};
    return takeUtf8(
        ask([&](GError** e) { return atspi_text_get_text(m_text, start, end, e); }).value_or(nullptr));
}

bool AtspiTextNode::countsUtf16() {
    if (!m_utf16)
        m_utf16 = takeUtf8(atspi_accessible_get_toolkit_name(m_object, nullptr)) == QStringLiteral("Qt");
    return *m_utf16;
}

QList<TextNode::Span> AtspiTextNode::selections() {
    QList<Span> spans;
    if (!m_text)
        return spans;
    const int count = std::min(
        ask([&](GError** e) { return atspi_text_get_n_selections(m_text, e); }).value_or(0), maxSelections);
    for (int i = 0; i < count; ++i) {
        AtspiRange* range =
            ask([&](GError** e) { return atspi_text_get_selection(m_text, i, e); }).value_or(nullptr);
        if (!range)
            continue;
        const Span span{std::min(range->start_offset, range->end_offset),
                        std::max(range->start_offset, range->end_offset)};
        g_free(range);
        if (span.end > span.start)
            spans.append(span);
    }
    std::sort(spans.begin(), spans.end(), [](const Span& a, const Span& b) { return a.start < b.start; });
    return spans;
}

std::unique_ptr<TextNode> AtspiTextNode::embeddedAt(int offset) {
    AtspiAccessible* child = nullptr;
    if (AtspiHypertext* hypertext = atspi_accessible_get_hypertext_iface(m_object)) {
        const gint link = ask([&](GError** e) {
                              return atspi_hypertext_get_link_index(hypertext, offset, e);
                          }).value_or(-1);
        if (link >= 0) {
            if (AtspiHyperlink* hyperlink = ask([&](GError** e) {
                                                return atspi_hypertext_get_link(hypertext, link, e);
                                            }).value_or(nullptr)) {
                child = ask([&](GError** e) {
                            return atspi_hyperlink_get_object(hyperlink, 0, e);
                        }).value_or(nullptr);
                g_object_unref(hyperlink);
            }
        }
        g_object_unref(hypertext);
    }
    // Without hypertext, the n-th embedded character stands for the n-th child.
    if (!child) {
        const int index = int(text(0, offset).count(QChar(embeddedObject)));
        child = ask([&](GError** e) {
                    return atspi_accessible_get_child_at_index(m_object, index, e);
                }).value_or(nullptr);
    }
    return adopt(child);
}

int AtspiTextNode::offsetOfEmbedded(int index) {
    const QString all = text(0, std::min(characterCount(), HypertextSelection::maxChars));
    int seen = 0;
    int offset = 0;
    const bool utf16 = countsUtf16();
    for (qsizetype i = 0; i < all.size(); ++offset) {
        if (all.at(i) == QChar(embeddedObject) && seen++ == index)
            return offset;
        i += (!utf16 && all.at(i).isHighSurrogate() && i + 1 < all.size()) ? 2 : 1;
    }
    return -1;
}

std::optional<TextNode::Nesting> AtspiTextNode::parent() {
    std::unique_ptr<AtspiTextNode> up =
        adopt(ask([&](GError** e) { return atspi_accessible_get_parent(m_object, e); }).value_or(nullptr));
    if (!up)
        return std::nullopt;
    if (up->characterCount() < 0) {
        const std::optional<AtspiRole> role =
            ask([&](GError** e) { return atspi_accessible_get_role(up->m_object, e); });
        if (role != ATSPI_ROLE_DOCUMENT_TEXT && role != ATSPI_ROLE_DOCUMENT_FRAME)
            return std::nullopt;
        const gint index =
            ask([&](GError** e) { return atspi_accessible_get_index_in_parent(m_object, e); }).value_or(-1);
        if (index < 0)
            return std::nullopt;
        return Nesting{std::make_unique<AtspiDocumentNode>(up->m_object, index, m_window), index};
    }
    int offset = -1;
    if (AtspiHyperlink* hyperlink = atspi_accessible_get_hyperlink(m_object)) {
        offset = ask([&](GError** e) { return atspi_hyperlink_get_start_index(hyperlink, e); }).value_or(-1);
        g_object_unref(hyperlink);
    }
    if (offset < 0) {
        const gint index =
            ask([&](GError** e) { return atspi_accessible_get_index_in_parent(m_object, e); }).value_or(-1);
        offset = index < 0 ? -1 : up->offsetOfEmbedded(index);
    }
    if (offset < 0)
        return std::nullopt;
    return Nesting{std::move(up), offset};
}

bool AtspiTextNode::isBlock() {
    if (GHashTable* attributes =
            ask([&](GError** e) { return atspi_accessible_get_attributes(m_object, e); }).value_or(nullptr)) {
        const auto* display = static_cast<const gchar*>(g_hash_table_lookup(attributes, "display"));
        const std::optional<bool> block =
            display ? std::optional<bool>(!g_str_has_prefix(display, "inline")) : std::nullopt;
        g_hash_table_unref(attributes);
        if (block)
            return *block;
    }
    const std::optional<AtspiRole> role =
        ask([&](GError** e) { return atspi_accessible_get_role(m_object, e); });
    return !role || std::find(std::begin(inlineRoles), std::end(inlineRoles), *role) == std::end(inlineRoles);
}

bool AtspiTextNode::isPassword() {
    return ask([&](GError** e) { return atspi_accessible_get_role(m_object, e); }) ==
           ATSPI_ROLE_PASSWORD_TEXT;
}

std::optional<QRectF> AtspiTextNode::characterExtents(AtspiText* text, int offset, int coordinates) {
    return takeRect(ask([&](GError** e) {
                        return atspi_text_get_character_extents(text, offset, AtspiCoordType(coordinates), e);
                    }).value_or(nullptr));
}

std::optional<QRectF> AtspiTextNode::extents(int start, int end) {
    if (!m_text || start >= end)
        return std::nullopt;
    // A Wayland window the compositor does not place: no number of its toolkit says where the text is.
    if (m_window.wayland && !m_window.rect)
        return std::nullopt;
    TextPlacement::Measured measured;
    // Qt counts the character at the end offset into the range.
    const int last = countsUtf16() ? end - 1 : end;
    measured.range =
        takeRect(ask([&](GError** e) {
                     return atspi_text_get_range_extents(m_text, start, last, ATSPI_COORD_TYPE_SCREEN, e);
                 }).value_or(nullptr));
    measured.first = characterExtents(m_text, start, ATSPI_COORD_TYPE_SCREEN);
    measured.last = characterExtents(m_text, end - 1, ATSPI_COORD_TYPE_SCREEN);
    if (!TextPlacement::needsWindow(measured, m_window.wayland))
        return TextPlacement::onScreen(measured, {});
    // GTK 4 places characters relative to its window only, and measures no ranges.
    if (!measured.range && !measured.first && !measured.last) {
        measured.firstInWindow = characterExtents(m_text, start, ATSPI_COORD_TYPE_WINDOW);
        measured.lastInWindow = characterExtents(m_text, end - 1, ATSPI_COORD_TYPE_WINDOW);
        if (!measured.firstInWindow || !measured.lastInWindow)
            return std::nullopt;
    }
    TextPlacement::Window window{m_window.wayland, m_window.rect ? m_window.rect() : std::nullopt, {}};
    if (!window.rect)
        return std::nullopt;
    window.frame = frameSize();
    return TextPlacement::onScreen(measured, window);
}

std::optional<QSizeF> AtspiTextNode::frameSize() {
    AtspiAccessible* top = ATSPI_ACCESSIBLE(g_object_ref(m_object));
    for (int depth = 0; depth < 64; ++depth) {
        AtspiAccessible* up = atspi_accessible_get_parent(top, nullptr);
        const bool reached = !up || atspi_accessible_get_role(up, nullptr) == ATSPI_ROLE_APPLICATION;
        if (up && reached)
            g_object_unref(up);
        if (reached)
            break;
        g_object_unref(top);
        top = up;
    }
    std::optional<QSizeF> size;
    if (AtspiComponent* component = atspi_accessible_get_component_iface(top)) {
        if (AtspiRect* frame = atspi_component_get_extents(component, ATSPI_COORD_TYPE_WINDOW, nullptr)) {
            size = QSizeF(frame->width, frame->height);
            g_free(frame);
        }
        g_object_unref(component);
    }
    g_object_unref(top);
    return size;
}

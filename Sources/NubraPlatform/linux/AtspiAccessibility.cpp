#include "NubraPlatform/linux/AtspiAccessibility.h"

#include "NubraCore/Support/DebugLog.h"
#include "NubraPlatform/linux/AtspiThread.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusVariant>

#include <atspi/atspi.h>

#include <algorithm>

namespace {

const QString busService = QStringLiteral("org.a11y.Bus");
const QString busPath = QStringLiteral("/org/a11y/bus");
const QString statusInterface = QStringLiteral("org.a11y.Status");
const QString propertiesInterface = QStringLiteral("org.freedesktop.DBus.Properties");
// Far more than any selection or its context needs; keeps a hostile application from filling memory.
constexpr int maxTextChars = 1 << 20;

std::optional<bool> busEnabled() {
    QDBusMessage get =
        QDBusMessage::createMethodCall(busService, busPath, propertiesInterface, QStringLiteral("Get"));
    get << statusInterface << QStringLiteral("IsEnabled");
    const QDBusMessage reply =
        QDBusConnection::sessionBus().call(get, QDBus::Block, AtspiAccessibility::dbusTimeoutMs);
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty())
        return std::nullopt;
    return reply.arguments().constFirst().value<QDBusVariant>().variant().toBool();
}

QString takeUtf8(gchar* text) {
    if (!text)
        return {};
    QString result = QString::fromUtf8(text);
    g_free(text);
    return result;
}

QString roleName(AtspiRole role) {
    switch (role) {
    case ATSPI_ROLE_PASSWORD_TEXT:
        return AccessibleRole::secureTextField;
    case ATSPI_ROLE_ENTRY:
        return AccessibleRole::textField;
    case ATSPI_ROLE_TEXT:
    case ATSPI_ROLE_PARAGRAPH:
    case ATSPI_ROLE_DOCUMENT_TEXT:
        return AccessibleRole::textArea;
    case ATSPI_ROLE_COMBO_BOX:
        return AccessibleRole::comboBox;
    case ATSPI_ROLE_TERMINAL: // no counterpart on macOS, where Terminal shows a text area
        return AccessibleRole::terminal;
    default:
        return AccessibleRole::unknown;
    }
}

// A focused AT-SPI object. Offsets are the toolkit's own (UTF-16 units in Qt, code points elsewhere)
// and become UTF-16 units of the element's text here, after fetching, never before.
class AtspiElement final : public AccessibleElement {
public:
    AtspiElement(std::shared_ptr<AtspiThread> thread, AtspiAccessible* object)
        : m_thread(std::move(thread)), m_object(object) {}
    ~AtspiElement() override {
        AtspiAccessible* object = m_object;
        m_thread->call(
            [object]() {
                g_object_unref(object);
                return true;
            },
            AtspiAccessibility::callTimeoutMs);
    }

    std::optional<QString> selectedText() override {
        const Snapshot s = snapshot();
        if (!s.hasText)
            return std::nullopt;
        return s.text.mid(s.selStart, s.selEnd - s.selStart);
    }
    RangeRead selectedRange() override {
        const Snapshot s = snapshot();
        if (!s.hasText)
            return {};
        return {true, TextRange{s.selStart, s.selEnd - s.selStart}};
    }
    std::optional<QString> value() override {
        const Snapshot s = snapshot();
        return s.hasText ? std::optional<QString>(s.text) : std::nullopt;
    }
    std::optional<QRectF> boundsForRange(const TextRange& range) override;
    std::optional<QString> role() override {
        const std::optional<AtspiRole> role = query<AtspiRole>(&atspi_accessible_get_role);
        return role ? std::optional<QString>(roleName(*role)) : std::nullopt;
    }
    std::optional<qint64> processId() override { return query<guint>(&atspi_accessible_get_process_id); }
    std::optional<bool> inActiveWindow() override {
        AtspiAccessible* object = m_object;
        return m_thread
            ->call(
                [object]() -> std::optional<bool> {
                    // Up to the top-level window: the child of the application object.
                    AtspiAccessible* node = ATSPI_ACCESSIBLE(g_object_ref(object));
                    for (int depth = 0; node && depth < 64; ++depth) {
                        AtspiAccessible* parent = atspi_accessible_get_parent(node, nullptr);
                        const bool top =
                            !parent || atspi_accessible_get_role(parent, nullptr) == ATSPI_ROLE_APPLICATION;
                        if (top) {
                            AtspiStateSet* states = atspi_accessible_get_state_set(node);
                            const bool active =
                                states && atspi_state_set_contains(states, ATSPI_STATE_ACTIVE);
                            if (states)
                                g_object_unref(states);
                            if (parent)
                                g_object_unref(parent);
                            g_object_unref(node);
                            return active;
                        }
                        g_object_unref(node);
                        node = parent;
                    }
                    if (node)
                        g_object_unref(node);
                    return std::nullopt;
                },
                AtspiAccessibility::callTimeoutMs)
            .value_or(std::nullopt);
    }
    void limitContextTo(int radius) override { m_radius = std::clamp(radius, 0, maxTextChars); }

private:
    // One libatspi getter of this object, run on the AT-SPI thread; an error or no answer in time is
    // nothing.
    template <typename T> std::optional<T> query(T (*get)(AtspiAccessible*, GError**)) {
        AtspiAccessible* object = m_object;
        return m_thread
            ->call(
                [object, get]() -> std::optional<T> {
                    GError* error = nullptr;
                    const T value = get(object, &error);
                    if (error) {
                        g_error_free(error);
                        return std::nullopt;
                    }
                    return value;
                },
                AtspiAccessibility::callTimeoutMs)
            .value_or(std::nullopt);
    }

    struct Snapshot {
        bool hasText = false;
        bool utf16Offsets = false;
        QString text;
        gint windowStart = 0; // the toolkit offset where `text` begins in the element's whole text
        qint64 selStart = 0;  // UTF-16 units of `text`
        qint64 selEnd = 0;
    };
    // One read of text and selection, converted once; the reader asks for its parts in a row.
    Snapshot snapshot();
    static qint64 toUtf16(const QString& text, qint64 codePoints);
    static qint64 toCodePoints(const QString& text, qint64 units);

    std::shared_ptr<AtspiThread> m_thread;
    AtspiAccessible* m_object;
    gint m_radius = maxTextChars;
    std::optional<Snapshot> m_snapshot;
};

qint64 AtspiElement::toUtf16(const QString& text, qint64 codePoints) {
    qint64 units = 0;
    for (qint64 seen = 0; seen < codePoints && units < text.size(); ++seen)
        units += (text.at(units).isHighSurrogate() && units + 1 < text.size()) ? 2 : 1;
    return units;
}

qint64 AtspiElement::toCodePoints(const QString& text, qint64 units) {
    qint64 points = 0;
    for (qint64 i = 0; i < units && i < text.size(); ++i) {
        if (!text.at(i).isLowSurrogate())
            ++points;
    }
    return points;
}

AtspiElement::Snapshot AtspiElement::snapshot() {
    if (m_snapshot)
        return *m_snapshot;
    AtspiAccessible* object = m_object;
    const gint radius = m_radius;
    m_snapshot =
        m_thread
            ->call(
                [object, radius]() {
                    Snapshot s;
                    AtspiText* text = atspi_accessible_get_text_iface(object);
                    if (!text)
                        return s;
                    GError* error = nullptr;
                    const gint count = atspi_text_get_character_count(text, &error);
                    if (!error) {
                        s.hasText = true;
                        const QString toolkit = takeUtf8(atspi_accessible_get_toolkit_name(object, nullptr));
                        s.utf16Offsets = toolkit == QStringLiteral("Qt");
                        gint start = atspi_text_get_caret_offset(text, nullptr);
                        gint end = start;
                        if (atspi_text_get_n_selections(text, nullptr) > 0) {
                            if (AtspiRange* range = atspi_text_get_selection(text, 0, nullptr)) {
                                start = range->start_offset;
                                end = range->end_offset;
                                g_free(range);
                            }
                        }
                        if (end < start)
                            std::swap(start, end);
                        start = std::clamp(start, 0, count);
                        end = std::clamp(end, start, count);
                        // Only the selection and the context around it: a code point is at least one
                        // UTF-16 unit, so `radius` offsets of either kind hold `radius` units.
                        s.windowStart = std::max(0, start - radius);
                        const gint windowEnd = gint(std::min<qint64>(
                            {qint64(count), qint64(end) + radius, qint64(s.windowStart) + maxTextChars}));
                        s.text = takeUtf8(atspi_text_get_text(text, s.windowStart, windowEnd, nullptr));
                        start -= s.windowStart;
                        end = std::min(end, windowEnd) - s.windowStart;
                        s.selStart = s.utf16Offsets ? start : toUtf16(s.text, start);
                        s.selEnd = s.utf16Offsets ? end : toUtf16(s.text, end);
                    }
                    if (error)
                        g_error_free(error);
                    g_object_unref(text);
                    return s;
                },
                AtspiAccessibility::callTimeoutMs)
            .value_or(Snapshot{});
    return *m_snapshot;
}

std::optional<QRectF> AtspiElement::boundsForRange(const TextRange& range) {
    const Snapshot s = snapshot();
    if (!s.hasText)
        return std::nullopt;
    gint start = s.windowStart + gint(s.utf16Offsets ? range.location : toCodePoints(s.text, range.location));
    gint end = s.windowStart + gint(s.utf16Offsets ? range.location + range.length
                                                   : toCodePoints(s.text, range.location + range.length));
    // Qt counts the character at the end offset into the extents.
    if (s.utf16Offsets && end > start)
        --end;
    AtspiAccessible* object = m_object;
    return m_thread
        ->call(
            [object, start, end]() -> std::optional<QRectF> {
                AtspiText* text = atspi_accessible_get_text_iface(object);
                if (!text)
                    return std::nullopt;
                GError* error = nullptr;
                AtspiRect* rect =
                    atspi_text_get_range_extents(text, start, end, ATSPI_COORD_TYPE_SCREEN, &error);
                g_object_unref(text);
                if (error) {
                    g_error_free(error);
                    return std::nullopt;
                }
                if (!rect)
                    return std::nullopt;
                const QRectF result(rect->x, rect->y, rect->width, rect->height);
                g_free(rect);
                return result;
            },
            AtspiAccessibility::callTimeoutMs)
        .value_or(std::nullopt);
}

} // namespace

AtspiAccessibility::AtspiAccessibility() : m_thread(std::make_shared<AtspiThread>(dbusTimeoutMs)) {}

AtspiAccessibility::~AtspiAccessibility() = default;

bool AtspiAccessibility::isTrusted() {
    return m_thread->isReady() && busEnabled().value_or(false);
}

void AtspiAccessibility::enableApplication(qint64) {
    // Toolkits follow the bus switch on their own; there is no per-application switch on Linux.
}

FocusQuery AtspiAccessibility::focusedElement() {
    if (!isTrusted())
        return {FocusQuery::apiDisabled, nullptr};
    const std::optional<AtspiAccessible*> focused = m_thread->takeFocused(callTimeoutMs);
    if (!focused)
        return {FocusQuery::cannotComplete, nullptr};
    if (!*focused)
        return {FocusQuery::noValue, nullptr};
    return {FocusQuery::success, std::make_shared<AtspiElement>(m_thread, *focused)};
}

void AtspiAccessibility::openSettings() {
    QDBusMessage set =
        QDBusMessage::createMethodCall(busService, busPath, propertiesInterface, QStringLiteral("Set"));
    set << statusInterface << QStringLiteral("IsEnabled") << QVariant::fromValue(QDBusVariant(true));
    // Called from a button on the GUI thread: the request goes out without waiting, and the permission
    // poll notices the switch once the bus has turned on. Only a refusal is worth a log line.
    auto* watcher = new QDBusPendingCallWatcher(QDBusConnection::sessionBus().asyncCall(set, dbusTimeoutMs));
    QObject::connect(watcher, &QDBusPendingCallWatcher::finished, watcher, [](QDBusPendingCallWatcher* call) {
        if (call->isError())
            nbDebug(QStringLiteral("atspi: turning the accessibility bus on failed: %1 %2")
                        .arg(call->error().name(), call->error().message()));
        call->deleteLater();
    });
}

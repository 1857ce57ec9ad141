#include "NubraPlatform/linux/AtspiAccessibility.h"

#include "NubraCore/Support/DebugLog.h"
#include "NubraPlatform/HypertextSelection.h"
#include "NubraPlatform/linux/AtspiThread.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusVariant>

#include <atspi/atspi.h>

#include <algorithm>

namespace {

// How long a browser takes to lay out words it has just published.
constexpr int layoutWaitMs = 100;

const QString busService = QStringLiteral("org.a11y.Bus");
const QString busPath = QStringLiteral("/org/a11y/bus");
const QString statusInterface = QStringLiteral("org.a11y.Status");
const QString propertiesInterface = QStringLiteral("org.freedesktop.DBus.Properties");
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

// A focused AT-SPI object. Its selection is read once, through the objects that hold it (a web page
// keeps its words in objects nested under the focused document), and kept for the reads that follow.
class AtspiElement final : public AccessibleElement {
public:
    AtspiElement(std::shared_ptr<AtspiThread> thread, AtspiAccessible* object, AtspiWindows windows)
        : m_thread(std::move(thread)), m_object(object), m_windows(std::move(windows)) {}
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
    // Only the selection's rectangle is known: it was measured word by word while reading it.
    std::optional<QRectF> boundsForRange(const TextRange& range) override {
        const Snapshot s = snapshot();
        if (range != TextRange{s.selStart, s.selEnd - s.selStart})
            return std::nullopt;
        return s.bounds;
    }
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
    void limitContextTo(int radius) override {
        m_radius = std::clamp(radius, 0, HypertextSelection::maxChars);
    }

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
        QString text;        // the selection with its context
        qint64 selStart = 0; // UTF-16 units of `text`
        qint64 selEnd = 0;
        std::optional<QRectF> bounds;
    };
    // One read of the selection; the reader asks for its parts in a row.
    Snapshot snapshot();

    std::shared_ptr<AtspiThread> m_thread;
    AtspiAccessible* m_object;
    AtspiWindows m_windows;
    int m_radius = HypertextSelection::maxChars;
    std::optional<Snapshot> m_snapshot;
};

// Runs on the AT-SPI thread.
std::optional<JoinedSelection> readSelection(AtspiThread& thread, AtspiAccessible* object, bool hasText,
                                             int radius, const AtspiTextNode::Window& window) {
    // Leaves time to hand the answer back before the caller stops waiting.
    const QDeadlineTimer deadline(AtspiAccessibility::callTimeoutMs * 3 / 4);
    std::optional<JoinedSelection> joined;
    for (int attempt = 0; attempt < 3 && !deadline.hasExpired(); ++attempt) {
        if (attempt > 0)
            g_usleep(layoutWaitMs * 1000);
        joined = HypertextSelection::read(std::make_unique<AtspiTextNode>(object, window), radius, deadline);
        // A focused object without text (a side panel, a document view around its pages) may keep focus
        // while the user selects in the document: the object that last told of a selection change is
        // asked then. A text without a selection is an answer: a click that selected nothing there must
        // not bring back a selection kept elsewhere (in a web page's frame).
        if (!joined && !hasText) {
            if (AtspiAccessible* source = thread.selectionSourceBeside(object)) {
                joined = HypertextSelection::read(std::make_unique<AtspiTextNode>(source, window), radius,
                                                  deadline);
                g_object_unref(source);
            }
        }
        // A browser may publish the words before it has laid them out, with empty rectangles: it has
        // them a moment later. Words in a window the compositor does not place never get one.
        if (!joined || joined->bounds || (window.wayland && !window.rect))
            break;
    }
    return joined;
}

AtspiElement::Snapshot AtspiElement::snapshot() {
    if (m_snapshot)
        return *m_snapshot;
    AtspiAccessible* object = m_object;
    const int radius = m_radius;
    AtspiThread* thread = m_thread.get();
    // Asked here, not on the AT-SPI thread: finding the process's windows may take a round trip to X.
    AtspiTextNode::Window window = m_windows.windowOf(m_windows.showsX11Window ? processId() : std::nullopt);
    m_snapshot = m_thread
                     ->call(
                         [object, radius, thread, window]() {
                             Snapshot s;
                             AtspiTextNode focused(object, window);
                             s.hasText = focused.characterCount() >= 0;
                             if (std::optional<JoinedSelection> joined =
                                     readSelection(*thread, object, s.hasText, radius, window)) {
                                 s.hasText = true;
                                 s.text = std::move(joined->text);
                                 s.selStart = joined->selectionStart;
                                 s.selEnd = joined->selectionEnd;
                                 s.bounds = joined->bounds;
                             }
                             return s;
                         },
                         AtspiAccessibility::callTimeoutMs)
                     .value_or(Snapshot{});
    return *m_snapshot;
}

} // namespace

AtspiTextNode::Window AtspiWindows::windowOf(std::optional<qint64> processId) const {
    if (!showsX11Window || (processId && showsX11Window(*processId)))
        return {false, activeX11Window};
    return {true, focusedWaylandWindow};
}

AtspiAccessibility::AtspiAccessibility(AtspiWindows windows)
    : m_thread(std::make_shared<AtspiThread>(dbusTimeoutMs)), m_windows(std::move(windows)) {}

AtspiAccessibility::~AtspiAccessibility() = default;

bool AtspiAccessibility::isTrusted() {
    return m_thread->isReady() && busEnabled().value_or(false);
}

bool AtspiAccessibility::enableApplication(qint64 processId) {
    // Toolkits follow the bus switch on their own, except the Chromium family, which waits to be asked.
    AtspiThread* thread = m_thread.get(); // tasks run only while the thread does
    return m_thread->call([thread, processId]() { return thread->wakeApplication(processId); }, callTimeoutMs)
        .value_or(false);
}

FocusQuery AtspiAccessibility::focusedElement() {
    if (!isTrusted())
        return {FocusQuery::apiDisabled, nullptr};
    const std::optional<AtspiAccessible*> focused = m_thread->takeFocused(callTimeoutMs);
    if (!focused)
        return {FocusQuery::cannotComplete, nullptr};
    if (!*focused)
        return {FocusQuery::noValue, nullptr};
    return {FocusQuery::success, std::make_shared<AtspiElement>(m_thread, *focused, m_windows)};
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

void AtspiAccessibility::setSelectionListener(std::function<void(const SelectionChange&)> listener) {
    m_thread->setSelectionListener(std::move(listener));
}

std::optional<std::pair<qint64, QString>> AtspiAccessibility::focusedApplication() {
    const std::optional<AtspiThread::Application> application = m_thread->focusedApplication();
    if (!application)
        return std::nullopt;
    return std::pair{application->processId, application->name};
}

#include "NubraPlatform/linux/AtspiThread.h"

#include <atspi/atspi.h>

#include <QDeadlineTimer>

#include <unistd.h>

namespace {

const char* const focusEvent = "object:state-changed:focused";
const char* const selectionEvent = "object:text-selection-changed";

bool isOurs(AtspiAccessible* object) {
    return atspi_accessible_get_process_id(object, nullptr) == guint(getpid());
}

// Replaces the reference held in `slot` with one to `object` (or none).
void keep(AtspiAccessible*& slot, AtspiAccessible* object) {
    if (slot)
        g_object_unref(slot);
    slot = object ? ATSPI_ACCESSIBLE(g_object_ref(object)) : nullptr;
}

} // namespace

AtspiThread::AtspiThread(int dbusTimeoutMs) {
    // libatspi attaches the connections it opens to each application to the default GLib context,
    // whatever context it was given. Were the GUI thread to run that context too, it would dispatch
    // those connections while this thread calls through them, and the two can deadlock. So this
    // thread runs the default context, and the GUI thread runs without GLib (see LinuxDesktop).
    m_context = g_main_context_ref(g_main_context_default());
    m_loop = g_main_loop_new(m_context, FALSE);
    std::promise<bool> started;
    std::future<bool> ready = started.get_future();
    m_thread = std::thread([this, dbusTimeoutMs, &started]() { run(dbusTimeoutMs, started); });
    m_ready = ready.get();
}

AtspiThread::~AtspiThread() {
    g_main_loop_quit(m_loop);
    m_thread.join();
    keep(m_focused, nullptr);
    keep(m_selectionSource, nullptr);
    g_main_loop_unref(m_loop);
    g_main_context_unref(m_context);
}

void AtspiThread::run(int dbusTimeoutMs, std::promise<bool>& started) {
    g_main_context_push_thread_default(m_context);
    atspi_set_main_context(m_context);
    const int status = atspi_init();
    bool ok = status == 0 || status == 1; // 1: already initialised
    if (ok) {
        atspi_set_timeout(dbusTimeoutMs, dbusTimeoutMs * 4);
        m_listener =
            atspi_event_listener_new(reinterpret_cast<AtspiEventListenerCB>(&onEvent), this, nullptr);
        ok = atspi_event_listener_register(m_listener, focusEvent, nullptr) &&
             atspi_event_listener_register(m_listener, selectionEvent, nullptr);
    }
    started.set_value(ok);
    g_main_loop_run(m_loop);
    if (m_listener) {
        atspi_event_listener_deregister(m_listener, focusEvent, nullptr);
        atspi_event_listener_deregister(m_listener, selectionEvent, nullptr);
        g_object_unref(m_listener);
    }
    g_main_context_pop_thread_default(m_context);
}

void AtspiThread::onEvent(void* rawEvent, void* user) {
    auto* event = static_cast<AtspiEvent*>(rawEvent);
    auto* self = static_cast<AtspiThread*>(user);
    // Our own windows (the card once clicked) are never what the user wants read, and reading them
    // would need our GUI thread.
    if (event->source && !isOurs(event->source)) {
        const bool selection = g_str_equal(event->type, selectionEvent);
        const bool focus = !selection && event->detail1 == 1;
        bool tell = false;
        {
            std::lock_guard guard(self->m_lock);
            if (selection) {
                keep(self->m_selectionSource, event->source);
                self->m_selectionChanged.start();
            } else if (focus)
                keep(self->m_focused, event->source);
            else if (self->m_focused == event->source)
                keep(self->m_focused, nullptr);
            tell = (selection || focus) && self->m_selectionListener;
        }
        if (tell) {
            // Asked once this event is handled: each question waits for the application.
            AtspiAccessible* source = ATSPI_ACCESSIBLE(g_object_ref(event->source));
            self->later([self, source, selection]() {
                self->noteApplication(source);
                if (selection)
                    self->tellSelectionChange(source);
                g_object_unref(source);
            });
        }
    }
    g_boxed_free(ATSPI_TYPE_EVENT, event);
}

void AtspiThread::setSelectionListener(std::function<void(const SelectionChange&)> listener) {
    std::lock_guard guard(m_lock);
    m_selectionListener = std::move(listener);
}

void AtspiThread::tellSelectionChange(AtspiAccessible* source) {
    SelectionChange change;
    change.processId = qint64(atspi_accessible_get_process_id(source, nullptr));
    // Collapsing a selection is reported as a change too, leaving no selection or an empty one.
    change.empty = true;
    if (AtspiText* text = atspi_accessible_get_text_iface(source)) {
        if (atspi_text_get_n_selections(text, nullptr) > 0) {
            if (AtspiRange* range = atspi_text_get_selection(text, 0, nullptr)) {
                change.empty = range->start_offset == range->end_offset;
                g_free(range);
            }
        }
        g_object_unref(text);
    }
    std::function<void(const SelectionChange&)> listener;
    {
        std::lock_guard guard(m_lock);
        listener = m_selectionListener;
    }
    if (listener)
        listener(change);
}

void AtspiThread::noteApplication(AtspiAccessible* object) {
    Application application;
    application.processId = qint64(atspi_accessible_get_process_id(object, nullptr));
    if (AtspiAccessible* app = atspi_accessible_get_application(object, nullptr)) {
        if (gchar* name = atspi_accessible_get_name(app, nullptr)) {
            application.name = QString::fromUtf8(name);
            g_free(name);
        }
        g_object_unref(app);
    }
    if (application.processId <= 0)
        return;
    std::lock_guard guard(m_lock);
    m_application = application;
}

std::optional<AtspiThread::Application> AtspiThread::focusedApplication() {
    std::lock_guard guard(m_lock);
    return m_application;
}

AtspiAccessible* AtspiThread::recentSelectionSource() {
    std::lock_guard guard(m_lock);
    // A selection made long before the gesture being read is not what it selected.
    if (!m_selectionSource || m_selectionChanged.hasExpired(selectionFreshMs))
        return nullptr;
    return ATSPI_ACCESSIBLE(g_object_ref(m_selectionSource));
}

AtspiAccessible* AtspiThread::selectionSourceBeside(AtspiAccessible* focused) {
    AtspiAccessible* source = recentSelectionSource();
    if (source && (source == focused || (focused && atspi_accessible_get_process_id(source, nullptr) !=
                                                        atspi_accessible_get_process_id(focused, nullptr))))
        keep(source, nullptr);
    return source;
}

namespace {

bool hasState(AtspiAccessible* object, AtspiStateType state) {
    AtspiStateSet* states = atspi_accessible_get_state_set(object);
    const bool result = states && atspi_state_set_contains(states, state);
    if (states)
        g_object_unref(states);
    return result;
}

// Menus hold hundreds of items (about 1 700 in an office suite) and never the text the user reads.
bool isMenu(AtspiAccessible* object) {
    const AtspiRole role = atspi_accessible_get_role(object, nullptr);
    return role == ATSPI_ROLE_MENU_BAR || role == ATSPI_ROLE_MENU || role == ATSPI_ROLE_POPUP_MENU;
}

// Depth-first search for the focused descendant among what is on screen, visiting a bounded number of
// objects so that a huge document cannot keep us busy.
AtspiAccessible* findFocused(AtspiAccessible* object, int& budget, const QDeadlineTimer& deadline) {
    if (--budget < 0 || deadline.hasExpired())
        return nullptr;
    AtspiStateSet* states = atspi_accessible_get_state_set(object);
    const bool focused = states && atspi_state_set_contains(states, ATSPI_STATE_FOCUSED);
    // GTK 4 leaves SHOWING out; VISIBLE is what it sets.
    const bool showing = states && (atspi_state_set_contains(states, ATSPI_STATE_SHOWING) ||
                                    atspi_state_set_contains(states, ATSPI_STATE_VISIBLE));
    if (states)
        g_object_unref(states);
    if (focused)
        return ATSPI_ACCESSIBLE(g_object_ref(object));
    if (!showing || isMenu(object))
        return nullptr;
    const gint count = atspi_accessible_get_child_count(object, nullptr);
    for (gint i = 0; i < count && budget > 0; ++i) {
        AtspiAccessible* child = atspi_accessible_get_child_at_index(object, i, nullptr);
        if (!child)
            continue;
        AtspiAccessible* found = findFocused(child, budget, deadline);
        g_object_unref(child);
        if (found)
            return found;
    }
    return nullptr;
}

} // namespace

AtspiAccessible* AtspiThread::searchFocused() {
    constexpr int maxVisited = 3000;
    // Most of the caller's wait, leaving time to answer.
    const QDeadlineTimer deadline(searchMs);
    AtspiAccessible* desktop = atspi_get_desktop(0);
    AtspiAccessible* found = nullptr;
    const gint apps = desktop ? atspi_accessible_get_child_count(desktop, nullptr) : 0;
    for (gint a = 0; a < apps && !found && !deadline.hasExpired(); ++a) {
        AtspiAccessible* app = atspi_accessible_get_child_at_index(desktop, a, nullptr);
        if (!app)
            continue;
        if (isOurs(app)) {
            g_object_unref(app);
            continue;
        }
        const gint windows = atspi_accessible_get_child_count(app, nullptr);
        for (gint w = 0; w < windows && !found; ++w) {
            AtspiAccessible* window = atspi_accessible_get_child_at_index(app, w, nullptr);
            if (!window)
                continue;
            int budget = maxVisited;
            if (hasState(window, ATSPI_STATE_ACTIVE))
                found = findFocused(window, budget, deadline);
            g_object_unref(window);
        }
        g_object_unref(app);
    }
    if (desktop)
        g_object_unref(desktop);
    return found;
}

std::optional<AtspiAccessible*> AtspiThread::takeFocused(int timeoutMs) {
    // Everything runs on the AT-SPI thread, where the last reference of an object may be dropped.
    return call(
        [this]() -> AtspiAccessible* {
            AtspiAccessible* known = nullptr;
            {
                std::lock_guard guard(m_lock);
                if (m_focused)
                    known = ATSPI_ACCESSIBLE(g_object_ref(m_focused));
            }
            // Focus events arrive a moment late: right after a click into another field the
            // element we know may have lost focus already, and reading it would capture the
            // wrong selection.
            if (known && hasState(known, ATSPI_STATE_FOCUSED))
                return known;
            if (known)
                g_object_unref(known);
            // No focus known, or it moved without telling us yet: look in the active window.
            // (No lock is held across a call: libatspi may deliver events while it waits for an answer.)
            AtspiAccessible* found = searchFocused();
            if (found) {
                std::lock_guard guard(m_lock);
                keep(m_focused, found);
                return found;
            }
            // Nothing on screen says it has focus (an application that was open before we started
            // and has not moved its focus since): the object that told of the latest selection is
            // where the user works.
            AtspiAccessible* source = recentSelectionSource();
            if (source && !hasState(source, ATSPI_STATE_SHOWING) && !hasState(source, ATSPI_STATE_VISIBLE))
                keep(source, nullptr);
            return source;
        },
        timeoutMs,
        [](AtspiAccessible*& late) {
            if (late)
                g_object_unref(late);
        });
}

bool AtspiThread::wakeApplication(qint64 processId) {
    // The set is small: one entry per application the user captured from.
    if (processId <= 0 || !m_woken.insert(processId).second)
        return false;
    bool woken = false;
    AtspiAccessible* desktop = atspi_get_desktop(0);
    const gint apps = desktop ? atspi_accessible_get_child_count(desktop, nullptr) : 0;
    for (gint a = 0; a < apps && !woken; ++a) {
        AtspiAccessible* app = atspi_accessible_get_child_at_index(desktop, a, nullptr);
        if (!app)
            continue;
        if (atspi_accessible_get_process_id(app, nullptr) == guint(processId)) {
            gchar* toolkit = atspi_accessible_get_toolkit_name(app, nullptr);
            if (toolkit && g_str_equal(toolkit, "Chromium")) {
                if (GHashTable* attributes = atspi_accessible_get_attributes(app, nullptr))
                    g_hash_table_unref(attributes);
                woken = true;
            }
            g_free(toolkit);
        }
        g_object_unref(app);
    }
    if (desktop)
        g_object_unref(desktop);
    // What the application said had focus before it built its tree still claims focus beside what has
    // it now: the next read searches afresh.
    if (woken) {
        std::lock_guard guard(m_lock);
        keep(m_focused, nullptr);
    }
    return woken;
}

void AtspiThread::later(std::function<void()> task) {
    GSource* idle = g_idle_source_new();
    g_source_set_callback(
        idle,
        [](gpointer data) -> gboolean {
            (*static_cast<std::function<void()>*>(data))();
            return G_SOURCE_REMOVE;
        },
        new std::function<void()>(std::move(task)),
        [](gpointer data) { delete static_cast<std::function<void()>*>(data); });
    g_source_attach(idle, m_context);
    g_source_unref(idle);
}

void AtspiThread::submit(std::function<void()> task) {
    auto* heap = new std::function<void()>(std::move(task));
    g_main_context_invoke_full(
        m_context, G_PRIORITY_DEFAULT,
        [](gpointer data) -> gboolean {
            (*static_cast<std::function<void()>*>(data))();
            return G_SOURCE_REMOVE;
        },
        heap, [](gpointer data) { delete static_cast<std::function<void()>*>(data); });
}

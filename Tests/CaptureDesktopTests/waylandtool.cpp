// The Wayland desktop tests' hands and eyes on a compositor, through Nubra's own Wayland classes.
// Reads one command a line on stdin and answers each with one JSON line:
//   globals            which data-control and virtual-keyboard globals the compositor offers
//   keyboard           adds the tool's virtual keyboard (US layout) to the seat, which has none
//                      before; applications started after it get their keyboard focus from the start
//   pointer            adds the tool's virtual pointer to the seat, which has none before
//   drag X1 Y1 X2 Y2 W H  presses the left button at X1,Y1, moves to X2,Y2 in steps and lets go; the
//                      places are in a W x H layout of the outputs
//   type TEXT          types TEXT (US layout) on a virtual keyboard of the tool's own
//   keys A+B+KEY       presses the keys named by their keysyms together (Control_L+a, Shift_L+Home)
//   primary            the primary selection's text
//   copy               the copy fallback as the capture does it: save the clipboard, Control+C in the
//                      user's keymap, read what it copied, put the saved clipboard back
//   window             the focused window's rectangle and pid from the compositor's IPC (KWin: from
//                      the script KWinWindows loads into it)
// A change of the primary selection is reported as {"event": "primary", "cleared": bool}.
#include "NubraCore/Capture/ClipboardSnapshot.h"
#include "NubraPlatform/wayland/CompositorWindows.h"
#include "NubraPlatform/wayland/DataControlPasteboard.h"
#include "NubraPlatform/wayland/DataControlPrimarySelection.h"
#include "NubraPlatform/wayland/KeymapLookup.h"
#include "NubraPlatform/wayland/VirtualKeyboard.h"
#include "NubraPlatform/wayland/WaylandConnection.h"

#include <QCoreApplication>
#include <QJsonDocument>
#include <QJsonObject>
#include <QStringList>

#include <linux/input-event-codes.h>
#include <wayland-client.h>
#include <xkbcommon/xkbcommon.h>

#include "wlr-virtual-pointer-unstable-v1-client.h"

#include <chrono>
#include <cstring>
#include <iostream>
#include <mutex>
#include <string>
#include <thread>

namespace {

std::mutex outputLock;

void say(const QJsonObject& object) {
    std::lock_guard guard(outputLock);
    std::cout << QJsonDocument(object).toJson(QJsonDocument::Compact).constData() << std::endl;
}

// A virtual keyboard of the tool's own, in the US layout: a headless compositor has no keyboard
// until one like this appears, and with it the keymap the product's copy then uses.
class TestKeyboard {
public:
    explicit TestKeyboard(WaylandConnection& connection)
        : m_connection(connection), m_keymap(KeymapLookup::keymapForLayout("us")), m_lookup(m_keymap) {}

    bool add() {
        return m_connection
            .call(
                [keymap = m_keymap](WaylandConnection::Objects& objects) {
                    return VirtualKeyboard::prepare(objects, keymap);
                },
                1000)
            .value_or(false);
    }

    // Holds `modifiers` (keysym names), taps `key`, lets go. False for a name the layout lacks.
    bool chord(const QStringList& names) {
        std::vector<KeymapLookup::Key> keys;
        quint32 mask = 0;
        for (const QString& name : names) {
            const xkb_keysym_t keysym = xkb_keysym_from_name(name.toUtf8().constData(), XKB_KEYSYM_NO_FLAGS);
            const std::optional<KeymapLookup::Key> key = m_lookup.find(keysym);
            if (keysym == XKB_KEY_NoSymbol || !key)
                return false;
            keys.push_back(*key);
            if (&name != &names.last())
                mask |= modifierMask(keysym);
        }
        return press(keys, mask);
    }

    bool type(const QString& text) {
        const quint32 shift = m_lookup.modifierMask(XKB_MOD_NAME_SHIFT);
        const std::optional<KeymapLookup::Key> shiftKey = m_lookup.find(XKB_KEY_Shift_L);
        for (const char32_t character : text.toUcs4()) {
            const std::optional<KeymapLookup::Key> key = m_lookup.find(xkb_utf32_to_keysym(character));
            if (!key || !shiftKey)
                return false;
            if (!(key->level == 0 ? press({*key}, 0) : press({*shiftKey, *key}, shift)))
                return false;
        }
        return true;
    }

private:
    quint32 modifierMask(xkb_keysym_t keysym) const {
        switch (keysym) {
        case XKB_KEY_Control_L:
        case XKB_KEY_Control_R:
            return m_lookup.modifierMask(XKB_MOD_NAME_CTRL);
        case XKB_KEY_Shift_L:
        case XKB_KEY_Shift_R:
            return m_lookup.modifierMask(XKB_MOD_NAME_SHIFT);
        case XKB_KEY_Alt_L:
            return m_lookup.modifierMask(XKB_MOD_NAME_ALT);
        default:
            return 0;
        }
    }

    bool press(const std::vector<KeymapLookup::Key>& keys, quint32 mask) {
        const QByteArray keymap = m_keymap;
        return m_connection
            .call(
                [keys, mask, keymap](WaylandConnection::Objects& objects) {
                    if (!VirtualKeyboard::prepare(objects, keymap))
                        return false;
                    for (size_t i = 0; i + 1 < keys.size(); ++i)
                        VirtualKeyboard::key(objects, keys[i].evdevCode, true);
                    VirtualKeyboard::modifiers(objects, mask, 0);
                    VirtualKeyboard::key(objects, keys.back().evdevCode, true);
                    VirtualKeyboard::key(objects, keys.back().evdevCode, false);
                    for (size_t i = keys.size() - 1; i-- > 0;)
                        VirtualKeyboard::key(objects, keys[i].evdevCode, false);
                    VirtualKeyboard::modifiers(objects, 0, 0);
                    return true;
                },
                1000)
            .value_or(false);
    }

    WaylandConnection& m_connection;
    QByteArray m_keymap;
    KeymapLookup m_lookup;
};

// A virtual pointer of the tool's own, on a connection of its own: the product never moves the
// pointer, so it has no such class. A headless compositor's seat has no pointer before it.
class TestPointer {
public:
    TestPointer() : m_display(wl_display_connect(nullptr)) {
        if (!m_display)
            return;
        wl_registry* registry = wl_display_get_registry(m_display);
        static const wl_registry_listener listener{
            [](void* data, wl_registry* registry, uint32_t name, const char* interface, uint32_t) {
                auto* self = static_cast<TestPointer*>(data);
                if (std::strcmp(interface, wl_seat_interface.name) == 0 && !self->m_seat)
                    self->m_seat =
                        static_cast<wl_seat*>(wl_registry_bind(registry, name, &wl_seat_interface, 1));
                else if (std::strcmp(interface, zwlr_virtual_pointer_manager_v1_interface.name) == 0)
                    self->m_manager = static_cast<zwlr_virtual_pointer_manager_v1*>(
                        wl_registry_bind(registry, name, &zwlr_virtual_pointer_manager_v1_interface, 1));
            },
            [](void*, wl_registry*, uint32_t) {}};
        wl_registry_add_listener(registry, &listener, this);
        wl_display_roundtrip(m_display);
        wl_registry_destroy(registry);
        if (m_manager)
            m_pointer = zwlr_virtual_pointer_manager_v1_create_virtual_pointer(m_manager, m_seat);
        wl_display_roundtrip(m_display);
    }
    ~TestPointer() {
        if (m_pointer)
            zwlr_virtual_pointer_v1_destroy(m_pointer);
        if (m_manager)
            zwlr_virtual_pointer_manager_v1_destroy(m_manager);
        if (m_seat)
            wl_seat_destroy(m_seat);
        if (m_display)
            wl_display_disconnect(m_display);
    }
    TestPointer(const TestPointer&) = delete;
    TestPointer& operator=(const TestPointer&) = delete;

    bool ready() const { return m_pointer != nullptr; }

    bool drag(QPoint from, QPoint to, QSize layout) {
        if (!m_pointer || layout.isEmpty())
            return false;
        constexpr int steps = 8;
        moveTo(from, layout);
        button(BTN_LEFT, WL_POINTER_BUTTON_STATE_PRESSED);
        for (int step = 1; step <= steps; ++step)
            moveTo(from + (to - from) * step / steps, layout);
        button(BTN_LEFT, WL_POINTER_BUTTON_STATE_RELEASED);
        return wl_display_roundtrip(m_display) >= 0;
    }

private:
    void moveTo(QPoint at, QSize layout) {
        zwlr_virtual_pointer_v1_motion_absolute(m_pointer, now(), uint32_t(at.x()), uint32_t(at.y()),
                                                uint32_t(layout.width()), uint32_t(layout.height()));
        frame();
    }
    void button(uint32_t code, wl_pointer_button_state state) {
        zwlr_virtual_pointer_v1_button(m_pointer, now(), code, state);
        frame();
    }
    // Each event goes out on its own, a little apart, as a hand moves.
    void frame() {
        zwlr_virtual_pointer_v1_frame(m_pointer);
        wl_display_flush(m_display);
        std::this_thread::sleep_for(std::chrono::milliseconds(15));
    }
    static uint32_t now() {
        using namespace std::chrono;
        return uint32_t(duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count());
    }

    wl_display* m_display;
    wl_seat* m_seat = nullptr;
    zwlr_virtual_pointer_manager_v1* m_manager = nullptr;
    zwlr_virtual_pointer_v1* m_pointer = nullptr;
};

// What SelectionService does with the clipboard around a synthetic copy.
QJsonObject copy(WaylandConnection& connection) {
    DataControlPasteboard pasteboard(connection);
    VirtualKeyboard keyboard(connection);
    const qint64 before = pasteboard.changeCount();
    const ClipboardSnapshot saved = ClipboardSnapshot::capture(pasteboard);
    if (!keyboard.beginCopy())
        return {{QStringLiteral("error"), QStringLiteral("no virtual keyboard or keymap")}};
    keyboard.post(SyntheticKeyboard::CopyStroke::modifierDown);
    keyboard.post(SyntheticKeyboard::CopyStroke::keyDown);
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    keyboard.post(SyntheticKeyboard::CopyStroke::keyUp);
    keyboard.post(SyntheticKeyboard::CopyStroke::modifierUp);
    bool changed = false;
    for (int poll = 0; poll < 40 && !changed; ++poll) {
        changed = pasteboard.changeCount() != before;
        if (!changed)
            std::this_thread::sleep_for(std::chrono::milliseconds(25));
    }
    const std::optional<QString> text = changed ? pasteboard.string() : std::nullopt;
    if (changed)
        saved.restore(pasteboard);
    return {{QStringLiteral("copied"), text ? QJsonValue(*text) : QJsonValue()}};
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication application(argc, argv); // for KWin's window reports over D-Bus
    WaylandConnection connection;
    if (!connection.connected()) {
        std::cerr << "nubra-test-wayland: no Wayland compositor to connect to\n";
        return 1;
    }
    DataControlPrimarySelection primary(connection);
    primary.setChangeListener([](bool cleared) {
        say({{QStringLiteral("event"), QStringLiteral("primary")}, {QStringLiteral("cleared"), cleared}});
    });
    TestKeyboard keys(connection);
    std::optional<TestPointer> pointer;
    CompositorWindows windows;

    std::string line;
    while (std::getline(std::cin, line)) {
        const QString command = QString::fromStdString(line);
        const QString verb = command.section(u' ', 0, 0);
        const QString rest = command.section(u' ', 1);
        if (verb == u"globals") {
            const WaylandGlobals globals = connection.globals();
            say({{QStringLiteral("ext"), globals.extDataControl},
                 {QStringLiteral("wlr"), globals.wlrDataControl},
                 {QStringLiteral("virtualKeyboard"), globals.virtualKeyboard}});
        } else if (verb == u"keyboard") {
            say({{QStringLiteral("ok"), keys.add()}});
        } else if (verb == u"pointer") {
            if (!pointer)
                pointer.emplace();
            say({{QStringLiteral("ok"), pointer->ready()}});
        } else if (verb == u"drag") {
            const QStringList n = rest.split(u' ');
            const bool ok = pointer && n.size() == 6 &&
                            pointer->drag({n[0].toInt(), n[1].toInt()}, {n[2].toInt(), n[3].toInt()},
                                          {n[4].toInt(), n[5].toInt()});
            say({{QStringLiteral("ok"), ok}});
        } else if (verb == u"type") {
            say({{QStringLiteral("ok"), keys.type(rest)}});
        } else if (verb == u"keys") {
            say({{QStringLiteral("ok"), keys.chord(rest.split(u'+'))}});
        } else if (verb == u"primary") {
            const std::optional<QString> text = primary.text();
            say({{QStringLiteral("text"), text ? QJsonValue(*text) : QJsonValue()}});
        } else if (verb == u"copy") {
            say(copy(connection));
        } else if (verb == u"window") {
            const std::optional<CompositorWindows::Window> window = windows.focusedWindow();
            if (!window) {
                say({{QStringLiteral("window"), QJsonValue()}});
                continue;
            }
            say({{QStringLiteral("x"), window->rect.x()},
                 {QStringLiteral("y"), window->rect.y()},
                 {QStringLiteral("width"), window->rect.width()},
                 {QStringLiteral("height"), window->rect.height()},
                 {QStringLiteral("pid"), window->pid}});
        } else {
            say({{QStringLiteral("error"), QString(QStringLiteral("unknown command: ") + verb)}});
        }
    }
    return 0;
}

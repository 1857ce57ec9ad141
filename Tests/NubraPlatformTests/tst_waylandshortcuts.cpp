#include "NubraPlatform/wayland/GnomeShortcuts.h"
#include "NubraPlatform/wayland/HyprlandShortcuts.h"
#include "NubraPlatform/wayland/SwayShortcuts.h"

#include <QTest>

#undef signals // GIO names a struct member so
#include <gio/gio.h>

namespace {

const QString program = QStringLiteral("/opt/My Apps/nubra");
const HotkeyCombo altG{5, HotkeyCombo::optionFlag};
const HotkeyCombo ctrlShiftSpace{49, HotkeyCombo::controlFlag | HotkeyCombo::shiftFlag};
const HotkeyCombo superReturn{36, HotkeyCombo::commandFlag};
const HotkeyCombo superT{17, HotkeyCombo::commandFlag};
const HotkeyCombo altTab{48, HotkeyCombo::optionFlag};

constexpr char mediaKeys[] = "org.gnome.settings-daemon.plugins.media-keys";
constexpr char customSchema[] = "org.gnome.settings-daemon.plugins.media-keys.custom-keybinding";
const QString userPath =
    QStringLiteral("/org/gnome/settings-daemon/plugins/media-keys/custom-keybindings/custom%1/");

QStringList customPaths() {
    GSettings* settings = g_settings_new(mediaKeys);
    gchar** paths = g_settings_get_strv(settings, "custom-keybindings");
    QStringList list;
    for (gchar** path = paths; *path; ++path)
        list << QString::fromUtf8(*path);
    g_strfreev(paths);
    g_object_unref(settings);
    return list;
}

QString customValue(const QString& path, const char* key) {
    GSettings* settings = g_settings_new_with_path(customSchema, path.toUtf8().constData());
    gchar* value = g_settings_get_string(settings, key);
    const QString text = QString::fromUtf8(value);
    g_free(value);
    g_object_unref(settings);
    return text;
}

// Two shortcuts of the user's own, as GNOME Settings writes them.
void setUpUserShortcuts() {
    const char* bindings[][3] = {{"Terminal here", "gnome-terminal", "<Super>t"},
                                 {"Notes", "gnome-text-editor", "<Primary><Alt>n"}};
    for (int i = 0; i < 2; ++i) {
        GSettings* settings = g_settings_new_with_path(customSchema, userPath.arg(i).toUtf8().constData());
        g_settings_set_string(settings, "name", bindings[i][0]);
        g_settings_set_string(settings, "command", bindings[i][1]);
        g_settings_set_string(settings, "binding", bindings[i][2]);
        g_object_unref(settings);
    }
    GSettings* settings = g_settings_new(mediaKeys);
    const QByteArray first = userPath.arg(0).toUtf8(), second = userPath.arg(1).toUtf8();
    const gchar* paths[] = {first.constData(), second.constData(), nullptr};
    g_settings_set_strv(settings, "custom-keybindings", paths);
    g_object_unref(settings);
}

DesktopShortcuts::Status answerOf(DesktopShortcuts& shortcuts,
                                  const std::function<void(DesktopShortcuts::Done)>& ask) {
    std::optional<DesktopShortcuts::Status> answer;
    ask([&answer](const DesktopShortcuts::Status& status) { answer = status; });
    const bool answered = QTest::qWaitFor([&answer] { return answer.has_value(); }, 5000);
    Q_UNUSED(shortcuts);
    return answered ? *answer : DesktopShortcuts::Status{std::nullopt, u"no answer"_qs, true};
}

} // namespace

class WaylandShortcutsTest : public QObject {
    Q_OBJECT

private slots:
    void initTestCase() { qputenv("GSETTINGS_BACKEND", "memory"); }

    void gnomeShortcutIsAddedBesideTheUsersAndRemovedCleanly() {
        if (!GnomeShortcuts::available())
            QSKIP("skipped: GNOME's settings schemas are not installed");
        setUpUserShortcuts();
        const QStringList users = customPaths();
        DesktopShortcutsThread shortcuts(std::make_unique<GnomeShortcuts>(program));
        QCOMPARE(shortcuts.setup(), DesktopShortcuts::Setup::automatic);
        QCOMPARE(answerOf(shortcuts, [&](auto done) { shortcuts.query(altG, done); }),
                 (DesktopShortcuts::Status{false, {}, false}));

        QCOMPARE(answerOf(shortcuts, [&](auto done) { shortcuts.add(altG, done); }),
                 (DesktopShortcuts::Status{true, {}, false}));
        const QString own = QString::fromLatin1(GnomeShortcuts::ownPath);
        QCOMPARE(customPaths(), users + QStringList{own});
        QCOMPARE(customValue(own, "command"), u"'/opt/My Apps/nubra' --lookup"_qs);
        QCOMPARE(customValue(own, "binding"), u"<Alt>g"_qs);
        QVERIFY(!customValue(own, "name").isEmpty());
        QCOMPARE(customValue(users[0], "binding"), u"<Super>t"_qs);
        QCOMPARE(customValue(users[1], "command"), u"gnome-text-editor"_qs);

        // A new combination replaces the binding in place.
        QCOMPARE(answerOf(shortcuts, [&](auto done) { shortcuts.add(ctrlShiftSpace, done); }).active, true);
        QCOMPARE(customValue(own, "binding"), u"<Control><Shift>space"_qs);
        QCOMPARE(customPaths().size(), 3);
        QCOMPARE(answerOf(shortcuts, [&](auto done) { shortcuts.query(altG, done); }).active, false);

        QCOMPARE(answerOf(shortcuts, [&](auto done) { shortcuts.remove(done); }).active, false);
        QCOMPARE(customPaths(), users);
        QCOMPARE(customValue(own, "binding"), QString());
        QCOMPARE(customValue(users[0], "name"), u"Terminal here"_qs);
        QCOMPARE(answerOf(shortcuts, [&](auto done) { shortcuts.query(ctrlShiftSpace, done); }).active,
                 false);
    }

    void gnomeReportsCombinationsInUseAndWritesNothing() {
        if (!GnomeShortcuts::available())
            QSKIP("skipped: GNOME's settings schemas are not installed");
        setUpUserShortcuts();
        GnomeShortcuts gnome(program);
        QCOMPARE(gnome.add(superT), (DesktopShortcuts::Status{false, u"Terminal here"_qs, false}));
        QCOMPARE(gnome.add(altTab), (DesktopShortcuts::Status{false, u"Switch applications"_qs, false}));
        QCOMPARE(gnome.add(HotkeyCombo{45, HotkeyCombo::optionFlag | HotkeyCombo::controlFlag}).takenBy,
                 u"Notes"_qs); // <Primary> is Control
        QCOMPARE(customPaths().size(), 2);
        QCOMPARE(customValue(QString::fromLatin1(GnomeShortcuts::ownPath), "binding"), QString());
    }

    void configLinesUseEachCompositorsWords() {
        const SwayShortcuts sway(u"/usr/bin/nubra"_qs, {});
        const HyprlandShortcuts hyprland(program, {});
        QCOMPARE(sway.configLine(altG), u"bindsym Mod1+g exec /usr/bin/nubra --lookup"_qs);
        QCOMPARE(sway.configLine(ctrlShiftSpace),
                 u"bindsym Ctrl+Shift+space exec /usr/bin/nubra --lookup"_qs);
        QCOMPARE(SwayShortcuts(program, {}).configLine(superReturn),
                 u"bindsym Mod4+Return exec '/opt/My Apps/nubra' --lookup"_qs);
        QCOMPARE(SwayShortcuts(u"/home/o'neil/nubra"_qs, {}).configLine(altG),
                 u"bindsym Mod1+g exec '/home/o'\\''neil/nubra' --lookup"_qs);
        QCOMPARE(hyprland.configLine(altG), u"bind = ALT, G, exec, '/opt/My Apps/nubra' --lookup"_qs);
        QCOMPARE(hyprland.configLine(ctrlShiftSpace),
                 u"bind = CTRL SHIFT, space, exec, '/opt/My Apps/nubra' --lookup"_qs);
        QCOMPARE(hyprland.configLine(HotkeyCombo{5, 0}), QString()); // no modifier: no hot key
    }

    void swayBindingsAreReadFromItsConfiguration() {
        const QString config = uR"(# set $mod Mod1
set $mod Mod4
set $term foot
bindsym $mod+Return exec $term
bindsym --release Mod1+g \
    exec '/opt/My Apps/nubra' --lookup
bindsym Ctrl+Shift+space exec firefox
mode "resize" {
    bindsym Mod1+t exec nothing-in-default-mode
}
bindsym {
    Mod1+Tab focus next
}
bindsym Ctrl+Shift+Space exec /opt/other/nubra --lookup
)"_qs;
        const QList<SwayShortcuts::Binding> bindings = SwayShortcuts::bindings(config);
        QCOMPARE(bindings.size(), 5);
        using Status = DesktopShortcuts::Status;
        QCOMPARE(SwayShortcuts::statusOf(bindings, altG, program), (Status{true, {}, false}));
        QCOMPARE(SwayShortcuts::statusOf(bindings, superReturn, program),
                 (Status{false, u"exec foot"_qs, false}));
        QCOMPARE(SwayShortcuts::statusOf(bindings, altTab, program),
                 (Status{false, u"focus next"_qs, false}));
        QCOMPARE(SwayShortcuts::statusOf(bindings, HotkeyCombo{17, HotkeyCombo::optionFlag}, program),
                 (Status{false, {}, false}));
        // The later binding of the same keys is the one sway keeps; another Nubra is not this one.
        QCOMPARE(SwayShortcuts::statusOf(bindings, ctrlShiftSpace, program),
                 (Status{false, u"exec /opt/other/nubra --lookup"_qs, false}));
    }

    void hyprlandBindingsAreReadFromItsSocketsAnswer() {
        const QByteArray binds = R"([
          {"modmask": 8, "submap": "", "key": "G", "dispatcher": "exec", "arg": "'/opt/My Apps/nubra' --lookup"},
          {"modmask": 64, "submap": "", "key": "Return", "dispatcher": "exec", "arg": "kitty"},
          {"modmask": 8, "submap": "resize", "key": "T", "dispatcher": "exec", "arg": "elsewhere"}])";
        using Status = DesktopShortcuts::Status;
        QCOMPARE(HyprlandShortcuts::statusOf(binds, altG, program), (Status{true, {}, false}));
        QCOMPARE(HyprlandShortcuts::statusOf(binds, superReturn, program),
                 (Status{false, u"exec kitty"_qs, false}));
        QCOMPARE(HyprlandShortcuts::statusOf(binds, HotkeyCombo{17, HotkeyCombo::optionFlag}, program),
                 (Status{false, {}, false}));
        QCOMPARE(HyprlandShortcuts::statusOf("not json", altG, program), (Status{std::nullopt, {}, true}));
    }
};

QTEST_GUILESS_MAIN(WaylandShortcutsTest)
#include "tst_waylandshortcuts.moc"

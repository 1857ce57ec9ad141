#include "NubraCore/Vocabulary/L10n.h"
#include "NubraPlatform/DesktopCapabilities.h"
#include "NubraPlatform/DesktopSession.h"

#include <QTest>

#include <algorithm>

namespace {

QProcessEnvironment environment(const QStringList& assignments) {
    QProcessEnvironment env;
    for (const QString& assignment : assignments)
        env.insert(assignment.section(u'=', 0, 0), assignment.section(u'=', 1));
    return env;
}

} // namespace

class DesktopSessionTest : public QObject {
    Q_OBJECT

private slots:
    void cleanup() { L10n::setOverride(std::nullopt); }

    void detectsKindAndCompositor_data() {
        QTest::addColumn<QStringList>("env");
        QTest::addColumn<DesktopSession::Kind>("kind");
        QTest::addColumn<DesktopSession::Family>("family");
        QTest::addColumn<QString>("compositor");
        using K = DesktopSession::Kind;
        using F = DesktopSession::Family;
        QTest::newRow("nothing") << QStringList{} << K::none << F::other << QString();
        QTest::newRow("X11 under GNOME") << QStringList{u"DISPLAY=:0"_qs, u"XDG_CURRENT_DESKTOP=GNOME"_qs}
                                         << K::x11 << F::x11 << u"GNOME"_qs;
        QTest::newRow("GNOME on Wayland, Ubuntu's name first")
            << QStringList{u"WAYLAND_DISPLAY=wayland-0"_qs, u"DISPLAY=:0"_qs,
                           u"XDG_CURRENT_DESKTOP=ubuntu:GNOME"_qs}
            << K::waylandWithXWayland << F::gnome << u"GNOME"_qs;
        QTest::newRow("sway told by its socket")
            << QStringList{u"WAYLAND_DISPLAY=wayland-1"_qs, u"SWAYSOCK=/run/user/1000/sway-ipc.sock"_qs}
            << K::waylandOnly << F::wlroots << u"sway"_qs;
        QTest::newRow("Hyprland") << QStringList{u"WAYLAND_DISPLAY=wayland-1"_qs, u"DISPLAY=:1"_qs,
                                                 u"HYPRLAND_INSTANCE_SIGNATURE=abc"_qs}
                                  << K::waylandWithXWayland << F::wlroots << u"Hyprland"_qs;
        QTest::newRow("Plasma by its session type only")
            << QStringList{u"XDG_SESSION_TYPE=wayland"_qs, u"KDE_FULL_SESSION=true"_qs} << K::waylandOnly
            << F::kde << u"KDE Plasma"_qs;
        QTest::newRow("an unknown compositor")
            << QStringList{u"WAYLAND_DISPLAY=wayland-0"_qs, u"XDG_CURRENT_DESKTOP=Niri"_qs} << K::waylandOnly
            << F::other << QString();
    }
    void detectsKindAndCompositor() {
        QFETCH(QStringList, env);
        QFETCH(DesktopSession::Kind, kind);
        QFETCH(DesktopSession::Family, family);
        QFETCH(QString, compositor);
        const DesktopSession session = DesktopSession::detect(environment(env));
        QCOMPARE(session.kind, kind);
        QCOMPARE(session.family, family);
        QCOMPARE(session.compositor, compositor);
    }

    // What each kind of session yields, and that the report says the same.
    void capabilitiesFollowTheSession() {
        using C = DesktopCapabilities;
        const C x11 = C::forSession(DesktopSession::detect(environment({u"DISPLAY=:0"_qs})));
        QVERIFY(x11.seesAllGestures() && !x11.settledSelections && x11.showsBubble());
        QCOMPARE(x11.placement, C::Placement::exact);

        const QStringList gnomeEnv{u"WAYLAND_DISPLAY=wayland-0"_qs, u"DISPLAY=:0"_qs,
                                   u"XDG_CURRENT_DESKTOP=GNOME"_qs};
        const C gnome = C::forSession(DesktopSession::detect(environment(gnomeEnv)));
        QVERIFY(gnome.settledSelections && gnome.showsBubble() && !gnome.seesAllGestures());
        QCOMPARE(gnome.primary, C::Primary::xwaylandBridge);
        QCOMPARE(gnome.copy, C::Copy::x11WindowsOnly);
        QCOMPARE(gnome.placement, C::Placement::anchor);
        QCOMPARE(gnome.hotkey, C::Hotkey::desktopSettings);

        // KDE: what the portals offer decides the hot key and the copy into Wayland applications.
        const DesktopSession kdeSession = DesktopSession::detect(
            environment({u"WAYLAND_DISPLAY=wayland-0"_qs, u"DISPLAY=:0"_qs, u"XDG_CURRENT_DESKTOP=KDE"_qs}));
        const C kde = C::forSession(kdeSession, {false, true, false}, {true, true});
        QCOMPARE(kde.hotkey, C::Hotkey::portal);
        QCOMPARE(kde.copy, C::Copy::remoteDesktop);
        QCOMPARE(kde.placement, C::Placement::compositorOrigin);
        QCOMPARE(C::forSession(kdeSession, {false, true, false}).hotkey, C::Hotkey::x11WindowsOnly);

        const QStringList swayEnv{u"WAYLAND_DISPLAY=wayland-1"_qs, u"DISPLAY=:1"_qs, u"SWAYSOCK=/tmp/s"_qs};
        const C sway = C::forSession(DesktopSession::detect(environment(swayEnv)), {false, true, true});
        QCOMPARE(sway.primary, C::Primary::dataControl);
        QCOMPARE(sway.primaryProtocol, u"wlr-data-control-unstable-v1"_qs);
        QCOMPARE(sway.copy, C::Copy::virtualKeyboard);
        QCOMPARE(sway.placement, C::Placement::compositorOrigin);
        QCOMPARE(C::forSession(sway.session, {true, true, false}).primaryProtocol, u"ext-data-control-v1"_qs);

        const C bare = C::forSession(DesktopSession::detect(environment({u"WAYLAND_DISPLAY=w"_qs})));
        QVERIFY(!bare.showsBubble());
        QCOMPARE(bare.gestures, C::Gestures::none);
        QCOMPARE(bare.hotkey, C::Hotkey::none);

        L10n::setOverride(QStringLiteral("en"));
        const QStringList report = sway.report();
        QCOMPARE(report.first(),
                 u"Session: Wayland (sway), with XWayland for X11 applications and Nubra's own windows"_qs);
        QVERIFY(report.join(u'\n').contains(u"wlr-data-control-unstable-v1"_qs));
        QVERIFY(gnome.report().join(u'\n').contains(u"top centre of the screen"_qs));
        // Each capability says whether it works, and what to do where the user can make it work.
        const QList<Capability> listed = kde.listing();
        const QList<Capability> x11Listed = x11.listing();
        QCOMPARE(listed.size(), x11Listed.size());
        QVERIFY(std::all_of(x11Listed.cbegin(), x11Listed.cend(),
                            [](const Capability& c) { return c.state == Capability::State::works; }));
        const Capability& copy = listed.at(2);
        QCOMPARE(copy.state, Capability::State::needsStep);
        QVERIFY(copy.line().startsWith(u"→ Copy"_qs) &&
                copy.line().contains(u" — turn it on in Settings"_qs));
        QVERIFY(gnome.listing().at(4).line().contains(u"Settings › General"_qs));
        // Text on the screen: a Wayland desktop hands its picture over through its own dialog.
        QVERIFY(gnome.listing().last().line().contains(u"screenshot dialog"_qs) &&
                !x11Listed.last().line().contains(u"screenshot dialog"_qs));
        L10n::setOverride(QStringLiteral("zh"));
        QCOMPARE(bare.report().first(), u"会话：Wayland，没有 XWayland"_qs);
        QCOMPARE(bare.report().size(), x11.report().size());
    }
};

QTEST_APPLESS_MAIN(DesktopSessionTest)
#include "tst_desktopsession.moc"

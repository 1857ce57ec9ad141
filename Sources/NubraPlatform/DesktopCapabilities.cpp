#include "NubraPlatform/DesktopCapabilities.h"

#include "NubraCore/Vocabulary/L10n.h"

DesktopCapabilities DesktopCapabilities::forSession(const DesktopSession& session,
                                                    const WaylandGlobals& globals) {
    DesktopCapabilities can;
    can.session = session;
    if (!session.isWayland()) {
        if (session.kind == DesktopSession::Kind::none) {
            can.gestures = Gestures::none;
            can.primary = Primary::none;
            can.copy = Copy::none;
            can.placement = Placement::anchor;
            can.ownWindowsPlaced = false;
            can.hotkey = Hotkey::none;
        }
        return can;
    }

    const bool xwayland = session.kind == DesktopSession::Kind::waylandWithXWayland;
    can.settledSelections = true;
    can.gestures = xwayland ? Gestures::x11WindowsOnly : Gestures::none;
    if (globals.extDataControl || globals.wlrDataControl) {
        can.primary = Primary::dataControl;
        can.primaryProtocol = globals.extDataControl ? QStringLiteral("ext-data-control-v1")
                                                     : QStringLiteral("wlr-data-control-unstable-v1");
    } else if (xwayland && session.family == DesktopSession::Family::gnome) {
        // Mutter hands every Wayland primary selection to X11 clients; other compositors only while an
        // X11 window has focus.
        can.primary = Primary::xwaylandBridge;
    } else {
        can.primary = Primary::none;
    }
    if (globals.virtualKeyboard)
        can.copy = Copy::virtualKeyboard;
    else
        can.copy = xwayland ? Copy::x11WindowsOnly : Copy::none;
    // sway and i3-compatible compositors and Hyprland tell where the focused window is.
    const bool toldOrigins =
        session.compositor == QLatin1String("sway") || session.compositor == QLatin1String("Hyprland");
    can.placement = toldOrigins && xwayland ? Placement::compositorOrigin : Placement::anchor;
    can.ownWindowsPlaced = xwayland;
    can.hotkey = xwayland ? Hotkey::x11WindowsOnly : Hotkey::none;
    return can;
}

namespace {

QString sessionLine(const DesktopSession& session) {
    const QString name =
        session.compositor.isEmpty() ? QString() : QStringLiteral(" (") + session.compositor + u')';
    const QString nameZh = session.compositor.isEmpty()
                               ? QString()
                               : QStringLiteral("（") + session.compositor + QStringLiteral("）");
    switch (session.kind) {
    case DesktopSession::Kind::none:
        return L10n::t(QStringLiteral("Session: no graphical session found"),
                       QStringLiteral("会话：未找到图形会话"));
    case DesktopSession::Kind::x11:
        return L10n::t(QStringLiteral("Session: X11") + name, QStringLiteral("会话：X11") + nameZh);
    case DesktopSession::Kind::waylandWithXWayland:
        return L10n::t(QStringLiteral("Session: Wayland") + name +
                           QStringLiteral(", with XWayland for X11 applications and Nubra's own windows"),
                       QStringLiteral("会话：Wayland") + nameZh +
                           QStringLiteral("，X11 应用与 Nubra 自己的窗口经由 XWayland"));
    case DesktopSession::Kind::waylandOnly:
        return L10n::t(QStringLiteral("Session: Wayland") + name + QStringLiteral(", without XWayland"),
                       QStringLiteral("会话：Wayland") + nameZh + QStringLiteral("，没有 XWayland"));
    }
    return {};
}

QString triggerLine(const DesktopCapabilities& can) {
    const QString settled = L10n::t(QStringLiteral("a selection that has stopped changing for 0.3 s"),
                                    QStringLiteral("停止变化 0.3 秒的选区"));
    switch (can.gestures) {
    case DesktopCapabilities::Gestures::everywhere:
        return L10n::t(QStringLiteral("Noticing selections: mouse releases ✓"),
                       QStringLiteral("发现选区：鼠标松开 ✓"));
    case DesktopCapabilities::Gestures::x11WindowsOnly:
        return L10n::t(QStringLiteral("Noticing selections: mouse releases in X11 applications; in Wayland "
                                      "applications ") +
                           settled + QStringLiteral(" ✓"),
                       QStringLiteral("发现选区：X11 应用中看鼠标松开；Wayland 应用中看") + settled +
                           QStringLiteral(" ✓"));
    case DesktopCapabilities::Gestures::none:
        break;
    }
    if (!can.settledSelections)
        return L10n::t(QStringLiteral("Noticing selections: not possible here ✗"),
                       QStringLiteral("发现选区：此处无法实现 ✗"));
    return L10n::t(QStringLiteral("Noticing selections: ") + settled + QStringLiteral(" ✓"),
                   QStringLiteral("发现选区：") + settled + QStringLiteral(" ✓"));
}

QString readingLine(const DesktopCapabilities& can) {
    switch (can.primary) {
    case DesktopCapabilities::Primary::x11:
        return L10n::t(QStringLiteral("Reading: accessibility, then the primary selection ✓"),
                       QStringLiteral("读取：辅助功能，其次是主选区（PRIMARY）✓"));
    case DesktopCapabilities::Primary::xwaylandBridge:
        return L10n::t(
            QStringLiteral("Reading: accessibility, then the primary selection through XWayland ✓"),
            QStringLiteral("读取：辅助功能，其次是经由 XWayland 的主选区 ✓"));
    case DesktopCapabilities::Primary::dataControl:
        return L10n::t(QStringLiteral("Reading: accessibility, then the primary selection through ") +
                           can.primaryProtocol + QStringLiteral(" ✓"),
                       QStringLiteral("读取：辅助功能，其次是经由 ") + can.primaryProtocol +
                           QStringLiteral(" 的主选区 ✓"));
    case DesktopCapabilities::Primary::none:
        break;
    }
    return L10n::t(
        QStringLiteral("Reading: accessibility only; this desktop does not share the primary selection "
                       "with Nubra"),
        QStringLiteral("读取：仅辅助功能；此桌面不向 Nubra 提供主选区"));
}

QString copyLine(const DesktopCapabilities& can) {
    switch (can.copy) {
    case DesktopCapabilities::Copy::xtest:
        return L10n::t(QStringLiteral("Copy for applications without accessibility: ✓"),
                       QStringLiteral("为不支持辅助功能的应用代为复制：✓"));
    case DesktopCapabilities::Copy::virtualKeyboard:
        return L10n::t(
            QStringLiteral("Copy for applications without accessibility: through a virtual keyboard ✓"),
            QStringLiteral("为不支持辅助功能的应用代为复制：经由虚拟键盘 ✓"));
    case DesktopCapabilities::Copy::x11WindowsOnly:
        return L10n::t(
            QStringLiteral("Copy for applications without accessibility: X11 applications only; not "
                           "available for Wayland applications on this desktop"),
            QStringLiteral("为不支持辅助功能的应用代为复制：仅限 X11 应用；此桌面上的 Wayland 应用不可用"));
    case DesktopCapabilities::Copy::none:
        break;
    }
    return L10n::t(
        QStringLiteral("Copy for applications without accessibility: not available on this desktop ✗"),
        QStringLiteral("为不支持辅助功能的应用代为复制：此桌面不可用 ✗"));
}

QString placementLine(const DesktopCapabilities& can) {
    if (!can.ownWindowsPlaced)
        return L10n::t(
            QStringLiteral("Bubble: not possible without XWayland; the card opens where the desktop puts "
                           "it ✗"),
            QStringLiteral("气泡：没有 XWayland 时无法显示；卡片出现在桌面安排的位置 ✗"));
    switch (can.placement) {
    case DesktopCapabilities::Placement::exact:
        return L10n::t(QStringLiteral("Bubble and card: next to the selection ✓"),
                       QStringLiteral("气泡与卡片：紧挨选区 ✓"));
    case DesktopCapabilities::Placement::compositorOrigin:
        return L10n::t(QStringLiteral("Bubble and card: next to the selection (window positions from ") +
                           can.session.compositor + QStringLiteral(") ✓"),
                       QStringLiteral("气泡与卡片：紧挨选区（窗口位置来自 ") + can.session.compositor +
                           QStringLiteral("）✓"));
    case DesktopCapabilities::Placement::anchor:
        break;
    }
    return L10n::t(
        QStringLiteral("Bubble and card: next to the selection in X11 applications; for Wayland "
                       "applications, whose window positions this desktop keeps to itself, at the top "
                       "centre of the screen"),
        QStringLiteral("气泡与卡片：X11 应用中紧挨选区；Wayland 应用的窗口位置此桌面不予提供，"
                       "因此显示在屏幕上方正中"));
}

QString hotkeyLine(const DesktopCapabilities& can) {
    switch (can.hotkey) {
    case DesktopCapabilities::Hotkey::grab:
        return L10n::t(QStringLiteral("Hot key: ✓"), QStringLiteral("快捷键：✓"));
    case DesktopCapabilities::Hotkey::x11WindowsOnly:
        return L10n::t(QStringLiteral("Hot key: only while an X11 application is in front"),
                       QStringLiteral("快捷键：仅当 X11 应用在前台时可用"));
    case DesktopCapabilities::Hotkey::none:
        break;
    }
    return L10n::t(QStringLiteral("Hot key: not available on this desktop ✗"),
                   QStringLiteral("快捷键：此桌面不可用 ✗"));
}

} // namespace

QStringList DesktopCapabilities::report() const {
    return {sessionLine(session), triggerLine(*this),   readingLine(*this),
            copyLine(*this),      placementLine(*this), hotkeyLine(*this)};
}

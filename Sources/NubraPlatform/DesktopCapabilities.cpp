#include "NubraPlatform/DesktopCapabilities.h"

#include "NubraCore/Vocabulary/L10n.h"

DesktopCapabilities DesktopCapabilities::forSession(const DesktopSession& session,
                                                    const WaylandGlobals& globals,
                                                    const PortalOffers& portals) {
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
    const bool gnome = session.family == DesktopSession::Family::gnome;
    can.settledSelections = true;
    can.gestures = xwayland ? Gestures::x11WindowsOnly : Gestures::none;
    if (globals.extDataControl || globals.wlrDataControl) {
        can.primary = Primary::dataControl;
        can.primaryProtocol = globals.extDataControl ? QStringLiteral("ext-data-control-v1")
                                                     : QStringLiteral("wlr-data-control-unstable-v1");
    } else if (xwayland && gnome) {
        // Mutter hands every Wayland primary selection to X11 clients; other compositors only while an
        // X11 window has focus.
        can.primary = Primary::xwaylandBridge;
    } else {
        can.primary = Primary::none;
    }
    if (globals.virtualKeyboard)
        can.copy = Copy::virtualKeyboard;
    else if (portals.remoteDesktop)
        can.copy = Copy::remoteDesktop;
    else
        can.copy = xwayland ? Copy::x11WindowsOnly : Copy::none;
    // sway and i3-compatible compositors and Hyprland tell where the focused window is, KWin through a
    // script of ours.
    const bool toldOrigins = session.compositor == QLatin1String("sway") ||
                             session.compositor == QLatin1String("Hyprland") ||
                             session.family == DesktopSession::Family::kde;
    can.placement = toldOrigins && xwayland ? Placement::compositorOrigin : Placement::anchor;
    can.ownWindowsPlaced = xwayland;
    if (portals.globalShortcuts)
        can.hotkey = Hotkey::portal;
    else if (gnome || session.family == DesktopSession::Family::wlroots)
        can.hotkey = Hotkey::desktopSettings;
    else
        can.hotkey = xwayland ? Hotkey::x11WindowsOnly : Hotkey::none;
    return can;
}

QString Capability::mark() const {
    switch (state) {
    case State::works:
        return QStringLiteral("✓ ");
    case State::needsStep:
        return QStringLiteral("→ ");
    case State::notPossible:
        break;
    }
    return QStringLiteral("✗ ");
}

QString Capability::line() const {
    QString text = mark() + name;
    if (!detail.isEmpty())
        text += L10n::t(QStringLiteral(": "), QStringLiteral("：")) + detail;
    if (!step.isEmpty())
        text += QStringLiteral(" — ") + step;
    return text;
}

namespace {

using State = Capability::State;

Capability named(const QString& name) {
    Capability entry;
    entry.name = name;
    return entry;
}

Capability noticingEntry(const DesktopCapabilities& can) {
    Capability entry = named(L10n::t(QStringLiteral("Noticing selections"), QStringLiteral("发现选区")));
    const QString settled = L10n::t(QStringLiteral("a selection that has stopped changing for 0.3 s"),
                                    QStringLiteral("停止变化 0.3 秒的选区"));
    switch (can.gestures) {
    case DesktopCapabilities::Gestures::everywhere:
        entry.detail = L10n::t(QStringLiteral("mouse releases"), QStringLiteral("鼠标松开"));
        return entry;
    case DesktopCapabilities::Gestures::x11WindowsOnly:
        entry.detail =
            L10n::t(QStringLiteral("mouse releases in X11 applications; in Wayland applications ") + settled,
                    QStringLiteral("X11 应用中看鼠标松开；Wayland 应用中看") + settled);
        return entry;
    case DesktopCapabilities::Gestures::none:
        break;
    }
    if (can.settledSelections) {
        entry.detail = settled;
    } else {
        entry.state = State::notPossible;
        entry.detail =
            L10n::t(QStringLiteral("no graphical session found"), QStringLiteral("未找到图形会话"));
    }
    return entry;
}

Capability primaryEntry(const DesktopCapabilities& can) {
    Capability entry =
        named(L10n::t(QStringLiteral("Primary selection"), QStringLiteral("主选区（PRIMARY）")));
    switch (can.primary) {
    case DesktopCapabilities::Primary::x11:
        return entry;
    case DesktopCapabilities::Primary::xwaylandBridge:
        entry.detail = L10n::t(QStringLiteral("through XWayland"), QStringLiteral("经由 XWayland"));
        return entry;
    case DesktopCapabilities::Primary::dataControl:
        entry.detail = L10n::t(QStringLiteral("through "), QStringLiteral("经由 ")) + can.primaryProtocol;
        return entry;
    case DesktopCapabilities::Primary::none:
        break;
    }
    entry.state = State::notPossible;
    entry.detail = L10n::t(QStringLiteral("this desktop does not share it with Nubra"),
                           QStringLiteral("此桌面不向 Nubra 提供"));
    return entry;
}

Capability copyEntry(const DesktopCapabilities& can) {
    Capability entry = named(L10n::t(QStringLiteral("Copy for applications without accessibility"),
                                     QStringLiteral("为不支持辅助功能的应用代为复制")));
    switch (can.copy) {
    case DesktopCapabilities::Copy::xtest:
        return entry;
    case DesktopCapabilities::Copy::virtualKeyboard:
        entry.detail = L10n::t(QStringLiteral("through a virtual keyboard"), QStringLiteral("经由虚拟键盘"));
        return entry;
    case DesktopCapabilities::Copy::remoteDesktop:
        if (can.remoteDesktopAllowed) {
            entry.detail = L10n::t(QStringLiteral("through the desktop's remote control"),
                                   QStringLiteral("经由桌面的远程控制"));
            return entry;
        }
        entry.state = State::needsStep;
        entry.detail =
            L10n::t(QStringLiteral("through the desktop's remote control, off until you turn it on"),
                    QStringLiteral("经由桌面的远程控制，需要你开启"));
        entry.step = L10n::t(QStringLiteral("turn it on in Settings › Privacy; the desktop asks for your "
                                            "permission"),
                             QStringLiteral("在“设置 › 隐私”中开启；桌面会请求你的许可"));
        return entry;
    case DesktopCapabilities::Copy::x11WindowsOnly:
        entry.state = State::notPossible;
        entry.detail = L10n::t(QStringLiteral("X11 applications only; not for Wayland applications on this "
                                              "desktop"),
                               QStringLiteral("仅限 X11 应用；此桌面上的 Wayland 应用不可用"));
        return entry;
    case DesktopCapabilities::Copy::none:
        break;
    }
    entry.state = State::notPossible;
    entry.detail = L10n::t(QStringLiteral("not available on this desktop"), QStringLiteral("此桌面不可用"));
    return entry;
}

Capability placementEntry(const DesktopCapabilities& can) {
    Capability entry = named(L10n::t(QStringLiteral("Bubble and card next to the selection"),
                                     QStringLiteral("气泡与卡片紧挨选区")));
    if (!can.ownWindowsPlaced) {
        entry.state = State::notPossible;
        entry.detail = L10n::t(QStringLiteral("no bubble without XWayland; the card opens where the desktop "
                                              "puts it"),
                               QStringLiteral("没有 XWayland 时无法显示气泡；卡片出现在桌面安排的位置"));
        return entry;
    }
    switch (can.placement) {
    case DesktopCapabilities::Placement::exact:
        return entry;
    case DesktopCapabilities::Placement::compositorOrigin:
        entry.detail = L10n::t(QStringLiteral("window positions from "), QStringLiteral("窗口位置来自 ")) +
                       can.session.compositor;
        return entry;
    case DesktopCapabilities::Placement::anchor:
        break;
    }
    entry.state = State::notPossible;
    entry.detail = L10n::t(
        QStringLiteral("in X11 applications only; this desktop keeps the place of Wayland applications' "
                       "windows to itself, so for them both go to the top centre of the screen"),
        QStringLiteral("仅限 X11 应用；此桌面不提供 Wayland 应用的窗口位置，因此它们的气泡与卡片显示在"
                       "屏幕上方正中"));
    return entry;
}

QString manualShortcutStep() {
    return L10n::t(
        QStringLiteral("bind a shortcut to the command “nubra --lookup” in your desktop's keyboard "
                       "settings"),
        QStringLiteral("在桌面的键盘设置中，为命令“nubra --lookup”设一个快捷键"));
}

// Where the area to read is marked: on X11 a still picture of every screen; a Wayland desktop hands the
// picture over only through its screenshot dialog.
Capability screenTextEntry(const DesktopCapabilities& can) {
    Capability entry = named(L10n::t(QStringLiteral("Text on the screen"), QStringLiteral("屏幕文字")));
    entry.detail =
        can.session.isWayland()
            ? L10n::t(QStringLiteral("the desktop's screenshot dialog comes first, then the area is marked"),
                      QStringLiteral("先经由桌面的截图对话框，再框选区域"))
            : L10n::t(QStringLiteral("marked on a still picture of the screens"),
                      QStringLiteral("在屏幕的静止画面上框选"));
    return entry;
}

Capability hotkeyEntry(const DesktopCapabilities& can) {
    Capability entry = named(L10n::t(QStringLiteral("Hot key"), QStringLiteral("快捷键")));
    switch (can.hotkey) {
    case DesktopCapabilities::Hotkey::grab:
        return entry;
    case DesktopCapabilities::Hotkey::portal:
        entry.detail = L10n::t(QStringLiteral("through the desktop's global shortcuts, which may ask you to "
                                              "confirm the keys"),
                               QStringLiteral("经由桌面的全局快捷键，桌面可能请你确认按键"));
        return entry;
    case DesktopCapabilities::Hotkey::desktopSettings:
        if (can.desktopShortcutActive) {
            entry.state = State::works;
            entry.detail = L10n::t(QStringLiteral("the desktop runs Nubra on its shortcut"),
                                   QStringLiteral("桌面按其快捷键启动 Nubra"));
            return entry;
        }
        entry.state = State::needsStep;
        entry.detail = L10n::t(QStringLiteral("the desktop runs Nubra on a shortcut in its own settings"),
                               QStringLiteral("由桌面按其自身设置中的快捷键启动 Nubra"));
        entry.step = L10n::t(QStringLiteral("add the shortcut in Settings › General"),
                             QStringLiteral("在“设置 › 通用”中添加快捷键"));
        return entry;
    case DesktopCapabilities::Hotkey::x11WindowsOnly:
        entry.state = State::needsStep;
        entry.detail = L10n::t(QStringLiteral("only while an X11 application is in front"),
                               QStringLiteral("仅当 X11 应用在前台时可用"));
        entry.step = manualShortcutStep();
        return entry;
    case DesktopCapabilities::Hotkey::none:
        break;
    }
    if (can.session.isWayland()) {
        entry.state = State::needsStep;
        entry.detail = L10n::t(QStringLiteral("this desktop passes no keys to Nubra"),
                               QStringLiteral("此桌面不向 Nubra 传递按键"));
        entry.step = manualShortcutStep();
    } else {
        entry.state = State::notPossible;
    }
    return entry;
}

} // namespace

QString DesktopCapabilities::sessionLine() const {
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

QList<Capability> DesktopCapabilities::listing() const {
    return {noticingEntry(*this),  primaryEntry(*this), copyEntry(*this),
            placementEntry(*this), hotkeyEntry(*this),  screenTextEntry(*this)};
}

QStringList DesktopCapabilities::report() const {
    QStringList lines{sessionLine()};
    for (const Capability& entry : listing())
        lines << entry.line();
    return lines;
}

#include "NubraApp/Settings/TriggerModeNote.h"

#include "NubraCore/Vocabulary/L10n.h"

namespace TriggerModeNote {

QString text(TriggerMode mode, const DesktopCapabilities& capabilities) {
    if (mode == TriggerMode::hotkey) {
        switch (capabilities.hotkey) {
        case DesktopCapabilities::Hotkey::grab:
            return {};
        case DesktopCapabilities::Hotkey::portal:
            return L10n::t(
                QStringLiteral("The desktop binds the hot key for Nubra and may ask you to confirm "
                               "the keys."),
                QStringLiteral("桌面会为 Nubra 绑定快捷键，并可能请你确认按键。"));
        case DesktopCapabilities::Hotkey::desktopSettings:
            return L10n::t(
                QStringLiteral("On this desktop the hot key is a shortcut in the desktop's own "
                               "settings that runs “nubra --lookup”."),
                QStringLiteral("在此桌面上，快捷键是桌面自身设置中运行“nubra --lookup”的快捷键。"));
        case DesktopCapabilities::Hotkey::x11WindowsOnly:
        case DesktopCapabilities::Hotkey::none:
            break;
        }
        const QString manual = L10n::t(
            QStringLiteral(
                " A shortcut for “nubra --lookup” in the desktop's keyboard settings works everywhere."),
            QStringLiteral("在桌面的键盘设置中为“nubra --lookup”设一个快捷键，即可处处使用。"));
        if (capabilities.hotkey == DesktopCapabilities::Hotkey::x11WindowsOnly)
            return L10n::t(
                       QStringLiteral("On this desktop the hot key works only while an X11 application is "
                                      "in front."),
                       QStringLiteral("在此桌面上，快捷键仅在 X11 应用位于前台时有效。")) +
                   manual;
        return L10n::t(QStringLiteral("This desktop passes no keys to Nubra."),
                       QStringLiteral("此桌面不向 Nubra 传递按键。")) +
               manual;
    }
    if (capabilities.seesAllGestures())
        return {};
    QString note;
    switch (mode) {
    case TriggerMode::onSelection:
        note =
            L10n::t(QStringLiteral("In Wayland applications a selection counts once it has stopped changing "
                                   "for 0.3 seconds."),
                    QStringLiteral("在 Wayland 应用中，选区停止变化 0.3 秒后才算选定。"));
        break;
    case TriggerMode::optionSelection:
        note =
            L10n::t(QStringLiteral("This desktop does not show Nubra the keys held in Wayland applications: "
                                   "there, select the text and press the hot key."),
                    QStringLiteral("此桌面不让 Nubra 看到在 Wayland 应用中按住的键：在这些应用中，"
                                   "请选中文字后按快捷键。"));
        break;
    case TriggerMode::doubleClick:
        note =
            L10n::t(QStringLiteral("This desktop does not show Nubra clicks in Wayland applications: there, "
                                   "selecting a single word counts as a double click."),
                    QStringLiteral("此桌面不让 Nubra 看到 Wayland 应用中的点击：在这些应用中，"
                                   "选中单个词即视为双击。"));
        break;
    case TriggerMode::hotkey:
        break;
    }
    if (!capabilities.showsBubble())
        note += L10n::t(QStringLiteral(" Without XWayland the bubble cannot be shown."),
                        QStringLiteral("没有 XWayland 时无法显示气泡。"));
    return note;
}

Capability availability(TriggerMode mode, const DesktopCapabilities& capabilities) {
    Capability status;
    const auto set = [&status](Capability::State state, const QString& en, const QString& zh) {
        status.state = state;
        status.detail = L10n::t(en, zh);
        return status;
    };
    const auto works = [&] {
        return set(Capability::State::works, QStringLiteral("works here"), QStringLiteral("可用"));
    };
    const auto x11Only = [&] {
        return set(Capability::State::needsStep, QStringLiteral("X11 applications only"),
                   QStringLiteral("仅限 X11 应用"));
    };
    if (mode == TriggerMode::hotkey) {
        switch (capabilities.hotkey) {
        case DesktopCapabilities::Hotkey::grab:
        case DesktopCapabilities::Hotkey::portal:
            return works();
        case DesktopCapabilities::Hotkey::x11WindowsOnly:
            return x11Only();
        case DesktopCapabilities::Hotkey::desktopSettings:
            break;
        case DesktopCapabilities::Hotkey::none:
            if (!capabilities.session.isWayland())
                return set(Capability::State::notPossible, QStringLiteral("not possible here"),
                           QStringLiteral("此处不可用"));
            break;
        }
        return set(Capability::State::needsStep, QStringLiteral("needs a desktop shortcut"),
                   QStringLiteral("需设置桌面快捷键"));
    }
    if (!capabilities.showsBubble())
        return set(Capability::State::notPossible, QStringLiteral("no bubble here"),
                   QStringLiteral("此处无气泡"));
    switch (capabilities.gestures) {
    case DesktopCapabilities::Gestures::everywhere:
        return works();
    case DesktopCapabilities::Gestures::x11WindowsOnly:
    case DesktopCapabilities::Gestures::none:
        break;
    }
    // Settled selections stand in for the release; Alt held in a Wayland application stays unseen.
    if (mode == TriggerMode::optionSelection)
        return x11Only();
    return works();
}

} // namespace TriggerModeNote

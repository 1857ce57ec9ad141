#include "NubraApp/Settings/TriggerModeNote.h"

#include "NubraCore/Vocabulary/L10n.h"

namespace TriggerModeNote {

QString text(TriggerMode mode, const DesktopCapabilities& capabilities) {
    if (mode == TriggerMode::hotkey) {
        switch (capabilities.hotkey) {
        case DesktopCapabilities::Hotkey::grab:
            return {};
        case DesktopCapabilities::Hotkey::x11WindowsOnly:
            return L10n::t(
                QStringLiteral("On this desktop the hot key works only while an X11 application is in "
                               "front."),
                QStringLiteral("在此桌面上，快捷键仅在 X11 应用位于前台时有效。"));
        case DesktopCapabilities::Hotkey::none:
            return L10n::t(QStringLiteral("The hot key is not available on this desktop."),
                           QStringLiteral("此桌面不支持快捷键。"));
        }
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

} // namespace TriggerModeNote

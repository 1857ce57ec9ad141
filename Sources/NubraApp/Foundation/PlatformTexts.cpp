#include "NubraApp/Foundation/PlatformTexts.h"

#include "NubraCore/Support/DebugLog.h"
#include "NubraCore/Vocabulary/L10n.h"

#include <QCoreApplication>
#include <QLibraryInfo>
#include <QLocale>
#include <QTranslator>

#include <array>
#include <string_view>

namespace {

struct Pair {
    std::u16string_view en;
    std::u16string_view zh;
};

struct Entry {
    PlatformText id;
    Pair macOS;
    Pair linuxDesktop;
};

// On Linux the "permission" is the desktop's accessibility switch (the AT-SPI bus), and the icon sits
// in the panel's system tray. Browsers on macOS answer accessibility whenever it asks, so the guide's
// note about them is Linux's alone.
constexpr std::array entries{
    Entry{PlatformText::selectTextFirst,
          {u"\n\nSelect text in Safari/Notes first, then try again.",
           u"\n\n请先在 Safari/备忘录等应用里选中一段文字，再点本项重试。"},
          {u"\n\nSelect text in a text editor or browser first, then try again.",
           u"\n\n请先在文本编辑器或浏览器等应用里选中一段文字，再点本项重试。"}},
    Entry{PlatformText::diagnosisApiDisabled,
          {u"AX probe: apiDisabled ✗ (permission not effective for this build)",
           u"AX 探测：apiDisabled ✗（权限未对当前构建生效）"},
          {u"Accessibility bus probe: apiDisabled ✗ (the accessibility switch is off)",
           u"辅助功能总线探测：apiDisabled ✗（辅助功能开关未打开）"}},
    Entry{PlatformText::diagnosisToggleAdvice,
          {u"→ Toggle Nubra off and on in System Settings; if that fails, restart the app.",
           u"→ 建议：系统设置里把 Nubra 开关关掉再打开；无效则重启应用。"},
          {u"→ Turn the desktop's accessibility switch off and on; if that fails, restart the app.",
           u"→ 建议：把桌面的辅助功能开关关掉再打开；无效则重启应用。"}},
    Entry{PlatformText::diagnosisCommonCause,
          {u"Common cause: rebuilds change the signing fingerprint, so the old grant is stale —",
           u"常见原因：重新构建后签名指纹变化，系统会保留旧授权记录但不再生效——"},
          {u"Common cause: an application that shares no text with accessibility —",
           u"常见原因：应用未向辅助功能公开文字——"}},
    Entry{PlatformText::diagnosisCommonCauseFix,
          {u"toggle it off and on to fix.", u"关掉再打开开关即可修复。"},
          {u"Nubra then reads the selection without the text around it.",
           u"此时 Nubra 读取选中的内容时不含前后文。"}},
    Entry{PlatformText::openSettingsButton,
          {u"Open System Settings", u"打开系统设置"},
          {u"Turn On Accessibility", u"打开辅助功能开关"}},
    Entry{PlatformText::onboardingStepOpenSettings,
          {u"1. Click the button below to open System Settings", u"1. 点击下方按钮打开系统设置"},
          {u"1. Click the button below to turn on the desktop's accessibility switch",
           u"1. 点击下方按钮打开桌面的辅助功能开关"}},
    Entry{
        PlatformText::onboardingStepFindSwitch,
        {u"2. Find Nubra in the list and turn it on", u"2. 在列表中找到 Nubra 并打开开关"},
        {u"2. Or turn on accessibility in your desktop's settings", u"2. 或在桌面的系统设置里打开辅助功能"}},
    Entry{PlatformText::waitingForSwitch,
          {u"Waiting for you to enable it in System Settings…", u"等待你在系统设置中打开开关…"},
          {u"Waiting for the accessibility switch to turn on…", u"等待辅助功能开关打开…"}},
    Entry{PlatformText::guideTreelessNote,
          {u"", u""},
          {u"Chrome, Chromium, Edge and Electron apps such as VS Code share their text only when asked; "
           u"Nubra asks them. Where that is not enough, start the browsers with "
           u"--force-renderer-accessibility and Electron apps with the environment variable "
           u"ACCESSIBILITY_ENABLED=1.",
           u"Chrome、Chromium、Edge 以及 VS Code 等 Electron 应用只在被请求时才公开文字，Nubra 会主动请求。"
           u"若仍读不到前后文，请为浏览器加上 --force-renderer-accessibility 参数启动，"
           u"为 Electron 应用设置环境变量 ACCESSIBILITY_ENABLED=1。"}},
    Entry{PlatformText::welcomeIconLocation,
          {u"The icon lives in the top-right menu bar — select any text to get an instant explanation.",
           u"图标就在屏幕右上角菜单栏——选中任意文字即可划词解释。"},
          {u"The icon lives in your panel's system tray — select any text to get an instant explanation.",
           u"图标就在面板的系统托盘里——选中任意文字即可划词解释。"}},
    Entry{PlatformText::keepHistoryToggle,
          {u"Keep history on this Mac", u"记录历史到本地"},
          {u"Keep history on this computer", u"记录历史到本地"}},
    Entry{PlatformText::historyStaysLocal,
          {u"History stays on this Mac and is never uploaded. Turning it off stops new entries.",
           u"历史记录只保存在本机，永不上传；关闭记录后不再写入。"},
          {u"History stays on this computer and is never uploaded. Turning it off stops new entries.",
           u"历史记录只保存在本机，永不上传；关闭记录后不再写入。"}},
    Entry{PlatformText::aboutTagline,
          {u"AI gloss in your menu bar — select, glance, keep reading.",
           u"Mac 菜单栏上的 AI 划词注解，选中即解，不打断阅读。"},
          {u"AI gloss in your system tray — select, glance, keep reading.",
           u"系统托盘里的 AI 划词注解，选中即解，不打断阅读。"}},
    Entry{PlatformText::altSelectionTrigger,
          {u"⌥ + Selection", u"⌥ + 选中"},
          {u"Alt + Selection", u"Alt + 选中"}},
    Entry{PlatformText::superSelectionTrigger,
          {u"⌘ + Selection", u"⌘ + 选中"},
          {u"Super + Selection", u"Super + 选中"}},
};

QString toQString(std::u16string_view text) {
    return QString::fromUtf16(text.data(), qsizetype(text.size()));
}

} // namespace

namespace PlatformTexts {

DesktopPlatform current() {
#ifdef Q_OS_MACOS
    return DesktopPlatform::macOS;
#else
    return DesktopPlatform::linuxDesktop;
#endif
}

QString text(PlatformText id) {
    return text(id, current());
}

QString text(PlatformText id, DesktopPlatform platform) {
    for (const Entry& entry : entries) {
        if (entry.id != id)
            continue;
        const Pair& pair = platform == DesktopPlatform::macOS ? entry.macOS : entry.linuxDesktop;
        return L10n::t(toQString(pair.en), toQString(pair.zh));
    }
    Q_UNREACHABLE();
    return {};
}

QString triggerModeName(TriggerMode mode, OptionModifier modifier) {
    if (mode != TriggerMode::optionSelection)
        return displayName(mode);
    return text(modifier == OptionModifier::command ? PlatformText::superSelectionTrigger
                                                    : PlatformText::altSelectionTrigger);
}

bool installQtTranslations(QCoreApplication& app) {
    if (!L10n::isZh())
        return false;
    // The system locale decides between Simplified and Traditional when it is Chinese itself; an
    // override to Chinese on an English system gets the Simplified catalogue.
    const QLocale system = QLocale::system();
    const QLocale chinese = system.language() == QLocale::Chinese
                                ? system
                                : QLocale(QLocale::Chinese, QLocale::SimplifiedHanScript, QLocale::China);
    auto* translator = new QTranslator(&app);
    const QString directory = QLibraryInfo::path(QLibraryInfo::TranslationsPath);
    if (!translator->load(chinese, QStringLiteral("qtbase"), QStringLiteral("_"), directory)) {
        nbDebug(QStringLiteral("l10n: no Qt translations for ") + chinese.name() + QStringLiteral(" in ") +
                directory);
        delete translator;
        return false;
    }
    return QCoreApplication::installTranslator(translator);
}

} // namespace PlatformTexts

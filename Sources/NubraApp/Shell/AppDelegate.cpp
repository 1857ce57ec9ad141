#include "NubraApp/Shell/AppDelegate.h"

#include "NubraApp/Capture/CaptureGate.h"
#include "NubraApp/Foundation/Alert.h"
#include "NubraApp/Shell/BundleDesktopEntry.h"
#include "NubraApp/Shell/NubraWindows.h"
#include "NubraBuildInfo/BuildInfo.h"
#include "NubraCore/Capture/HotkeyCombo.h"
#include "NubraCore/History/HistoryFile.h"
#include "NubraCore/Service/TokenStore.h"
#include "NubraCore/Support/DebugLog.h"
#include "NubraCore/Vocabulary/L10n.h"
#include "NubraPlatform/DesktopShortcuts.h"
#include "NubraPlatform/SyntheticKeyboard.h"
#include "NubraPlatform/ocr/ModuleRecognizer.h"

#include <QCoreApplication>
#include <QPointer>
#include <QThreadPool>
#include <QTimer>

namespace {

// Updates are announced by the service the lookups go to, so --dev and NUBRA_BASE_URL move both; the
// new version starts against the same service.
UpdateFlow::Environment updateEnvironment(const QUrl& baseURL) {
    QStringList relaunch;
    if (QCoreApplication::arguments().contains(QStringLiteral("--dev")))
        relaunch << QStringLiteral("--dev");
    return {baseURL, BuildInfo::version(), Installation::current(), BuildInfo::updatePublicKeyPem(), relaunch,
            {}};
}

} // namespace

AppDelegate::AppDelegate(std::unique_ptr<PlatformDesktop> platform, const QUrl& baseURL, QObject* parent)
    : QObject(parent), m_platform(std::move(platform)), m_desktop(m_platform->desktop()),
      m_secrets(QString::fromLatin1(TokenStore::service)),
      m_state(m_defaults, m_secrets, baseURL, HistoryFile::defaultPath()), m_service(m_desktop),
      m_trust(m_desktop.accessibility, m_desktop.tasks),
      m_overlay(m_desktop.frontApplications, m_desktop.screen),
      m_monitor(m_desktop, m_service, m_bubble, m_overlay), m_hotkeys(m_desktop.hotkeys),
      m_recognizer(std::make_unique<ModuleRecognizer>()),
      m_screenText(m_desktop, *m_recognizer, m_areaPicker, m_overlay, m_state),
      m_screenTextHotkeys(m_desktop.hotkeys, HotkeyManager::screenTextHotKeyId),
      m_permission(m_desktop, m_service, m_trust), m_windowServices{m_desktop, m_hotkeys, m_screenTextHotkeys,
                                                                    m_trust},
      m_tray(m_state, m_desktop), m_updates(updateEnvironment(baseURL)) {
    AppStateHolder::shared().install(&m_state);
    NubraWindows::install(&m_windowServices);
    OverlayController::install(&m_overlay);
    Pronouncer::install(&m_pronouncer);

    connect(&m_permission, &PermissionMonitor::startCapture, this, &AppDelegate::startSelectionMonitor);
    connect(&m_permission, &PermissionMonitor::permissionGranted, this,
            [this] { NubraWindows::showPermissionFlow(m_state, NubraWindows::Focus::leave); });
    connect(&m_permission, &PermissionMonitor::closePermissionWindow, this,
            &NubraWindows::closePermissionFlow);
    connect(&m_overlay, &OverlayController::explanationCompleted, this,
            [this]() { m_permission.notifyFirstGloss(m_state); });

    TrayMenu& menu = m_tray.menu();
    menu.setMonitorRunning([this]() { return m_monitor.isRunning(); });
    menu.setFeatureLines([this]() {
        const QString reason = m_recognizer->unavailableReason();
        QStringList lines{L10n::t(QStringLiteral("Text on the screen: "), QStringLiteral("屏幕文字：")) +
                          (m_recognizer->isAvailable() ? L10n::t(QStringLiteral("read on this computer ✓"),
                                                                 QStringLiteral("在本机识别 ✓"))
                                                       : QStringLiteral("✗ ") + reason)};
        if (m_recognizer->isAvailable() && !reason.isEmpty())
            lines << QStringLiteral("  ") + reason; // a language's data is missing
        lines << L10n::t(
            QStringLiteral("Anki: notes go to Anki while it runs with AnkiConnect, otherwise to a "
                           "file to import"),
            QStringLiteral("Anki：Anki 运行且装有 AnkiConnect 时直接添加，否则写入可导入的文件"));
        return lines;
    });
    connect(&menu, &TrayMenu::closeCardRequested, &m_overlay, &OverlayController::close);
    // Asked for in the menu, it runs even while selection popups are paused.
    connect(&menu, &TrayMenu::screenTextRequested, &m_screenText, &ScreenTextLookup::start);
    connect(&m_screenText, &ScreenTextLookup::unavailable, this, &AppDelegate::showScreenTextUnavailable);
    connect(&menu, &TrayMenu::checkForUpdatesRequested, this, [this]() { checkForUpdate(true); });
    connect(&menu, &TrayMenu::cancelActivityRequested, &m_updates, &UpdateFlow::cancelDownload);
    connect(&m_updates, &UpdateFlow::activityChanged, &m_tray, &TrayIcon::setActivity);
    connect(&m_updates, &UpdateFlow::noticeRequested, this, &NubraWindows::showUpdateNotice);
    connect(&m_updates, &UpdateFlow::quitRequested, this, []() { QCoreApplication::quit(); });

    AppSettings& settings = m_state.settings();
    connect(&settings, &AppSettings::autoHideChanged, this,
            [this]() { m_monitor.setAutoHideDismissEnabled(m_state.settings().autoHide()); });
    connect(&settings, &AppSettings::optionModifierChanged, this,
            [this]() { m_monitor.setOptionModifier(m_state.settings().optionModifier()); });
    connect(&settings, &AppSettings::triggerModeChanged, this, &AppDelegate::onTriggerModeChanged);
    connect(&settings, &AppSettings::remoteDesktopCopyChanged, this,
            [this]() { m_desktop.keyboard.setPermissionWanted(m_state.settings().remoteDesktopCopy()); });
}

AppDelegate::~AppDelegate() {
    NubraWindows::install(nullptr);
    OverlayController::install(nullptr);
    Pronouncer::install(nullptr);
    AppStateHolder::shared().install(nullptr);
}

void AppDelegate::applicationDidFinishLaunching() {
    // A tray utility has no main window: nothing to hide from a task bar here.
    m_permission.start(m_state);
    // In every trigger mode, and whether or not capture has its permission: the picture needs neither.
    m_screenTextHotkeys.onHotkey = [this]() { explainScreenText(); };
    if (const std::optional<HotkeyCombo> combo = HotkeyCombo::load(m_defaults, HotkeySlot::screenText()))
        m_screenTextHotkeys.registerCombo(*combo);
    // A desktop that asks before letting Nubra type asks now, so that no copy waits on its dialog.
    m_desktop.keyboard.setPermissionWanted(m_state.settings().remoteDesktopCopy());
    const PermissionPhase phase = m_state.settings().permissionPhase();
    if (phase == PermissionPhase::active || phase == PermissionPhase::done)
        startSelectionMonitor();
    else
        NubraWindows::showWelcome();
    BundleDesktopEntry::refreshInBackground();

    QPointer<AppDelegate> self(this);
    QTimer::singleShot(updateCheckDelayMs, this, [self]() {
        if (self)
            self->checkForUpdate(false);
    });
}

void AppDelegate::startSelectionMonitor() {
    m_hotkeys.onHotkey = [this]() { m_monitor.triggerFromHotkey(); };
    AppSettings& settings = m_state.settings();
    if (settings.triggerMode() == TriggerMode::hotkey) {
        m_hotkeys.registerCombo(HotkeyCombo::load(m_defaults));
        askDesktopShortcut();
    }

    QPointer<AppDelegate> self(this);
    m_monitor.start(settings.triggerMode(), settings.contextRadius(),
                    CaptureGate::standard([this]() { return m_state.settings().paused(); },
                                          [this]() { return m_state.settings().excludedApps(); },
                                          m_desktop.frontApplications),
                    [self](const SelectionSnapshot& snapshot) {
                        // Handed on from the monitor's own call stack; the card starts on a clean one.
                        QTimer::singleShot(0, self, [self, snapshot]() {
                            if (!self)
                                return;
                            self->m_overlay.show(snapshot);
                            self->m_overlay.request(self->m_state);
                        });
                    });
    m_monitor.setAutoHideDismissEnabled(settings.autoHide());
    m_monitor.setOptionModifier(settings.optionModifier());
    m_tray.menu().refresh();
    nbDebug(QStringLiteral("capture: selection monitor started, trigger=") +
            rawValue(settings.triggerMode()));
}

void AppDelegate::onTriggerModeChanged() {
    const TriggerMode mode = m_state.settings().triggerMode();
    // A shortcut set up in the desktop's settings belongs to hotkey mode and goes with it.
    if (mode != TriggerMode::hotkey && m_desktop.shortcuts.setup() == DesktopShortcuts::Setup::automatic)
        m_desktop.shortcuts.remove([](const DesktopShortcuts::Status&) {});
    if (mode == TriggerMode::hotkey)
        askDesktopShortcut();
    if (!m_monitor.isRunning())
        return;
    m_monitor.setTriggerMode(mode);
    m_hotkeys.followTriggerMode(mode, m_defaults);
}

void AppDelegate::askDesktopShortcut() {
    // Only so that what the diagnosis and the guide say about the hot key is true from the start; the
    // settings window asks again when it shows the shortcut.
    if (m_desktop.shortcuts.setup() != DesktopShortcuts::Setup::notNeeded)
        m_desktop.shortcuts.query(HotkeyCombo::load(m_defaults), [](const DesktopShortcuts::Status&) {});
}

void AppDelegate::applicationShouldHandleReopen() {
    const PermissionPhase phase = m_state.settings().permissionPhase();
    if (phase != PermissionPhase::active && phase != PermissionPhase::done)
        NubraWindows::showPermissionFlow(m_state);
}

void AppDelegate::perform(const LaunchRequest& request) {
    AppSettings& settings = m_state.settings();
    switch (request.action) {
    case LaunchRequest::Action::reopen:
        applicationShouldHandleReopen();
        break;
    case LaunchRequest::Action::history:
        NubraWindows::showHistory(m_state);
        break;
    case LaunchRequest::Action::settings:
        NubraWindows::showSettings(m_state, request.settingsTab);
        break;
    case LaunchRequest::Action::pause:
        settings.setPaused(true);
        break;
    case LaunchRequest::Action::resume:
        settings.setPaused(false);
        break;
    case LaunchRequest::Action::lookup:
        // In any trigger mode, as the hot key would; before the permission is granted there is
        // nothing to read, and the window that asks for it comes up instead.
        if (m_monitor.isRunning())
            m_monitor.triggerFromHotkey();
        else
            applicationShouldHandleReopen();
        break;
    case LaunchRequest::Action::ocr:
        explainScreenText();
        break;
    case LaunchRequest::Action::quit:
        QCoreApplication::quit();
        break;
    }
}

void AppDelegate::explainScreenText() {
    if (!m_state.settings().paused())
        m_screenText.start();
}

void AppDelegate::showScreenTextUnavailable(const QString& reason) {
    if (m_screenTextAlert) {
        m_screenTextAlert->setInformativeText(reason);
        Alert::present(m_screenTextAlert);
        return;
    }
    m_screenTextAlert = Alert::make(QStringLiteral("screenTextAlert"), QMessageBox::Warning,
                                    ScreenTextLookup::unavailableTitle(), reason);
    Alert::addOk(m_screenTextAlert);
    Alert::present(m_screenTextAlert);
}

void AppDelegate::checkForUpdate(bool manual) {
    m_updates.checkForUpdate(manual);
}

void AppDelegate::reportFailedUpdate(const QString& notePath) {
    m_updates.reportFailedInstall(notePath);
}

void AppDelegate::persist() {
    m_state.persist();
    m_defaults.sync();
}

void AppDelegate::shutdown() {
    m_monitor.stop();
    m_hotkeys.unregister();
    m_screenTextHotkeys.unregister();
    m_areaPicker.cancel();
    m_overlay.close();
    QThreadPool::globalInstance()->waitForDone();
}

#pragma once

#include "NubraApp/Capture/HotkeyManager.h"
#include "NubraApp/Capture/SelectionMonitor.h"
#include "NubraApp/Capture/SelectionService.h"
#include "NubraApp/Foundation/AppServices.h"
#include "NubraApp/Foundation/AppState.h"
#include "NubraApp/Foundation/Pronouncer.h"
#include "NubraApp/Onboarding/PermissionMonitor.h"
#include "NubraApp/Overlay/BubbleWindow.h"
#include "NubraApp/Overlay/OverlayController.h"
#include "NubraApp/ScreenText/AreaPicker.h"
#include "NubraApp/ScreenText/ScreenTextLookup.h"
#include "NubraApp/Shell/CommandLine.h"
#include "NubraApp/Shell/NubraWindows.h"
#include "NubraApp/Shell/TrayIcon.h"
#include "NubraApp/Update/UpdateFlow.h"
#include "NubraCore/Support/Defaults.h"
#include "NubraPlatform/PlatformDesktop.h"
#include "NubraPlatform/TrustWatcher.h"
#include "NubraPlatform/keychain/KeychainSecretStore.h"

#include <QMessageBox>
#include <QObject>
#include <QPointer>

#include <memory>

// Owns every long-lived part of the running application, wires them together and runs the start-up
// sequence: the permission monitor, then capture or the welcome notice, then the deferred update
// check. Members are declared in the order they depend on each other, so they are torn down in reverse.
class AppDelegate : public QObject {
    Q_OBJECT

public:
    static constexpr int updateCheckDelayMs = 5000;

    AppDelegate(std::unique_ptr<PlatformDesktop> platform, const QUrl& baseURL, QObject* parent = nullptr);
    ~AppDelegate() override;

    void applicationDidFinishLaunching();
    // What a later `nubra` asked for, or what this one was started with.
    void perform(const LaunchRequest& request);
    // Saves the settings; at quit and when the session ends.
    // Started again by the install script after a failed update: says why, once.
    void reportFailedUpdate(const QString& notePath);
    void persist();
    // Stops capture and waits for reads still running, before anything they use is destroyed.
    void shutdown();

    AppState& state() { return m_state; }

private:
    void applicationShouldHandleReopen();
    void startSelectionMonitor();
    void checkForUpdate(bool manual);
    void onTriggerModeChanged();
    void askDesktopShortcut();
    // The tray item, `nubra --ocr` and the second hot key.
    void explainScreenText();
    void showScreenTextUnavailable(const QString& reason);

    std::unique_ptr<PlatformDesktop> m_platform;
    Desktop m_desktop;
    SettingsDefaults m_defaults;
    KeychainSecretStore m_secrets;
    AppState m_state;
    SelectionService m_service;
    TrustWatcher m_trust;
    // Before the overlay: the card may still stop it while the overlay goes.
    Pronouncer m_pronouncer;
    OverlayController m_overlay;
    BubbleWindow m_bubble;
    SelectionMonitor m_monitor;
    HotkeyManager m_hotkeys;
    std::unique_ptr<TextRecognizer> m_recognizer;
    AreaPicker m_areaPicker;
    ScreenTextLookup m_screenText;
    HotkeyManager m_screenTextHotkeys;
    QPointer<QMessageBox> m_screenTextAlert;
    PermissionMonitor m_permission;
    AppServices m_windowServices;
    TrayIcon m_tray;
    UpdateFlow m_updates;
};

#pragma once

// A real AppState over a temporary folder, and the window services over a simulated desktop; the
// windows made with them go when the kit does.

#include "NubraApp/Capture/HotkeyManager.h"
#include "NubraApp/Foundation/AppServices.h"
#include "NubraApp/Foundation/AppState.h"
#include "NubraApp/Shell/NubraWindows.h"
#include "NubraCore/Service/SecretStore.h"
#include "NubraCore/Support/Defaults.h"
#include "NubraPlatform/TrustWatcher.h"
#include "NubraPlatform/fake/FakeDesktop.h"
#include "TestSupport/DebugLogCapture.h"

#include <QAbstractButton>
#include <QTemporaryDir>
#include <QTest>
#include <QThreadPool>

#include <memory>

struct AppTestKit {
    explicit AppTestKit(const QUrl& service = QUrl(u"http://127.0.0.1:9"_qs)) {
        state = std::make_unique<AppState>(defaults, secrets, service, dir.filePath(u"history.sqlite3"_qs));
    }
    ~AppTestKit() {
        NubraWindows::install(nullptr);
        state.reset();
        QThreadPool::globalInstance()->waitForDone(); // the credential read uses `secrets`
    }

    AppSettings& settings() { return state->settings(); }

    DebugLogCapture log;
    QTemporaryDir dir;
    InMemoryDefaults defaults;
    InMemorySecretStore secrets;
    FakeDesktop fake;
    Desktop desktop = fake.desktop();
    HotkeyManager hotkeys{fake.hotkeys};
    HotkeyManager screenTextHotkeys{fake.hotkeys, HotkeyManager::screenTextHotKeyId};
    TrustWatcher trust{fake.accessibility, fake.tasks};
    AppServices services{desktop, hotkeys, screenTextHotkeys, trust};
    std::unique_ptr<AppState> state;
};

// The widget of that object name; the test stops where there is none.
template <typename T = QWidget> T* child(const QWidget& root, const char* name) {
    T* widget = root.findChild<T*>(QString::fromLatin1(name));
    if (!widget)
        qFatal("no widget %s", name);
    return widget;
}

inline void click(const QWidget& root, const char* name) {
    auto* button = child<QAbstractButton>(root, name);
    QVERIFY2(button->isVisibleTo(&root), name);
    QTest::mouseClick(button, Qt::LeftButton);
}

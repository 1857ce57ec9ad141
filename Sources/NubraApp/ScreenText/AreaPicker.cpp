#include "NubraApp/ScreenText/AreaPicker.h"

#include "NubraApp/ScreenText/AreaPickerWindow.h"
#include "NubraCore/Support/DebugLog.h"

#include <QCursor>
#include <QWindow>

namespace {

// A window is grabbable only once it is mapped, which the server may take a moment to do.
constexpr int grabRetryMs = 20;
constexpr int grabAttempts = 50;

} // namespace

AreaPicker::AreaPicker(QObject* parent) : QObject(parent) {
    m_grabRetry.setInterval(grabRetryMs);
    connect(&m_grabRetry, &QTimer::timeout, this, &AreaPicker::grabKeyboard);
}

AreaPicker::~AreaPicker() {
    m_done = nullptr;
    cancel();
}

void AreaPicker::pick(const std::vector<ScreenShot>& shots,
                      std::function<void(std::optional<PickedArea>)> done) {
    cancel();
    m_done = std::move(done);
    for (std::size_t index = 0; index < shots.size(); ++index) {
        auto* window = new AreaPickerWindow(shots[index]);
        m_windows.emplace_back(window);
        m_screens.push_back(shots[index].screen);
        connect(window, &AreaPickerWindow::picked, this, [this, index, window](const QRect& area) {
            finish(PickedArea{index, window->toPixels(area), area.translated(m_screens[index].topLeft())});
        });
        connect(window, &AreaPickerWindow::cancelled, this, [this] { finish(std::nullopt); });
        window->show();
    }
    m_grabAttempts = 0;
    m_grabRetry.start();
}

void AreaPicker::grabKeyboard() {
    // The window under the pointer, where the user is about to drag.
    const QPoint pointer = QCursor::pos();
    AreaPickerWindow* target = nullptr;
    for (const QPointer<AreaPickerWindow>& window : m_windows)
        if (window && (!target || window->geometry().contains(pointer)))
            target = window;
    if (!target || ++m_grabAttempts > grabAttempts) {
        m_grabRetry.stop();
        if (target) {
            // Without a grab the picker takes the focus; the desktop hands it back when it closes.
            nbDebug(QStringLiteral("picker: keyboard grab refused, activating instead"));
            target->activateWindow();
        }
        return;
    }
    if (target->windowHandle() && target->windowHandle()->isExposed() &&
        target->windowHandle()->setKeyboardGrabEnabled(true))
        m_grabRetry.stop();
}

void AreaPicker::cancel() {
    finish(std::nullopt);
}

void AreaPicker::finish(std::optional<PickedArea> area) {
    m_grabRetry.stop();
    for (const QPointer<AreaPickerWindow>& window : std::exchange(m_windows, {})) {
        if (!window)
            continue;
        if (window->windowHandle())
            window->windowHandle()->setKeyboardGrabEnabled(false);
        window->close();
    }
    m_screens.clear();
    if (auto done = std::exchange(m_done, nullptr))
        done(area);
}

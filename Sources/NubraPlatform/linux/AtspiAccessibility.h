#pragma once

#include "NubraPlatform/Accessibility.h"
#include "NubraPlatform/EventMonitors.h"
#include "NubraPlatform/linux/AtspiTextNode.h"

#include <functional>
#include <memory>

class AtspiThread;

// The accessibility service over AT-SPI 2. All libatspi calls run on one thread of its own with its own
// GLib context (libatspi is not thread-safe); callers wait for each answer at most `callTimeoutMs`, and
// libatspi's own D-Bus timeout is kept short, so a hung application cannot stall capture.
class AtspiAccessibility final : public Accessibility {
public:
    static constexpr int dbusTimeoutMs = 300;
    static constexpr int callTimeoutMs = 400;

    explicit AtspiAccessibility(AtspiTextNode::ActiveWindow activeWindow);
    ~AtspiAccessibility() override;

    bool isTrusted() override;
    bool enableApplication(qint64 processId) override;
    FocusQuery focusedElement() override;
    void openSettings() override;

    // See AtspiThread: selection changes in other applications, told on the AT-SPI thread.
    void setSelectionListener(std::function<void(const SelectionChange&)> listener);
    // The process id and AT-SPI name of the application the user last worked in.
    std::optional<std::pair<qint64, QString>> focusedApplication();

private:
    std::shared_ptr<AtspiThread> m_thread;
    AtspiTextNode::ActiveWindow m_activeWindow;
};

#pragma once

#include "NubraApp/ScreenText/AreaPicking.h"

#include <QObject>
#include <QPointer>
#include <QTimer>

class AreaPickerWindow;

// The picker on the real screens: one window per picture, each over its screen. The keyboard is grabbed
// rather than focused, so that Escape reaches the picker while the window the user was in keeps its
// focus, and has it when the picker goes. Main thread only.
class AreaPicker final : public QObject, public AreaPicking {
    Q_OBJECT

public:
    explicit AreaPicker(QObject* parent = nullptr);
    ~AreaPicker() override;

    void pick(const std::vector<ScreenShot>& shots,
              std::function<void(std::optional<PickedArea>)> done) override;
    void cancel() override;

    const std::vector<QPointer<AreaPickerWindow>>& windows() const { return m_windows; }

private:
    void finish(std::optional<PickedArea> area);
    void grabKeyboard();

    std::vector<QPointer<AreaPickerWindow>> m_windows;
    std::vector<QRect> m_screens;
    std::function<void(std::optional<PickedArea>)> m_done;
    QTimer m_grabRetry;
    int m_grabAttempts = 0;
};

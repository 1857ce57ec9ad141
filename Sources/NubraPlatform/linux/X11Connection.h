#pragma once

#include <QObject>

#include <functional>

typedef struct _XDisplay Display;
typedef union _XEvent XEvent;
class QSocketNotifier;

// A private connection to the X server whose events are read on the main thread's event loop.
// Keeping it apart from Qt's own connection lets us grab keys and select raw input freely.
class X11Connection final : public QObject {
public:
    X11Connection();
    ~X11Connection() override;

    Display* display() const { return m_display; }
    bool isOpen() const { return m_display != nullptr; }
    void setHandler(std::function<void(XEvent&)> handler) { m_handler = std::move(handler); }

    // Runs `request` and reports the X error code it caused, 0 when none.
    int trapErrors(const std::function<void()>& request);

private:
    void drain();

    Display* m_display = nullptr;
    QSocketNotifier* m_notifier = nullptr;
    std::function<void(XEvent&)> m_handler;
};

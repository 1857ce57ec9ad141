#pragma once

#include <QByteArray>
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

    // The height of the whole desktop (the root window) in device pixels, asked of the server: Xlib's
    // DisplayHeight keeps the size the screen had when the connection opened, before any monitor change.
    static int rootHeight(Display* display);

    // One property of a window as raw bytes (32-bit items arrive as longs), bounded so a hostile client
    // cannot make us read megabytes; empty when the window or the property is missing.
    static QByteArray property(Display* display, unsigned long window, const char* name, unsigned long type);

    // Makes an X error on any of this process's Xlib connections a recorded code instead of Xlib's
    // default, which ends the process: a selection owner can hand us atoms that do not exist. Call once,
    // before any connection is used.
    static void keepRunningOnErrors();

    // Runs `request` and reports the X error code it caused, 0 when none.
    int trapErrors(const std::function<void()>& request);

private:
    void drain();

    Display* m_display = nullptr;
    QSocketNotifier* m_notifier = nullptr;
    std::function<void(XEvent&)> m_handler;
};

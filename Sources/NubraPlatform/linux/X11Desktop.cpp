#include "NubraPlatform/linux/X11Desktop.h"

#include "NubraPlatform/Coordinates.h"
#include "NubraPlatform/linux/QtScreens.h"
#include "NubraPlatform/linux/X11Connection.h"

#include <QFile>

#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>

X11Desktop::X11Desktop(DesktopEntryNames& entryNames) : m_entryNames(entryNames) {
    m_display = XOpenDisplay(nullptr);
    m_entryNames.prefetch();
}

X11Desktop::~X11Desktop() {
    if (m_display)
        XCloseDisplay(m_display);
}

unsigned long X11Desktop::activeWindow() {
    const QByteArray active =
        X11Connection::property(m_display, DefaultRootWindow(m_display), "_NET_ACTIVE_WINDOW", XA_WINDOW);
    if (active.size() >= qsizetype(sizeof(long)))
        return *reinterpret_cast<const unsigned long*>(active.constData());
    // No window manager: walk up from the input focus to the window the client manages.
    Window focus = 0;
    int revert = 0;
    XGetInputFocus(m_display, &focus, &revert);
    const Atom wmState = XInternAtom(m_display, "WM_STATE", True);
    for (Window window = focus; window > PointerRoot && wmState != None;) {
        if (!X11Connection::property(m_display, window, "WM_STATE", wmState).isEmpty())
            return window;
        Window root = 0, parent = 0, *children = nullptr;
        unsigned int count = 0;
        if (!XQueryTree(m_display, window, &root, &parent, &children, &count))
            break;
        if (children)
            XFree(children);
        if (parent == root)
            break;
        window = parent;
    }
    return 0;
}

std::optional<FrontApp> X11Desktop::frontmost() {
    FrontApp app;
    WindowAppHints hints;
    QString title;
    {
        std::lock_guard guard(m_lock);
        if (!m_display)
            return std::nullopt;
        const Window window = activeWindow();
        if (window == 0)
            return std::nullopt;
        XClassHint hint{nullptr, nullptr};
        if (XGetClassHint(m_display, window, &hint)) {
            if (hint.res_class)
                hints.wmClass = QString::fromLocal8Bit(hint.res_class);
            if (hint.res_name)
                hints.wmInstance = QString::fromLocal8Bit(hint.res_name);
            XFree(hint.res_name);
            XFree(hint.res_class);
        }
        const Atom utf8 = XInternAtom(m_display, "UTF8_STRING", False);
        hints.applicationId =
            QString::fromUtf8(X11Connection::property(m_display, window, "_GTK_APPLICATION_ID", utf8));
        if (hints.applicationId.isEmpty())
            hints.applicationId = QString::fromUtf8(
                X11Connection::property(m_display, window, "_KDE_NET_WM_DESKTOP_FILE", utf8));
        const QByteArray pid = X11Connection::property(m_display, window, "_NET_WM_PID", XA_CARDINAL);
        if (pid.size() >= qsizetype(sizeof(long)))
            app.processId = qint64(*reinterpret_cast<const unsigned long*>(pid.constData()));
        title = QString::fromUtf8(X11Connection::property(m_display, window, "_NET_WM_NAME", utf8));
    }
    if (!hints.wmClass.isEmpty())
        app.identifier = hints.wmClass;

    app.name = m_entryNames.displayName(hints, DesktopEntryNames::interfaceLocales());
    // Without an installed entry (or before the entries are indexed) the process name is the best we have.
    if (app.name.isEmpty() && app.processId > 0) {
        QFile comm(QStringLiteral("/proc/%1/comm").arg(app.processId));
        if (comm.open(QIODevice::ReadOnly))
            app.name = QString::fromUtf8(comm.read(256)).trimmed();
    }
    if (app.name.isEmpty())
        app.name = title;
    return app;
}

std::optional<QRect> X11Desktop::activeWindowRect() {
    std::lock_guard guard(m_lock);
    if (!m_display)
        return std::nullopt;
    const Window window = activeWindow();
    XWindowAttributes attributes;
    int x = 0;
    int y = 0;
    Window child = 0;
    if (window == 0 || !XGetWindowAttributes(m_display, window, &attributes) ||
        !XTranslateCoordinates(m_display, window, DefaultRootWindow(m_display), 0, 0, &x, &y, &child))
        return std::nullopt;
    return QRect(x, y, attributes.width, attributes.height);
}

bool X11Desktop::showsWindowOf(qint64 processId) {
    std::lock_guard guard(m_lock);
    if (!m_display)
        return false;
    if (!m_clientProcessesRead.isValid() || m_clientProcessesRead.hasExpired(clientListTtlMs)) {
        m_clientProcesses.clear();
        const QByteArray clients =
            X11Connection::property(m_display, DefaultRootWindow(m_display), "_NET_CLIENT_LIST", XA_WINDOW);
        const auto* windows = reinterpret_cast<const unsigned long*>(clients.constData());
        for (qsizetype i = 0; i < clients.size() / qsizetype(sizeof(long)); ++i) {
            const QByteArray pid = X11Connection::property(m_display, windows[i], "_NET_WM_PID", XA_CARDINAL);
            if (pid.size() >= qsizetype(sizeof(long)))
                m_clientProcesses.insert(qint64(*reinterpret_cast<const unsigned long*>(pid.constData())));
        }
        m_clientProcessesRead.start();
    }
    return m_clientProcesses.contains(processId);
}

double X11Desktop::primaryScreenHeight() {
    std::lock_guard guard(m_lock);
    return m_display ? X11Connection::rootHeight(m_display) : 0;
}

ScreenSpace X11Desktop::screens() {
    return QtScreens::space();
}

QPointF X11Desktop::mouseLocation() {
    std::lock_guard guard(m_lock);
    if (!m_display)
        return {};
    Window root = 0, child = 0;
    int rootX = 0, rootY = 0, winX = 0, winY = 0;
    unsigned int state = 0;
    XQueryPointer(m_display, DefaultRootWindow(m_display), &root, &child, &rootX, &rootY, &winX, &winY,
                  &state);
    return Coordinates::flipPoint(QPointF(rootX, rootY), X11Connection::rootHeight(m_display));
}

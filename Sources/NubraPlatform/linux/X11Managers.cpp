#include "NubraPlatform/linux/X11Managers.h"

#include <QByteArray>
#include <QGuiApplication>

#include <X11/Xlib.h>

namespace {

bool screenSelectionOwned(const char* prefix) {
    auto* x11 = qApp ? qApp->nativeInterface<QNativeInterface::QX11Application>() : nullptr;
    Display* display = x11 ? x11->display() : nullptr;
    if (!display)
        return false;
    const QByteArray name = prefix + QByteArray::number(DefaultScreen(display));
    const Atom selection = XInternAtom(display, name.constData(), False);
    return selection != None && XGetSelectionOwner(display, selection) != None;
}

} // namespace

namespace X11Managers {

bool compositorRunning() {
    return screenSelectionOwned("_NET_WM_CM_S");
}

bool systemTrayRunning() {
    return screenSelectionOwned("_NET_SYSTEM_TRAY_S");
}

} // namespace X11Managers

#include "NubraPlatform/linux/X11Compositor.h"

#include <QByteArray>
#include <QGuiApplication>

#include <X11/Xlib.h>

namespace X11Compositor {

bool isRunning() {
    auto* x11 = qApp ? qApp->nativeInterface<QNativeInterface::QX11Application>() : nullptr;
    Display* display = x11 ? x11->display() : nullptr;
    if (!display)
        return false;
    // The EWMH convention: a compositor owns the selection _NET_WM_CM_S<screen number>.
    const QByteArray name = "_NET_WM_CM_S" + QByteArray::number(DefaultScreen(display));
    const Atom selection = XInternAtom(display, name.constData(), False);
    return selection != None && XGetSelectionOwner(display, selection) != None;
}

} // namespace X11Compositor

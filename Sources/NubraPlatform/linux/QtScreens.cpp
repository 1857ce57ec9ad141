#include "NubraPlatform/linux/QtScreens.h"

#include <QGuiApplication>
#include <QScreen>

namespace QtScreens {

ScreenSpace space() {
    QList<ScreenInfo> screens;
    const QScreen* primary = QGuiApplication::primaryScreen();
    if (primary)
        screens.append({primary->geometry(), primary->availableGeometry(), primary->devicePixelRatio()});
    for (const QScreen* screen : QGuiApplication::screens()) {
        if (screen != primary)
            screens.append({screen->geometry(), screen->availableGeometry(), screen->devicePixelRatio()});
    }
    return ScreenSpace(std::move(screens));
}

} // namespace QtScreens

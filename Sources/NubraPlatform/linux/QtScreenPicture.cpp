#include "NubraPlatform/linux/QtScreenPicture.h"

#include "NubraCore/Vocabulary/L10n.h"

#include <QGuiApplication>
#include <QPixmap>
#include <QPointer>
#include <QScreen>
#include <QTimer>

void QtScreenPicture::take(QObject* context, std::function<void(Result)> done) {
    Result result;
    for (QScreen* screen : QGuiApplication::screens()) {
        // Window 0 is the root window: the whole desktop, cut to this screen.
        const QImage image = screen->grabWindow(0).toImage();
        if (!image.isNull())
            result.shots.push_back({image, screen->geometry()});
    }
    if (result.shots.empty())
        result.failure =
            L10n::t(QStringLiteral("The screen could not be captured."), QStringLiteral("无法截取屏幕。"));
    // Answered from the event loop, as the portal's picture is, so callers see one order of events.
    QTimer::singleShot(0, context, [done = std::move(done), result = std::move(result)] { done(result); });
}

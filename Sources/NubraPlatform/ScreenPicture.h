#pragma once

#include <QImage>
#include <QRect>
#include <QString>

#include <functional>
#include <vector>

class QObject;

// One still picture to mark an area on, and where it is shown: `screen` is the logical geometry (Qt's
// top-left-origin coordinates) of the screen it covers, `image` its pixels, which may be more than
// the logical size (a scaled screen) or another shape (a picture the desktop cut to the user's choice).
struct ScreenShot {
    QImage image;
    QRect screen;
};

// The screen frozen at the moment the user asks to mark an area on it: on X11 a grab of every screen,
// on Wayland the desktop's screenshot portal, which may ask the user first.
class ScreenPicture {
public:
    struct Result {
        std::vector<ScreenShot> shots; // empty when no picture was taken
        // Why not, in words for an alert; empty when the user declined the desktop's dialog.
        QString failure;
    };

    virtual ~ScreenPicture() = default;

    // Takes the picture and calls `done` once on the main thread, unless `context` is gone by then.
    virtual void take(QObject* context, std::function<void(Result)> done) = 0;
};

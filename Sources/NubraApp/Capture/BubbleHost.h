#pragma once

#include <QPointF>
#include <QtGlobal>

#include <functional>
#include <optional>

// The small button shown next to a selection. The monitor decides where and when; the host owns the
// panel. Showing replaces any bubble already on screen.
class BubbleHost {
public:
    virtual ~BubbleHost() = default;

    // `topLeft` is the panel's top-left corner in Qt's logical coordinates (ScreenSpace).
    virtual void showAt(const QPointF& topLeft, std::function<void()> onClick) = 0;
    virtual void hide() = 0;
    virtual bool isVisible() const = 0;
    // The native window id of the panel while it exists, as local mouse events carry it.
    virtual std::optional<quint64> windowId() const = 0;
};

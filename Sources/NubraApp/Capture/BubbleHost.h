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

    // `origin` is the panel's lower-left corner in bottom-left-origin global coordinates.
    virtual void showAt(const QPointF& origin, std::function<void()> onClick) = 0;
    virtual void hide() = 0;
    virtual bool isVisible() const = 0;
    // The panel's window number while it exists.
    virtual std::optional<quint64> windowId() const = 0;
};

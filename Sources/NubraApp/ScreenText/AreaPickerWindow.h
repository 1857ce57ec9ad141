#pragma once

#include "NubraPlatform/ScreenPicture.h"

#include <QPoint>
#include <QRect>
#include <QWidget>

#include <optional>

// One screen's part of the area picker: the frozen picture slightly dimmed over the whole screen, a
// crosshair, and the area being dragged shown clear with a thin border and its size in pixels.
class AreaPickerWindow final : public QWidget {
    Q_OBJECT

public:
    // A drag shorter than this either way is a click, which cancels.
    static constexpr int minimumDrag = 4;

    explicit AreaPickerWindow(const ScreenShot& shot, QWidget* parent = nullptr);

    // Where the picture is drawn in the window: all of it, scaled to fit, centred.
    QRect pictureRect() const;
    // `area` (window coordinates, inside pictureRect()) in the picture's pixels.
    QRect toPixels(const QRect& area) const;

signals:
    // A finished drag, in window coordinates.
    void picked(const QRect& area);
    void cancelled();

protected:
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;

private:
    QRect dragged() const;

    QImage m_image;
    std::optional<QPoint> m_anchor;
    QPoint m_cursor;
};

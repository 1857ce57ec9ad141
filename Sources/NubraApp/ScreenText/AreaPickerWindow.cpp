#include "NubraApp/ScreenText/AreaPickerWindow.h"

#include "NubraCore/Vocabulary/L10n.h"
#include "NubraPlatform/PlatformDesktop.h"

#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>

#include <algorithm>
#include <cstdlib>

namespace {

const QColor dimming(0, 0, 0, 90);
const QColor border(0, 122, 255);

} // namespace

AreaPickerWindow::AreaPickerWindow(const ScreenShot& shot, QWidget* parent)
    : QWidget(parent), m_image(shot.image) {
    setObjectName(QStringLiteral("areaPicker"));
    setAccessibleName(
        L10n::t(QStringLiteral("Drag over the text to explain"), QStringLiteral("拖动框选要解释的文字")));
    // Over everything, panels included, and placed exactly on its screen.
    setWindowFlags(Qt::Window | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint |
                   Qt::X11BypassWindowManagerHint | PlatformDesktop::floatingPanelHints());
    setAttribute(Qt::WA_DeleteOnClose);
    setAttribute(Qt::WA_OpaquePaintEvent);
    setCursor(Qt::CrossCursor);
    setMouseTracking(true);
    setGeometry(shot.screen);
}

QRect AreaPickerWindow::pictureRect() const {
    if (m_image.isNull())
        return {};
    QSize size = m_image.size();
    size.scale(this->size(), Qt::KeepAspectRatio);
    return QRect(QPoint((width() - size.width()) / 2, (height() - size.height()) / 2), size);
}

QRect AreaPickerWindow::toPixels(const QRect& area) const {
    const QRect picture = pictureRect();
    if (picture.isEmpty())
        return {};
    const double scale = double(m_image.width()) / picture.width();
    const QRectF pixels((area.x() - picture.x()) * scale, (area.y() - picture.y()) * scale,
                        area.width() * scale, area.height() * scale);
    return pixels.toAlignedRect() & m_image.rect();
}

QRect AreaPickerWindow::dragged() const {
    if (!m_anchor)
        return {};
    // From the press to the pointer, not including the pixel under it: a drag of 50 is 50 wide.
    const QPoint from(std::min(m_anchor->x(), m_cursor.x()), std::min(m_anchor->y(), m_cursor.y()));
    const QSize size(std::abs(m_cursor.x() - m_anchor->x()), std::abs(m_cursor.y() - m_anchor->y()));
    return QRect(from, size) & pictureRect();
}

void AreaPickerWindow::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.fillRect(rect(), Qt::black);
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    const QRect picture = pictureRect();
    painter.drawImage(picture, m_image);
    const QRect area = dragged();
    // Everything but the area is dimmed, so the area reads as the part that counts.
    QRegion dim(rect());
    if (!area.isEmpty())
        dim -= QRegion(area);
    painter.setClipRegion(dim);
    painter.fillRect(rect(), dimming);
    painter.setClipping(false);
    if (area.isEmpty())
        return;

    painter.setPen(QPen(border, 1));
    painter.drawRect(area.adjusted(0, 0, -1, -1));
    const QRect pixels = toPixels(area);
    const QString size = QStringLiteral("%1 × %2").arg(pixels.width()).arg(pixels.height());
    const QFontMetrics metrics(font());
    QRect label = metrics.boundingRect(size).adjusted(-6, -3, 6, 3);
    // Under the area, or above it at the bottom of the screen.
    QPoint at(area.left(), area.bottom() + 4);
    if (at.y() + label.height() > height())
        at.setY(area.top() - label.height() - 4);
    label.moveTopLeft(at);
    painter.fillRect(label, QColor(0, 0, 0, 170));
    painter.setPen(Qt::white);
    painter.drawText(label, Qt::AlignCenter, size);
}

void AreaPickerWindow::mousePressEvent(QMouseEvent* event) {
    if (event->button() == Qt::RightButton) {
        emit cancelled();
        return;
    }
    if (event->button() != Qt::LeftButton)
        return;
    m_anchor = event->position().toPoint();
    m_cursor = *m_anchor;
    update();
}

void AreaPickerWindow::mouseMoveEvent(QMouseEvent* event) {
    m_cursor = event->position().toPoint();
    if (m_anchor)
        update();
}

void AreaPickerWindow::mouseReleaseEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton || !m_anchor)
        return;
    m_cursor = event->position().toPoint();
    const QRect area = dragged();
    m_anchor.reset();
    if (area.width() < minimumDrag || area.height() < minimumDrag)
        emit cancelled();
    else
        emit picked(area);
}

void AreaPickerWindow::keyPressEvent(QKeyEvent* event) {
    if (event->key() == Qt::Key_Escape)
        emit cancelled();
    else
        QWidget::keyPressEvent(event);
}

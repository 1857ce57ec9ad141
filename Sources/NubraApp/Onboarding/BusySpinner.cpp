#include "NubraApp/Onboarding/BusySpinner.h"

#include <QPainter>
#include <QTimer>

#include <algorithm>

BusySpinner::BusySpinner(int size, QWidget* parent) : QWidget(parent), m_timer(new QTimer(this)) {
    setFixedSize(size, size);
    m_timer->setInterval(stepMs);
    connect(m_timer, &QTimer::timeout, this, [this]() {
        m_step = (m_step + 1) % spokes;
        update();
    });
}

bool BusySpinner::isSpinning() const {
    return m_timer->isActive();
}

void BusySpinner::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const qreal radius = std::min(width(), height()) / 2.0;
    painter.translate(QRectF(rect()).center());
    QColor color = palette().color(QPalette::WindowText);
    for (int i = 0; i < spokes; ++i) {
        // The spoke of the current step is the brightest; the ones behind it fade out.
        const int behind = (m_step - i + spokes) % spokes;
        color.setAlphaF(float(0.85 - 0.65 * behind / (spokes - 1)));
        painter.setPen(QPen(color, radius * 0.2, Qt::SolidLine, Qt::RoundCap));
        painter.drawLine(QPointF(0, -radius * 0.45), QPointF(0, -radius * 0.88));
        painter.rotate(360.0 / spokes);
    }
}

void BusySpinner::showEvent(QShowEvent* event) {
    QWidget::showEvent(event);
    m_timer->start();
}

void BusySpinner::hideEvent(QHideEvent* event) {
    QWidget::hideEvent(event);
    m_timer->stop();
}

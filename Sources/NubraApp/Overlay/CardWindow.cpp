#include "NubraApp/Overlay/CardWindow.h"

#include "NubraApp/Overlay/CardPlacement.h"
#include "NubraApp/Overlay/CardView.h"
#include "NubraApp/Overlay/SpeakerButton.h"
#include "NubraPlatform/PlatformDesktop.h"
#include "NubraPlatform/ScreenSpace.h"
#include "NubraPlatform/linux/X11Managers.h"

#include <QGuiApplication>
#include <QKeyEvent>
#include <QPainter>
#include <QPainterPath>
#include <QPropertyAnimation>

#include <cmath>

namespace {
constexpr qreal cornerRadius = 14;
constexpr int fadeMilliseconds = 160;
} // namespace

CardWindow::CardWindow()
    : QWidget(nullptr, Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint |
                           PlatformDesktop::floatingPanelHints()) {
    // Not WindowDoesNotAcceptFocus: a click must be able to activate the card for copying and Escape.
    setAttribute(Qt::WA_ShowWithoutActivating);
    setObjectName(QStringLiteral("nubraCard"));
    m_translucent = X11Managers::compositorRunning();
    // Must be decided before the native window exists: it picks the window's visual.
    if (m_translucent)
        setAttribute(Qt::WA_TranslucentBackground);

    m_view = new CardView(this);
    connect(m_view, &CardView::contentChanged, this, &CardWindow::fitToContent);

    if (m_translucent) {
        m_fade = new QPropertyAnimation(this, "windowOpacity", this);
        m_fade->setDuration(fadeMilliseconds);
        m_fade->setStartValue(0.0);
        m_fade->setEndValue(1.0);
        m_fade->setEasingCurve(QEasingCurve::OutCubic);
        // Without other X traffic the new opacity would not reach the server in time.
        connect(m_fade, &QPropertyAnimation::valueChanged, this, [this] { update(); });
    }
}

CardWindow::~CardWindow() = default;

void CardWindow::showNear(const QRectF& selection, const ScreenSpace& screens) {
    if (m_fade)
        m_fade->stop();
    hide();

    const int height = m_view->fittingHeight();
    const CardPlacement::Placement placement =
        CardPlacement::place(screens.toPlacement(selection), height, screens.visibleFrameFor(selection));
    const QPointF topLeft = screens.windowTopLeft(placement.origin, height);
    m_above = placement.above;
    m_anchorX = int(std::lround(topLeft.x()));
    m_anchorY = int(std::lround(m_above ? topLeft.y() + height : topLeft.y()));
    m_placed = true;

    fitToContent();
    if (m_fade)
        setWindowOpacity(0.0);
    show();
    fitToContent();
    if (m_fade)
        m_fade->start();
}

void CardWindow::fitToContent() {
    if (!m_placed)
        return;
    const int height = m_view->fittingHeight();
    const QRect target(QPoint(m_anchorX, m_above ? m_anchorY - height : m_anchorY),
                       QSize(CardView::cardWidth, height));
    setGeometry(target);
    m_view->setGeometry(0, 0, CardView::cardWidth, height);
}

void CardWindow::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    const QColor background = palette().color(QPalette::Window);
    if (m_translucent) {
        painter.setRenderHint(QPainter::Antialiasing);
        QColor fill = background;
        fill.setAlphaF(0.92f);
        QColor edge = palette().color(QPalette::WindowText);
        edge.setAlphaF(0.12f);
        painter.setPen(QPen(edge, 1));
        painter.setBrush(fill);
        painter.drawRoundedRect(QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5), cornerRadius, cornerRadius);
        return;
    }
    // Without a compositor corners cannot be see-through: a clean square card with a hairline border.
    painter.fillRect(rect(), background);
    painter.setPen(palette().color(QPalette::Mid));
    painter.drawRect(rect().adjusted(0, 0, -1, -1));
}

void CardWindow::keyPressEvent(QKeyEvent* event) {
    if (event->key() == Qt::Key_Escape) {
        emit dismissRequested();
        return;
    }
    if (QKeySequence(event->keyCombination()) == SpeakerButton::shortcut() && m_view->readAloud())
        return;
    QWidget::keyPressEvent(event);
}

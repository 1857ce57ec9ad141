#include "NubraApp/Overlay/BubbleWindow.h"

#include "NubraApp/Foundation/BrandIcon.h"
#include "NubraCore/Vocabulary/L10n.h"
#include "NubraPlatform/PlatformDesktop.h"
#include "NubraPlatform/linux/X11Managers.h"

#include <QEasingCurve>
#include <QPainter>
#include <QVariantAnimation>

namespace {

QString accessibleLabel() {
    return L10n::t(QStringLiteral("Explain selected text"), QStringLiteral("解释选中内容"));
}

} // namespace

BubbleButton::BubbleButton(bool translucent)
    : m_translucent(translucent), m_image(BrandIcon::bubbleImage(imageSize)) {
    // Tool + no focus + shown without activation is the combination that leaves the other
    // application's keyboard focus and selection alone, on show and on click, with or without a window
    // manager. Popup would grab the keyboard; ToolTip ignores the cursor.
    setWindowFlags(Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint |
                   Qt::WindowDoesNotAcceptFocus | PlatformDesktop::floatingPanelHints());
    setAttribute(Qt::WA_ShowWithoutActivating);
    if (translucent)
        setAttribute(Qt::WA_TranslucentBackground);
    setFocusPolicy(Qt::NoFocus);
    setCursor(Qt::PointingHandCursor);
    setFixedSize(panelSize, panelSize);
    setAccessibleName(accessibleLabel());
}

void BubbleButton::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    if (!m_translucent) {
        // Without a compositor the corners could not be see-through anyway: paint a plain tile.
        painter.fillRect(rect(), palette().window());
        painter.setPen(palette().mid().color());
        painter.drawRect(rect().adjusted(0, 0, -1, -1));
    }
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    painter.setOpacity(imageOpacity());
    const int inset = (panelSize - imageSize) / 2;
    painter.drawPixmap(QRect(inset, inset, imageSize, imageSize), m_image);
}

void BubbleButton::enterEvent(QEnterEvent* event) {
    setHovered(true);
    QAbstractButton::enterEvent(event);
}

void BubbleButton::leaveEvent(QEvent* event) {
    setHovered(false);
    QAbstractButton::leaveEvent(event);
}

void BubbleButton::hideEvent(QHideEvent* event) {
    // No leave event comes for a pointer that was over the panel when it went away.
    setHovered(false);
    QAbstractButton::hideEvent(event);
}

void BubbleButton::setHovered(bool hovered) {
    if (m_hovered == hovered)
        return;
    m_hovered = hovered;
    update();
}

BubbleWindow::BubbleWindow(QObject* parent) : QObject(parent), m_fade(new QVariantAnimation(this)) {
    m_fade->setStartValue(0.0);
    m_fade->setEndValue(1.0);
    m_fade->setDuration(fadeInMs);
    QEasingCurve easeOut(QEasingCurve::BezierSpline);
    easeOut.addCubicBezierSegment(QPointF(0, 0), QPointF(0.58, 1), QPointF(1, 1));
    m_fade->setEasingCurve(easeOut);
    connect(m_fade, &QVariantAnimation::valueChanged, this, [this](const QVariant& value) {
        if (!m_panel)
            return;
        m_panel->setWindowOpacity(value.toDouble());
        // Qt may hold the opacity change back until other X traffic flushes it; a repaint does.
        m_panel->update();
    });
}

BubbleWindow::~BubbleWindow() {
    delete m_panel.data();
}

void BubbleWindow::ensurePanel() {
    const bool translucent = X11Managers::compositorRunning();
    if (m_panel && m_panel->isTranslucent() != translucent) {
        // Translucency is fixed when the native window is made.
        m_panel->deleteLater();
        m_panel.clear();
    }
    if (m_panel)
        return;
    m_panel = new BubbleButton(translucent);
    connect(m_panel, &QAbstractButton::clicked, this, [this]() {
        // A copy: the handler may show the next bubble and replace it.
        const std::function<void()> onClick = m_onClick;
        if (onClick)
            onClick();
    });
}

void BubbleWindow::showAt(const QPointF& topLeft, std::function<void()> onClick) {
    hide(); // the bubble on screen goes at once, without fading out
    ensurePanel();
    m_onClick = std::move(onClick);
    m_panel->setAccessibleName(accessibleLabel()); // the interface language may have changed
    m_panel->move(topLeft.toPoint());
    m_panel->setWindowOpacity(0.0);
    m_panel->show();
    m_panel->update();
    m_fade->start();
}

void BubbleWindow::hide() {
    m_fade->stop();
    if (m_panel)
        m_panel->hide();
}

bool BubbleWindow::isVisible() const {
    return m_panel && m_panel->isVisible();
}

std::optional<quint64> BubbleWindow::windowId() const {
    if (!isVisible())
        return std::nullopt;
    return quint64(m_panel->winId());
}

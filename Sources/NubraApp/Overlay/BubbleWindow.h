#pragma once

#include "NubraApp/Capture/BubbleHost.h"

#include <QAbstractButton>
#include <QPixmap>
#include <QPointer>

class QVariantAnimation;

// The bubble's face: the brand artwork centred in the panel, a little faded until the pointer is over
// it. It never takes keyboard focus, so the application the user reads in keeps its selection.
class BubbleButton final : public QAbstractButton {
    Q_OBJECT

public:
    static constexpr int panelSize = 44;
    static constexpr int imageSize = 30;
    static constexpr qreal restingOpacity = 0.94;

    // `translucent`: whether a compositor will blend the panel's transparent corners; otherwise the
    // panel paints its own background.
    explicit BubbleButton(bool translucent);

    bool isTranslucent() const { return m_translucent; }
    bool isHovered() const { return m_hovered; }
    qreal imageOpacity() const { return m_hovered ? 1.0 : restingOpacity; }
    QSize sizeHint() const override { return {panelSize, panelSize}; }

protected:
    void paintEvent(QPaintEvent* event) override;
    void enterEvent(QEnterEvent* event) override;
    void leaveEvent(QEvent* event) override;
    void hideEvent(QHideEvent* event) override;

private:
    void setHovered(bool hovered);

    bool m_translucent;
    bool m_hovered = false;
    QPixmap m_image;
};

// The one bubble panel: a frameless tool window that stays on top and never accepts focus. Showing it
// again moves the same panel (the one on screen goes at once, the new one fades in); a new panel is
// built only when the compositor came or went since the last one.
class BubbleWindow final : public QObject, public BubbleHost {
    Q_OBJECT

public:
    static constexpr int fadeInMs = 140;

    explicit BubbleWindow(QObject* parent = nullptr);
    ~BubbleWindow() override;

    void showAt(const QPointF& topLeft, std::function<void()> onClick) override;
    void hide() override;
    bool isVisible() const override;
    std::optional<quint64> windowId() const override;

    // The panel while one exists, for tests.
    BubbleButton* panel() const { return m_panel; }

private:
    void ensurePanel();

    QPointer<BubbleButton> m_panel;
    QVariantAnimation* m_fade = nullptr;
    std::function<void()> m_onClick;
};

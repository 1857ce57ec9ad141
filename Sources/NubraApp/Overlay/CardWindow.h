#pragma once

#include <QPoint>
#include <QRectF>
#include <QWidget>

class CardView;
class QPropertyAnimation;
class ScreenSpace;

// The floating window that holds the card. It never activates on show, so the application the user
// reads in keeps its focus; a click on it activates it, so its text can be selected and copied, and
// Escape then dismisses it and Ctrl+R reads the looked-up text aloud. It grows with its content while the
// edge nearest the selection stays put.
class CardWindow : public QWidget {
    Q_OBJECT
public:
    CardWindow();
    ~CardWindow() override;

    // Puts the card next to `selection` (global coordinates), replacing wherever it was.
    void showNear(const QRectF& selection, const ScreenSpace& screens);

    CardView* view() const { return m_view; }
    // Rounded and translucent (a compositor runs) or a plain card with a border.
    bool isTranslucent() const { return m_translucent; }
    // The card sits above the selection, so it grows upwards.
    bool growsUpwards() const { return m_above; }

signals:
    void dismissRequested();

protected:
    void paintEvent(QPaintEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;

private:
    // Resizes to the content, re-asserting the anchor: a window manager may have moved a just-mapped
    // window, and the card must not jump while text streams in.
    void fitToContent();

    CardView* m_view = nullptr;
    QPropertyAnimation* m_fade = nullptr;
    bool m_translucent = false;
    bool m_placed = false;
    bool m_above = false;
    int m_anchorX = 0;
    int m_anchorY = 0; // the top edge, or the bottom edge when the card sits above the selection
};

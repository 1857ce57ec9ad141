#pragma once

#include <QWidget>

// The small "Nubra is running" card shown at launch: a green check, the line itself, a close button,
// and where the icon lives. It paints its own card: rounded and see-through when its window is
// translucent, an opaque square card otherwise (without a compositor nothing can show through the
// corners). Main thread only.
class WelcomeView final : public QWidget {
    Q_OBJECT

public:
    static constexpr int cardWidth = 300;
    static constexpr int padding = 14;
    static constexpr qreal cornerRadius = 12;

    explicit WelcomeView(QWidget* parent = nullptr);

signals:
    // The close button was clicked.
    void closeRequested();

protected:
    void paintEvent(QPaintEvent* event) override;
};

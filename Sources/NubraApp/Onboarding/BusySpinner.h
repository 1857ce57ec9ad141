#pragma once

#include <QWidget>

class QTimer;

// A small indeterminate busy indicator: spokes round a centre, the bright one stepping round. It only
// runs while it is on screen, so a hidden spinner never wakes the application.
class BusySpinner final : public QWidget {
    Q_OBJECT

public:
    static constexpr int spokes = 12;
    static constexpr int stepMs = 80;

    explicit BusySpinner(int size = 16, QWidget* parent = nullptr);

    bool isSpinning() const;

protected:
    void paintEvent(QPaintEvent* event) override;
    void showEvent(QShowEvent* event) override;
    void hideEvent(QHideEvent* event) override;

private:
    QTimer* m_timer;
    int m_step = 0;
};

#pragma once

#include <QPointF>

// X11 has no click count: a press continues a run when it is the same button, soon enough after the
// previous press and close enough to it.
class ClickCounter {
public:
    ClickCounter(int intervalMs, double maxDistance) : m_intervalMs(intervalMs), m_maxDistance(maxDistance) {}

    // The click count of this press.
    int press(int button, qint64 timeMs, const QPointF& position);

private:
    int m_intervalMs;
    double m_maxDistance;
    int m_button = -1;
    qint64 m_timeMs = 0;
    QPointF m_position;
    int m_count = 0;
};

#include "NubraPlatform/linux/ClickCounter.h"

#include <QLineF>

int ClickCounter::press(int button, qint64 timeMs, const QPointF& position) {
    const bool continues = m_count > 0 && button == m_button && timeMs - m_timeMs <= m_intervalMs &&
                           QLineF(position, m_position).length() <= m_maxDistance;
    m_count = continues ? m_count + 1 : 1;
    m_button = button;
    m_timeMs = timeMs;
    m_position = position;
    return m_count;
}

#include "NubraGlossd/SectionSplitter.h"

namespace {

const QString gloss = QStringLiteral("gloss");
const QString contextual = QStringLiteral("contextual_meaning");

} // namespace

std::vector<std::pair<QString, QString>> SectionSplitter::feed(const QString& text) {
    std::vector<std::pair<QString, QString>> pieces;
    m_pending += text;
    if (!m_inContext) {
        const qsizetype at = m_pending.indexOf(marker);
        if (at >= 0) {
            if (at > 0)
                pieces.emplace_back(gloss, m_pending.left(at));
            m_pending = m_pending.mid(at + marker.size());
            m_inContext = true;
        } else {
            qsizetype keep = 0;
            for (qsizetype n = std::min(m_pending.size(), marker.size() - 1); n > 0 && keep == 0; --n)
                if (m_pending.endsWith(QStringView(marker).left(n)))
                    keep = n;
            qsizetype ready = m_pending.size() - keep;
            if (ready > 0 && m_pending.at(ready - 1).isHighSurrogate())
                --ready;
            if (ready > 0)
                pieces.emplace_back(gloss, m_pending.left(ready));
            m_pending = m_pending.mid(ready);
            return pieces;
        }
    }
    // The meaning starts after the marker's line break: its leading blanks are dropped.
    if (!m_contextStarted) {
        qsizetype blank = 0;
        while (blank < m_pending.size() && m_pending.at(blank).isSpace())
            ++blank;
        m_pending = m_pending.mid(blank);
    }
    qsizetype ready = m_pending.size();
    if (ready > 0 && m_pending.at(ready - 1).isHighSurrogate())
        --ready;
    if (ready > 0) {
        pieces.emplace_back(contextual, m_pending.left(ready));
        m_pending = m_pending.mid(ready);
        m_contextStarted = true;
    }
    return pieces;
}

std::vector<std::pair<QString, QString>> SectionSplitter::finish() {
    std::vector<std::pair<QString, QString>> pieces;
    if (!m_pending.trimmed().isEmpty())
        pieces.emplace_back(m_inContext ? contextual : gloss, m_pending);
    m_pending.clear();
    return pieces;
}

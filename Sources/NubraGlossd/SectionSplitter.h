#pragma once

#include <QString>

#include <utility>
#include <vector>

// Splits a model's streamed answer into the explanation and the contextual meaning, which the prompt
// asks it to separate with a marker line. The marker may arrive cut across several pieces, so the tail
// that could still begin one is held back until the next piece settles it.
class SectionSplitter {
public:
    static inline const QString marker = QStringLiteral("[[CONTEXT]]");

    // (field, text) pieces ready to be sent, "gloss" first, then "contextual_meaning".
    std::vector<std::pair<QString, QString>> feed(const QString& text);
    std::vector<std::pair<QString, QString>> finish();

private:
    bool m_inContext = false;
    bool m_contextStarted = false;
    QString m_pending;
};

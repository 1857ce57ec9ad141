#pragma once

#include "NubraPlatform/TextRecognizer.h"

#include <QList>

#include <atomic>

// A recognizer that answers what the test set, and remembers what it was asked.
class FakeTextRecognizer final : public TextRecognizer {
public:
    struct Call {
        QSize pictureSize;
        QRect area;
        QString outputLanguage;
    };

    void setAnswer(std::optional<ScreenText> answer) { m_answer = std::move(answer); }
    // Unavailable while `reason` is set.
    void setUnavailable(QString reason) { m_reason = std::move(reason); }

    bool isAvailable() const override { return m_reason.isEmpty(); }
    QString unavailableReason() const override { return m_reason; }
    std::optional<ScreenText> read(const QImage& picture, const QRect& area,
                                   const QString& outputLanguage) override;

    // Safe to read from the test's thread while a worker calls read().
    int callCount() const { return m_count; }
    // Only once the reads have finished.
    QList<Call> calls() const { return m_calls; }

private:
    std::optional<ScreenText> m_answer;
    QString m_reason;
    std::atomic<int> m_count = 0;
    QList<Call> m_calls;
};

#include "NubraPlatform/fake/FakeTextRecognizer.h"

std::optional<ScreenText> FakeTextRecognizer::read(const QImage& picture, const QRect& area,
                                                   const QString& outputLanguage) {
    m_calls.append({picture.size(), area, outputLanguage});
    ++m_count;
    return m_reason.isEmpty() ? m_answer : std::nullopt;
}

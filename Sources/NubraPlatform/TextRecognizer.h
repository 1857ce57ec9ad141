#pragma once

#include <QImage>
#include <QRect>
#include <QString>

#include <optional>

// Text read from a picture of the screen: what lies inside the area the user marked, and the lines
// around it, which serve as the context of the lookup as the text around a selection does.
struct ScreenText {
    QString selected;
    QString before;
    QString after;
};

// Reads text from pictures of the screen, on this machine only. Blocking and slow (tens to hundreds
// of milliseconds): called from a worker thread, one call at a time per recognizer.
class TextRecognizer {
public:
    virtual ~TextRecognizer() = default;

    // False when no recognition engine or language data is installed; `unavailableReason` then says
    // which, in words for the diagnosis.
    virtual bool isAvailable() const = 0;
    virtual QString unavailableReason() const = 0;

    // Reads `area` (in the picture's pixels) of `picture`, a capture of the screen around the area
    // that may reach beyond it, so that the lines above and below can be read as context.
    // `outputLanguage` is the language the explanation is written in ("en" or "zh"), a hint for
    // which scripts to expect. Nothing when the area holds no text.
    virtual std::optional<ScreenText> read(const QImage& picture, const QRect& area,
                                           const QString& outputLanguage) = 0;
    // Loads ahead of time what the first read for `outputLanguage` needs, so that it does not wait
    // for it. Blocking like read().
    virtual void warmUp(const QString& outputLanguage) { Q_UNUSED(outputLanguage) }
};

#include "OcrTestKit.h"

#include <QFontMetrics>
#include <QLinearGradient>
#include <QPainter>
#include <QRandomGenerator>

#include <algorithm>

namespace OcrTestKit {

QFont font(const QString& family, int pixelSize) {
    QFont f(family);
    f.setPixelSize(pixelSize);
    f.setHintingPreference(QFont::PreferFullHinting);
    return f;
}

Page render(const QStringList& lines, const QFont& font, Backdrop backdrop, int margin) {
    const QFontMetrics metrics(font);
    int width = 0;
    for (const QString& line : lines)
        width = std::max(width, metrics.horizontalAdvance(line));
    const int pitch = metrics.lineSpacing() + metrics.height() / 3;
    Page page;
    page.image = QImage(width + 2 * margin, int(lines.size()) * pitch + 2 * margin, QImage::Format_RGB32);
    QPainter painter(&page.image);
    switch (backdrop) {
    case Backdrop::Plain:
        page.image.fill(Qt::white);
        painter.setPen(Qt::black);
        break;
    case Backdrop::Busy: {
        QLinearGradient gradient(0, 0, page.image.width(), page.image.height());
        gradient.setColorAt(0, QColor(250, 240, 200));
        gradient.setColorAt(1, QColor(150, 190, 230));
        painter.fillRect(page.image.rect(), gradient);
        QRandomGenerator random(7); // the same speckles on every run
        for (int i = 0; i < page.image.width() * page.image.height() / 40; ++i) {
            const int grey = 120 + int(random.bounded(120));
            page.image.setPixel(int(random.bounded(page.image.width())),
                                int(random.bounded(page.image.height())), qRgb(grey, grey, grey));
        }
        painter.setPen(QColor(20, 20, 60));
        break;
    }
    case Backdrop::Dark:
        page.image.fill(QColor(30, 34, 40));
        painter.setPen(QColor(230, 230, 210));
        break;
    }
    painter.setFont(font);
    for (int i = 0; i < lines.size(); ++i) {
        const int top = margin + i * pitch;
        painter.drawText(margin, top + metrics.ascent(), lines[i]);
        page.lines.push_back(QRect(margin, top, metrics.horizontalAdvance(lines[i]), metrics.height()));
    }
    return page;
}

QRect wordBox(const Page& page, int line, const QString& lineText, const QString& word, const QFont& font) {
    const QFontMetrics metrics(font);
    const qsizetype at = lineText.indexOf(word);
    const QRect& box = page.lines.at(size_t(line));
    return QRect(box.x() + metrics.horizontalAdvance(lineText.left(at)), box.y(),
                 metrics.horizontalAdvance(word), box.height());
}

int editDistance(const QString& a, const QString& b) {
    std::vector<int> previous(size_t(b.size()) + 1), current(previous.size());
    for (size_t j = 0; j < previous.size(); ++j)
        previous[j] = int(j);
    for (qsizetype i = 1; i <= a.size(); ++i) {
        current[0] = int(i);
        for (qsizetype j = 1; j <= b.size(); ++j)
            current[size_t(j)] = std::min({previous[size_t(j)] + 1, current[size_t(j - 1)] + 1,
                                           previous[size_t(j - 1)] + (a[i - 1] == b[j - 1] ? 0 : 1)});
        std::swap(previous, current);
    }
    return previous[size_t(b.size())];
}

double characterAccuracy(const QString& expected, const QString& got) {
    if (expected.isEmpty())
        return got.isEmpty() ? 1.0 : 0.0;
    return std::max(0.0, 1.0 - double(editDistance(expected, got)) / double(expected.size()));
}

} // namespace OcrTestKit

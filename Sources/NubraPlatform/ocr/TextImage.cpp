#include "NubraPlatform/ocr/TextImage.h"

#include <algorithm>
#include <array>
#include <vector>

namespace {

// Otsu's threshold of a grey histogram: the level that best splits it into two classes.
int otsu(const std::array<qint64, 256>& histogram, qint64 total) {
    double sum = 0;
    for (int i = 0; i < 256; ++i)
        sum += double(i) * double(histogram[i]);
    double sumBelow = 0;
    qint64 below = 0;
    double best = -1;
    int threshold = 128;
    for (int i = 0; i < 256; ++i) {
        below += histogram[i];
        if (below == 0)
            continue;
        const qint64 above = total - below;
        if (above == 0)
            break;
        sumBelow += double(i) * double(histogram[i]);
        const double meanBelow = sumBelow / double(below);
        const double meanAbove = (sum - sumBelow) / double(above);
        const double between =
            double(below) * double(above) * (meanBelow - meanAbove) * (meanBelow - meanAbove);
        if (between > best) {
            best = between;
            threshold = i + 1; // levels below this are the dark class
        }
    }
    return threshold;
}

} // namespace

namespace TextImage {

TextImageLook look(const QImage& picture, const QRect& area) {
    TextImageLook result;
    const QRect box = area.intersected(picture.rect());
    if (box.isEmpty())
        return result;
    const QImage grey = picture.copy(box).convertToFormat(QImage::Format_Grayscale8);
    std::array<qint64, 256> histogram{};
    for (int y = 0; y < grey.height(); ++y) {
        const uchar* row = grey.constScanLine(y);
        for (int x = 0; x < grey.width(); ++x)
            ++histogram[row[x]];
    }
    const qint64 total = qint64(grey.width()) * grey.height();
    const int threshold = otsu(histogram, total);
    qint64 dark = 0;
    for (int i = 0; i < threshold; ++i)
        dark += histogram[i];
    double darkMean = 0, lightMean = 0;
    for (int i = 0; i < 256; ++i)
        (i < threshold ? darkMean : lightMean) += double(i) * double(histogram[i]);
    darkMean = dark ? darkMean / double(dark) : 0;
    lightMean = total - dark ? lightMean / double(total - dark) : 0;
    // Two classes closer than this are shading, not ink on a background.
    constexpr double minimumContrast = 40;
    if (dark == 0 || dark == total || lightMean - darkMean < minimumContrast)
        return result;
    result.blank = false;
    // Ink covers less of a text area than its background does.
    result.lightOnDark = dark > total - dark;
    result.threshold = threshold;
    result.ink = qRound(result.lightOnDark ? lightMean : darkMean);
    result.paper = qRound(result.lightOnDark ? darkMean : lightMean);

    // Rows holding ink, in runs: each run is one line of text.
    const int minimumInk = std::max(1, grey.width() / 100);
    std::vector<int> runs;
    int runStart = -1;
    int gap = 0;
    for (int y = 0; y <= grey.height(); ++y) {
        int ink = 0;
        if (y < grey.height()) {
            const uchar* row = grey.constScanLine(y);
            for (int x = 0; x < grey.width(); ++x)
                ink += (row[x] < threshold) != result.lightOnDark;
        }
        if (ink >= minimumInk) {
            if (runStart < 0)
                runStart = y;
            gap = 0;
        } else if (runStart >= 0 && (++gap > 1 || y == grey.height())) {
            const int height = y - gap + 1 - runStart;
            if (height >= 3) // thinner is a rule or an underline
                runs.push_back(height);
            runStart = -1;
        }
    }
    if (runs.empty()) {
        result.lineHeight = box.height();
        result.lines = 1;
        return result;
    }
    std::nth_element(runs.begin(), runs.begin() + runs.size() / 2, runs.end());
    result.lineHeight = runs[runs.size() / 2];
    result.lines = int(runs.size());
    return result;
}

QImage prepared(const QImage& picture, const QRect& region, const TextImageLook& look, double scale,
                int margin) {
    QImage grey = picture.copy(region.intersected(picture.rect())).convertToFormat(QImage::Format_Grayscale8);
    // Stretched so that the ink is black and the paper white: light text on dark turns round, and a
    // grey or tinted background no longer looks like ink beside the white border.
    std::array<uchar, 256> levels{};
    const double span = look.paper == look.ink ? 1.0 : double(look.paper - look.ink);
    for (int v = 0; v < 256; ++v)
        levels[size_t(v)] = uchar(std::clamp(qRound((v - look.ink) / span * 255), 0, 255));
    for (int y = 0; y < grey.height(); ++y) {
        uchar* row = grey.scanLine(y);
        for (int x = 0; x < grey.width(); ++x)
            row[x] = levels[row[x]];
    }
    if (scale != 1.0)
        grey =
            grey.scaled(std::max(1, qRound(grey.width() * scale)), std::max(1, qRound(grey.height() * scale)),
                        Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
    QImage framed(grey.width() + 2 * margin, grey.height() + 2 * margin, QImage::Format_Grayscale8);
    framed.fill(255);
    for (int y = 0; y < grey.height(); ++y)
        std::copy_n(grey.constScanLine(y), grey.width(), framed.scanLine(y + margin) + margin);
    return framed;
}

bool hasInkAround(const QImage& picture, const QRect& region, const QRect& area, const TextImageLook& look) {
    const QRect box = region.intersected(picture.rect());
    const QImage grey = picture.copy(box).convertToFormat(QImage::Format_Grayscale8);
    // Less than a small letter's worth of ink is a speckle.
    const int enough = std::max(4, look.lineHeight * look.lineHeight / 8);
    int ink = 0;
    for (int y = 0; y < grey.height(); ++y) {
        const uchar* row = grey.constScanLine(y);
        for (int x = 0; x < grey.width(); ++x) {
            if (area.contains(box.x() + x, box.y() + y))
                continue;
            ink += (row[x] < look.threshold) != look.lightOnDark;
            if (ink >= enough)
                return true;
        }
    }
    return false;
}

int blankRow(const QImage& picture, int y, int left, int right, int reach, int awayStep,
             const TextImageLook& look) {
    const QRect strip = QRect(left, y - reach, right - left + 1, 2 * reach + 1).intersected(picture.rect());
    if (strip.isEmpty())
        return y;
    const QImage grey = picture.copy(strip).convertToFormat(QImage::Format_Grayscale8);
    const int minimumInk = std::max(1, grey.width() / 200);
    const auto blank = [&](int row) {
        if (row < strip.top() || row > strip.bottom())
            return false;
        const uchar* pixels = grey.constScanLine(row - strip.top());
        int ink = 0;
        for (int x = 0; x < grey.width(); ++x)
            ink += (pixels[x] < look.threshold) != look.lightOnDark;
        return ink < minimumInk;
    };
    for (int distance = 0; distance <= reach; ++distance) {
        if (blank(y + awayStep * distance))
            return y + awayStep * distance;
        if (distance > 0 && blank(y - awayStep * distance))
            return y - awayStep * distance;
    }
    return y;
}

} // namespace TextImage

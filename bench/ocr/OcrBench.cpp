// Text recognition of rendered lines: our recognizer beside the tesseract command-line program on the
// same pictures in the same run (told the right language and that each picture is one line). Prints
// the time per area and the character accuracy (1 - edit distance / length) of each, and their ratios;
// numbers are reported, never judged.
//   bench_ocr [--runs N]                  the fixed set of lines
//   bench_ocr --picture PNG --area X,Y,W,H [--language en|zh]
//                                         two reads of a screen picture (models loading, then warm),
//                                         as JSON: the recognition half of "marked area to the card's
//                                         first text"
#include "../../Tests/NubraPlatformTests/OcrTestKit.h"
#include "NubraPlatform/ocr/TesseractRecognizer.h"

#include <QCommandLineParser>
#include <QDir>
#include <QElapsedTimer>
#include <QFontDatabase>
#include <QGuiApplication>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <map>

using OcrTestKit::Backdrop;

namespace {

struct Sample {
    QString group;
    QString text;
    QString family;
    int pixelSize;
    Backdrop backdrop;
    QString tesseractLanguage; // what the command-line program is told
    QString outputLanguage;    // the reader's language, our only hint
};

std::vector<Sample> samples() {
    const QStringList english = {QStringLiteral("The ephemeral beauty of autumn leaves"),
                                 QStringLiteral("Quantum entanglement defies classical intuition."),
                                 QStringLiteral("Press Ctrl+S to save your progress, 3 slots left")};
    const QStringList simplified = {QStringLiteral("这是一个简单的中文句子，用来测试识别。"),
                                    QStringLiteral("学而时习之，不亦说乎？")};
    const QString traditional = QStringLiteral("這是一個簡單的中文句子，用來測試識別。");
    std::vector<Sample> all;
    for (const int size : {10, 14, 22})
        for (const QString& family : {QStringLiteral("DejaVu Sans"), QStringLiteral("Liberation Serif")})
            for (const QString& line : english)
                all.push_back({QStringLiteral("en %1px").arg(size), line, family, size, Backdrop::Plain,
                               QStringLiteral("eng"), QStringLiteral("zh")});
    for (const QString& line : english)
        all.push_back({QStringLiteral("en busy/dark"), line, QStringLiteral("DejaVu Sans"), 14,
                       line.startsWith(QLatin1Char('P')) ? Backdrop::Dark : Backdrop::Busy,
                       QStringLiteral("eng"), QStringLiteral("zh")});
    const QString chinese = QStringLiteral("WenQuanYi Micro Hei");
    for (const int size : {12, 16, 24}) {
        for (const QString& line : simplified)
            all.push_back({QStringLiteral("zh %1px").arg(size), line, chinese, size, Backdrop::Plain,
                           QStringLiteral("chi_sim"), QStringLiteral("en")});
        all.push_back({QStringLiteral("zh %1px").arg(size), traditional, chinese, size, Backdrop::Plain,
                       QStringLiteral("chi_tra"), QStringLiteral("en")});
    }
    return all;
}

// Chinese readings are compared without spaces: both engines put some between characters.
QString normalised(QString text, bool chinese) {
    text = text.simplified();
    return chinese ? text.remove(QLatin1Char(' ')) : text;
}

double median(std::vector<double> values) {
    if (values.empty())
        return 0;
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

struct Tally {
    std::vector<double> oursMs, cliMs;
    double oursAccuracy = 0, cliAccuracy = 0;
    int count = 0;
};

int readOne(const QString& path, const QString& areaText, const QString& language) {
    const QImage picture(path);
    const QStringList parts = areaText.split(QLatin1Char(','));
    if (picture.isNull() || parts.size() != 4) {
        std::fprintf(stderr, "needs a readable picture and --area X,Y,W,H\n");
        return 2;
    }
    const QRect area(parts[0].toInt(), parts[1].toInt(), parts[2].toInt(), parts[3].toInt());
    // The first read loads the models, as the first one after the application starts does; the second
    // is what every later one costs.
    TesseractRecognizer recognizer;
    QElapsedTimer timer;
    timer.start();
    recognizer.read(picture, area, language);
    const double first = double(timer.nsecsElapsed()) / 1e6;
    timer.restart();
    const std::optional<ScreenText> text = recognizer.read(picture, area, language);
    QJsonObject result{{QStringLiteral("first_read_ms"), first},
                       {QStringLiteral("read_ms"), double(timer.nsecsElapsed()) / 1e6},
                       {QStringLiteral("found"), bool(text)}};
    if (text) {
        result.insert(QStringLiteral("selected"), text->selected);
        result.insert(QStringLiteral("before"), text->before);
        result.insert(QStringLiteral("after"), text->after);
    }
    std::printf("%s\n", QJsonDocument(result).toJson(QJsonDocument::Compact).constData());
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication app(argc, argv);
    QCommandLineParser parser;
    const QCommandLineOption runsOption(QStringLiteral("runs"), QStringLiteral("reads per line"),
                                        QStringLiteral("N"), QStringLiteral("3"));
    const QCommandLineOption pictureOption(QStringLiteral("picture"), QStringLiteral("screen picture"),
                                           QStringLiteral("PNG"));
    const QCommandLineOption areaOption(QStringLiteral("area"), QStringLiteral("marked area"),
                                        QStringLiteral("X,Y,W,H"));
    const QCommandLineOption languageOption(QStringLiteral("language"), QStringLiteral("reader's language"),
                                            QStringLiteral("en|zh"), QStringLiteral("zh"));
    parser.addOptions({runsOption, pictureOption, areaOption, languageOption});
    parser.process(app);
    if (parser.isSet(pictureOption))
        return readOne(parser.value(pictureOption), parser.value(areaOption), parser.value(languageOption));

    TesseractRecognizer recognizer(TesseractData::defaultPath(),
                                   TesseractRecognizer::ChineseScript::Simplified);
    // Traditional lines as read on a computer set up for Taiwan or Hong Kong: elsewhere they come out
    // in simplified characters.
    TesseractRecognizer traditional(TesseractData::defaultPath(),
                                    TesseractRecognizer::ChineseScript::Traditional);
    if (!recognizer.isAvailable() || !recognizer.unavailableReason().isEmpty() ||
        QStandardPaths::findExecutable(QStringLiteral("tesseract")).isEmpty()) {
        std::fprintf(stderr, "needs the tesseract program and its English and Chinese data\n");
        return 1;
    }
    const int runs = std::max(1, parser.value(runsOption).toInt());
    QTemporaryDir dir;

    // What the first read of each kind costs while the models load, against a warm read.
    for (const auto& [label, language] : {std::pair{"English reader, first read (loads chi_sim, eng)", "en"},
                                          std::pair{"Chinese reader, first read (loads eng)", "zh"}}) {
        TesseractRecognizer cold;
        const OcrTestKit::Page page =
            OcrTestKit::render({QStringLiteral("Warm up the engine")},
                               OcrTestKit::font(QStringLiteral("DejaVu Sans"), 16), Backdrop::Plain);
        QElapsedTimer timer;
        timer.start();
        cold.read(page.image, page.lines[0], QString::fromLatin1(language));
        const double first = double(timer.nsecsElapsed()) / 1e6;
        timer.restart();
        cold.read(page.image, page.lines[0], QString::fromLatin1(language));
        std::printf("%-50s %8.1f ms (warm: %.1f ms)\n", label, first, double(timer.nsecsElapsed()) / 1e6);
    }

    std::map<QString, Tally> groups;
    std::vector<QString> order;
    int index = 0;
    for (const Sample& sample : samples()) {
        if (!QFontDatabase::families().contains(sample.family)) {
            std::fprintf(stderr, "font %s missing, line left out\n", qPrintable(sample.family));
            continue;
        }
        const OcrTestKit::Page page = OcrTestKit::render(
            {sample.text}, OcrTestKit::font(sample.family, sample.pixelSize), sample.backdrop);
        const QRect area = page.lines[0].adjusted(-3, -3, 3, 3);
        // The command-line program gets exactly the marked area, as a cropping tool would give it.
        const QString path = dir.filePath(QStringLiteral("line%1.png").arg(index++));
        page.image.copy(area).save(path);
        const bool chinese = sample.tesseractLanguage != QStringLiteral("eng");
        if (!groups.count(sample.group))
            order.push_back(sample.group);
        Tally& tally = groups[sample.group];
        QString oursText, cli;
        for (int run = 0; run < runs; ++run) {
            QElapsedTimer timer;
            timer.start();
            TesseractRecognizer& ours =
                sample.tesseractLanguage == QStringLiteral("chi_tra") ? traditional : recognizer;
            const std::optional<ScreenText> read = ours.read(page.image, area, sample.outputLanguage);
            tally.oursMs.push_back(double(timer.nsecsElapsed()) / 1e6);
            oursText = read ? read->selected : QString();

            QProcess tesseract;
            timer.restart();
            tesseract.start(QStringLiteral("tesseract"),
                            {path, QStringLiteral("-"), QStringLiteral("-l"), sample.tesseractLanguage,
                             QStringLiteral("--psm"), QStringLiteral("7")});
            tesseract.waitForFinished(60000);
            tally.cliMs.push_back(double(timer.nsecsElapsed()) / 1e6);
            cli = QString::fromUtf8(tesseract.readAllStandardOutput());
        }
        tally.oursAccuracy +=
            OcrTestKit::characterAccuracy(normalised(sample.text, chinese), normalised(oursText, chinese));
        tally.cliAccuracy +=
            OcrTestKit::characterAccuracy(normalised(sample.text, chinese), normalised(cli, chinese));
        ++tally.count;
    }

    std::printf("\n%-14s %5s %12s %12s %8s %10s %10s %8s\n", "lines", "count", "ours ms", "cli ms", "ratio",
                "ours acc", "cli acc", "ratio");
    std::vector<double> allOurs, allCli;
    double oursAccuracy = 0, cliAccuracy = 0;
    int count = 0;
    for (const QString& group : order) {
        const Tally& t = groups[group];
        const double ours = median(t.oursMs), cli = median(t.cliMs);
        std::printf("%-14s %5d %12.1f %12.1f %7.2fx %10.3f %10.3f %7.2fx\n", qPrintable(group), t.count, ours,
                    cli, ours / cli, t.oursAccuracy / t.count, t.cliAccuracy / t.count,
                    t.oursAccuracy / std::max(1e-9, t.cliAccuracy));
        allOurs.insert(allOurs.end(), t.oursMs.begin(), t.oursMs.end());
        allCli.insert(allCli.end(), t.cliMs.begin(), t.cliMs.end());
        oursAccuracy += t.oursAccuracy;
        cliAccuracy += t.cliAccuracy;
        count += t.count;
    }
    std::printf("%-14s %5d %12.1f %12.1f %7.2fx %10.3f %10.3f %7.2fx\n", "all", count, median(allOurs),
                median(allCli), median(allOurs) / median(allCli), oursAccuracy / count, cliAccuracy / count,
                oursAccuracy / std::max(1e-9, cliAccuracy));
    std::printf(
        "(time: median per area, ours warm with its context read, the program loading its model each run; "
        "ratio ours / program)\n");
    return 0;
}

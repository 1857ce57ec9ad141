#include "NubraPlatform/ocr/ModuleRecognizer.h"
#include "NubraPlatform/ocr/TesseractRecognizer.h"
#include "OcrTestKit.h"

#include <QFileInfo>
#include <QFontDatabase>
#include <QPainter>
#include <QTemporaryDir>
#include <QtTest>

#include <future>

using OcrTestKit::Backdrop;

namespace {

// Small or busy text may lose a character or two to the engine; this much must still be right.
constexpr double tolerantAccuracy = 0.9;

const QString chineseFont = QStringLiteral("WenQuanYi Micro Hei");

const QStringList paragraph = {
    QStringLiteral("Reading is to the mind what exercise is to the body."),
    QStringLiteral("It is not enough to merely read the words on a page;"),
    QStringLiteral("one must understand the meaning behind every phrase and"),
    QStringLiteral("relate each idea to what one has learned before, bring-"),
    QStringLiteral("ing knowledge together until it becomes truly useful."),
};

bool hasLanguage(const QString& language) {
    return QFileInfo::exists(TesseractData::defaultPath() + QLatin1Char('/') + language +
                             QStringLiteral(".traineddata"));
}

} // namespace

class TextRecognizerTest : public QObject {
    Q_OBJECT

    TesseractRecognizer m_recognizer{TesseractData::defaultPath(),
                                     TesseractRecognizer::ChineseScript::Simplified};
    // As on a computer set up for Taiwan or Hong Kong.
    TesseractRecognizer m_traditional{TesseractData::defaultPath(),
                                      TesseractRecognizer::ChineseScript::Traditional};

private slots:
    void initTestCase() {
        if (!hasLanguage(QStringLiteral("eng")))
            QSKIP("skipped: no Tesseract English language data (tesseract-ocr-eng)");
    }

    void readsLines_data() {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("family");
        QTest::addColumn<int>("pixelSize");
        QTest::addColumn<Backdrop>("backdrop");
        QTest::addColumn<QString>("outputLanguage");
        QTest::addColumn<bool>("exact");
        const QString sans = QStringLiteral("DejaVu Sans");
        const QString serif = QStringLiteral("Liberation Serif");
        const QString mono = QStringLiteral("DejaVu Sans Mono");
        QTest::newRow("sans 24") << QStringLiteral("The ephemeral beauty of autumn leaves") << sans << 24
                                 << Backdrop::Plain << QStringLiteral("zh") << true;
        QTest::newRow("serif 14") << QStringLiteral("Quantum entanglement defies classical intuition.")
                                  << serif << 14 << Backdrop::Plain << QStringLiteral("zh") << true;
        QTest::newRow("mono 16 light on dark") << QStringLiteral("grep --recursive pattern src/") << mono
                                               << 16 << Backdrop::Dark << QStringLiteral("en") << true;
        QTest::newRow("sans 10") << QStringLiteral("Small print hides the important details") << sans << 10
                                 << Backdrop::Plain << QStringLiteral("zh") << false;
        QTest::newRow("serif 11 busy") << QStringLiteral("Subtitles over a moving picture") << serif << 11
                                       << Backdrop::Busy << QStringLiteral("zh") << false;
        QTest::newRow("simplified 20") << QStringLiteral("这是一个简单的中文句子") << chineseFont << 20
                                       << Backdrop::Plain << QStringLiteral("en") << true;
        QTest::newRow("traditional 20") << QStringLiteral("這是一個簡單的中文句子") << chineseFont << 20
                                        << Backdrop::Plain << QStringLiteral("en") << true;
        QTest::newRow("simplified 16 dark, Chinese reader")
            << QStringLiteral("学习使人进步") << chineseFont << 16 << Backdrop::Dark << QStringLiteral("zh")
            << true;
        QTest::newRow("simplified 12 busy") << QStringLiteral("今天的天气非常好") << chineseFont << 12
                                            << Backdrop::Busy << QStringLiteral("en") << false;
    }

    void readsLines() {
        QFETCH(QString, text);
        QFETCH(QString, family);
        QFETCH(int, pixelSize);
        QFETCH(Backdrop, backdrop);
        QFETCH(QString, outputLanguage);
        QFETCH(bool, exact);
        if (family == chineseFont &&
            (!QFontDatabase::families().contains(family) || !hasLanguage(QStringLiteral("chi_sim")) ||
             !hasLanguage(QStringLiteral("chi_tra"))))
            QSKIP("skipped: no Chinese font (fonts-wqy-microhei) or Chinese language data");
        const QFont font = OcrTestKit::font(family, pixelSize);
        const OcrTestKit::Page page = OcrTestKit::render({text}, font, backdrop);
        // Marked a little loosely, as a hand does; the picture reaches beyond, as the caller's does.
        const QRect area = page.lines[0].adjusted(-3, -3, 3, 3);

        TesseractRecognizer& recognizer = text.contains(QStringLiteral("這")) ? m_traditional : m_recognizer;
        const std::optional<ScreenText> read = recognizer.read(page.image, area, outputLanguage);

        QVERIFY(read);
        if (exact)
            QCOMPARE(read->selected, text);
        else
            QVERIFY2(OcrTestKit::characterAccuracy(text, read->selected) >= tolerantAccuracy,
                     qPrintable(read->selected));
        // Nothing around the line, so no context made up out of the backdrop.
        QCOMPARE(read->before, QString());
        QCOMPARE(read->after, QString());
    }

    void areaWithoutTextGivesNothing() {
        const QFont font = OcrTestKit::font(QStringLiteral("DejaVu Sans"), 16);
        for (const Backdrop backdrop : {Backdrop::Plain, Backdrop::Busy, Backdrop::Dark}) {
            const OcrTestKit::Page page =
                OcrTestKit::render({QStringLiteral("Some words")}, font, backdrop, 60);
            // Below the line, where only the backdrop is.
            const QRect below(0, page.image.height() - 50, page.image.width(), 45);
            QVERIFY(!m_recognizer.read(page.image, below, QStringLiteral("zh")));
        }
        // An icon's shapes are not letters.
        QImage icon(120, 60, QImage::Format_RGB32);
        icon.fill(Qt::white);
        QPainter painter(&icon);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.setBrush(QColor(40, 120, 200));
        painter.drawRoundedRect(8, 8, 44, 44, 10, 10);
        painter.setBrush(Qt::white);
        painter.drawPolygon(QPolygon({QPoint(22, 18), QPoint(42, 30), QPoint(22, 42)}));
        painter.setBrush(QColor(200, 60, 40));
        painter.drawPie(64, 8, 44, 44, 30 * 16, 300 * 16);
        painter.end();
        QVERIFY(!m_recognizer.read(icon, icon.rect(), QStringLiteral("en")));
        QVERIFY(
            !m_recognizer.read(icon, QRect(500, 500, 20, 20), QStringLiteral("en"))); // outside the picture
    }

    void wordInAParagraphComesWithItsContext() {
        const QFont font = OcrTestKit::font(QStringLiteral("DejaVu Sans"), 16);
        const OcrTestKit::Page page = OcrTestKit::render(paragraph, font, Backdrop::Plain);
        const QRect word = OcrTestKit::wordBox(page, 2, paragraph[2], QStringLiteral("meaning"), font);

        const std::optional<ScreenText> read = m_recognizer.read(page.image, word.adjusted(-2, -2, 2, 2), {});

        QVERIFY(read);
        QCOMPARE(read->selected, QStringLiteral("meaning"));
        QVERIFY2(read->before.endsWith(paragraph[1] + QStringLiteral(" one must understand the")),
                 qPrintable(read->before));
        QVERIFY2(read->after.startsWith(QStringLiteral("behind every phrase and ") + paragraph[3].left(20)),
                 qPrintable(read->after));
        QVERIFY(read->before.size() <= 300 && read->after.size() <= 300);
    }

    void linesOfABlockJoinAcrossAHyphen() {
        const QFont font = OcrTestKit::font(QStringLiteral("Liberation Serif"), 15);
        const OcrTestKit::Page page = OcrTestKit::render(paragraph, font, Backdrop::Plain);
        const QRect block = page.lines[3].united(page.lines[4]).adjusted(-3, -3, 3, 3);

        const std::optional<ScreenText> read = m_recognizer.read(page.image, block, QStringLiteral("zh"));

        QVERIFY(read);
        QCOMPARE(read->selected,
                 QStringLiteral("relate each idea to what one has learned before, bringing knowledge "
                                "together until it becomes truly useful."));
        QVERIFY2(read->before.endsWith(paragraph[2]), qPrintable(read->before));
        QCOMPARE(read->after, QString());
    }

    void concurrentReadsTakeTurns() {
        const QFont font = OcrTestKit::font(QStringLiteral("DejaVu Sans"), 18);
        const QString text = QStringLiteral("Two threads ask at once");
        const OcrTestKit::Page page = OcrTestKit::render({text}, font, Backdrop::Plain);
        const auto read = [&] { return m_recognizer.read(page.image, page.lines[0], QStringLiteral("zh")); };
        auto first = std::async(std::launch::async, read);
        auto second = std::async(std::launch::async, read);
        for (auto* result : {&first, &second}) {
            const std::optional<ScreenText> answer = result->get();
            QVERIFY(answer);
            QCOMPARE(answer->selected, text);
        }
    }

    void missingLanguageDataIsNamed() {
        QTemporaryDir empty;
        TesseractRecognizer recognizer(empty.path());
        QVERIFY(!recognizer.isAvailable());
        QVERIFY(recognizer.unavailableReason().contains(empty.path()));
        QVERIFY(!recognizer.read(QImage(40, 20, QImage::Format_RGB32), QRect(0, 0, 40, 20), {}));

        // With English alone, the Chinese packages are named for the diagnosis.
        QVERIFY(QFile::link(TesseractData::defaultPath() + QStringLiteral("/eng.traineddata"),
                            empty.filePath(QStringLiteral("eng.traineddata"))));
        QVERIFY(recognizer.isAvailable());
        const QString reason = recognizer.unavailableReason();
        QVERIFY2(reason.contains(QStringLiteral("tesseract-ocr-chi-sim")) &&
                     reason.contains(QStringLiteral("tesseract-ocr-chi-tra")) &&
                     !reason.contains(QStringLiteral("tesseract-ocr-eng")),
                 qPrintable(reason));
    }
    // Nubra loads the recognizer from its module on the first read; a module gone is said, not a crash.
    void moduleReadsAsTheRecognizerDoes() {
        const QFont font = OcrTestKit::font(QStringLiteral("DejaVu Sans"), 24);
        const OcrTestKit::Page page =
            OcrTestKit::render({QStringLiteral("Loaded when first needed")}, font, Backdrop::Plain);
        const QRect area = page.lines[0].adjusted(-3, -3, 3, 3);
        ModuleRecognizer module(QStringLiteral(RECOGNIZER_MODULE));
        QVERIFY(module.isAvailable());
        const std::optional<ScreenText> read = module.read(page.image, area, QStringLiteral("en"));
        QVERIFY(read);
        QCOMPARE(read->selected, QStringLiteral("Loaded when first needed"));

        ModuleRecognizer missing(QStringLiteral("/nonexistent/nubra-ocr.so"));
        QVERIFY(!missing.isAvailable());
        QVERIFY(missing.unavailableReason().contains(QStringLiteral("/nonexistent/nubra-ocr.so")));
        QVERIFY(!missing.read(page.image, area, QStringLiteral("en")));

        // A file that is no module (or lacks a library it needs) fails once, and says why from then on.
        QTemporaryDir folder;
        QFile broken(folder.filePath(QStringLiteral("nubra-ocr.so")));
        QVERIFY(broken.open(QIODevice::WriteOnly) && broken.write("not a module") > 0);
        broken.close();
        ModuleRecognizer unloadable(broken.fileName());
        QVERIFY(unloadable.isAvailable());
        QVERIFY(!unloadable.read(page.image, area, QStringLiteral("en")));
        QVERIFY(!unloadable.isAvailable());
        QVERIFY2(unloadable.unavailableReason().contains(broken.fileName()),
                 qPrintable(unloadable.unavailableReason()));
    }
};

QTEST_MAIN(TextRecognizerTest)
#include "tst_textrecognizer.moc"

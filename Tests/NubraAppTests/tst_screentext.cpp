#include "NubraApp/ScreenText/AreaPickerWindow.h"
#include "NubraApp/ScreenText/ScreenTextLookup.h"
#include "NubraCore/Vocabulary/L10n.h"
#include "OverlayTestKit.h"

#include <QSignalSpy>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

// Answers what the test set, and keeps what it was given.
class ScriptedRecognizer final : public TextRecognizer {
public:
    bool available = true;
    bool failsToLoad = false; // unavailable from the first read on
    std::optional<ScreenText> answer;
    int reads = 0;
    QSize pictureSize;
    QRect area;
    QString language;

    bool isAvailable() const override { return available; }
    QString unavailableReason() const override { return u"No language data for English."_s; }
    std::optional<ScreenText> read(const QImage& picture, const QRect& marked,
                                   const QString& outputLanguage) override {
        ++reads;
        if (failsToLoad) {
            available = false;
            return std::nullopt;
        }
        pictureSize = picture.size();
        area = marked;
        language = outputLanguage;
        return answer;
    }
    void warmUp(const QString& outputLanguage) override { warmedFor << outputLanguage; }
    QStringList warmedFor;
};

class ScriptedPicker final : public AreaPicking {
public:
    std::optional<PickedArea> area;
    int picks = 0;
    std::size_t shots = 0;

    void pick(const std::vector<ScreenShot>& given,
              std::function<void(std::optional<PickedArea>)> done) override {
        ++picks;
        shots = given.size();
        done(area);
    }
    void cancel() override {}
};

struct ScreenTextKit {
    ScreenTextKit() {
        QImage screen(1440, 900, QImage::Format_RGB32);
        screen.fill(Qt::white);
        overlay.desktop.screenPicture.result = {{{screen, QRect(0, 0, 1440, 900)}}, QString()};
        picker.area = PickedArea{0, QRect(100, 400, 80, 20), QRect(100, 400, 80, 20)};
    }

    OverlayTestKit overlay;
    Desktop desktop = overlay.desktop.desktop();
    ScriptedRecognizer recognizer;
    ScriptedPicker picker;
    ScreenTextLookup lookup{desktop, recognizer, picker, *overlay.controller, *overlay.state};

    void start() {
        lookup.start();
        overlay.desktop.clock.advance(ScreenTextLookup::settleMs);
    }
};

} // namespace

class ScreenTextTest : public QObject {
    Q_OBJECT

private slots:
    void initTestCase() { L10n::setOverride(u"en"_s); }
    void cleanupTestCase() { L10n::setOverride(std::nullopt); }

    void textReadIsLookedUpWithTheLinesAround() {
        ScreenTextKit kit;
        kit.recognizer.answer = ScreenText{u" cinnabar\n"_s, u"the line above "_s, u" the line below"_s};
        kit.overlay.answer({sse::done(u"a red mineral"_s, u"c"_s)});
        kit.overlay.state->settings().setOutputLang(u"zh"_s);
        kit.start();

        // The card is up and working while the area is read, off the main thread.
        OverlayController& card = *kit.overlay.controller;
        QVERIFY(card.isVisible());
        QVERIFY(card.isLoading());
        QCOMPARE(kit.recognizer.reads, 0);
        QVERIFY(kit.lookup.isBusy());
        kit.overlay.desktop.tasks.drain();
        // The language data was loaded while the area was marked; then the read.
        QCOMPARE(kit.recognizer.warmedFor, QStringList{u"zh"_s});
        QCOMPARE(kit.overlay.desktop.tasks.backgroundRuns(), 2);

        // The recognizer gets the full width and four area heights above and below, for context.
        QCOMPARE(kit.recognizer.pictureSize, QSize(1440, 180));
        QCOMPARE(kit.recognizer.area, QRect(100, 80, 80, 20));
        QCOMPARE(kit.recognizer.language, u"zh"_s);

        QTRY_VERIFY_WITH_TIMEOUT(!card.isLoading(), 5000);
        QCOMPARE(card.gloss(), u"a red mineral"_s);
        const auto requests = kit.overlay.server.requests();
        QCOMPARE(requests.size(), 1u);
        const QJsonObject sent = QJsonDocument::fromJson(requests[0].body).object();
        QCOMPARE(sent.value(u"selected_text").toString(), u"cinnabar"_s);
        QCOMPARE(sent.value(u"context_before").toString(), u"the line above "_s);
        QCOMPARE(sent.value(u"context_after").toString(), u" the line below"_s);
        QTRY_COMPARE_WITH_TIMEOUT(kit.overlay.state->history().count(), 1, 5000);
        QVERIFY(!kit.lookup.isBusy());
    }

    void contextIsCutToTheSelectionRadius() {
        const ScreenText text{u"word"_s, u"0123456789"_s, u"abcdefghij"_s};
        const SelectionSnapshot snapshot = ScreenTextLookup::snapshotOf(text, QRectF(1, 2, 3, 4), 3);
        QCOMPARE(snapshot.before, u"789"_s);
        QCOMPARE(snapshot.after, u"abc"_s);
        QCOMPARE(snapshot.bounds, QRectF(1, 2, 3, 4));
    }

    void nothingReadShowsTheMessageAndSendsNothing() {
        ScreenTextKit kit;
        for (const std::optional<ScreenText>& answer :
             {std::optional<ScreenText>(), std::optional(ScreenText{u" \n"_s, u"a"_s, u"b"_s})}) {
            kit.recognizer.answer = answer;
            kit.start();
            kit.overlay.desktop.tasks.drain();
            OverlayController& card = *kit.overlay.controller;
            QVERIFY(card.isVisible());
            QVERIFY(!card.isLoading());
            QCOMPARE(card.errorMessage(), std::optional(u"No text found in that area."_s));
        }
        // A recognizer that could not load at its first read says why instead.
        kit.recognizer.failsToLoad = true;
        kit.start();
        kit.overlay.desktop.tasks.drain();
        QCOMPARE(kit.overlay.controller->errorMessage(), std::optional(u"No language data for English."_s));
        QTest::qWait(50);
        QCOMPARE(kit.overlay.server.requests().size(), 0u);
        QCOMPARE(kit.overlay.state->history().count(), 0);
        L10n::setOverride(u"zh"_s);
        QCOMPARE(ScreenTextLookup::nothingFoundText(), u"该区域中没有找到文字。"_s);
        L10n::setOverride(u"en"_s);
    }

    void cancelledOrClosedLeavesNothing() {
        ScreenTextKit kit;
        kit.picker.area.reset();
        kit.start();
        QCOMPARE(kit.picker.picks, 1);
        QCOMPARE(kit.picker.shots, 1u);
        kit.overlay.desktop.tasks.drain();
        QCOMPARE(kit.recognizer.reads, 0);
        QVERIFY(!kit.overlay.controller->isVisible());
        QVERIFY(!kit.lookup.isBusy());

        // Closing the card while the area is read drops what is read.
        kit.picker.area = PickedArea{0, QRect(10, 10, 50, 20), QRect(10, 10, 50, 20)};
        kit.recognizer.answer = ScreenText{u"word"_s, {}, {}};
        kit.start();
        kit.overlay.controller->close();
        kit.overlay.desktop.tasks.drain();
        QCOMPARE(kit.recognizer.reads, 1);
        QVERIFY(!kit.overlay.controller->isVisible());
        QCOMPARE(kit.overlay.controller->selectedText(), QString());
    }

    void whyItCannotRunIsSaid() {
        ScreenTextKit kit;
        QSignalSpy unavailable(&kit.lookup, &ScreenTextLookup::unavailable);
        kit.recognizer.available = false;
        kit.start();
        QCOMPARE(unavailable.takeFirst().at(0).toString(), u"No language data for English."_s);
        QCOMPARE(kit.overlay.desktop.screenPicture.taken, 0);

        kit.recognizer.available = true;
        kit.overlay.desktop.screenPicture.result = {{}, u"The screen could not be captured."_s};
        kit.start();
        QCOMPARE(unavailable.takeFirst().at(0).toString(), u"The screen could not be captured."_s);
        // The user declined the desktop's dialog: nothing to say.
        kit.overlay.desktop.screenPicture.result = {{}, QString()};
        kit.start();
        QVERIFY(unavailable.isEmpty());
        QCOMPARE(kit.picker.picks, 0);
        QVERIFY(!kit.lookup.isBusy());
    }

    void pickerWindowTurnsADragIntoPicturePixels() {
        // A picture at twice the window's size, as a scaled screen gives.
        QImage image(800, 600, QImage::Format_RGB32);
        image.fill(Qt::white);
        AreaPickerWindow window({image, QRect(0, 0, 400, 300)});
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        QSignalSpy picked(&window, &AreaPickerWindow::picked);
        QSignalSpy cancelled(&window, &AreaPickerWindow::cancelled);

        QTest::mousePress(&window, Qt::LeftButton, {}, QPoint(10, 20));
        QTest::mouseMove(&window, QPoint(60, 40));
        QTest::mouseRelease(&window, Qt::LeftButton, {}, QPoint(60, 40));
        QCOMPARE(picked.size(), 1);
        const QRect area = picked.takeFirst().at(0).toRect();
        QCOMPARE(window.toPixels(area), QRect(20, 40, 100, 40));

        // A click without a drag, a right click and Escape each cancel.
        QTest::mouseClick(&window, Qt::LeftButton, {}, QPoint(100, 100));
        QTest::mouseClick(&window, Qt::RightButton, {}, QPoint(100, 100));
        QTest::keyClick(&window, Qt::Key_Escape);
        QCOMPARE(cancelled.size(), 3);
        QCOMPARE(picked.size(), 0);
    }
};

QTEST_MAIN(ScreenTextTest)
#include "tst_screentext.moc"

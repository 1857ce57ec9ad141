#include "NubraApp/Overlay/AnkiCardRow.h"
#include "NubraApp/Overlay/CardPlacement.h"
#include "NubraApp/Overlay/CardView.h"
#include "NubraApp/Overlay/CardWindow.h"
#include "NubraCore/Vocabulary/L10n.h"
#include "OverlayTestKit.h"
#include "TestSupport/AnkiConnectStandIn.h"

#include <QLabel>
#include <QPushButton>
#include <QScopeGuard>
#include <QSignalSpy>
#include <QTest>

using Ending = LocalHttpServer::Ending;
using Content = CardView::Content;

Q_DECLARE_METATYPE(std::optional<QRectF>)

namespace {
// What a visible-frame argument looks like for a 1440 x 900 screen with a 25-pixel panel at the top.
const QRectF mainFrame(0, 0, 1440, 875);

QLabel* label(const CardView* view, const char* name) {
    return view->findChild<QLabel*>(QString::fromLatin1(name));
}
bool shows(const CardView* view, const char* name) {
    const auto* widget = view->findChild<QWidget*>(QString::fromLatin1(name));
    return widget && widget->isVisibleTo(view);
}
} // namespace

class CardTest : public QObject {
    Q_OBJECT

    static CardView* view(OverlayTestKit& kit) { return kit.controller->window()->view(); }

private slots:
    void initTestCase() { L10n::setOverride(u"en"_qs); }
    void cleanupTestCase() { L10n::setOverride(std::nullopt); }

    void placement_data() {
        QTest::addColumn<QRectF>("selection");
        QTest::addColumn<std::optional<QRectF>>("frame");
        QTest::addColumn<QPointF>("origin");
        QTest::addColumn<bool>("above");
        QTest::newRow("middle: below, centred")
            << QRectF(700, 500, 40, 16) << std::optional(mainFrame) << QPointF(542, 374) << false;
        QTest::newRow("exactly 80 from the bottom stays below")
            << QRectF(700, 206, 40, 16) << std::optional(mainFrame) << QPointF(542, 80) << false;
        QTest::newRow("too low: above")
            << QRectF(700, 205, 40, 16) << std::optional(mainFrame) << QPointF(542, 233) << true;
        QTest::newRow("raised frame bottom (dock)")
            << QRectF(700, 250, 40, 16) << std::optional(QRectF(0, 60, 1440, 815)) << QPointF(542, 278)
            << true;
        QTest::newRow("top edge: no vertical clamp")
            << QRectF(700, 870, 40, 5) << std::optional(mainFrame) << QPointF(542, 744) << false;
        QTest::newRow("left edge of a second screen")
            << QRectF(1450, 500, 20, 16) << std::optional(QRectF(1440, 0, 1024, 768)) << QPointF(1448, 374)
            << false;
        QTest::newRow("right edge") << QRectF(1420, 500, 20, 16) << std::optional(mainFrame)
                                    << QPointF(1076, 374) << false;
        QTest::newRow("frame narrower than the card: right clamp wins")
            << QRectF(100, 500, 20, 16) << std::optional(QRectF(0, 0, 300, 875)) << QPointF(-64, 374)
            << false;
        QTest::newRow("no frame: no horizontal clamp")
            << QRectF(10, 500, 20, 16) << std::optional<QRectF>() << QPointF(-158, 374) << false;
        QTest::newRow("no frame: flips below 80")
            << QRectF(700, 150, 40, 16) << std::optional<QRectF>() << QPointF(542, 178) << true;
    }
    void placement() {
        QFETCH(QRectF, selection);
        QFETCH(std::optional<QRectF>, frame);
        QFETCH(QPointF, origin);
        QFETCH(bool, above);
        const CardPlacement::Placement placed = CardPlacement::place(selection, 100, frame);
        QCOMPARE(placed.origin, origin);
        QCOMPARE(placed.above, above);
    }

    void contentChoice_data() {
        QTest::addColumn<QList<QByteArray>>("stream");
        QTest::addColumn<int>("ending");
        QTest::addColumn<Content>("content");
        QTest::addColumn<QStringList>("visible");
        QTest::newRow("loading hides early contextual text")
            << QList<QByteArray>{sse::meta(), sse::delta(u"contextual_meaning"_qs, u"meaning"_qs)}
            << int(Ending::holdOpen) << Content::loading << QStringList{u"loadingRow"_qs};
        QTest::newRow("streaming shows both sections")
            << QList<QByteArray>{sse::delta(u"gloss"_qs, u"Hel"_qs),
                                 sse::delta(u"contextual_meaning"_qs, u"m"_qs)}
            << int(Ending::holdOpen) << Content::explanation << QStringList{u"gloss"_qs, u"context"_qs};
        QTest::newRow("error wins over streamed text")
            << QList<QByteArray>{sse::delta(u"gloss"_qs, u"partial"_qs), sse::error(u"X"_qs, u"y"_qs)}
            << int(Ending::complete) << Content::error << QStringList{u"errorText"_qs};
        QTest::newRow("no contextual meaning: one section")
            << QList<QByteArray>{sse::done(u"Final"_qs, QString())} << int(Ending::complete)
            << Content::explanation << QStringList{u"gloss"_qs};
        QTest::newRow("ended empty: nothing") << QList<QByteArray>{sse::done(QString(), QString())}
                                              << int(Ending::complete) << Content::nothing << QStringList{};
    }
    void contentChoice() {
        QFETCH(QList<QByteArray>, stream);
        QFETCH(int, ending);
        QFETCH(Content, content);
        QFETCH(QStringList, visible);
        OverlayTestKit kit;
        kit.answer(stream, Ending(ending));
        QSignalSpy received(kit.controller.get(), &OverlayController::contextualMeaningChanged);
        kit.trigger(u"word"_qs);
        if (Ending(ending) == Ending::holdOpen)
            QTRY_VERIFY_WITH_TIMEOUT(!received.isEmpty(), 5000);
        else
            QTRY_VERIFY_WITH_TIMEOUT(!kit.controller->isLoading(), 5000);

        const CardView* card = view(kit);
        QCOMPARE(card->content(), content);
        for (const char* part : {"loadingRow", "errorText", "gloss", "context"})
            QCOMPARE(shows(card, part), visible.contains(QString::fromLatin1(part)));
        QCOMPARE(card->fittingHeight() == 2 * CardView::padding, visible.isEmpty());
    }

    void textsFollowTheLanguageAndAreSelectable() {
        OverlayTestKit kit;
        kit.answer({sse::done(u"Final"_qs, u"Here"_qs)});
        L10n::setOverride(u"zh"_qs);
        kit.trigger(u"word"_qs);
        QCOMPARE(label(view(kit), "loadingText")->text(), u"解释中…"_qs);
        QTRY_VERIFY_WITH_TIMEOUT(!kit.controller->isLoading(), 5000);
        const CardView* card = view(kit);
        QCOMPARE(label(card, "glossHeading")->text(), u"释义"_qs);
        QCOMPARE(label(card, "contextHeading")->text(), u"在此语境中"_qs);
        L10n::setOverride(u"en"_qs);
        kit.trigger(u"word"_qs);
        QCOMPARE(label(view(kit), "loadingText")->text(), u"Explaining…"_qs);

        for (const char* name : {"glossText", "contextText"}) {
            const auto flags = label(card, name)->textInteractionFlags();
            QVERIFY(flags.testFlag(Qt::TextSelectableByMouse));
            QVERIFY(flags.testFlag(Qt::TextSelectableByKeyboard));
        }
    }

    // Offered once the explanation is complete; a second click finds the note already in Anki.
    void addToAnki() {
        AnkiConnectStandIn anki;
        qputenv("NUBRA_ANKI_URL", anki.url().toEncoded());
        const auto unset = qScopeGuard([] { qunsetenv("NUBRA_ANKI_URL"); });
        OverlayTestKit kit;
        kit.answer({sse::done(u"A <b> & c"_qs, u"Here"_qs)});
        kit.trigger(u"word"_qs);
        QVERIFY(!shows(view(kit), "ankiRow"));
        QTRY_VERIFY_WITH_TIMEOUT(shows(view(kit), "ankiRow"), 5000);
        AnkiCardRow* row = view(kit)->ankiRow();
        auto* button = row->findChild<QPushButton*>(u"addToAnkiButton"_qs);
        QCOMPARE(button->text(), u"Add to Anki"_qs);

        QTest::mouseClick(button, Qt::LeftButton);
        QTRY_COMPARE_WITH_TIMEOUT(row->message(), u"Added to Anki (deck “Nubra”)."_qs, 5000);
        QCOMPARE(anki.notes().size(), std::size_t(1));
        const QJsonObject fields = anki.notes()[0].fields;
        QCOMPARE(fields.value(u"Front"_qs).toString(), u"<p>before <b>word</b> after</p><p>word</p>"_qs);
        QVERIFY(
            fields.value(u"Back"_qs).toString().startsWith(u"<p>A &lt;b&gt; &amp; c</p><hr><p>Here</p>"_qs));
        QTest::mouseClick(button, Qt::LeftButton);
        QTRY_COMPARE_WITH_TIMEOUT(row->message(), u"Already in Anki."_qs, 5000);
        QCOMPARE(anki.notes().size(), std::size_t(1));

        // The next explanation starts without the message.
        kit.answer({sse::done(u"Other"_qs, QString())});
        kit.trigger(u"other"_qs);
        QTRY_VERIFY_WITH_TIMEOUT(shows(view(kit), "ankiRow"), 5000);
        QCOMPARE(row->message(), QString());
        nubraDirectSession()->clearConnectionCache();
    }

    void windowNeverActivatesOnShow() {
        OverlayTestKit kit;
        kit.controller->show(kit.snapshot(u"word"_qs));
        CardWindow* window = kit.controller->window();
        // A click must still activate it, so that its text can be copied and Escape reaches it.
        QVERIFY(!window->windowFlags().testFlag(Qt::WindowDoesNotAcceptFocus));
        QVERIFY(window->testAttribute(Qt::WA_ShowWithoutActivating));
        QVERIFY(window->isVisible() && !window->isActiveWindow());
        QCOMPARE(kit.controller->windowId(), std::optional<quint64>(window->winId()));

        QTest::keyClick(window, Qt::Key_Escape);
        QVERIFY(!kit.controller->isVisible());
        QVERIFY(!window->isVisible());
    }

    void growsWithoutMovingItsAnchor_data() {
        QTest::addColumn<QRectF>("selection");
        QTest::addColumn<bool>("above");
        QTest::addColumn<int>("anchor"); // the edge that stays, in Qt's top-left coordinates
        // FakeScreen: 1440 x 900. Below: 26 under the selection's lower edge (900 - 500).
        QTest::newRow("below: top edge stays") << QRectF(700, 500, 40, 16) << false << 400 + 26;
        // Above: 12 over the selection's upper edge (900 - 76).
        QTest::newRow("above: bottom edge stays") << QRectF(700, 60, 40, 16) << true << 824 - 12;
    }
    void growsWithoutMovingItsAnchor() {
        QFETCH(QRectF, selection);
        QFETCH(bool, above);
        QFETCH(int, anchor);
        OverlayTestKit kit;
        QList<QByteArray> stream;
        for (int i = 0; i < 8; ++i)
            stream << sse::delta(u"gloss"_qs, u"A fairly long piece of explanation that wraps. "_qs);
        stream << sse::done(u"A fairly long piece of explanation. "_qs.repeated(8),
                            u"And a contextual meaning."_qs);
        kit.answer(stream);
        kit.controller->show({u"word"_qs, {}, {}, {}, selection});
        CardWindow* window = kit.controller->window();
        QCOMPARE(window->growsUpwards(), above);
        QList<QRect> geometries;
        connect(kit.controller.get(), &OverlayController::glossChanged, this,
                [&] { geometries << window->geometry(); });
        kit.controller->request(*kit.state);
        QTRY_VERIFY_WITH_TIMEOUT(!kit.controller->isLoading(), 5000);
        geometries << window->geometry();

        QVERIFY(geometries.size() > 2);
        QVERIFY(geometries.last().height() > geometries.first().height());
        QCOMPARE(window->view()->height(), window->height());
        for (const QRect& geometry : geometries) {
            QCOMPARE(geometry.x(), 542);
            QCOMPARE(geometry.width(), CardView::cardWidth);
            QCOMPARE(above ? geometry.y() + geometry.height() : geometry.y(), anchor);
        }

        // A new trigger moves the same card to the new selection.
        kit.controller->show({u"other"_qs, {}, {}, {}, QRectF(10, 500, 20, 16)});
        QCOMPARE(window->geometry().topLeft(), QPoint(8, 426));
        QVERIFY(window->isVisible());
    }
};

QTEST_MAIN(CardTest)
#include "tst_card.moc"

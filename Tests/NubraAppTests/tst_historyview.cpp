#include "AppTestKit.h"
#include "NubraApp/Foundation/HistoryNotifier.h"
#include "NubraApp/History/HistoryView.h"
#include "NubraCore/History/HistoryExporter.h"
#include "NubraCore/Service/GlossAPI.h"
#include "NubraCore/Vocabulary/L10n.h"
#include "TestSupport/AnkiConnectStandIn.h"

#include <QClipboard>
#include <QFileDialog>
#include <QGroupBox>
#include <QGuiApplication>
#include <QLabel>
#include <QLineEdit>
#include <QListView>
#include <QPushButton>
#include <QRegularExpression>
#include <QScopeGuard>

#include <algorithm>

namespace {

const QDateTime base = QDateTime(QDate(2026, 3, 5), QTime(14, 7, 9), Qt::UTC);

struct Kit : AppTestKit {
    // Stores a lookup `minutesAgo` before the newest one; returns its id.
    std::int64_t add(const QString& text, int minutesAgo = 0, const QString& gloss = u"g"_qs) {
        HistoryRecord record;
        record.createdAt = base.addSecs(-60 * minutesAgo);
        record.selectedText = text;
        record.gloss = gloss;
        record.contextualMeaning = u"m"_qs;
        record.sourceApp = u"Editor"_qs;
        record.style = u"plain"_qs;
        record.length = u"short"_qs;
        record.model = u"fast"_qs;
        record.creditsCost = 2;
        return state->history().insert(record);
    }
};

QStringList texts(const HistoryView& view) {
    QStringList result;
    for (const HistoryRecord& record : view.records())
        result << record.selectedText;
    return result;
}

void search(HistoryView& view, const QString& keyword) {
    auto* field = child<QLineEdit>(view, "searchField");
    field->setText(keyword);
    QTest::keyClick(field, Qt::Key_Return);
}

QString shownMessage(const HistoryView& view) {
    auto* label = child<QLabel>(view, "messageLabel");
    return label->isVisibleTo(&view) ? label->text() : QString();
}

} // namespace

class HistoryViewTest : public QObject {
    Q_OBJECT
private slots:
    void initTestCase() { L10n::setOverride(u"en"_qs); }
    void cleanupTestCase() { L10n::setOverride(std::nullopt); }

    void reloadRules() {
        Kit kit;
        kit.add(u"big apple"_qs, 0);
        kit.add(u"apple pie"_qs, 1);
        kit.add(u"pear"_qs, 2);
        HistoryView view(*kit.state);
        view.show();
        QCOMPARE(texts(view), (QStringList{u"big apple"_qs, u"apple pie"_qs, u"pear"_qs}));
        QCOMPARE(child<QGroupBox>(view, "recordsSection")->title(), u"Records（3）"_qs);

        // Only blanks: the recent records, as if nothing was typed.
        search(view, u" \t\u3000"_qs);
        QCOMPARE(texts(view).size(), 3);
        // The blanks around a keyword are part of the search.
        search(view, u" apple"_qs);
        QCOMPARE(texts(view), QStringList{u"big apple"_qs});

        // Typing alone lists nothing new; the Search button does.
        auto* field = child<QLineEdit>(view, "searchField");
        field->clear();
        QTest::keyClicks(field, u"pear"_qs);
        QCOMPARE(texts(view), QStringList{u"big apple"_qs});
        click(view, "searchButton");
        QCOMPARE(texts(view), QStringList{u"pear"_qs});

        // A change of the history reloads the list, at most the history limit.
        field->clear();
        kit.state->settings().setHistoryLimit(2);
        kit.add(u"newest"_qs, -1);
        HistoryNotifier::shared().post();
        QCOMPARE(texts(view), (QStringList{u"newest"_qs, u"big apple"_qs}));
        QCOMPARE(shownMessage(view), QString());

        // Recording off: every reload says so, and the line stays after recording is back on.
        const QString off = u"History recording is off — new lookups won't be saved."_qs;
        kit.state->settings().setRecordHistory(false);
        view.reload();
        QCOMPARE(shownMessage(view), off);
        kit.state->settings().setRecordHistory(true);
        view.reload();
        QCOMPARE(shownMessage(view), off);
    }

    void clearReportsWhatWasListed() {
        L10n::setOverride(u"zh"_qs);
        auto restore = qScopeGuard([] { L10n::setOverride(u"en"_qs); });
        Kit kit;
        for (int i = 0; i < 10; ++i)
            kit.add(i < 3 ? u"cat %1"_qs.arg(i) : u"dog %1"_qs.arg(i), i);
        HistoryView view(*kit.state);
        view.show();
        search(view, u"cat"_qs);
        QCOMPARE(child<QGroupBox>(view, "recordsSection")->title(), u"记录（3）"_qs);

        click(view, "clearAllButton");
        QCOMPARE(kit.state->history().count(), 0);
        QCOMPARE(shownMessage(view), u"已清除 3 条历史。"_qs);
        QCOMPARE(child<QGroupBox>(view, "recordsSection")->title(), u"记录"_qs);
        QVERIFY(child<QLabel>(view, "emptyLine")->isVisibleTo(&view));
        QVERIFY(!child<QListView>(view, "recordList")->isVisibleTo(&view));

        click(view, "clearAllButton");
        QCOMPARE(shownMessage(view), u"历史已是空的。"_qs);
    }

    void rowLinks() {
        Kit kit;
        kit.add(u"one"_qs, 0, u"first gloss"_qs);
        const std::int64_t second = kit.add(u"two"_qs, 1);
        kit.add(u"three"_qs, 2);
        HistoryView view(*kit.state);
        view.resize(640, 480);
        view.show();
        QWidget* viewport = child<QListView>(view, "recordList")->viewport();

        const QPoint copy = view.linkRect(0, HistoryRowView::Link::copy).center();
        QTest::mouseMove(viewport, copy);
        QCOMPARE(viewport->cursor().shape(), Qt::PointingHandCursor);
        QTest::mouseClick(viewport, Qt::LeftButton, {}, copy);
        QCOMPARE(QGuiApplication::clipboard()->text(), u"first gloss"_qs);
        QCOMPARE(texts(view).size(), 3);

        QTest::mouseClick(viewport, Qt::LeftButton, {},
                          view.linkRect(1, HistoryRowView::Link::remove).center());
        QTRY_COMPARE(texts(view), (QStringList{u"one"_qs, u"three"_qs}));
        const QList<HistoryRecord> stored = kit.state->history().recent(-1);
        QVERIFY(std::none_of(stored.cbegin(), stored.cend(), [&](const auto& r) { return r.id == second; }));

        // The same from the keyboard, on the current row.
        auto* list = child<QListView>(view, "recordList");
        list->setFocus();
        list->setCurrentIndex(list->model()->index(1, 0));
        QTest::keySequence(list, QKeySequence::Copy);
        QCOMPARE(QGuiApplication::clipboard()->text(), u"g"_qs);
        QTest::keyClick(list, Qt::Key_Delete);
        QCOMPARE(texts(view), QStringList{u"one"_qs});
        QCOMPARE(kit.state->history().count(), 1);
    }

    void exportWritesTheListedRows() {
        Kit kit;
        kit.add(u"pear"_qs);
        kit.add(u"apple"_qs, 1);
        HistoryView view(*kit.state);
        view.show();
        search(view, u"pear"_qs);

        // JSON Lines of the one listed record, replacing an existing file.
        const QString jsonlPath = kit.dir.filePath(u"out.jsonl"_qs);
        QFile jsonl(jsonlPath);
        QVERIFY(jsonl.open(QIODevice::WriteOnly) && jsonl.write(QByteArray(1000, 'x')) == 1000);
        jsonl.close();
        click(view, "exportJsonlButton");
        QFileDialog* dialog = view.exportDialog();
        QVERIFY(dialog && dialog->isVisible());
        const QString suggested = QFileInfo(dialog->selectedFiles().value(0)).fileName();
        QVERIFY2(QRegularExpression(u"^Nubra-History-\\d{4}-\\d\\d-\\d\\d \\d\\d-\\d\\d-\\d\\d\\.jsonl$"_qs)
                     .match(suggested)
                     .hasMatch(),
                 qPrintable(suggested));
        dialog->setOption(QFileDialog::DontConfirmOverwrite);
        dialog->selectFile(jsonlPath);
        static_cast<QDialog*>(dialog)->accept(); // as the Save button does
        QTRY_COMPARE(shownMessage(view), u"Exported 1 record(s) to out.jsonl"_qs);
        QVERIFY(jsonl.open(QIODevice::ReadOnly));
        QCOMPARE(jsonl.readAll(), HistoryExporter::jsonl(view.records())); // its bytes are tst_export's

        // Markdown of the same record.
        click(view, "exportMarkdownButton");
        dialog = view.exportDialog();
        QVERIFY(dialog->selectedFiles().value(0).endsWith(u".md"_qs));
        dialog->selectFile(kit.dir.filePath(u"out.md"_qs));
        static_cast<QDialog*>(dialog)->accept();
        QTRY_COMPARE(shownMessage(view), u"Exported 1 record(s) to out.md"_qs);
        QFile markdown(kit.dir.filePath(u"out.md"_qs));
        QVERIFY(markdown.open(QIODevice::ReadOnly));
        QVERIFY(markdown.readAll().contains("\n## 1. pear\n"));

        // Cancelling writes nothing and says nothing.
        const QStringList files = QDir(kit.dir.path()).entryList(QDir::Files);
        click(view, "exportMarkdownButton");
        view.exportDialog()->reject();
        QTRY_VERIFY(!view.exportDialog());
        QCOMPARE(shownMessage(view), u"Exported 1 record(s) to out.md"_qs);
        QCOMPARE(QDir(kit.dir.path()).entryList(QDir::Files), files);

        // A folder that does not exist.
        click(view, "exportJsonlButton");
        dialog = view.exportDialog();
        dialog->selectFile(kit.dir.filePath(u"missing/out.jsonl"_qs));
        static_cast<QDialog*>(dialog)->accept();
        QTRY_VERIFY(shownMessage(view).startsWith(u"Export failed: "_qs));
        QVERIFY(shownMessage(view).size() > u"Export failed: "_qs.size());
    }

    // The selected rows go to Anki and into the Anki export; none selected, the export takes all listed.
    void ankiTakesTheSelectedRows() {
        AnkiConnectStandIn anki;
        qputenv("NUBRA_ANKI_URL", anki.url().toEncoded());
        const auto unset = qScopeGuard([] { qunsetenv("NUBRA_ANKI_URL"); });
        Kit kit;
        kit.add(u"pear"_qs);
        kit.add(u"apple"_qs, 1);
        kit.add(u"plum"_qs, 2);
        HistoryView view(*kit.state);
        view.show();
        auto* list = child<QListView>(view, "recordList");
        auto* add = child<QPushButton>(view, "addToAnkiButton");
        QVERIFY(!add->isEnabled());
        list->selectionModel()->select(list->model()->index(2, 0), QItemSelectionModel::Select);
        list->selectionModel()->select(list->model()->index(0, 0), QItemSelectionModel::Select);
        QCOMPARE(view.selectedRecords().size(), 2);
        QCOMPARE(view.selectedRecords()[0].selectedText, u"pear"_qs);
        QVERIFY(add->isEnabled());
        // A lookup arriving meanwhile keeps them picked.
        kit.add(u"fig"_qs, -1);
        HistoryNotifier::shared().post();
        QCOMPARE(texts(view).first(), u"fig"_qs);
        QCOMPARE(view.selectedRecords().size(), 2);
        QCOMPARE(view.selectedRecords()[1].selectedText, u"plum"_qs);
        QVERIFY(add->isEnabled());
        click(view, "addToAnkiButton");
        QTRY_COMPARE_WITH_TIMEOUT(shownMessage(view), u"Added 2 notes to Anki (deck “Nubra”)."_qs, 5000);
        QCOMPARE(anki.notes().size(), std::size_t(2));
        QVERIFY(anki.notes()[1].fields.value(u"Front"_qs).toString().contains(u"plum"_qs));

        const auto exported = [&](const QString& name) {
            click(view, "exportAnkiButton");
            QFileDialog* dialog = view.exportDialog();
            if (!dialog || !dialog->selectedFiles().value(0).endsWith(u".txt"_qs))
                return QByteArray();
            dialog->selectFile(kit.dir.filePath(name));
            static_cast<QDialog*>(dialog)->accept();
            QFile file(kit.dir.filePath(name));
            if (!QTest::qWaitFor([&] { return file.exists(); }, 5000) || !file.open(QIODevice::ReadOnly))
                return QByteArray();
            return file.readAll();
        };
        QByteArray text = exported(u"selected.txt"_qs);
        QVERIFY(text.startsWith("#separator:tab\n#html:true\n#deck:Nubra\n#notetype:Basic\n"));
        QCOMPARE(text.count("\tnubra\n"), 2);
        QTRY_COMPARE(shownMessage(view), u"Exported 2 record(s) to selected.txt"_qs);
        list->clearSelection();
        QVERIFY(!add->isEnabled());
        text = exported(u"listed.txt"_qs);
        QCOMPARE(text.count("\tnubra\n"), 4);
        nubraDirectSession()->clearConnectionCache();
    }

    void windowIsCreatedOnceAndReloadsWhenActivated() {
        Kit kit;
        kit.add(u"first"_qs, 1);
        NubraWindows::showHistory(*kit.state);
        QPointer<QWidget> window = NubraWindows::historyWindow();
        QVERIFY(window && window->isVisible());
        QVERIFY(window->width() >= 620); // its buttons are never cut off
        auto* view = window->findChild<HistoryView*>();
        QCOMPARE(texts(*view), QStringList{u"first"_qs});
        QTRY_COMPARE(QGuiApplication::focusWindow(), window->windowHandle());

        // Another window becoming active leaves the list alone; the history window does not.
        QWidget other;
        other.setWindowTitle(u"Nubra Settings"_qs);
        other.show();
        other.activateWindow();
        QTRY_COMPARE(QGuiApplication::focusWindow(), other.windowHandle());
        kit.add(u"second"_qs, 0);
        QCOMPARE(texts(*view), QStringList{u"first"_qs});
        window->activateWindow();
        QTRY_COMPARE(texts(*view), (QStringList{u"second"_qs, u"first"_qs}));

        // Closing hides it; opening again shows the same window with its keyword, reloaded.
        child<QLineEdit>(*view, "searchField")->setText(u"first"_qs);
        window->close();
        QVERIFY(!window->isVisible());
        NubraWindows::showHistory(*kit.state);
        QCOMPARE(NubraWindows::historyWindow(), window.data());
        QVERIFY(window->isVisible());
        QCOMPARE(texts(*view), QStringList{u"first"_qs});

        // It goes with the state whose store it reads.
        kit.state.reset();
        QVERIFY(!window);
    }
};

QTEST_MAIN(HistoryViewTest)
#include "tst_historyview.moc"

#include "NubraCore/History/HistoryExporter.h"

#include <QTest>

namespace {

HistoryRecord record(const QString& text, const QDateTime& at) {
    HistoryRecord r;
    r.id = 42;
    r.createdAt = at;
    r.selectedText = text;
    r.contextBefore = u"not exported"_qs;
    r.contextAfter = u"not exported"_qs;
    r.gloss = u"gloss"_qs;
    r.contextualMeaning = u"meaning"_qs;
    r.sourceApp = u"Safari"_qs;
    r.style = u"language_learning"_qs;
    r.length = u"medium"_qs;
    r.model = u"cloud"_qs;
    r.creditsCost = 2;
    return r;
}

// 14:07:09.750 UTC is 22:07:09 in Shanghai, the zone the tests run in.
const QDateTime lookupTime(QDate(2026, 3, 5), QTime(14, 7, 9, 750), Qt::UTC);
const QDateTime exportTime(QDate(2026, 3, 6), QTime(1, 2, 3), Qt::UTC);

} // namespace

class ExportTest : public QObject {
    Q_OBJECT
private slots:
    void initTestCase() {
        // The display formatter takes the system zone when first used; a zone east of UTC makes local
        // and UTC times differ.
        qputenv("TZ", "Asia/Shanghai");
        QCOMPARE(HistoryExporter::displayFormatter().timeZone().id(), QByteArray("Asia/Shanghai"));
    }

    void markdownWithoutRecords() {
        QCOMPARE(HistoryExporter::markdown({}, exportTime),
                 QByteArray("# Nubra 历史记录导出\n\n- 导出时间：2026-03-06 09:02:03\n- 共 0 条\n"));
    }

    void markdownReport() {
        auto newest = record(u"a\nb\rc"_qs, lookupTime);
        newest.gloss = u"**粗体** a/b\n\n- item"_qs;
        auto older = record(u"second"_qs, lookupTime.addDays(-1));
        older.sourceApp.clear();
        older.creditsCost = -3;
        const QByteArray expected = "# Nubra 历史记录导出\n"
                                    "\n"
                                    "- 导出时间：2026-03-06 09:02:03\n"
                                    "- 共 2 条\n"
                                    "\n"
                                    "## 1. a b\rc\n"
                                    "\n"
                                    "- 时间：2026-03-05 22:07:09\n"
                                    "- 来源：Safari\n"
                                    "- 消耗：2 积分\n"
                                    "\n"
                                    "**粗体** a/b\n\n- item\n"
                                    "\n"
                                    "## 2. second\n"
                                    "\n"
                                    "- 时间：2026-03-04 22:07:09\n"
                                    "- 来源：未知\n"
                                    "- 消耗：-3 积分\n"
                                    "\n"
                                    "gloss\n";
        QCOMPARE(HistoryExporter::markdown({newest, older}, exportTime), expected);
    }

    void jsonLinesExactBytes() {
        QCOMPARE(HistoryExporter::jsonl({}), QByteArray());

        auto first = record(u"说 \"hi\"\\"_qs, lookupTime);
        first.gloss = u"a/b\n\t\u0001"_qs;
        first.sourceApp.clear();
        first.creditsCost = -(std::int64_t(1) << 40); // written exactly
        const auto second = record(u"😀"_qs, lookupTime.addSecs(-60));
        const QByteArray expected =
            "{\"contextualMeaning\":\"meaning\",\"createdAt\":\"2026-03-05T14:07:09Z\","
            "\"creditsCost\":-1099511627776,"
            "\"gloss\":\"a\\/b\\n\\t\\u0001\",\"length\":\"medium\",\"model\":\"cloud\","
            "\"selectedText\":\"说 \\\"hi\\\"\\\\\",\"sourceApp\":\"\",\"style\":\"language_learning\"}\n"
            "{\"contextualMeaning\":\"meaning\",\"createdAt\":\"2026-03-05T14:06:09Z\",\"creditsCost\":2,"
            "\"gloss\":\"gloss\",\"length\":\"medium\",\"model\":\"cloud\","
            "\"selectedText\":\"😀\",\"sourceApp\":\"Safari\",\"style\":\"language_learning\"}";
        QCOMPARE(HistoryExporter::jsonl({first, second}), expected);
    }

    void recordsWithoutUtf8FormAreSkipped() {
        const auto good = record(u"good"_qs, lookupTime);
        auto broken = record(u"bad"_qs, lookupTime);
        broken.gloss = QString(QChar(0xD800)) + u"x"_qs; // an unpaired surrogate
        const QByteArray one = HistoryExporter::jsonl({good});
        QCOMPARE(HistoryExporter::jsonl({broken, good}), one);
        QCOMPARE(HistoryExporter::jsonl({good, broken}), one);
        QCOMPARE(HistoryExporter::jsonl({good, broken, good}), one + '\n' + one);
    }

    void suggestedFileNames() {
        QCOMPARE(HistoryExporter::suggestedFileName(HistoryExporter::Format::markdown, lookupTime),
                 u"Nubra-History-2026-03-05 22-07-09.md"_qs);
        QCOMPARE(HistoryExporter::suggestedFileName(HistoryExporter::Format::jsonl, lookupTime),
                 u"Nubra-History-2026-03-05 22-07-09.jsonl"_qs);
    }
};

QTEST_APPLESS_MAIN(ExportTest)
#include "tst_export.moc"

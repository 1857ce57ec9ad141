#include "NubraPlatform/HypertextSelection.h"

#include <QtTest>

namespace {

// A tree of text objects written as markup: `{…}` is a block (a paragraph, a cell), `<…>` a run inside
// a line (a link), `<!>` an object without text (an image), `{*…}` a password field; `[` and `]` mark
// where the user's selection begins and ends. As in a browser, every object whose text meets the
// selection reports the part of its own text that does, its children counting as one U+FFFC each.
// Each character is 10 px wide and each object sits on a line of its own, 20 px high.
struct FakeObject {
    QString text;
    QList<std::shared_ptr<FakeObject>> children; // in the order of their U+FFFC
    QList<std::pair<int, int>> reach;            // per character: the markup positions it covers
    std::weak_ptr<FakeObject> parent;
    int offsetInParent = 0;
    int line = 0;
    bool block = true;
    bool hasText = true;
    bool password = false;
    int selectionStart = -1;
    int selectionEnd = -1;
};

class FakeNode final : public TextNode {
public:
    FakeNode(std::shared_ptr<FakeObject> object, int* calls) : m_object(std::move(object)), m_calls(calls) {}

    int characterCount() override { return count(m_object->hasText ? int(m_object->text.size()) : -1); }
    QString text(int start, int end) override { return count(m_object->text.mid(start, end - start)); }
    bool countsUtf16() override { return true; }
    QList<Span> selections() override {
        int first = -1;
        int last = -1;
        for (int i = 0; i < m_object->reach.size(); ++i) {
            const auto [from, to] = m_object->reach.at(i);
            if (from < selectionEnd() && to > selectionStart() && to > from) {
                first = first < 0 ? i : first;
                last = i;
            }
        }
        return count(first < 0 ? QList<Span>{} : QList<Span>{{first, last + 1}});
    }
    std::unique_ptr<TextNode> embeddedAt(int offset) override {
        int index = 0;
        for (int i = 0; i < offset; ++i)
            index += m_object->text.at(i) == QChar(embeddedObject);
        return count(std::make_unique<FakeNode>(m_object->children.value(index), m_calls));
    }
    std::optional<Nesting> parent() override {
        const std::shared_ptr<FakeObject> up = m_object->parent.lock();
        if (!up)
            return std::nullopt;
        return count(Nesting{std::make_unique<FakeNode>(up, m_calls), m_object->offsetInParent});
    }
    bool isBlock() override { return m_object->block; }
    bool isPassword() override { return m_object->password; }
    std::optional<QRectF> extents(int start, int end) override {
        return count(QRectF(start * 10, m_object->line * 20, (end - start) * 10, 20));
    }

    static int selectionStart() { return s_selection.first; }
    static int selectionEnd() { return s_selection.second; }
    static inline std::pair<int, int> s_selection;

private:
    template <typename T> T count(T value) {
        ++*m_calls;
        return value;
    }
    std::shared_ptr<FakeObject> m_object;
    int* m_calls;
};

class Markup {
public:
    explicit Markup(const QString& markup) : m_markup(markup) {
        m_root = std::make_shared<FakeObject>();
        parseInto(m_root, QChar());
        FakeNode::s_selection = {m_selectionStart, m_selectionEnd};
    }

    // The object reached by following the path of child indexes from the root.
    std::shared_ptr<FakeObject> at(const QList<int>& path) const {
        std::shared_ptr<FakeObject> object = m_root;
        for (int index : path)
            object = object->children.at(index);
        return object;
    }

private:
    void parseInto(const std::shared_ptr<FakeObject>& object, QChar closing) {
        object->line = m_lines++;
        while (m_pos < m_markup.size() && m_markup.at(m_pos) != closing) {
            const QChar c = m_markup.at(m_pos++);
            if (c == QLatin1Char('[')) {
                m_selectionStart = m_plain;
            } else if (c == QLatin1Char(']')) {
                m_selectionEnd = m_plain;
            } else if (c == QLatin1Char('{') || c == QLatin1Char('<')) {
                auto child = std::make_shared<FakeObject>();
                child->block = c == QLatin1Char('{');
                child->parent = object;
                child->offsetInParent = int(object->text.size());
                if (m_markup.at(m_pos) == QLatin1Char('*')) {
                    child->password = true;
                    ++m_pos;
                }
                if (m_markup.at(m_pos) == QLatin1Char('!')) {
                    child->hasText = false;
                    ++m_pos;
                }
                const int from = m_plain;
                parseInto(child, child->block ? QLatin1Char('}') : QLatin1Char('>'));
                ++m_pos;
                object->text.append(QChar(TextNode::embeddedObject));
                // An object without text still takes part in a selection drawn over it.
                object->reach.append({from, std::max(m_plain, from + (child->hasText ? 0 : 1))});
                m_plain += child->hasText ? 0 : 1;
                object->children.append(child);
            } else {
                object->text.append(c);
                object->reach.append({m_plain, m_plain + 1});
                ++m_plain;
            }
        }
    }

    QString m_markup;
    qsizetype m_pos = 0;
    int m_plain = 0;
    int m_lines = 0;
    int m_selectionStart = 0;
    int m_selectionEnd = 0;
    std::shared_ptr<FakeObject> m_root;
};

std::optional<JoinedSelection> readFrom(const Markup& markup, const QList<int>& path, int radius,
                                        int* calls = nullptr) {
    static int ignored = 0;
    return HypertextSelection::read(std::make_unique<FakeNode>(markup.at(path), calls ? calls : &ignored),
                                    radius, QDeadlineTimer(QDeadlineTimer::Forever));
}

} // namespace

class HypertextSelectionTest : public QObject {
    Q_OBJECT

private slots:
    void joinsTheSelectionInReadingOrder_data() {
        QTest::addColumn<QString>("markup");
        QTest::addColumn<QList<int>>("start"); // the object the reader starts at
        QTest::addColumn<int>("radius");
        QTest::addColumn<QString>("expected"); // the joined text, the selection in brackets

        const QString page = QStringLiteral("{The quick}{brown [fox] jumps}{over it}");
        QTest::newRow("a word, from the document")
            << page << QList<int>{} << 40 << QStringLiteral("The quick\nbrown [fox] jumps\nover it");
        QTest::newRow("a word, from its paragraph: the reader climbs to the document")
            << page << QList<int>{1} << 40 << QStringLiteral("The quick\nbrown [fox] jumps\nover it");
        QTest::newRow("the radius stops the context in the neighbours")
            << page << QList<int>{} << 8 << QStringLiteral("ck\nbrown [fox] jumps\nov");
        QTest::newRow("across blocks, one line break between them")
            << QStringLiteral("{one [two}{three}{fo]ur}") << QList<int>{} << 40
            << QStringLiteral("one [two\nthree\nfo]ur");
        QTest::newRow("through a link and out of it")
            << QStringLiteral("{see [the <link> text] here}") << QList<int>{0} << 40
            << QStringLiteral("see [the link text] here");
        QTest::newRow("starting inside a link")
            << QStringLiteral("{a <li[nk> b] c}") << QList<int>{0, 0} << 40 << QStringLiteral("a li[nk b] c");
        QTest::newRow("a cell of a table in a section")
            << QStringLiteral("{intro}{{{Name}{Ada [Lovelace]}}{{Born}{1815}}}") << QList<int>{} << 40
            << QStringLiteral("intro\nName\nAda [Lovelace]\nBorn\n1815");
        QTest::newRow("an image inside the selection is left out")
            << QStringLiteral("{a [b<!>c] d}") << QList<int>{} << 40 << QStringLiteral("a [bc] d");
        QTest::newRow("a password field beside the selection is left out of the context")
            << QStringLiteral("{{<user [name]> <*secret> <more>}}") << QList<int>{0, 0, 0} << 40
            << QStringLiteral("user [name]  more");
    }
    void joinsTheSelectionInReadingOrder() {
        QFETCH(QString, markup);
        QFETCH(QList<int>, start);
        QFETCH(int, radius);
        QFETCH(QString, expected);

        const std::optional<JoinedSelection> joined = readFrom(Markup(markup), start, radius);
        QVERIFY(joined);
        QString shown = joined->text;
        shown.insert(joined->selectionEnd, QLatin1Char(']'));
        shown.insert(joined->selectionStart, QLatin1Char('['));
        QCOMPARE(shown, expected);
        QVERIFY(!joined->text.contains(QChar(TextNode::embeddedObject)));
    }

    void refusesWhatIsNoUsableSelection_data() {
        QTest::addColumn<QString>("markup");
        QTest::newRow("only embedded objects") << QStringLiteral("{a [<!><!>] b}");
        QTest::newRow("only white space between blocks") << QStringLiteral("{a[}{ ]b}");
        QTest::newRow("a password field in the selection")
            << QStringLiteral("{user [name}{*secret}{more] text}");
        QTest::newRow("nothing selected") << QStringLiteral("{a b c}");
    }
    void refusesWhatIsNoUsableSelection() {
        QFETCH(QString, markup);
        QVERIFY(!readFrom(Markup(markup), {}, 40));
    }

    void theRectangleCoversTheSelectedWordsOnly() {
        // "fox" on the second paragraph's line at x 60..90, "ju" on the third's at x 0..20.
        const Markup markup(QStringLiteral("{The quick}{brown [fox }{ju]mps}"));
        const std::optional<JoinedSelection> joined = readFrom(markup, {}, 10);
        QVERIFY(joined);
        QCOMPARE(joined->bounds, QRectF(0, 40, 100, 40));
    }

    void workStaysBoundedOnAHugeDocument() {
        // Thousands of paragraphs, one word selected: the walk reads that paragraph and as many
        // neighbours as the context needs.
        QString page;
        for (int i = 0; i < 5000; ++i)
            page += i == 2500 ? QStringLiteral("{[word]}") : QStringLiteral("{filler text}");
        int calls = 0;
        const std::optional<JoinedSelection> joined = readFrom(Markup(page), {}, 30, &calls);
        QVERIFY(joined);
        QCOMPARE(joined->text.mid(joined->selectionStart, joined->selectionEnd - joined->selectionStart),
                 QStringLiteral("word"));
        QVERIFY2(calls < 60, qPrintable(QString::number(calls)));

        const std::optional<JoinedSelection> late = HypertextSelection::read(
            std::make_unique<FakeNode>(Markup(page).at({}), &calls), 30, QDeadlineTimer(0));
        QVERIFY(!late);
    }
};

QTEST_APPLESS_MAIN(HypertextSelectionTest)
#include "tst_hypertextselection.moc"

#include "NubraPlatform/linux/QtPasteboard.h"

#include <QGuiApplication>
#include <QTest>

#include <future>
#include <thread>

namespace {

// Runs `work` on a thread of its own, as the background reader does, while the main thread either
// serves events or stays busy for `busyMs`.
template <typename F> auto fromReader(F work, int busyMs = 0) {
    std::future<decltype(work())> answer = std::async(std::launch::async, std::move(work));
    if (busyMs > 0)
        std::this_thread::sleep_for(std::chrono::milliseconds(busyMs));
    while (answer.wait_for(std::chrono::milliseconds(1)) != std::future_status::ready)
        QCoreApplication::processEvents();
    return answer.get();
}

} // namespace

class LinuxClipboardTest : public QObject {
    Q_OBJECT

private slots:
    void readsAndWritesFromTheReaderThread() {
        QtPasteboard pasteboard;
        const qint64 before = pasteboard.changeCount();
        QVERIFY(fromReader([&] {
            pasteboard.clearContents();
            return pasteboard.setData("saved", Pasteboard::plainTextType());
        }));
        QTRY_VERIFY(pasteboard.changeCount() > before);
        QVERIFY(fromReader([&] { return pasteboard.types(); }).contains(Pasteboard::plainTextType()));
        QCOMPARE(fromReader([&] { return pasteboard.string(); }), std::optional<QString>(u"saved"_qs));
        QVERIFY(!pasteboard.readsIncomplete());

        // A restore puts every format back with one change of owner.
        const qint64 beforeRestore = pasteboard.changeCount();
        fromReader([&] {
            pasteboard.replaceContents({{Pasteboard::plainTextType(), "text"}, {u"text/html"_qs, "<b>text</b>"}});
            return true;
        });
        QTRY_COMPARE(pasteboard.changeCount(), beforeRestore + 1);
        const QStringList types = fromReader([&] { return pasteboard.types(); });
        QVERIFY(types.contains(Pasteboard::plainTextType()) && types.contains(u"text/html"_qs));
        QCOMPARE(pasteboard.changeCount(), beforeRestore + 1);
    }

    void aFormatTooBigToKeepMakesTheSaveIncomplete() {
        QtPasteboard pasteboard;
        const QByteArray huge(QtPasteboard::maxFormatBytes + 1, 'x');
        fromReader([&] { return pasteboard.setData(huge, u"application/octet-stream"_qs); });
        QVERIFY(fromReader([&] { return pasteboard.types(); }).contains(u"application/octet-stream"_qs));
        QVERIFY(!fromReader([&] { return pasteboard.data(u"application/octet-stream"_qs); }));
        QVERIFY(pasteboard.readsIncomplete());
    }

    void aBusyMainThreadMakesTheSaveIncomplete() {
        QtPasteboard pasteboard;
        fromReader([&] { return pasteboard.setData("keep me", Pasteboard::plainTextType()); });
        // The main thread does not answer within the reader's wait: the listing comes back empty, and
        // that must not look like an empty clipboard.
        QVERIFY(fromReader([&] { return pasteboard.types(); }, QtPasteboard::mainThreadTimeoutMs + 300)
                    .isEmpty());
        QVERIFY(pasteboard.readsIncomplete());
        // A listing that is answered starts over.
        QVERIFY(!fromReader([&] { return pasteboard.types(); }).isEmpty());
        QVERIFY(!pasteboard.readsIncomplete());
        QVERIFY(!fromReader([&] { return pasteboard.data(Pasteboard::plainTextType()); },
                            QtPasteboard::mainThreadTimeoutMs + 300));
        QVERIFY(pasteboard.readsIncomplete());
    }
};

QTEST_MAIN(LinuxClipboardTest)
#include "tst_linuxclipboard.moc"

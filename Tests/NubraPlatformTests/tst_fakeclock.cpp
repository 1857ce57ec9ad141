#include "NubraPlatform/Coordinates.h"
#include "NubraPlatform/fake/FakeClock.h"

#include <QTest>

// The fake clock carries every timing test of capture, so its ordering must be right.
class FakeClockTest : public QObject {
    Q_OBJECT

private slots:
    void runsTasksInDueOrderOnlyWhenAdvanced() {
        FakeClock clock;
        const qint64 start = clock.nowMs();
        QList<QString> ran;
        clock.schedule(300, [&] { ran << u"b@"_qs + QString::number(clock.nowMs() - start); });
        clock.schedule(100, [&] { ran << u"a@"_qs + QString::number(clock.nowMs() - start); });
        const Clock::TaskId cancelled = clock.schedule(200, [&] { ran << u"cancelled"_qs; });
        clock.schedule(300, [&] { ran << u"c"_qs; });
        clock.cancel(cancelled);
        clock.sleepFor(500); // blocking waits move time but run nothing
        QVERIFY(ran.isEmpty());
        QCOMPARE(clock.sleeps(), QList<int>{500});
        clock.advance(0);
        QCOMPARE(ran, (QList<QString>{u"a@500"_qs, u"b@500"_qs, u"c"_qs}));
    }

    void advanceStopsAtEachDueTime() {
        FakeClock clock;
        const qint64 start = clock.nowMs();
        QList<qint64> at;
        clock.schedule(100, [&] {
            at << clock.nowMs() - start;
            clock.schedule(50, [&] { at << clock.nowMs() - start; });
        });
        clock.advance(120);
        QCOMPARE(at, QList<qint64>{100});
        clock.advance(30);
        QCOMPARE(at, (QList<qint64>{100, 150}));
        QCOMPARE(clock.nowMs() - start, 150);
        QCOMPARE(clock.pendingTasks(), 0);
    }

    void flipsBetweenTopAndBottomOrigins() {
        QCOMPARE(Coordinates::flipRect(QRectF(100, 200, 50, 20), 900), QRectF(100, 680, 50, 20));
        QCOMPARE(Coordinates::flipRect(Coordinates::flipRect(QRectF(3, 4, 5, 6), 768), 768),
                 QRectF(3, 4, 5, 6));
        QCOMPARE(Coordinates::flipPoint(QPointF(10, 0), 900), QPointF(10, 900));
    }
};

QTEST_APPLESS_MAIN(FakeClockTest)
#include "tst_fakeclock.moc"

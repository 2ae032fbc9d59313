#include "TestMain.h"

#include "analysis/BeatGrid.h"

#include <QTest>

using PracticeMode::BeatGrid;

class BeatGridTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void snap_data() {
        QTest::addColumn<double>("bpm");
        QTest::addColumn<double>("firstBeat");
        QTest::addColumn<double>("time");
        QTest::addColumn<double>("snapped");
        QTest::newRow("onto the nearest beat") << 120.0 << 0.25 << 10.0 << 10.25;
        QTest::newRow("before the first beat") << 120.0 << 0.25 << 0.1 << 0.25;
        QTest::newRow("on the first beat") << 120.0 << 0.25 << 0.25 << 0.25;
        QTest::newRow("just under half a beat rounds down") << 120.0 << 0.25 << 0.49 << 0.25;
        QTest::newRow("half a beat rounds up") << 120.0 << 0.25 << 0.5 << 0.75;
        QTest::newRow("slow tempo") << 60.0 << 0.0 << 7.6 << 8.0;
        QTest::newRow("negative time") << 100.0 << 0.1 << -3.0 << 0.1;
        QTest::newRow("never below zero") << 120.0 << -0.2 << -1.0 << 0.0;
    }

    void snap() {
        QFETCH(double, bpm);
        QFETCH(double, firstBeat);
        QFETCH(double, time);
        QFETCH(double, snapped);
        QCOMPARE(BeatGrid({bpm, firstBeat}).snap(time), snapped);
    }

    void snapLength_data() {
        QTest::addColumn<double>("duration");
        QTest::addColumn<double>("snapped");
        // 120 BPM: half a second a beat.
        QTest::newRow("already whole beats") << 2.5 << 2.5;
        QTest::newRow("shorter than a beat") << 0.1 << 0.5;
        QTest::newRow("zero") << 0.0 << 0.5;
        QTest::newRow("rounds down") << 1.24 << 1.0;
        QTest::newRow("half a beat over rounds up") << 1.25 << 1.5;
        QTest::newRow("long clip") << 29.9 << 30.0;
    }

    void snapLength() {
        QFETCH(double, duration);
        QFETCH(double, snapped);
        const BeatGrid grid{120.0, 0.25};
        QCOMPARE(grid.snapLength(duration), snapped);
    }
};

VORLIX_TEST_SUITE(BeatGridTest)
#include "BeatGridTest.moc"

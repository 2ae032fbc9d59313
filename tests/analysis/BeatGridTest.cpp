#include "TestMain.h"

#include "analysis/BeatGrid.h"

#include <QTest>

using PracticeMode::BeatGrid;

class BeatGridTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void snap() {
        const BeatGrid grid{120.0, 0.25};
        QCOMPARE(grid.snap(10.0), 10.25);
        QCOMPARE(grid.snap(0.1), 0.25); // before the first beat
        QCOMPARE(grid.snap(0.49), 0.25);
        QCOMPARE(grid.snap(0.5), 0.75); // half a beat rounds up
        QCOMPARE(BeatGrid({100.0, 0.1}).snap(-3.0), 0.1);
        QCOMPARE(BeatGrid({120.0, -0.2}).snap(-1.0), 0.0); // never below zero
    }

    void snapLength() {
        const BeatGrid grid{120.0, 0.25}; // half a second a beat
        QCOMPARE(grid.snapLength(2.5), 2.5);
        QCOMPARE(grid.snapLength(0.1), 0.5); // at least one beat
        QCOMPARE(grid.snapLength(0.0), 0.5);
        QCOMPARE(grid.snapLength(1.24), 1.0);
        QCOMPARE(grid.snapLength(1.25), 1.5);
    }
};

VORLIX_TEST_SUITE(BeatGridTest)
#include "BeatGridTest.moc"

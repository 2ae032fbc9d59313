#include "TestMain.h"

#include "ui/Brand.h"
#include "ui/EmberProgressBar.h"

#include <QApplication>
#include <QFileInfo>
#include <QFontInfo>
#include <QTest>

#include <cmath>

using namespace Qt::StringLiterals;

namespace {
bool near(QColor a, QColor b, int tolerance) {
    return std::abs(a.red() - b.red()) <= tolerance && std::abs(a.green() - b.green()) <= tolerance &&
           std::abs(a.blue() - b.blue()) <= tolerance;
}

// Filled pixels across the middle row of a progress bar.
int filled(EmberProgressBar &bar) {
    const QImage img = bar.grab().toImage();
    int n = 0;
    for (int x = 0; x < img.width(); ++x)
        n += near(img.pixelColor(x, img.height() / 2), Brand::ember(), 20) ? 1 : 0;
    return n;
}
} // namespace

class EmberStyleTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase() {
        Brand::loadFonts();
        Brand::applyDarkAppearance(*qApp);
    }

    // The shipped faces themselves, never a substitute, with their licence beside them.
    void fontsResolveToTheShippedFaces() {
        QCOMPARE(QFontInfo(Brand::displayFont(14)).family(), u"Schibsted Grotesk"_s);
        QVERIFY(QFontInfo(Brand::displayFont(20, QFont::Bold)).weight() >= QFont::DemiBold);
        QCOMPARE(QFontInfo(Brand::monoFont(10, QFont::Medium)).family(), u"JetBrains Mono"_s);
        QVERIFY(QFileInfo::exists(Brand::fontsDir() + u"/SchibstedGrotesk-OFL.txt"_s));
    }

    // Out-of-range values are clamped, and a started bar never looks empty.
    void progressBarWidth_data() {
        QTest::addColumn<double>("value");
        QTest::addColumn<int>("expected"); // filled pixels of a 200-pixel bar
        QTest::newRow("zero shows a sliver") << 0.0 << 2;
        QTest::newRow("not a number") << std::nan("") << 2;
        QTest::newRow("half") << 0.5 << 100;
        QTest::newRow("over one is full") << 1.7 << 200;
    }
    void progressBarWidth() {
        QFETCH(double, value);
        QFETCH(int, expected);
        EmberProgressBar bar;
        bar.resize(200, EmberProgressBar::barHeight);
        bar.setValue(0.3); // start elsewhere so the glide has somewhere to go
        bar.setValue(value);
        // The rounded clip softens the two end pixels.
        if (value > 1)
            QVERIFY(filled(bar) < 150); // it glides there instead of jumping
        QTRY_VERIFY2(std::abs(filled(bar) - expected) <= 2, qPrintable(QString::number(filled(bar))));
        bar.resetValue(0.25); // a new item's bar starts where it is, without a glide
        QVERIFY(std::abs(filled(bar) - 50) <= 1);
    }

};

VORLIX_TEST_SUITE(EmberStyleTest)
#include "EmberStyleTest.moc"

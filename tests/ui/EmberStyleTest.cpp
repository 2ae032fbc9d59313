#include "TestMain.h"

#include "ui/Brand.h"
#include "ui/EmberButtonStyle.h"
#include "ui/EmberProgressBar.h"
#include "ui/PinchMark.h"
#include "ui/StatusChip.h"
#include "ui/Symbols.h"

#include <QApplication>
#include <QStyleFactory>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QFontInfo>
#include <QPushButton>
#include <QTest>

namespace {
bool near(QColor a, QColor b, int tolerance = 12) {
    return std::abs(a.red() - b.red()) <= tolerance && std::abs(a.green() - b.green()) <= tolerance &&
           std::abs(a.blue() - b.blue()) <= tolerance;
}

// Pixels of one row that are (close to) `color`.
int countInRow(const QImage &img, int y, const QColor &color) {
    int n = 0;
    for (int x = 0; x < img.width(); ++x)
        n += near(img.pixelColor(x, y), color, 20) ? 1 : 0;
    return n;
}

QImage grabbed(QWidget &w) { return w.grab().toImage().convertToFormat(QImage::Format_ARGB32); }
} // namespace

class EmberStyleTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase() {
        Brand::loadFonts();
        Brand::applyDarkAppearance(*qApp);
    }

    // Each weight in use resolves to the shipped face itself, never a substitute, and the
    // licence travels with it.
    void fontsResolveToTheShippedFaces_data() {
        QTest::addColumn<QFont>("font");
        QTest::addColumn<QString>("family");
        QTest::addColumn<bool>("bold");
        const QString display = QStringLiteral("Schibsted Grotesk"), mono = QStringLiteral("JetBrains Mono");
        QTest::newRow("display regular") << Brand::displayFont(14) << display << false;
        QTest::newRow("display semibold") << Brand::displayFont(14, QFont::DemiBold) << display << true;
        QTest::newRow("display bold") << Brand::displayFont(20, QFont::Bold) << display << true;
        QTest::newRow("mono regular") << Brand::monoFont(10) << mono << false;
        QTest::newRow("mono medium") << Brand::monoFont(10, QFont::Medium) << mono << false;
    }
    void fontsResolveToTheShippedFaces() {
        QFETCH(QFont, font);
        QFETCH(QString, family);
        QFETCH(bool, bold);
        const QFontInfo info(font);
        QCOMPARE(info.family(), family);
        QCOMPARE(info.weight() >= QFont::DemiBold, bold);
        QVERIFY(QFileInfo::exists(Brand::fontsDir() + QStringLiteral("/SchibstedGrotesk-OFL.txt")));
    }

    void progressBarWidth_data() {
        QTest::addColumn<double>("value");
        QTest::addColumn<int>("expected"); // filled pixels of a 200-pixel bar
        QTest::newRow("zero shows a sliver") << 0.0 << 2;
        QTest::newRow("negative shows a sliver") << -1.0 << 2;
        QTest::newRow("over one is full") << 1.7 << 200;
        QTest::newRow("half") << 0.5 << 100;
        QTest::newRow("tiny still a sliver") << 0.004 << 2;
        QTest::newRow("not a number") << std::nan("") << 2;
    }
    void progressBarWidth() {
        QFETCH(double, value);
        QFETCH(int, expected);
        EmberProgressBar bar;
        bar.resize(200, EmberProgressBar::barHeight);
        bar.setValue(0.3); // start elsewhere so the glide has somewhere to go
        bar.setValue(value);
        QTest::qWait(EmberProgressBar::animationMs + 80);
        const QImage img = grabbed(bar);
        QCOMPARE(img.height(), 3);
        const int filled = countInRow(img, 1, Brand::ember());
        // The rounded clip softens the two end pixels.
        QVERIFY2(std::abs(filled - expected) <= 2, qPrintable(QStringLiteral("filled %1").arg(filled)));
        if (expected < 200)
            QVERIFY(countInRow(img, 1, Brand::hairline()) >= 200 - expected - 2);
    }

    void progressBarGlidesInsteadOfJumping() {
        EmberProgressBar bar;
        bar.resize(200, 3);
        bar.setValue(1.0);
        QTest::qWait(40);
        const int early = countInRow(grabbed(bar), 1, Brand::ember());
        QVERIFY2(early > 2 && early < 150, qPrintable(QString::number(early)));
        QTRY_VERIFY_WITH_TIMEOUT(countInRow(grabbed(bar), 1, Brand::ember()) >= 198, 1000);
        bar.resetValue(0.25);
        QVERIFY(std::abs(countInRow(grabbed(bar), 1, Brand::ember()) - 50) <= 1);
    }

    void buttonSizeFollowsPadding_data() {
        QTest::addColumn<bool>("compact");
        QTest::addColumn<int>("padX");
        QTest::addColumn<int>("padY");
        QTest::newRow("regular") << false << 20 << 9;
        QTest::newRow("compact") << true << 12 << 5;
    }
    void buttonSizeFollowsPadding() {
        QFETCH(bool, compact);
        QFETCH(int, padX);
        QFETCH(int, padY);
        QPushButton button(QStringLiteral("Download"));
        EmberButtonStyle::apply(&button, compact);
        const QFontMetrics metrics(button.font());
        const QSize hint = button.sizeHint();
        // Qt measures the label itself (mnemonics, leading): allow it one pixel.
        QVERIFY(std::abs(hint.width() - (metrics.horizontalAdvance(QStringLiteral("Download")) + 2 * padX)) <= 1);
        QVERIFY(std::abs(hint.height() - (metrics.height() + 2 * padY)) <= 1);
        QVERIFY(button.font().bold());
        QCOMPARE(button.font().pointSizeF(), (compact ? 12.5 : 14.0) * 0.75);
    }

    void pressedButtonDeepensAndRecovers() {
        QWidget window;
        auto *button = new QPushButton(QStringLiteral("Retry"), &window);
        EmberButtonStyle::apply(button);
        button->resize(button->sizeHint());
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        const QPoint corner(3, button->height() / 2); // left padding: fill, no text
        QVERIFY(near(grabbed(*button).pixelColor(corner), Brand::ember(), 3));

        QElapsedTimer clock;
        clock.start();
        QTest::mousePress(button, Qt::LeftButton);
        QTRY_VERIFY_WITH_TIMEOUT(EmberButtonStyle::currentFill(button).rgb() == Brand::emberDeep().rgb(), 500);
        QVERIFY2(clock.elapsed() < 250, qPrintable(QString::number(clock.elapsed())));
        QVERIFY(near(grabbed(*button).pixelColor(corner), Brand::emberDeep(), 3));

        clock.restart();
        QTest::mouseRelease(button, Qt::LeftButton);
        QTRY_VERIFY_WITH_TIMEOUT(EmberButtonStyle::currentFill(button).rgb() == Brand::ember().rgb(), 500);
        QVERIFY2(clock.elapsed() < 250, qPrintable(QString::number(clock.elapsed())));
        QVERIFY(near(grabbed(*button).pixelColor(corner), Brand::ember(), 3));
    }

    void disabledButtonIsDimmed() {
        QPushButton button(QStringLiteral("Download"));
        EmberButtonStyle::apply(&button);
        button.resize(button.sizeHint());
        button.setEnabled(false);
        const QColor fill = grabbed(button).pixelColor(3, button.height() / 2);
        QVERIFY(fill.red() < Brand::ember().red() - 40);
    }

    void markScalesWithItsGrid_data() {
        QTest::addColumn<int>("size");
        QTest::newRow("24 is 1:1") << 24;
        QTest::newRow("48 doubles") << 48;
        QTest::newRow("96") << 96;
    }
    void markScalesWithItsGrid() {
        QFETCH(int, size);
        const qreal s = size / 24.0;
        const QColor bracket(Qt::white);
        const QImage img = PinchMark::image(size, bracket, false);
        auto at = [&](qreal gx, qreal gy) { return img.pixelColor(int(gx * s), int(gy * s)); };
        QVERIFY(near(at(12, 12), Brand::ember(), 2));              // chip centre
        QVERIFY(near(at(4, 8), bracket, 30));                      // upper-left bracket, vertical stroke
        QVERIFY(near(at(8.5, 4), bracket, 30));                    // upper-left bracket, horizontal stroke
        QVERIFY(near(at(20, 15.5), bracket, 30));                  // lower-right bracket
        QCOMPARE(at(2, 22).alpha(), 0);                            // the empty corners stay clear
        QCOMPARE(at(21, 3).alpha(), 0);
        QCOMPARE(at(12, 6).alpha(), 0);                            // gap between bracket and chip

        // Stroke width 2.6 grid units: count covered pixels across the left bracket's upright.
        int covered = 0;
        for (int x = 0; x < int(8 * s); ++x)
            covered += img.pixelColor(x, int(8.5 * s)).alpha() > 127 ? 1 : 0;
        QVERIFY2(std::abs(covered - 2.6 * s) <= 1.0, qPrintable(QString::number(covered)));
    }

    void gradientChipRunsFromLightToDeep() {
        const QImage img = PinchMark::image(240, Qt::white, true);
        const QColor top = img.pixelColor(120, 82);
        const QColor bottom = img.pixelColor(120, 158);
        QVERIFY(near(top, Brand::emberLight(), 10));
        QVERIFY(near(bottom, Brand::emberDeep(), 10));
    }

    void chipLayoutAndOutline() {
        StatusChip plain(QStringLiteral("Queued"), QString(), Brand::stone());
        StatusChip withSymbol(QStringLiteral("Queued"), QStringLiteral("clock"), Brand::stone());
        const QFontMetrics metrics(Brand::monoFont(10, QFont::Medium));
        QVERIFY(plain.sizeHint().width() >= metrics.horizontalAdvance(QStringLiteral("Queued")) + 14);
        QVERIFY(withSymbol.sizeHint().width() > plain.sizeHint().width());
        QCOMPARE(plain.sizeHint().height(), QFontMetrics(plain.font()).height() + 6);

        // Outline: the tint at 45 % over a transparent background.
        const QColor tint(Qt::green);
        StatusChip chip(QStringLiteral("Done"), QStringLiteral("checkmark.circle.fill"), tint);
        chip.resize(chip.sizeHint());
        QImage img(chip.size(), QImage::Format_ARGB32);
        img.fill(Qt::transparent);
        chip.render(&img, QPoint(), QRegion(), QWidget::DrawChildren);
        const QColor edge = img.pixelColor(0, img.height() / 2);
        QVERIFY2(std::abs(edge.alpha() - int(0.45 * 255)) <= 8, qPrintable(QString::number(edge.alpha())));
        bool textInTint = false;
        for (int x = img.width() / 2; x < img.width() - 7 && !textInTint; ++x)
            for (int y = 3; y < img.height() - 3; ++y)
                if (img.pixelColor(x, y).alpha() > 200 && near(img.pixelColor(x, y), tint, 40))
                    textInTint = true;
        QVERIFY(textInTint);

        chip.set(QStringLiteral("Cancelled"), QStringLiteral("xmark.circle"), Brand::stone());
        QCOMPARE(chip.text(), QStringLiteral("Cancelled"));
        QVERIFY(chip.sizeHint().width() > img.width());
    }

    void symbolsAreTinted_data() {
        QTest::addColumn<QString>("symbol");
        for (const char *name : {"arrow.down.circle", "arrow.down.circle.fill", "folder", "film", "music.note",
                                 "xmark.circle.fill", "checkmark.circle.fill", "exclamationmark.triangle.fill",
                                 "sparkles", "trash", "no.such.symbol"})
            QTest::newRow(name) << QString::fromLatin1(name);
    }
    void symbolsAreTinted() {
        QFETCH(QString, symbol);
        const QColor tint(0x12, 0xC0, 0x88);
        for (const QImage &img : {Symbols::pixmap(symbol, tint, 16).toImage(), Symbols::drawn(symbol, tint, 16).toImage()}) {
            QVERIFY(!img.isNull());
            int opaque = 0;
            for (int y = 0; y < img.height(); ++y)
                for (int x = 0; x < img.width(); ++x) {
                    const QColor c = img.pixelColor(x, y);
                    if (c.alpha() < 250)
                        continue;
                    ++opaque;
                    QVERIFY2(near(c, tint, 2), qPrintable(c.name()));
                }
            QVERIFY(opaque > 4);
        }
    }

    void trayStatesHaveDistinctGlyphs() {
        const QImage outline = Symbols::pixmap(QStringLiteral("arrow.down.circle"), Qt::white, 22).toImage();
        const QImage filled = Symbols::drawn(QStringLiteral("arrow.down.circle.fill"), Qt::white, 22).toImage();
        const QImage drawnOutline = Symbols::drawn(QStringLiteral("arrow.down.circle"), Qt::white, 22).toImage();
        QVERIFY(!outline.isNull());
        QVERIFY(filled != drawnOutline);
    }
};

VORLIX_TEST_SUITE(EmberStyleTest)
#include "EmberStyleTest.moc"

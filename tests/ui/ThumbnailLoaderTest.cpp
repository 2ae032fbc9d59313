#include "UiHarness.h"

#include <numeric>

using namespace Qt::StringLiterals;

class ThumbnailLoaderTest : public QObject {
    Q_OBJECT
    FixtureSite site;

private Q_SLOTS:
    void initTestCase() {
        QVERIFY(site.isRunning());
        for (int i = 0; i < 10; ++i)
            site.put(u"pic/%1.png"_s.arg(i), ui_test::greenPng(100, 100));
        site.put(u"page.png"_s, "<!doctype html><html><body>Not found</body></html>");
    }

    void everyAnswerEndsTheWait_data() {
        QTest::addColumn<QString>("path");
        QTest::addColumn<bool>("picture");
        QTest::newRow("picture, cropped to fill") << u"/pic/0.png"_s << true;
        QTest::newRow("404") << u"/missing.png"_s << false;
        QTest::newRow("HTML with a picture's name") << u"/page.png?type=image/png"_s << false;
        QTest::newRow("no server") << u"http://127.0.0.1:9/x.png"_s << false;
    }
    void everyAnswerEndsTheWait() {
        QFETCH(QString, path);
        QFETCH(bool, picture);
        ThumbnailLoader loader{QString()};
        QObject receiver;
        struct {
            int calls = 0;
            QPixmap picture;
        } answer;
        const QUrl url(path.startsWith(u'/') ? site.url(path) : path);
        loader.request(&receiver, url, QSize(60, 30), 4, [&answer](const QPixmap &pm) {
            ++answer.calls;
            answer.picture = pm;
        });
        QTRY_COMPARE(answer.calls, 1);
        QCOMPARE(!answer.picture.isNull(), picture);
        if (picture) {
            QCOMPARE(answer.picture.deviceIndependentSize(), QSizeF(60, 30));
            const QImage shown = answer.picture.toImage();
            QCOMPARE(shown.pixelColor(shown.width() / 2, shown.height() / 2), QColor(0, 200, 0));
            QCOMPARE(shown.pixelColor(0, 0).alpha(), 0); // rounded corner
        }
        QCOMPARE(loader.inFlight() + loader.waiting(), 0);
        // A later picture arriving is the barrier: a second answer to the first would come before it.
        QObject other;
        bool barrier = false;
        loader.request(&other, QUrl(site.url(u"/pic/9.png"_s)), QSize(8, 8), 0, [&barrier](const QPixmap &) { barrier = true; });
        QTRY_VERIFY(barrier);
        QCOMPARE(answer.calls, 1);
    }

    void sixAtOnceAndGoneRowsAreAbandoned() {
        ThumbnailLoader loader{QString()};
        std::vector<std::unique_ptr<QObject>> rows;
        std::vector<int> calls(10, 0);
        for (int i = 0; i < 10; ++i) {
            rows.push_back(std::make_unique<QObject>());
            loader.request(rows.back().get(), QUrl(site.url(u"/pic/%1.png?delay=0.2"_s.arg(i))), QSize(40, 40), 0,
                           [&calls, i](const QPixmap &) { ++calls[i]; });
        }
        QVERIFY(loader.inFlight() == ThumbnailLoader::maxInFlight && loader.waiting() == 4);
        for (int i = 0; i < 8; ++i)
            rows[i].reset(); // scrolled away before their pictures came, in one burst
        // The freed slots are refilled once the burst is over, so rows 6 and 7 never start.
        QVERIFY(loader.inFlight() == 0 && loader.waiting() == 2);
        QTRY_COMPARE(loader.inFlight(), 2);
        QTRY_VERIFY(calls[8] == 1 && calls[9] == 1);
        const QStringList seen = site.requests();
        QVERIFY(seen.filter(u"/pic/6.png"_s).isEmpty() && seen.filter(u"/pic/7.png"_s).isEmpty());
        QCOMPARE(std::accumulate(calls.begin(), calls.begin() + 8, 0), 0);
    }

};

VORLIX_TEST_SUITE(ThumbnailLoaderTest)
#include "ThumbnailLoaderTest.moc"

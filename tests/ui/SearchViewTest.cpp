#include "UiHarness.h"
#include "engine_media.h"

#include "engine/YtDlp.h"
#include "ui/SearchView.h"
#include "ui/SegmentedPicker.h"

using namespace Qt::StringLiterals;

namespace {

QString mark(const QString &name) { return TestEnv::root() + u'/' + name; }

// A stand-in engine that answers by the words in the query (its last argument).
void writeEngine() {
    const QString hit = u"printf 'VORLIXSR\\t%s\\t%s\\tChan %s\\t212.4\\t2450000\\n' "_s;
    const auto waitFor = [](const QString &name) -> QString {
        return u"i=0; while [ ! -f '"_s + mark(name) + u"' ] && [ $i -lt 200 ]; do sleep 0.05; i=$((i+1)); done\n  "_s;
    };
    TestEnv::standIn(u"yt-dlp"_s,
        u"for a; do q=$a; done\ncase \"$q\" in\n"_s
        u"*twothenfail*) "_s + hit + u"a 'Alpha' A; "_s + hit + u"b 'Beta' B; echo 'ERROR: HTTP Error 429' >&2; exit 1 ;;\n"_s
        u"*broken*) echo 'ERROR: [youtube:search] Unable to download webpage: HTTP Error 429: Too Many Requests' >&2; exit 1 ;;\n"_s
        u"*slow*) "_s + waitFor(u"late"_s) + hit + u"old 'Old' O ;;\n"_s
        u"*nothing*) echo 'no hits' ;;\n"_s
        u"*) "_s + hit + u"v1 'Video one' A; "_s + hit + u"v2 'Video two' B ;;\nesac\n"_s);
}

struct Harness : ui_test::QueueHarness {
    ThumbnailLoader thumbnails{QString()};
    std::unique_ptr<SearchView> view;

    explicit Harness(const QString &thumbnailServer = u"http://127.0.0.1:9"_s) {
        view = std::make_unique<SearchView>(*queue, SearchView::Setup{thumbnailServer, &thumbnails});
        view->resize(820, 600);
    }
    ~Harness() {
        view.reset();
        windDown();
    }
    void search(const QString &text) { ui_test::submit(view->field(), text); }
    bool finished() const { return !view->isSearching() && view->hasSearched(); }
    QStringList ids() const {
        QStringList out;
        for (const auto &r : view->results())
            out << r.id;
        return out;
    }
    QList<QWidget *> rows() const { return view->findChildren<QWidget *>(u"resultRow"_s); }
    QWidget *row(const QString &title) const { return ui_test::titled(view.get(), u"resultRow"_s, title); }
    bool shows(const QString &name) const { return view->findChild<QWidget *>(name)->isVisibleTo(view.get()); }
    QString page() const { return ui_test::shownPage(view.get(), {u"welcome"_s, u"results"_s}); }
};

// How many runs of the stand-in engine had an argument containing `fragment`.
qsizetype runsFor(const QString &fragment) { return TestEnv::standInArgs(u"yt-dlp"_s).filter(fragment).size(); }

} // namespace

class SearchViewTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase() {
        Brand::applyDarkAppearance(*qApp);
        writeEngine();
    }
    void cleanupTestCase() { TestEnv::removeStubTool(u"yt-dlp"_s); }

    void searchEndsInTheRightContent_data() {
        QTest::addColumn<QString>("query");
        QTest::addColumn<QStringList>("ids");
        QTest::addColumn<QString>("page");
        QTest::newRow("failure after two hits keeps them") << u"twothenfail"_s << QStringList{u"a"_s, u"b"_s} << u"results"_s;
        QTest::newRow("failure without hits")
            << u"broken"_s << QStringList{}
            << YtDlp::friendlyError(u"ERROR: [youtube:search] Unable to download webpage: HTTP Error 429: Too Many Requests\n"_s);
        QTest::newRow("nothing found") << u"nothing"_s << QStringList{} << u"No results"_s;
    }
    void searchEndsInTheRightContent() {
        QFETCH(QString, query);
        QFETCH(QStringList, ids);
        QFETCH(QString, page);
        Harness h;
        QCOMPARE(h.page(), u"welcome"_s);
        h.search(query);
        QVERIFY(h.shows(u"busy"_s));
        QTRY_VERIFY(h.finished());
        QCOMPARE(h.ids(), ids);
        QCOMPARE(h.rows().size(), ids.size());
        QCOMPARE(h.page(), page);
        QCOMPARE(h.shows(u"formatBar"_s), !ids.isEmpty());
    }

    void olderSearchIsIgnored() {
        QFile::remove(mark(u"late"_s));
        Harness h;
        h.search(u"slow"_s);
        h.search(u"fast"_s);
        QTRY_VERIFY(h.finished());
        QVERIFY(TestEnv::writeFile(mark(u"late"_s), {}));
        // Once the old engine has ended, its last line and its exit are waiting in the pipes.
        QTRY_VERIFY(EngineMedia::liveProcessesMentioning(u"slow"_s, {u"yt-dlp"_s, u"sh"_s}).isEmpty());
        QCoreApplication::processEvents();
        QCoreApplication::processEvents();
        QCOMPARE(h.ids(), (QStringList{u"v1"_s, u"v2"_s}));
        QVERIFY(!h.view->isSearching());
    }

    // With Audio picked, the row's button queues audio and the menu's "Download Video" overrides it.
    void queueingPicksTheMode() {
        Harness h;
        h.search(u"videos"_s);
        QTRY_VERIFY(h.finished());
        QTest::mouseClick(h.view->findChild<SegmentedPicker *>(u"formatPicker"_s)->button(1), Qt::LeftButton);
        QWidget *row = h.row(u"Video two"_s);
        QTest::mouseClick(row->findChild<QPushButton *>(u"download"_s), Qt::LeftButton);
        std::unique_ptr<QMenu> menu(h.view->buildMenu(h.view->results().at(0)));
        ui_test::menuAction(menu.get(), u"Download Video"_s)->trigger();
        QCOMPARE(h.urls(), (QStringList{u"https://www.youtube.com/watch?v=v1"_s, u"https://www.youtube.com/watch?v=v2"_s}));
        QCOMPARE(h.queue->items().at(0)->mode(), DownloadMode::bestVideoAudio);
        QCOMPARE(h.queue->items().at(1)->mode(), DownloadMode::audioOnly);
        QCOMPARE(h.message(), u"Queued: Video one"_s);
        QVERIFY(!row->findChild<QWidget *>(u"download"_s)->isVisibleTo(row));
        QVERIFY(ui_test::accessible(row, QAccessible::Description).endsWith(u"Queued"_s));
    }

    // A blank query and a mode change before any search start nothing; after a search, a mode
    // change searches again with the new mode's address.
    void modeChangeSearchesAgainOnlyAfterASearch() {
        writeEngine(); // a fresh record of runs
        Harness h;
        h.search(u" \t "_s);
        auto *picker = h.view->findChild<SegmentedPicker *>(u"modePicker"_s);
        h.view->field()->setText(u"lofi"_s);
        QTest::mouseClick(picker->button(1), Qt::LeftButton);
        QTest::mouseClick(h.view->findChild<QPushButton *>(u"searchButton"_s), Qt::LeftButton);
        QTRY_VERIFY(h.finished());
        QCOMPARE(runsFor(u"music.youtube.com/search?q=lofi#songs"_s), 1);

        QTest::mouseClick(picker->button(2), Qt::LeftButton);
        QVERIFY(h.view->isSearching());
        QTRY_VERIFY(h.finished());
        QCOMPARE(runsFor(u"results?search_query=lofi&sp="_s), 1);
        QVERIFY(h.rows().first()->findChild<QWidget *>(u"ccBadge"_s)->isVisibleTo(h.rows().first()));
        // Two runs in all: the blank query and the early mode change never reached the engine.
        QCOMPARE(TestEnv::standInArgs(u"yt-dlp"_s).count(u"--flat-playlist"_s), 2);
    }

    void rowsShowAndExposeTheirTexts() {
        FixtureSite site;
        QVERIFY(site.isRunning());
        site.put(u"vi/v1/mqdefault.jpg"_s, ui_test::greenPng(320, 180));
        Harness h(site.url(QString()));
        h.view->show();
        h.search(u"videos"_s);
        QTRY_VERIFY(h.finished());
        QWidget *row = h.row(u"Video one"_s);
        QCOMPARE(ui_test::accessible(row), u"Video one"_s);
        QCOMPARE(ui_test::accessible(row, QAccessible::Description), u"Chan A, 2.5M views, 3:32"_s);
        QTRY_COMPARE(row->findChild<QLabel *>(u"thumbnail"_s)->pixmap().toImage().pixelColor(40, 22).green(), 200);

        ui_test::verifyNamedControls(h.view.get());
    }
};

VORLIX_TEST_SUITE(SearchViewTest)
#include "SearchViewTest.moc"

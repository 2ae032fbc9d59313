#include "FixtureSite.h"
#include "TestEnv.h"
#include "TestMain.h"

#include "core/AppSettings.h"
#include "engine/YtDlp.h"
#include "queue/DownloadQueue.h"
#include "queue/HistoryStore.h"
#include "queue/Notifier.h"
#include "ui/Brand.h"
#include "ui/ElidedLabel.h"
#include "ui/SearchView.h"
#include "ui/SegmentedPicker.h"
#include "ui/ThumbnailLoader.h"

#include <QAbstractButton>
#include <QAccessible>
#include <QApplication>
#include <QBuffer>
#include <QClipboard>
#include <QCoroSignal>
#include <QFile>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QPushButton>
#include <QStackedWidget>
#include <QTest>
#include <QToolButton>

using namespace Qt::StringLiterals;

namespace {

struct SilentNotifier : Notifier {
    void post(const QString &, const QString &) override {}
};

// Probes wait until the test ends, so queued items keep the mode they were given.
class Gate : public QObject {
    Q_OBJECT
public:
    void open() { Q_EMIT opened(); }
Q_SIGNALS:
    void opened();
};

QCoro::Task<ProbeResult> heldProbe(Gate *gate) {
    co_await qCoro(gate, &Gate::opened);
    throw YtDlpError::probeFailed(u"stopped"_s);
}

QString argsFile() { return TestEnv::root() + u"/search-args.txt"_s; }
QString mark(const QString &name) { return TestEnv::root() + u'/' + name; }

// A stand-in engine: records its arguments and answers by the words in the query.
void writeEngine() {
    QFile::remove(argsFile());
    const QString hit = u"printf 'VORLIXSR\\t%s\\t%s\\tChan %s\\t212.4\\t2450000\\n' "_s;
    TestEnv::writeStubTool(u"yt-dlp"_s,
        u"printf '%s\\n' \"$@\" >> '"_s + argsFile() + u"'\nfor a; do q=$a; done\ncase \"$q\" in\n"_s
        // Waits for the test to have seen the first hit before printing the second.
        u"*stream*) "_s + hit + u"s1 'First' A\n"_s
        u"  i=0; while [ ! -f '"_s + mark(u"go"_s) + u"' ] && [ $i -lt 200 ]; do sleep 0.05; i=$((i+1)); done\n  "_s +
        hit + u"s2 'Second' B ;;\n"_s
        u"*dupes*) "_s + hit + u"a 'Alpha' A; echo 'WARNING: something odd'; printf 'VORLIXSR\\tpartial\\n';"_s
        u" printf 'VORLIXSR\\tNA\\tNo id\\tC\\t1\\t1\\n'; "_s + hit + u"a 'Alpha again' A; "_s + hit + u"b 'Beta' B ;;\n"_s
        u"*twothenfail*) "_s + hit + u"a 'Alpha' A; "_s + hit + u"b 'Beta' B; echo 'ERROR: HTTP Error 429' >&2; exit 1 ;;\n"_s
        u"*broken*) echo 'ERROR: [youtube:search] Unable to download webpage: HTTP Error 429: Too Many Requests' >&2; exit 1 ;;\n"_s
        u"*slow*) i=0; while [ ! -f '"_s + mark(u"late"_s) + u"' ] && [ $i -lt 200 ]; do sleep 0.05; i=$((i+1)); done\n  "_s +
        hit + u"old 'Old' O; touch '"_s + mark(u"slow-done"_s) + u"' ;;\n"_s
        u"*nothing*) echo 'no hits' ;;\n"_s
        u"*) "_s + hit + u"v1 'Video one' A; "_s + hit + u"v2 'Video two' B ;;\nesac\n"_s);
}

struct Harness {
    QString dir = TestEnv::root() + u'/' + QUuid::createUuid().toString(QUuid::WithoutBraces);
    AppSettings settings{dir + u"/settings.ini"_s};
    HistoryStore history{dir + u"/history.json"_s};
    SilentNotifier notifier;
    Gate gate;
    std::unique_ptr<DownloadQueue> queue;
    ThumbnailLoader thumbnails{QString()};
    std::unique_ptr<SearchView> view;

    explicit Harness(const QString &thumbnailServer = u"http://127.0.0.1:9"_s) {
        DownloadQueue::Services services;
        services.probe = [this](QString) { return heldProbe(&gate); };
        services.isSpotifyTrackURL = [](const QString &) { return false; };
        queue = std::make_unique<DownloadQueue>(settings, history, notifier, services);
        view = std::make_unique<SearchView>(*queue, SearchView::Setup{thumbnailServer, &thumbnails});
        view->resize(820, 600);
    }
    ~Harness() {
        view.reset();
        for (const DownloadItemPtr &item : queue->items())
            queue->cancel(item);
        gate.open();
        QTest::qWait(50);
        queue.reset();
    }
    void search(const QString &text) {
        view->field()->setText(text);
        QTest::keyClick(view->field(), Qt::Key_Return);
    }
    bool finished() const { return !view->isSearching() && view->hasSearched(); }
    QStringList ids() const {
        QStringList out;
        for (const auto &r : view->results())
            out << r.id;
        return out;
    }
    QList<QWidget *> rows() const { return view->findChildren<QWidget *>(u"resultRow"_s); }
    QWidget *row(const QString &title) const {
        for (QWidget *r : rows())
            if (r->findChild<ElidedLabel *>(u"title"_s)->fullText() == title)
                return r;
        return nullptr;
    }
    QString page() const {
        QWidget *shown = view->findChild<QStackedWidget *>()->currentWidget();
        if (shown->objectName() == u"welcome"_s || shown->objectName() == u"results"_s)
            return shown->objectName();
        for (const QString &name : {u"errorText"_s, u"noResults"_s})
            if (auto *l = shown->findChild<QLabel *>(name))
                return l->text();
        return {};
    }
};

QString accessible(QWidget *w, QAccessible::Text text = QAccessible::Name) {
    return QAccessible::queryAccessibleInterface(w)->text(text);
}

QAction *action(QMenu *menu, const QString &text) {
    for (QAction *a : menu->actions())
        if (a->text() == text)
            return a;
    return nullptr;
}

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
        QTest::newRow("warnings, partial lines, no id, duplicate id")
            << u"dupes"_s << QStringList{u"a"_s, u"b"_s} << u"results"_s;
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
        QVERIFY(h.view->findChild<QWidget *>(u"busy"_s)->isVisibleTo(h.view.get()));
        QTRY_VERIFY(h.finished());
        QCOMPARE(h.ids(), ids);
        QCOMPARE(h.rows().size(), ids.size());
        QCOMPARE(h.page(), page);
        QVERIFY(!h.view->findChild<QWidget *>(u"busy"_s)->isVisibleTo(h.view.get()));
        QCOMPARE(h.view->findChild<QWidget *>(u"formatBar"_s)->isVisibleTo(h.view.get()), !ids.isEmpty());
        if (!ids.isEmpty())
            QCOMPARE(h.view->findChild<QLabel *>(u"count"_s)->text(), QString::number(ids.size()) + u" RESULTS"_s);
    }

    void blankQueryDoesNothing() {
        Harness h;
        QFile::remove(argsFile());
        h.search(u" \t "_s);
        QVERIFY(!h.view->isSearching());
        QTest::qWait(200);
        QVERIFY(!QFile::exists(argsFile()));
        QCOMPARE(h.page(), u"welcome"_s);
    }

    void hitsAppearWhileTheEngineRuns() {
        QFile::remove(mark(u"go"_s));
        Harness h;
        h.search(u"stream"_s);
        QTRY_COMPARE(h.ids(), QStringList{u"s1"_s});
        QVERIFY(h.view->isSearching());
        QCOMPARE(h.page(), u"results"_s);
        QFile(mark(u"go"_s)).open(QIODevice::WriteOnly);
        QTRY_VERIFY(h.finished());
        QCOMPARE(h.ids(), (QStringList{u"s1"_s, u"s2"_s}));
    }

    void olderSearchIsIgnored() {
        QFile::remove(mark(u"late"_s));
        QFile::remove(mark(u"slow-done"_s));
        Harness h;
        h.search(u"slow"_s);
        h.search(u"fast"_s);
        QTRY_VERIFY(h.finished());
        QFile(mark(u"late"_s)).open(QIODevice::WriteOnly);
        QTRY_VERIFY(QFile::exists(mark(u"slow-done"_s)));
        QTest::qWait(300); // the old engine's last line and exit reach the window
        QCOMPARE(h.ids(), (QStringList{u"v1"_s, u"v2"_s}));
        QVERIFY(!h.view->isSearching());
    }

    void queueingPicksTheMode_data() {
        QTest::addColumn<int>("format");  // segment of the "Download as" picker
        QTest::addColumn<QString>("how"); // the row's button, or a menu entry
        QTest::addColumn<int>("mode");
        QTest::newRow("button, Audio picked") << 1 << QString() << int(DownloadMode::audioOnly);
        QTest::newRow("button, Silent video picked") << 2 << QString() << int(DownloadMode::videoOnly);
        QTest::newRow("menu Audio overrides Video") << 0 << u"Download Audio"_s << int(DownloadMode::audioOnly);
        QTest::newRow("menu Video overrides Audio") << 1 << u"Download Video"_s << int(DownloadMode::bestVideoAudio);
    }
    void queueingPicksTheMode() {
        QFETCH(int, format);
        QFETCH(QString, how);
        QFETCH(int, mode);
        Harness h;
        h.search(u"videos"_s);
        QTRY_VERIFY(h.finished());
        QTest::mouseClick(h.view->findChild<SegmentedPicker *>(u"formatPicker"_s)->button(format), Qt::LeftButton);
        QWidget *row = h.row(u"Video two"_s);
        if (how.isEmpty()) {
            QTest::mouseClick(row->findChild<QPushButton *>(u"download"_s), Qt::LeftButton);
        } else {
            std::unique_ptr<QMenu> menu(h.view->buildMenu(h.view->results().at(1)));
            action(menu.get(), how)->trigger();
        }
        QCOMPARE(h.queue->items().size(), 1);
        QCOMPARE(h.queue->items().first()->url(), u"https://www.youtube.com/watch?v=v2"_s);
        QCOMPARE(int(h.queue->items().first()->mode()), mode);
        QCOMPARE(h.queue->lastMessage().value_or(QString()), u"Queued: Video two"_s);
        QVERIFY(row->findChild<QWidget *>(u"queued"_s)->isVisibleTo(row));
        QVERIFY(!row->findChild<QWidget *>(u"download"_s)->isVisibleTo(row));
        QVERIFY(accessible(row, QAccessible::Description).endsWith(u"Queued"_s));
        QVERIFY(!h.row(u"Video one"_s)->findChild<QWidget *>(u"queued"_s)->isVisibleTo(row));

        // A new search starts with nothing queued.
        h.search(u"videos"_s);
        QTRY_VERIFY(h.finished());
        QVERIFY(h.view->queuedIDs().isEmpty());
        QVERIFY(h.row(u"Video two"_s)->findChild<QWidget *>(u"download"_s)->isVisibleTo(h.view.get()));
    }

    void modeChangeSearchesAgainOnlyAfterASearch() {
        Harness h;
        auto *picker = h.view->findChild<SegmentedPicker *>(u"modePicker"_s);
        h.view->field()->setText(u"lofi"_s);
        QFile::remove(argsFile());
        QTest::mouseClick(picker->button(1), Qt::LeftButton);
        QCOMPARE(h.view->field()->placeholderText(), u"Search songs — artist, title…"_s);
        QTest::qWait(200);
        QVERIFY(!QFile::exists(argsFile()));
        QTest::mouseClick(h.view->findChild<QPushButton *>(u"searchButton"_s), Qt::LeftButton);
        QTRY_VERIFY(h.finished());
        QVERIFY(TestEnv::readFile(argsFile()).contains("music.youtube.com/search?q=lofi#songs"));
        QVERIFY(!h.rows().first()->findChild<QWidget *>(u"ccBadge"_s)->isVisibleTo(h.rows().first()));

        QTest::mouseClick(picker->button(2), Qt::LeftButton);
        QVERIFY(h.view->isSearching());
        QTRY_VERIFY(h.finished());
        QVERIFY(TestEnv::readFile(argsFile()).contains("results?search_query=lofi&sp="));
        QCOMPARE(h.view->field()->placeholderText(), u"Search Creative-Commons footage — free to reuse…"_s);
        QWidget *row = h.rows().first();
        QCOMPARE(row->findChild<QLabel *>(u"ccBadge"_s)->text(), u"CC · free to reuse"_s);
        QVERIFY(row->findChild<QWidget *>(u"ccBadge"_s)->isVisibleTo(row));
    }

    void rowsShowAndExposeTheirTexts() {
        FixtureSite site;
        QVERIFY(site.isRunning());
        QImage picture(320, 180, QImage::Format_RGB32);
        picture.fill(QColor(0, 200, 0));
        QByteArray png;
        QBuffer buffer(&png);
        buffer.open(QIODevice::WriteOnly);
        picture.save(&buffer, "PNG");
        site.put(u"vi/v1/mqdefault.jpg"_s, png);
        site.put(u"vi/v2/mqdefault.jpg"_s, "<html>not a picture</html>");
        Harness h(site.url(QString()));
        h.search(u"videos"_s);
        QTRY_VERIFY(h.finished());
        QWidget *row = h.row(u"Video one"_s);
        QCOMPARE(accessible(row), u"Video one"_s);
        QCOMPARE(accessible(row, QAccessible::Description), u"Chan A, 2.5M views, 3:32"_s);
        QCOMPARE(row->findChild<QLabel *>(u"duration"_s)->text(), u"3:32"_s);
        QCOMPARE(row->findChild<QLabel *>(u"views"_s)->text(), u"2.5M views"_s);
        auto centre = [](QWidget *r) {
            const QImage shown = r->findChild<QLabel *>(u"thumbnail"_s)->pixmap().toImage();
            return shown.pixelColor(shown.width() / 4, shown.height() / 4);
        };
        QTRY_COMPARE(centre(row).green(), 200);
        QTRY_VERIFY(site.requests().filter(u"/vi/v2/"_s).size() == 1);
        QTest::qWait(100);
        QCOMPARE(centre(h.row(u"Video two"_s)).rgb(), Brand::hairline().rgb()); // HTML instead of a picture

        QTest::mouseClick(row, Qt::LeftButton, {}, QPoint(400, 5));
        QCOMPARE(h.view->selectedID().value_or(QString()), u"v1"_s);
        for (QWidget *w : {static_cast<QWidget *>(h.view->field()), h.view->findChild<QWidget *>(u"searchButton"_s),
                           static_cast<QWidget *>(row->findChild<QToolButton *>(u"more"_s))})
            QVERIFY(!accessible(w).isEmpty());
        QCOMPARE(accessible(h.view->field()), u"Search YouTube…"_s);
        QCOMPARE(h.view->findChild<QWidget *>(u"modePicker"_s)->toolTip(), SearchView::modeHelp());

        std::unique_ptr<QMenu> menu(h.view->buildMenu(h.view->results().first()));
        QApplication::clipboard()->setText(u"something else"_s);
        action(menu.get(), u"Copy Link"_s)->trigger();
        QCOMPARE(QApplication::clipboard()->text(), u"https://www.youtube.com/watch?v=v1"_s);
        QVERIFY(h.queue->items().isEmpty());
    }
};

VORLIX_TEST_SUITE(SearchViewTest)
#include "SearchViewTest.moc"

#include "UiHarness.h"

#include "ui/ImagesView.h"

using namespace Qt::StringLiterals;

namespace {

// The catalogue's answer: a picture that saves, one without a full-size file, one whose thumbnail is gone.
QByteArray catalogue(const FixtureSite &site) {
    return (u"{\"results\": ["
            u"{\"id\": \"a1\", \"title\": \"Sunset\", \"license\": \"by-sa\", \"license_version\": \"4.0\", \"source\": \"flickr\","
            u" \"width\": 1920, \"height\": 1080, \"thumbnail\": \"%1\", \"url\": \"%2\", \"foreign_landing_url\": \"https://flickr.example/p/1\"},"
            u"{\"id\": \"b2\", \"title\": \"Harbour\", \"license\": \"cc0\", \"provider\": \"wikimedia\", \"thumbnail\": \"%1\"},"
            u"{\"id\": \"c3\", \"title\": \"Forest\", \"license\": \"pdm\", \"thumbnail\": \"%3\", \"url\": \"%2\"}]}"_s)
        .arg(site.url(u"/img/thumb.png"_s), site.url(u"/img/sunset.png"_s), site.url(u"/img/gone.png"_s))
        .toUtf8();
}

struct Harness : ui_test::QueueHarness {
    ThumbnailLoader thumbnails{QString()};
    QList<QUrl> revealed;
    std::unique_ptr<ImagesView> view;

    explicit Harness(const QString &apiBase) {
        settings.setDownloadFolderPath(dir + u"/Downloads"_s);
        ImagesView::Setup setup{ImageSearch::Endpoint{QUrl(apiBase)}, [this](const QUrl &f) { revealed << f; },
                                [](const QUrl &) {}, &thumbnails};
        setup.endpoint.searchTimeout = setup.endpoint.downloadTimeout = std::chrono::milliseconds(5000);
        view = std::make_unique<ImagesView>(*queue, *store, settings, setup);
        view->resize(700, 600);
    }
    ~Harness() {
        view.reset();
        windDown();
    }
    void search(const QString &text) { ui_test::submit(view->field(), text); }
    bool finished() const { return !view->isSearching() && view->hasSearched(); }
    QList<QWidget *> cells() const { return view->findChildren<QWidget *>(u"imageCell"_s); }
    QWidget *cell(const QString &title) const { return ui_test::titled(view.get(), u"imageCell"_s, title); }
    QString page() const { return ui_test::shownPage(view.get(), {u"welcome"_s, u"grid"_s}); }
};

bool shows(QWidget *cell, const QString &part) { return cell->findChild<QWidget *>(part)->isVisibleTo(cell); }

const QString unreachable = u"Couldn't reach the free-image library. Check your connection and try again."_s;

} // namespace

class ImagesViewTest : public QObject {
    Q_OBJECT
    FixtureSite site;

private Q_SLOTS:
    void initTestCase() {
        Brand::applyDarkAppearance(*qApp);
        QVERIFY(site.isRunning());
        site.put(u"api/v1/images/index.html"_s, catalogue(site));
        site.put(u"none/v1/images/index.html"_s, R"({"results": []})");
        site.put(u"img/thumb.png"_s, ui_test::greenPng(300, 200));
        site.put(u"img/sunset.png"_s, ui_test::greenPng(300, 200));
    }

    void searchEndsInTheRightContent_data() {
        QTest::addColumn<QString>("api");
        QTest::addColumn<int>("cells");
        QTest::addColumn<QString>("page");
        QTest::newRow("catalogue") << u"/api"_s << 3 << u"grid"_s;
        QTest::newRow("no hits") << u"/none"_s << 0 << u"No images found"_s;
        QTest::newRow("server error") << u"/status-500"_s << 0 << unreachable;
    }
    void searchEndsInTheRightContent() {
        QFETCH(QString, api);
        QFETCH(int, cells);
        QFETCH(QString, page);
        Harness h(site.url(api));
        QCOMPARE(h.page(), u"welcome"_s);
        h.search(u" \t"_s); // blank: nothing
        QVERIFY(!h.view->isSearching());
        h.search(u"harbour"_s);
        QVERIFY(h.view->findChild<QWidget *>(u"busy"_s)->isVisibleTo(h.view.get()));
        QTRY_VERIFY(h.finished());
        QCOMPARE(h.cells().size(), cells);
        QCOMPARE(h.page(), page);
        QVERIFY(site.requests().filter(u"q=harbour&page=1&page_size=30&"_s).size() >= 1);
    }

    // A cell's texts and picture; saving twice makes two files and two history entries.
    void cellsShowAndSaveTwice() {
        Harness h(site.url(u"/api"_s));
        h.search(u"sunset"_s);
        QTRY_VERIFY(h.finished());
        QWidget *sunset = h.cell(u"Sunset"_s);
        QCOMPARE(ui_test::accessible(sunset), u"Sunset"_s);
        QCOMPARE(ui_test::accessible(sunset, QAccessible::Description), u"CC BY-SA 4.0, 1920×1080"_s);
        QCOMPARE(ui_test::accessible(h.cell(u"Harbour"_s), QAccessible::Description), u"CC0 · public domain"_s); // no size known
        ui_test::verifyNamedControls(h.view.get());

        QWidget *thumb = sunset->findChild<QWidget *>(u"thumbnail"_s);
        QTRY_COMPARE(thumb->grab().toImage().pixelColor(thumb->width() / 2, thumb->height() / 2).green(), 200);

        const QString folder = h.settings.downloadFolder() + u"/Images/Flickr/"_s;
        // The button first; once saved, the cell shows a checkmark and the menu saves again.
        for (const QString &name : {u"Sunset.png"_s, u"Sunset 2.png"_s}) {
            if (name == u"Sunset.png"_s) {
                QTest::mouseClick(sunset->findChild<QToolButton *>(u"save"_s), Qt::LeftButton);
            } else {
                std::unique_ptr<QMenu> menu(h.view->buildMenu(h.view->results().first()));
                menu->actions().first()->trigger();
            }
            QVERIFY(shows(sunset, u"saving"_s) && !shows(sunset, u"save"_s));
            QVERIFY(!h.cell(u"Forest"_s)->findChild<QWidget *>(u"save"_s)->isEnabled()); // one save at a time
            QTRY_COMPARE(h.message(), u"Saved "_s + name);
            QVERIFY(QFileInfo::exists(folder + name));
            QVERIFY(shows(sunset, u"saved"_s) && !shows(sunset, u"saving"_s));
            QCOMPARE(h.revealed.last(), QUrl::fromLocalFile(folder + name));
            QVERIFY(ui_test::accessible(sunset, QAccessible::Description).endsWith(u"Saved"_s));
        }
        QVERIFY(h.cell(u"Forest"_s)->findChild<QWidget *>(u"save"_s)->isEnabled());
        QCOMPARE(h.store->entries().size(), 2);
        const HistoryEntry &entry = h.store->entries().last(); // the first save
        QCOMPARE((QStringList{entry.url(), entry.title(), entry.source(), entry.category(), entry.mode(),
                              entry.filePath().value_or(QString())}),
                 (QStringList{u"https://flickr.example/p/1"_s, u"Sunset"_s, u"Flickr"_s, u"Images"_s, u"Image"_s,
                              folder + u"Sunset.png"_s}));
        QVERIFY(!entry.archived() && qAbs(entry.date().secsTo(QDateTime::currentDateTimeUtc())) < 60);
    }

};

VORLIX_TEST_SUITE(ImagesViewTest)
#include "ImagesViewTest.moc"

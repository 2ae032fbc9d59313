#include "analysis_music.h"
#include "UiHarness.h"
#include "engine_media.h"

#include "ui/MomentsView.h"

#include <QAbstractButton>
#include <QCoroTimer>
#include <QSpinBox>

using namespace Qt::StringLiterals;

namespace {

// Eight 2-second scenes with hard cuts between them, no sound (so no tempo).
bool makeCutsVideo(const QString &path) {
    QStringList args;
    QString graph;
    int i = 0;
    for (const char *source : {"testsrc2", "smptebars", "mandelbrot", "rgbtestsrc", "testsrc", "yuvtestsrc", "pal100bars",
                               "smptehdbars"}) {
        args << u"-f"_s << u"lavfi"_s << u"-i"_s << QString::fromLatin1(source) + u"=s=320x180:r=25"_s;
        graph += u"[%1:v]trim=duration=2,setpts=PTS-STARTPTS,setsar=1,format=yuv420p[v%1];"_s.arg(i++);
    }
    for (int v = 0; v < i; ++v)
        graph += u"[v%1]"_s.arg(v);
    args << u"-filter_complex"_s << graph + u"concat=n=8:v=1:a=0[out]"_s << u"-map"_s << u"[out]"_s << u"-c:v"_s
         << u"libx264"_s << u"-preset"_s << u"ultrafast"_s << path;
    return TestEnv::runFfmpeg(args);
}

// `count` moments, one per second, with scores that rise and fall so score and time order differ.
QList<Moment> fakeMoments(int count) {
    QList<Moment> moments;
    for (int i = 0; i < count; ++i) {
        Moment m;
        m.time = 1.0 + i;
        m.score = 0.15 + 0.01 * ((i * 7) % count);
        moments.append(m);
    }
    return moments;
}

// Streams the moments in score order, as the engine does, then returns them in time order.
QCoro::Task<QList<Moment>> streamed(QList<Moment> moments, MomentsEngine::ThumbnailCallback onThumbnail) {
    QList<Moment> byScore = moments;
    std::stable_sort(byScore.begin(), byScore.end(), [](const Moment &a, const Moment &b) { return a.score > b.score; });
    for (const Moment &m : std::as_const(byScore)) {
        co_await QCoro::sleepFor(std::chrono::milliseconds(5));
        onThumbnail(m);
    }
    co_return moments;
}

QStringList ids(const QList<Moment> &moments) {
    QStringList out;
    for (const Moment &m : moments)
        out << m.id.toString();
    return out;
}

bool noFfmpegOn(const QString &fragment) {
    return EngineMedia::liveProcessesMentioning(fragment, {u"ffmpeg"_s}).isEmpty();
}

// A sheet over a finished item of an idle queue; `fake` replaces the analysis.
struct Sheet : ui_test::QueueHarness {
    DownloadItemPtr item = DownloadItem::make(u"https://example.com/v"_s, DownloadMode::bestVideoAudio);
    QStringList opened;
    std::unique_ptr<MomentsView> view;

    Sheet(const QString &video, std::optional<QList<Moment>> fake, int count = 8) {
        MomentsView::Engines engines = MomentsView::Engines::real();
        settings.setMomentsCount(count);
        item->setFinalFileURL(QUrl::fromLocalFile(video));
        item->setState(ItemState::done());
        if (fake)
            engines.analyze = [list = *fake](QString, MomentsEngine::ThumbnailCallback cb, Tools::CancellationPtr) {
                return streamed(list, std::move(cb));
            };
        engines.openFolder = [this](const QString &folder) { opened << folder; };
        view = std::make_unique<MomentsView>(item, *queue, settings, std::move(engines));
        view->show();
    }
    template <typename T> T *child(const QString &name) const { return view->findChild<T *>(name); }
    QList<QAbstractButton *> cells() const {
        QList<QAbstractButton *> out;
        for (QAbstractButton *b : view->findChildren<QAbstractButton *>())
            if (b->metaObject()->className() == QByteArray("QAbstractButton"))
                out << b; // the grid's cells, in the order they were laid out
        return out;
    }
    // GIFs, Screenshots, Clips, Both.
    QPushButton *exportButton(int i) const {
        return child<QPushButton>(QStringList{u"exportGifs"_s, u"exportStills"_s, u"exportClips"_s, u"exportBoth"_s}[i]);
    }
    int exportsEnabled() const {
        int n = 0;
        for (int i = 0; i < 4; ++i)
            n += exportButton(i)->isEnabled();
        return n;
    }
};

} // namespace

class MomentsViewTest : public QObject {
    Q_OBJECT
    QTemporaryDir m_media;
    QString m_cuts;

private Q_SLOTS:
    void initTestCase() {
        Brand::applyDarkAppearance(*qApp);
        QVERIFY(m_media.isValid());
        m_cuts = m_media.filePath(u"cuts.mp4"_s);
        QVERIFY(makeCutsVideo(m_cuts));
    }

    // The best `count` (5 … 20) by score, shown and selected in time order, each cell named by its time.
    void showsTheBestMomentsInTimeOrder_data() {
        QTest::addColumn<int>("count");
        QTest::addColumn<int>("found");
        QTest::newRow("8 of 20") << 8 << 20;
        QTest::newRow("stored 30 shows 20") << 30 << 20;
    }
    void showsTheBestMomentsInTimeOrder() {
        QFETCH(int, count);
        QFETCH(int, found);
        const QList<Moment> all = fakeMoments(found);
        Sheet s(m_cuts, all, count);
        QTRY_VERIFY(!s.view->isAnalyzing());
        QList<Moment> best = all;
        std::stable_sort(best.begin(), best.end(), [](const Moment &a, const Moment &b) { return a.score > b.score; });
        best = best.mid(0, std::clamp(count, 5, 20));
        std::stable_sort(best.begin(), best.end(), [](const Moment &a, const Moment &b) { return a.time < b.time; });
        QCOMPARE(ids(s.view->displayed()), ids(best));
        const auto cells = s.cells();
        QCOMPARE(cells.size(), best.size());
        for (qsizetype i = 0; i < cells.size(); ++i) {
            QCOMPARE(ui_test::accessible(cells[i]), best[i].timeLabel());
            QVERIFY(QAccessible::queryAccessibleInterface(cells[i])->state().checked);
        }
    }

    // Clicks toggle cells; the stepper keeps the best and selects them all again; export needs a selection.
    void selectionAndStepper() {
        Sheet s(m_cuts, fakeMoments(20), 8);
        QTRY_VERIFY(!s.view->isAnalyzing());
        QTest::mouseClick(s.cells().at(0), Qt::LeftButton);
        QTest::mouseClick(s.cells().at(3), Qt::LeftButton);
        QVERIFY(!QAccessible::queryAccessibleInterface(s.cells().at(0))->state().checked);
        QCOMPARE(s.exportButton(2)->text(), u"6 Clips"_s);

        s.child<QSpinBox>(u"momentsCount"_s)->setValue(5);
        for (const Moment &m : s.view->displayed()) {
            QVERIFY(s.view->selection().contains(m.id));
            QVERIFY(m.score > 0.295); // the five best of 0.15 … 0.34
        }
        QCOMPARE(s.exportButton(1)->text(), u"5 Screenshots"_s);

        QTest::mouseClick(s.child<QPushButton>(u"selectNone"_s), Qt::LeftButton);
        QCOMPARE(s.exportsEnabled(), 0);
        QTest::mouseClick(s.cells().at(1), Qt::LeftButton);
        QCOMPARE(s.exportsEnabled(), 4);
        QTest::mouseClick(s.child<QPushButton>(u"selectAll"_s), Qt::LeftButton);
        QCOMPARE(s.view->selection().size(), 5);
    }

    // The real analysis streams thumbnails, then one real "Save Both" writes the products.
    void saveBothExportsClipsAndStills() {
        Sheet s(m_cuts, std::nullopt, 5);
        QSignalSpy thumbnails(s.view.get(), &MomentsView::thumbnailShown);
        QTRY_VERIFY_WITH_TIMEOUT(!s.view->isAnalyzing(), 120000);
        QTRY_COMPARE(thumbnails.size(), 5);

        QTest::mouseClick(s.child<QPushButton>(u"selectNone"_s), Qt::LeftButton);
        QTest::mouseClick(s.cells().at(0), Qt::LeftButton);
        QTest::mouseClick(s.cells().at(2), Qt::LeftButton);
        QTest::mouseClick(s.exportButton(3), Qt::LeftButton);
        QVERIFY(s.view->statusText() == u"Saving 1 of 2\u2026"_s && s.exportsEnabled() == 0);
        QTRY_VERIFY_WITH_TIMEOUT(!s.view->isVisible(), 120000);

        const QString folder = m_media.filePath(u"cuts \u2014 Moments"_s);
        QCOMPARE(s.message(), u"Saved 4 files to cuts \u2014 Moments"_s);
        QCOMPARE(s.opened, QStringList{folder});
        QCOMPARE(QDir(folder).entryList(QDir::Files, QDir::Name),
                 (QStringList{u"cuts \u2014 Moment 01.mp4"_s, u"cuts \u2014 Moment 01.png"_s, u"cuts \u2014 Moment 02.mp4"_s,
                              u"cuts \u2014 Moment 02.png"_s}));
        QVERIFY(QFileInfo::exists(m_cuts)); // kept: deleting was not asked for
        QDir(folder).removeRecursively();
    }

    // Closing while ffmpeg works ends it; what is left in the folder is whole.
    void cancelDuringExportLeavesNoPartialFile() {
        Sheet s(m_cuts, fakeMoments(8), 8);
        QTRY_VERIFY(!s.view->isAnalyzing());
        const QString folder = m_media.filePath(u"cuts \u2014 Moments"_s);
        QTest::mouseClick(s.exportButton(2), Qt::LeftButton);
        QTRY_VERIFY(QFileInfo::exists(folder + u"/cuts \u2014 Moment 01.mp4"_s));
        s.view->reject();
        QTRY_VERIFY(noFfmpegOn(folder));
        // The run removes the product ffmpeg was cut short on as soon as it hears of the end.
        const auto allWhole = [&folder] {
            for (const QString &name : QDir(folder).entryList({u"*.mp4"_s}, QDir::Files))
                if (std::abs(AnalysisMusic::duration(folder + u'/' + name) - 2.5) > 0.3)
                    return false;
            return true;
        };
        QTRY_VERIFY(allWhole());
        QVERIFY(QDir(folder).entryList({u"*.mp4"_s}, QDir::Files).size() < 8);
        QVERIFY(!s.queue->lastMessage() && s.opened.isEmpty());
        QDir(folder).removeRecursively();
    }

    void closingDuringAnalysisStopsIt() {
        Sheet s(m_cuts, std::nullopt);
        QSignalSpy finished(s.view.get(), &MomentsView::analysisFinished);
        QTRY_VERIFY_WITH_TIMEOUT(!noFfmpegOn(m_cuts), 20000);
        s.view->reject();
        QTRY_VERIFY(noFfmpegOn(m_cuts));
        const auto found = s.view->allMoments().size();
        // The ended ffmpeg's last output and exit reach the sheet on the next turns of the loop.
        for (int i = 0; i < 3; ++i)
            QCoreApplication::processEvents();
        QCOMPARE(s.view->allMoments().size(), found);
        QVERIFY(finished.isEmpty()); // never finished into the closed sheet
    }
};

VORLIX_TEST_SUITE(MomentsViewTest)
#include "MomentsViewTest.moc"

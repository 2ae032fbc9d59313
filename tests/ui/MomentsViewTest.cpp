#include "../analysis/MomentsMedia.h"
#include "TestEnv.h"
#include "TestMain.h"
#include "engine_media.h"

#include "core/AppSettings.h"
#include "engine/SelfHealer.h"
#include "queue/ClipboardSource.h"
#include "queue/ClipboardWatcher.h"
#include "queue/DownloadQueue.h"
#include "queue/HistoryStore.h"
#include "queue/Notifier.h"
#include "ui/Brand.h"
#include "ui/ContentView.h"
#include "ui/MomentsView.h"

#include <QAbstractButton>
#include <QAccessible>
#include <QApplication>
#include <QCheckBox>
#include <QCoroSignal>
#include <QCoroTimer>
#include <QDir>
#include <QLabel>
#include <QPushButton>
#include <QSignalSpy>
#include <QSpinBox>
#include <QTemporaryDir>
#include <QTest>

namespace {

struct SilentNotifier : Notifier {
    void post(const QString &, const QString &) override {}
};

struct NoClipboard : ClipboardSource {
    qint64 changeCount() const override { return 0; }
    std::optional<QString> text() const override { return std::nullopt; }
};

// Eight 2-second scenes with hard cuts between them, no sound (so no tempo).
bool makeCutsVideo(const QString &path) {
    const QString size = QStringLiteral("s=320x180:r=25");
    const QStringList sources{QStringLiteral("testsrc2=") + size, QStringLiteral("smptebars=") + size,
                              QStringLiteral("mandelbrot=") + size, QStringLiteral("rgbtestsrc=") + size,
                              QStringLiteral("testsrc=") + size, QStringLiteral("yuvtestsrc=") + size,
                              QStringLiteral("pal100bars=") + size, QStringLiteral("smptehdbars=") + size};
    QStringList args;
    QString graph;
    for (qsizetype i = 0; i < sources.size(); ++i) {
        args << QStringLiteral("-f") << QStringLiteral("lavfi") << QStringLiteral("-i") << sources[i];
        graph += QStringLiteral("[%1:v]trim=duration=2,setpts=PTS-STARTPTS,setsar=1,format=yuv420p[v%1];").arg(i);
    }
    for (qsizetype i = 0; i < sources.size(); ++i)
        graph += QStringLiteral("[v%1]").arg(i);
    graph += QStringLiteral("concat=n=%1:v=1:a=0[out]").arg(sources.size());
    args << QStringLiteral("-filter_complex") << graph << QStringLiteral("-map") << QStringLiteral("[out]")
         << QStringLiteral("-c:v") << QStringLiteral("libx264") << QStringLiteral("-preset") << QStringLiteral("ultrafast")
         << path;
    return MomentsMedia::ffmpeg(args);
}

// `count` moments, one per second, with scores that rise and fall so that score order and
// time order differ.
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

QCoro::Task<std::optional<PracticeMode::BeatGrid>> fixedGrid(QUrl) {
    co_return PracticeMode::BeatGrid{128.0, 0.1};
}

QString accessibleName(QWidget *w) { return QAccessible::queryAccessibleInterface(w)->text(QAccessible::Name); }

QStringList ids(const QList<Moment> &moments) {
    QStringList out;
    for (const Moment &m : moments)
        out << m.id.toString();
    return out;
}

// A sheet over a finished item of a real (idle) queue.
struct Sheet {
    QString dir = TestEnv::root() + u'/' + QUuid::createUuid().toString(QUuid::WithoutBraces);
    AppSettings settings{dir + QStringLiteral("/settings.ini")};
    HistoryStore history{dir + QStringLiteral("/history.json")};
    SilentNotifier notifier;
    DownloadQueue queue{settings, history, notifier, DownloadQueue::Services()};
    DownloadItemPtr item = DownloadItem::make(QStringLiteral("https://example.com/v"), DownloadMode::bestVideoAudio);
    QStringList opened;
    std::unique_ptr<MomentsView> view;

    Sheet(const QString &video, std::optional<QList<Moment>> fake, int count = 8,
          MomentsView::Engines engines = MomentsView::Engines::real()) {
        settings.setMomentsCount(count);
        item->setFinalFileURL(QUrl::fromLocalFile(video));
        item->setState(ItemState::done());
        if (fake)
            engines.analyze = [list = *fake](QString, MomentsEngine::ThumbnailCallback cb, Tools::CancellationPtr) {
                return streamed(list, std::move(cb));
            };
        engines.openFolder = [this](const QString &folder) { opened << folder; };
        view = std::make_unique<MomentsView>(item, queue, settings, std::move(engines));
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
    QList<QPushButton *> exportButtons() const {
        return {child<QPushButton>(QStringLiteral("exportGifs")), child<QPushButton>(QStringLiteral("exportStills")),
                child<QPushButton>(QStringLiteral("exportClips")), child<QPushButton>(QStringLiteral("exportBoth"))};
    }
};

bool noFfmpegOn(const QString &fragment) {
    return EngineMedia::liveProcessesMentioning(fragment, {QStringLiteral("ffmpeg")}).isEmpty();
}

} // namespace

class MomentsViewTest : public QObject {
    Q_OBJECT
    QTemporaryDir m_media;
    QString m_cuts;

private Q_SLOTS:
    void initTestCase() {
        Brand::applyDarkAppearance(*qApp);
        QVERIFY(m_media.isValid());
        m_cuts = m_media.filePath(QStringLiteral("cuts.mp4"));
        QVERIFY(makeCutsVideo(m_cuts));
    }

    void showsTheBestMomentsInTimeOrder_data() {
        QTest::addColumn<int>("count");
        QTest::addColumn<int>("found");
        QTest::newRow("8 of 20") << 8 << 20;
        QTest::newRow("20 of 20") << 20 << 20;
        QTest::newRow("8 of 3") << 8 << 3;
        QTest::newRow("stored 30 shows 20") << 30 << 20;
    }
    void showsTheBestMomentsInTimeOrder() {
        QFETCH(int, count);
        QFETCH(int, found);
        const QList<Moment> all = fakeMoments(found);
        Sheet s(m_cuts, all, count);
        QVERIFY(s.view->isAnalyzing());
        QTRY_VERIFY(!s.view->isAnalyzing());

        QList<Moment> best = all;
        std::stable_sort(best.begin(), best.end(), [](const Moment &a, const Moment &b) { return a.score > b.score; });
        best = best.mid(0, std::clamp(count, 5, 20));
        std::stable_sort(best.begin(), best.end(), [](const Moment &a, const Moment &b) { return a.time < b.time; });
        QCOMPARE(ids(s.view->displayed()), ids(best));
        QCOMPARE(s.view->selection().size(), best.size());
        const auto cells = s.cells();
        QCOMPARE(cells.size(), best.size());
        for (qsizetype i = 0; i < cells.size(); ++i) {
            QCOMPARE(accessibleName(cells[i]), best[i].timeLabel());
            QVERIFY(QAccessible::queryAccessibleInterface(cells[i])->state().checked);
        }
        QCOMPARE(s.child<QLabel>(QStringLiteral("momentsCountLabel"))->text(),
                 QString::number(best.size()) + QStringLiteral(" moments"));
        QCOMPARE(accessibleName(s.exportButtons().last()), QStringLiteral("Save Both"));
        QCOMPARE(accessibleName(s.exportButtons().first()), QString::number(best.size()) + QStringLiteral(" GIFs"));
    }

    void stepperReselectsTheBest() {
        const QList<Moment> all = fakeMoments(20);
        Sheet s(m_cuts, all, 8);
        QTRY_VERIFY(!s.view->isAnalyzing());
        QTest::mouseClick(s.cells().at(0), Qt::LeftButton);
        QTest::mouseClick(s.cells().at(3), Qt::LeftButton);
        QCOMPARE(s.view->selection().size(), 6);
        QVERIFY(!QAccessible::queryAccessibleInterface(s.cells().at(0))->state().checked);
        QCOMPARE(s.exportButtons().at(2)->text(), QStringLiteral("6 Clips"));

        s.child<QSpinBox>(QStringLiteral("momentsCount"))->setValue(5);
        QCOMPARE(s.settings.momentsCount(), 5);
        QCOMPARE(s.view->displayed().size(), 5);
        QCOMPARE(s.view->selection().size(), 5);
        for (const Moment &m : s.view->displayed()) {
            QVERIFY(s.view->selection().contains(m.id));
            QVERIFY(m.score > 0.295); // the five best of 0.15 … 0.34
        }
        QCOMPARE(s.exportButtons().at(1)->text(), QStringLiteral("5 Screenshots"));
    }

    void strongCutsWearABolt_data() {
        QTest::addColumn<double>("score");
        QTest::addColumn<bool>("badge");
        QTest::newRow("0.30") << 0.30 << false;
        QTest::newRow("0.31") << 0.31 << true;
    }
    void strongCutsWearABolt() {
        QFETCH(double, score);
        QFETCH(bool, badge);
        QList<Moment> all = fakeMoments(5);
        all[2].score = score;
        Sheet s(m_cuts, all);
        QTRY_VERIFY(!s.view->isAnalyzing());
        auto *bolt = s.cells().at(2)->findChild<QLabel *>(QStringLiteral("strongBadge"));
        QCOMPARE(bolt != nullptr, badge);
        if (bolt)
            QCOMPARE(bolt->toolTip(), QStringLiteral("Strong scene change"));
    }

    void exportNeedsASelection() {
        Sheet s(m_cuts, fakeMoments(6));
        QTRY_VERIFY(!s.view->isAnalyzing());
        QTest::mouseClick(s.child<QPushButton>(QStringLiteral("selectNone")), Qt::LeftButton);
        for (QPushButton *b : s.exportButtons())
            QVERIFY2(!b->isEnabled(), qPrintable(b->text()));
        QCOMPARE(accessibleName(s.exportButtons().at(2)), QStringLiteral("0 Clips"));
        QTest::mouseClick(s.cells().at(1), Qt::LeftButton);
        for (QPushButton *b : s.exportButtons())
            QVERIFY(b->isEnabled());
        QTest::mouseClick(s.child<QPushButton>(QStringLiteral("selectAll")), Qt::LeftButton);
        QCOMPARE(s.view->selection().size(), 6);
    }

    void cutOnTheBeat_data() {
        QTest::addColumn<bool>("fakeGrid");
        QTest::addColumn<QString>("chip");
        QTest::newRow("grid found") << true << QStringLiteral("128 BPM grid");
        QTest::newRow("no tempo in the file") << false << QString();
    }
    void cutOnTheBeat() {
        QFETCH(bool, fakeGrid);
        QFETCH(QString, chip);
        MomentsView::Engines engines = MomentsView::Engines::real();
        if (fakeGrid)
            engines.beatGrid = fixedGrid;
        Sheet s(m_cuts, fakeMoments(5), 8, engines);
        QTRY_VERIFY(!s.view->isAnalyzing());
        auto *snap = s.child<QCheckBox>(QStringLiteral("snapToBeat"));
        auto *badge = s.child<QWidget>(QStringLiteral("beatChip"));
        snap->click();
        QTRY_VERIFY(!s.view->isFindingBeat());
        QCOMPARE(snap->isChecked(), fakeGrid);
        QCOMPARE(badge->isVisible(), fakeGrid);
        QCOMPARE(accessibleName(badge), chip);
    }

    void unreadableVideoSaysSo() {
        Sheet s(m_media.filePath(QStringLiteral("missing.mp4")), std::nullopt);
        QTRY_VERIFY_WITH_TIMEOUT(!s.view->isAnalyzing(), 30000);
        QCOMPARE(s.view->statusText(), QStringLiteral("Couldn't analyze this video."));
        QCOMPARE(s.child<QLabel>(QStringLiteral("scanStatus"))->text(), s.view->statusText());
        QVERIFY(s.cells().isEmpty());
    }

    // The real analysis streams thumbnails, then one real "Save Both" writes the products.
    void saveBothExportsClipsAndStills() {
        Sheet s(m_cuts, std::nullopt, 5);
        QSignalSpy thumbnails(s.view.get(), &MomentsView::thumbnailShown);
        QVERIFY(s.child<QWidget>(QStringLiteral("findingMore")) != nullptr);
        QTRY_VERIFY_WITH_TIMEOUT(!s.view->isAnalyzing(), 120000);
        QVERIFY(s.view->allMoments().size() >= 5);
        QTRY_COMPARE(thumbnails.size(), 5);
        QVERIFY(!s.child<QWidget>(QStringLiteral("findingMore"))->isVisible());

        QTest::mouseClick(s.child<QPushButton>(QStringLiteral("selectNone")), Qt::LeftButton);
        QTest::mouseClick(s.cells().at(0), Qt::LeftButton);
        QTest::mouseClick(s.cells().at(2), Qt::LeftButton);
        QTest::mouseClick(s.exportButtons().last(), Qt::LeftButton);
        QCOMPARE(s.view->statusText(), QStringLiteral("Saving 1 of 2\u2026"));
        QVERIFY(!s.exportButtons().last()->isEnabled());
        QTRY_VERIFY_WITH_TIMEOUT(!s.view->isVisible(), 120000);

        const QString folder = m_media.filePath(QStringLiteral("cuts \u2014 Moments"));
        QCOMPARE(s.queue.lastMessage().value_or(QString()), QStringLiteral("Saved 4 files to cuts \u2014 Moments"));
        QCOMPARE(s.opened, QStringList{folder});
        QStringList files = QDir(folder).entryList(QDir::Files, QDir::Name);
        QCOMPARE(files, (QStringList{QStringLiteral("cuts \u2014 Moment 01.mp4"), QStringLiteral("cuts \u2014 Moment 01.png"),
                                     QStringLiteral("cuts \u2014 Moment 02.mp4"), QStringLiteral("cuts \u2014 Moment 02.png")}));
        QVERIFY(QFileInfo::exists(m_cuts)); // kept: deleting was not asked for
        QDir(folder).removeRecursively();
    }

    // Closing while ffmpeg works ends it; what is left in the folder is whole.
    void cancelDuringExportLeavesNoPartialFile() {
        QList<Moment> all = fakeMoments(8);
        Sheet s(m_cuts, all, 8);
        QTRY_VERIFY(!s.view->isAnalyzing());
        const QString folder = m_media.filePath(QStringLiteral("cuts \u2014 Moments"));
        QTest::mouseClick(s.exportButtons().at(2), Qt::LeftButton);
        QTRY_VERIFY(QFileInfo::exists(folder + QStringLiteral("/cuts \u2014 Moment 01.mp4")));
        s.view->reject();
        QTRY_VERIFY(noFfmpegOn(folder));
        QTest::qWait(100); // the run removes the interrupted product once ffmpeg has ended
        const QStringList left = QDir(folder).entryList({QStringLiteral("*.mp4")}, QDir::Files);
        QVERIFY(left.size() < 8);
        for (const QString &name : left) {
            const auto length = MomentsMedia::duration(folder + u'/' + name);
            QVERIFY2(length && std::abs(*length - 2.5) < 0.3, qPrintable(name));
        }
        QVERIFY(!s.queue.lastMessage());
        QVERIFY(s.opened.isEmpty());
        QDir(folder).removeRecursively();
    }

    void closingDuringAnalysisStopsIt() {
        Sheet s(m_cuts, std::nullopt);
        QTRY_VERIFY_WITH_TIMEOUT(!noFfmpegOn(m_cuts), 20000);
        s.view->reject();
        QTRY_VERIFY(noFfmpegOn(m_cuts));
        const auto found = s.view->allMoments().size();
        QTest::qWait(300);
        QCOMPARE(s.view->allMoments().size(), found);
        QVERIFY(s.view->isAnalyzing()); // never finished into the closed sheet
    }

    // The window opens the sheet for a request, one at a time, and lets the item go afterwards.
    void queueRequestOpensAndClearsTheSheet() {
        const QString dir = TestEnv::root() + QStringLiteral("/wiring");
        AppSettings settings(dir + QStringLiteral("/settings.ini"));
        HistoryStore history(dir + QStringLiteral("/history.json"));
        SilentNotifier notifier;
        NoClipboard clipboard;
        DownloadQueue queue(settings, history, notifier, DownloadQueue::Services());
        SelfHealer healer(settings, [] { return QStringLiteral("/nonexistent/yt-dlp"); }, [] { return 0.0; });
        ClipboardWatcher watcher(clipboard, settings, queue);
        ContentView window(queue, settings, healer, watcher, clipboard);
        window.show();

        const auto finished = [&](const QString &name) {
            auto item = DownloadItem::make(QStringLiteral("https://example.com/") + name, DownloadMode::bestVideoAudio);
            item->setFinalFileURL(QUrl::fromLocalFile(m_media.filePath(name)));
            item->setState(ItemState::done());
            return item;
        };
        const DownloadItemPtr a = finished(QStringLiteral("a.mp4"));
        const DownloadItemPtr b = finished(QStringLiteral("b.mp4"));
        queue.setMomentsRequest(a);
        QPointer<MomentsView> first = window.momentsView();
        QVERIFY(first && first->isVisible());
        QCOMPARE(first->item(), a);
        queue.setMomentsRequest(b); // a download finishing while the user reviews
        QCOMPARE(window.momentsView(), first.data());

        first->reject();
        QTRY_VERIFY(window.momentsView() && window.momentsView()->item() == b);
        QCOMPARE(queue.momentsRequest(), b);
        window.momentsView()->reject();
        QTRY_VERIFY(!window.momentsView());
        QVERIFY(!queue.momentsRequest());
        QTRY_VERIFY(!first);
        // The closed sheets' analyses wind down before the queue and the window go.
        QTRY_VERIFY(noFfmpegOn(m_media.path()));
        QTest::qWait(100);
    }
};

VORLIX_TEST_SUITE(MomentsViewTest)
#include "MomentsViewTest.moc"

// `bench_ui_screenshots <folder>` renders the Ember sampler, the main window and its sheets, the
// History, Find, Search and Images tabs, the Smart Moments sheet and the settings window into PNG files, for looking at them as a person would
// (bench/ui_screenshots.sh runs it under Xvfb).
#include "TestEnv.h"
#include "FixtureSite.h"

#include "Await.h"
#include "analysis/Transcriber.h"
#include "core/AppSettings.h"
#include "engine/SelfHealer.h"
#include "ui/Brand.h"
#include "ui/EmberButtonStyle.h"
#include "ui/EmberProgressBar.h"
#include "ui/FindView.h"
#include "ui/HistoryView.h"
#include "queue/ClipboardSource.h"
#include "queue/ClipboardWatcher.h"
#include "queue/DownloadQueue.h"
#include "queue/HistoryStore.h"
#include "queue/Notifier.h"
#include "ui/BatchSheet.h"
#include "ui/ContentView.h"
#include "ui/MomentsView.h"
#include "ui/OptionsSheet.h"
#include "ui/PinchMark.h"
#include "ui/SettingsView.h"
#include "ui/StatusChip.h"
#include "ui/ImagesView.h"
#include "ui/SearchView.h"
#include "ui/SegmentedPicker.h"

#include <QApplication>
#include <QCheckBox>
#include <QFileInfo>
#include <QDir>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QTest>
#include <QVBoxLayout>
#include <QLineEdit>
#include <QSignalSpy>
#include <QCoroTimer>
#include <QAbstractButton>
#include <QBuffer>
#include <QPainter>

namespace {
bool save(QWidget &w, const QString &folder, const QString &name) {
    w.show();
    if (!QTest::qWaitForWindowExposed(&w))
        return false;
    QTest::qWait(400); // let animations settle
    const QString path = folder + u'/' + name;
    const bool ok = w.grab().save(path);
    std::printf("%s %s\n", ok ? "wrote" : "FAILED", qPrintable(path));
    return ok;
}

QWidget *sampler() {
    auto *page = new QWidget;
    page->setWindowTitle(QStringLiteral("Ember"));
    page->resize(620, 420);
    auto *v = new QVBoxLayout(page);
    v->setContentsMargins(28, 24, 28, 24);
    v->setSpacing(16);

    auto *marks = new QHBoxLayout;
    for (int size : {24, 48, 96})
        marks->addWidget(new PinchMark(size, Brand::bone(), true));
    marks->addWidget(new PinchMark(48, Brand::stone(), false));
    auto *title = new QLabel(QStringLiteral("Vorlix"));
    title->setFont(Brand::displayFont(28, QFont::Bold));
    marks->addSpacing(12);
    marks->addWidget(title);
    marks->addStretch(1);
    v->addLayout(marks);

    auto *buttons = new QHBoxLayout;
    auto *primary = new QPushButton(QStringLiteral("Download"));
    EmberButtonStyle::apply(primary);
    auto *pressed = new QPushButton(QStringLiteral("Pressed"));
    EmberButtonStyle::apply(pressed);
    pressed->setProperty("emberFill", Brand::emberDeep());
    auto *compact = new QPushButton(QStringLiteral("Retry"));
    EmberButtonStyle::apply(compact, true);
    auto *disabled = new QPushButton(QStringLiteral("Download 0"));
    EmberButtonStyle::apply(disabled);
    disabled->setEnabled(false);
    for (QPushButton *b : {primary, pressed, compact, disabled})
        buttons->addWidget(b);
    buttons->addStretch(1);
    v->addLayout(buttons);

    for (double value : {0.0, 0.42, 1.0}) {
        auto *bar = new EmberProgressBar;
        bar->setMaximumWidth(280);
        bar->resetValue(value);
        v->addWidget(bar);
    }

    auto *chips = new QGridLayout;
    chips->addWidget(new StatusChip(QStringLiteral("Video (best quality)"), QStringLiteral("film"), Brand::stone()), 0, 0);
    chips->addWidget(new StatusChip(QStringLiteral("Tutorials"), QString(), Brand::ember()), 0, 1);
    chips->addWidget(new StatusChip(QStringLiteral("1:20–end"), QStringLiteral("scissors"), Brand::stone()), 0, 2);
    chips->addWidget(new StatusChip(QStringLiteral("128 BPM"), QStringLiteral("metronome"), Brand::stone()), 0, 3);
    chips->addWidget(new StatusChip(QStringLiteral("Queued"), QStringLiteral("clock"), Brand::stone()), 1, 0);
    chips->addWidget(new StatusChip(QStringLiteral("Done"), QStringLiteral("checkmark.circle.fill"), Brand::success()), 1, 1);
    chips->addWidget(new StatusChip(QStringLiteral("Failed"), QStringLiteral("exclamationmark.triangle.fill"), Brand::danger()), 1, 2);
    chips->addWidget(new StatusChip(QStringLiteral("self-healed"), QStringLiteral("bandage"), Brand::ember()), 1, 3);
    chips->setAlignment(Qt::AlignLeft);
    v->addLayout(chips);
    v->addStretch(1);
    return page;
}

struct QuietNotifier : Notifier {
    void post(const QString &, const QString &) override {}
};

struct NoClipboard : ClipboardSource {
    qint64 changeCount() const override { return 0; }
    std::optional<QString> text() const override { return QStringLiteral("https://vimeo.com/123 and https://youtu.be/xyz"); }
};

QCoro::Task<ProbeResult> neverAnswers(QString, Tools::CancellationPtr) {
    co_await QCoro::sleepFor(std::chrono::hours(1));
    co_return ProbeResult{};
}

// The main window: empty, then with rows in the states a user sees most, then its two sheets.
bool mainWindowShots(AppSettings &settings, SelfHealer &healer, const QString &folder) {
    HistoryStore history(TestEnv::root() + QStringLiteral("/shot-history.json"));
    QuietNotifier notifier;
    NoClipboard clipboard;
    DownloadQueue::Services services;
    services.probe = neverAnswers;
    services.isSpotifyTrackURL = [](const QString &) { return false; };
    settings.setMaxConcurrent(1);
    settings.setSmartMode(true);
    DownloadQueue queue(settings, history, notifier, services);
    ClipboardWatcher watcher(clipboard, settings, queue);
    ContentView view(queue, settings, healer, watcher, clipboard);
    view.resize(860, 560);
    bool ok = save(view, folder, QStringLiteral("main-empty.png"));

    queue.add(QStringLiteral("https://www.tiktok.com/@x/video/1"));
    queue.add(QStringLiteral("https://vimeo.com/123"), DownloadMode::videoOnly);
    queue.add(QStringLiteral("https://soundcloud.com/a/b"), DownloadMode::audioOnly, ClipRange{QStringLiteral("1:20"), QString()});
    queue.add(QStringLiteral("https://www.youtube.com/watch?v=abc"));
    const QList<DownloadItemPtr> items = queue.items(); // newest first
    const DownloadItemPtr &downloading = items[0];
    downloading->setTitle(QStringLiteral("How to Play Wonderwall — Easy Guitar Lesson"));
    downloading->setCategory(QStringLiteral("Tutorials"));
    downloading->setState(ItemState::downloading());
    downloading->setProgress(0.62);
    downloading->setSpeedText(QStringLiteral("2.1MiB/s"));
    downloading->setEtaText(QStringLiteral("00:12"));
    const DownloadItemPtr &done = items[1];
    done->setTitle(QStringLiteral("Night Drive (Extended Mix)"));
    done->setFinalFileURL(QUrl::fromLocalFile(QStringLiteral("/tmp/Night Drive.mp3")));
    done->setDetectedBPM(124.0);
    done->setDetectedKey(QStringLiteral("F# minor"));
    done->setDidSelfHeal(true);
    done->setState(ItemState::done());
    const DownloadItemPtr &failed = items[2];
    failed->setTitle(QStringLiteral("Studio tour"));
    failed->setState(ItemState::failed(QStringLiteral("This video is private. Turn on “Use Chrome login” in Settings.")));
    queue.setLastMessage(QStringLiteral("Saved · Night Drive (Extended Mix)"));
    ok &= save(view, folder, QStringLiteral("main-queue.png"));

    view.showBatch();
    auto *batch = view.findChild<BatchSheet *>();
    batch->pasteFromClipboard();
    ok &= save(*batch, folder, QStringLiteral("batch-sheet.png"));
    batch->reject();
    view.linkBar()->setText(QStringLiteral("https://www.youtube.com/watch?v=abc"));
    view.showOptions();
    auto *options = view.findChild<OptionsSheet *>();
    options->findChild<QLineEdit *>(QStringLiteral("clipStart"))->setText(QStringLiteral("1:2:3:4"));
    ok &= save(*options, folder, QStringLiteral("options-sheet.png"));
    options->reject();
    for (const DownloadItemPtr &item : queue.items())
        queue.cancel(item);
    return ok;
}

// The History and Find tabs in the main window: history empty and with entries (one archived,
// one just copied), Find before a search and with results (one hit with its media, one whose
// media is gone). The History tab shows the application's own store, here in the private home.
QByteArray srtCue(int index, const char *start, const char *end, const char *text) {
    return QByteArray::number(index) + '\n' + start + " --> " + end + '\n' + text + "\n\n";
}

bool historyAndFindShots(AppSettings &settings, SelfHealer &healer, const QString &folder) {
    HistoryStore &history = HistoryStore::shared();
    QuietNotifier notifier;
    NoClipboard clipboard;
    DownloadQueue::Services services;
    services.probe = neverAnswers;
    services.isSpotifyTrackURL = [](const QString &) { return false; };
    DownloadQueue queue(settings, history, notifier, services);
    ClipboardWatcher watcher(clipboard, settings, queue);
    ContentView view(queue, settings, healer, watcher, clipboard);
    view.resize(860, 560);
    view.setTab(ContentView::Tab::history);
    bool ok = save(view, folder, QStringLiteral("history-empty.png"));
    {
        // A long history still being read in the background.
        HistoryStore unread(TestEnv::root() + QStringLiteral("/unread-history.json"), HistoryStore::Loading::inBackground);
        DownloadQueue loadingQueue(settings, unread, notifier, services);
        ContentView loadingView(loadingQueue, settings, healer, watcher, clipboard);
        loadingView.resize(860, 560);
        loadingView.setTab(ContentView::Tab::history);
        // Grabbed without showing: showing the tab is what starts the read.
        const QString path = folder + QStringLiteral("/history-loading.png");
        const bool saved = loadingView.grab().save(path);
        std::printf("%s %s\n", saved ? "wrote" : "FAILED", qPrintable(path));
        ok &= saved;
    }

    struct Shot {
        const char *title;
        const char *url;
        const char *source;
        const char *category;
        qint64 secondsAgo;
        bool archived;
    };
    const Shot shots[] = {
        {"How to Play Wonderwall — Easy Guitar Lesson", "https://youtu.be/6hzrDeceEKc", "YouTube", "Tutorials", 2 * 3600, false},
        {"Night Drive (Extended Mix)", "https://soundcloud.com/nightdrive/extended", "SoundCloud", "Music", 30 * 3600, true},
        {"Studio tour", "https://vimeo.com/76979871", "Vimeo", "Videos", 3 * 86400, false},
        {"Late Night Jazz Standards — Live at the Blue Room, Full Set with Band Introductions",
         "https://www.youtube.com/watch?v=jazz1234567", "YouTube", "Music", 8 * 86400, false},
        {"Chord voicings every guitarist should know", "https://www.youtube.com/watch?v=chords12345", "YouTube",
         "Tutorials", 15 * 86400, false},
        {"Café Tacvba — Eres (Unplugged)", "https://music.youtube.com/watch?v=cafe1234567", "YouTube Music", "Music",
         70 * 86400, false},
    };
    const QDateTime now = QDateTime::currentDateTimeUtc();
    for (auto it = std::rbegin(shots); it != std::rend(shots); ++it) {
        HistoryEntry e;
        e.setId(QUuid::createUuid());
        e.setTitle(QString::fromUtf8(it->title));
        e.setUrl(QString::fromUtf8(it->url));
        e.setSource(QString::fromUtf8(it->source));
        e.setCategory(QString::fromUtf8(it->category));
        e.setMode(QStringLiteral("Video (best quality)"));
        e.setDate(now.addSecs(-it->secondsAgo));
        e.setArchived(it->archived);
        history.add(e);
    }
    auto *historyView = view.findChild<HistoryView *>();
    historyView->copy(history.entries().at(2));
    ok &= save(view, folder, QStringLiteral("history.png"));

    view.setTab(ContentView::Tab::find);
    ok &= save(view, folder, QStringLiteral("find-welcome.png"));
    const QString library = settings.downloadFolder();
    const QString talk = library + QStringLiteral("/YouTube/Tutorials/Guitar Talk — Voicings [abcd1234]");
    TestEnv::writeFile(talk + QStringLiteral(".srt"),
                       srtCue(1, "00:00:01,000", "00:00:03,000", "Let's talk about\nchord voicing") +
                           srtCue(2, "00:01:05,000", "00:01:08,000", "a drop-2 chord is just the second voice moved down"));
    TestEnv::runFfmpeg({QStringLiteral("-f"), QStringLiteral("lavfi"), QStringLiteral("-i"),
                        QStringLiteral("testsrc2=s=160x90:r=25:d=2"), QStringLiteral("-c:v"), QStringLiteral("libx264"),
                        QStringLiteral("-preset"), QStringLiteral("ultrafast"), QStringLiteral("-pix_fmt"),
                        QStringLiteral("yuv420p"), talk + QStringLiteral(".mp4")});
    TestEnv::writeFile(library + QStringLiteral("/Vimeo/Videos/Moved Lecture.srt"),
                       srtCue(1, "00:12:40,000", "00:12:44,000", "so every Chord shape here is movable"));
    auto *find = view.findChild<FindView *>();
    find->queryField()->setText(QStringLiteral("chord"));
    QSignalSpy finished(find, &FindView::searchFinished);
    find->runSearch();
    ok &= finished.wait(30000);
    ok &= save(view, folder, QStringLiteral("find-results.png"));
    view.setTab(ContentView::Tab::queue);
    return ok;
}

// ---- The Search and Images tabs, against a stand-in engine and a local picture site ----

using namespace Qt::StringLiterals;

QByteArray gradientPicture(int width, int height, int hue) {
    QImage picture(width, height, QImage::Format_RGB32);
    QPainter p(&picture);
    QLinearGradient g(0, 0, width, height);
    g.setColorAt(0, QColor::fromHsv(hue, 170, 230));
    g.setColorAt(1, QColor::fromHsv((hue + 40) % 360, 200, 90));
    p.fillRect(picture.rect(), g);
    p.setBrush(QColor(255, 255, 255, 60));
    p.setPen(Qt::NoPen);
    p.drawEllipse(QPointF(width * 0.7, height * 0.35), height * 0.22, height * 0.22);
    p.end();
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    picture.save(&buffer, "PNG");
    return bytes;
}

bool waitFor(const std::function<bool()> &done, int ms = 10000) {
    for (int waited = 0; waited < ms; waited += 50) {
        if (done())
            return true;
        QTest::qWait(50);
    }
    return done();
}

bool searchShots(AppSettings &settings, const FixtureSite &site, const QString &folder) {
    const QStringList hits{u"c1\tGolden hour timelapse over the harbour — 4K\tOpen Footage Lab\t754\t1284000"_s,
                           u"c2\tRain on a tin roof (free stock footage)\tNature Sounds Archive\t3725\t48200"_s,
                           u"c3\tCity lights drone flight, CC-BY\tSkyline Commons\t212.4\t912"_s,
                           u"c4\tOcean waves at dawn\tBlue Hour Films\t59\t2450000"_s};
    QString script = u"#!/bin/sh\n"_s;
    for (int i = 0; i < hits.size(); ++i) {
        const QString id = hits[i].section(u'\t', 0, 0);
        site.put(u"vi/"_s + id + u"/mqdefault.jpg"_s, gradientPicture(320, 180, 20 + 70 * i));
        script += u"printf 'VORLIXSR\\t%s\\n' '"_s + hits[i] + u"'\n"_s;
    }
    TestEnv::writeStubTool(u"yt-dlp"_s, script);
    HistoryStore history(TestEnv::root() + u"/search-history.json"_s);
    QuietNotifier notifier;
    DownloadQueue::Services services;
    services.probe = neverAnswers;
    services.isSpotifyTrackURL = [](const QString &) { return false; };
    DownloadQueue queue(settings, history, notifier, services);
    SearchView view(queue, SearchView::Setup{site.url(QString()), nullptr});
    view.resize(860, 560);
    bool ok = save(view, folder, u"search-welcome.png"_s);
    view.findChild<SegmentedPicker *>(u"modePicker"_s)->button(2)->click();
    view.field()->setText(u"harbour timelapse"_s);
    view.run();
    ok &= waitFor([&view] { return view.hasSearched() && !view.isSearching(); });
    view.queue(view.results().at(1), DownloadMode::bestVideoAudio);
    QTest::qWait(600); // thumbnails
    ok &= save(view, folder, u"search-results.png"_s);
    for (const DownloadItemPtr &item : queue.items())
        queue.cancel(item);
    TestEnv::removeStubTool(u"yt-dlp"_s);
    return ok;
}

bool imagesShots(AppSettings &settings, const FixtureSite &site, const QString &folder) {
    const char *titles[] = {"Harbour at dusk", "Alpine meadow in bloom", "Old lighthouse, Brittany", "Market street",
                            "Fern spiral", "Night train"};
    const char *licences[][2] = {{"by", "2.0"}, {"cc0", ""}, {"by-sa", "4.0"}, {"pdm", ""}, {"by", "4.0"}, {"by-nc", "3.0"}};
    QStringList items;
    for (int i = 0; i < 6; ++i) {
        site.put(u"thumb/%1.png"_s.arg(i), gradientPicture(400, 300, 15 + 55 * i));
        items << u"{\"id\": \"p%1\", \"title\": \"%2\", \"license\": \"%3\", \"license_version\": \"%4\", \"source\": \"flickr\","
                 u" \"width\": %5, \"height\": %6, \"thumbnail\": \"%7\", \"url\": \"%8\", \"foreign_landing_url\": \"https://flickr.example/%1\"}"_s
                     .arg(i)
                     .arg(QString::fromUtf8(titles[i]), QLatin1String(licences[i][0]), QLatin1String(licences[i][1]))
                     .arg(1600 + 400 * i)
                     .arg(1200 + 100 * i)
                     .arg(site.url(u"/thumb/%1.png"_s.arg(i)),
                          site.url(i == 2 ? u"/full/%1.png?rate=200"_s.arg(i) : u"/full/%1.png"_s.arg(i)));
        site.put(u"full/%1.png"_s.arg(i), gradientPicture(1600, 1200, 15 + 55 * i));
    }
    site.put(u"api/v1/images/index.html"_s, (u"{\"results\": ["_s + items.join(u',') + u"]}"_s).toUtf8());
    HistoryStore history(TestEnv::root() + u"/images-history.json"_s);
    QuietNotifier notifier;
    DownloadQueue queue(settings, history, notifier, DownloadQueue::Services());
    ImagesView::Setup setup{ImageSearch::Endpoint{QUrl(site.url(u"/api"_s))}, [](const QUrl &) {}, [](const QUrl &) {}, nullptr};
    ImagesView view(queue, history, settings, setup);
    view.resize(860, 600);
    bool ok = save(view, folder, u"images-welcome.png"_s);
    view.field()->setText(u"harbour"_s);
    view.run();
    ok &= waitFor([&view] { return view.hasSearched() && !view.isSearching(); });
    view.download(view.results().at(0));
    ok &= waitFor([&view] { return !view.downloadingID(); });
    view.download(view.results().at(2)); // throttled: still saving when the picture is taken
    QTest::qWait(600);
    ok &= save(view, folder, u"images-grid.png"_s);
    return ok;
}

bool discoveryShots(AppSettings &settings, const QString &folder) {
    FixtureSite site;
    if (!site.isRunning())
        return false;
    return searchShots(settings, site, folder) & imagesShots(settings, site, folder);
}

// Smart Moments: the sheet while the first moments stream in, the finished review, and the
// finished video row that opens it.
QList<Moment> shotMoments(const QString &folder) {
    const QStringList sources{QStringLiteral("testsrc2"), QStringLiteral("smptebars"), QStringLiteral("mandelbrot"),
                              QStringLiteral("rgbtestsrc"), QStringLiteral("testsrc"), QStringLiteral("yuvtestsrc"),
                              QStringLiteral("pal100bars"), QStringLiteral("smptehdbars"), QStringLiteral("cellauto"),
                              QStringLiteral("life")};
    const QList<double> scores{0.62, 0.18, 0.44, 0.13, 0.27, 0.51, 0.2, 0.16, 0.35, 0.12};
    QList<Moment> moments;
    for (qsizetype i = 0; i < sources.size(); ++i) {
        const QString jpeg = folder + QStringLiteral("/moment%1.jpg").arg(i);
        if (!QFileInfo::exists(jpeg))
            TestEnv::runFfmpeg({QStringLiteral("-f"), QStringLiteral("lavfi"), QStringLiteral("-i"),
                                sources[i] + QStringLiteral("=s=480x270"), QStringLiteral("-frames:v"),
                                QStringLiteral("1"), jpeg});
        Moment m;
        m.time = 4.0 + 9.3 * double(i);
        m.score = scores[i];
        m.thumbnail = jpeg;
        moments.append(m);
    }
    return moments;
}

QCoro::Task<QList<Moment>> streamThenWait(QList<Moment> moments, MomentsEngine::ThumbnailCallback onThumbnail) {
    for (const Moment &m : std::as_const(moments))
        onThumbnail(m);
    co_await QCoro::sleepFor(std::chrono::hours(1)); // still scanning while the picture is taken
    co_return moments;
}

QCoro::Task<QList<Moment>> foundAll(QList<Moment> moments, MomentsEngine::ThumbnailCallback onThumbnail) {
    for (const Moment &m : std::as_const(moments))
        onThumbnail(m);
    co_return moments;
}

QCoro::Task<std::optional<PracticeMode::BeatGrid>> shotGrid(QUrl, Tools::CancellationPtr) { co_return PracticeMode::BeatGrid{124.0, 0.2}; }

bool momentsShots(AppSettings &settings, SelfHealer &healer, const QString &folder) {
    const QString media = TestEnv::root() + QStringLiteral("/moments-shots");
    QDir().mkpath(media);
    const QList<Moment> moments = shotMoments(media);
    HistoryStore history(TestEnv::root() + QStringLiteral("/moments-history.json"));
    QuietNotifier notifier;
    NoClipboard clipboard;
    DownloadQueue::Services services;
    services.probe = neverAnswers;
    services.isSpotifyTrackURL = [](const QString &) { return false; };
    DownloadQueue queue(settings, history, notifier, services);
    auto item = DownloadItem::make(QStringLiteral("https://www.youtube.com/watch?v=moments"), DownloadMode::bestVideoAudio);
    item->setTitle(QStringLiteral("Tokyo Night Walk — Shibuya Crossing 4K"));
    item->setFinalFileURL(QUrl::fromLocalFile(media + QStringLiteral("/Tokyo Night Walk.mp4")));
    item->setState(ItemState::done());
    settings.setMomentsCount(8);

    MomentsView::Engines engines = MomentsView::Engines::real();
    engines.analyze = [first = moments.mid(0, 3)](QString, MomentsEngine::ThumbnailCallback cb, Tools::CancellationPtr) {
        return streamThenWait(first, std::move(cb));
    };
    engines.openFolder = [](const QString &) {};
    bool ok = true;
    {
        MomentsView scanning(item, queue, settings, engines);
        scanning.resize(scanning.minimumSize());
        ok &= save(scanning, folder, QStringLiteral("moments-scanning.png"));
        scanning.reject();
    }
    engines.analyze = [moments](QString, MomentsEngine::ThumbnailCallback cb, Tools::CancellationPtr) {
        return foundAll(moments, std::move(cb));
    };
    engines.beatGrid = shotGrid;
    {
        MomentsView ready(item, queue, settings, engines);
        ready.resize(ready.minimumSize());
        ready.show();
        QTest::qWait(300);
        const QList<Moment> shown = ready.displayed();
        ready.toggle(shown.at(1).id);
        ready.toggle(shown.at(4).id);
        ready.findChild<QCheckBox *>(QStringLiteral("snapToBeat"))->click();
        ok &= save(ready, folder, QStringLiteral("moments-ready.png"));
        ready.reject();
    }

    ClipboardWatcher watcher(clipboard, settings, queue);
    ContentView view(queue, settings, healer, watcher, clipboard);
    view.resize(860, 560);
    queue.add(QStringLiteral("https://vimeo.com/moments"));
    const DownloadItemPtr row = queue.items().first();
    row->setTitle(item->title());
    row->setCategory(QStringLiteral("Travel"));
    row->setFinalFileURL(item->finalFileURL());
    row->setState(ItemState::done());
    ok &= save(view, folder, QStringLiteral("moments-row.png"));
    for (const DownloadItemPtr &i : queue.items())
        queue.cancel(i);
    return ok;
}

int screenshots(int argc, char **argv) {
    const QString folder = argc > 1 ? QString::fromLocal8Bit(argv[1]) : QStringLiteral("screenshots");
    QDir().mkpath(folder);
    TestEnv::setUp(); // private settings and data folders
    QApplication app(argc, argv);
    Brand::loadFonts();
    Brand::applyDarkAppearance(app);
    app.setWindowIcon(PinchMark::icon(Brand::bone(), true));

    bool ok = true;
    std::unique_ptr<QWidget> page(sampler());
    ok &= save(*page, folder, QStringLiteral("ember-style.png"));

    AppSettings settings(TestEnv::root() + QStringLiteral("/shot.conf"));
    settings.setDownloadFolderPath(QDir::homePath() + QStringLiteral("/Downloads/Vorlix"));
    const QString tool = TestEnv::writeScript(TestEnv::root() + QStringLiteral("/shot-yt-dlp"),
                                              QStringLiteral("#!/bin/sh\n[ \"$1\" = --version ] && echo 2025.10.22 && exit 0\n"
                                                             "echo 'yt-dlp is up to date (2025.10.22)'\n"));
    SelfHealer healer(settings, [tool] { return tool; }, [] { return 0.0; });
    vtest::await(healer.updateEngine());
    Transcriber::Setup setup;
    setup.settings = &settings;
    setup.modelsDir = TestEnv::root() + QStringLiteral("/models");
    setup.whisperURL = [] { return QString(); };
    setup.ffmpegURL = [] { return QString(); };
    Transcriber transcriber(setup);
    ok &= mainWindowShots(settings, healer, folder);
    ok &= historyAndFindShots(settings, healer, folder);
    ok &= discoveryShots(settings, folder);
    ok &= momentsShots(settings, healer, folder);
    SettingsView view(settings, healer, transcriber);
    ok &= save(view, folder, QStringLiteral("settings.png"));
    view.resize(SettingsView::formSize.width(), 1180); // the whole form at once
    ok &= save(view, folder, QStringLiteral("settings-full.png"));
    return ok ? 0 : 1;
}
} // namespace

int main(int argc, char **argv) { return screenshots(argc, argv); }

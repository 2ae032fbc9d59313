// Cancel soak: downloads of a throttled page from the local fixture site, each cancelled at a
// random moment between its start and the time a whole download takes (so some land while
// probing, most while downloading, some during ffmpeg's audio extraction). Afterwards no
// downloader or ffmpeg may be left, no partial or temporary file, and every row must read
// Cancelled. Prints the counts; exits 1 on any failure. Usage: bench_cancel_soak [downloads]
#include "FixtureSite.h"
#include "TestEnv.h"
#include "engine_media.h"

#include "core/AppSettings.h"
#include "queue/DownloadQueue.h"
#include "queue/HistoryStore.h"
#include "queue/Notifier.h"

#include <QCoreApplication>
#include <QDirIterator>
#include <QElapsedTimer>
#include <QRandomGenerator>
#include <QTimer>

#include <cstdio>

namespace {
struct Silent : Notifier {
    void post(const QString &, const QString &) override {}
};

// Spins the event loop until `done` or the limit; false on time-out.
template <typename F> bool spinUntil(F done, int limitMs) {
    QElapsedTimer t;
    t.start();
    while (!done()) {
        if (t.elapsed() > limitMs)
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    }
    return true;
}

QStringList filesUnder(const QString &dir) {
    QStringList found;
    for (QDirIterator it(dir, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories); it.hasNext();)
        found << it.next();
    return found;
}
} // namespace

int main(int argc, char **argv) {
    TestEnv::setUp();
    QCoreApplication app(argc, argv);
    const int downloads = argc > 1 ? std::max(1, QString::fromLocal8Bit(argv[1]).toInt()) : 100;

    FixtureSite site;
    if (!site.isRunning() || !EngineMedia::populate(site)) {
        std::fprintf(stderr, "fixture site failed\n");
        return 1;
    }
    AppSettings settings(TestEnv::root() + QStringLiteral("/soak.ini"));
    const QString folder = TestEnv::root() + QStringLiteral("/soak-downloads");
    settings.setDownloadFolderPath(folder);
    settings.setOrganizeDownloads(false);
    settings.setUseBrowserCookies(false);
    settings.setAutoAnalyzeAudio(false);
    settings.setAudioFormatRaw(QStringLiteral("mp3"));
    settings.setMaxConcurrent(3);
    HistoryStore history(TestEnv::root() + QStringLiteral("/soak-history.json"));
    Silent notifier;
    DownloadQueue queue(settings, history, notifier, DownloadQueue::Services::real());
    queue.setAutoClearDelay(24 * 3600 * 1000); // every row stays to be counted
    const auto link = [&site](int n) { return site.url(QStringLiteral("/slow.html?soak=%1").arg(n)); };

    // One whole download, audio (so ffmpeg extracts), sets the range the cancel moments come from.
    // A loaded machine may time a probe out: the calibration gets three tries.
    QElapsedTimer whole;
    bool calibrated = false;
    for (int attempt = 0; attempt < 3 && !calibrated; ++attempt) {
        whole.start();
        queue.add(link(-1 - attempt), DownloadMode::audioOnly);
        calibrated = spinUntil([&] { return queue.running() == 0; }, 600000) &&
                     queue.items().first()->state().is(ItemState::Kind::done);
        if (!calibrated)
            std::fprintf(stderr, "calibration: %s\n", qPrintable(queue.items().first()->state().text()));
    }
    if (!calibrated)
        return 1;
    const int spanMs = int(whole.elapsed());
    queue.clearFinished();
    for (const QString &file : filesUnder(folder))
        QFile::remove(file);

    int cancelled = 0, finishedFirst = 0, pendingCancels = 0;
    for (int n = 0; n < downloads; ++n) {
        // Keep three in flight; each is cancelled at its own random moment.
        spinUntil([&] { return queue.running() < 3; }, 600000);
        queue.add(link(n), n % 2 ? DownloadMode::audioOnly : DownloadMode::bestVideoAudio);
        const DownloadItemPtr item = queue.items().first();
        ++pendingCancels;
        QTimer::singleShot(int(QRandomGenerator::global()->bounded(spanMs)), &queue, [&queue, item, &finishedFirst, &pendingCancels] {
            --pendingCancels;
            if (item->state().is(ItemState::Kind::done))
                ++finishedFirst; // the download beat its cancel: not a fault, but counted
            else
                queue.cancel(item);
        });
    }
    spinUntil([&] { return queue.running() == 0 && pendingCancels == 0; }, 600000);
    QCoreApplication::processEvents();
    for (const DownloadItemPtr &item : queue.items())
        if (item->state().is(ItemState::Kind::cancelled))
            ++cancelled;
    spinUntil([] { return EngineMedia::liveProcessesMentioning(QStringLiteral("soak="), {QStringLiteral("yt-dlp"), QStringLiteral("ffmpeg"), QStringLiteral("python3")}).isEmpty(); }, 5000);
    const auto leftProcesses = EngineMedia::liveProcessesMentioning(QStringLiteral("soak="), {QStringLiteral("yt-dlp"), QStringLiteral("ffmpeg"), QStringLiteral("python3")}).size();
    QStringList leftFiles = filesUnder(folder);
    leftFiles << QDir(AppSettings::appSupportDir()).entryList({QStringLiteral("outpath-*")}, QDir::Files);
    // A download that finished before its cancel keeps its file; anything else is a leftover.
    for (const DownloadItemPtr &item : queue.items())
        if (item->state().is(ItemState::Kind::done))
            leftFiles.removeAll(item->finalFileURL().toLocalFile());
    const int otherRows = int(queue.items().size()) - cancelled - finishedFirst;
    const bool ok = leftProcesses == 0 && leftFiles.isEmpty() && otherRows == 0;
    std::printf("cancel soak: %d downloads (span %d ms), %d cancelled, %d finished before their cancel, %d other rows, "
                "%lld processes left, %lld files left\n",
                downloads, spanMs, cancelled, finishedFirst, otherRows, static_cast<long long>(leftProcesses),
                static_cast<long long>(leftFiles.size()));
    for (const QString &file : std::as_const(leftFiles))
        std::printf("  left: %s\n", qPrintable(file));
    for (const DownloadItemPtr &item : queue.items())
        if (!item->state().is(ItemState::Kind::cancelled) && !item->state().is(ItemState::Kind::done))
            std::printf("  row: state %d %s\n", int(item->state().kind()), qPrintable(item->state().text()));
    return ok ? 0 : 1;
}

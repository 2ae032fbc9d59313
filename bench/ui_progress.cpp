// The cost of progress in the main window: six downloads whose stand-in downloader reports ten
// progress lines a second each (percentage, speed and ETA all changing), for 30 s, once with the
// window shown and once with it hidden, in the same run. Prints the main thread's CPU share and
// how often each row is refreshed. Run under X:
//   QT_QPA_PLATFORM=xcb xvfb-run -a build/bench/bench_ui_progress [seconds, default 30]
// Target: under 1 % of one core with the window shown, at most 8 row refreshes per item per second.
#include "TestEnv.h"

#include "core/AppSettings.h"
#include "engine/SelfHealer.h"
#include "queue/ClipboardSource.h"
#include "queue/ClipboardWatcher.h"
#include "queue/DownloadQueue.h"
#include "queue/HistoryStore.h"
#include "queue/Notifier.h"
#include "ui/Brand.h"
#include "ui/ContentView.h"
#include "ui/ItemRow.h"

#include <QApplication>
#include <QCoroTimer>
#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QTimer>

#include <chrono>
#include <cstdio>
#include <ctime>

namespace {

constexpr int downloads = 6;
constexpr int linesPerSecond = 10;

struct SilentNotifier : Notifier {
    void post(const QString &, const QString &) override {}
};

struct NoClipboard : ClipboardSource {
    qint64 changeCount() const override { return 0; }
    std::optional<QString> text() const override { return std::nullopt; }
};

double threadCpuSeconds() {
    timespec t{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return double(t.tv_sec) + double(t.tv_nsec) / 1e9;
}

QCoro::Task<ProbeResult> instantProbe(QString url) {
    ProbeResult r;
    r.title = QStringLiteral("A stand-in download from ") + url;
    co_return r;
}

// Reports progress like yt-dlp does, for `seconds`, then leaves an empty file.
QCoro::Task<QString> standIn(DownloadItemPtr job, QString dir, YtDlp::ProgressFn progress, int seconds) {
    const int lines = seconds * linesPerSecond;
    for (int i = 1; i <= lines; ++i) {
        co_await QCoro::sleepFor(std::chrono::milliseconds(1000 / linesPerSecond));
        YtDlp::Progress p;
        p.fraction = double(i) / lines;
        p.speed = QString::asprintf("%.2fMiB/s", 2.0 + (i % 37) / 10.0);
        p.eta = QString::asprintf("00:%02d", (lines - i) / linesPerSecond % 60);
        progress(p);
    }
    QDir().mkpath(dir);
    const QString file = dir + QStringLiteral("/") + job->id().toString(QUuid::WithoutBraces) + QStringLiteral(".mp4");
    QFile out(file);
    if (!out.open(QIODevice::WriteOnly))
        throw YtDlpError::downloadFailed(QStringLiteral("cannot write ") + file);
    co_return file;
}

struct Sample {
    double cpuPercent = 0;
    double refreshesPerItemSecond = 0;
};

Sample run(bool shown, int seconds) {
    const QString dir = TestEnv::root() + (shown ? QStringLiteral("/shown") : QStringLiteral("/hidden"));
    AppSettings settings(dir + QStringLiteral("/settings.ini"));
    settings.setMaxConcurrent(downloads);
    settings.setSmartMode(false);
    settings.setDownloadFolderPath(dir + QStringLiteral("/Downloads"));
    HistoryStore history(dir + QStringLiteral("/history.json"));
    SilentNotifier notifier;
    auto services = DownloadQueue::Services::real();
    services.probe = [](QString url, Tools::CancellationPtr) { return instantProbe(std::move(url)); };
    services.isSpotifyTrackURL = [](const QString &) { return false; };
    const int length = seconds + 2; // the measured stretch ends before the downloads do
    services.download = [length](DownloadItemPtr job, const AppSettings &, QString out, YtDlp::RegisterFn,
                                 YtDlp::ProgressFn progress) {
        return standIn(std::move(job), std::move(out), std::move(progress), length);
    };
    DownloadQueue queue(settings, history, notifier, std::move(services));
    NoClipboard clipboard;
    ClipboardWatcher watcher(clipboard, settings, queue);
    SelfHealer healer(settings, [] { return QString(); }, [] { return 0.0; });
    ContentView view(queue, settings, healer, watcher, clipboard);
    view.resize(860, 700);
    if (shown)
        view.show();
    for (int i = 0; i < downloads; ++i)
        queue.add(QStringLiteral("https://bench.example/item") + QString::number(i));

    QEventLoop settle; // probes answered, rows built, first progress arriving
    QTimer::singleShot(1000, &settle, &QEventLoop::quit);
    settle.exec();
    const double cpu = threadCpuSeconds();
    const quint64 refreshes = ItemRow::refreshCount();
    QEventLoop loop;
    QTimer::singleShot((seconds - 1) * 1000, &loop, &QEventLoop::quit);
    loop.exec();
    Sample s;
    s.cpuPercent = 100.0 * (threadCpuSeconds() - cpu) / (seconds - 1);
    s.refreshesPerItemSecond = double(ItemRow::refreshCount() - refreshes) / downloads / (seconds - 1);
    for (const DownloadItemPtr &item : queue.items())
        queue.cancel(item);
    QEventLoop drain;
    QTimer::singleShot(500, &drain, &QEventLoop::quit);
    drain.exec();
    return s;
}

} // namespace

int main(int argc, char **argv) {
    TestEnv::setUp(); // private settings and data folders
    QApplication app(argc, argv);
    Brand::loadFonts();
    Brand::applyDarkAppearance(app);
    const int seconds = argc > 1 ? std::max(3, atoi(argv[1])) : 30;

    const Sample hidden = run(false, seconds);
    const Sample shown = run(true, seconds);
    std::printf("%d downloads x %d progress lines/s, %d s each case (same run), main thread, %% of one core:\n",
                downloads, linesPerSecond, seconds);
    std::printf("  window hidden  %.2f %%\n", hidden.cpuPercent);
    std::printf("  window shown   %.2f %% (ratio %.2f vs hidden; rows add %.2f %%; target < 1 %%)\n", shown.cpuPercent,
                hidden.cpuPercent > 0 ? shown.cpuPercent / hidden.cpuPercent : 0.0,
                shown.cpuPercent - hidden.cpuPercent);
    std::printf("  row refreshes per item per second: %.2f (target <= 8)\n", shown.refreshesPerItemSecond);
    return 0;
}

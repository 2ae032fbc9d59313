// The real main window with six downloads whose downloader prints progress at the rate a real
// engine does (1 and 10 lines a second per item), against the same window idle for as long.
// Prints the main thread's CPU use in percent of one core for each, and the difference.
#include "TestEnv.h"

#include "core/AppSettings.h"
#include "engine/SelfHealer.h"
#include "engine/Tools.h"
#include "queue/ClipboardSource.h"
#include "queue/ClipboardWatcher.h"
#include "queue/DownloadQueue.h"
#include "queue/HistoryStore.h"
#include "queue/Notifier.h"
#include "ui/Brand.h"
#include "ui/ContentView.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QTimer>

#include <cstdio>
#include <ctime>

namespace {

constexpr int downloads = 6;
constexpr int seconds = 10;

struct SilentNotifier : Notifier {
    void post(const QString &, const QString &) override {}
};

struct NoClipboard : ClipboardSource {
    qint64 changeCount() const override { return 0; }
    std::optional<QString> text() const override { return std::nullopt; }
};

QCoro::Task<ProbeResult> instantProbe(QString url) {
    ProbeResult r;
    r.title = url;
    co_return r;
}

double threadCpuSeconds() {
    timespec ts{};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return double(ts.tv_sec) + double(ts.tv_nsec) / 1e9;
}

// Main-thread CPU in percent of one core while the window runs for `secondsToRun`, with
// `linesPerSecond` progress lines per item from six downloads (none: the window idle).
double mainThreadCpuPercent(QApplication &app, int linesPerSecond) {
    const QString dir = TestEnv::root() + QStringLiteral("/rate-") + QString::number(linesPerSecond);
    const int lines = linesPerSecond * (seconds + 5); // still printing when the measurement ends
    TestEnv::writeStubTool(
        Tools::ytDlpName,
        QStringLiteral("pf=; out=; while [ $# -gt 0 ]; do\n"
                       "  [ \"$1\" = --print-to-file ] && pf=\"$3\"\n"
                       "  [ \"$1\" = -o ] && out=$(dirname \"$2\")\n"
                       "  shift; done\n"
                       "i=1; while [ $i -le %1 ]; do\n"
                       "  printf 'VORLIX|%5s%%|2.4MiB/s|00:%02d\\n' $((i * 1000 / %1 / 10)).$((i * 1000 / %1 % 10)) $((i % 60))\n"
                       "  sleep %2; i=$((i + 1)); done\n"
                       "f=\"$out/bench-$$.mp4\"; : > \"$f\"; printf '%s\\n' \"$f\" > \"$pf\"\n")
            .arg(lines)
            .arg(1.0 / std::max(linesPerSecond, 1)));

    AppSettings settings(dir + QStringLiteral("/settings.ini"));
    settings.setMaxConcurrent(downloads);
    settings.setDownloadFolderPath(dir + QStringLiteral("/downloads"));
    HistoryStore history(dir + QStringLiteral("/history.json"));
    SilentNotifier notifier;
    auto services = DownloadQueue::Services::real();
    services.probe = [](QString url, Tools::CancellationPtr) { return instantProbe(std::move(url)); };
    DownloadQueue queue(settings, history, notifier, std::move(services));
    NoClipboard clipboard;
    ClipboardWatcher watcher(clipboard, settings, queue);
    SelfHealer healer(settings, [] { return QString(); }, [] { return 0.0; });
    ContentView view(queue, settings, healer, watcher, clipboard);
    view.resize(860, 560);
    view.show();
    QCoreApplication::processEvents();

    const double cpuBefore = threadCpuSeconds();
    QElapsedTimer wall;
    wall.start();
    if (linesPerSecond > 0)
        for (int i = 0; i < downloads; ++i)
            queue.add(QStringLiteral("https://bench.example/item") + QString::number(i));
    QTimer::singleShot(seconds * 1000, &app, &QCoreApplication::quit);
    app.exec();
    const double cpu = threadCpuSeconds() - cpuBefore;
    const double elapsed = double(wall.nsecsElapsed()) / 1e9;
    if (linesPerSecond > 0 && queue.running() != downloads) {
        std::fprintf(stderr, "expected %d downloads running, found %d\n", downloads, queue.running());
        std::exit(1);
    }
    for (const DownloadItemPtr &item : queue.items())
        queue.cancel(item);
    QCoreApplication::processEvents();
    return 100.0 * cpu / elapsed;
}

} // namespace

int main(int argc, char **argv) {
    TestEnv::setUp();
    QApplication app(argc, argv);
    Brand::applyDarkAppearance(app);
    const double idle = mainThreadCpuPercent(app, 0);
    std::printf("main thread, window idle: %.2f %% of one core over %d s\n", idle, seconds);
    for (const int rate : {1, 10}) {
        const double busy = mainThreadCpuPercent(app, rate);
        std::printf("main thread, %d downloads at %d progress lines/s each: %.2f %% of one core; "
                    "above idle: %.2f points (target <= 5)\n",
                    downloads, rate, busy, busy - idle);
    }
    return 0;
}

// Six downloads at once whose downloader floods progress lines as fast as it can. Prints the
// main thread's cost per progress line, how often each item is actually updated, and the
// application's CPU time against the stubs' own.
#include "TestEnv.h"

#include "core/AppSettings.h"
#include "engine/Tools.h"
#include "queue/DownloadQueue.h"
#include "queue/HistoryStore.h"
#include "queue/Notifier.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QHash>
#include <QTimer>

#include <cstdio>

#include <sys/resource.h>

namespace {

constexpr int downloads = 6;
constexpr int linesPerDownload = 20000;

struct SilentNotifier : Notifier {
    void post(const QString &, const QString &) override {}
};

QCoro::Task<ProbeResult> instantProbe(QString url)
{
    ProbeResult r;
    r.title = url;
    co_return r;
}

double seconds(const timeval &tv) { return double(tv.tv_sec) + double(tv.tv_usec) / 1e6; }

} // namespace

int main(int argc, char **argv)
{
    TestEnv::setUp();
    QCoreApplication app(argc, argv);

    // Prints every line at once, then reports a finished file through the path file.
    const QString n = QString::number(linesPerDownload);
    TestEnv::writeStubTool(Tools::ytDlpName,
        QStringLiteral("pf=; out=; while [ $# -gt 0 ]; do\n"
                       "  [ \"$1\" = --print-to-file ] && pf=\"$3\"\n"
                       "  [ \"$1\" = -o ] && out=$(dirname \"$2\")\n"
                       "  shift; done\n"
                       "awk 'BEGIN { for (i = 1; i <= ") + n
            + QStringLiteral("; i++) printf \"VORLIX|%5.1f%%|1.0MiB/s|00:%02d\\n\", i * 100.0 / ") + n
            + QStringLiteral(", i % 60 }'\n"
                             "f=\"$out/bench-$$.mp4\"; : > \"$f\"; printf '%s\\n' \"$f\" > \"$pf\"\n"));

    AppSettings settings(TestEnv::root() + QStringLiteral("/bench.ini"));
    settings.setMaxConcurrent(downloads);
    settings.setDownloadFolderPath(TestEnv::root() + QStringLiteral("/bench-downloads"));
    HistoryStore history(TestEnv::root() + QStringLiteral("/bench-history.json"));
    SilentNotifier notifier;

    qint64 callbackNanos = 0;
    qint64 lines = 0;
    auto services = DownloadQueue::Services::real();
    services.probe = [](QString url) { return instantProbe(std::move(url)); };
    auto realDownload = services.download;
    services.download = [&, realDownload](DownloadItemPtr job, const AppSettings &s, QString dir,
                                          YtDlp::RegisterFn reg, YtDlp::ProgressFn progress) {
        YtDlp::ProgressFn timed = [&callbackNanos, &lines, progress](const YtDlp::Progress &p) {
            QElapsedTimer t;
            t.start();
            progress(p);
            callbackNanos += t.nsecsElapsed();
            ++lines;
        };
        return realDownload(std::move(job), s, std::move(dir), std::move(reg), std::move(timed));
    };
    DownloadQueue queue(settings, history, notifier, std::move(services));

    QHash<DownloadItem *, int> progressWrites;
    QHash<DownloadItem *, double> lastProgress;
    QElapsedTimer wall;
    wall.start();
    for (int i = 0; i < downloads; ++i)
        queue.add(QStringLiteral("https://bench.example/item") + QString::number(i));
    for (const auto &item : queue.items()) {
        DownloadItem *raw = item.get();
        QObject::connect(raw, &DownloadItem::changed, &app, [&, raw] {
            if (raw->progress() != lastProgress.value(raw, -1)) {
                lastProgress[raw] = raw->progress();
                ++progressWrites[raw];
            }
        });
    }
    QTimer poll;
    QObject::connect(&poll, &QTimer::timeout, &app, [&] {
        if (queue.running() == 0)
            app.quit();
    });
    poll.start(20);
    app.exec();
    const double elapsed = double(wall.nsecsElapsed()) / 1e9;

    int done = 0;
    int writes = 0;
    for (const auto &item : queue.items()) {
        done += item->state().is(ItemState::Kind::done) ? 1 : 0;
        writes += progressWrites.value(item.get());
    }
    rusage self{}, children{};
    getrusage(RUSAGE_SELF, &self);
    getrusage(RUSAGE_CHILDREN, &children);
    const double selfCpu = seconds(self.ru_utime) + seconds(self.ru_stime);
    const double childCpu = seconds(children.ru_utime) + seconds(children.ru_stime);

    std::printf("downloads finished: %d of %d in %.2f s\n", done, downloads, elapsed);
    std::printf("progress lines handled: %lld\n", static_cast<long long>(lines));
    std::printf("main-thread time per progress line (applyProgress): %.2f us\n",
                lines ? double(callbackNanos) / 1000.0 / double(lines) : 0.0);
    std::printf("process CPU per progress line (read, parse, apply): %.2f us\n",
                lines ? selfCpu * 1e6 / double(lines) : 0.0);
    std::printf("item progress updates per second per item: %.2f (of %.0f lines per second per item)\n",
                double(writes) / downloads / elapsed, double(lines) / downloads / elapsed);
    std::printf("process CPU / stubs' CPU: %.3f (%.3f s / %.3f s)\n", childCpu > 0 ? selfCpu / childCpu : 0.0, selfCpu,
                childCpu);
    return done == downloads ? 0 : 1;
}

// A link pasted into the queue against the bare engine doing the same work. The queue's pipeline
// probes, downloads, records the history and notifies; the floor is the engine run twice with the
// same command lines (probe, then download), started directly. Alternating rounds, medians of 7
// (or argv[1]); target: pipeline ≤ 1.15 × (probe + download). The ratio to the bare download
// alone is printed as well: it shows what the probe costs. argv[2] may name another engine zip
// to run instead of the packaged one (to compare engine builds).
#include "Await.h"
#include "FixtureSite.h"
#include "TestEnv.h"

#include "core/AppSettings.h"
#include "engine/Tools.h"
#include "engine/YtDlp.h"
#include "queue/DesktopNotifier.h"
#include "queue/DownloadQueue.h"
#include "queue/HistoryStore.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFileInfo>
#include <QProcess>

#include <algorithm>
#include <cstdio>

namespace {

struct Stats {
    QList<double> values;
    double median() const {
        QList<double> v = values;
        std::sort(v.begin(), v.end());
        return v[v.size() / 2];
    }
    double min() const { return *std::min_element(values.begin(), values.end()); }
    double max() const { return *std::max_element(values.begin(), values.end()); }
};

double seconds(const QElapsedTimer &clock) { return double(clock.nsecsElapsed()) / 1e9; }

void runEngine(const QString &tool, const QStringList &args) {
    QProcess p;
    p.setStandardOutputFile(QProcess::nullDevice());
    p.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    p.start(tool, args);
    p.waitForFinished(-1);
    if (p.exitStatus() != QProcess::NormalExit || p.exitCode() != 0) {
        std::fprintf(stderr, "bare yt-dlp %s failed (%d)\n", qPrintable(args.join(u' ')), p.exitCode());
        std::exit(1);
    }
}

// The product's own two command lines, without the product around them.
std::pair<double, double> bareRun(const QString &tool, const QString &url, const AppSettings &settings,
                                  const QString &folder) {
    QDir(folder).removeRecursively();
    const QString pathFile = TestEnv::root() + QStringLiteral("/bare-path.txt");
    QFile::remove(pathFile);
    const auto item = DownloadItem::make(url, DownloadMode::bestVideoAudio);
    const QStringList probe{QStringLiteral("--no-warnings"), QStringLiteral("--no-playlist"), QStringLiteral("--print"),
                            YtDlp::metadataTemplate, url};
    const QStringList download = YtDlp::buildArguments(*item, settings, pathFile, folder);
    QElapsedTimer clock;
    clock.start();
    runEngine(tool, probe);
    const double probed = seconds(clock);
    runEngine(tool, download);
    const double total = seconds(clock);
    if (QDir(folder).isEmpty()) {
        std::fprintf(stderr, "bare yt-dlp left no file\n");
        std::exit(1);
    }
    return {total, total - probed};
}

double pipelineRun(DownloadQueue &queue, const QString &url, const QString &folder) {
    QDir(folder).removeRecursively();
    QEventLoop loop;
    const auto connection = QObject::connect(&queue, &DownloadQueue::lastMessageChanged, &loop, [&] {
        const QString m = queue.lastMessage().value_or(QString());
        if (m.startsWith(QStringLiteral("Saved")) || m.startsWith(QStringLiteral("Failed")))
            loop.quit();
    });
    QElapsedTimer clock;
    clock.start();
    queue.add(url, DownloadMode::bestVideoAudio);
    loop.exec();
    const double elapsed = seconds(clock);
    QObject::disconnect(connection);
    const QString message = queue.lastMessage().value_or(QString());
    const auto item = queue.items().isEmpty() ? nullptr : queue.items().first();
    if (!message.startsWith(QStringLiteral("Saved")) || !item || !QFileInfo(item->finalFileURL().toLocalFile()).isFile()) {
        std::fprintf(stderr, "the queue did not save the file: %s\n", qPrintable(message));
        std::exit(1);
    }
    queue.remove(item);
    return elapsed;
}

} // namespace

int main(int argc, char **argv) {
    TestEnv::setUp();
    QCoreApplication app(argc, argv);
    const int rounds = argc > 1 ? std::max(3, std::atoi(argv[1])) : 7;

    if (argc > 2) {
        QDir().mkpath(TestEnv::toolDir());
        if (!QFile::copy(QString::fromLocal8Bit(argv[2]), TestEnv::toolDir() + QStringLiteral("/yt-dlp")))
            return 1;
    }
    FixtureSite site;
    if (!site.isRunning())
        return 1;
    const QString big = site.root() + QStringLiteral("/big.mp4");
    const QStringList make{QStringLiteral("-v"), QStringLiteral("error"), QStringLiteral("-y"), QStringLiteral("-f"),
                           QStringLiteral("lavfi"), QStringLiteral("-i"),
                           QStringLiteral("nullsrc=s=640x360:r=25,geq=random(1)*255:128:128"), QStringLiteral("-f"),
                           QStringLiteral("lavfi"), QStringLiteral("-i"), QStringLiteral("sine=frequency=440"),
                           QStringLiteral("-t"), QStringLiteral("6"), QStringLiteral("-c:v"), QStringLiteral("libx264"),
                           QStringLiteral("-preset"), QStringLiteral("ultrafast"), QStringLiteral("-qp"), QStringLiteral("0"),
                           QStringLiteral("-c:a"), QStringLiteral("aac"), QStringLiteral("-shortest"), big};
    if (!TestEnv::runTool(TestEnv::ffmpeg(), make))
        return 1;
    std::printf("file_megabytes %.1f\n", double(QFileInfo(big).size()) / 1e6);

    const QString tool = Tools::ytDlpURL();
    const QString url = site.url(QStringLiteral("/big.mp4"));
    const QString folder = TestEnv::root() + QStringLiteral("/bench-out");
    AppSettings settings(TestEnv::root() + QStringLiteral("/bench.ini"));
    settings.setDownloadFolderPath(folder);
    settings.setOrganizeDownloads(false);
    settings.setAutoAnalyzeAudio(false);
    HistoryStore history(TestEnv::root() + QStringLiteral("/history.json"));
    DesktopNotifier notifier;
    DownloadQueue queue(settings, history, notifier, DownloadQueue::Services::real());
    queue.setAutoClearDelay(600000);

    bareRun(tool, url, settings, folder); // warm the caches once
    Stats bare, bareDownload, pipeline;
    for (int i = 0; i < rounds; ++i) {
        const auto [total, download] = bareRun(tool, url, settings, folder);
        bare.values << total;
        bareDownload.values << download;
        pipeline.values << pipelineRun(queue, url, folder);
    }
    const auto show = [](const char *name, const Stats &s) {
        std::printf("%s_seconds min/median/max %.3f / %.3f / %.3f\n", name, s.min(), s.median(), s.max());
    };
    show("bare_probe_and_download", bare);
    show("bare_download", bareDownload);
    show("pipeline", pipeline);
    std::printf("pipeline_vs_bare_probe_and_download_ratio %.3f (target <= 1.15)\n", pipeline.median() / bare.median());
    std::printf("pipeline_vs_bare_download_ratio %.3f\n", pipeline.median() / bareDownload.median());
    return 0;
}

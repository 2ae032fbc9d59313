// Downloads the same 50 MB file from the local fixture site with the bare yt-dlp command line and
// through YtDlp::download, alternating, and prints the ratio of the medians (target ≤ 1.05).
#include "Await.h"
#include "FixtureSite.h"
#include "TestEnv.h"

#include "core/AppSettings.h"
#include "engine/YtDlp.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QProcess>

#include <algorithm>
#include <cstdio>

namespace {

double median(QList<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

double bareRun(const QString &tool, const QString &url, const QString &folder) {
    QDir(folder).removeRecursively();
    QElapsedTimer clock;
    clock.start();
    QProcess p;
    p.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    p.start(tool, {QStringLiteral("-q"), QStringLiteral("-o"), folder + QStringLiteral("/%(title)s.%(ext)s"), url});
    p.waitForFinished(-1);
    const double seconds = double(clock.nsecsElapsed()) / 1e9;
    if (p.exitCode() != 0 || QDir(folder).isEmpty()) {
        std::fprintf(stderr, "bare yt-dlp failed (%d)\n", p.exitCode());
        std::exit(1);
    }
    return seconds;
}

double productRun(const QString &url, const AppSettings &settings, const QString &folder) {
    QDir(folder).removeRecursively();
    auto item = DownloadItem::make(url, DownloadMode::bestVideoAudio);
    QElapsedTimer clock;
    clock.start();
    int reports = 0;
    const QString path = vtest::await(YtDlp::download(item, settings, folder, {}, [&](const YtDlp::Progress &) { ++reports; }));
    const double seconds = double(clock.nsecsElapsed()) / 1e9;
    if (!QFileInfo(path).isFile() || reports == 0) {
        std::fprintf(stderr, "YtDlp::download gave no file\n");
        std::exit(1);
    }
    return seconds;
}

} // namespace

int main(int argc, char **argv) {
    TestEnv::setUp();
    QCoreApplication app(argc, argv);
    const int rounds = argc > 1 ? std::max(1, std::atoi(argv[1])) : 5;

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
    AppSettings settings(TestEnv::root() + QStringLiteral("/bench.ini"));
    const QString folder = TestEnv::root() + QStringLiteral("/bench-out");

    bareRun(tool, url, folder); // warm the caches once
    QList<double> bare, product;
    for (int i = 0; i < rounds; ++i) {
        bare << bareRun(tool, url, folder);
        product << productRun(url, settings, folder);
    }
    std::printf("bare_seconds_median %.3f\n", median(bare));
    std::printf("download_seconds_median %.3f\n", median(product));
    std::printf("download_vs_bare_ratio %.3f\n", median(product) / median(bare));
    return 0;
}

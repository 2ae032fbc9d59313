// Smart Moments on a 3-minute 720p video against the bare scene-scan ffmpeg run it needs.
#include "TestEnv.h"

#include "Await.h"
#include "analysis/MomentsEngine.h"
#include "engine/Tools.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QProcess>

#include <cstdio>

namespace {

bool makeVideo(const QString &path) {
    const QStringList sources{QStringLiteral("testsrc2"), QStringLiteral("smptebars"), QStringLiteral("mandelbrot"),
                              QStringLiteral("rgbtestsrc"), QStringLiteral("testsrc"), QStringLiteral("yuvtestsrc")};
    QStringList args{QStringLiteral("-v"), QStringLiteral("error"), QStringLiteral("-y")};
    QString graph;
    // Twelve 15-second scenes: each source twice, the second time mirrored.
    for (int i = 0; i < 12; ++i) {
        args << QStringLiteral("-f") << QStringLiteral("lavfi") << QStringLiteral("-i")
             << sources[i % 6] + QStringLiteral("=s=1280x720:r=30");
        graph += QStringLiteral("[%1:v]trim=duration=15,setpts=PTS-STARTPTS,setsar=1,format=yuv420p%2[v%1];")
                     .arg(i)
                     .arg(i >= 6 ? QStringLiteral(",hflip") : QString());
    }
    for (int i = 0; i < 12; ++i)
        graph += QStringLiteral("[v%1]").arg(i);
    graph += QStringLiteral("concat=n=12:v=1:a=0[out]");
    args << QStringLiteral("-filter_complex") << graph << QStringLiteral("-map") << QStringLiteral("[out]")
         << QStringLiteral("-c:v") << QStringLiteral("libx264") << QStringLiteral("-preset") << QStringLiteral("veryfast")
         << QStringLiteral("-g") << QStringLiteral("60") << path;
    return TestEnv::runTool(TestEnv::ffmpeg(), args, nullptr, 900000);
}

} // namespace

int main(int argc, char **argv) {
    TestEnv::setUp();
    QCoreApplication app(argc, argv);
    const QString video = TestEnv::root() + QStringLiteral("/bench-moments.mp4");
    if (!makeVideo(video)) {
        std::fprintf(stderr, "could not generate the video\n");
        return 1;
    }
    const QString ffmpeg = Tools::ffmpegURL();
    const auto scan = [&] {
        QProcess p;
        p.start(ffmpeg, {QStringLiteral("-i"), video, QStringLiteral("-vf"),
                         QStringLiteral("scale=320:-2,select='gt(scene,0.12)',metadata=print"), QStringLiteral("-an"),
                         QStringLiteral("-f"), QStringLiteral("null"), QStringLiteral("-")});
        p.waitForFinished(-1);
    };
    scan(); // warm the page cache
    double scanTime = 1e300;
    double analyzeTime = 1e300;
    qsizetype found = 0;
    for (int round = 0; round < 2; ++round) {
        QElapsedTimer t;
        t.start();
        scan();
        scanTime = std::min(scanTime, t.nsecsElapsed() / 1e9);
        t.restart();
        found = vtest::await(MomentsEngine::analyze(video)).size();
        analyzeTime = std::min(analyzeTime, t.nsecsElapsed() / 1e9);
    }
    std::printf("scene scan: %.2f s, analyze: %.2f s (%lld moments)\n", scanTime, analyzeTime, qlonglong(found));
    std::printf("moments ratio (analyze / scene scan): %.2f (target <= 1.6)\n", analyzeTime / scanTime);
    return 0;
}

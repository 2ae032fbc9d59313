// Smart Moments on a 3-minute 720p video against the external work it cannot avoid: the
// duration read, the scene scan and the thumbnail extractions (4 at a time), replayed with the
// very ffmpeg command lines the engine ran. Alternating rounds, median of 5; target <= 1.1.
#include "TestEnv.h"

#include "Await.h"
#include "analysis/MomentsEngine.h"
#include "engine/Tools.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QProcess>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <list>

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

QList<QStringList> recordedRuns(const QString &log) {
    QList<QStringList> runs;
    for (const QString &line : QString::fromUtf8(TestEnv::readFile(log)).split(u'\n', Qt::SkipEmptyParts))
        runs << line.split(u'\t', Qt::SkipEmptyParts);
    return runs;
}

// The engine's external work without the engine: each run as it ran, the thumbnails 4 at once.
void replay(const QString &ffmpeg, const QList<QStringList> &runs) {
    const auto isThumbnail = [](const QStringList &args) { return args.contains(QStringLiteral("-frames:v")); };
    for (const QStringList &args : runs) {
        if (isThumbnail(args))
            continue;
        QProcess p;
        p.start(ffmpeg, args);
        p.waitForFinished(-1);
    }
    QList<QStringList> thumbnails;
    std::copy_if(runs.begin(), runs.end(), std::back_inserter(thumbnails), isThumbnail);
    // A new extraction starts as soon as any of the four ends.
    std::list<QProcess> processes;
    qsizetype next = 0;
    int active = 0;
    QEventLoop loop;
    std::function<void()> fill = [&] {
        while (active < 4 && next < thumbnails.size()) {
            QProcess &p = processes.emplace_back();
            ++active;
            QObject::connect(&p, &QProcess::finished, &loop, [&] {
                --active;
                fill();
                if (active == 0)
                    loop.quit();
            });
            p.start(ffmpeg, thumbnails[next++]);
        }
    };
    fill();
    if (active > 0)
        loop.exec();
}

double median(QList<double> v) {
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
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
    const QString support = TestEnv::root() + QStringLiteral("/support");

    // One analysis through a recording stand-in gives the command lines to replay.
    const QString log = TestEnv::root() + QStringLiteral("/ffmpeg-runs.log");
    const QString recorder = TestEnv::writeScript(
        TestEnv::root() + QStringLiteral("/ffmpeg-recorder"),
        QStringLiteral("#!/bin/sh\n{ for a; do printf '%s\\t' \"$a\"; done; echo; } >> '%1'\nexec '%2' \"$@\"\n").arg(log, ffmpeg));
    const qsizetype found = vtest::await(MomentsEngine::analyze(video, {}, recorder, support)).size();
    const QList<QStringList> runs = recordedRuns(log);
    std::printf("%lld moments from %lld ffmpeg runs\n", qlonglong(found), qlonglong(runs.size()));

    QList<double> bare, analyze;
    for (int round = 0; round < 5; ++round) {
        QDir(support).removeRecursively(); // no thumbnail comes from the cache
        QElapsedTimer t;
        t.start();
        replay(ffmpeg, runs);
        bare << double(t.nsecsElapsed()) / 1e9;
        QDir(support).removeRecursively();
        t.restart();
        vtest::await(MomentsEngine::analyze(video, {}, ffmpeg, support));
        analyze << double(t.nsecsElapsed()) / 1e9;
    }
    std::sort(bare.begin(), bare.end());
    std::sort(analyze.begin(), analyze.end());
    std::printf("replayed ffmpeg runs: %.2f / %.2f / %.2f s, analyze: %.2f / %.2f / %.2f s (min / median / max of 5)\n",
                bare.first(), median(bare), bare.last(), analyze.first(), median(analyze), analyze.last());
    std::printf("moments ratio (analyze / its ffmpeg runs): %.2f (target <= 1.1)\n", median(analyze) / median(bare));
    return 0;
}

// Cost of the tempo/key analysis and the beat grid against the bare ffmpeg decode each needs,
// alternating, medians of 7;
// the analysis' peak memory, and how often the analysis is right on a generated set.
#include "Await.h"
#include "TestEnv.h"
#include "analysis_music.h"

#include "analysis/PracticeMode.h"
#include "engine/Tools.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QProcess>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <vector>

#include <sys/resource.h>

namespace {

constexpr int rounds = 7;

double median(std::vector<double> v) {
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

// The decode analyze() or beatGrid() needs, alone: the same command line, its raw samples read
// from the pipe as they come and thrown away.
double timeDecode(const QString &ffmpeg, const QString &input, const QString &span) {
    const QStringList args{QStringLiteral("-nostdin"), QStringLiteral("-i"), input, QStringLiteral("-ac"), QStringLiteral("1"),
                           QStringLiteral("-ar"), QStringLiteral("22050"), QStringLiteral("-t"), span,
                           QStringLiteral("-f"), QStringLiteral("s16le"), QStringLiteral("pipe:1")};
    QElapsedTimer clock;
    clock.start();
    QProcess p;
    p.setStandardErrorFile(QProcess::nullDevice());
    QObject::connect(&p, &QProcess::readyReadStandardOutput, &p, [&p] { p.readAllStandardOutput(); });
    QEventLoop loop;
    QObject::connect(&p, &QProcess::finished, &loop, &QEventLoop::quit);
    p.start(ffmpeg, args, QIODevice::ReadOnly);
    loop.exec();
    const double seconds = double(clock.nsecsElapsed()) / 1e9;
    if (p.exitCode() != 0)
        std::fprintf(stderr, "decode failed\n");
    return seconds;
}

// CPU seconds of this process and its finished children: less at the mercy of a busy machine
// than the wall clock.
double cpuSeconds() {
    rusage self{}, children{};
    ::getrusage(RUSAGE_SELF, &self);
    ::getrusage(RUSAGE_CHILDREN, &children);
    const auto s = [](const timeval &t) { return double(t.tv_sec) + double(t.tv_usec) / 1e6; };
    return s(self.ru_utime) + s(self.ru_stime) + s(children.ru_utime) + s(children.ru_stime);
}

template <typename Fn> double cpuOf(Fn fn) {
    const double before = cpuSeconds();
    fn();
    return cpuSeconds() - before;
}

template <typename Fn> double timeIt(Fn fn) {
    QElapsedTimer clock;
    clock.start();
    fn();
    return double(clock.nsecsElapsed()) / 1e9;
}

long peakKiB() {
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

void timing(const QString &ffmpeg, const QString &dir) {
    const QString songPath = dir + QStringLiteral("/song.m4a");
    AnalysisMusic::Options options;
    options.seconds = 240;
    options.sampleRate = 44100;
    options.channels = 2;
    options.firstClick = 0.3;
    if (!AnalysisMusic::song(songPath, 9, true, 112, options)) {
        std::printf("could not generate the song\n");
        return;
    }
    const QUrl song = QUrl::fromLocalFile(songPath);

    // Nothing before this has grown the process, so its peak so far is the baseline.
    const long baseline = peakKiB();
    PracticeMode::Analysis analysis = vtest::await(PracticeMode::analyze(song, ffmpeg));
    const long peak = peakKiB();

    std::vector<double> decode120, analyze, decode90, grid;
    std::vector<double> decode120Cpu, analyzeCpu, decode90Cpu, gridCpu;
    std::optional<PracticeMode::BeatGrid> beats;
    for (int i = 0; i < rounds; ++i) {
        decode120Cpu.push_back(cpuOf([&] { decode120.push_back(timeDecode(ffmpeg, songPath, QStringLiteral("120"))); }));
        analyzeCpu.push_back(cpuOf(
            [&] { analyze.push_back(timeIt([&] { analysis = vtest::await(PracticeMode::analyze(song, ffmpeg)); })); }));
        decode90Cpu.push_back(cpuOf([&] { decode90.push_back(timeDecode(ffmpeg, songPath, QStringLiteral("90"))); }));
        gridCpu.push_back(
            cpuOf([&] { grid.push_back(timeIt([&] { beats = vtest::await(PracticeMode::beatGrid(song, ffmpeg)); })); }));
    }

    std::printf("song: 240 s AAC, 44.1 kHz stereo, A minor at 112 BPM -> bpm=%s key=%s, grid %.1f BPM from %.3f s\n",
                analysis.bpm ? qPrintable(PracticeMode::decimalText(*analysis.bpm)) : "none",
                analysis.key ? qPrintable(*analysis.key) : "none", beats ? beats->bpm : 0.0, beats ? beats->firstBeat : 0.0);
    std::printf("decode 120 s: %.3f s, analyze: %.3f s (medians of %d)\n", median(decode120), median(analyze), rounds);
    std::printf("analyze/decode ratio: %.2f (target <= 1.10)\n", median(analyze) / median(decode120));
    std::printf("decode 90 s: %.3f s, beatGrid: %.3f s\n", median(decode90), median(grid));
    std::printf("beatGrid/decode ratio: %.2f (target <= 1.05)\n", median(grid) / median(decode90));
    std::printf("CPU, decode 120 s: %.3f s, analyze: %.3f s, ratio %.2f; decode 90 s: %.3f s, beatGrid: %.3f s, ratio %.2f\n",
                median(decode120Cpu), median(analyzeCpu), median(analyzeCpu) / median(decode120Cpu), median(decode90Cpu),
                median(gridCpu), median(gridCpu) / median(decode90Cpu));
    std::printf("analysis peak memory: %.1f MiB (process peak %.1f MiB before, %.1f MiB after)\n",
                double(peak - baseline) / 1024, double(baseline) / 1024, double(peak) / 1024);
}

void accuracy(const QString &ffmpeg, const QString &dir) {
    AnalysisMusic::Options options;
    options.seconds = 30;

    std::printf("\n%-8s %-10s %-8s %s\n", "tempo", "found", "verdict", "beat grid");
    int exact = 0, octave = 0, tempi = 0;
    for (int bpm = 60; bpm <= 200; bpm += 10, ++tempi) {
        const QString path = dir + QStringLiteral("/click-%1.wav").arg(bpm);
        AnalysisMusic::clickTrack(path, bpm, options);
        const auto found = vtest::await(PracticeMode::analyze(QUrl::fromLocalFile(path), ffmpeg)).bpm;
        const char *verdict = "wrong";
        if (found && std::abs(*found - bpm) <= 1) {
            verdict = "exact";
            ++exact;
        } else if (found && (std::abs(*found - bpm / 2.0) <= 1 || std::abs(*found - bpm * 2.0) <= 1)) {
            verdict = *found < bpm ? "half" : "double";
            ++octave;
        }
        const auto grid = vtest::await(PracticeMode::beatGrid(QUrl::fromLocalFile(path), ffmpeg));
        const QString gridText = grid ? PracticeMode::decimalText(grid->bpm) + QStringLiteral(" BPM from ") +
                                            PracticeMode::decimalText(grid->firstBeat) + QStringLiteral(" s")
                                      : QStringLiteral("none");
        std::printf("%-8d %-10s %-8s %s\n", bpm, found ? qPrintable(PracticeMode::decimalText(*found)) : "none", verdict,
                    qPrintable(gridText));
        QFile::remove(path);
    }
    std::printf("tempi within 1 BPM: %d/%d, at half or double tempo: %d\n", exact, tempi, octave);

    std::printf("\nkey    found\n");
    int keysRight = 0;
    for (const bool minor : {false, true}) {
        for (int tonic = 0; tonic < 12; ++tonic) {
            const QString path = dir + QStringLiteral("/chords-%1-%2.wav").arg(tonic).arg(minor);
            AnalysisMusic::chordProgression(path, tonic, minor, options);
            const QString expected = PracticeMode::keyName(tonic, minor);
            const auto found = vtest::await(PracticeMode::analyze(QUrl::fromLocalFile(path), ffmpeg)).key;
            keysRight += found == expected;
            const QString row = expected.leftJustified(7) + found.value_or(QStringLiteral("none"));
            std::printf("%s\n", qPrintable(row));
            QFile::remove(path);
        }
    }
    std::printf("keys exact: %d/24\n", keysRight);
}

} // namespace

int main(int argc, char **argv) {
    TestEnv::setUp();
    QCoreApplication app(argc, argv);
    const QString ffmpeg = Tools::ffmpegURL();
    if (ffmpeg.isEmpty()) {
        std::printf("no ffmpeg\n");
        return 1;
    }
    const QString dir = TestEnv::root() + QStringLiteral("/bench");
    QDir().mkpath(dir);
    const bool onlyTiming = app.arguments().contains(QStringLiteral("--timing"));
    const bool onlyAccuracy = app.arguments().contains(QStringLiteral("--accuracy"));
    if (!onlyAccuracy)
        timing(ffmpeg, dir);
    if (!onlyTiming)
        accuracy(ffmpeg, dir);
    return 0;
}

// Feeds 100,000 progress lines through YtDlp::runStreaming + parseProgressLine and prints lines per
// second, next to the same generator read whole (the cost of producing and piping the bytes).
#include "Await.h"
#include "TestEnv.h"

#include "engine/YtDlp.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QProcess>

#include <algorithm>
#include <cstdio>
#include <sys/resource.h>

namespace {
constexpr int lineCount = 100000;

// CPU time of this process alone: what cutting and parsing cost, whatever the generator's speed.
double cpuSeconds() {
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    return double(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) + double(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

QStringList generatorArgs() {
    return {QStringLiteral("-c"),
            QStringLiteral("import sys\n"
                           "out = sys.stdout\n"
                           "for i in range(%1):\n"
                           "    out.write('VORLIX|%5.1f%%|%d.%02dMiB/s|00:%02d\\n' % (i * 100.0 / %1, i % 50, i % 100, i % 60))\n"
                           "    if i % 1000 == 0: out.write('[download] noise line that is not progress\\n')\n")
                .arg(lineCount)};
}
} // namespace

int main(int argc, char **argv) {
    TestEnv::setUp();
    QCoreApplication app(argc, argv);
    const QString python = QStringLiteral("/usr/bin/python3");

    QElapsedTimer clock;
    clock.start();
    QProcess raw;
    raw.start(python, generatorArgs());
    raw.waitForFinished(-1);
    const qint64 bytes = raw.readAllStandardOutput().size();
    const double rawSeconds = double(clock.nsecsElapsed()) / 1e9;

    int reports = 0;
    int withFraction = 0;
    double last = -1;
    bool ordered = true;
    const double cpuBefore = cpuSeconds();
    clock.restart();
    const auto result = vtest::await(YtDlp::runStreaming(python, generatorArgs(), {}, [&](const QString &line) {
        if (const auto p = YtDlp::parseProgressLine(line)) {
            ++reports;
            if (p->fraction) {
                ++withFraction;
                ordered = ordered && *p->fraction >= last;
                last = *p->fraction;
            }
        }
    }));
    const double seconds = double(clock.nsecsElapsed()) / 1e9;
    const double cpu = cpuSeconds() - cpuBefore;

    if (result.status != 0 || reports != lineCount || withFraction != lineCount || !ordered) {
        std::fprintf(stderr, "lost or reordered lines: status %d, %d reports, %d fractions\n", result.status, reports,
                     withFraction);
        return 1;
    }
    std::printf("bytes %lld\n", static_cast<long long>(bytes));
    std::printf("generator_only_seconds %.3f\n", rawSeconds);
    std::printf("streamed_and_parsed_seconds %.3f\n", seconds);
    std::printf("lines_per_second %.0f\n", lineCount / seconds);
    std::printf("streamed_vs_generator_ratio %.3f\n", seconds / rawSeconds);
    std::printf("consumer_cpu_seconds %.3f\n", cpu);
    std::printf("lines_per_consumer_cpu_second %.0f\n", lineCount / std::max(cpu, 1e-6));
    return 0;
}

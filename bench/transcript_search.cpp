// Transcript search over a large generated library against grep -rilF on the same tree. grep
// uses one core while the search may use every core, so the two are compared pinned to one core
// (the same resources) as well as on all of them. Alternating rounds, median of 5.
#include "TestEnv.h"

#include "analysis/TranscriptSearch.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QRandomGenerator>

#include <algorithm>
#include <cstdio>
#include <functional>

#include <sched.h>

namespace {

const QStringList words{QStringLiteral("guitar"), QStringLiteral("tempo"),  QStringLiteral("practice"),
                        QStringLiteral("string"), QStringLiteral("finger"), QStringLiteral("scale"),
                        QStringLiteral("minor"),  QStringLiteral("major"),  QStringLiteral("rhythm"),
                        QStringLiteral("today"),  QStringLiteral("we"),     QStringLiteral("will"),
                        QStringLiteral("look"),   QStringLiteral("at"),     QStringLiteral("the"),
                        QStringLiteral("next"),   QStringLiteral("bar"),    QStringLiteral("slowly")};

QByteArray transcript(QRandomGenerator &rng, bool withPhrase) {
    QByteArray out;
    int index = 1;
    while (out.size() < 30000) {
        QStringList line;
        for (int w = 0; w < 12; ++w)
            line << words[int(rng.bounded(qsizetype(words.size())))];
        if (withPhrase && index == 150)
            line << QStringLiteral("purple elephant");
        const int s = index * 3;
        out += QStringLiteral("%1\n00:%2:%3,000 --> 00:%2:%4,500\n%5\n\n")
                   .arg(index)
                   .arg(s / 60 % 60, 2, 10, QLatin1Char('0'))
                   .arg(s % 60, 2, 10, QLatin1Char('0'))
                   .arg((s + 2) % 60, 2, 10, QLatin1Char('0'))
                   .arg(line.join(u' '))
                   .toUtf8();
        ++index;
    }
    return out;
}

double timed(const std::function<void()> &work) {
    QElapsedTimer t;
    t.start();
    work();
    return double(t.nsecsElapsed()) / 1e9;
}

double median(QList<double> v) {
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

// Pins this process and what it starts to the first `cores` cores it may use.
bool pin(const cpu_set_t &allowed, int cores) {
    cpu_set_t set;
    CPU_ZERO(&set);
    for (int cpu = 0, taken = 0; cpu < CPU_SETSIZE && taken < cores; ++cpu)
        if (CPU_ISSET(cpu, &allowed)) {
            CPU_SET(cpu, &set);
            ++taken;
        }
    return ::sched_setaffinity(0, sizeof set, &set) == 0;
}

} // namespace

int main(int argc, char **argv) {
    TestEnv::setUp();
    QCoreApplication app(argc, argv);
    const QString root = TestEnv::root() + QStringLiteral("/library");
    QRandomGenerator rng(42);
    qint64 bytes = 0;
    for (int i = 0; i < 5000; ++i) {
        const QString dir = root + QStringLiteral("/channel%1").arg(i / 100);
        QDir().mkpath(dir);
        QFile f(dir + QStringLiteral("/talk %1.srt").arg(i));
        if (!f.open(QIODevice::WriteOnly))
            return 1;
        bytes += f.write(transcript(rng, i % 100 == 0));
    }
    std::printf("library: 5000 files, %.1f MB\n", bytes / 1e6);

    int grepFiles = 0;
    const auto grep = [&] {
        QProcess p;
        p.start(QStringLiteral("grep"), {QStringLiteral("-rilF"), QStringLiteral("purple elephant"), root});
        p.waitForFinished(-1);
        grepFiles = int(p.readAllStandardOutput().count('\n'));
    };
    qsizetype hits = 0;
    const auto search = [&] { hits = TranscriptSearch::search(QStringLiteral("Purple Elephant"), root).size(); };
    grep(); // warm the page cache
    search();

    cpu_set_t allowed;
    CPU_ZERO(&allowed);
    ::sched_getaffinity(0, sizeof allowed, &allowed);
    const int all = CPU_COUNT(&allowed);
    for (const int cores : {1, all}) {
        if (!pin(allowed, cores))
            return 1;
        QList<double> grepTimes, searchTimes;
        for (int round = 0; round < 5; ++round) {
            grepTimes << timed(grep);
            searchTimes << timed(search);
        }
        std::printf("on %d core(s): grep -rilF %.3f s (%d files), search %.3f s (%lld hits)\n", cores, median(grepTimes),
                    grepFiles, median(searchTimes), qlonglong(hits));
        std::printf("transcript_search ratio on %d core(s) (search / grep): %.2f (target <= 1.5)\n", cores,
                    median(searchTimes) / median(grepTimes));
    }
    return 0;
}

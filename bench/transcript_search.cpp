// Transcript search over a large generated library against grep -rilF on the same tree.
#include "TestEnv.h"

#include "analysis/TranscriptSearch.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QRandomGenerator>

#include <cstdio>
#include <functional>

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

double bestOf(int runs, const std::function<void()> &work) {
    double best = 1e300;
    for (int i = 0; i < runs; ++i) {
        QElapsedTimer t;
        t.start();
        work();
        best = std::min(best, t.nsecsElapsed() / 1e9);
    }
    return best;
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
    const double grepTime = bestOf(3, grep);
    const double searchTime = bestOf(3, search);
    std::printf("grep -rilF: %.3f s (%d files), search: %.3f s (%lld hits)\n", grepTime, grepFiles, searchTime,
                qlonglong(hits));
    std::printf("transcript_search ratio (search / grep): %.2f (target <= 1.5)\n", searchTime / grepTime);
    return 0;
}

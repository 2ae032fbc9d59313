// Crash soak for the history: a child process records entries as fast as it can and reports each
// completed save; it is SIGKILLed at a random moment. A fresh process then loads the file: it must
// hold at least every entry saved before the kill (at most the one save in flight more), and
// nothing but the file may be left in the folder. Prints the counts; exits 1 on any failure.
#include "TestEnv.h"

#include "core/DownloadItem.h"
#include "queue/HistoryStore.h"

#include <QCoreApplication>
#include <QDir>
#include <QProcess>
#include <QRandomGenerator>
#include <QThread>

#include <cstdio>

namespace {
constexpr int runs = 50;

int recordForever(const QString &path) {
    HistoryStore store(path);
    for (int i = 0;; ++i) {
        auto item = DownloadItem::make(QStringLiteral("https://youtu.be/soak-%1").arg(i), DownloadMode::bestVideoAudio,
                                       std::nullopt, QStringLiteral("Entry %1 \u2014 \u201Csoak\u201D").arg(i));
        store.record(*item);
        store.waitForPendingSave();
        std::printf("%lld\n", static_cast<long long>(store.entries().size()));
        std::fflush(stdout);
    }
}

int load(const QString &path) {
    const HistoryStore store(path);
    QStringList others = QDir(QFileInfo(path).absolutePath()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
    others.removeOne(QFileInfo(path).fileName());
    std::printf("%lld %lld\n", static_cast<long long>(store.entries().size()), static_cast<long long>(others.size()));
    return 0;
}
} // namespace

int main(int argc, char **argv) {
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();
    if (args.size() == 3 && args.at(1) == QStringLiteral("--record"))
        return recordForever(args.at(2));
    if (args.size() == 3 && args.at(1) == QStringLiteral("--load"))
        return load(args.at(2));

    TestEnv::setUp();
    int good = 0, lost = 0, leftovers = 0, emptyRuns = 0;
    for (int run = 0; run < runs; ++run) {
        const QString path = QStringLiteral("%1/soak-%2/history.json").arg(TestEnv::root()).arg(run);
        QDir().mkpath(QFileInfo(path).absolutePath());
        QProcess child;
        child.start(app.applicationFilePath(), {QStringLiteral("--record"), path});
        child.waitForStarted(-1);
        QThread::msleep(50 + QRandomGenerator::global()->bounded(700));
        child.kill();
        child.waitForFinished(-1);
        const QList<QByteArray> lines = child.readAllStandardOutput().split('\n');
        qint64 saved = 0;
        for (const QByteArray &line : lines)
            if (line.size() > 0)
                saved = line.toLongLong();
        // Loaded by a new process, the way the next start of the application would (which is never
        // within the same clock tick as the kill).
        QThread::msleep(20);
        QProcess checker;
        checker.start(app.applicationFilePath(), {QStringLiteral("--load"), path});
        checker.waitForFinished(-1);
        const QList<QByteArray> counts = checker.readAllStandardOutput().trimmed().split(' ');
        const qint64 loaded = counts.value(0).toLongLong();
        const qint64 others = counts.value(1, "-1").toLongLong();
        if (saved == 0)
            ++emptyRuns;
        if (loaded < saved || loaded > saved + 1)
            ++lost;
        else if (others != 0)
            ++leftovers;
        else
            ++good;
    }
    std::printf("history kill soak: %d runs, %d intact, %d lost or extra entries, %d with leftovers, %d killed before the first save\n",
                runs, good, lost, leftovers, emptyRuns);
    return lost == 0 && leftovers == 0 ? 0 : 1;
}

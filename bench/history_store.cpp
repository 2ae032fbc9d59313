// Load, record into and save a 100,000-entry history; prints times, ratios against Qt's own JSON
// reader/writer on the same data, and the file size. With "--write <path>" it only writes such a
// history there (bench/startup.sh starts the application with it).
#include "TestEnv.h"

#include "core/DownloadItem.h"
#include "queue/HistoryJson.h"
#include "queue/HistoryStore.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <vector>

namespace {
constexpr int entryCount = 100000;
constexpr int rounds = 5;

QList<HistoryEntry> makeEntries() {
    QList<HistoryEntry> list;
    list.reserve(entryCount);
    const QDateTime start = QDateTime::currentDateTimeUtc();
    for (int i = 0; i < entryCount; ++i) {
        HistoryEntry e;
        e.setId(QUuid::createUuid());
        e.setUrl(QStringLiteral("https://www.youtube.com/watch?v=%1").arg(i, 11, 36, QLatin1Char('x')));
        e.setTitle(QStringLiteral("Session %1 — “Live at the Arena” (Official Video) ü·…").arg(i));
        e.setSource(QStringLiteral("YouTube"));
        e.setCategory(QStringLiteral("Music"));
        e.setMode(QStringLiteral("Video (best quality)"));
        e.setDate(start.addMSecs(-qint64(i) * 60123));
        if (i % 10)
            e.setFilePath(QStringLiteral("/home/someone/Downloads/Vorlix/YouTube/Music/Session %1.mp4").arg(i));
        e.setArchived(i % 17 == 0);
        list.append(std::move(e));
    }
    return list;
}

double median(std::vector<double> v) {
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

double msSince(const QElapsedTimer &t) { return double(t.nsecsElapsed()) / 1e6; }

// CPU time of the calling thread: what the main thread itself spends, whatever the machine's load.
double threadCpuMs() {
    timespec ts{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return double(ts.tv_sec) * 1e3 + double(ts.tv_nsec) / 1e6;
}
} // namespace

int main(int argc, char **argv) {
    TestEnv::setUp();
    QCoreApplication app(argc, argv);
    const QStringList args = QCoreApplication::arguments();
    const bool writeOnly = args.size() == 3 && args.at(1) == QLatin1String("--write");
    const QString path = writeOnly ? args.at(2) : TestEnv::root() + QStringLiteral("/history.json");

    const QList<HistoryEntry> entries = makeEntries();
    {
        QSaveFile f(path);
        f.open(QIODevice::WriteOnly);
        f.write(HistoryJson::encode(entries));
        if (!f.commit())
            return 1;
    }
    if (writeOnly)
        return 0;
    const qint64 fileSize = QFileInfo(path).size();

    std::vector<double> load, loadCpu, record, recordCpu, change, changeCpu, save, total, qtParse, qtWrite, encode;
    for (int r = 0; r < rounds; ++r) {
        // Baselines: Qt's own JSON reader and writer on the same file.
        QElapsedTimer t;
        t.start();
        QFile raw(path);
        raw.open(QIODevice::ReadOnly);
        const QJsonDocument doc = QJsonDocument::fromJson(raw.readAll());
        qtParse.push_back(msSince(t));
        t.restart();
        const QByteArray qtBytes = doc.toJson(QJsonDocument::Indented);
        qtWrite.push_back(msSince(t));
        t.restart();
        const QByteArray ownBytes = HistoryJson::encode(entries);
        encode.push_back(msSince(t));

        QElapsedTimer all;
        all.start();
        double cpu = threadCpuMs();
        t.restart();
        HistoryStore store(path);
        load.push_back(msSince(t));
        loadCpu.push_back(threadCpuMs() - cpu);
        if (store.entries().size() != entryCount) {
            std::fprintf(stderr, "loaded %lld entries, expected %d\n", static_cast<long long>(store.entries().size()),
                         entryCount);
            return 1;
        }
        auto item = DownloadItem::make(QStringLiteral("https://youtu.be/new%1").arg(r), DownloadMode::audioOnly,
                                       std::nullopt, QStringLiteral("New song"));
        cpu = threadCpuMs();
        t.restart();
        store.record(*item);
        record.push_back(msSince(t));
        recordCpu.push_back(threadCpuMs() - cpu);
        store.waitForPendingSave();
        save.push_back(msSince(t));
        total.push_back(msSince(all));

        // A change made while a save of the whole list is still running.
        store.toggleArchive(store.entries().at(5));
        cpu = threadCpuMs();
        t.restart();
        store.toggleArchive(store.entries().at(5));
        change.push_back(msSince(t));
        changeCpu.push_back(threadCpuMs() - cpu);

        // Put the file back as it was for the next round.
        store.deleteEntry(store.entries().first());
        store.waitForPendingSave();
    }

    std::printf("entries                            %d\n", entryCount);
    std::printf("file size                          %.1f MB (%lld bytes)\n", double(fileSize) / 1e6,
                static_cast<long long>(fileSize));
    std::printf("load (map + decode)                %.0f ms wall, %.0f ms main-thread CPU\n", median(load),
                median(loadCpu));
    std::printf("record, main thread                %.2f ms wall, %.2f ms CPU\n", median(record), median(recordCpu));
    std::printf("change during a running save       %.2f ms wall, %.2f ms CPU\n", median(change), median(changeCpu));
    std::printf("record until saved (fsync'd)       %.0f ms\n", median(save));
    std::printf("load + record + save               %.0f ms\n", median(total));
    std::printf("load / Qt JSON parse alone         %.2f (%.0f ms)\n", median(load) / median(qtParse), median(qtParse));
    std::printf("encode / Qt JSON write             %.2f (%.0f ms vs %.0f ms)\n", median(encode) / median(qtWrite),
                median(encode), median(qtWrite));
    return 0;
}

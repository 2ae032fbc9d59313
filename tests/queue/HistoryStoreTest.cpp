#include "TestEnv.h"
#include "TestMain.h"

#include "core/DownloadItem.h"
#include "queue/HistoryJson.h"
#include "queue/HistoryStore.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRandomGenerator>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>

#include <csignal>
#include <cstdio>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {
QByteArray readAll(const QString &path) {
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

void writeAll(const QString &path, const QByteArray &bytes) {
    QFile f(path);
    QVERIFY(f.open(QIODevice::WriteOnly | QIODevice::Truncate));
    QCOMPARE(f.write(bytes), bytes.size());
}

ino_t inode(const QString &path) {
    struct stat st {};
    return ::stat(QFile::encodeName(path).constData(), &st) == 0 ? st.st_ino : 0;
}

QJsonArray fileArray(const QString &path) { return QJsonDocument::fromJson(readAll(path)).array(); }

DownloadItemPtr finishedItem(const QString &url, const QString &title, DownloadMode mode = DownloadMode::bestVideoAudio,
                             std::optional<QString> category = std::nullopt, const QString &file = {}) {
    auto item = DownloadItem::make(url, mode, std::nullopt, title);
    item->setCategory(category);
    if (!file.isEmpty())
        item->setFinalFileURL(QUrl::fromLocalFile(file));
    item->setState(ItemState::done());
    return item;
}

QByteArray validEntryJson(const char *extra = "") {
    return QByteArray(R"({"id":"0B4F2B4E-1C1A-4C8E-9E0B-5B8C3A9D7E11","url":"https://youtu.be/a","title":"A",)"
                      R"("source":"YouTube","category":"Music","mode":"Audio only","date":700000000.5,)"
                      R"("archived":false)") +
           extra + '}';
}

// A fixed, settable clock.
struct FakeClock {
    QDateTime now = QDateTime(QDate(2026, 3, 14), QTime(15, 9, 26, 535), Qt::UTC);
    HistoryStore::Clock fn() {
        return [this] { return now; };
    }
};

// Child: records entries into the given history in a loop until killed.
int historyWriterChild(int argc, char **argv) {
    QCoreApplication app(argc, argv);
    if (argc < 3)
        return 2;
    HistoryStore store(QString::fromLocal8Bit(argv[2]));
    std::printf("ready %lld\n", static_cast<long long>(store.entries().size()));
    std::fflush(stdout);
    const QString run = QUuid::createUuid().toString(QUuid::WithoutBraces);
    QElapsedTimer lifetime;
    lifetime.start();
    for (int i = 0; lifetime.elapsed() < 20000; ++i) { // never outlives a vanished parent for long
        auto item = finishedItem(QStringLiteral("https://youtu.be/%1-%2").arg(run).arg(i),
                                 QStringLiteral("Take \"%1\" ü·…\n").arg(i), DownloadMode::audioOnly,
                                 QStringLiteral("Music"), QStringLiteral("/media/take %1.mp3").arg(i));
        store.record(*item);
        if (i % 5 == 0)
            store.toggleArchive(store.entries().first());
        QThread::usleep(300);
    }
    return 0;
}
VORLIX_TEST_CHILD(historyWriter, historyWriterChild)
} // namespace

class HistoryStoreTest : public QObject {
    Q_OBJECT
    QTemporaryDir dir{TestEnv::root() + QStringLiteral("/history-XXXXXX")};
    int counter = 0;

    // A fresh file path inside a folder that does not exist yet.
    QString freshPath() { return dir.filePath(QStringLiteral("case%1/Vorlix/history.json").arg(++counter)); }

private Q_SLOTS:
    void firstDownloadCreatesTheFile() {
        const QString path = freshPath();
        FakeClock clock;
        HistoryStore store(path, clock.fn());
        QVERIFY(store.entries().isEmpty());
        QVERIFY(!QFile::exists(path));

        QSignalSpy changed(&store, &HistoryStore::entriesChanged);
        const QString media = dir.filePath(QStringLiteral("Song.mp3"));
        store.record(*finishedItem(QStringLiteral("https://music.youtube.com/watch?v=x"), QStringLiteral("Song"),
                                   DownloadMode::audioOnly, std::nullopt, media));
        store.record(*finishedItem(QStringLiteral("https://vimeo.com/1"), QStringLiteral("Clip"),
                                   DownloadMode::videoOnly, QStringLiteral("Films")));
        QCOMPARE(changed.count(), 2);
        store.waitForPendingSave();

        const QJsonArray array = fileArray(path);
        QCOMPARE(array.size(), 2);
        const QJsonObject clip = array.at(0).toObject();
        const QJsonObject song = array.at(1).toObject();
        QCOMPARE(song.value(QStringLiteral("source")).toString(), QStringLiteral("YouTube"));
        QCOMPARE(song.value(QStringLiteral("mode")).toString(), QStringLiteral("Audio only"));
        QCOMPARE(song.value(QStringLiteral("category")).toString(), QStringLiteral("Videos"));
        QCOMPARE(song.value(QStringLiteral("filePath")).toString(), media);
        QCOMPARE(song.value(QStringLiteral("archived")).toBool(), false);
        // 2026-03-14 15:09:26.535 UTC in seconds since the start of 2001.
        QCOMPARE(song.value(QStringLiteral("date")).toDouble(), 795193766.535);
        QVERIFY(QRegularExpression(QStringLiteral("^[0-9A-F]{8}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{12}$"))
                    .match(song.value(QStringLiteral("id")).toString())
                    .hasMatch());
        QCOMPARE(clip.value(QStringLiteral("mode")).toString(), QStringLiteral("Video only (no audio)"));
        QCOMPARE(clip.value(QStringLiteral("source")).toString(), QStringLiteral("Vimeo"));
        QCOMPARE(clip.value(QStringLiteral("category")).toString(), QStringLiteral("Films"));
        QVERIFY(!clip.contains(QStringLiteral("filePath")));
        QCOMPARE(clip.keys().size(), 8);

        // Indented, one key per line.
        const QStringList lines = QString::fromUtf8(readAll(path)).split(u'\n', Qt::SkipEmptyParts);
        const QRegularExpression layout(QStringLiteral(R"(^(\[|\]|  \{|  \},?|    "[a-zA-Z]+" ?: ?[^,]+,?)$)"));
        for (const QString &line : lines)
            QVERIFY2(layout.match(line).hasMatch(), qPrintable(line));
        QCOMPARE(lines.size(), 2 + 2 * 2 + 9 + 8);
    }

    void roundTripThroughTheFile() {
        const QString path = freshPath();
        FakeClock clock;
        QList<HistoryEntry> written;
        {
            HistoryStore store(path, clock.fn());
            const QStringList titles{QStringLiteral("Quotes \" and \\ backslash"),
                                     QStringLiteral("Line\nbreak\tand\r control \x01 \x1f"),
                                     QStringLiteral("ü·… — “curly” 🎸 日本語"), QString()};
            for (int i = 0; i < titles.size(); ++i) {
                clock.now = clock.now.addMSecs(1001);
                const auto mode = DownloadModes::all[std::size_t(i) % 3];
                store.record(*finishedItem(QStringLiteral("https://x.com/a/status/%1?q=\"x\"").arg(i), titles[i], mode,
                                           QStringLiteral("Tech"),
                                           i % 2 ? QString() : dir.filePath(QStringLiteral("f %1 ü.mp4").arg(i))));
            }
            store.toggleArchive(store.entries().at(1));
            HistoryEntry picture;
            picture.setId(QUuid::createUuid());
            picture.setUrl(QStringLiteral("https://example.org/photo"));
            picture.setTitle(QStringLiteral("Sunset"));
            picture.setSource(QStringLiteral("Flickr"));
            picture.setCategory(QStringLiteral("Images"));
            picture.setMode(QStringLiteral("Image"));
            picture.setDate(QDateTime(QDate(1999, 12, 31), QTime(23, 59, 59, 250), Qt::UTC)); // before 2001
            picture.setFilePath(dir.filePath(QStringLiteral("Images/Sunset.jpg")));
            store.add(picture);
            written = store.entries();
        }
        HistoryStore reloaded(path);
        QCOMPARE(reloaded.entries().size(), 5);
        QCOMPARE(reloaded.entries(), written);
        QCOMPARE(reloaded.entries().at(0).title(), QStringLiteral("Sunset"));
        QCOMPARE(reloaded.entries().at(2).archived(), true);
    }

    void redownloadRefreshesInPlace() {
        const QString path = freshPath();
        FakeClock clock;
        HistoryStore store(path, clock.fn());
        const QString a = QStringLiteral("https://www.youtube.com/watch?v=a");
        store.record(*finishedItem(a, QStringLiteral("Old title"), DownloadMode::audioOnly, QStringLiteral("Music"),
                                   dir.filePath(QStringLiteral("old.mp3"))));
        store.record(*finishedItem(QStringLiteral("https://vimeo.com/2"), QStringLiteral("B")));
        // Exact comparison: a trailing slash is another link.
        store.record(*finishedItem(a + u'/', QStringLiteral("C")));
        store.toggleArchive(store.entries().at(2));
        const HistoryEntry before = store.entries().at(2);

        clock.now = clock.now.addDays(3);
        QSignalSpy changed(&store, &HistoryStore::entriesChanged);
        store.record(*finishedItem(a, QStringLiteral("New title"), DownloadMode::bestVideoAudio,
                                   QStringLiteral("Comedy"), dir.filePath(QStringLiteral("new.mp4"))));
        QCOMPARE(changed.count(), 1);
        QCOMPARE(store.entries().size(), 3);
        const HistoryEntry after = store.entries().at(2);
        QCOMPARE(after.id(), before.id());
        QCOMPARE(after.url(), a);
        QCOMPARE(after.title(), QStringLiteral("New title"));
        QCOMPARE(after.date(), clock.now);
        QCOMPARE(after.filePath(), std::optional<QString>(dir.filePath(QStringLiteral("new.mp4"))));
        QCOMPARE(after.archived(), true);
        QCOMPARE(after.source(), before.source());
        QCOMPARE(after.category(), QStringLiteral("Music"));
        QCOMPARE(after.mode(), QStringLiteral("Audio only"));

        // A refresh without a file found drops the old path.
        store.record(*finishedItem(a, QStringLiteral("Again")));
        QCOMPARE(store.entries().at(2).filePath(), std::nullopt);
        store.waitForPendingSave();
        QVERIFY(!fileArray(path).at(2).toObject().contains(QStringLiteral("filePath")));
        QCOMPARE(fileArray(path).at(2).toObject().value(QStringLiteral("title")).toString(), QStringLiteral("Again"));
    }

    void malformedFilesReadAsEmpty_data() {
        QTest::addColumn<QByteArray>("content");
        const QByteArray good = validEntryJson();
        QTest::newRow("empty file") << QByteArray();
        QTest::newRow("not json") << QByteArray("history");
        QTest::newRow("object, not array") << good;
        QTest::newRow("truncated") << QByteArray('[' + good + ',' + good.left(good.size() / 2));
        QTest::newRow("one bad among good ones") << QByteArray('[' + good + ",{\"id\":1}," + good + ']');
        for (const char *key : {"id", "url", "title", "source", "category", "mode", "date", "archived"}) {
            QByteArray missing = good;
            missing.replace(QByteArray(QByteArray("\"") + key + "\":"), QByteArray("\"unused\":"));
            QTest::newRow(qPrintable(QStringLiteral("missing %1").arg(QLatin1String(key))))
                << QByteArray('[' + good + ',' + missing + ']');
        }
        QByteArray g = good;
        QTest::newRow("archived as text") << QByteArray('[' + QByteArray(g).replace("false", "\"false\"") + ']');
        QTest::newRow("filePath as number") << QByteArray('[' + validEntryJson(",\"filePath\":5") + ']');
    }
    void malformedFilesReadAsEmpty() {
        QFETCH(QByteArray, content);
        const QString path = freshPath();
        QDir().mkpath(QFileInfo(path).absolutePath());
        writeAll(path, content);

        HistoryStore store(path);
        QVERIFY(store.entries().isEmpty());
        store.waitForPendingSave();
        QCOMPARE(readAll(path), content); // left alone until something changes

        store.record(*finishedItem(QStringLiteral("https://youtu.be/new"), QStringLiteral("New")));
        store.waitForPendingSave();
        const auto onDisk = HistoryJson::decode(readAll(path));
        QVERIFY(onDisk);
        QCOMPARE(onDisk->size(), 1);
    }

    void toggleArchiveTwiceWritesTwice() {
        const QString path = freshPath();
        HistoryStore store(path);
        store.record(*finishedItem(QStringLiteral("https://youtu.be/a"), QStringLiteral("A")));
        store.record(*finishedItem(QStringLiteral("https://youtu.be/b"), QStringLiteral("B")));
        const HistoryEntry original = store.entries().at(1);
        const auto archivedOnDisk = [&] {
            store.waitForPendingSave();
            return fileArray(path).at(1).toObject().value(QStringLiteral("archived")).toBool();
        };
        QVERIFY(!archivedOnDisk());

        store.toggleArchive(store.entries().at(1));
        QCOMPARE(store.entries().at(1).archived(), true);
        QVERIFY(archivedOnDisk());

        // A stale copy of the entry no longer matches: nothing happens.
        QSignalSpy changed(&store, &HistoryStore::entriesChanged);
        store.toggleArchive(original);
        QCOMPARE(changed.count(), 0);
        QCOMPARE(store.entries().at(1).archived(), true);

        store.toggleArchive(store.entries().at(1));
        QCOMPARE(store.entries().at(1), original);
        QVERIFY(!archivedOnDisk());
        QCOMPARE(changed.count(), 1);
        QCOMPARE(store.entries().at(0).archived(), false);
    }

    void deleteAndClearKeepFilesAndArchivedOrder() {
        const QString path = freshPath();
        HistoryStore store(path);
        QStringList media;
        for (int i = 0; i < 6; ++i) {
            media << dir.filePath(QStringLiteral("media%1-%2.mp4").arg(counter).arg(i));
            writeAll(media.last(), "not really a video");
            store.record(*finishedItem(QStringLiteral("https://vimeo.com/%1").arg(i), QString::number(i),
                                       DownloadMode::bestVideoAudio, std::nullopt, media.last()));
        }
        // Newest first: titles 5 4 3 2 1 0. Archive 4, 2 and 0.
        for (int at : {1, 3, 5})
            store.toggleArchive(store.entries().at(at));

        // Delete matches by id, even through a copy whose other fields are out of date.
        HistoryEntry stale = store.entries().at(1);
        stale.setTitle(QStringLiteral("changed since"));
        store.deleteEntry(stale);
        QCOMPARE(store.entries().size(), 5);

        QSignalSpy changed(&store, &HistoryStore::entriesChanged);
        store.clearUnarchived();
        QCOMPARE(changed.count(), 1);
        QStringList titles;
        for (const auto &e : store.entries())
            titles << e.title();
        QCOMPARE(titles, QStringList({QStringLiteral("2"), QStringLiteral("0")}));

        // Clearing again changes nothing but still leaves a consistent file.
        store.clearUnarchived();
        QCOMPARE(changed.count(), 1);
        store.waitForPendingSave();
        QCOMPARE(HistoryStore(path).entries(), store.entries());
        for (const QString &file : media)
            QVERIFY2(QFile::exists(file), qPrintable(file));
    }

    void burstOfChangesEndsWithTheNewestState() {
        const QString path = freshPath();
        HistoryStore store(path);
        for (int i = 0; i < 3000; ++i)
            store.record(*finishedItem(QStringLiteral("https://youtu.be/%1").arg(i), QString::number(i)));
        for (int i = 0; i < 301; ++i)
            store.toggleArchive(store.entries().at(i % 7));
        store.waitForPendingSave();
        QCOMPARE(HistoryStore(path).entries(), store.entries());
        QCOMPARE(TestEnv::filesContaining(QFileInfo(path).absolutePath(), QStringLiteral("history.json.")),
                 QStringList());
    }

    void failedSaveKeepsThePreviousFile_data() {
        QTest::addColumn<QString>("how");
        QTest::newRow("disk refuses to grow the file") << QStringLiteral("fsize");
        QTest::newRow("folder is read-only") << QStringLiteral("readonly");
        QTest::newRow("folder path is a file") << QStringLiteral("blocked");
    }
    void failedSaveKeepsThePreviousFile() {
        QFETCH(QString, how);
        const QString path = freshPath();
        const QString folder = QFileInfo(path).absolutePath();
        if (how == QLatin1String("readonly") && ::geteuid() == 0)
            QSKIP("permissions do not bind root");

        HistoryStore store(path);
        if (how != QLatin1String("blocked")) {
            store.record(*finishedItem(QStringLiteral("https://youtu.be/first"), QStringLiteral("First")));
            store.waitForPendingSave();
        }
        const QByteArray before = readAll(path);

        struct rlimit oldLimit {};
        ::getrlimit(RLIMIT_FSIZE, &oldLimit);
        const auto oldHandler = std::signal(SIGXFSZ, SIG_IGN);
        if (how == QLatin1String("fsize")) {
            struct rlimit limit = oldLimit;
            limit.rlim_cur = rlim_t(before.size() + 40);
            QCOMPARE(::setrlimit(RLIMIT_FSIZE, &limit), 0);
        } else if (how == QLatin1String("readonly")) {
            QVERIFY(QFile::setPermissions(folder, QFileDevice::ReadOwner | QFileDevice::ExeOwner));
        } else {
            QDir().mkpath(QFileInfo(folder).absolutePath());
            writeAll(folder, "a file where the folder should be");
        }

        store.record(*finishedItem(QStringLiteral("https://youtu.be/second"), QStringLiteral("Second")));
        store.waitForPendingSave();
        const QByteArray after = readAll(path);
        const QStringList leftovers = TestEnv::filesContaining(folder, QStringLiteral("history"));

        ::setrlimit(RLIMIT_FSIZE, &oldLimit);
        std::signal(SIGXFSZ, oldHandler);
        QFile::setPermissions(folder, QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);

        QCOMPARE(after, before);
        QCOMPARE(store.entries().size(), how == QLatin1String("blocked") ? 1 : 2);
        QCOMPARE(store.entries().first().title(), QStringLiteral("Second"));
        if (how != QLatin1String("blocked")) {
            QCOMPARE(leftovers, QStringList({path}));
            // Once the disk accepts writes again, the next change saves everything.
            store.toggleArchive(store.entries().first());
            store.waitForPendingSave();
            QCOMPARE(HistoryStore(path).entries(), store.entries());
        }
    }

    void killedWriterNeverLeavesAHalfWrittenFile() {
        const QString path = freshPath();
        QDir().mkpath(QFileInfo(path).absolutePath());
        // A sizeable history, so that a kill often lands in the middle of a write.
        {
            QList<HistoryEntry> seed;
            for (int i = 0; i < 8000; ++i) {
                HistoryEntry e;
                e.setId(QUuid::createUuid());
                e.setUrl(QStringLiteral("https://vimeo.com/%1").arg(i));
                e.setTitle(QStringLiteral("Seed %1").arg(i));
                e.setSource(QStringLiteral("Vimeo"));
                e.setCategory(QStringLiteral("Videos"));
                e.setMode(QStringLiteral("Video (best quality)"));
                e.setDate(QDateTime::currentDateTimeUtc());
                e.setArchived(i % 3 == 0);
                seed.append(e);
            }
            writeAll(path, HistoryJson::encode(seed));
        }

        const quint32 seed = QRandomGenerator::global()->generate();
        QRandomGenerator random(seed);
        qsizetype previousCount = 8000;
        for (int run = 0; run < 50; ++run) {
            QProcess child;
            child.setProcessChannelMode(QProcess::ForwardedErrorChannel);
            child.start(QCoreApplication::applicationFilePath(), {QStringLiteral("--child=historyWriter"), path});
            QVERIFY(child.waitForStarted(5000));
            QVERIFY(child.waitForReadyRead(10000));
            const QByteArray ready = child.readLine().trimmed();
            QCOMPARE(ready, "ready " + QByteArray::number(previousCount));

            // Wait for the first save to land, then kill at a random moment of the writes that follow
            // back to back (every save replaces the file, so its inode changes).
            const ino_t before = inode(path);
            QElapsedTimer waiting;
            waiting.start();
            while (inode(path) == before && waiting.elapsed() < 10000)
                QThread::usleep(1000);
            QVERIFY2(inode(path) != before, "the writer never saved");
            QThread::usleep(random.bounded(0u, 60000u));
            ::kill(pid_t(child.processId()), SIGKILL);
            QVERIFY(child.waitForFinished(5000));
            QCOMPARE(child.exitStatus(), QProcess::CrashExit);

            const auto onDisk = HistoryJson::decode(readAll(path));
            QVERIFY2(onDisk, qPrintable(QStringLiteral("run %1, seed %2").arg(run).arg(seed)));
            QVERIFY(onDisk->size() > previousCount);
            previousCount = onDisk->size();
        }
        // A kill between the temporary copy's creation and its rename can leave that copy; the next
        // start sweeps it, so nothing half-written stays beside the history.
        writeAll(path + QStringLiteral(".Xy12Zq"), "[{\"half");
        { HistoryStore reopened(path); }
        QCOMPARE(QDir(QFileInfo(path).absolutePath()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
                 QStringList{QStringLiteral("history.json")});
        qInfo("50 kills: history grew to %lld entries", static_cast<long long>(previousCount));
    }
};

VORLIX_TEST_SUITE(HistoryStoreTest)
#include "HistoryStoreTest.moc"

#include "QueueFakes.h"
#include "TestMain.h"

#include "queue/HistoryJson.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTest>

#include <csignal>
#include <sys/resource.h>

namespace {

using TestEnv::readFile;
using TestEnv::writeFile;

QJsonArray fileArray(const QString &path) { return QJsonDocument::fromJson(readFile(path)).array(); }

// A fresh history path inside a folder that does not exist yet.
QString freshPath() {
    static int n = 0;
    return QStringLiteral("%1/history-%2/Vorlix/history.json").arg(TestEnv::root()).arg(++n);
}

DownloadItemPtr finished(const QString &url, const QString &title, DownloadMode mode = DownloadMode::bestVideoAudio,
                         std::optional<QString> category = std::nullopt, const QString &file = {}) {
    auto item = DownloadItem::make(url, mode, std::nullopt, title);
    item->setCategory(std::move(category));
    if (!file.isEmpty())
        item->setFinalFileURL(QUrl::fromLocalFile(file));
    item->setState(ItemState::done());
    return item;
}

const QByteArray oneEntry = R"([{"id":"0B4F2B4E-1C1A-4C8E-9E0B-5B8C3A9D7E11","url":"u","title":"t","source":"s",)"
                            R"("category":"c","mode":"m","date":1,"archived":false}])";

} // namespace

class HistoryTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    // The file's schema, one edit of a valid file per row: accepted with the meaning shown, or refused whole.
    void decodeSchema_data() {
        QTest::addColumn<QByteArray>("json");
        QTest::addColumn<QVariant>("expected"); // invalid: refused; a string: the title; a double: the date
        const auto edited = [](const QByteArray &name, const QByteArray &from, const QByteArray &to, const QVariant &expected = {}) {
            QTest::newRow(name.constData()) << QByteArray(oneEntry).replace(from, to) << expected;
        };
        for (const QByteArray key : {"id", "url", "title", "source", "category", "mode", "date", "archived"})
            edited("without " + key, "\"" + key + "\"", "\"other\"");
        edited("null filePath", "\"date\"", "\"filePath\":null,\"date\"", true);
        edited("unknown keys of any shape", "\"date\"", "\"extra\":{\"a\":[1,{\"b\":null}]},\"date\"", true);
        edited("archived as number", "false", "0");
        edited("date as text", "1,", "\"1\",");
        edited("filePath as number", "\"date\"", "\"filePath\":7,\"date\"");
        edited("lower-case id", "0B4F2B4E", "0b4f2b4e", true);
        edited("id in braces", "\"0B4F2B4E-1C1A-4C8E-9E0B-5B8C3A9D7E11\"", "\"{0B4F2B4E-1C1A-4C8E-9E0B-5B8C3A9D7E11}\"");
        edited("fractional date before 2001", "1,", "-86400.5,", -86400.5);
        edited("sub-millisecond date is rounded", "1,", "1.0004,", 1.0);
        edited("absurd date is clamped", "1,", "1e300,", 100000.0 * 365.25 * 86400.0);
        // Text without escapes is taken from the file as it stands; these must still be unescaped.
        edited("escaped quote first", "\"t\"", "\"\\\"q\\\" \\\\ \\u00e9\\ud83c\\udfb8\"", QStringLiteral("\"q\" \\ é🎸"));
        edited("escaped backslash last", "\"t\"", "\"a\\\\\" ", QStringLiteral("a\\"));
        edited("space after the text", "\"t\"", "\"t\" \n ", QStringLiteral("t"));
        edited("lone surrogate escape", "\"t\"", "\"a\\ud800b\""); // UTF-8 text cannot hold it
        QTest::newRow("byte-order mark") << QByteArray("\xef\xbb\xbf" + oneEntry) << QVariant(true);
        QTest::newRow("byte-order mark twice") << QByteArray("\xef\xbb\xbf\xef\xbb\xbf" + oneEntry) << QVariant();
        QTest::newRow("array of numbers") << QByteArray("[1, 2]") << QVariant();
    }
    void decodeSchema() {
        QFETCH(QByteArray, json);
        QFETCH(QVariant, expected);
        const auto decoded = HistoryJson::decode(json);
        QCOMPARE(decoded.has_value(), expected.isValid());
        if (expected.typeId() == QMetaType::QString)
            QCOMPARE(decoded->first().title(), expected.toString());
        else if (expected.typeId() == QMetaType::Double)
            QCOMPARE(HistoryEntry::referenceSeconds(decoded->first().date()), expected.toDouble());
    }

    // Each finished download adds an entry, or refreshes the one for its link in place, also when it
    // finishes before the history has been read.
    void recordAddsOrRefreshes() {
        const QString path = freshPath();
        QDateTime now(QDate(2026, 3, 14), QTime(15, 9, 26, 535), Qt::UTC);
        const QString clip = QStringLiteral("https://vimeo.com/1");
        {
            HistoryStore store(path, [&now] { return now; });
            QVERIFY(!QFile::exists(path));
            const QString media = TestEnv::root() + QStringLiteral("/Song ü 🎸.mp3");
            QString title = QStringLiteral("Song \"q\" \\ \\u0041 / \\/ \u007F\uFFFF");
            for (char16_t c = 0; c < 0x20; ++c)
                title += QChar(c);
            store.record(*finished(QStringLiteral("https://music.youtube.com/watch?v=x"), title, DownloadMode::audioOnly, std::nullopt, media));
            now = now.addMSecs(1001);
            store.record(*finished(clip, QString(), DownloadMode::videoOnly, QStringLiteral("Films")));
            HistoryEntry picture = HistoryJson::decode(oneEntry)->first();
            picture.setFilePath(QStringLiteral("/p/Sunset.jpg"));
            picture.setCategory(QStringLiteral("a") + QChar(0xD800) + u'b'); // UTF-8 has no lone surrogate
            picture.setDate(QDateTime(QDate(2000, 12, 31), QTime(23, 59, 59, 250), Qt::UTC)); // before 2001
            store.add(picture);
            store.toggleArchive(store.entries().at(1));
            store.waitForPendingSave();

            // Read back by Qt's parser: the file is plain JSON whatever the texts hold.
            QCOMPARE(fileArray(path).at(0).toObject().value(QStringLiteral("category")).toString(), QStringLiteral("a?b"));
            QCOMPARE(fileArray(path).at(0).toObject().value(QStringLiteral("date")).toDouble(), -0.75);
            QJsonObject song = fileArray(path).at(2).toObject();
            QVERIFY(QRegularExpression(QStringLiteral("^[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}$")).match(song.take(QStringLiteral("id")).toString()).hasMatch());
            QCOMPARE(song, (QJsonObject{{QStringLiteral("url"), QStringLiteral("https://music.youtube.com/watch?v=x")}, {QStringLiteral("title"), title},
                                        {QStringLiteral("source"), QStringLiteral("YouTube")}, {QStringLiteral("category"), QStringLiteral("Videos")},
                                        {QStringLiteral("mode"), QStringLiteral("Audio only")}, {QStringLiteral("filePath"), media},
                                        {QStringLiteral("date"), 795193766.535}, {QStringLiteral("archived"), false}})); // seconds since 2001
            const QJsonObject video = fileArray(path).at(1).toObject();
            QCOMPARE(video.value(QStringLiteral("archived")).toBool(), true);
            QCOMPARE(video.keys().size(), 8); // no filePath without a file
        }
        const HistoryEntry before = HistoryStore(path).entries().at(1);
        HistoryStore store(path, HistoryStore::Loading::inBackground, [&now] { return now; });
        QSignalSpy loaded(&store, &HistoryStore::loaded);
        QSignalSpy changed(&store, &HistoryStore::entriesChanged);
        const QDateTime finishedAt = now.addDays(1);
        now = finishedAt;
        store.record(*finished(clip, QStringLiteral("New"), DownloadMode::bestVideoAudio, QStringLiteral("Comedy"), QStringLiteral("/m/new.mp4")));
        store.record(*finished(clip + u'/', QStringLiteral("D"))); // another link: compared exactly
        QVERIFY(store.entries().isEmpty());
        now = now.addDays(3); // the date is when the download finished, not when the history came in
        QVERIFY(loaded.wait());
        QCOMPARE(changed.count(), 3); // the history, then each change
        QCOMPARE(store.entries().size(), 4);
        HistoryEntry expected = before;
        expected.setTitle(QStringLiteral("New"));
        expected.setDate(finishedAt);
        expected.setFilePath(QStringLiteral("/m/new.mp4"));
        QCOMPARE(store.entries().at(2), expected); // same id, archived, source, category and mode
        QCOMPARE(store.entries().at(0).title(), QStringLiteral("D"));
        store.record(*finished(clip, QStringLiteral("Again"))); // no file found this time: the old path goes
        QCOMPARE(store.entries().at(2).filePath(), std::nullopt);
        store.waitForPendingSave();
        QCOMPARE(HistoryStore(path).entries(), store.entries());
    }

    // At start a file that exists but cannot be read, the user's lost history, is set aside, never saved over.
    void unreadableFileIsKeptAside_data() {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<int>("entries"); // -1: unreadable
        QTest::addColumn<bool>("inBackground");
        QTest::newRow("empty file") << QByteArray() << 0 << false;
        QTest::newRow("file filling its last page") << QByteArray(oneEntry + QByteArray(4096 - oneEntry.size(), ' ')) << 1 << true;
        QTest::newRow("not json") << QByteArray("history") << -1 << false;
        QTest::newRow("one bad among good ones") << QByteArray("[" + oneEntry.mid(1, oneEntry.size() - 2) + ",{\"id\":1}]") << -1 << false;
        QTest::newRow("not json, read in the background") << QByteArray("[{") << -1 << true;
    }
    void unreadableFileIsKeptAside() {
        QFETCH(QByteArray, content);
        QFETCH(int, entries);
        QFETCH(bool, inBackground);
        const QString path = freshPath();
        const QString aside = path + QStringLiteral(".unreadable-2025-07-01");
        const QDateTime now(QDate(2025, 7, 1), QTime(23, 0), Qt::UTC);
        QVERIFY(writeFile(path, content));
        QVERIFY(writeFile(aside, "an earlier casualty the same day"));
        // Only this program's interrupted saves of earlier runs are swept; a fresh one may be another instance's.
        const QString folder = QFileInfo(path).absolutePath() + u'/';
        const QStringList others{QStringLiteral(".history.json.vorlix-save-Fr35h1"), QStringLiteral("history.json.Xy12Zq"), QStringLiteral("history.json.backup")};
        for (const QString &name : others + QStringList{QStringLiteral(".history.json.vorlix-save-Ab12Cd")})
            QVERIFY(writeFile(folder + name, "[{\"half"));
        QFile stale(folder + QStringLiteral(".history.json.vorlix-save-Ab12Cd"));
        QVERIFY(stale.open(QIODevice::ReadWrite) && stale.setFileTime(now.addDays(-1), QFileDevice::FileModificationTime));
        HistoryStore store(path, inBackground ? HistoryStore::Loading::inBackground : HistoryStore::Loading::now, [&now] { return now; });
        AppSettings settings(path + QStringLiteral(".ini"));
        queuetest::RecordingNotifier notifier;
        queuetest::FakeEngine engine;
        DownloadQueue queue(settings, store, notifier, engine.services());
        store.record(*finished(QStringLiteral("https://youtu.be/new"), QStringLiteral("New")));
        store.waitUntilLoaded();
        store.waitForPendingSave();

        QCOMPARE(HistoryStore(path).entries().size(), std::max(entries, 0) + 1);
        QCOMPARE(readFile(aside), QByteArray("an earlier casualty the same day"));
        QVERIFY(!stale.exists());
        for (const QString &name : others)
            QVERIFY2(QFile::exists(folder + name), qPrintable(name));
        if (entries >= 0) {
            QCOMPARE(store.loadNotice(), std::nullopt);
            QCOMPARE(queue.lastMessage(), std::nullopt);
        } else {
            QCOMPARE(readFile(aside + QStringLiteral("-2")), content);
            QCOMPARE(queue.lastMessage(), QStringLiteral("History could not be read \u00B7 kept as history.json.unreadable-2025-07-01-2"));
        }
    }

    // A burst of changes is written as its newest state (in several chunks); archive, delete and clear;
    // a save the disk refuses leaves the previous file whole, and once there is room everything is saved.
    void changesAreSavedAsTheNewestState() {
        const QString path = freshPath();
        HistoryStore store(path);
        const QString media = TestEnv::root() + QStringLiteral("/kept.mp4");
        QVERIFY(writeFile(media, "not really a video"));
        for (int i = 0; i < 9000; ++i)
            store.record(*finished(QStringLiteral("https://vimeo.com/%1").arg(i), QString::number(i), DownloadMode::bestVideoAudio, std::nullopt, media));
        const HistoryEntry original = store.entries().at(1); // newest first: 8999 8998 8997 ...
        for (int at : {1, 3, 5}) // archive 8998, 8996, 8994
            store.toggleArchive(store.entries().at(at));
        QSignalSpy changed(&store, &HistoryStore::entriesChanged);
        store.toggleArchive(original); // a stale copy matches nothing
        QCOMPARE(changed.count(), 0);
        store.waitForPendingSave();
        QCOMPARE(QFileInfo(path).size() > 2 * (1 << 20), true);
        QCOMPARE(readFile(path), HistoryJson::encode(store.entries()));

        HistoryEntry stale = store.entries().at(1); // deleting matches the id alone
        stale.setTitle(QStringLiteral("changed since"));
        store.deleteEntry(stale);
        store.clearUnarchived();
        store.clearUnarchived();
        QCOMPARE(changed.count(), 2);
        QCOMPARE(store.entries().size(), 2);
        QCOMPARE(store.entries().at(0).title() + u' ' + store.entries().at(1).title(), QStringLiteral("8996 8994"));
        QVERIFY2(QFile::exists(media), "files on disk are never touched");
        store.waitForPendingSave();

        const QByteArray before = readFile(path);
        struct rlimit oldLimit {};
        ::getrlimit(RLIMIT_FSIZE, &oldLimit);
        const auto oldHandler = std::signal(SIGXFSZ, SIG_IGN);
        const struct rlimit limit {rlim_t(before.size() + 40), oldLimit.rlim_max};
        QCOMPARE(::setrlimit(RLIMIT_FSIZE, &limit), 0);
        store.record(*finished(QStringLiteral("https://youtu.be/second"), QStringLiteral("Second")));
        store.waitForPendingSave();
        ::setrlimit(RLIMIT_FSIZE, &oldLimit);
        std::signal(SIGXFSZ, oldHandler);
        QCOMPARE(readFile(path), before);
        QCOMPARE(TestEnv::filesContaining(QFileInfo(path).absolutePath(), QStringLiteral("history")), QStringList{path});
        store.toggleArchive(store.entries().first());
        store.waitForPendingSave();
        QCOMPARE(HistoryStore(path).entries(), store.entries());
    }
};

VORLIX_TEST_SUITE(HistoryTest)
#include "HistoryTest.moc"

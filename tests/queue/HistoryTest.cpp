#include "QueueFakes.h"
#include "TestEnv.h"
#include "TestMain.h"

#include "core/AppSettings.h"
#include "core/DownloadItem.h"
#include "queue/DownloadQueue.h"
#include "queue/HistoryJson.h"
#include "queue/HistoryStore.h"

#include <QDir>
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

QByteArray readAll(const QString &path) {
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

bool writeAll(const QString &path, const QByteArray &bytes) {
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile f(path);
    return f.open(QIODevice::WriteOnly | QIODevice::Truncate) && f.write(bytes) == bytes.size();
}

QJsonArray fileArray(const QString &path) { return QJsonDocument::fromJson(readAll(path)).array(); }

// A fresh history path inside a folder that does not exist yet.
QString freshPath() {
    static int n = 0;
    return QStringLiteral("%1/history-%2/Vorlix/history.json").arg(TestEnv::root()).arg(++n);
}

QString units(std::initializer_list<char16_t> list) { // lone surrogates cannot be literals
    QString s;
    for (char16_t u : list)
        s += QChar(u);
    return s;
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

HistoryEntry entry(const QString &title, std::optional<QString> path = std::nullopt) {
    HistoryEntry e;
    e.setId(QUuid::createUuid());
    e.setUrl(QStringLiteral("https://youtu.be/") + QString::number(qHash(title)));
    e.setTitle(title);
    e.setSource(QStringLiteral("YouTube"));
    e.setCategory(QStringLiteral("Music"));
    e.setMode(QStringLiteral("Audio only"));
    e.setDate(QDateTime(QDate(2025, 7, 1), QTime(8, 30, 0, 125), Qt::UTC));
    e.setFilePath(std::move(path));
    return e;
}

const QByteArray oneEntry = R"([{"id":"0B4F2B4E-1C1A-4C8E-9E0B-5B8C3A9D7E11","url":"u","title":"t","source":"s",)"
                            R"("category":"c","mode":"m","date":1,"archived":false}])";

} // namespace

class HistoryTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    // One value spliced into a valid file: accepted with its meaning, or the whole file refused.
    void decodeValues_data() {
        QTest::addColumn<QByteArray>("field"); // the value it replaces
        QTest::addColumn<QByteArray>("json");
        QTest::addColumn<QVariant>("expected"); // invalid: refused
        const auto title = [](const char *name, const QByteArray &json, const QVariant &text = {}) {
            QTest::newRow(name) << QByteArray("\"t\"") << json << text;
        };
        const auto date = [](const char *name, const QByteArray &json, const QVariant &seconds = {}) {
            QTest::newRow(name) << QByteArray("1,") << json + ',' << seconds;
        };
        title("all simple escapes", "\"\\\"\\\\\\/\\b\\f\\n\\r\\t\"", QStringLiteral("\"\\/\b\f\n\r\t"));
        title("unicode escapes", R"("caf\u00e9 \u00E9 \ud83c\udfb8")", QStringLiteral("café é 🎸"));
        title("lone surrogate escape", R"("a\ud800b")", units({u'a', 0xD800, u'b'}));
        title("escaped NUL", R"("a\u0000b")", QString(units({u'a', 0, u'b'})));
        title("raw UTF-8 up to U+10FFFF", "\"ü·… 日本 🎸\xf4\x8f\xbf\xbf\"", QString(QStringLiteral("ü·… 日本 🎸") + QString::fromUcs4(U"\U0010FFFF", 1)));
        for (const char *bad : {R"("\x41")", R"("\u12")", R"("\u12g4")", "\"a\tb\"", R"("abc)", R"("abc\)", "\"\xc0\xaf\"",
                                "\"\xe0\x80\xaf\"", "\"\xed\xa0\x80\"", "\"\xf4\x90\x80\x80\"", "\"\x80\"", "\"\xe6\x97\"",
                                "\"caf\xe9\"", "'abc'", "null"})
            title(bad, bad);
        date("integer", "700000000", 700000000.0);
        date("fraction", "-86400.5", -86400.5);
        date("minus zero", "-0", 0.0);
        date("exponents", "5e-1", 0.5);
        date("sub-millisecond is rounded", "1.0004", 1.0);
        date("absurdly large is clamped", "1e300", 100000.0 * 365.25 * 86400.0);
        for (const char *bad : {"0700", "1.", ".5", "+1", "-", "1e", "0x10", "NaN", "Infinity", "1e999", "\"1\""})
            date(bad, bad);
    }
    void decodeValues() {
        QFETCH(QByteArray, field);
        QFETCH(QByteArray, json);
        QFETCH(QVariant, expected);
        const auto decoded = HistoryJson::decode(QByteArray(oneEntry).replace(field, json));
        QCOMPARE(decoded.has_value(), expected.isValid());
        if (expected.typeId() == QMetaType::QString)
            QCOMPARE(decoded->first().title(), expected.toString());
        else if (expected.isValid())
            QCOMPARE(HistoryEntry::referenceSeconds(decoded->first().date()), expected.toDouble());
    }

    void decodeDocuments_data() {
        QTest::addColumn<QByteArray>("json");
        QTest::addColumn<int>("count"); // -1: refused
        const QByteArray obj = oneEntry.mid(1, oneEntry.size() - 2);
        const auto edited = [](const char *from, const char *to) { return QByteArray(oneEntry).replace(from, to); };
        const auto withExtra = [&obj](const QByteArray &pair) { return QByteArray("[{" + pair + ',' + obj.mid(1) + ']'); };
        QTest::newRow("empty array with spaces") << QByteArray(" \r\n\t[ \n ] \n") << 0;
        QTest::newRow("two entries") << QByteArray('[' + obj + " , " + obj + ']') << 2;
        QTest::newRow("trailing comma") << QByteArray('[' + obj + ",]") << -1;
        QTest::newRow("missing comma") << QByteArray('[' + obj + obj + ']') << -1;
        QTest::newRow("two arrays") << QByteArray(oneEntry + oneEntry) << -1;
        QTest::newRow("byte-order mark") << QByteArray("\xef\xbb\xbf" + oneEntry) << 1;
        QTest::newRow("byte-order mark twice") << QByteArray("\xef\xbb\xbf\xef\xbb\xbf" + oneEntry) << -1;
        QTest::newRow("unknown nested value") << withExtra(R"("extra":{"a":[1,{"b":null}],"c":true})") << 1;
        QTest::newRow("deep but reasonable") << withExtra("\"x\":" + QByteArray(30, '[') + QByteArray(30, ']')) << 1;
        QTest::newRow("absurdly deep") << withExtra("\"x\":" + QByteArray(100000, '[') + QByteArray(100000, ']')) << -1;
        QTest::newRow("array of numbers") << QByteArray("[1, 2]") << -1;
        QTest::newRow("archived as number") << edited("false", "0") << -1;
        QTest::newRow("truncated literal") << edited("false", "fals") << -1;
        QTest::newRow("id in braces") << edited("\"0B4F2B4E-1C1A-4C8E-9E0B-5B8C3A9D7E11\"", "\"{0B4F2B4E-1C1A-4C8E-9E0B-5B8C3A9D7E11}\"") << -1;
        QTest::newRow("lower-case id") << edited("0B4F2B4E", "0b4f2b4e") << 1;
        QTest::newRow("null filePath") << edited("\"date\"", "\"filePath\":null,\"date\"") << 1;
        QTest::newRow("escaped key") << edited("\"url\"", R"("\u0075rl")") << 1;
    }
    void decodeDocuments() {
        QFETCH(QByteArray, json);
        const auto decoded = HistoryJson::decode(json);
        QTEST(decoded ? int(decoded->size()) : -1, "count");
    }

    void encodingRoundTripsAnyText() {
        QString controls;
        for (char16_t c = 0; c < 0x20; ++c)
            controls += QChar(c);
        auto e = entry(controls, QStringLiteral("\\\"\\\\\" \\u0041 / \\/"));
        e.setUrl(units({0x7F, 0xFFFE, 0xFFFF}) + QString::fromUcs4(U"\U0001F3B8\U0010FFFF", 2));
        const QJsonObject asQtReadsIt = QJsonDocument::fromJson(HistoryJson::encode({e})).array().at(0).toObject();
        QCOMPARE(asQtReadsIt.value(QStringLiteral("title")).toString(), e.title());
        QCOMPARE(asQtReadsIt.value(QStringLiteral("filePath")).toString(), e.filePath().value());
        QCOMPARE(asQtReadsIt.value(QStringLiteral("url")).toString(), e.url());
        e.setCategory(units({u'a', 0xD800, u' ', 0xDFFF, u'c', 0xDC00, 0xD800})); // Qt's parser would replace these
        QCOMPARE(HistoryJson::decode(HistoryJson::encode({e})), std::optional(QList<HistoryEntry>{e}));
    }

    void recordWritesTheFileAndReadsItBack() {
        const QString path = freshPath();
        QDateTime now(QDate(2026, 3, 14), QTime(15, 9, 26, 535), Qt::UTC);
        QList<HistoryEntry> written;
        {
            HistoryStore store(path, [&now] { return now; });
            QVERIFY(store.entries().isEmpty());
            QVERIFY(!QFile::exists(path));
            const QString media = TestEnv::root() + QStringLiteral("/Song ü.mp3");
            store.record(*finished(QStringLiteral("https://music.youtube.com/watch?v=x"), QStringLiteral("Song \"q\" \\ \n\x01"),
                                   DownloadMode::audioOnly, std::nullopt, media));
            now = now.addMSecs(1001);
            store.record(*finished(QStringLiteral("https://vimeo.com/1"), QString(), DownloadMode::videoOnly, QStringLiteral("Films")));
            HistoryEntry picture = entry(QStringLiteral("Sunset"), QStringLiteral("/p/Sunset.jpg"));
            picture.setDate(QDateTime(QDate(1999, 12, 31), QTime(23, 59, 59, 250), Qt::UTC)); // before 2001
            store.add(picture);
            store.toggleArchive(store.entries().at(1));
            written = store.entries();
            store.waitForPendingSave();

            const QJsonObject song = fileArray(path).at(2).toObject();
            QCOMPARE(song.value(QStringLiteral("source")).toString(), QStringLiteral("YouTube"));
            QCOMPARE(song.value(QStringLiteral("mode")).toString(), QStringLiteral("Audio only"));
            QCOMPARE(song.value(QStringLiteral("category")).toString(), QStringLiteral("Videos"));
            QCOMPARE(song.value(QStringLiteral("filePath")).toString(), media);
            QCOMPARE(song.value(QStringLiteral("date")).toDouble(), 795193766.535); // seconds since 2001 began
            QVERIFY(QRegularExpression(QStringLiteral("^[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}$")).match(song.value(QStringLiteral("id")).toString()).hasMatch());
            const QJsonObject clip = fileArray(path).at(1).toObject();
            QCOMPARE(clip.value(QStringLiteral("mode")).toString(), QStringLiteral("Video only (no audio)"));
            QCOMPARE(clip.value(QStringLiteral("archived")).toBool(), true);
            QCOMPARE(clip.keys().size(), 8); // no filePath without a file
            // Indented, one key per line.
            const QStringList lines = QString::fromUtf8(readAll(path)).split(u'\n', Qt::SkipEmptyParts);
            const QRegularExpression layout(QStringLiteral(R"(^(\[|\]|  \{|  \},?|    "[a-zA-Z]+" ?: ?[^,]+,?)$)"));
            for (const QString &line : lines)
                QVERIFY2(layout.match(line).hasMatch(), qPrintable(line));
            QCOMPARE(lines.size(), 2 + 3 * 2 + 9 + 8 + 9);
        }
        QCOMPARE(HistoryStore(path).entries(), written);
    }

    void redownloadRefreshesInPlace() {
        const QString path = freshPath();
        QDateTime now = QDateTime::currentDateTimeUtc();
        HistoryStore store(path, [&now] { return now; });
        const QString a = QStringLiteral("https://www.youtube.com/watch?v=a");
        store.record(*finished(a, QStringLiteral("Old"), DownloadMode::audioOnly, QStringLiteral("Music"), QStringLiteral("/m/old.mp3")));
        store.record(*finished(QStringLiteral("https://vimeo.com/2"), QStringLiteral("B")));
        store.record(*finished(a + u'/', QStringLiteral("C"))); // another link: compared exactly
        store.toggleArchive(store.entries().at(2));
        const HistoryEntry before = store.entries().at(2);
        now = now.addDays(3);
        QSignalSpy changed(&store, &HistoryStore::entriesChanged);
        store.record(*finished(a, QStringLiteral("New"), DownloadMode::bestVideoAudio, QStringLiteral("Comedy"), QStringLiteral("/m/new.mp4")));
        QCOMPARE(changed.count(), 1);
        QCOMPARE(store.entries().size(), 3);
        HistoryEntry expected = before;
        expected.setTitle(QStringLiteral("New"));
        expected.setDate(now);
        expected.setFilePath(QStringLiteral("/m/new.mp4"));
        QCOMPARE(store.entries().at(2), expected); // same id, archived, source, category and mode
        store.record(*finished(a, QStringLiteral("Again"))); // no file found this time: the old path goes
        QCOMPARE(store.entries().at(2).filePath(), std::nullopt);
        store.waitForPendingSave();
        QCOMPARE(HistoryStore(path).entries(), store.entries());
    }

    // A file that exists but cannot be read is the user's lost history: it is set aside, never saved over.
    void unreadableFileIsKeptAside_data() {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<int>("entries"); // -1: unreadable
        QTest::newRow("empty file") << QByteArray() << 0;
        QTest::newRow("byte-order mark") << QByteArray("\xef\xbb\xbf" + oneEntry) << 1;
        QTest::newRow("not json") << QByteArray("history") << -1;
        QTest::newRow("one bad among good ones") << QByteArray("[" + oneEntry.mid(1, oneEntry.size() - 2) + ",{\"id\":1}]") << -1;
    }
    void unreadableFileIsKeptAside() {
        QFETCH(QByteArray, content);
        QFETCH(int, entries);
        const QString path = freshPath();
        const QString aside = path + QStringLiteral(".unreadable-2025-07-01");
        QVERIFY(writeAll(path, content));
        QVERIFY(writeAll(aside, "an earlier casualty the same day"));
        const QDateTime now(QDate(2025, 7, 1), QTime(23, 0), Qt::UTC);
        HistoryStore store(path, [&now] { return now; });
        AppSettings settings(path + QStringLiteral(".ini"));
        queuetest::RecordingNotifier notifier;
        queuetest::FakeEngine engine;
        DownloadQueue queue(settings, store, notifier, engine.services());
        store.record(*finished(QStringLiteral("https://youtu.be/new"), QStringLiteral("New")));
        store.waitForPendingSave();

        QCOMPARE(HistoryStore(path).entries().size(), std::max(entries, 0) + 1);
        QCOMPARE(readAll(aside), QByteArray("an earlier casualty the same day"));
        if (entries >= 0) {
            QCOMPARE(store.loadNotice(), std::nullopt);
            QCOMPARE(queue.lastMessage(), std::nullopt);
        } else {
            QCOMPARE(readAll(aside + QStringLiteral("-2")), content);
            QCOMPARE(queue.lastMessage(), QStringLiteral("History could not be read \u00B7 kept as history.json.unreadable-2025-07-01-2"));
        }
    }

    // Only this program's own interrupted saves are swept, and only those of earlier runs.
    void startSweepsOnlyOwnStaleCopies() {
        const QString path = freshPath();
        const QString folder = QFileInfo(path).absolutePath();
        QVERIFY(writeAll(path, HistoryJson::encode({entry(QStringLiteral("kept"))})));
        const QStringList kept = {QStringLiteral(".history.json.vorlix-save-Fr35h1"), QStringLiteral("history.json"),
                                  QStringLiteral("history.json.Xy12Zq"), QStringLiteral("history.json.backup")};
        for (const QString &name : kept)
            if (name != QStringLiteral("history.json"))
                QVERIFY(writeAll(folder + u'/' + name, "[{\"half"));
        const QString stale = folder + QStringLiteral("/.history.json.vorlix-save-Ab12Cd");
        QVERIFY(writeAll(stale, "[{\"half"));
        QFile old(stale);
        QVERIFY(old.open(QIODevice::ReadWrite));
        QVERIFY(old.setFileTime(QDateTime::currentDateTimeUtc().addDays(-1), QFileDevice::FileModificationTime));
        old.close();
        QCOMPARE(HistoryStore(path).entries().size(), 1);
        QCOMPARE(QDir(folder).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot, QDir::Name), kept);
    }

    void archiveDeleteAndClear() {
        const QString path = freshPath();
        HistoryStore store(path);
        const QString media = TestEnv::root() + QStringLiteral("/kept.mp4");
        QVERIFY(writeAll(media, "not really a video"));
        for (int i = 0; i < 6; ++i)
            store.record(*finished(QStringLiteral("https://vimeo.com/%1").arg(i), QString::number(i), DownloadMode::bestVideoAudio, std::nullopt, media));
        const HistoryEntry original = store.entries().at(1); // newest first: 5 4 3 2 1 0
        for (int at : {1, 3, 5}) // archive 4, 2, 0
            store.toggleArchive(store.entries().at(at));
        QSignalSpy changed(&store, &HistoryStore::entriesChanged);
        store.toggleArchive(original); // a stale copy matches nothing
        QCOMPARE(changed.count(), 0);
        store.waitForPendingSave();
        QCOMPARE(fileArray(path).at(1).toObject().value(QStringLiteral("archived")).toBool(), true);

        HistoryEntry stale = store.entries().at(1); // deleting matches the id alone
        stale.setTitle(QStringLiteral("changed since"));
        store.deleteEntry(stale);
        store.clearUnarchived();
        store.clearUnarchived();
        QCOMPARE(changed.count(), 2);
        QStringList titles;
        for (const auto &e : store.entries())
            titles << e.title();
        QCOMPARE(titles, (QStringList{QStringLiteral("2"), QStringLiteral("0")}));
        store.waitForPendingSave();
        QCOMPARE(HistoryStore(path).entries(), store.entries());
        QVERIFY2(QFile::exists(media), "files on disk are never touched");
    }

    void burstOfChangesEndsWithTheNewestState() {
        const QString path = freshPath();
        HistoryStore store(path);
        for (int i = 0; i < 9000; ++i) // written in several chunks
            store.record(*finished(QStringLiteral("https://youtu.be/%1").arg(i), QStringLiteral("Entry %1 — ü").arg(i)));
        for (int i = 0; i < 301; ++i)
            store.toggleArchive(store.entries().at(i % 7));
        store.waitForPendingSave();
        const QByteArray file = readAll(path);
        QVERIFY(file.size() > 2 * (1 << 20));
        QCOMPARE(file, HistoryJson::encode(store.entries()));
        QCOMPARE(HistoryStore(path).entries(), store.entries());
        QCOMPARE(TestEnv::filesContaining(QFileInfo(path).absolutePath(), QStringLiteral("history.json.")), QStringList());
    }

    void failedSaveKeepsThePreviousFile_data() {
        QTest::addColumn<bool>("diskFull"); // else the folder's path is taken by a file
        QTest::newRow("disk refuses to grow the file") << true;
        QTest::newRow("folder path is a file") << false;
    }
    void failedSaveKeepsThePreviousFile() {
        QFETCH(bool, diskFull);
        const QString path = freshPath();
        const QString folder = QFileInfo(path).absolutePath();
        HistoryStore store(path);
        if (diskFull) {
            store.record(*finished(QStringLiteral("https://youtu.be/first"), QStringLiteral("First")));
            store.waitForPendingSave();
        } else {
            QVERIFY(writeAll(folder, "a file where the folder should be"));
        }
        const QByteArray before = readAll(path);
        struct rlimit oldLimit {};
        ::getrlimit(RLIMIT_FSIZE, &oldLimit);
        const auto oldHandler = std::signal(SIGXFSZ, SIG_IGN);
        struct rlimit limit = oldLimit;
        limit.rlim_cur = rlim_t(before.size() + 40);
        QCOMPARE(::setrlimit(RLIMIT_FSIZE, diskFull ? &limit : &oldLimit), 0);
        store.record(*finished(QStringLiteral("https://youtu.be/second"), QStringLiteral("Second")));
        store.waitForPendingSave();
        const QByteArray after = readAll(path);
        const QStringList leftovers = TestEnv::filesContaining(folder, QStringLiteral("history"));
        ::setrlimit(RLIMIT_FSIZE, &oldLimit);
        std::signal(SIGXFSZ, oldHandler);

        QCOMPARE(after, before);
        QCOMPARE(store.entries().first().title(), QStringLiteral("Second"));
        if (diskFull) {
            QCOMPARE(leftovers, QStringList{path});
            store.toggleArchive(store.entries().first()); // once the disk has room, everything is saved
            store.waitForPendingSave();
            QCOMPARE(HistoryStore(path).entries(), store.entries());
        }
    }

};

VORLIX_TEST_SUITE(HistoryTest)
#include "HistoryTest.moc"

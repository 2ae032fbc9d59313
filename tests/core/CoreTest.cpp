#include "TestEnv.h"
#include "TestMain.h"

#include "core/AppSettings.h"
#include "core/ClipRange.h"
#include "core/DownloadItem.h"
#include "core/MediaCategory.h"
#include "core/MediaSource.h"

#include <QDir>
#include <QFile>
#include <QTest>

#include <limits>
#include <optional>

Q_DECLARE_METATYPE(MediaSource)
Q_DECLARE_METATYPE(DownloadMode)
Q_DECLARE_METATYPE(std::optional<qint64>)

namespace {
const auto video = DownloadMode::bestVideoAudio;
const auto silent = DownloadMode::videoOnly;
const auto audio = DownloadMode::audioOnly;
const auto yt = MediaSource::youtube;
} // namespace

class CoreTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void detectUsesTheHostOnly_data() {
        QTest::addColumn<QString>("link");
        QTest::addColumn<MediaSource>("expected");
        const auto row = [](const char *link, MediaSource s) { QTest::newRow(link) << QString::fromUtf8(link) << s; };
        row("https://music.youtube.com/watch?v=a", yt);
        row("HTTPS://WWW.YouTube.COM/watch?v=a", yt);
        row("https://youtube.com.evil.example/watch", MediaSource::other);
        row("https://open.spotify.com/track/123", MediaSource::spotify);
        row("https://example.com/?next=https://youtube.com/watch", MediaSource::other);
    }
    void detectUsesTheHostOnly() {
        QFETCH(QString, link);
        QFETCH(MediaSource, expected);
        QCOMPARE(MediaSource::detect(link).rawValue(), expected.rawValue());
    }

    void classify() {
        const auto genre = [](MediaSource s, DownloadMode m, const QStringList &categories, const char *title) {
            return MediaCategory::classify(s, m, categories, QString::fromUtf8(title));
        };
        const QStringList none, gaming{QStringLiteral("Gaming")};
        QCOMPARE(genre(MediaSource::spotify, video, {QStringLiteral("Comedy")}, "Episode 4 — interview"), QStringLiteral("Music"));
        QCOMPARE(genre(yt, video, none, "Guitar Lesson: Live at the Arena"), QStringLiteral("Tutorials")); // table order
        QCOMPARE(genre(yt, video, none, "Lakers vs"), QStringLiteral("Sports"));
        QCOMPARE(genre(yt, video, none, "Lakers vs. Celtics"), QStringLiteral("Videos"));
        QCOMPARE(genre(yt, video, none, "COVER - My Song"), QStringLiteral("Music"));
        QCOMPARE(genre(yt, video, none, "Discover"), QStringLiteral("Videos")); // a keyword inside a word is no keyword
        QCOMPARE(genre(yt, video, gaming, "Official Video"), QStringLiteral("Music"));
        QCOMPARE(genre(yt, video, {QStringLiteral("Howto & Style")}, "Bread"), QStringLiteral("Tutorials"));
        QCOMPARE(genre(yt, audio, {QString()}, "Untitled"), QStringLiteral("Music"));
    }

    void libraryFolder() {
        const auto folder = [](MediaSource s, DownloadMode m, bool clip, std::optional<QString> category, const char *link) {
            return MediaCategory::libraryFolder(s, m, clip, category, QString::fromUtf8(link));
        };
        const auto gaming = std::optional<QString>(QStringLiteral("Gaming"));
        const auto ig = MediaSource::instagram;
        QCOMPARE(folder(ig, video, false, {}, "https://www.instagram.com/REEL/abc"), QStringLiteral("Instagram/Reels"));
        QCOMPARE(folder(ig, video, false, {}, "https://www.instagram.com/stories/a/reel/1"), QStringLiteral("Instagram/Reels"));
        QCOMPARE(folder(ig, video, false, {}, "https://www.instagram.com/?next=/reel/a"), QStringLiteral("Instagram/Posts"));
        QCOMPARE(folder(ig, audio, true, {}, "https://www.instagram.com/reel/a/"), QStringLiteral("Instagram/Sound FX"));
        QCOMPARE(folder(yt, audio, false, gaming, "https://youtu.be/a"), QStringLiteral("YouTube/Audio"));
        QCOMPARE(folder(yt, silent, true, gaming, "https://youtu.be/a"), QStringLiteral("YouTube/Gaming"));
        QCOMPARE(folder(yt, video, false, QString(), "https://youtu.be/a"), QStringLiteral("YouTube/Videos"));
        QCOMPARE(folder(MediaSource::tiktok, video, false, gaming, "https://tiktok.com/@a/video/1"), QStringLiteral("TikTok"));
        QCOMPARE(folder(MediaSource::other, video, false, {}, "https://example.com/v.mp4"), QStringLiteral("Other"));
    }
    void seconds_data() {
        QTest::addColumn<QString>("text");
        QTest::addColumn<std::optional<qint64>>("expected");
        const auto row = [](const char *text, std::optional<qint64> v) { QTest::newRow(text) << QString::fromUtf8(text) << v; };
        const std::optional<qint64> none;
        row(" \t1:30\t", 90);
        row("1:02:15", 3735);
        row("", none);
        row("\u0661\u0662", none); // Arabic-Indic digits are not ASCII digits
        row("9223372036854775807", std::numeric_limits<qint64>::max());
    }
    void seconds() {
        QFETCH(QString, text);
        QFETCH(std::optional<qint64>, expected);
        QCOMPARE(ClipRange::seconds(text), expected);
    }

    void sectionExpression_data() {
        QTest::addColumn<QString>("start");
        QTest::addColumn<QString>("end");
        QTest::addColumn<QString>("expected"); // empty = none
        QTest::newRow("open end") << QStringLiteral("1:20") << QString() << QStringLiteral("*80-inf");
        QTest::newRow("bad start") << QStringLiteral("abc") << QStringLiteral("10") << QStringLiteral("*0-10");
        QTest::newRow("blank but typed") << QStringLiteral(" ") << QString() << QStringLiteral("*0-inf");
        QTest::newRow("none") << QString() << QString() << QString();
    }
    void sectionExpression() {
        QFETCH(QString, start);
        QFETCH(QString, end);
        QFETCH(QString, expected);
        const ClipRange range{start, end};
        QCOMPARE(range.isValid(), !expected.isEmpty());
        QCOMPARE(range.sectionExpression().value_or(QString()), expected);
        QCOMPARE(ClipRange::fromJson(range.toJson()), std::optional<ClipRange>(range));
    }

    void newItemIdIsUpperCase() {
        const QString id = DownloadItem::make(QStringLiteral("https://example.com/v"), DownloadMode::audioOnly)->idString();
        QCOMPARE(id, id.toUpper());
    }

    void settingsDefaultsAreNotWritten() {
        AppSettings s(TestEnv::root() + QStringLiteral("/fresh.conf"));
        QVERIFY(!QFile::exists(s.fileName()) || QFile(s.fileName()).size() == 0);
    }

    void settingsWritesAreSeenByEveryReaderWithoutRestart() {
        const QString path = TestEnv::root() + QStringLiteral("/persist.conf");
        AppSettings b(path);
        {
            AppSettings a(path);
            a.setMaxConcurrent(7);
            a.setLastEngineUpdateCheck(1700000000.25);
            a.setDefaultModeRaw(QStringLiteral("not-a-mode"));
            a.setSmartMode(!b.smartMode());
            QCOMPARE(b.smartMode(), a.smartMode());
        }
        AppSettings again(path);
        QCOMPARE(again.maxConcurrent(), 7);
        QCOMPARE(again.lastEngineUpdateCheck(), 1700000000.25);
        QCOMPARE(again.defaultModeRaw(), QStringLiteral("not-a-mode")); // readers fall back themselves
    }

    void downloadFolderIsCreatedWhenPossible() {
        AppSettings s(TestEnv::root() + QStringLiteral("/folders.conf"));
        const QString deep = TestEnv::root() + QStringLiteral("/a/b/c/Vorlix");
        s.setDownloadFolderPath(deep);
        QCOMPARE(s.downloadFolder(), deep);
        QVERIFY(QDir(deep).exists());
    }
};

VORLIX_TEST_SUITE(CoreTest)
#include "CoreTest.moc"

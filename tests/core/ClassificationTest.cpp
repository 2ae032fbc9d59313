#include "TestMain.h"

#include "core/MediaCategory.h"
#include "core/MediaSource.h"

#include <QTest>

#include <optional>

Q_DECLARE_METATYPE(MediaSource)
Q_DECLARE_METATYPE(DownloadMode)

namespace {
const auto video = DownloadMode::bestVideoAudio;
const auto silent = DownloadMode::videoOnly;
const auto audio = DownloadMode::audioOnly;
const auto yt = MediaSource::youtube;
} // namespace

class ClassificationTest : public QObject {
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
};

VORLIX_TEST_SUITE(ClassificationTest)
#include "ClassificationTest.moc"

#include "TestMain.h"

#include "core/MediaCategory.h"
#include "core/MediaSource.h"

#include <QTest>

#include <optional>

Q_DECLARE_METATYPE(MediaSource)
Q_DECLARE_METATYPE(DownloadMode)
Q_DECLARE_METATYPE(std::optional<QString>)

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
        row("https://youtu.be/abc", yt);
        row("HTTPS://WWW.YouTube.COM/watch?v=a", yt);
        row("https://user:pw@www.youtube.com:8443/watch", yt);
        row("https://www.youtube.com./watch?v=a", yt);
        row("https://youtube.com.evil.example/watch", MediaSource::other);
        row("https://notyoutube.com/watch", MediaSource::other);
        row("https://open.spotify.com/track/123", MediaSource::spotify);
        row("https://vm.tiktok.com/ZM123/", MediaSource::tiktok);
        row("https://fb.watch/abc/", MediaSource::facebook);
        row("https://mobile.twitter.com/user/status/1", MediaSource::x);
        row("https://box.com/file", MediaSource::other);
        row("https://x.com.au/page", MediaSource::other);
        row("https://example.com/?next=https://youtube.com/watch", MediaSource::other);
        row("youtube.com/watch?v=a", MediaSource::other);
        row("file:///home/me/youtube.com.mp4", MediaSource::other);
        row("", MediaSource::other);
        row("http://[youtube.com/x", MediaSource::other);
    }
    void detectUsesTheHostOnly() {
        QFETCH(QString, link);
        QFETCH(MediaSource, expected);
        QCOMPARE(MediaSource::detect(link).rawValue(), expected.rawValue());
    }

    void classify_data() {
        QTest::addColumn<MediaSource>("source");
        QTest::addColumn<DownloadMode>("mode");
        QTest::addColumn<QStringList>("categories");
        QTest::addColumn<QString>("title");
        QTest::addColumn<QString>("genre");
        const auto row = [](const char *name, MediaSource s, DownloadMode m, QStringList cats, const char *title,
                            const char *genre) {
            QTest::newRow(name) << s << m << cats << QString::fromUtf8(title) << QString::fromUtf8(genre);
        };
        const QStringList none;
        row("source rule first", MediaSource::spotify, video, {QStringLiteral("Comedy")}, "Episode 4 — interview", "Music");
        row("tutorial beats music", yt, video, none, "Guitar Lesson: Live at the Arena", "Tutorials");
        row("podcast beats vlog", yt, video, none, "Vlog #12: Q&A", "Podcasts");
        row("non-ASCII lower-cased", yt, video, none, "ÜBER-TUTORIAL", "Tutorials");
        row("vs at the very end", yt, video, none, "Lakers vs", "Sports");
        row("vs needs its space", yt, video, none, "Lakers vs. Celtics", "Videos");
        row("cover at the start", yt, video, none, "COVER - My Song", "Music");
        row("cover inside a word", yt, video, none, "Discover", "Videos");
        row("learn inside learning", yt, video, none, "Machine learning", "Videos");
        row("ft. needs a space", yt, video, none, "Soft. Quiet.", "Videos");
        row("keyword beats category", yt, video, {QStringLiteral("Gaming")}, "Official Video", "Music");
        row("first category", yt, video, {QStringLiteral("Gaming"), QStringLiteral("Music")}, "Let's play", "Gaming");
        row("unknown first category", yt, video, {QStringLiteral("Unknown"), QStringLiteral("Music")}, "x", "Videos");
        row("category case-sensitive", yt, video, {QStringLiteral("howto & style")}, "Bread", "Videos");
        row("renamed category", yt, video, {QStringLiteral("Howto & Style")}, "Bread", "Tutorials");
        row("audio fallback", yt, audio, {QString()}, "Untitled", "Music");
        row("video fallback", MediaSource::other, silent, none, "", "Videos");
    }
    void classify() {
        QFETCH(MediaSource, source);
        QFETCH(DownloadMode, mode);
        QFETCH(QStringList, categories);
        QFETCH(QString, title);
        QFETCH(QString, genre);
        QCOMPARE(MediaCategory::classify(source, mode, categories, title), genre);
    }

    void libraryFolder_data() {
        QTest::addColumn<MediaSource>("source");
        QTest::addColumn<DownloadMode>("mode");
        QTest::addColumn<bool>("hasClip");
        QTest::addColumn<std::optional<QString>>("category");
        QTest::addColumn<QString>("link");
        QTest::addColumn<QString>("folder");
        const auto row = [](MediaSource s, DownloadMode m, bool clip, std::optional<QString> cat, const char *link,
                            const char *folder) {
            QTest::newRow(folder) << s << m << clip << cat << QString::fromUtf8(link) << QString::fromUtf8(folder);
        };
        const auto gaming = std::optional<QString>(QStringLiteral("Gaming"));
        const std::optional<QString> none;
        const auto ig = MediaSource::instagram;
        row(ig, video, false, none, "https://www.instagram.com/REEL/abc", "Instagram/Reels");
        row(ig, video, false, none, "https://www.instagram.com/stories/someone/1/", "Instagram/Stories");
        row(ig, video, false, none, "https://www.instagram.com/?next=/reel/a", "Instagram/Posts");
        row(ig, audio, true, none, "https://www.instagram.com/reel/a/", "Instagram/Sound FX");
        row(yt, audio, false, gaming, "https://youtu.be/a", "YouTube/Audio");
        row(yt, audio, true, gaming, "https://youtu.be/a", "YouTube/Sound FX");
        row(yt, silent, true, gaming, "https://youtu.be/a", "YouTube/Gaming");
        row(yt, video, false, std::optional<QString>(QString()), "https://youtu.be/a", "YouTube/Videos");
        row(MediaSource::tiktok, video, false, gaming, "https://tiktok.com/@a/video/1", "TikTok");
        row(MediaSource::other, video, false, none, "https://example.com/v.mp4", "Other");
    }
    void libraryFolder() {
        QFETCH(MediaSource, source);
        QFETCH(DownloadMode, mode);
        QFETCH(bool, hasClip);
        QFETCH(std::optional<QString>, category);
        QFETCH(QString, link);
        QFETCH(QString, folder);
        QCOMPARE(MediaCategory::libraryFolder(source, mode, hasClip, category, link), folder);
    }
};

VORLIX_TEST_SUITE(ClassificationTest)
#include "ClassificationTest.moc"

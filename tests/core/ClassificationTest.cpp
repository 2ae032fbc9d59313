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
} // namespace

class ClassificationTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void detectUsesTheHostOnly_data() {
        QTest::addColumn<QString>("link");
        QTest::addColumn<MediaSource>("expected");
        const auto row = [](const char *name, const char *link, MediaSource s) {
            QTest::newRow(name) << QString::fromUtf8(link) << s;
        };
        row("main domain", "https://youtube.com/watch?v=a", MediaSource::youtube);
        row("www", "https://www.youtube.com/watch?v=a", MediaSource::youtube);
        row("mobile sub-domain", "https://m.youtube.com/watch?v=a", MediaSource::youtube);
        row("music sub-domain", "https://music.youtube.com/watch?v=a", MediaSource::youtube);
        row("short link", "https://youtu.be/abc", MediaSource::youtube);
        row("upper-case host", "HTTPS://WWW.YouTube.COM/watch?v=a", MediaSource::youtube);
        row("port and user info", "https://user:pw@www.youtube.com:8443/watch", MediaSource::youtube);
        row("fully qualified host", "https://www.youtube.com./watch?v=a", MediaSource::youtube);
        row("host merely begins with domain", "https://youtube.com.evil.example/watch", MediaSource::other);
        row("domain glued to a longer label", "https://notyoutube.com/watch", MediaSource::other);
        row("spotify track", "https://open.spotify.com/track/123", MediaSource::spotify);
        row("instagram", "https://www.instagram.com/reel/xyz/", MediaSource::instagram);
        row("tiktok short link", "https://vm.tiktok.com/ZM123/", MediaSource::tiktok);
        row("vimeo", "https://vimeo.com/123456", MediaSource::vimeo);
        row("soundcloud mobile", "https://m.soundcloud.com/artist/song", MediaSource::soundcloud);
        row("twitch clips", "https://clips.twitch.tv/Clip", MediaSource::twitch);
        row("facebook", "https://www.facebook.com/watch/?v=1", MediaSource::facebook);
        row("facebook video link", "https://fb.watch/abc/", MediaSource::facebook);
        row("x", "https://x.com/user/status/1", MediaSource::x);
        row("twitter", "https://mobile.twitter.com/user/status/1", MediaSource::x);
        row("x.com is a suffix of box.com", "https://box.com/file", MediaSource::other);
        row("x.com inside another TLD", "https://x.com.au/page", MediaSource::other);
        row("dailymotion is not a source", "https://www.dailymotion.com/video/x1", MediaSource::other);
        row("site named in the query only", "https://example.com/?next=https://youtube.com/watch", MediaSource::other);
        row("site named in the path only", "https://example.com/youtube.com/watch", MediaSource::other);
        row("no scheme, so no host", "youtube.com/watch?v=a", MediaSource::other);
        row("file link", "file:///home/me/youtube.com.mp4", MediaSource::other);
        row("plain text", "just some words", MediaSource::other);
        row("empty", "", MediaSource::other);
        row("unparsable", "http://[youtube.com/x", MediaSource::other);
    }
    void detectUsesTheHostOnly() {
        QFETCH(QString, link);
        QFETCH(MediaSource, expected);
        QCOMPARE(MediaSource::detect(link).rawValue(), expected.rawValue());
    }

    void displayNamesAreFolderNames() {
        QStringList names;
        for (auto s : MediaSource::allCases) {
            names << MediaSource(s).rawValue();
            QCOMPARE(MediaSource::fromRawValue(MediaSource(s).rawValue()), s);
        }
        QCOMPARE(names, QStringList({QStringLiteral("YouTube"), QStringLiteral("Spotify"), QStringLiteral("Instagram"),
                                     QStringLiteral("TikTok"), QStringLiteral("Vimeo"), QStringLiteral("SoundCloud"),
                                     QStringLiteral("Twitch"), QStringLiteral("Facebook"), QStringLiteral("X"),
                                     QStringLiteral("Other")}));
        QCOMPARE(MediaSource::fromRawValue(QStringLiteral("youtube")), MediaSource::other);
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
        const auto yt = MediaSource::youtube;

        // The source rule beats everything.
        row("spotify ignores podcast words", MediaSource::spotify, video, {QStringLiteral("Comedy")},
            "Episode 4 — interview", "Music");
        row("soundcloud ignores title", MediaSource::soundcloud, video, none, "Stand-up set", "Music");
        // Rules in priority order, keywords as plain substrings.
        row("tutorial beats music", yt, video, none, "Guitar Lesson: Live at the Arena", "Tutorials");
        row("podcast beats vlog", yt, video, none, "Vlog #12: Q&A", "Podcasts");
        row("music beats sports", yt, video, none, "Championship Remix", "Music");
        row("title case is ignored", yt, video, none, "HOW TO Bake Bread", "Tutorials");
        row("non-ASCII title is lower-cased", yt, video, none, "ÜBER-TUTORIAL", "Tutorials");
        row("lyric inside lyrics", yt, video, none, "Song (Lyrics)", "Music");
        row("final inside finally", yt, video, none, "Finally home", "Sports");
        row("match inside matching", yt, video, none, "Pattern matching in Rust", "Sports");
        row("vs at the very end", yt, video, none, "Lakers vs", "Sports");
        row("vs needs its space", yt, video, none, "Lakers vs. Celtics", "Videos");
        row("cover at the very start", yt, video, none, "COVER - My Song", "Music");
        row("cover inside a word", yt, video, none, "Discover", "Videos");
        row("cover with parenthesis", yt, video, none, "Song (Acoustic Cover)", "Music");
        row("learn at the very end", yt, video, none, "Things to learn", "Tutorials");
        row("learn inside learning", yt, video, none, "Machine learning", "Videos");
        row("ep. needs a space before", yt, video, none, "ep. 5 with friends", "Podcasts");
        row("ft. needs a space before", yt, video, none, "Soft. Quiet.", "Videos");
        row("feat.", yt, video, none, "Track (feat. Someone)", "Music");
        row("tech", yt, video, none, "Phone Review", "Tech");
        row("comedy", yt, video, none, "Stand-Up Special", "Comedy");
        row("vlogs", yt, video, none, "A day in the life of a baker", "Vlogs");
        row("keyword beats category", yt, video, {QStringLiteral("Gaming")}, "Official Video", "Music");
        // Only the first platform category is looked up.
        row("first category", yt, video, {QStringLiteral("Gaming"), QStringLiteral("Music")}, "Let's play", "Gaming");
        row("unknown first category", yt, video, {QStringLiteral("Unknown"), QStringLiteral("Music")}, "Let's play",
            "Videos");
        row("category is case-sensitive", yt, video, {QStringLiteral("howto & style")}, "Bread", "Videos");
        row("renamed category", yt, video, {QStringLiteral("Howto & Style")}, "Bread", "Tutorials");
        row("news", yt, video, {QStringLiteral("Nonprofits & Activism")}, "", "News");
        row("travel is vlogs", yt, video, {QStringLiteral("Travel & Events")}, "", "Vlogs");
        row("pets are entertainment", yt, audio, {QStringLiteral("Pets & Animals")}, "", "Entertainment");
        row("categories from another site", MediaSource::vimeo, video, {QStringLiteral("Film & Animation")}, "",
            "Films");
        // Mode fallback.
        row("audio without hints", yt, audio, none, "Untitled", "Music");
        row("video without hints", yt, video, none, "Untitled", "Videos");
        row("silent video without hints", MediaSource::other, silent, none, "", "Videos");
        row("empty category string", yt, audio, {QString()}, "", "Music");
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
        const auto row = [](const char *name, MediaSource s, DownloadMode m, bool clip, std::optional<QString> cat,
                            const char *link, const char *folder) {
            QTest::newRow(name) << s << m << clip << cat << QString::fromUtf8(link) << QString::fromUtf8(folder);
        };
        const auto music = std::optional<QString>(QStringLiteral("Music"));
        const auto gaming = std::optional<QString>(QStringLiteral("Gaming"));
        const std::optional<QString> none;
        const auto ig = MediaSource::instagram;
        const auto yt = MediaSource::youtube;

        row("reel", ig, video, false, none, "https://www.instagram.com/reel/abc/", "Instagram/Reels");
        row("reels list", ig, video, false, none, "https://www.instagram.com/reels/abc/", "Instagram/Reels");
        row("reel in capitals", ig, video, false, none, "https://www.instagram.com/REEL/abc", "Instagram/Reels");
        row("story", ig, video, false, none, "https://www.instagram.com/stories/someone/1/", "Instagram/Stories");
        row("post", ig, video, false, none, "https://www.instagram.com/p/abc/", "Instagram/Posts");
        row("reel only in the query", ig, video, false, none, "https://www.instagram.com/?next=/reel/a", "Instagram/Posts");
        row("unparsable instagram link", ig, video, false, none, "http://[instagram", "Instagram/Posts");
        row("instagram audio clip", ig, audio, true, none, "https://www.instagram.com/reel/a/", "Instagram/Sound FX");
        row("youtube audio", yt, audio, false, music, "https://youtu.be/a", "YouTube/Audio");
        row("youtube audio clip", yt, audio, true, music, "https://youtu.be/a", "YouTube/Sound FX");
        row("youtube video by genre", yt, video, false, gaming, "https://youtu.be/a", "YouTube/Gaming");
        row("youtube video clip by genre", yt, silent, true, gaming, "https://youtu.be/a", "YouTube/Gaming");
        row("youtube without genre", yt, video, false, none, "https://youtu.be/a", "YouTube/Videos");
        row("youtube empty genre", yt, video, false, std::optional<QString>(QString()), "https://youtu.be/a",
            "YouTube/Videos");
        row("spotify", MediaSource::spotify, audio, false, music, "https://open.spotify.com/track/1", "Spotify");
        row("spotify clip", MediaSource::spotify, audio, true, music, "https://open.spotify.com/track/1",
            "Spotify/Sound FX");
        row("tiktok has no genre level", MediaSource::tiktok, video, false, gaming, "https://tiktok.com/@a/video/1",
            "TikTok");
        row("soundcloud", MediaSource::soundcloud, audio, false, music, "https://soundcloud.com/a/b", "SoundCloud");
        row("x", MediaSource::x, video, false, none, "https://x.com/a/status/1", "X");
        row("other", MediaSource::other, video, false, none, "https://example.com/v.mp4", "Other");
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

#include "Await.h"
#include "FixtureSite.h"
#include "TestEnv.h"
#include "TestMain.h"

#include "discovery/SpotifyResolver.h"
#include "engine/YtDlp.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTest>
#include <QUuid>

using namespace Qt::StringLiterals;
using SpotifyResolver::Endpoint;
using YtDlp::SearchResult;

namespace {
SearchResult hit(const QString &id, const QString &title, const QString &channel = {}, std::optional<double> seconds = {}) {
    return SearchResult{id, title, u"https://www.youtube.com/watch?v="_s + id, channel, QString(), seconds, QString()};
}

QByteArray page(const QString &title, const QString &description, const QString &image, bool contentFirst = false) {
    QString html = u"<html><head><title>Spotify</title>\n"_s;
    const QString tag = contentFirst ? u"<meta content=\"%2\" property=\"og:%1\" />\n"_s : u"<meta property=\"og:%1\" content=\"%2\">\n"_s;
    html += tag.arg(u"title"_s, title) + tag.arg(u"description"_s, description) + tag.arg(u"image"_s, image);
    return (html + u"</head></html>"_s).toUtf8();
}

Endpoint endpointAt(const QString &oEmbed, int timeoutMs = 5000) {
    Endpoint e{QUrl(oEmbed)};
    e.oEmbedTimeout = e.pageTimeout = e.artTimeout = std::chrono::milliseconds(timeoutMs);
    return e;
}

QByteArray run(const QString &tool, const QStringList &args) {
    QProcess p;
    p.start(QFileInfo(TestEnv::ffmpeg()).absolutePath() + u'/' + tool, QStringList{u"-v"_s, u"error"_s} + args);
    p.waitForFinished(30000);
    return p.readAllStandardOutput();
}

// A digest of the audio packets alone: equal before and after means the audio was copied.
QByteArray audioDigest(const QString &file) {
    return run(u"ffmpeg"_s, {u"-i"_s, file, u"-map"_s, u"0:a"_s, u"-c"_s, u"copy"_s, u"-f"_s, u"md5"_s, u"-"_s});
}

QString copyInto(const QString &source, const QString &name) {
    const QString path = TestEnv::root() + u"/tag-"_s + QUuid::createUuid().toString(QUuid::Id128) + u'/' + name;
    TestEnv::writeFile(path, TestEnv::readFile(source));
    return path;
}
} // namespace

class SpotifyResolverTest : public QObject {
    Q_OBJECT
    FixtureSite site;
    QString mp3, m4a;

    QString track(const QString &name) const { return site.url(u"/track/"_s + name); }
    Endpoint oEmbed(const QString &variant) const { return endpointAt(site.url(u'/' + variant + u"/oembed"_s)); }

private Q_SLOTS:
    void initTestCase() {
        QVERIFY(site.isRunning());
        mp3 = TestEnv::root() + u"/tone.mp3"_s;
        m4a = TestEnv::root() + u"/tone.m4a"_s;
        const QStringList sine{u"-f"_s, u"lavfi"_s, u"-i"_s, u"sine=frequency=440:duration=1"_s};
        QVERIFY(TestEnv::runFfmpeg(sine + QStringList{u"-c:a"_s, u"libmp3lame"_s, mp3}));
        QVERIFY(TestEnv::runFfmpeg(sine + QStringList{u"-c:a"_s, u"aac"_s, m4a}));
        QVERIFY(TestEnv::runFfmpeg({u"-f"_s, u"lavfi"_s, u"-i"_s, u"color=c=red:s=64x64"_s, u"-frames:v"_s, u"1"_s,
                                    site.put(u"art/cover.jpg"_s, {})}));
        site.put(u"ok/oembed"_s, u"{\"title\": \"Midnight City\", \"thumbnail_url\": \"%1\"}"_s.arg(site.url(u"/art/cover.jpg"_s)).toUtf8());
        site.put(u"nothumb/oembed"_s, R"({"title": "Midnight City", "thumbnail_url": 12})");
        site.put(u"track/full"_s, page(u"Midnight City - song and lyrics by M83 | Spotify"_s,
                                       u"M83 · Hurry Up, We&#39;re Dreaming · Song · 2011"_s, site.url(u"/art/page.jpg"_s)));
        site.put(u"track/reversed"_s, page(u"Rock &amp; Roll &quot;Live&quot; &amp;lt;"_s,
                                           u"Listen to Rock on Spotify. Song BY The Band &amp; Co"_s, u"not an address"_s, true));
    }

    void linksAndTies() {
        QVERIFY(SpotifyResolver::isSpotifyTrackURL(u"https://open.spotify.com/intl-fr/track/4iV5W9uYEdYUVa79Axb7Rh?si=1"_s));
        QVERIFY(!SpotifyResolver::isSpotifyTrackURL(u"https://open.spotify.com/album/1ATL5GLyefJaxhQzSPVrLX"_s));
        QVERIFY(!SpotifyResolver::isSpotifyTrackURL(u"https://example.com/track/123"_s));
        const QList<SearchResult> hits{hit(u"kar"_s, u"Midnight City (Live) [Karaoke]"_s, u"Sing King"_s, 210),
                                       hit(u"off"_s, u"Midnight City (Official Audio)"_s, u"M83 - Topic"_s, 210),
                                       hit(u"dup"_s, u"Midnight City (Official Audio)"_s, u"M83 - Topic"_s, 210)};
        QCOMPARE(SpotifyResolver::pickBest(hits, u"Midnight City"_s, u"M83"_s)->id, u"off"_s); // ties keep search order
        QVERIFY(!SpotifyResolver::pickBest({}, u"x"_s, u"y"_s));
    }

    // Each scoring rule alone: the other rules add nothing to these candidates ("qq" is in no title).
    void scoring_data() {
        QTest::addColumn<QString>("title");
        QTest::addColumn<QString>("channel");
        QTest::addColumn<double>("seconds"); // < 0: no duration
        QTest::addColumn<QString>("wanted"); // title|artist
        QTest::addColumn<double>("expected");
        const auto row = [](const char *name, const char *title, const char *channel, double seconds, const char *wanted, double expected) {
            QTest::newRow(name) << QString::fromUtf8(title) << QString::fromUtf8(channel) << seconds << QString::fromUtf8(wanted) << expected;
        };
        row("half the title words", "Midnight Town", "", -1, "Midnight City|", 20);
        row("stop words and single letters ignored", "CITY", "", -1, "The City feat A|", 40);
        row("artist text in the channel, not its words", "zz", "M83VEVO", -1, "qq|M83", 25);
        row("artist words anywhere", "zz", "Punk Daft Records", -1, "qq|Daft Punk", 15);
        row("half the artist words", "zz Daft", "", -1, "qq|Daft Punk", 7.5);
        row("official audio", "zz (Official Audio)", "", -1, "qq|", 22);
        row("official video", "zz [official video]", "", -1, "qq|", 12);
        row("topic channel", "zz", "Someone - Topic", -1, "qq|", 18);
        row("lyrics", "zz (Lyrics)", "", -1, "qq|", 4);
        row("lyrics with karaoke", "zz lyric karaoke", "", -1, "qq|", -50);
        row("a penalty counts once", "zz remix REMIX", "", -1, "qq|", -15);
        row("cover fires inside discover", "Discover Weekly", "", -1, "qq|", -20);
        row("59 s", "zz", "", 59, "qq|", -25);
        row("60 s", "zz", "", 60, "qq|", 0);
        row("119 s", "zz", "", 119, "qq|", 0);
        row("120 s", "zz", "", 120, "qq|", 8);
        row("480 s", "zz", "", 480, "qq|", 8);
        row("481 s", "zz", "", 481, "qq|", 0);
        row("900 s", "zz", "", 900, "qq|", 0);
        row("901 s", "zz", "", 901, "qq|", -20);
    }
    void scoring() {
        QFETCH(QString, title);
        QFETCH(QString, channel);
        QFETCH(double, seconds);
        QFETCH(QString, wanted);
        const auto duration = seconds < 0 ? std::nullopt : std::optional(seconds);
        QTEST(SpotifyResolver::score(hit(u"x"_s, title, channel, duration), wanted.section(u'|', 0, 0), wanted.section(u'|', 1)), "expected");
    }

    void fetchMetadataCombinesBothSources_data() {
        QTest::addColumn<QString>("oEmbedVariant");
        QTest::addColumn<QString>("trackPath");
        QTest::addColumn<QString>("expected"); // title|artist|artwork path, "-" for none
        QTest::newRow("both") << u"ok"_s << u"full"_s << u"Midnight City|M83|/art/cover.jpg"_s;
        QTest::newRow("oembed 404") << u"missing"_s << u"full"_s << u"Midnight City - song and lyrics by M83 | Spotify|M83|/art/page.jpg"_s;
        QTest::newRow("page 500") << u"ok"_s << u"full?status=500"_s << u"Midnight City|-|/art/cover.jpg"_s;
        QTest::newRow("page reversed, entities") << u"missing"_s << u"reversed"_s << u"Rock & Roll \"Live\" <|The Band & Co|-"_s;
    }
    void fetchMetadataCombinesBothSources() {
        QFETCH(QString, oEmbedVariant);
        QFETCH(QString, trackPath);
        QFETCH(QString, expected);
        const auto m = vtest::await(SpotifyResolver::fetchMetadata(track(trackPath), oEmbed(oEmbedVariant)));
        const QString art = m.artwork.isEmpty() ? u"-"_s : m.artwork.toString().remove(site.url(QString()));
        QCOMPARE(QStringList({m.title.value_or(u"-"_s), m.artist.value_or(u"-"_s), art}).join(u'|'), expected);
    }

    void resolveFindsTheRecording_data() {
        QTest::addColumn<QString>("oEmbedVariant");
        QTest::addColumn<QString>("search"); // what the downloader does
        QTest::addColumn<QString>("expectedQuery");
        QTest::addColumn<QString>("expectedTitle");
        QTest::newRow("best hit") << u"ok"_s << u"printf 'VORLIXSR\\tkar\\tMidnight City (Live) [Karaoke]\\tSing King\\t245\\t10\\n"
                                               "VORLIXSR\\toff\\tMidnight City (Official Audio)\\tM83 - Topic\\t210\\t10\\n'\n"_s
                                  << u"https://www.youtube.com/watch?v=off"_s << u"Midnight City"_s;
        QTest::newRow("search fails") << u"ok"_s << u"echo 'ERROR: offline' >&2; exit 1\n"_s
                                      << u"ytsearch1:M83 Midnight City official audio"_s << u"Midnight City"_s;
        QTest::newRow("no hits, page title") << u"missing"_s << u"echo 'nothing'\n"_s
                                             << u"ytsearch1:M83 Midnight City M83 | Spotify official audio"_s << u"Midnight City M83 | Spotify"_s;
    }
    void resolveFindsTheRecording() {
        QFETCH(QString, oEmbedVariant);
        QFETCH(QString, search);
        QFETCH(QString, expectedQuery);
        QFETCH(QString, expectedTitle);
        TestEnv::standIn(u"yt-dlp"_s, search);
        const auto r = vtest::await(SpotifyResolver::resolve(track(u"full"_s), oEmbed(oEmbedVariant)));
        QCOMPARE(QStringList({r.searchQuery, r.track.title, r.track.artist}), QStringList({expectedQuery, expectedTitle, u"M83"_s}));
        QVERIFY(!r.track.artworkURL.isEmpty());
        // an ordinary video search for the first six hits, artist first
        QCOMPARE(TestEnv::standInArgs(u"yt-dlp"_s).last(), u"ytsearch6:M83 "_s + expectedTitle);
    }

    void applyTagsWritesTagsCoverAndName_data() {
        QTest::addColumn<QString>("source");
        QTest::addColumn<QString>("art");
        QTest::addColumn<QString>("artist");
        QTest::addColumn<QString>("expected"); // file name, streams with their attached-picture flag, ID3 version
        QTest::newRow("mp3 with cover") << mp3 << u"/art/cover.jpg"_s << u"Band/Two"_s << u"Band-Two - Live- 1991.mp3|audio0,video1|ID3v3"_s;
        QTest::newRow("mp3, cover missing") << mp3 << u"/art/gone.jpg"_s << u"Band/Two"_s << u"Band-Two - Live- 1991.mp3|audio0|ID3v4"_s;
        QTest::newRow("m4a, no artist") << m4a << u"/art/cover.jpg"_s << QString() << u"Live- 1991.m4a|audio0,video1|"_s;
    }
    void applyTagsWritesTagsCoverAndName() {
        QFETCH(QString, source);
        QFETCH(QString, art);
        QFETCH(QString, artist);
        QFETCH(QString, expected);
        const QString download = copyInto(source, u"Some Upload [abc]."_s + QFileInfo(source).suffix());
        const QByteArray audioBefore = audioDigest(download);
        const SpotifyTrack info{u"Live: 1991"_s, artist, QUrl(site.url(art))};
        const QString result = vtest::await(SpotifyResolver::applyTags(info, download, endpointAt(QString())));
        QCOMPARE(QDir(QFileInfo(download).path()).entryList(QDir::Files | QDir::Hidden), QStringList{QFileInfo(result).fileName()});
        QCOMPARE(QFileInfo(result).path(), QFileInfo(download).path());
        QVERIFY(TestEnv::filesContaining(QDir::tempPath(), u"vorlix-art-"_s).isEmpty());

        const QJsonObject probe = QJsonDocument::fromJson(run(u"ffprobe"_s, {u"-show_entries"_s,
            u"format_tags=title,artist:stream=codec_type:stream_disposition=attached_pic"_s, u"-of"_s, u"json"_s, result})).object();
        QCOMPARE(probe[u"format"_s][u"tags"_s][u"title"_s].toString(), info.title);
        QCOMPARE(probe[u"format"_s][u"tags"_s][u"artist"_s].toString(), artist);
        QStringList streams;
        for (const QJsonValue &s : probe[u"streams"_s].toArray())
            streams << s[u"codec_type"_s].toString() + QString::number(s[u"disposition"_s][u"attached_pic"_s].toInt());
        const QByteArray head = TestEnv::readFile(result).left(4);
        const QString id3 = head.startsWith("ID3") ? u"ID3v"_s + QString::number(head[3]) : QString();
        QCOMPARE(QStringList({QFileInfo(result).fileName(), streams.join(u','), id3}).join(u'|'), expected);
        QVERIFY(!audioBefore.isEmpty());
        QCOMPARE(audioDigest(result), audioBefore); // copied, never re-encoded
    }

    void applyTagsNeverLosesAFile() {
        // The download already bears the track's name, and "… 2" is taken too.
        const QString download = copyInto(mp3, u"Artist - Song.mp3"_s);
        const QString taken = QFileInfo(download).absolutePath() + u"/Artist - Song 2.mp3"_s;
        QVERIFY(QFile::copy(mp3, taken));
        const QString result = vtest::await(SpotifyResolver::applyTags({u"Song"_s, u"Artist"_s, QUrl()}, download, endpointAt(QString())));
        QCOMPARE(QFileInfo(result).fileName(), u"Artist - Song 3.mp3"_s);
        QVERIFY(!QFileInfo::exists(download));
        QCOMPARE(TestEnv::readFile(taken), TestEnv::readFile(mp3));

        // A file ffmpeg cannot read is left as it was, alone in its folder.
        const QString bad = copyInto(QString(), u"not audio.mp3"_s);
        QVERIFY(TestEnv::writeFile(bad, "not an mp3\n"));
        const SpotifyTrack withArt{u"Song"_s, u"Artist"_s, QUrl(site.url(u"/art/cover.jpg"_s))};
        QCOMPARE(vtest::await(SpotifyResolver::applyTags(withArt, bad, endpointAt(QString()))), bad);
        QCOMPARE(TestEnv::readFile(bad), QByteArray("not an mp3\n"));
        QCOMPARE(QDir(QFileInfo(bad).absolutePath()).entryList(QDir::Files | QDir::Hidden), QStringList{u"not audio.mp3"_s});
        QVERIFY(TestEnv::filesContaining(QDir::tempPath(), u"vorlix-art-"_s).isEmpty());
    }

    void cleanupTestCase() { TestEnv::removeStubTool(u"yt-dlp"_s); }
};

VORLIX_TEST_SUITE(SpotifyResolverTest)
#include "SpotifyResolverTest.moc"

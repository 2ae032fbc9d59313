#include "Await.h"
#include "CannedServer.h"
#include "FixtureSite.h"
#include "TestEnv.h"
#include "TestMain.h"

#include "discovery/SpotifyResolver.h"
#include "engine/YtDlp.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTest>
#include <QUuid>

using namespace Qt::StringLiterals;
using SpotifyResolver::Endpoint;
using SpotifyResolver::Metadata;
using YtDlp::SearchResult;

namespace {

SearchResult hit(const QString &id, const QString &title, const QString &channel = QString(),
                 std::optional<double> seconds = std::nullopt) {
    SearchResult r;
    r.id = id;
    r.title = title;
    r.channel = channel;
    r.url = u"https://www.youtube.com/watch?v="_s + id;
    r.durationSeconds = seconds;
    return r;
}

QString meta(const QString &property, const QString &content, bool contentFirst = false) {
    return contentFirst ? u"<meta content=\"%2\" property=\"%1\" />"_s.arg(property, content)
                        : u"<meta property=\"%1\" content=\"%2\">"_s.arg(property, content);
}

QByteArray page(const QStringList &tags) {
    return (u"<!DOCTYPE html><html><head><title>Spotify</title>\n"_s + tags.join(u'\n') + u"\n</head><body></body></html>"_s).toUtf8();
}

Endpoint endpointAt(const QString &oEmbed, int timeoutMs = 5000) {
    Endpoint e{QUrl(oEmbed)};
    e.oEmbedTimeout = e.pageTimeout = e.artTimeout = std::chrono::milliseconds(timeoutMs);
    return e;
}

QByteArray fileBytes(const QString &path) {
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

QByteArray runFfmpegFamily(const QString &tool, const QStringList &args) {
    QProcess p;
    p.start(QFileInfo(TestEnv::ffmpeg()).absolutePath() + u'/' + tool, args);
    p.waitForFinished(30000);
    return p.readAllStandardOutput();
}

// A digest of the audio packets alone: equal before and after means the audio was copied.
QByteArray audioDigest(const QString &file) {
    return runFfmpegFamily(u"ffmpeg"_s, {u"-v"_s, u"error"_s, u"-i"_s, file, u"-map"_s, u"0:a"_s, u"-c"_s, u"copy"_s, u"-f"_s, u"md5"_s, u"-"_s});
}

QString argsFile() { return TestEnv::root() + u"/resolver-search-args.txt"_s; }

} // namespace

class SpotifyResolverTest : public QObject {
    Q_OBJECT
    FixtureSite site;
    QString mp3;
    QString m4a;

    QString track(const QString &name) const { return site.url(u"/track/"_s + name); }
    QString oEmbed(const QString &variant) const { return site.url(u'/' + variant + u"/oembed"_s); }

    QString newDownload(const QString &source, const QString &name) {
        const QString folder = TestEnv::root() + u"/tag-"_s + QUuid::createUuid().toString(QUuid::Id128);
        QDir().mkpath(folder);
        if (!source.isEmpty())
            QFile::copy(source, folder + u'/' + name);
        return folder + u'/' + name;
    }

private Q_SLOTS:
    void initTestCase() {
        QVERIFY(site.isRunning());
        mp3 = TestEnv::root() + u"/tone.mp3"_s;
        m4a = TestEnv::root() + u"/tone.m4a"_s;
        const QStringList sine{u"-v"_s, u"error"_s, u"-y"_s, u"-f"_s, u"lavfi"_s, u"-i"_s, u"sine=frequency=440:duration=1"_s};
        QVERIFY(TestEnv::runTool(TestEnv::ffmpeg(), sine + QStringList{u"-c:a"_s, u"libmp3lame"_s, mp3}));
        QVERIFY(TestEnv::runTool(TestEnv::ffmpeg(), sine + QStringList{u"-c:a"_s, u"aac"_s, m4a}));
        QVERIFY(QDir().mkpath(site.root() + u"/art"_s));
        QVERIFY(TestEnv::runTool(TestEnv::ffmpeg(), {u"-v"_s, u"error"_s, u"-y"_s, u"-f"_s, u"lavfi"_s, u"-i"_s, u"color=c=red:s=64x64"_s,
                                                     u"-frames:v"_s, u"1"_s, site.root() + u"/art/cover.jpg"_s}));

        site.put(u"ok/oembed"_s, u"{\"title\": \"Midnight City\", \"thumbnail_url\": \"%1\"}"_s.arg(site.url(u"/art/cover.jpg"_s)).toUtf8());
        site.put(u"nothumb/oembed"_s, R"({"title": "Midnight City", "thumbnail_url": 12})");
        site.put(u"notitle/oembed"_s, R"({"title": null, "thumbnail_url": "not a url"})");
        site.put(u"malformed/oembed"_s, R"({"title": "Midnight)");
        site.put(u"track/full"_s, page({meta(u"og:type"_s, u"music.song"_s),
                                         meta(u"og:title"_s, u"Midnight City - song and lyrics by M83 | Spotify"_s),
                                         meta(u"og:description"_s, u"M83 · Hurry Up, We&#39;re Dreaming · Song · 2011"_s),
                                         meta(u"og:image"_s, site.url(u"/art/page.jpg"_s))}));
        site.put(u"track/reversed"_s, page({meta(u"og:title"_s, u"Rock &amp; Roll &quot;Live&quot;"_s, true),
                                             meta(u"og:description"_s, u"Listen to Rock &amp; Roll on Spotify. Song BY The Band &amp; Co"_s, true),
                                             meta(u"og:image"_s, u"not an address"_s, true)}));
        site.put(u"track/latin1"_s, page({meta(u"og:title"_s, u"Caf"_s)}).replace("Caf", "Caf\xe9"));
        // 5 MB of markup without a single og: tag
        site.put(u"track/big"_s, "<html><head><meta name=\"x\" " + QByteArray(5 * 1024 * 1024, 'a') + "></head></html>");
    }

    void trackLinks_data() {
        QTest::addColumn<QString>("link");
        QTest::addColumn<bool>("isTrack");
        QTest::newRow("track") << u"https://open.spotify.com/track/4iV5W9uYEdYUVa79Axb7Rh?si=1"_s << true;
        QTest::newRow("localized track") << u"https://open.spotify.com/intl-fr/track/4iV5W9uYEdYUVa79Axb7Rh"_s << true;
        QTest::newRow("album") << u"https://open.spotify.com/album/1ATL5GLyefJaxhQzSPVrLX"_s << false;
        QTest::newRow("localized playlist") << u"https://open.spotify.com/intl-de/playlist/37i9dQZF1DX"_s << false;
        QTest::newRow("episode") << u"https://open.spotify.com/episode/7makk4oTQel546B0PZlDM5"_s << false;
        QTest::newRow("other host") << u"https://example.com/track/123"_s << false;
        QTest::newRow("case matters") << u"https://OPEN.SPOTIFY.COM/track/123"_s << false;
    }
    void trackLinks() {
        QFETCH(QString, link);
        QFETCH(bool, isTrack);
        QCOMPARE(SpotifyResolver::isSpotifyTrackURL(link), isTrack);
    }

    void metaContent_data() {
        QTest::addColumn<QString>("html");
        QTest::addColumn<QString>("property");
        QTest::addColumn<QString>("expected"); // null: no answer
        QTest::newRow("property first") << meta(u"og:title"_s, u"Song"_s) << u"og:title"_s << u"Song"_s;
        QTest::newRow("content first") << meta(u"og:title"_s, u"Song"_s, true) << u"og:title"_s << u"Song"_s;
        QTest::newRow("upper-case markup") << u"<META PROPERTY=\"OG:TITLE\" CONTENT=\"Loud\">"_s << u"og:title"_s << u"Loud"_s;
        QTest::newRow("first match wins") << QString(meta(u"og:title"_s, u"One"_s) + meta(u"og:title"_s, u"Two"_s)) << u"og:title"_s
                                          << u"One"_s;
        QTest::newRow("listed entities, &amp; first") << meta(u"og:title"_s, u"&amp;lt;&#x27;&#39;&quot;&gt;&nbsp;&#233;&AMP;"_s)
                                                      << u"og:title"_s << u"<''\">&nbsp;&#233;&AMP;"_s;
        QTest::newRow("other property only") << meta(u"og:image"_s, u"x"_s) << u"og:title"_s << QString();
        QTest::newRow("property that does not compile") << meta(u"og:title"_s, u"x"_s) << u"og:(title"_s << QString();
    }
    void metaContent() {
        QFETCH(QString, html);
        QFETCH(QString, property);
        QFETCH(QString, expected);
        const auto found = SpotifyResolver::metaContent(html, property);
        QCOMPARE(found.has_value(), !expected.isNull());
        QCOMPARE(found.value_or(QString()), expected);
    }

    void score_data() {
        QTest::addColumn<QString>("title");
        QTest::addColumn<QString>("channel");
        QTest::addColumn<double>("seconds"); // < 0: unknown
        QTest::addColumn<QString>("wantedTitle");
        QTest::addColumn<QString>("wantedArtist");
        QTest::addColumn<double>("expected");
        const QString song = u"Song"_s;
        QTest::newRow("studio upload") << u"Artist - Song (Official Audio)"_s << u"Artist - Topic"_s << 210.0 << song << u"Artist"_s << 128.0;
        QTest::newRow("karaoke") << u"Song (Live) [Karaoke]"_s << u"KaraokeHits"_s << 200.0 << song << u"Artist"_s << -12.0;
        QTest::newRow("cover inside discover") << u"Discover Song"_s << u"x"_s << -1.0 << song << u"Artist"_s << 20.0;
        QTest::newRow("short clip") << song << QString() << 30.0 << song << QString() << 15.0;
        QTest::newRow("long mix") << song << QString() << 1000.0 << song << QString() << 20.0;
        QTest::newRow("lyric karaoke") << u"Song lyrics karaoke"_s << QString() << -1.0 << song << QString() << -10.0;
        QTest::newRow("stop words and short words") << u"The Hello - a Song"_s << QString() << -1.0 << u"Hello the World Song"_s
                                                    << QString() << 80.0 / 3.0;
        QTest::newRow("half the artist") << u"Song Daft"_s << u"x"_s << -1.0 << song << u"Daft Punk"_s << 47.5;
        QTest::newRow("every penalty once") << u"karaoke karaoke nightcore slowed reverb 8d audio cover instrumental piano version remix "
                                               "live reaction sped up chipmunk bass boosted"_s
                                            << QString() << -1.0 << u"zzz"_s << QString() << -386.0;
        QTest::newRow("unicode words") << u"Beyoncé—HALO"_s << u"Topical"_s << -1.0 << u"halo (beyoncé)"_s << QString() << 58.0;
    }
    void score() {
        QFETCH(QString, title);
        QFETCH(QString, channel);
        QFETCH(double, seconds);
        QFETCH(QString, wantedTitle);
        QFETCH(QString, wantedArtist);
        QFETCH(double, expected);
        const auto d = seconds < 0 ? std::nullopt : std::optional<double>(seconds);
        QCOMPARE(SpotifyResolver::score(hit(u"id"_s, title, channel, d), wantedTitle, wantedArtist), expected);
    }

    void pickBest() {
        const QList<SearchResult> hits{hit(u"k"_s, u"Midnight City (Live) [Karaoke]"_s, u"Sing King"_s, 245),
                                       hit(u"c"_s, u"Midnight City - cover"_s, u"M83 fans"_s, 240),
                                       hit(u"o"_s, u"Midnight City (Official Audio)"_s, u"M83 - Topic"_s, 210)};
        QCOMPARE(SpotifyResolver::pickBest(hits, u"Midnight City"_s, u"M83"_s)->id, u"o"_s);
        QVERIFY(!SpotifyResolver::pickBest({}, u"x"_s, u"y"_s));
        // equal scores keep the search order
        const QList<SearchResult> ties{hit(u"low"_s, u"unrelated"_s), hit(u"first"_s, u"Song"_s), hit(u"second"_s, u"Song"_s)};
        QCOMPARE(SpotifyResolver::pickBest(ties, u"Song"_s, QString())->id, u"first"_s);
        // no minimum: the best of poor candidates is still taken
        const QList<SearchResult> poor{hit(u"a"_s, u"karaoke remix"_s), hit(u"b"_s, u"nightcore"_s)};
        QCOMPARE(SpotifyResolver::pickBest(poor, u"Song"_s, QString())->id, u"b"_s);
    }

    void fetchMetadataCombinesBothSources_data() {
        QTest::addColumn<QString>("oEmbedVariant");
        QTest::addColumn<QString>("trackPath");
        QTest::addColumn<QString>("title");  // null: none
        QTest::addColumn<QString>("artist"); // null: none
        QTest::addColumn<QString>("artwork");
        const QString pageTitle = u"Midnight City - song and lyrics by M83 | Spotify"_s;
        const QString cover = u"/art/cover.jpg"_s;
        const QString pageArt = u"/art/page.jpg"_s;
        QTest::newRow("both") << u"ok"_s << u"full"_s << u"Midnight City"_s << u"M83"_s << cover;
        QTest::newRow("oembed 404") << u"missing"_s << u"full"_s << pageTitle << u"M83"_s << pageArt;
        QTest::newRow("oembed malformed") << u"malformed"_s << u"full"_s << pageTitle << u"M83"_s << pageArt;
        QTest::newRow("oembed title only") << u"nothumb"_s << u"full"_s << u"Midnight City"_s << u"M83"_s << pageArt;
        QTest::newRow("oembed nulls") << u"notitle"_s << u"full"_s << pageTitle << u"M83"_s << pageArt;
        QTest::newRow("page 500") << u"ok"_s << u"full?status=500"_s << u"Midnight City"_s << QString() << cover;
        QTest::newRow("page reversed, entities") << u"missing"_s << u"reversed"_s << u"Rock & Roll \"Live\""_s << u"The Band & Co"_s
                                                 << QString();
        QTest::newRow("page not utf-8") << u"missing"_s << u"latin1"_s << QString() << QString() << QString();
        QTest::newRow("5 MB without tags") << u"missing"_s << u"big"_s << QString() << QString() << QString();
    }
    void fetchMetadataCombinesBothSources() {
        QFETCH(QString, oEmbedVariant);
        QFETCH(QString, trackPath);
        QFETCH(QString, title);
        QFETCH(QString, artist);
        QFETCH(QString, artwork);
        const Metadata m = vtest::await(SpotifyResolver::fetchMetadata(track(trackPath), endpointAt(oEmbed(oEmbedVariant))));
        QCOMPARE(m.title.has_value(), !title.isNull());
        QCOMPARE(m.title.value_or(QString()), title);
        QCOMPARE(m.artist.has_value(), !artist.isNull());
        QCOMPARE(m.artist.value_or(QString()), artist);
        QCOMPARE(m.artwork, artwork.isEmpty() ? QUrl() : QUrl(site.url(artwork)));
    }

    void requestsAsTheServicesExpect() {
        const int before = site.requests().size();
        vtest::await(SpotifyResolver::fetchMetadata(track(u"full?si=ü1"_s), endpointAt(oEmbed(u"ok"_s))));
        const QStringList log = site.requests().mid(before);
        const QString port = QString::number(QUrl(site.url(u"/"_s)).port());
        // the link travels with only the characters outside the URL-query set encoded
        const QString oEmbedLine = u"GET /ok/oembed?url=http://127.0.0.1:"_s + port + u"/track/full?si=%C3%BC1 "_s;
        QVERIFY2(log.size() == 2 && std::any_of(log.begin(), log.end(), [&](const QString &l) { return l.startsWith(oEmbedLine); }),
                 qPrintable(log.join(u'\n')));
        QVERIFY(log.contains(u"GET /track/full?si=%C3%BC1 UA=Mozilla/5.0 (Macintosh; Intel Mac OS X 10_15_7)"_s));
    }

    void bothFetchesRunAtOnce() {
        CannedServer silent(CannedServer::Silent);
        auto task = SpotifyResolver::fetchMetadata(silent.url(u"/track/1"_s), endpointAt(silent.url(u"/oembed"_s), 1500));
        // neither request has been answered, yet both have arrived
        QTRY_COMPARE_WITH_TIMEOUT(silent.requestCount(), 2, 1400);
        const Metadata m = vtest::await(std::move(task));
        QVERIFY(!m.title && !m.artist && m.artwork.isEmpty());
    }

    void transportFailuresAnswerNothing_data() {
        QTest::addColumn<int>("behaviour");
        QTest::newRow("redirect loop") << int(CannedServer::RedirectToSelf);
        QTest::newRow("time-out") << int(CannedServer::Silent);
        QTest::newRow("http 500 with tags") << int(CannedServer::Answer);
    }
    void transportFailuresAnswerNothing() {
        QFETCH(int, behaviour);
        CannedServer server(CannedServer::Behaviour(behaviour), CannedServer::status(500, page({meta(u"og:title"_s, u"Oops"_s)})));
        const Metadata m = vtest::await(SpotifyResolver::fetchMetadata(server.url(u"/track/1"_s), endpointAt(server.url(u"/oembed"_s), 300)));
        QVERIFY(!m.title && !m.artist && m.artwork.isEmpty());
    }

    void resolveFindsTheRecording_data() {
        QTest::addColumn<QString>("oEmbedVariant");
        QTest::addColumn<QString>("search"); // what the downloader does
        QTest::addColumn<QString>("expectedQuery");
        QTest::addColumn<QString>("expectedTitle");
        const QString hits = u"printf 'VORLIXSR\\tkar\\tMidnight City (Live) [Karaoke]\\tSing King\\t245\\t10\\n'\n"
                             u"printf 'VORLIXSR\\tcov\\tMidnight City - cover\\tM83 fans\\t240\\t10\\n'\n"
                             u"printf 'VORLIXSR\\toff\\tMidnight City (Official Audio)\\tM83 - Topic\\t210\\t10\\n'\n"_s;
        const QString fallback = u"ytsearch1:M83 Midnight City official audio"_s;
        QTest::newRow("best hit") << u"ok"_s << hits << u"https://www.youtube.com/watch?v=off"_s << u"Midnight City"_s;
        QTest::newRow("search fails") << u"ok"_s << u"echo 'ERROR: offline' >&2; exit 1\n"_s << fallback << u"Midnight City"_s;
        QTest::newRow("no hits") << u"ok"_s << u"echo 'nothing'\n"_s << fallback << u"Midnight City"_s;
        QTest::newRow("page title, cleaned") << u"missing"_s << u"exit 1\n"_s
                                             << u"ytsearch1:M83 Midnight City M83 | Spotify official audio"_s
                                             << u"Midnight City M83 | Spotify"_s;
    }
    void resolveFindsTheRecording() {
        QFETCH(QString, oEmbedVariant);
        QFETCH(QString, search);
        QFETCH(QString, expectedQuery);
        QFETCH(QString, expectedTitle);
        QFile::remove(argsFile());
        TestEnv::writeStubTool(u"yt-dlp"_s, u"printf '%s\\n' \"$@\" > '"_s + argsFile() + u"'\n"_s + search);
        const auto r = vtest::await(SpotifyResolver::resolve(track(u"full"_s), endpointAt(oEmbed(oEmbedVariant))));
        QCOMPARE(r.searchQuery, expectedQuery);
        QCOMPARE(r.track.title, expectedTitle);
        QCOMPARE(r.track.artist, u"M83"_s);
        QVERIFY(!r.track.artworkURL.isEmpty());
        // an ordinary video search for the first six hits, artist first
        const QStringList args = QString::fromUtf8(fileBytes(argsFile())).split(u'\n', Qt::SkipEmptyParts);
        QCOMPARE(args.value(args.size() - 1), u"ytsearch6:M83 "_s + expectedTitle);
    }

    void resolveWithoutATitleFails() {
        QFile::remove(argsFile());
        TestEnv::writeStubTool(u"yt-dlp"_s, u"touch '"_s + argsFile() + u"'\n"_s);
        try {
            vtest::await(SpotifyResolver::resolve(track(u"big"_s), endpointAt(oEmbed(u"notitle"_s))));
            QFAIL("expected a YtDlpError");
        } catch (const YtDlpError &e) {
            QCOMPARE(e.kind(), YtDlpError::Kind::probeFailed);
            QCOMPARE(QString::fromUtf8(e.what()), u"Couldn't read track info from that Spotify link."_s);
        }
        QVERIFY(!QFile::exists(argsFile())); // nothing to search for
    }

    void applyTagsWritesTagsCoverAndName_data() {
        QTest::addColumn<QString>("format");
        QTest::addColumn<QString>("artPath"); // empty: the track has no artwork
        QTest::addColumn<QString>("artist");
        QTest::addColumn<QString>("title");
        QTest::addColumn<QString>("expectedName");
        QTest::addColumn<bool>("cover");
        QTest::addColumn<int>("id3Version"); // 0: not an ID3 file
        QTest::newRow("mp3 with cover") << u"mp3"_s << u"/art/cover.jpg"_s << u"Band/Two"_s << u"Live: 1991"_s
                                        << u"Band-Two - Live- 1991.mp3"_s << true << 3;
        QTest::newRow("mp3 without artwork") << u"mp3"_s << QString() << u"Band/Two"_s << u"Live: 1991"_s << u"Band-Two - Live- 1991.mp3"_s
                                             << false << 4;
        QTest::newRow("mp3, cover missing") << u"mp3"_s << u"/art/gone.jpg"_s << u"M83"_s << u"Midnight City"_s
                                            << u"M83 - Midnight City.mp3"_s << false << 4;
        QTest::newRow("m4a with cover, no artist") << u"m4a"_s << u"/art/cover.jpg"_s << QString() << u"Live: 1991"_s
                                                   << u"Live- 1991.m4a"_s << true << 0;
    }
    void applyTagsWritesTagsCoverAndName() {
        QFETCH(QString, format);
        QFETCH(QString, artPath);
        QFETCH(QString, artist);
        QFETCH(QString, title);
        QFETCH(QString, expectedName);
        QFETCH(bool, cover);
        QFETCH(int, id3Version);
        const QString download = newDownload(format == u"mp3"_s ? mp3 : m4a, u"Some Upload [abc]."_s + format);
        const QString folder = QFileInfo(download).absolutePath();
        const QByteArray audioBefore = audioDigest(download);
        QVERIFY(!audioBefore.isEmpty());

        const SpotifyTrack info{title, artist, artPath.isEmpty() ? QUrl() : QUrl(site.url(artPath))};
        const QString result = vtest::await(SpotifyResolver::applyTags(info, download, endpointAt(QString())));
        QCOMPARE(result, folder + u'/' + expectedName);
        QCOMPARE(QDir(folder).entryList(QDir::Files | QDir::Hidden), QStringList{expectedName});
        QVERIFY(TestEnv::filesContaining(QDir::tempPath(), u"vorlix-art-"_s).isEmpty());

        const QJsonObject probe = QJsonDocument::fromJson(runFfmpegFamily(
            u"ffprobe"_s, {u"-v"_s, u"error"_s, u"-show_entries"_s, u"format_tags=title,artist:stream=codec_type:stream_disposition=attached_pic"_s,
                           u"-of"_s, u"json"_s, result})).object();
        const QJsonObject tags = probe[u"format"_s][u"tags"_s].toObject();
        QCOMPARE(tags[u"title"_s].toString(), title);
        QCOMPARE(tags[u"artist"_s].toString(), artist);
        QStringList streams;
        for (const QJsonValue &s : probe[u"streams"_s].toArray())
            streams << s[u"codec_type"_s].toString() + QString::number(s[u"disposition"_s][u"attached_pic"_s].toInt());
        QCOMPARE(streams, cover ? (QStringList{u"audio0"_s, u"video1"_s}) : QStringList{u"audio0"_s});
        QCOMPARE(audioDigest(result), audioBefore);
        const QByteArray head = fileBytes(result).left(4);
        QCOMPARE(head.startsWith("ID3") ? int(head[3]) : 0, id3Version);
    }

    void applyTagsNumbersClashingNames() {
        // the download already bears the track's name, and "… 2" is taken too
        const QString download = newDownload(mp3, u"Artist - Song.mp3"_s);
        const QString taken = QFileInfo(download).absolutePath() + u"/Artist - Song 2.mp3"_s;
        QVERIFY(QFile::copy(mp3, taken));
        const SpotifyTrack info{u"Song"_s, u"Artist"_s, QUrl()};
        const QString result = vtest::await(SpotifyResolver::applyTags(info, download, endpointAt(QString())));
        QCOMPARE(QFileInfo(result).fileName(), u"Artist - Song 3.mp3"_s);
        QVERIFY(!QFileInfo::exists(download));
        QCOMPARE(fileBytes(taken), fileBytes(mp3));
    }

    void applyTagsFailureLeavesTheDownload() {
        const QString download = newDownload(QString(), QString()) + u"not audio.mp3"_s;
        {
            QFile f(download);
            QVERIFY(f.open(QIODevice::WriteOnly));
            f.write("this is not an mp3 file\n");
        }
        const SpotifyTrack info{u"Song"_s, u"Artist"_s, QUrl(site.url(u"/art/cover.jpg"_s))};
        QCOMPARE(vtest::await(SpotifyResolver::applyTags(info, download, endpointAt(QString()))), download);
        QCOMPARE(fileBytes(download), QByteArray("this is not an mp3 file\n"));
        QCOMPARE(QDir(QFileInfo(download).absolutePath()).entryList(QDir::Files | QDir::Hidden), QStringList{u"not audio.mp3"_s});
        QVERIFY(TestEnv::filesContaining(QDir::tempPath(), u"vorlix-art-"_s).isEmpty());
    }

    void cleanupTestCase() { TestEnv::removeStubTool(u"yt-dlp"_s); }
};

VORLIX_TEST_SUITE(SpotifyResolverTest)
#include "SpotifyResolverTest.moc"

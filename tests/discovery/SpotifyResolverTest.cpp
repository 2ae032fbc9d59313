#include "Await.h"
#include "CannedServer.h"
#include "FixtureSite.h"
#include "TestEnv.h"
#include "TestMain.h"

#include "discovery/SpotifyResolver.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTest>
#include <QUuid>

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
    r.url = QStringLiteral("https://www.youtube.com/watch?v=") + id;
    r.durationSeconds = seconds;
    return r;
}

QString meta(const QString &property, const QString &content, bool contentFirst = false) {
    return contentFirst ? QStringLiteral("<meta content=\"%2\" property=\"%1\" />").arg(property, content)
                        : QStringLiteral("<meta property=\"%1\" content=\"%2\">").arg(property, content);
}

QByteArray page(const QStringList &tags) {
    return (QStringLiteral("<!DOCTYPE html><html><head><title>Spotify</title>\n") + tags.join(u'\n') +
            QStringLiteral("\n</head><body>player</body></html>"))
        .toUtf8();
}

Endpoint endpointAt(const QString &oEmbed, int timeoutMs = 5000) {
    Endpoint e{QUrl(oEmbed)};
    e.oEmbedTimeout = e.pageTimeout = e.artTimeout = std::chrono::milliseconds(timeoutMs);
    return e;
}

QString freshFolder() {
    const QString dir = TestEnv::root() + QStringLiteral("/tag-") + QUuid::createUuid().toString(QUuid::Id128);
    QDir().mkpath(dir);
    return dir;
}

QString ffprobePath() { return QFileInfo(TestEnv::ffmpeg()).absolutePath() + QStringLiteral("/ffprobe"); }

QJsonObject probe(const QString &file) {
    QProcess p;
    p.start(ffprobePath(), {QStringLiteral("-v"), QStringLiteral("error"), QStringLiteral("-show_entries"),
                            QStringLiteral("format_tags=title,artist:stream=codec_type:stream_disposition=attached_pic"),
                            QStringLiteral("-of"), QStringLiteral("json"), file});
    p.waitForFinished(30000);
    return QJsonDocument::fromJson(p.readAllStandardOutput()).object();
}

// A digest of the audio packets alone: equal before and after means the audio was copied.
QByteArray audioDigest(const QString &file) {
    QProcess p;
    p.start(TestEnv::ffmpeg(), {QStringLiteral("-v"), QStringLiteral("error"), QStringLiteral("-i"), file, QStringLiteral("-map"),
                                QStringLiteral("0:a"), QStringLiteral("-c"), QStringLiteral("copy"), QStringLiteral("-f"),
                                QStringLiteral("md5"), QStringLiteral("-")});
    p.waitForFinished(30000);
    return p.readAllStandardOutput().trimmed();
}

QByteArray fileBytes(const QString &path) {
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

} // namespace

class SpotifyResolverTest : public QObject {
    Q_OBJECT
    FixtureSite site;
    QString mp3;
    QString m4a;

    QString track(const QString &name) const { return site.url(QStringLiteral("/track/") + name); }
    QString oEmbed(const QString &variant) const { return site.url(QStringLiteral("/") + variant + QStringLiteral("/oembed")); }

    QString copyOf(const QString &source, const QString &folder, const QString &name) {
        const QString path = folder + u'/' + name;
        QFile::copy(source, path);
        return path;
    }

private Q_SLOTS:
    void initTestCase() {
        QVERIFY(site.isRunning());
        const QString media = TestEnv::root() + QStringLiteral("/media");
        QDir().mkpath(media);
        mp3 = media + QStringLiteral("/tone.mp3");
        m4a = media + QStringLiteral("/tone.m4a");
        const QString ff = TestEnv::ffmpeg();
        const QStringList sine{QStringLiteral("-v"), QStringLiteral("error"), QStringLiteral("-y"), QStringLiteral("-f"),
                               QStringLiteral("lavfi"), QStringLiteral("-i"), QStringLiteral("sine=frequency=440:duration=1")};
        QVERIFY(TestEnv::runTool(ff, sine + QStringList{QStringLiteral("-c:a"), QStringLiteral("libmp3lame"), mp3}));
        QVERIFY(TestEnv::runTool(ff, sine + QStringList{QStringLiteral("-c:a"), QStringLiteral("aac"), m4a}));
        QVERIFY(QDir().mkpath(site.root() + QStringLiteral("/art")));
        QVERIFY(TestEnv::runTool(ff, {QStringLiteral("-v"), QStringLiteral("error"), QStringLiteral("-y"), QStringLiteral("-f"),
                                      QStringLiteral("lavfi"), QStringLiteral("-i"), QStringLiteral("color=c=red:s=64x64"),
                                      QStringLiteral("-frames:v"), QStringLiteral("1"), site.root() + QStringLiteral("/art/cover.jpg")}));

        const QString art = site.url(QStringLiteral("/art/cover.jpg"));
        const QString pageArt = site.url(QStringLiteral("/art/page.jpg"));
        site.put(QStringLiteral("ok/oembed"),
                 QStringLiteral(R"({"title": "Midnight City", "thumbnail_url": "%1", "type": "rich"})").arg(art).toUtf8());
        site.put(QStringLiteral("nothumb/oembed"), R"({"title": "Midnight City", "thumbnail_url": 12})");
        site.put(QStringLiteral("notitle/oembed"), R"({"title": null, "thumbnail_url": "not a url"})");
        site.put(QStringLiteral("malformed/oembed"), R"({"title": "Midnight)");
        site.put(QStringLiteral("list/oembed"), R"(["Midnight City"])");

        site.put(QStringLiteral("track/full"),
                 page({meta(QStringLiteral("og:type"), QStringLiteral("music.song")),
                       meta(QStringLiteral("og:title"), QStringLiteral("Midnight City - song and lyrics by M83 | Spotify")),
                       meta(QStringLiteral("og:description"), QStringLiteral("M83 · Hurry Up, We&#39;re Dreaming · Song · 2011")),
                       meta(QStringLiteral("og:image"), pageArt)}));
        site.put(QStringLiteral("track/reversed"),
                 page({meta(QStringLiteral("og:title"), QStringLiteral("Rock &amp; Roll &quot;Live&quot;"), true),
                       meta(QStringLiteral("og:description"),
                            QStringLiteral("Listen to Rock &amp; Roll on Spotify. Song BY The Band &amp; Co"), true),
                       meta(QStringLiteral("og:image"), QStringLiteral("not an address"), true)}));
        QByteArray latin1 = page({meta(QStringLiteral("og:title"), QStringLiteral("Caf"))});
        latin1.replace("Caf", "Caf\xe9");
        site.put(QStringLiteral("track/latin1"), latin1);
        // 5 MB of markup without a single og: tag
        QByteArray big = "<html><head><meta charset=\"utf-8\"><meta name=\"x\" ";
        big += QByteArray(5 * 1024 * 1024, 'a');
        big += "></head></html>";
        site.put(QStringLiteral("track/big"), big);
    }

    void trackLinks_data() {
        QTest::addColumn<QString>("link");
        QTest::addColumn<bool>("isTrack");
        QTest::newRow("track") << QStringLiteral("https://open.spotify.com/track/4iV5W9uYEdYUVa79Axb7Rh?si=1") << true;
        QTest::newRow("localized track") << QStringLiteral("https://open.spotify.com/intl-fr/track/4iV5W9uYEdYUVa79Axb7Rh") << true;
        QTest::newRow("album") << QStringLiteral("https://open.spotify.com/album/1ATL5GLyefJaxhQzSPVrLX") << false;
        QTest::newRow("localized playlist") << QStringLiteral("https://open.spotify.com/intl-de/playlist/37i9dQZF1DX") << false;
        QTest::newRow("episode") << QStringLiteral("https://open.spotify.com/episode/7makk4oTQel546B0PZlDM5") << false;
        QTest::newRow("other host") << QStringLiteral("https://example.com/track/123") << false;
        QTest::newRow("case matters") << QStringLiteral("https://OPEN.SPOTIFY.COM/track/123") << false;
        QTest::newRow("plain text") << QStringLiteral("open.spotify.com/track/abc") << true;
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
        QTest::newRow("property first") << meta(QStringLiteral("og:title"), QStringLiteral("Song")) << QStringLiteral("og:title")
                                        << QStringLiteral("Song");
        QTest::newRow("content first") << meta(QStringLiteral("og:title"), QStringLiteral("Song"), true)
                                       << QStringLiteral("og:title") << QStringLiteral("Song");
        QTest::newRow("upper-case markup") << QStringLiteral("<META PROPERTY=\"OG:TITLE\" CONTENT=\"Loud\">")
                                           << QStringLiteral("og:title") << QStringLiteral("Loud");
        QTest::newRow("first match wins")
            << QString(meta(QStringLiteral("og:title"), QStringLiteral("One")) + meta(QStringLiteral("og:title"), QStringLiteral("Two")))
            << QStringLiteral("og:title") << QStringLiteral("One");
        QTest::newRow("entities decoded") << meta(QStringLiteral("og:title"), QStringLiteral("A &amp;lt; B &#x27;C&#39; &gt;"))
                                          << QStringLiteral("og:title") << QStringLiteral("A < B 'C' >");
        QTest::newRow("other property only") << meta(QStringLiteral("og:image"), QStringLiteral("x")) << QStringLiteral("og:title")
                                             << QString();
        QTest::newRow("empty content") << meta(QStringLiteral("og:title"), QString()) << QStringLiteral("og:title") << QStringLiteral("");
        QTest::newRow("property that does not compile") << meta(QStringLiteral("og:title"), QStringLiteral("x"))
                                                        << QStringLiteral("og:(title") << QString();
        QTest::newRow("no markup") << QStringLiteral("plain text") << QStringLiteral("og:title") << QString();
    }
    void metaContent() {
        QFETCH(QString, html);
        QFETCH(QString, property);
        QFETCH(QString, expected);
        const auto found = SpotifyResolver::metaContent(html, property);
        QCOMPARE(found.has_value(), !expected.isNull());
        if (found)
            QCOMPARE(*found, expected);
    }

    void decodeEntitiesAndCleanTitles_data() {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("decoded");
        QTest::addColumn<QString>("cleaned");
        QTest::newRow("page title") << QStringLiteral("Song - song and lyrics by Artist | Spotify")
                                    << QStringLiteral("Song - song and lyrics by Artist | Spotify")
                                    << QStringLiteral("Song Artist | Spotify");
        QTest::newRow("no dash, any case") << QStringLiteral("  Song SONG AND LYRICS BY Artist\n")
                                           << QStringLiteral("  Song SONG AND LYRICS BY Artist\n") << QStringLiteral("Song Artist");
        QTest::newRow("only listed entities") << QStringLiteral("&amp;&AMP;&#x27;&#39;&quot;&lt;&gt;&nbsp;&#233;")
                                              << QStringLiteral("&&AMP;''\"<>&nbsp;&#233;")
                                              << QStringLiteral("&amp;&AMP;&#x27;&#39;&quot;&lt;&gt;&nbsp;&#233;");
        QTest::newRow("ampersand first") << QStringLiteral("&amp;quot;") << QStringLiteral("\"") << QStringLiteral("&amp;quot;");
    }
    void decodeEntitiesAndCleanTitles() {
        QFETCH(QString, text);
        QFETCH(QString, decoded);
        QFETCH(QString, cleaned);
        QCOMPARE(SpotifyResolver::decodeHTMLEntities(text), decoded);
        QCOMPARE(SpotifyResolver::cleanTitle(text), cleaned);
    }

    void artistFromDescription_data() {
        QTest::addColumn<QString>("description");
        QTest::addColumn<QString>("artist"); // null: none
        QTest::newRow("middle dots") << QStringLiteral("Artist · Song · 2021") << QStringLiteral("Artist");
        QTest::newRow("by, no dots") << QStringLiteral("Listen to Song on Spotify. Song by Artist") << QStringLiteral("Artist");
        QTest::newRow("BY, then dots") << QStringLiteral("Listen to Song on Spotify. Song BY Artist") << QStringLiteral("Artist");
        QTest::newRow("dots win over by") << QStringLiteral("Song by Someone · 2020") << QStringLiteral("Song by Someone");
        QTest::newRow("neither") << QStringLiteral("Listen on Spotify.") << QString();
        QTest::newRow("dot without spaces") << QStringLiteral("Artist·Song") << QString();
    }
    void artistFromDescription() {
        QFETCH(QString, description);
        QFETCH(QString, artist);
        const Metadata m = SpotifyResolver::parseTrackPage(QString::fromUtf8(page({meta(QStringLiteral("og:description"), description)})));
        QCOMPARE(m.artist.has_value(), !artist.isNull());
        if (m.artist)
            QCOMPARE(*m.artist, artist);
        QVERIFY(!m.title);
    }

    void tokens_data() {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QStringList>("expected");
        QTest::newRow("stop words and short pieces")
            << QStringLiteral("The Weeknd feat. Daft Punk & a Band ft. X - Official") << QStringList{QStringLiteral("weeknd"), QStringLiteral("daft"), QStringLiteral("punk"), QStringLiteral("band")};
        QTest::newRow("unicode letters") << QStringLiteral("Beyoncé—HALO (Ölü Dünya)")
                                         << QStringList{QStringLiteral("beyoncé"), QStringLiteral("halo"), QStringLiteral("ölü"), QStringLiteral("dünya")};
        QTest::newRow("digits count") << QStringLiteral("Live: 1991, vol.2") << QStringList{QStringLiteral("live"), QStringLiteral("1991"), QStringLiteral("vol")};
        QTest::newRow("nothing left") << QStringLiteral("a - b & the") << QStringList{};
    }
    void tokens() {
        QFETCH(QString, text);
        QFETCH(QStringList, expected);
        QCOMPARE(SpotifyResolver::tokens(text), QSet<QString>(expected.begin(), expected.end()));
    }

    void score_data() {
        QTest::addColumn<QString>("title");
        QTest::addColumn<QString>("channel");
        QTest::addColumn<double>("seconds"); // < 0: unknown
        QTest::addColumn<QString>("wantedTitle");
        QTest::addColumn<QString>("wantedArtist");
        QTest::addColumn<double>("expected");
        const QString song = QStringLiteral("Song");
        const QString artist = QStringLiteral("Artist");
        QTest::newRow("studio upload") << QStringLiteral("Artist - Song (Official Audio)") << QStringLiteral("Artist - Topic") << 210.0
                                       << song << artist << 128.0;
        QTest::newRow("karaoke") << QStringLiteral("Song (Live) [Karaoke]") << QStringLiteral("KaraokeHits") << 200.0 << song << artist
                                 << -12.0;
        QTest::newRow("cover inside discover") << QStringLiteral("Discover Song") << QStringLiteral("x") << -1.0 << song << artist << 20.0;
        QTest::newRow("short clip") << QStringLiteral("Song") << QString() << 30.0 << song << QString() << 15.0;
        QTest::newRow("long mix") << QStringLiteral("Song") << QString() << 1000.0 << song << QString() << 20.0;
        QTest::newRow("edges of the sweet spot") << QStringLiteral("Song") << QString() << 480.0 << song << QString() << 48.0;
        QTest::newRow("lyric video") << QStringLiteral("Song (Lyrics)") << QString() << -1.0 << song << QString() << 44.0;
        QTest::newRow("lyric karaoke") << QStringLiteral("Song lyrics karaoke") << QString() << -1.0 << song << QString() << -10.0;
        QTest::newRow("music video") << QStringLiteral("Song (Official Music Video)") << QString() << -1.0 << song << QString() << 52.0;
        QTest::newRow("part of the title") << QStringLiteral("Hello Song") << QString() << -1.0 << QStringLiteral("Hello World Song")
                                           << QString() << 80.0 / 3.0;
        QTest::newRow("artist in channel") << QStringLiteral("Song") << QStringLiteral("Daft Punk VEVO") << -1.0 << song
                                           << QStringLiteral("Daft Punk") << 80.0;
        QTest::newRow("half the artist") << QStringLiteral("Song Daft") << QStringLiteral("x") << -1.0 << song
                                         << QStringLiteral("Daft Punk") << 47.5;
        QTest::newRow("every penalty once") << QStringLiteral("karaoke karaoke nightcore slowed reverb 8d audio cover instrumental "
                                                              "piano version remix live reaction sped up chipmunk bass boosted")
                                            << QString() << -1.0 << QStringLiteral("zzz") << QString() << -386.0;
        QTest::newRow("topic anywhere") << QStringLiteral("x") << QStringLiteral("Topical Tunes") << -1.0 << song << QString() << 18.0;
    }
    void score() {
        QFETCH(QString, title);
        QFETCH(QString, channel);
        QFETCH(double, seconds);
        QFETCH(QString, wantedTitle);
        QFETCH(QString, wantedArtist);
        QFETCH(double, expected);
        const SearchResult candidate =
            hit(QStringLiteral("id"), title, channel, seconds < 0 ? std::nullopt : std::optional<double>(seconds));
        QCOMPARE(SpotifyResolver::score(candidate, wantedTitle, wantedArtist), expected);
    }

    void pickBest() {
        const QList<SearchResult> hits{
            hit(QStringLiteral("k"), QStringLiteral("Midnight City (Live) [Karaoke]"), QStringLiteral("Sing King"), 245),
            hit(QStringLiteral("c"), QStringLiteral("Midnight City - cover"), QStringLiteral("M83 fans"), 240),
            hit(QStringLiteral("o"), QStringLiteral("Midnight City (Official Audio)"), QStringLiteral("M83 - Topic"), 210),
        };
        QCOMPARE(SpotifyResolver::pickBest(hits, QStringLiteral("Midnight City"), QStringLiteral("M83"))->id, QStringLiteral("o"));
        QVERIFY(!SpotifyResolver::pickBest({}, QStringLiteral("x"), QStringLiteral("y")));

        // equal scores keep the search order, wherever the tie sits
        const QList<SearchResult> ties{hit(QStringLiteral("low"), QStringLiteral("unrelated")), hit(QStringLiteral("first"), QStringLiteral("Song")),
                                       hit(QStringLiteral("second"), QStringLiteral("Song")), hit(QStringLiteral("third"), QStringLiteral("Song"))};
        QCOMPARE(SpotifyResolver::pickBest(ties, QStringLiteral("Song"), QString())->id, QStringLiteral("first"));
        // no minimum: the best of poor candidates is still taken
        const QList<SearchResult> poor{hit(QStringLiteral("a"), QStringLiteral("karaoke remix")), hit(QStringLiteral("b"), QStringLiteral("nightcore"))};
        QCOMPARE(SpotifyResolver::pickBest(poor, QStringLiteral("Song"), QString())->id, QStringLiteral("b"));
    }

    void resolutionFromHits_data() {
        QTest::addColumn<QString>("artist");
        QTest::addColumn<bool>("searchFailed");
        QTest::addColumn<int>("hitCount");
        QTest::addColumn<QString>("expected");
        QTest::newRow("hits") << QStringLiteral("Artist") << false << 2 << QStringLiteral("https://www.youtube.com/watch?v=good");
        QTest::newRow("no hits") << QStringLiteral("Artist") << false << 0 << QStringLiteral("ytsearch1:Artist Title official audio");
        QTest::newRow("search failed") << QStringLiteral("Artist") << true << 0 << QStringLiteral("ytsearch1:Artist Title official audio");
        QTest::newRow("no artist") << QString() << false << 0 << QStringLiteral("ytsearch1:Title official audio");
    }
    void resolutionFromHits() {
        QFETCH(QString, artist);
        QFETCH(bool, searchFailed);
        QFETCH(int, hitCount);
        QFETCH(QString, expected);
        const QList<SearchResult> all{hit(QStringLiteral("meh"), QStringLiteral("Title karaoke")),
                                      hit(QStringLiteral("good"), QStringLiteral("Artist - Title (Official Audio)"))};
        std::optional<QList<SearchResult>> hits;
        if (!searchFailed)
            hits = all.mid(0, hitCount);
        const QUrl art(QStringLiteral("https://i.example/cover.jpg"));
        const auto r = SpotifyResolver::resolution(QStringLiteral("Title"), artist, art, hits);
        QCOMPARE(r.searchQuery, expected);
        QCOMPARE(r.track, (SpotifyTrack{QStringLiteral("Title"), artist, art}));
    }

    void fetchMetadataCombinesBothSources_data() {
        QTest::addColumn<QString>("oEmbedVariant");
        QTest::addColumn<QString>("trackPath");
        QTest::addColumn<QString>("title");  // null: none
        QTest::addColumn<QString>("artist"); // null: none
        QTest::addColumn<QString>("artwork");
        const QString pageTitle = QStringLiteral("Midnight City - song and lyrics by M83 | Spotify");
        const QString cover = QStringLiteral("/art/cover.jpg");
        const QString pageArt = QStringLiteral("/art/page.jpg");
        QTest::newRow("both") << QStringLiteral("ok") << QStringLiteral("full") << QStringLiteral("Midnight City") << QStringLiteral("M83") << cover;
        QTest::newRow("oembed 404") << QStringLiteral("missing") << QStringLiteral("full") << pageTitle << QStringLiteral("M83") << pageArt;
        QTest::newRow("oembed malformed") << QStringLiteral("malformed") << QStringLiteral("full") << pageTitle << QStringLiteral("M83") << pageArt;
        QTest::newRow("oembed a list") << QStringLiteral("list") << QStringLiteral("full") << pageTitle << QStringLiteral("M83") << pageArt;
        QTest::newRow("oembed title only") << QStringLiteral("nothumb") << QStringLiteral("full") << QStringLiteral("Midnight City") << QStringLiteral("M83") << pageArt;
        QTest::newRow("oembed nulls") << QStringLiteral("notitle") << QStringLiteral("full") << pageTitle << QStringLiteral("M83") << pageArt;
        QTest::newRow("page 500") << QStringLiteral("ok") << QStringLiteral("full?status=500") << QStringLiteral("Midnight City") << QString() << cover;
        QTest::newRow("page reversed, entities") << QStringLiteral("missing") << QStringLiteral("reversed") << QStringLiteral("Rock & Roll \"Live\"")
                                                 << QStringLiteral("The Band & Co") << QString();
        QTest::newRow("page not utf-8") << QStringLiteral("missing") << QStringLiteral("latin1") << QString() << QString() << QString();
        QTest::newRow("5 MB without tags") << QStringLiteral("missing") << QStringLiteral("big") << QString() << QString() << QString();
        QTest::newRow("nothing anywhere") << QStringLiteral("missing") << QStringLiteral("nowhere") << QString() << QString() << QString();
    }
    void fetchMetadataCombinesBothSources() {
        QFETCH(QString, oEmbedVariant);
        QFETCH(QString, trackPath);
        QFETCH(QString, title);
        QFETCH(QString, artist);
        QFETCH(QString, artwork);
        const Metadata m = vtest::await(SpotifyResolver::fetchMetadata(track(trackPath), endpointAt(oEmbed(oEmbedVariant))));
        QCOMPARE(m.title.value_or(QString()), title);
        QCOMPARE(m.title.has_value(), !title.isNull());
        QCOMPARE(m.artist.value_or(QString()), artist);
        QCOMPARE(m.artist.has_value(), !artist.isNull());
        QCOMPARE(m.artwork, artwork.isEmpty() ? QUrl() : QUrl(site.url(artwork)));
    }

    void requestsAsTheServicesExpect() {
        const int before = site.requests().size();
        const QString link = track(QStringLiteral("full?si=ü1"));
        vtest::await(SpotifyResolver::fetchMetadata(link, endpointAt(oEmbed(QStringLiteral("ok")))));
        const QStringList log = site.requests().mid(before);
        QCOMPARE(log.size(), 2);
        const QString port = QString::number(QUrl(site.url(QStringLiteral("/"))).port());
        const QString oEmbedLine = QStringLiteral("GET /ok/oembed?url=http://127.0.0.1:") + port + QStringLiteral("/track/full?si=%C3%BC1 ");
        const QString pageLine = QStringLiteral("GET /track/full?si=%C3%BC1 UA=Mozilla/5.0 (Macintosh; Intel Mac OS X 10_15_7)");
        QVERIFY2(std::any_of(log.begin(), log.end(), [&](const QString &l) { return l.startsWith(oEmbedLine); }), qPrintable(log.join(u'\n')));
        QVERIFY2(log.contains(pageLine), qPrintable(log.join(u'\n')));
    }

    void bothFetchesRunAtOnce() {
        CannedServer silent(CannedServer::Silent);
        auto task = SpotifyResolver::fetchMetadata(silent.url(QStringLiteral("/track/1")), endpointAt(silent.url(QStringLiteral("/oembed")), 1500));
        // neither request has been answered, yet both have arrived
        QTRY_COMPARE_WITH_TIMEOUT(silent.requestCount(), 2, 1400);
        const Metadata m = vtest::await(std::move(task));
        QVERIFY(!m.title && !m.artist && m.artwork.isEmpty());
    }

    void transportFailuresAnswerNothing_data() {
        QTest::addColumn<int>("behaviour");
        QTest::newRow("redirect loop") << int(CannedServer::RedirectToSelf);
        QTest::newRow("time-out") << int(CannedServer::Silent);
        QTest::newRow("http 500 with a page") << int(CannedServer::Answer);
    }
    void transportFailuresAnswerNothing() {
        QFETCH(int, behaviour);
        const QByteArray errorPage = CannedServer::status(500, page({meta(QStringLiteral("og:title"), QStringLiteral("Server Error"))}));
        CannedServer server(CannedServer::Behaviour(behaviour), errorPage);
        const Metadata m =
            vtest::await(SpotifyResolver::fetchMetadata(server.url(QStringLiteral("/track/1")), endpointAt(server.url(QStringLiteral("/oembed")), 300)));
        QVERIFY(!m.title && !m.artist && m.artwork.isEmpty());
    }

    void taggedFileName_data() {
        QTest::addColumn<QString>("artist");
        QTest::addColumn<QString>("title");
        QTest::addColumn<QString>("expected");
        QTest::newRow("slashes and colons") << QStringLiteral("Band/Two") << QStringLiteral("Live: 1991") << QStringLiteral("Band-Two - Live- 1991");
        QTest::newRow("no artist") << QString() << QStringLiteral("Live: 1991") << QStringLiteral("Live- 1991");
        QTest::newRow("other characters stay") << QStringLiteral("AC\\DC?") << QStringLiteral("T.N.T.") << QStringLiteral("AC\\DC? - T.N.T.");
    }
    void taggedFileName() {
        QFETCH(QString, artist);
        QFETCH(QString, title);
        QFETCH(QString, expected);
        QCOMPARE(SpotifyResolver::taggedFileName(SpotifyTrack{title, artist, QUrl()}), expected);
    }

    void applyTagsWritesTagsCoverAndName_data() {
        QTest::addColumn<QString>("format");
        QTest::addColumn<QString>("artPath"); // empty: the track has no artwork
        QTest::addColumn<QString>("artist");
        QTest::addColumn<QString>("title");
        QTest::addColumn<QString>("expectedName");
        QTest::addColumn<bool>("cover");
        QTest::addColumn<int>("id3Version"); // 0: not an ID3 file
        QTest::newRow("mp3 with cover") << QStringLiteral("mp3") << QStringLiteral("/art/cover.jpg") << QStringLiteral("Band/Two") << QStringLiteral("Live: 1991")
                                        << QStringLiteral("Band-Two - Live- 1991.mp3") << true << 3;
        QTest::newRow("mp3 without artwork") << QStringLiteral("mp3") << QStringLiteral("") << QStringLiteral("Band/Two") << QStringLiteral("Live: 1991")
                                             << QStringLiteral("Band-Two - Live- 1991.mp3") << false << 4;
        QTest::newRow("mp3, cover missing") << QStringLiteral("mp3") << QStringLiteral("/art/gone.jpg") << QStringLiteral("M83") << QStringLiteral("Midnight City")
                                            << QStringLiteral("M83 - Midnight City.mp3") << false << 4;
        QTest::newRow("m4a with cover, no artist") << QStringLiteral("m4a") << QStringLiteral("/art/cover.jpg") << QString() << QStringLiteral("Solo")
                                                   << QStringLiteral("Solo.m4a") << true << 0;
    }
    void applyTagsWritesTagsCoverAndName() {
        QFETCH(QString, format);
        QFETCH(QString, artPath);
        QFETCH(QString, artist);
        QFETCH(QString, title);
        QFETCH(QString, expectedName);
        QFETCH(bool, cover);
        QFETCH(int, id3Version);
        const QString folder = freshFolder();
        const QString download = copyOf(format == QLatin1String("mp3") ? mp3 : m4a, folder, QStringLiteral("Some Upload [abc].") + format);
        const QByteArray audioBefore = audioDigest(download);
        QVERIFY(!audioBefore.isEmpty());

        const SpotifyTrack trackInfo{title, artist, artPath.isEmpty() ? QUrl() : QUrl(site.url(artPath))};
        const QString result = vtest::await(SpotifyResolver::applyTags(trackInfo, download, endpointAt(QString())));
        QCOMPARE(result, folder + u'/' + expectedName);
        QVERIFY(!QFileInfo::exists(download));
        QCOMPARE(QDir(folder).entryList(QDir::Files | QDir::Hidden), QStringList{expectedName});
        QVERIFY(TestEnv::filesContaining(QDir::tempPath(), QStringLiteral("vorlix-art-")).isEmpty());

        const QJsonObject info = probe(result);
        const QJsonObject tags = info.value(QLatin1String("format")).toObject().value(QLatin1String("tags")).toObject();
        QCOMPARE(tags.value(QLatin1String("title")).toString(), title);
        QCOMPARE(tags.value(QLatin1String("artist")).toString(), artist);
        bool hasCover = false;
        int audioStreams = 0;
        for (const QJsonValue &s : info.value(QLatin1String("streams")).toArray()) {
            const QJsonObject stream = s.toObject();
            if (stream.value(QLatin1String("codec_type")).toString() == QLatin1String("audio"))
                ++audioStreams;
            if (stream.value(QLatin1String("disposition")).toObject().value(QLatin1String("attached_pic")).toInt() == 1)
                hasCover = true;
        }
        QCOMPARE(audioStreams, 1);
        QCOMPARE(hasCover, cover);
        QCOMPARE(audioDigest(result), audioBefore);
        const QByteArray head = fileBytes(result).left(4);
        if (id3Version)
            QCOMPARE(head, QByteArray("ID3") + char(id3Version));
        else
            QVERIFY(!head.startsWith("ID3"));
    }

    void applyTagsNumbersClashingNames() {
        const QString folder = freshFolder();
        // the download already bears the track's name, and "… 2" is taken too
        const QString download = copyOf(mp3, folder, QStringLiteral("Artist - Song.mp3"));
        const QString taken = copyOf(mp3, folder, QStringLiteral("Artist - Song 2.mp3"));
        const SpotifyTrack info{QStringLiteral("Song"), QStringLiteral("Artist"), QUrl()};
        const QString result = vtest::await(SpotifyResolver::applyTags(info, download, endpointAt(QString())));
        QCOMPARE(QFileInfo(result).fileName(), QStringLiteral("Artist - Song 3.mp3"));
        QVERIFY(!QFileInfo::exists(download));
        QCOMPARE(fileBytes(taken), fileBytes(mp3));
    }

    void applyTagsFailureLeavesTheDownload() {
        const QString folder = freshFolder();
        const QString download = folder + QStringLiteral("/not audio.mp3");
        {
            QFile f(download);
            QVERIFY(f.open(QIODevice::WriteOnly));
            f.write("this is not an mp3 file\n");
        }
        const SpotifyTrack info{QStringLiteral("Song"), QStringLiteral("Artist"), QUrl(site.url(QStringLiteral("/art/cover.jpg")))};
        const QString result = vtest::await(SpotifyResolver::applyTags(info, download, endpointAt(QString())));
        QCOMPARE(result, download);
        QCOMPARE(fileBytes(download), QByteArray("this is not an mp3 file\n"));
        QCOMPARE(QDir(folder).entryList(QDir::Files | QDir::Hidden), QStringList{QStringLiteral("not audio.mp3")});
        QVERIFY(TestEnv::filesContaining(QDir::tempPath(), QStringLiteral("vorlix-art-")).isEmpty());
    }
};

VORLIX_TEST_SUITE(SpotifyResolverTest)
#include "SpotifyResolverTest.moc"

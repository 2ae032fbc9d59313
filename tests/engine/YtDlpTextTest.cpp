#include "TestEnv.h"
#include "TestMain.h"

#include "core/AppSettings.h"
#include "core/SiteAddresses.h"
#include "engine/YtDlp.h"

#include <QDir>
#include <QFileInfo>
#include <QScopeGuard>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {
const QString pageLink = u"https://example.com/watch/7"_s;
const QString watch = SiteAddresses::youTubeWatchPrefix;

void addProbeColumns() {
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("out");
    QTest::addColumn<QString>("err");
    QTest::addColumn<QString>("expected"); // "error: <message>", or title|duration|thumbnail|categories|entries
}

// Parses with `parse` and compares with the row's expectation.
template <typename Parse> void checkProbe(Parse parse) {
    QFETCH(int, status);
    QFETCH(QString, out);
    QFETCH(QString, err);
    QFETCH(QString, expected);
    Tools::RunResult run;
    run.status = status;
    run.stdoutText = out;
    run.stderrText = err;
    QString actual;
    try {
        const ProbeResult r = parse(run, pageLink);
        QStringList entries;
        for (const auto &e : r.playlistEntries)
            entries << e.url + u'>' + e.title;
        actual = QStringList{r.title, r.durationSeconds ? QString::number(*r.durationSeconds) : QString(),
                             r.thumbnail ? r.thumbnail->toString() : QString(), r.categories.join(u','), entries.join(u',')}
                     .join(u'|');
    } catch (const YtDlpError &e) {
        actual = (e.kind() == YtDlpError::Kind::probeFailed ? u"error: "_s : u"wrong kind: "_s) + e.message();
    }
    QCOMPARE(actual, expected);
}
const QString videoLink = u"https://www.youtube.com/watch?v=dQw4w9WgXcQ&t=30"_s;
const QString pathFile = u"/data/Vorlix/outpath-ABC.txt"_s;
} // namespace

// What goes to the downloader and how its output is read.
class YtDlpTextTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void progressLines_data() {
        QTest::addColumn<QString>("line");
        QTest::addColumn<QString>("expected"); // fraction|speed|eta|phase, "-" for none; null: no report
        const auto row = [](const char *name, const char *line, const char *expected) {
            QTest::newRow(name) << QString::fromUtf8(line) << (expected ? QString::fromUtf8(expected) : QString());
        };
        row("typical", "VORLIX| 45.3%|2.10MiB/s|00:12", "0.453|2.10MiB/s|00:12|-");
        row("padded pieces, unknown percentage", "VORLIX|N/A| \t Unknown B/s |Unknown\t", "-|Unknown B/s|Unknown|-");
        row("three pieces", "VORLIX|50%|x", nullptr);
        row("merger", "[Merger] Merging formats into \"a.mp4\"", "-|||Merging video + audio");
        row("extract", "[ExtractAudio] Destination: a.mp3", "-|||Extracting audio");
    }
    void progressLines() {
        QFETCH(QString, line);
        QFETCH(QString, expected);
        const auto p = YtDlp::parseProgressLine(line);
        QCOMPARE(p.has_value(), !expected.isNull());
        if (p)
            QCOMPARE(QStringList({p->fraction ? QString::number(*p->fraction) : u"-"_s, p->speed, p->eta,
                                  p->phase.value_or(u"-"_s)}).join(u'|'), expected);
    }

    void friendlyErrors_data() {
        QTest::addColumn<QString>("output");
        QTest::addColumn<QString>("expected");
        const QString login = YtDlp::loginNeededMessage;
        QTest::newRow("last ERROR line wins") << u"WARNING: throttled\nERROR: first\nERROR: second\ntrailer"_s
                                              << u"second"_s;
        QTest::newRow("no ERROR: the last line") << u"one\ntwo\r\nthree\n\n"_s << u"three"_s;
        QTest::newRow("cookie hint") << u"ERROR: [instagram] x: use --cookies-from-browser or --cookies"_s << login;
        QTest::newRow("300 cut after the prefix") << u"ERROR: "_s + QString(300, u'b') << QString(220, u'b') + u'\u2026';
    }
    void friendlyErrors() {
        QFETCH(QString, output);
        QFETCH(QString, expected);
        QCOMPARE(YtDlp::friendlyError(output), expected);
    }

    // One case per matching rule: a known phrase in any case, anywhere in the message, stops healing.
    void selfHealing() {
        QVERIFY(YtDlp::shouldSelfHeal(u"Unsupported URL: https://x"_s));
        QVERIFY(YtDlp::shouldSelfHeal(u"HTTP Error 403: Forbidden"_s)); // may be a stale engine
        QVERIFY(!YtDlp::shouldSelfHeal(u"[site] 42: THIS VIDEO IS UNAVAILABLE (x)"_s));
        QVERIFY(!YtDlp::shouldSelfHeal(u"Read timeout after 20s"_s));
        QVERIFY(!YtDlp::shouldSelfHeal(YtDlp::loginNeededMessage));
    }

    void normalize_data() {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("expected");
        const auto row = [](const char *name, const char *text, const char *expected) {
            QTest::newRow(name) << QString::fromUtf8(text) << QString::fromUtf8(expected);
        };
        row("share link, spaces", "  https://youtu.be/abc?si=XYZ \n", "https://youtu.be/abc");
        row("names compare case-insensitively", "https://www.youtube.com/watch?v=1&UTM_Source=x&t=30", "https://www.youtube.com/watch?v=1&t=30");
        row("kept values byte for byte", "https://x.com/p?q=a%2Bb&si=1&z=%E2%9C%93&e=a+b&s=%7e", "https://x.com/p?q=a%2Bb&z=%E2%9C%93&e=a+b&s=%7e");
        row("similar names kept, order kept", "https://x.com/?referrer=a&ref=b&sid=c&pp=x&a=si", "https://x.com/?referrer=a&sid=c&a=si");
        row("spaces inside: not a link", "https://x.com/a b?si=1", "https://x.com/a b?si=1");
    }
    void normalize() {
        QFETCH(QString, text);
        QFETCH(QString, expected);
        QCOMPARE(YtDlp::normalizeURL(text), expected);
        QCOMPARE(YtDlp::normalizeURL(expected), expected); // settled links stay as they are
    }

    void playlistOrChannel() {
        for (const char *link : {"https://www.youtube.com/watch?v=abc&list=PL1", "https://www.youtube.com/channel/UC123",
                                 "HTTPS://M.YOUTUBE.COM/@SOMEONE", "https://vimeo.com/someone/videos", "https://x.com/PLAYLIST/1"})
            QVERIFY2(YtDlp::isLikelyPlaylistOrChannel(QString::fromUtf8(link)), link);
        for (const char *link : {"https://www.youtube.com/watch?v=abc", "https://www.tiktok.com/@someone/video/1", "https://youtu.be/abc?t=3"})
            QVERIFY2(!YtDlp::isLikelyPlaylistOrChannel(QString::fromUtf8(link)), link);
    }

    void lightProbeOutput_data() {
        addProbeColumns();
        const auto row = [](const char *name, int status, const QString &out, const QString &err, const QString &expected) {
            QTest::newRow(name) << status << out << err << expected;
        };
        row("song", 0, u"VORLIXMETA\tSong\t213\tNA\tMusic\n"_s, {}, u"Song|213||Music|"_s);
        row("last marker line wins", 0,
            u"[generic] x\nVORLIXMETA\tOld\t1\tNA\tNA\nVORLIXMETA\tNew\t2.5\thttps://i.ytimg.com/hq.jpg\tGaming\nDeleting\n"_s, {},
            u"New|2.5|https://i.ytimg.com/hq.jpg|Gaming|"_s);
        row("blank output fails", 0, u" \n\n"_s, u"WARNING: x\nERROR: boom\n"_s, u"error: boom"_s);
        row("non-zero status fails whatever the output", 1, u"VORLIXMETA\tSong\t213\tNA\tMusic\n"_s,
            u"ERROR: HTTP Error 404: Not Found"_s, u"error: HTTP Error 404: Not Found"_s);
    }
    void lightProbeOutput() { checkProbe(&YtDlp::parseProbeLight); }

    void jsonProbeOutput_data() {
        addProbeColumns();
        const auto row = [](const char *name, int status, const char *out, const char *err, const QString &expected) {
            QTest::newRow(name) << status << QString::fromUtf8(out) << QString::fromUtf8(err) << expected;
        };
        row("failed run", 2, "{\"title\":\"x\"}", "ERROR: broken\n", u"error: broken"_s);
        row("single video", 0, "{\"title\":\"T\",\"duration\":12.5,\"thumbnail\":\"https://i.example/x.jpg\",\"categories\":[\"Music\",\"Film\"]}",
            "", u"T|12.5|https://i.example/x.jpg|Music,Film|"_s);
        row("wrong types count as missing", 0, "{\"title\":5,\"duration\":\"213\",\"thumbnail\":7,\"categories\":[\"Music\",3]}", "",
            pageLink + u"||||"_s);
        row("entries of every shape", 0,
            "{\"title\":\"PL\",\"duration\":99,\"entries\":[{\"url\":\"https://a.example/1\",\"title\":\"One\"},"
            "{\"webpage_url\":\"https://a.example/2\"},{\"id\":\"xyz\"},{\"url\":\"abc123\",\"title\":\"Bare\"},{\"title\":\"nothing\"},"
            "{\"url\":5,\"id\":\"num\"},{\"url\":\"\",\"webpage_url\":\"https://a.example/3\",\"title\":7}]}", "",
            QStringLiteral("PL||||https://a.example/1>One,https://a.example/2>https://a.example/2,%1xyz>%1xyz,%1abc123>Bare,"
                           "%1num>%1num,https://a.example/3>https://a.example/3").arg(watch));
    }
    void jsonProbeOutput() { checkProbe(&YtDlp::parseProbeJSON); }

    void argumentList_data() {
        QTest::addColumn<DownloadMode>("mode");
        QTest::addColumn<bool>("preferMP4");
        QTest::addColumn<bool>("cookies");
        QTest::addColumn<QString>("audioFormat");
        QTest::addColumn<QStringList>("clip"); // start, end; empty: no clip
        QTest::addColumn<QString>("tail");     // after the ffmpeg pair, "|"-separated, before the link
        const QString audio = u"-f|ba/b|-x|--audio-format|%1|--audio-quality|0|--embed-thumbnail|--embed-metadata"_s;
        const auto row = [](const char *name, DownloadMode m, bool mp4, bool cookies, const char *format, QStringList clip,
                            const QString &tail) {
            QTest::newRow(name) << m << mp4 << cookies << QString::fromLatin1(format) << clip << tail;
        };
        const auto best = DownloadMode::bestVideoAudio, silent = DownloadMode::videoOnly, sound = DownloadMode::audioOnly;
        row("best, mp4", best, true, false, "mp3", {}, u"-f|bv*[ext=mp4]+ba[ext=m4a]/b[ext=mp4]/bv*+ba/b|--merge-output-format|mp4"_s);
        row("best, any container", best, false, false, "mp3", {}, u"-f|bv*+ba/b"_s);
        row("video only, mp4", silent, true, false, "mp3", {}, u"-f|bv*[ext=mp4]/bv*"_s);
        row("audio: an unknown format, even M4A, is mp3", sound, true, false, "M4A", {}, audio.arg(u"mp3"_s));
        row("cookies before the selector", silent, false, true, "mp3", {}, u"--cookies-from-browser|firefox|-f|bv*"_s);
        row("clip from 1:30", best, false, false, "mp3", {u"1:30"_s, QString()},
            u"-f|bv*+ba/b|--download-sections|*90-inf|--force-keyframes-at-cuts"_s);
    }
    void argumentList() {
        QFETCH(DownloadMode, mode);
        QFETCH(bool, preferMP4);
        QFETCH(bool, cookies);
        QFETCH(QString, audioFormat);
        QFETCH(QStringList, clip);
        QFETCH(QString, tail);
        // Only a browser with a profile here is handed to the downloader.
        const QString profile = QDir::homePath() + u"/.mozilla/firefox"_s;
        QVERIFY(QDir().mkpath(profile));
        const auto noProfile = qScopeGuard([] { QDir(QDir::homePath() + u"/.mozilla"_s).removeRecursively(); });
        AppSettings settings(TestEnv::root() + u"/args.ini"_s);
        settings.setPreferMP4(preferMP4);
        settings.setUseBrowserCookies(cookies);
        settings.setAudioFormatRaw(audioFormat);
        const std::optional<ClipRange> range = clip.isEmpty() ? std::nullopt : std::optional(ClipRange{clip[0], clip[1]});
        const QStringList args = YtDlp::buildArguments(DownloadItem(videoLink, mode, range), settings, pathFile,
                                                       u"/home/u/Downloads/Vorlix/YouTube/Music"_s);
        // ffmpeg is named by its folder, never by the program.
        const QStringList ffmpegPair{u"--ffmpeg-location"_s, QFileInfo(Tools::ffmpegURL()).absolutePath()};
        QVERIFY(QFileInfo::exists(ffmpegPair[1] + u"/ffmpeg"_s));
        QVERIFY(args.contains(pathFile) && args.contains(u"--no-playlist"_s));
        QCOMPARE(args.mid(args.indexOf(ffmpegPair[0])), ffmpegPair + tail.split(u'|') + QStringList{videoLink});
        QDir(profile).removeRecursively();
        const QStringList without = YtDlp::buildArguments(DownloadItem(videoLink, mode, range), settings, pathFile,
                                                          u"/home/u/Downloads/Vorlix/YouTube/Music"_s);
        QVERIFY(!without.contains(u"--cookies-from-browser"_s));
    }
};

VORLIX_TEST_SUITE(YtDlpTextTest)
#include "YtDlpTextTest.moc"

#include "Await.h"
#include "FixtureSite.h"
#include "TestEnv.h"
#include "TestMain.h"
#include "engine_media.h"

#include "core/AppSettings.h"
#include "core/SiteAddresses.h"
#include "engine/YtDlp.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QProcess>
#include <QScopeGuard>
#include <QTest>
#include <QTimer>

#include <memory>

using namespace Qt::StringLiterals;

namespace {
struct Outcome {
    QString path;
    QString error; // downloadFailed message
    QList<YtDlp::Progress> progress;
    QList<YtDlp::ChildProcess> registered;
    QString pathFile;
    QStringList phases;
    QList<double> fractions;
};

Outcome runDownload(const DownloadItemPtr &item, const AppSettings &settings, const QString &outputDir,
                    std::function<void(YtDlp::ChildProcess)> onRegister = {}) {
    Outcome out;
    out.pathFile = YtDlp::pathFileFor(*item);
    const YtDlp::RegisterFn reg = [&out, onRegister](YtDlp::ChildProcess child) {
        out.registered << child;
        if (onRegister)
            onRegister(child);
    };
    try {
        out.path = vtest::await(YtDlp::download(item, settings, outputDir, reg, [&out](const YtDlp::Progress &p) {
            out.progress << p;
            if (p.phase)
                out.phases << *p.phase;
            if (p.fraction)
                out.fractions << *p.fraction;
        }));
    } catch (const YtDlpError &e) {
        out.error = e.kind() == YtDlpError::Kind::downloadFailed ? e.message() : u"<wrong kind>"_s;
    }
    return out;
}

// "h264,aac|<seconds>|<title tag>" as ffprobe reads the file.
QString probeFile(const QString &path) {
    QProcess p;
    p.start(u"ffprobe"_s, QStringLiteral("-v|error|-show_entries|stream=codec_name:format=duration:format_tags=title|-of|"
                                                      "default=nw=1:nk=1").split(u'|') << path);
    p.waitForFinished(60000);
    QStringList lines = QString::fromUtf8(p.readAllStandardOutput()).split(u'\n', Qt::SkipEmptyParts);
    // codec names, then the duration, then the title when there is one
    const qsizetype at = std::find_if(lines.begin(), lines.end(), [](const QString &l) { return l.toDouble() > 0; }) - lines.begin();
    return lines.mid(0, at).join(u',') + u'|' + QString::number(qRound(lines.value(at).toDouble())) + u'|' + lines.mid(at + 1).join(u' ');
}

const QString notLocated = u"Finished, but the output file could not be located."_s;
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
    const Tools::RunResult run{status, out, err};
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

// The downloader: what it is asked, how its output is read, and real downloads from the fixture site.
class YtDlpTest : public QObject {
    Q_OBJECT
    std::unique_ptr<FixtureSite> m_site;
    std::unique_ptr<AppSettings> m_settings;
    int m_folders = 0;

    QString freshFolder() { return TestEnv::root() + u"/downloads-"_s + QString::number(++m_folders); }
    Outcome fetch(const QString &path, DownloadMode mode, std::optional<ClipRange> clip = {}, const QString &folder = {}) {
        return runDownload(DownloadItem::make(m_site->url(path), mode, clip), *m_settings, folder.isEmpty() ? freshFolder() : folder);
    }

private Q_SLOTS:
    void initTestCase() {
        m_site = std::make_unique<FixtureSite>();
        QVERIFY(m_site->isRunning());
        QVERIFY(EngineMedia::populate(*m_site));
        m_settings = std::make_unique<AppSettings>(TestEnv::root() + u"/download-settings.ini"_s);
    }
    void init() {
        TestEnv::removeStubTool(Tools::ytDlpName);
        QVERIFY(QFileInfo(Tools::ytDlpURL()).size() > 100000); // the packaged zip, not a stub
    }
    void cleanupTestCase() { TestEnv::removeStubTool(Tools::ytDlpName); }

    void eachModeMakesAPlayableFile_data() {
        QTest::addColumn<QString>("page");
        QTest::addColumn<DownloadMode>("mode");
        QTest::addColumn<QString>("probed");
        QTest::addColumn<QString>("phase");
        QTest::addColumn<QStringList>("clip");
        QTest::newRow("best video + audio, HLS renditions merged") << u"/hls/master.m3u8"_s << DownloadMode::bestVideoAudio
            << u"h264,aac|3|"_s << u"Merging video + audio"_s << QStringList();
        QTest::newRow("audio mp3 clip with cover and tags") << u"/page.html"_s << DownloadMode::audioOnly
            << u"mp3,mjpeg|2|Fixture Page (1)"_s << u"Embedding artwork"_s << QStringList{u"0:01"_s, u"3"_s};
    }
    void eachModeMakesAPlayableFile() {
        QFETCH(QString, page);
        QFETCH(DownloadMode, mode);
        QFETCH(QStringList, clip);
        const QString folder = freshFolder() + u"/Nested/Genre"_s; // created on demand
        const Outcome out = fetch(page, mode, clip.isEmpty() ? std::nullopt : std::optional(ClipRange{clip[0], clip[1]}), folder);
        QCOMPARE(out.error, QString());
        QCOMPARE(out.registered.size(), 1);
        QCOMPARE(QFileInfo(out.path).absolutePath(), folder);
        QCOMPARE(QDir(folder).entryList(QDir::Files), QStringList{QFileInfo(out.path).fileName()}); // no intermediates
        QCOMPARE(QFileInfo(out.path).suffix(), mode == DownloadMode::audioOnly ? u"mp3"_s : u"mp4"_s);
        QVERIFY(!QFile::exists(out.pathFile));
        QTEST(probeFile(out.path), "probed");
        QFETCH(QString, phase);
        QVERIFY2(out.phases.contains(phase), qPrintable(out.phases.join(u',')));
        QCOMPARE(out.fractions.value(out.fractions.size() - 1), 1.0);
    }

    void progressRisesToTheEnd() {
        // A single throttled file: yt-dlp reports it in rising steps, each with speed and ETA texts.
        const Outcome out = fetch(u"/clip.mp4?rate=100000"_s, DownloadMode::bestVideoAudio);
        QCOMPARE(out.error, QString());
        const QList<double> f = out.fractions;
        QVERIFY2(f.size() >= 3 && f.first() < 0.5 && f.last() == 1.0, qPrintable(QString::number(f.size())));
        QVERIFY2(std::is_sorted(f.begin(), f.end()), "progress went backwards");
        for (const auto &p : out.progress)
            QVERIFY(p.phase || !p.speed.isEmpty());
    }

    // The hard case: yt-dlp has handed the section to ffmpeg, its own child.
    void cancelWhileFfmpegCutsEndsEveryChild() {
        const QString folder = freshFolder();
        QElapsedTimer sinceCancel;
        QTimer poll;
        poll.setInterval(100);
        const auto item = DownloadItem::make(m_site->url(u"/slow.html"_s), DownloadMode::bestVideoAudio, ClipRange{u"0"_s, u"3"_s});
        const Outcome out = runDownload(item, *m_settings, folder, [&](YtDlp::ChildProcess child) {
            QObject::connect(&poll, &QTimer::timeout, [&, child] {
                for (qint64 pid : EngineMedia::liveGroupMembers(child.pid()))
                    if (!sinceCancel.isValid() && EngineMedia::commandLine(pid).contains(QLatin1String("ffmpeg"))) {
                        sinceCancel.start();
                        child.terminate();
                    }
            });
            poll.start();
        });
        poll.stop();
        QVERIFY2(sinceCancel.isValid(), "the download ended before ffmpeg was seen");
        QVERIFY2(sinceCancel.elapsed() < 10000, "a cancelled download ends promptly");
        QVERIFY(out.path.isEmpty() && !out.error.isEmpty());
        QVERIFY(!QFile::exists(out.pathFile));
        QTRY_VERIFY_WITH_TIMEOUT(EngineMedia::liveGroupMembers(out.registered.first().pid()).isEmpty(), 5000);
        QTRY_VERIFY_WITH_TIMEOUT(EngineMedia::liveProcessesMentioning(folder, {u"yt-dlp"_s, u"ffmpeg"_s}).isEmpty(), 5000);
    }

    void pathFileDecidesTheResult_data() {
        QTest::addColumn<QString>("script"); // %1 = an existing file, %2 = a missing one
        QTest::addColumn<QString>("expected"); // the path, or the error
        const QString write = u"printf '%1' >> \"$1\"\necho 'VORLIX|100%|1MiB/s|00:00'\n"_s;
        QTest::newRow("last line names the file") << write.arg(u"%2\\n%1\\n\\n"_s) << u"%1"_s;
        QTest::newRow("last line names a missing file") << write.arg(u"%1\\n%2\\n"_s) << notLocated;
        QTest::newRow("stale leftover is not this run's file") << QString() << notLocated;
        QTest::newRow("a failed status beats a written path")
            << u"echo %1 >> \"$1\"\necho 'WARNING: slow\\nERROR: [youtube] abc: Video unavailable' >&2\nexit 1\n"_s
            << u"[youtube] abc: Video unavailable"_s;
    }
    void pathFileDecidesTheResult() {
        QFETCH(QString, script);
        QFETCH(QString, expected);
        const QString existing = TestEnv::root() + u"/finished ü.mp4"_s;
        const QString missing = TestEnv::root() + u"/never-written.mp4"_s;
        QVERIFY(TestEnv::writeFile(existing, {}));
        auto item = DownloadItem::make(u"https://example.com/v/1"_s, DownloadMode::bestVideoAudio);
        // A leftover from an interrupted attempt of the same item must not count as this run's file.
        QVERIFY(TestEnv::writeFile(YtDlp::pathFileFor(*item), existing.toUtf8() + '\n'));
        // The stand-in skips to the path file argument first.
        TestEnv::standIn(Tools::ytDlpName, u"while [ \"$1\" != after_move:filepath ]; do shift; done; shift\n"_s +
                                               QString(script).replace(u"%1"_s, existing).replace(u"%2"_s, missing));
        const Outcome out = runDownload(item, *m_settings, freshFolder());
        QCOMPARE(out.path.isEmpty() ? out.error : out.path, QString(expected).replace(u"%1"_s, existing));
        QVERIFY(!QFile::exists(out.pathFile));
        QVERIFY(TestEnv::filesContaining(AppSettings::appSupportDir(), u"outpath-"_s).isEmpty());
    }

    // A failed or stopped run takes everything it made with it, finished downloads and half
    // extractions included; files it found already there stay.
    void failedRunLeavesNoPartials() {
        const QString folder = freshFolder();
        QDir().mkpath(folder);
        const QString partial = folder + u"/Clip [abc].f1.mp4"_s, done = folder + u"/Song [x].webm"_s,
                      existing = folder + u"/Old [y].m4a"_s;
        for (const QString &keep : QStringList{existing, folder + u"/Clip [abc].webm"_s})
            QVERIFY(QFile(keep).open(QIODevice::WriteOnly));
        TestEnv::standIn(Tools::ytDlpName, QStringLiteral(
            "echo '[download] Destination: %1'\n: > '%1.part'\n: > '%1.part-Frag3'\n: > '%1.ytdl'\n"
            "echo '[download] Destination: %2'\n: > '%2'\necho '[ExtractAudio] Destination: %4.mp3'\n: > '%4.mp3'\n"
            "echo '[info] Writing video thumbnail 0 to: %4.webp'\n: > '%4.webp'\n"
            "echo '[download] %3 has already been downloaded'\necho '[ExtractAudio] Destination: %3'\n: > '%5.temp.m4a'\n"
            "exit 1\n").arg(partial, done, existing, done.chopped(5), existing.chopped(4)));
        const Outcome out = runDownload(DownloadItem::make(u"https://example.com/v/2"_s, DownloadMode::audioOnly), *m_settings, folder);
        QVERIFY(out.path.isEmpty());
        QCOMPARE(QDir(folder).entryList(QDir::Files), (QStringList{u"Clip [abc].webm"_s, u"Old [y].m4a"_s}));
    }
    // Audio of a page whose video is already in the folder: the downloader extracts from that
    // video, which must stay.
    void audioBesideItsVideoKeepsTheVideo() {
        const QString folder = freshFolder();
        const Outcome video = fetch(u"/page.html"_s, DownloadMode::bestVideoAudio, {}, folder);
        QCOMPARE(video.error, QString());
        const Outcome audio = fetch(u"/page.html"_s, DownloadMode::audioOnly, {}, folder);
        QCOMPARE(audio.error, QString());
        QVERIFY(QFileInfo(video.path).size() > 0);
        QCOMPARE(QDir(folder).entryList(QDir::Files).size(), 2);
    }
    // The packaged downloader reads a multi-video page as a playlist, called with the light flags.
    void multiVideoPageIsAPlaylist() {
        TestEnv::standIn(Tools::ytDlpName, u"exec '%1/yt-dlp' \"$@\""_s.arg(Tools::packagedDir()));
        const QString url = m_site->url(u"/playlist/"_s);
        const ProbeResult p = vtest::await(YtDlp::probe(url));
        QCOMPARE(p.title, u"Fixture Playlist"_s);
        const QList<ProbeResult::Entry> expected{{m_site->url(u"/clip.mp4"_s), u"Fixture Playlist (1)"_s},
                                                 {m_site->url(u"/clip2.mp4"_s), u"Fixture Playlist (2)"_s}};
        QCOMPARE(p.playlistEntries, expected);
        QCOMPARE(TestEnv::standInArgs(Tools::ytDlpName), (QStringList{u"-J"_s, u"--flat-playlist"_s,
            u"--no-warnings"_s, u"--playlist-end"_s, u"100"_s, url}));
    }

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
        QTest::newRow("last ERROR line wins") << u"WARNING: throttled\nERROR: first\nERROR: second\ntrailer"_s << u"second"_s;
        QTest::newRow("no ERROR: the last line") << u"one\ntwo\r\nthree\n\n"_s << u"three"_s;
        QTest::newRow("cookie hint") << u"ERROR: [instagram] x: use --cookies-from-browser or --cookies"_s << login;
        QTest::newRow("300 cut after the prefix") << u"ERROR: "_s + QString(300, u'b') << QString(220, u'b') + u'\u2026';
    }
    void friendlyErrors() {
        QFETCH(QString, output);
        QTEST(YtDlp::friendlyError(output), "expected");
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
        const QString audio = u"-f|ba/b|-x|--audio-format|%1|--audio-quality|0|--embed-thumbnail|--embed-metadata|-k"_s;
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
        const auto build = [&] { return YtDlp::buildArguments(DownloadItem(videoLink, mode, range), settings, pathFile, u"/music"_s); };
        const QStringList args = build();
        // ffmpeg is named by its folder, never by the program.
        const QStringList ffmpegPair{u"--ffmpeg-location"_s, QFileInfo(Tools::ffmpegURL()).absolutePath()};
        QVERIFY(QFileInfo::exists(ffmpegPair[1] + u"/ffmpeg"_s));
        QVERIFY(args.contains(pathFile) && args.contains(u"--no-playlist"_s));
        QCOMPARE(args.mid(args.indexOf(ffmpegPair[0])), ffmpegPair + tail.split(u'|') + QStringList{videoLink});
        QDir(profile).removeRecursively();
        QVERIFY(!build().contains(u"--cookies-from-browser"_s));
    }
};

VORLIX_TEST_SUITE(YtDlpTest)
#include "YtDlpTest.moc"

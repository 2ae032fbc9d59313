#include "Await.h"
#include "FixtureSite.h"
#include "TestEnv.h"
#include "TestMain.h"
#include "engine_media.h"

#include "core/AppSettings.h"
#include "engine/YtDlp.h"

#include <QElapsedTimer>
#include <QFileInfo>
#include <QProcess>
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
} // namespace

class YtDlpDownloadTest : public QObject {
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

    // A failed or stopped run takes the downloader's partial files with it; finished ones stay.
    void failedRunLeavesNoPartials() {
        const QString folder = freshFolder();
        const QString partial = folder + u"/Clip [abc].f1.mp4"_s;
        TestEnv::standIn(Tools::ytDlpName, QStringLiteral("echo '[download] Destination: %1'\n: > '%1.part'\n: > '%1.part-Frag3'\n"
                                                          ": > '%1.ytdl'\n: > '%2/Clip [abc].webm'\nexit 1\n").arg(partial, folder));
        const Outcome out = runDownload(DownloadItem::make(u"https://example.com/v/2"_s, DownloadMode::audioOnly), *m_settings, folder);
        QVERIFY(out.path.isEmpty());
        QCOMPARE(QDir(folder).entryList(QDir::Files), QStringList{u"Clip [abc].webm"_s});
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
};

VORLIX_TEST_SUITE(YtDlpDownloadTest)
#include "YtDlpDownloadTest.moc"

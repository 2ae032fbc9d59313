#include "Await.h"
#include "FixtureSite.h"
#include "TestEnv.h"
#include "TestMain.h"
#include "engine_media.h"

#include "core/AppSettings.h"
#include "engine/YtDlp.h"

#include <QElapsedTimer>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTest>
#include <QTimer>

#include <memory>

namespace {
struct Outcome {
    QString path;
    QString error; // downloadFailed message
    QList<YtDlp::Progress> progress;
    QList<YtDlp::ChildProcess> registered;
    QString pathFile;

    QStringList phases() const {
        QStringList out;
        for (const auto &p : progress)
            if (p.phase)
                out << *p.phase;
        return out;
    }
    QList<double> fractions() const {
        QList<double> out;
        for (const auto &p : progress)
            if (p.fraction)
                out << *p.fraction;
        return out;
    }
};

using ProgressHook = std::function<void(Outcome &, const YtDlp::Progress &)>;
using RegisterHook = std::function<void(Outcome &, YtDlp::ChildProcess)>;

Outcome runDownload(const DownloadItemPtr &item, const AppSettings &settings, const QString &outputDir, ProgressHook onProgress = {},
                    RegisterHook onRegister = {}) {
    Outcome out;
    out.pathFile = YtDlp::pathFileFor(*item);
    const YtDlp::RegisterFn reg = [&out, onRegister](YtDlp::ChildProcess child) {
        out.registered << child;
        if (onRegister)
            onRegister(out, child);
    };
    try {
        out.path = vtest::await(YtDlp::download(item, settings, outputDir, reg, [&out, onProgress](const YtDlp::Progress &p) {
            out.progress << p;
            if (onProgress)
                onProgress(out, p);
        }));
    } catch (const YtDlpError &e) {
        out.error = e.kind() == YtDlpError::Kind::downloadFailed ? e.message() : QStringLiteral("<wrong kind>");
    }
    return out;
}

// "video:h264,audio:aac|<duration>|<title tag>" as ffprobe reads the file.
QString probeFile(const QString &path) {
    QProcess p;
    p.start(QStringLiteral("ffprobe"), {QStringLiteral("-v"), QStringLiteral("error"), QStringLiteral("-print_format"), QStringLiteral("json"),
                                        QStringLiteral("-show_streams"), QStringLiteral("-show_format"), path});
    p.waitForFinished(60000);
    const QJsonObject root = QJsonDocument::fromJson(p.readAllStandardOutput()).object();
    QStringList codecs;
    for (const QJsonValue &v : root[QStringLiteral("streams")].toArray())
        codecs << v[QStringLiteral("codec_type")].toString() + u':' + v[QStringLiteral("codec_name")].toString();
    const QJsonObject format = root[QStringLiteral("format")].toObject();
    const QString title = format[QStringLiteral("tags")][QStringLiteral("title")].toString();
    return codecs.join(u',') + u'|' + QString::number(qRound(format[QStringLiteral("duration")].toString().toDouble())) + u'|' + title;
}

const QString notLocated = QStringLiteral("Finished, but the output file could not be located.");
} // namespace

class YtDlpDownloadTest : public QObject {
    Q_OBJECT
    std::unique_ptr<FixtureSite> m_site;
    std::unique_ptr<AppSettings> m_settings;
    int m_folders = 0;

    QString freshFolder() { return TestEnv::root() + QStringLiteral("/downloads-") + QString::number(++m_folders); }
    Outcome fetch(const QString &path, DownloadMode mode, std::optional<ClipRange> clip = {}) {
        return runDownload(DownloadItem::make(m_site->url(path), mode, clip), *m_settings, freshFolder());
    }
    // A stub downloader that skips to the path file argument and then runs `body`.
    static void stubDownloader(const QString &body) {
        TestEnv::writeStubTool(Tools::ytDlpName, QStringLiteral("while [ \"$1\" != after_move:filepath ]; do shift; done; shift\n") + body);
    }

private Q_SLOTS:
    void initTestCase() {
        m_site = std::make_unique<FixtureSite>();
        QVERIFY(m_site->isRunning());
        QVERIFY(EngineMedia::populate(*m_site));
        m_settings = std::make_unique<AppSettings>(TestEnv::root() + QStringLiteral("/download-settings.ini"));
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
        QTest::addColumn<QStringList>("expectedPhases");
        QTest::newRow("best video + audio, HLS renditions merged") << QStringLiteral("/hls/master.m3u8") << DownloadMode::bestVideoAudio
            << QStringLiteral("video:h264,audio:aac|3|") << QStringList{QStringLiteral("Merging video + audio")};
        QTest::newRow("audio mp3 with cover and tags") << QStringLiteral("/page.html") << DownloadMode::audioOnly
            << QStringLiteral("audio:mp3,video:mjpeg|3|Fixture Page (1)")
            << QStringList{QStringLiteral("Extracting audio"), QStringLiteral("Embedding artwork")};
    }
    void eachModeMakesAPlayableFile() {
        QFETCH(QString, page);
        QFETCH(DownloadMode, mode);
        QFETCH(QString, probed);
        QFETCH(QStringList, expectedPhases);
        const QString folder = freshFolder() + QStringLiteral("/Nested/Genre"); // created on demand
        const Outcome out = runDownload(DownloadItem::make(m_site->url(page), mode), *m_settings, folder);
        QCOMPARE(out.error, QString());
        QCOMPARE(out.registered.size(), 1);
        QCOMPARE(QFileInfo(out.path).absolutePath(), folder);
        QCOMPARE(QFileInfo(out.path).suffix(), mode == DownloadMode::audioOnly ? QStringLiteral("mp3") : QStringLiteral("mp4"));
        QVERIFY(!QFile::exists(out.pathFile));
        QCOMPARE(probeFile(out.path), probed);
        for (const QString &phase : expectedPhases)
            QVERIFY2(out.phases().contains(phase), qPrintable(out.phases().join(u',')));
        QCOMPARE(out.fractions().value(out.fractions().size() - 1), 1.0);
    }

    void progressRisesToTheEndAndClipsAreCut() {
        // A single throttled file: yt-dlp reports it in rising steps, each with speed and ETA texts.
        const Outcome out = fetch(QStringLiteral("/clip.mp4?rate=60000"), DownloadMode::bestVideoAudio);
        QCOMPARE(out.error, QString());
        const QList<double> f = out.fractions();
        QVERIFY2(f.size() >= 3 && f.first() < 0.5 && f.last() == 1.0, qPrintable(QString::number(f.size())));
        QVERIFY2(std::is_sorted(f.begin(), f.end()), "progress went backwards");
        for (const auto &p : out.progress)
            QVERIFY(p.phase || !p.speed.isEmpty());

        const Outcome clipped = fetch(QStringLiteral("/page.html"), DownloadMode::bestVideoAudio, ClipRange{QStringLiteral("0:01"), QStringLiteral("3")});
        QCOMPARE(clipped.error, QString());
        QCOMPARE(probeFile(clipped.path), QStringLiteral("video:h264,audio:aac|2|"));
        QVERIFY(!QFile::exists(clipped.pathFile));
    }

    void cancelEndsEveryChild_data() {
        QTest::addColumn<bool>("duringFfmpeg");
        QTest::newRow("while yt-dlp downloads") << false;
        QTest::newRow("while ffmpeg cuts a section") << true;
    }
    void cancelEndsEveryChild() {
        QFETCH(bool, duringFfmpeg);
        const QString folder = freshFolder();
        const auto clip = duringFfmpeg ? std::optional(ClipRange{QStringLiteral("0"), QStringLiteral("4")}) : std::nullopt;
        QElapsedTimer sinceCancel;
        bool sawFfmpeg = false;
        QTimer poll;
        poll.setInterval(100);
        const auto cancel = [&sinceCancel](const YtDlp::ChildProcess &child) {
            if (!sinceCancel.isValid()) {
                sinceCancel.start();
                child.terminate();
            }
        };
        const Outcome out = runDownload(
            DownloadItem::make(m_site->url(QStringLiteral("/slow.html")), DownloadMode::bestVideoAudio, clip), *m_settings, folder,
            [&](Outcome &o, const YtDlp::Progress &p) {
                if (!duringFfmpeg && p.fraction && *p.fraction < 1.0)
                    cancel(o.registered.first());
            },
            [&](Outcome &, YtDlp::ChildProcess child) {
                if (!duringFfmpeg)
                    return;
                QObject::connect(&poll, &QTimer::timeout, [&, child] {
                    for (qint64 pid : EngineMedia::liveGroupMembers(child.pid()))
                        if (EngineMedia::commandLine(pid).contains(QLatin1String("ffmpeg"))) {
                            sawFfmpeg = true;
                            cancel(child);
                        }
                });
                poll.start();
            });
        poll.stop();
        QVERIFY2(sinceCancel.isValid(), "the download ended before it could be cancelled");
        QVERIFY2(sinceCancel.elapsed() < 10000, "a cancelled download ends promptly");
        QCOMPARE(sawFfmpeg, duringFfmpeg);
        QVERIFY(out.path.isEmpty() && !out.error.isEmpty());
        QVERIFY(!QFile::exists(out.pathFile));
        QTRY_VERIFY_WITH_TIMEOUT(EngineMedia::liveGroupMembers(out.registered.first().pid()).isEmpty(), 5000);
        QTRY_VERIFY_WITH_TIMEOUT(EngineMedia::liveProcessesMentioning(folder, {QStringLiteral("yt-dlp"), QStringLiteral("ffmpeg")}).isEmpty(), 5000);
    }

    void pathFileDecidesTheResult_data() {
        QTest::addColumn<QString>("script"); // %1 = an existing file, %2 = a missing one, %3 = a stale leftover
        QTest::addColumn<QString>("expected"); // the path, or the error
        const QString write = QStringLiteral("printf '%1' >> \"$1\"\necho 'VORLIX|100%|1MiB/s|00:00'\nexit %2\n");
        QTest::newRow("last line names the file") << write.arg(QStringLiteral("%2\\n%1\\n\\n"), QStringLiteral("0")) << QStringLiteral("%1");
        QTest::newRow("last line names a missing file") << write.arg(QStringLiteral("%1\\n%2\\n"), QStringLiteral("0")) << notLocated;
        QTest::newRow("not UTF-8") << write.arg(QStringLiteral("%1\\377\\n"), QStringLiteral("0")) << notLocated;
        QTest::newRow("stale leftover is not this run's file") << QStringLiteral("exit 0\n") << notLocated;
        QTest::newRow("a failed status beats a written path")
            << QStringLiteral("echo %1 >> \"$1\"\necho 'WARNING: slow\\nERROR: [youtube] abc: Video unavailable' >&2\nexit 1\n")
            << QStringLiteral("[youtube] abc: Video unavailable");
    }
    void pathFileDecidesTheResult() {
        QFETCH(QString, script);
        QFETCH(QString, expected);
        const QString existing = TestEnv::root() + QStringLiteral("/finished ü.mp4");
        const QString missing = TestEnv::root() + QStringLiteral("/never-written.mp4");
        QVERIFY(TestEnv::writeFile(existing, {}));
        auto item = DownloadItem::make(QStringLiteral("https://example.com/v/1"), DownloadMode::bestVideoAudio);
        // A leftover from an interrupted attempt of the same item must not count as this run's file.
        QVERIFY(TestEnv::writeFile(YtDlp::pathFileFor(*item), existing.toUtf8() + '\n'));
        stubDownloader(QString(script).replace(QStringLiteral("%1"), existing).replace(QStringLiteral("%2"), missing));
        const Outcome out = runDownload(item, *m_settings, freshFolder());
        QCOMPARE(out.path.isEmpty() ? out.error : out.path, QString(expected).replace(QStringLiteral("%1"), existing));
        QVERIFY(!QFile::exists(out.pathFile));
        QVERIFY(TestEnv::filesContaining(AppSettings::appSupportDir(), QStringLiteral("outpath-")).isEmpty());
    }
};

VORLIX_TEST_SUITE(YtDlpDownloadTest)
#include "YtDlpDownloadTest.moc"

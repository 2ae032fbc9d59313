#include "Await.h"
#include "FixtureSite.h"
#include "TestEnv.h"
#include "TestMain.h"
#include "engine_media.h"

#include "core/AppSettings.h"
#include "engine/YtDlp.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTest>
#include <QTimer>
#include <QUuid>

#include <memory>

namespace {

struct Outcome {
    QString path;
    QString error; // downloadFailed message
    QList<YtDlp::Progress> progress;
    QList<YtDlp::ChildProcess> registered;
    QString pathFile;
};

using ProgressHook = std::function<void(Outcome &, const YtDlp::Progress &)>;
using RegisterHook = std::function<void(Outcome &, YtDlp::ChildProcess)>;

Outcome runDownload(const DownloadItemPtr &item, const AppSettings &settings, const QString &outputDir,
                    ProgressHook onProgress = {}, RegisterHook onRegister = {}) {
    Outcome out;
    out.pathFile = YtDlp::pathFileFor(*item);
    try {
        out.path = vtest::await(YtDlp::download(
            item, settings, outputDir,
            [&out, onRegister](YtDlp::ChildProcess child) {
                out.registered << child;
                if (onRegister)
                    onRegister(out, child);
            },
            [&out, onProgress](const YtDlp::Progress &p) {
                out.progress << p;
                if (onProgress)
                    onProgress(out, p);
            }));
    } catch (const YtDlpError &e) {
        out.error = e.kind() == YtDlpError::Kind::downloadFailed ? e.message() : QStringLiteral("<wrong kind>");
    }
    return out;
}

QStringList phases(const Outcome &o) {
    QStringList out;
    for (const auto &p : o.progress)
        if (p.phase)
            out << *p.phase;
    return out;
}

QList<double> fractions(const Outcome &o) {
    QList<double> out;
    for (const auto &p : o.progress)
        if (p.fraction)
            out << *p.fraction;
    return out;
}

struct Streams {
    QStringList codecs; // "video:h264", "audio:mp3", ...
    double duration = 0;
    QString title;
};

Streams probeFile(const QString &path) {
    QProcess p;
    p.start(QStringLiteral("ffprobe"), {QStringLiteral("-v"), QStringLiteral("error"), QStringLiteral("-print_format"),
                                        QStringLiteral("json"), QStringLiteral("-show_streams"), QStringLiteral("-show_format"), path});
    p.waitForFinished(60000);
    const QJsonObject root = QJsonDocument::fromJson(p.readAllStandardOutput()).object();
    Streams s;
    for (const QJsonValue &v : root.value(QStringLiteral("streams")).toArray()) {
        const QJsonObject stream = v.toObject();
        s.codecs << stream.value(QStringLiteral("codec_type")).toString() + u':' + stream.value(QStringLiteral("codec_name")).toString();
    }
    const QJsonObject format = root.value(QStringLiteral("format")).toObject();
    s.duration = format.value(QStringLiteral("duration")).toString().toDouble();
    const QJsonObject tags = format.value(QStringLiteral("tags")).toObject();
    for (auto it = tags.begin(); it != tags.end(); ++it)
        if (it.key().compare(QLatin1String("title"), Qt::CaseInsensitive) == 0)
            s.title = it.value().toString();
    return s;
}

bool containsFfmpeg(const QList<qint64> &pids) {
    for (qint64 pid : pids)
        if (EngineMedia::commandLine(pid).contains(QLatin1String("ffmpeg")))
            return true;
    return false;
}

} // namespace

class YtDlpDownloadTest : public QObject {
    Q_OBJECT
    std::unique_ptr<FixtureSite> m_site;
    std::unique_ptr<AppSettings> m_settings;
    int m_folders = 0;

    QString freshFolder() {
        return TestEnv::root() + QStringLiteral("/downloads-") + QString::number(++m_folders);
    }

    void useRealDownloader() {
        TestEnv::removeStubTool(Tools::ytDlpName);
        const QString tool = Tools::ytDlpURL();
        QVERIFY2(tool.startsWith(TestEnv::toolDir()), qPrintable(tool));
        QVERIFY(QFile(tool).size() > 100000); // the packaged zip, not a stub
    }

private Q_SLOTS:
    void initTestCase() {
        m_site = std::make_unique<FixtureSite>();
        QVERIFY(m_site->isRunning());
        QVERIFY(EngineMedia::populate(*m_site));
        m_settings = std::make_unique<AppSettings>(TestEnv::root() + QStringLiteral("/download-settings.ini"));
    }

    void init() {
        useRealDownloader();
        m_settings->setPreferMP4(true);
        m_settings->setUseBrowserCookies(false);
        m_settings->setAudioFormatRaw(QStringLiteral("mp3"));
    }

    void cleanupTestCase() { TestEnv::removeStubTool(Tools::ytDlpName); }

    void eachModeMakesAPlayableFile_data() {
        QTest::addColumn<QString>("page");
        QTest::addColumn<DownloadMode>("mode");
        QTest::addColumn<QString>("audioFormat");
        QTest::addColumn<QString>("suffix");
        QTest::addColumn<QStringList>("codecs");
        QTest::addColumn<QStringList>("expectedPhases");
        QTest::addColumn<QString>("title"); // embedded title tag; empty = not checked

        QTest::newRow("best video + audio, HLS renditions merged")
            << QStringLiteral("/hls/master.m3u8") << DownloadMode::bestVideoAudio << QStringLiteral("mp3")
            << QStringLiteral("mp4") << QStringList{QStringLiteral("video:h264"), QStringLiteral("audio:aac")}
            << QStringList{QStringLiteral("Merging video + audio")} << QString();
        QTest::newRow("video only") << QStringLiteral("/hls/master.m3u8") << DownloadMode::videoOnly << QStringLiteral("mp3")
                                    << QStringLiteral("mp4") << QStringList{QStringLiteral("video:h264")} << QStringList{}
                                    << QString();
        QTest::newRow("audio mp3 with cover and tags")
            << QStringLiteral("/page.html") << DownloadMode::audioOnly << QStringLiteral("mp3") << QStringLiteral("mp3")
            << QStringList{QStringLiteral("audio:mp3"), QStringLiteral("video:mjpeg")}
            << QStringList{QStringLiteral("Extracting audio"), QStringLiteral("Embedding artwork")}
            << QStringLiteral("Fixture Page (1)");
        QTest::newRow("audio m4a with cover and tags")
            << QStringLiteral("/page.html") << DownloadMode::audioOnly << QStringLiteral("m4a") << QStringLiteral("m4a")
            << QStringList{QStringLiteral("audio:aac"), QStringLiteral("video:mjpeg")}
            << QStringList{QStringLiteral("Extracting audio"), QStringLiteral("Embedding artwork")}
            << QStringLiteral("Fixture Page (1)");
    }

    void eachModeMakesAPlayableFile() {
        QFETCH(QString, page);
        QFETCH(DownloadMode, mode);
        QFETCH(QString, audioFormat);
        QFETCH(QString, suffix);
        QFETCH(QStringList, codecs);
        QFETCH(QStringList, expectedPhases);
        QFETCH(QString, title);

        m_settings->setAudioFormatRaw(audioFormat);
        const QString folder = freshFolder() + QStringLiteral("/Nested/Genre"); // created on demand
        auto item = DownloadItem::make(m_site->url(page), mode);
        const Outcome out = runDownload(item, *m_settings, folder);

        QCOMPARE(out.error, QString());
        QCOMPARE(out.registered.size(), 1);
        QVERIFY2(QFileInfo(out.path).isFile(), qPrintable(out.path));
        QCOMPARE(QFileInfo(out.path).absolutePath(), folder);
        QCOMPARE(QFileInfo(out.path).suffix(), suffix);
        QVERIFY(!QFile::exists(out.pathFile));

        const Streams streams = probeFile(out.path);
        QCOMPARE(streams.codecs, codecs);
        QVERIFY2(streams.duration > 3.5 && streams.duration < 4.6, qPrintable(QString::number(streams.duration)));
        if (!title.isEmpty())
            QCOMPARE(streams.title, title);

        const QStringList seen = phases(out);
        for (const QString &phase : expectedPhases)
            QVERIFY2(seen.contains(phase), qPrintable(seen.join(u',')));
        const QList<double> f = fractions(out);
        QVERIFY(!f.isEmpty());
        QCOMPARE(f.last(), 1.0);
        for (double x : f)
            QVERIFY(x >= 0 && x <= 1);
    }

    void progressRisesInOrderToTheEnd() {
        // A single throttled file: yt-dlp reports it in rising steps.
        auto item = DownloadItem::make(m_site->url(QStringLiteral("/clip.mp4?rate=150000")), DownloadMode::bestVideoAudio);
        const Outcome out = runDownload(item, *m_settings, freshFolder());
        QCOMPARE(out.error, QString());
        const QList<double> f = fractions(out);
        QVERIFY2(f.size() >= 3, qPrintable(QString::number(f.size())));
        for (int i = 1; i < f.size(); ++i)
            QVERIFY2(f[i] >= f[i - 1], "progress went backwards");
        QCOMPARE(f.last(), 1.0);
        QVERIFY(f.first() < 0.5);
        // Download lines carry speed and ETA texts and never a phase.
        for (const auto &p : out.progress)
            QVERIFY(p.phase || !p.speed.isEmpty());
        QVERIFY(!QFile::exists(out.pathFile));
    }

    void clippedSectionIsCut() {
        auto item = DownloadItem::make(m_site->url(QStringLiteral("/page.html")), DownloadMode::bestVideoAudio,
                                       ClipRange{QStringLiteral("0:01"), QStringLiteral("3")});
        const Outcome out = runDownload(item, *m_settings, freshFolder());
        QCOMPARE(out.error, QString());
        const Streams streams = probeFile(out.path);
        QCOMPARE(streams.codecs, (QStringList{QStringLiteral("video:h264"), QStringLiteral("audio:aac")}));
        QVERIFY2(streams.duration > 1.5 && streams.duration < 2.6, qPrintable(QString::number(streams.duration)));
        QVERIFY(!QFile::exists(out.pathFile));
    }

    void missingPageFailsWithOneFriendlyLine() {
        auto item = DownloadItem::make(m_site->url(QStringLiteral("/missing.mp4")), DownloadMode::bestVideoAudio);
        const Outcome out = runDownload(item, *m_settings, freshFolder());
        QVERIFY(out.path.isEmpty());
        QVERIFY2(out.error.contains(QLatin1String("HTTP Error 404")), qPrintable(out.error));
        QVERIFY(!out.error.contains(QLatin1String("ERROR:")));
        QVERIFY(!out.error.contains(u'\n'));
        QVERIFY(out.error.size() <= 221);
        QVERIFY(!YtDlp::shouldSelfHeal(out.error));
        QVERIFY(!QFile::exists(out.pathFile));
    }

    void cancelEndsEveryChild_data() {
        QTest::addColumn<bool>("duringFfmpeg");
        QTest::newRow("while yt-dlp downloads") << false;
        QTest::newRow("while ffmpeg cuts a section") << true;
    }

    void cancelEndsEveryChild() {
        QFETCH(bool, duringFfmpeg);
        const QString folder = freshFolder();
        std::optional<ClipRange> clip;
        if (duringFfmpeg)
            clip = ClipRange{QStringLiteral("0"), QStringLiteral("4")};
        auto item = DownloadItem::make(m_site->url(QStringLiteral("/slow.html")), DownloadMode::bestVideoAudio, clip);

        QElapsedTimer sinceCancel;
        bool sawFfmpeg = false;
        QTimer poll;
        poll.setInterval(100);
        auto cancel = [&sinceCancel](const YtDlp::ChildProcess &child) {
            if (!sinceCancel.isValid()) {
                sinceCancel.start();
                child.terminate();
            }
        };
        const Outcome out = runDownload(
            item, *m_settings, folder,
            [&](Outcome &o, const YtDlp::Progress &p) {
                if (!duringFfmpeg && p.fraction && *p.fraction < 1.0)
                    cancel(o.registered.first());
            },
            [&](Outcome &, YtDlp::ChildProcess child) {
                if (!duringFfmpeg)
                    return;
                QObject::connect(&poll, &QTimer::timeout, [&, child] {
                    if (containsFfmpeg(EngineMedia::liveGroupMembers(child.pid()))) {
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
        QVERIFY(out.path.isEmpty());
        QVERIFY(!out.error.isEmpty());
        QVERIFY(!QFile::exists(out.pathFile));
        QTRY_VERIFY_WITH_TIMEOUT(EngineMedia::liveGroupMembers(out.registered.first().pid()).isEmpty(), 5000);
        QTRY_VERIFY_WITH_TIMEOUT(
            EngineMedia::liveProcessesMentioning(folder, {QStringLiteral("yt-dlp"), QStringLiteral("ffmpeg")}).isEmpty(), 5000);
    }

    void pathFileDecidesTheResult_data() {
        QTest::addColumn<QString>("pathFileBody"); // %1 = an existing file, %2 = a missing one
        QTest::addColumn<bool>("writesPathFile");
        QTest::addColumn<bool>("succeeds");

        QTest::newRow("last line names the file") << QStringLiteral("%2\\n%1\\n\\n") << true << true;
        QTest::newRow("last line names a missing file") << QStringLiteral("%1\\n%2\\n") << true << false;
        QTest::newRow("empty path file") << QStringLiteral("\\n\\n") << true << false;
        QTest::newRow("no path file at all") << QString() << false << false;
        QTest::newRow("not UTF-8") << QStringLiteral("%1\\377\\n") << true << false;
    }

    void pathFileDecidesTheResult() {
        QFETCH(QString, pathFileBody);
        QFETCH(bool, writesPathFile);
        QFETCH(bool, succeeds);

        const QString existing = TestEnv::root() + QStringLiteral("/finished ü.mp4");
        QFile f(existing);
        QVERIFY(f.open(QIODevice::WriteOnly));
        f.close();
        const QString missing = TestEnv::root() + QStringLiteral("/never-written.mp4");
        // The path file follows "--print-to-file after_move:filepath" in the argument list.
        QString body = QStringLiteral("while [ \"$1\" != after_move:filepath ]; do shift; done; shift\n");
        if (writesPathFile)
            body += QStringLiteral("printf '") + QString(pathFileBody).replace(QStringLiteral("%1"), existing).replace(QStringLiteral("%2"), missing) +
                    QStringLiteral("' >> \"$1\"\n");
        body += QStringLiteral("echo 'VORLIX|100%|1MiB/s|00:00'\nexit 0\n");
        TestEnv::writeStubTool(Tools::ytDlpName, body);

        auto item = DownloadItem::make(QStringLiteral("https://example.com/v/1"), DownloadMode::bestVideoAudio);
        const Outcome out = runDownload(item, *m_settings, freshFolder());
        if (succeeds) {
            QCOMPARE(out.error, QString());
            QCOMPARE(out.path, existing);
        } else {
            QCOMPARE(out.error, QStringLiteral("Finished, but the output file could not be located."));
        }
        QCOMPARE(out.progress.size(), 1);
        QVERIFY(!QFile::exists(out.pathFile));
        QVERIFY(TestEnv::filesContaining(AppSettings::appSupportDir(), QStringLiteral("outpath-")).isEmpty());
    }

    void staleLeftoverIsNotTheResult() {
        // A leftover from an interrupted attempt of the same item must not count as this run's file.
        const QString stale = TestEnv::root() + QStringLiteral("/stale.mp4");
        QFile f(stale);
        QVERIFY(f.open(QIODevice::WriteOnly));
        f.close();
        auto item = DownloadItem::make(QStringLiteral("https://example.com/v/2"), DownloadMode::bestVideoAudio);
        QFile leftover(YtDlp::pathFileFor(*item));
        QVERIFY(leftover.open(QIODevice::WriteOnly));
        leftover.write(stale.toUtf8() + '\n');
        leftover.close();
        TestEnv::writeStubTool(Tools::ytDlpName, QStringLiteral("exit 0\n"));
        const Outcome out = runDownload(item, *m_settings, freshFolder());
        QCOMPARE(out.error, QStringLiteral("Finished, but the output file could not be located."));
        QVERIFY(!QFile::exists(out.pathFile));
    }

    void errorOutputBecomesTheMessage_data() {
        QTest::addColumn<QString>("stderrText");
        QTest::addColumn<QString>("expected");
        QTest::newRow("video unavailable") << QStringLiteral("WARNING: slow\nERROR: [youtube] abc: Video unavailable\n")
                                           << QStringLiteral("[youtube] abc: Video unavailable");
        QTest::newRow("needs a login") << QStringLiteral("ERROR: [instagram] p: Use --cookies-from-browser\n")
                                       << YtDlp::loginNeededMessage;
        QTest::newRow("silent failure") << QString() << QStringLiteral("Unknown error");
    }

    void errorOutputBecomesTheMessage() {
        QFETCH(QString, stderrText);
        QFETCH(QString, expected);
        // The stub also writes a finished path: a failed status must win over it.
        const QString body = QStringLiteral("while [ \"$1\" != after_move:filepath ]; do shift; done; shift\n"
                                            "echo /bin/sh >> \"$1\"\nprintf '%1' >&2\nexit 1\n")
                                 .arg(QString(stderrText).replace(u'\n', QStringLiteral("\\n")));
        TestEnv::writeStubTool(Tools::ytDlpName, body);
        auto item = DownloadItem::make(QStringLiteral("https://example.com/v/3"), DownloadMode::audioOnly);
        const Outcome out = runDownload(item, *m_settings, freshFolder());
        QCOMPARE(out.error, expected);
        QVERIFY(!QFile::exists(out.pathFile));
    }
};

VORLIX_TEST_SUITE(YtDlpDownloadTest)
#include "YtDlpDownloadTest.moc"

#include "TestEnv.h"
#include "TestMain.h"

#include "core/AppSettings.h"
#include "engine/YtDlp.h"

#include <QDir>
#include <QFileInfo>
#include <QScopeGuard>
#include <QTest>

namespace {
const QString videoLink = QStringLiteral("https://www.youtube.com/watch?v=dQw4w9WgXcQ&t=30");
const QString pathFile = QStringLiteral("/data/Vorlix/outpath-ABC.txt");
const QStringList firstBlock = QStringLiteral(
    "--newline,--no-warnings,--progress-template,download:VORLIX|%(progress._percent_str)s|%(progress._speed_str)s|"
    "%(progress._eta_str)s,--print-to-file,after_move:filepath,/data/Vorlix/outpath-ABC.txt,-o,"
    "/home/u/Downloads/Vorlix/YouTube/Music/%(title).80B [%(id).12B].%(ext)s,--no-playlist,-N,8,--retries,8,"
    "--fragment-retries,8,--socket-timeout,20").split(u',');
} // namespace

class YtDlpArgumentsTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void argumentList_data() {
        QTest::addColumn<DownloadMode>("mode");
        QTest::addColumn<bool>("preferMP4");
        QTest::addColumn<bool>("cookies");
        QTest::addColumn<QString>("audioFormat");
        QTest::addColumn<QStringList>("clip"); // start, end; empty: no clip
        QTest::addColumn<QString>("tail");     // after block 1 and the ffmpeg pair, "|"-separated, before the link
        const QString audio = QStringLiteral("-f|ba/b|-x|--audio-format|%1|--audio-quality|0|--embed-thumbnail|--embed-metadata");
        const auto row = [](const char *name, DownloadMode m, bool mp4, bool cookies, const char *format, QStringList clip,
                            const QString &tail) {
            QTest::newRow(name) << m << mp4 << cookies << QString::fromLatin1(format) << clip << tail;
        };
        const auto best = DownloadMode::bestVideoAudio, silent = DownloadMode::videoOnly, sound = DownloadMode::audioOnly;
        row("best, mp4", best, true, false, "mp3", {}, QStringLiteral("-f|bv*[ext=mp4]+ba[ext=m4a]/b[ext=mp4]/bv*+ba/b|--merge-output-format|mp4"));
        row("best, any container", best, false, false, "mp3", {}, QStringLiteral("-f|bv*+ba/b"));
        row("video only, mp4", silent, true, false, "mp3", {}, QStringLiteral("-f|bv*[ext=mp4]/bv*"));
        row("audio: an unknown format, even M4A, is mp3", sound, true, false, "M4A", {}, audio.arg(QStringLiteral("mp3")));
        row("cookies before the selector", silent, false, true, "mp3", {}, QStringLiteral("--cookies-from-browser|firefox|-f|bv*"));
        row("clip from 1:30", best, false, false, "mp3", {QStringLiteral("1:30"), QString()},
            QStringLiteral("-f|bv*+ba/b|--download-sections|*90-inf|--force-keyframes-at-cuts"));
    }
    void argumentList() {
        QFETCH(DownloadMode, mode);
        QFETCH(bool, preferMP4);
        QFETCH(bool, cookies);
        QFETCH(QString, audioFormat);
        QFETCH(QStringList, clip);
        QFETCH(QString, tail);
        // Only a browser with a profile here is handed to the downloader.
        const QString profile = QDir::homePath() + QStringLiteral("/.mozilla/firefox");
        QVERIFY(QDir().mkpath(profile));
        const auto noProfile = qScopeGuard([] { QDir(QDir::homePath() + QStringLiteral("/.mozilla")).removeRecursively(); });
        AppSettings settings(TestEnv::root() + QStringLiteral("/args.ini"));
        settings.setPreferMP4(preferMP4);
        settings.setUseBrowserCookies(cookies);
        settings.setAudioFormatRaw(audioFormat);
        const std::optional<ClipRange> range = clip.isEmpty() ? std::nullopt : std::optional(ClipRange{clip[0], clip[1]});
        const QStringList args = YtDlp::buildArguments(DownloadItem(videoLink, mode, range), settings, pathFile,
                                                       QStringLiteral("/home/u/Downloads/Vorlix/YouTube/Music"));
        // ffmpeg is named by its folder, never by the program.
        QVERIFY(!Tools::ffmpegURL().isEmpty());
        const QStringList ffmpegPair{QStringLiteral("--ffmpeg-location"), QFileInfo(Tools::ffmpegURL()).absolutePath()};
        QVERIFY(QFileInfo::exists(ffmpegPair[1] + QStringLiteral("/ffmpeg")));
        QCOMPARE(args, firstBlock + ffmpegPair + tail.split(u'|') + QStringList{videoLink});
        QDir(profile).removeRecursively();
        const QStringList without = YtDlp::buildArguments(DownloadItem(videoLink, mode, range), settings, pathFile,
                                                          QStringLiteral("/home/u/Downloads/Vorlix/YouTube/Music"));
        QVERIFY(!without.contains(QStringLiteral("--cookies-from-browser")));
    }
};

VORLIX_TEST_SUITE(YtDlpArgumentsTest)
#include "YtDlpArgumentsTest.moc"

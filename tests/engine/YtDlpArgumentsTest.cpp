#include "TestEnv.h"
#include "TestMain.h"

#include "core/AppSettings.h"
#include "engine/YtDlp.h"

#include <QFileInfo>
#include <QTemporaryDir>
#include <QTest>

namespace {
const QString videoLink = QStringLiteral("https://www.youtube.com/watch?v=dQw4w9WgXcQ&t=30");
const QString pathFile = QStringLiteral("/data/Vorlix/outpath-ABC.txt");
const QString outputDir = QStringLiteral("/home/u/Downloads/Vorlix/YouTube/Music");

QStringList firstBlock() {
    return {QStringLiteral("--newline"),
            QStringLiteral("--no-warnings"),
            QStringLiteral("--progress-template"),
            QStringLiteral("download:VORLIX|%(progress._percent_str)s|%(progress._speed_str)s|%(progress._eta_str)s"),
            QStringLiteral("--print-to-file"),
            QStringLiteral("after_move:filepath"),
            pathFile,
            QStringLiteral("-o"),
            QStringLiteral("/home/u/Downloads/Vorlix/YouTube/Music/%(title).80B [%(id).12B].%(ext)s"),
            QStringLiteral("--no-playlist"),
            QStringLiteral("-N"),
            QStringLiteral("8"),
            QStringLiteral("--retries"),
            QStringLiteral("8"),
            QStringLiteral("--fragment-retries"),
            QStringLiteral("8"),
            QStringLiteral("--socket-timeout"),
            QStringLiteral("20")};
}

// The ffmpeg pair as this machine's ffmpeg yields it (the folder, never the program).
QStringList ffmpegPair() {
    const QString ffmpeg = Tools::ffmpegURL();
    if (ffmpeg.isEmpty())
        return {};
    return {QStringLiteral("--ffmpeg-location"), QFileInfo(ffmpeg).absolutePath()};
}
} // namespace

class YtDlpArgumentsTest : public QObject {
    Q_OBJECT
    QTemporaryDir m_dir;

private Q_SLOTS:
    void argumentList_data() {
        QTest::addColumn<DownloadMode>("mode");
        QTest::addColumn<bool>("preferMP4");
        QTest::addColumn<bool>("cookies");
        QTest::addColumn<QString>("audioFormat");
        QTest::addColumn<bool>("hasClip");
        QTest::addColumn<QString>("clipStart");
        QTest::addColumn<QString>("clipEnd");
        QTest::addColumn<QStringList>("tail"); // everything after block 1 and the ffmpeg pair

        const QString mp4Selector = QStringLiteral("bv*[ext=mp4]+ba[ext=m4a]/b[ext=mp4]/bv*+ba/b");
        const QStringList cookiePair{QStringLiteral("--cookies-from-browser"), QStringLiteral("chrome")};
        auto audio = [](const char *format) {
            return QStringList{QStringLiteral("-f"), QStringLiteral("ba/b"), QStringLiteral("-x"),
                               QStringLiteral("--audio-format"), QString::fromLatin1(format),
                               QStringLiteral("--audio-quality"), QStringLiteral("0"),
                               QStringLiteral("--embed-thumbnail"), QStringLiteral("--embed-metadata")};
        };
        const QStringList sectionFrom90{QStringLiteral("--download-sections"), QStringLiteral("*90-inf"),
                                        QStringLiteral("--force-keyframes-at-cuts")};

        QTest::newRow("best, mp4") << DownloadMode::bestVideoAudio << true << false << QStringLiteral("mp3") << false << QString()
                                   << QString()
                                   << (QStringList{QStringLiteral("-f"), mp4Selector, QStringLiteral("--merge-output-format"),
                                                   QStringLiteral("mp4")});
        QTest::newRow("best, any container")
            << DownloadMode::bestVideoAudio << false << false << QStringLiteral("mp3") << false << QString() << QString()
            << QStringList{QStringLiteral("-f"), QStringLiteral("bv*+ba/b")};
        QTest::newRow("video only, mp4") << DownloadMode::videoOnly << true << false << QStringLiteral("mp3") << false << QString()
                                         << QString() << QStringList{QStringLiteral("-f"), QStringLiteral("bv*[ext=mp4]/bv*")};
        QTest::newRow("video only, any") << DownloadMode::videoOnly << false << false << QStringLiteral("m4a") << false << QString()
                                         << QString() << QStringList{QStringLiteral("-f"), QStringLiteral("bv*")};
        QTest::newRow("audio m4a") << DownloadMode::audioOnly << true << false << QStringLiteral("m4a") << false << QString()
                                   << QString() << audio("m4a");
        QTest::newRow("audio m4a ignores preferMP4")
            << DownloadMode::audioOnly << false << false << QStringLiteral("m4a") << false << QString() << QString() << audio("m4a");
        QTest::newRow("audio mp3") << DownloadMode::audioOnly << true << false << QStringLiteral("mp3") << false << QString()
                                   << QString() << audio("mp3");
        QTest::newRow("audio unknown format → mp3")
            << DownloadMode::audioOnly << true << false << QStringLiteral("flac") << false << QString() << QString() << audio("mp3");
        QTest::newRow("audio M4A is not m4a")
            << DownloadMode::audioOnly << true << false << QStringLiteral("M4A") << false << QString() << QString() << audio("mp3");
        QTest::newRow("cookies before the selector")
            << DownloadMode::videoOnly << false << true << QStringLiteral("mp3") << false << QString() << QString()
            << (cookiePair + QStringList{QStringLiteral("-f"), QStringLiteral("bv*")});
        QTest::newRow("empty clip adds nothing")
            << DownloadMode::videoOnly << false << false << QStringLiteral("mp3") << true << QString() << QString()
            << QStringList{QStringLiteral("-f"), QStringLiteral("bv*")};
        QTest::newRow("clip from 1:30 to the end")
            << DownloadMode::bestVideoAudio << false << false << QStringLiteral("mp3") << true << QStringLiteral("1:30") << QString()
            << (QStringList{QStringLiteral("-f"), QStringLiteral("bv*+ba/b")} + sectionFrom90);
        QTest::newRow("everything at once")
            << DownloadMode::audioOnly << true << true << QStringLiteral("m4a") << true << QStringLiteral("10")
            << QStringLiteral("1:00")
            << (cookiePair + audio("m4a") +
                QStringList{QStringLiteral("--download-sections"), QStringLiteral("*10-60"),
                            QStringLiteral("--force-keyframes-at-cuts")});
    }

    void argumentList() {
        QFETCH(DownloadMode, mode);
        QFETCH(bool, preferMP4);
        QFETCH(bool, cookies);
        QFETCH(QString, audioFormat);
        QFETCH(QString, clipStart);
        QFETCH(QString, clipEnd);
        QFETCH(QStringList, tail);

        AppSettings settings(m_dir.filePath(QStringLiteral("args.ini")));
        settings.setPreferMP4(preferMP4);
        settings.setUseBrowserCookies(cookies);
        settings.setAudioFormatRaw(audioFormat);
        QFETCH(bool, hasClip);
        std::optional<ClipRange> clip;
        if (hasClip)
            clip = ClipRange{clipStart, clipEnd};
        DownloadItem item(videoLink, mode, clip);

        const QStringList expected = firstBlock() + ffmpegPair() + tail + QStringList{videoLink};
        QCOMPARE(YtDlp::buildArguments(item, settings, pathFile, outputDir), expected);
    }

    void ffmpegLocationIsTheFolder() {
        if (Tools::ffmpegURL().isEmpty())
            QSKIP("no ffmpeg on this machine");
        AppSettings settings(m_dir.filePath(QStringLiteral("ffmpeg.ini")));
        const QStringList args = YtDlp::buildArguments(DownloadItem(videoLink, DownloadMode::bestVideoAudio), settings,
                                                       pathFile, outputDir);
        QCOMPARE(args.at(18), QStringLiteral("--ffmpeg-location"));
        QVERIFY(QFileInfo::exists(args.at(19) + QStringLiteral("/ffmpeg")));
        QVERIFY(!args.at(19).endsWith(QLatin1String("/ffmpeg")));
        // The default settings: MP4 preferred, no cookies, no clip.
        QCOMPARE(args.size(), 18 + 2 + 4 + 1);
    }
};

VORLIX_TEST_SUITE(YtDlpArgumentsTest)
#include "YtDlpArgumentsTest.moc"

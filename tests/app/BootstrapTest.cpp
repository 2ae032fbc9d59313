#include "analysis_music.h"
#include "TestEnv.h"
#include "TestMain.h"
#include "PrivateHome.h"

#include "app/Bootstrap.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>
#include <QScopeGuard>
#include <QTemporaryDir>
#include <QTest>

#include <cmath>

namespace {

QString vorlix() { return QCoreApplication::applicationDirPath() + QStringLiteral("/../bin/vorlix"); }

struct Run {
    int status = -1;
    QString out;
    QStringList lines() const { return out.split(u'\n', Qt::SkipEmptyParts); }
};

Run runVorlix(const QStringList &args, const QProcessEnvironment &env = QProcessEnvironment::systemEnvironment()) {
    QProcess p;
    p.setProcessEnvironment(env);
    p.start(vorlix(), args);
    Run run;
    if (!p.waitForStarted(10000) || !p.waitForFinished(240000)) {
        p.kill();
        p.waitForFinished();
        return run;
    }
    run.status = p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1;
    run.out = QString::fromUtf8(p.readAllStandardOutput());
    return run;
}

bool near(const QString &text, double value, double tolerance) { return std::abs(text.toDouble() - value) <= tolerance; }

} // namespace

// The diagnostic commands, run as the real program; their line formats are pinned by these runs.
class BootstrapTest : public QObject {
    Q_OBJECT
    QTemporaryDir m_dir;

    QString path(const QString &name) const { return m_dir.filePath(name); }

private Q_SLOTS:
    void momentsCommand() {
        const QString video = path(QStringLiteral("static.mp4"));
        QVERIFY(TestEnv::runFfmpeg({QStringLiteral("-f"), QStringLiteral("lavfi"), QStringLiteral("-i"),
                                    QStringLiteral("color=c=0x225588:s=160x90:r=25:d=20"), QStringLiteral("-c:v"),
                                    QStringLiteral("libx264"), QStringLiteral("-preset"), QStringLiteral("ultrafast"), video}));
        const Run run = runVorlix({QStringLiteral("moments"), video});
        QCOMPARE(run.status, 0);
        const QStringList lines = run.lines();
        QCOMPARE(lines.size(), 6);
        static const QRegularExpression line(QStringLiteral("^t=[ \\d]{4}\\.\\d\\d  score=0\\.000  thumb=yes$"));
        for (int i = 0; i < 5; ++i)
            QVERIFY2(line.match(lines[i]).hasMatch(), qPrintable(lines[i]));
        QCOMPARE(lines.last(), QStringLiteral("5 moments"));
    }

    void failuresStillExitZero_data() {
        QTest::addColumn<QString>("command");
        QTest::addColumn<QString>("expected");
        QTest::newRow("moments") << QStringLiteral("moments") << QStringLiteral("0 moments\n");
        QTest::newRow("beatgrid") << QStringLiteral("beatgrid") << QStringLiteral("no beat grid detected\n");
        QTest::newRow("analyze") << QStringLiteral("analyze") << QStringLiteral("bpm=none key=none\n");
        QTest::newRow("summarize") << QStringLiteral("summarize") << QString();
    }
    void failuresStillExitZero() {
        QFETCH(QString, command);
        QVERIFY(TestEnv::writeFile(path(QStringLiteral("empty.txt")), QByteArray()));
        QVERIFY(TestEnv::writeFile(path(QStringLiteral("garbage.bin")), QByteArray("\xff\xfe\x00garbage\x80", 11)));
        for (const char *file : {"missing.wav", "garbage.bin", "empty.txt"}) {
            const Run run = runVorlix({command, path(QLatin1String(file))});
            QCOMPARE(run.status, 0);
            QTEST(run.out, "expected");
        }
        // No command touches the settings, the tool folder or the launch log.
        QVERIFY(!QFileInfo::exists(TestEnv::home() + QStringLiteral("/.config/Vorlix")));
        for (const char *tool : {"yt-dlp", "ffmpeg", "whisper-cli"})
            QVERIFY(!QFileInfo::exists(TestEnv::toolDir() + u'/' + QLatin1String(tool)));
        QVERIFY(TestEnv::filesContaining(TestEnv::root(), QStringLiteral("launch.log")).isEmpty());
    }

    void beatGridAndTempoOfASong() {
        // A C major cadence with a click on every beat at 120 BPM, the first at 0.25 s.
        const QString song = path(QStringLiteral("song.wav"));
        AnalysisMusic::Options options;
        options.seconds = 12;
        options.firstClick = 0.25;
        QVERIFY(AnalysisMusic::song(song, 0, false, 120.0, options));
        const QString grid = runVorlix({QStringLiteral("beatgrid"), song}).out;
        static const QRegularExpression format(QStringLiteral(
            "^bpm=(\\d+\\.\\d) firstBeat=(\\d+\\.\\d{3})s beatLength=(\\d+\\.\\d{3})s\nsnap\\(10\\.0\\)=(\\d+\\.\\d{3}) snapLength\\(2\\.5\\)=(\\d+\\.\\d{3})\n$"));
        const auto g = format.match(grid);
        QVERIFY2(g.hasMatch(), qPrintable(grid));
        const double bpm = g.captured(1).toDouble(), firstBeat = g.captured(2).toDouble(), beat = 60.0 / bpm;
        QVERIFY(near(g.captured(1), 120.0, 1.0) && near(g.captured(2), 0.25, 0.05));
        QCOMPARE(g.captured(3), QString::asprintf("%.3f", beat));
        // The snap line is the printed grid's own rounding of 10 s and 2.5 s.
        QVERIFY(near(g.captured(4), firstBeat + beat * std::round((10.0 - firstBeat) / beat), 0.002));
        QVERIFY(near(g.captured(5), beat * std::round(2.5 / beat), 0.002));

        const QString tempo = runVorlix({QStringLiteral("analyze"), song}).out;
        static const QRegularExpression analysis(QStringLiteral("^bpm=(\\d+\\.\\d+) key=C\n$"));
        const auto a = analysis.match(tempo);
        QVERIFY2(a.hasMatch() && near(a.captured(1), 120.0, 1.0), qPrintable(tempo));
    }

    void summarizeCommandPrintsBullets() {
        const QString talk = path(QStringLiteral("talk.txt"));
        QVERIFY(TestEnv::writeFile(talk, "Practice the chord voicing slowly every day before you play the song. "
                                         "The chord voicing decides how the song sounds to the audience. Lunch was late. "
                                         "A metronome keeps the song steady while you practise the chord voicing.\n"));
        const QStringList lines = runVorlix({QStringLiteral("summarize"), talk}).lines();
        QVERIFY(!lines.isEmpty());
        for (const QString &line : lines)
            QVERIFY2(line.startsWith(QStringLiteral("\u2022 ")) && line.size() > 2, qPrintable(line));
    }

    // Three lines for a probed link, one when the engine fails. (The real engine's probe is the
    // engine suite's.)
    void probeCommand() {
        const auto removeStub = qScopeGuard([] { TestEnv::removeStubTool(QStringLiteral("yt-dlp")); });
        TestEnv::standIn(QStringLiteral("yt-dlp"),
                         QStringLiteral("case \"$*\" in *gone*) echo 'ERROR: [generic] HTTP Error 404: Not Found' >&2; exit 1;; esac\n"
                                        "printf 'VORLIXMETA\\tNeon Nights (Official Video)\\t215\\tNA\\tMusic\\n'"));
        const QString link = QStringLiteral("https://www.youtube.com/watch?v=abcdefghijk");
        const Run run = runVorlix({QStringLiteral("probe"), link});
        QVERIFY(TestEnv::standInArgs(QStringLiteral("yt-dlp")).contains(link));
        static const QRegularExpression format(QStringLiteral(
            "^title=Neon Nights \\(Official Video\\)\nsource=YouTube platformCats=\\[\"Music\"\\] genre=(.+)\nfolder=YouTube/(.+)\n$"));
        const auto match = format.match(run.out);
        QVERIFY2(run.status == 0 && match.hasMatch() && match.captured(1) == match.captured(2), qPrintable(run.out));

        const Run failed = runVorlix({QStringLiteral("probe"), QStringLiteral("http://127.0.0.1:9/gone.mp4")});
        QCOMPARE(failed.status, 0);
        QVERIFY2(failed.out.startsWith(QStringLiteral("probe failed: ")) && failed.out.count(u'\n') == 1, qPrintable(failed.out));
    }

    // Help and version need no display: a GUI start would abort on the missing X server.
    void helpAndVersionWithoutADisplay_data() {
        QTest::addColumn<QString>("option");
        QTest::addColumn<QString>("expected");
        QTest::newRow("help") << QStringLiteral("--help") << Bootstrap::usageText();
        QTest::newRow("short help") << QStringLiteral("-h") << Bootstrap::usageText();
        QTest::newRow("version") << QStringLiteral("--version") << QStringLiteral("vorlix " VORLIX_VERSION "\n");
    }
    void helpAndVersionWithoutADisplay() {
        QFETCH(QString, option);
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.remove(QStringLiteral("DISPLAY"));
        env.remove(QStringLiteral("WAYLAND_DISPLAY"));
        env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("xcb"));
        const Run run = runVorlix({option}, env);
        QCOMPARE(run.status, 0);
        QTEST(run.out, "expected");
    }

    // A command name in the wrong case is no command: the application launches (a command would
    // have ended without a launch log) and keeps running until asked to quit.
    void otherArgumentsStartTheApplication() {
        PrivateHome home;
        QProcess p;
        p.setProcessEnvironment(home.environment());
        p.start(vorlix(), {QStringLiteral("Moments"), path(QStringLiteral("x.mp4"))});
        QVERIFY(p.waitForStarted(10000));
        QTRY_VERIFY_WITH_TIMEOUT(QFileInfo(home.data() + QStringLiteral("/Vorlix/launch.log")).size() > 0, 30000);
        QCOMPARE(p.state(), QProcess::Running);
        QCOMPARE(p.readAllStandardOutput(), QByteArray());
        p.terminate();
        QVERIFY(p.waitForFinished(10000));
    }
};

VORLIX_TEST_SUITE(BootstrapTest)
#include "BootstrapTest.moc"

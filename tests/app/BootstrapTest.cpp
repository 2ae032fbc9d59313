#include "analysis_music.h"
#include "TestEnv.h"
#include "TestMain.h"
#include "PrivateHome.h"

#include "app/Bootstrap.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
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
};

Run runVorlix(const QStringList &args, int timeoutMs = 240000) {
    QProcess p;
    p.start(vorlix(), args);
    Run run;
    if (!p.waitForStarted(10000) || !p.waitForFinished(timeoutMs)) {
        p.kill();
        p.waitForFinished();
        return run;
    }
    run.status = p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1;
    run.out = QString::fromUtf8(p.readAllStandardOutput());
    return run;
}

using TestEnv::writeFile;

} // namespace

class BootstrapTest : public QObject {
    Q_OBJECT
    QTemporaryDir m_dir;

    QString path(const QString &name) const { return m_dir.filePath(name); }

private Q_SLOTS:
    void dispatch_data() {
        QTest::addColumn<QString>("arguments"); // after the program name
        QTest::addColumn<QString>("command");
        QTest::newRow("moments") << QStringLiteral("moments a.mp4") << QStringLiteral("moments");
        QTest::newRow("extra arguments ignored") << QStringLiteral("probe x y") << QStringLiteral("probe");
        QTest::newRow("no argument") << QStringLiteral("moments") << QString();
        QTest::newRow("capitalised") << QStringLiteral("Moments a") << QString();
        QTest::newRow("unknown") << QStringLiteral("--help a") << QString();
    }
    void dispatch() {
        QFETCH(QString, arguments);
        QTEST(Bootstrap::diagnosticCommand(QStringLiteral("vorlix ").append(arguments).split(u' ')), "command");
    }

    void lineFormats() {
        Moment m;
        m.time = 5.0;
        m.score = 0.747871;
        m.thumbnail = QStringLiteral("/x/m0.jpg");
        QCOMPARE(Bootstrap::momentLine(m), QStringLiteral("t=   5.00  score=0.748  thumb=yes"));
        m.thumbnail.reset();
        m.time = 1234.567;
        QCOMPARE(Bootstrap::momentLine(m), QStringLiteral("t=1234.57  score=0.748  thumb=no"));
        QCOMPARE(Bootstrap::tempoText(120.0) + u' ' + Bootstrap::tempoText(98.4375) + u' ' + Bootstrap::tempoText(std::nullopt),
                 QStringLiteral("120.0 98.4375 none"));
        QCOMPARE(Bootstrap::categoryList({}), QStringLiteral("[]"));
        QCOMPARE(Bootstrap::categoryList({QStringLiteral("Music"), QStringLiteral("Film & Animation")}),
                 QStringLiteral("[\"Music\", \"Film & Animation\"]"));
    }

    void momentsCommand() {
        const QString video = path(QStringLiteral("static.mp4"));
        QVERIFY(TestEnv::runFfmpeg({QStringLiteral("-f"), QStringLiteral("lavfi"), QStringLiteral("-i"),
                        QStringLiteral("color=c=0x225588:s=160x90:r=25:d=20"), QStringLiteral("-c:v"),
                        QStringLiteral("libx264"), QStringLiteral("-preset"), QStringLiteral("ultrafast"), video}));
        const Run run = runVorlix({QStringLiteral("moments"), video});
        QCOMPARE(run.status, 0);
        const QStringList lines = run.out.split(u'\n', Qt::SkipEmptyParts);
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
        QFETCH(QString, expected);
        QVERIFY(writeFile(path(QStringLiteral("empty.txt")), QByteArray()));
        QVERIFY(writeFile(path(QStringLiteral("garbage.bin")), QByteArray("\xff\xfe\x00garbage\x80", 11)));
        for (const QString &file : {path(QStringLiteral("missing.wav")), path(QStringLiteral("garbage.bin")), path(QStringLiteral("empty.txt"))}) {
            const Run run = runVorlix({command, file});
            QCOMPARE(run.status, 0);
            QCOMPARE(run.out, expected);
        }
    }

    void beatGridAndTempoOfASong() {
        // A C major cadence with a click on every beat at 120 BPM, the first at 0.25 s.
        const QString song = path(QStringLiteral("song.wav"));
        AnalysisMusic::Options options;
        options.seconds = 12;
        options.firstClick = 0.25;
        QVERIFY(AnalysisMusic::song(song, 0, false, 120.0, options));
        const Run grid = runVorlix({QStringLiteral("beatgrid"), song});
        QCOMPARE(grid.status, 0);
        const QStringList lines = grid.out.split(u'\n', Qt::SkipEmptyParts);
        QCOMPARE(lines.size(), 2);
        static const QRegularExpression first(
            QStringLiteral("^bpm=(\\d+\\.\\d) firstBeat=(\\d+\\.\\d{3})s beatLength=(\\d+\\.\\d{3})s$"));
        static const QRegularExpression second(
            QStringLiteral("^snap\\(10\\.0\\)=(\\d+\\.\\d{3}) snapLength\\(2\\.5\\)=(\\d+\\.\\d{3})$"));
        const auto g = first.match(lines[0]);
        const auto s = second.match(lines[1]);
        QVERIFY2(g.hasMatch(), qPrintable(lines[0]));
        QVERIFY2(s.hasMatch(), qPrintable(lines[1]));
        const double bpm = g.captured(1).toDouble();
        const double firstBeat = g.captured(2).toDouble();
        const double beat = 60.0 / bpm;
        QVERIFY(std::abs(bpm - 120.0) <= 1.0);
        QVERIFY(std::abs(firstBeat - 0.25) < 0.05);
        QCOMPARE(g.captured(3), QString::asprintf("%.3f", beat));
        // The snap line is the printed grid's own rounding of 10 s and 2.5 s.
        QVERIFY(std::abs(s.captured(1).toDouble() - (firstBeat + beat * std::round((10.0 - firstBeat) / beat))) < 0.002);
        QVERIFY(std::abs(s.captured(2).toDouble() - beat * std::round(2.5 / beat)) < 0.002);

        const Run tempo = runVorlix({QStringLiteral("analyze"), song});
        QCOMPARE(tempo.status, 0);
        static const QRegularExpression analysis(QStringLiteral("^bpm=(\\d+\\.\\d+) key=C\n$"));
        const auto a = analysis.match(tempo.out);
        QVERIFY2(a.hasMatch(), qPrintable(tempo.out));
        QVERIFY(std::abs(a.captured(1).toDouble() - 120.0) <= 1.0);
    }

    // A summary is bullet lines; no command touches the settings, the tool folder or the launch log.
    void summarizeLeavesSettingsAndToolsAlone() {
        const QString talk = path(QStringLiteral("talk.txt"));
        QVERIFY(writeFile(talk, "Practice the chord voicing slowly every day before you play the song. "
                                "The chord voicing decides how the song sounds to the audience. "
                                "Weather was nice yesterday. "
                                "Playing the song slowly with the right chord voicing builds the habit. "
                                "Lunch was late. "
                                "A metronome keeps the song steady while you practise the chord voicing.\n"));
        const Run run = runVorlix({QStringLiteral("summarize"), talk});
        QCOMPARE(run.status, 0);
        const QStringList lines = run.out.split(u'\n', Qt::SkipEmptyParts);
        QVERIFY(!lines.isEmpty());
        for (const QString &line : lines)
            QVERIFY2(line.startsWith(QStringLiteral("• ")) && line.size() > 2, qPrintable(line));
        QCOMPARE(runVorlix({QStringLiteral("moments"), talk}).out, QStringLiteral("0 moments\n"));
        QVERIFY(!QFileInfo::exists(TestEnv::home() + QStringLiteral("/.config/Vorlix")));
        for (const QString &tool : {QStringLiteral("yt-dlp"), QStringLiteral("ffmpeg"), QStringLiteral("whisper-cli")})
            QVERIFY(!QFileInfo::exists(TestEnv::toolDir() + u'/' + tool));
        QVERIFY(TestEnv::filesContaining(TestEnv::root(), QStringLiteral("launch.log")).isEmpty());
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
        QCOMPARE(run.status, 0);
        QVERIFY(TestEnv::standInArgs(QStringLiteral("yt-dlp")).contains(link));
        const QStringList lines = run.out.split(u'\n', Qt::SkipEmptyParts);
        QCOMPARE(lines.size(), 3);
        QCOMPARE(lines[0], QStringLiteral("title=Neon Nights (Official Video)"));
        static const QRegularExpression second(QStringLiteral("^source=YouTube platformCats=\\[\"Music\"\\] genre=(.+)$"));
        const auto match = second.match(lines[1]);
        QVERIFY2(match.hasMatch(), qPrintable(lines[1]));
        QCOMPARE(lines[2], QStringLiteral("folder=YouTube/") + match.captured(1));

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
        QFETCH(QString, expected);
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.remove(QStringLiteral("DISPLAY"));
        env.remove(QStringLiteral("WAYLAND_DISPLAY"));
        env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("xcb"));
        QProcess p;
        p.setProcessEnvironment(env);
        p.start(vorlix(), {option});
        QVERIFY(p.waitForFinished(30000));
        QCOMPARE(p.exitStatus(), QProcess::NormalExit);
        QCOMPARE(p.exitCode(), 0);
        QCOMPARE(QString::fromUtf8(p.readAllStandardOutput()), expected);
    }

    // Anything but a command with its argument starts the application: it launches (a command
    // would have ended without a launch log) and keeps running until asked to quit.
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

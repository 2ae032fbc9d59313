#include "Await.h"
#include "TestEnv.h"
#include "TestMain.h"
#include "analysis_music.h"

#include "analysis/PracticeMode.h"
#include "engine/Tools.h"

#include <QDir>
#include <QFile>
#include <QTest>

#include <cmath>

using namespace Qt::StringLiterals;

namespace {

QString folder() { return TestEnv::root() + QStringLiteral("/renders"); }
QString inFolder(const QString &name) { return folder() + u'/' + name; }

// A stand-in ffmpeg that creates its last argument unless told not to, and exits with `status`.
QString stubFFmpeg(int status, bool writesOutput) {
    return TestEnv::standIn(QStringLiteral("render-ffmpeg"),
                            QStringLiteral("for last; do :; done\n%1\nexit %2")
                                .arg(writesOutput ? QStringLiteral("echo rendered > \"$last\"") : QString())
                                .arg(status));
}

QStringList recordedArguments() { return TestEnv::standInArgs(QStringLiteral("render-ffmpeg")); }

QString text(const std::optional<QUrl> &url) { return url ? url->toLocalFile() : QStringLiteral("<none>"); }

} // namespace

class PracticeRenderTest : public QObject {
    Q_OBJECT
    QString ffmpeg;

private Q_SLOTS:
    void initTestCase() {
        QDir().mkpath(folder());
        AnalysisMusic::Options options;
        options.seconds = 6;
        options.sampleRate = 44100;
        options.channels = 2;
        QVERIFY(AnalysisMusic::chordProgression(inFolder(QStringLiteral("Song.m4a")), 0, false, options));
    }

    void namesAndFilters() {
        const auto variant = [](const QString &source, const QString &suffix) {
            return PracticeMode::variantURL(QUrl::fromLocalFile(source), suffix).toLocalFile();
        };
        QCOMPARE(variant(u"/v/Clip.mp4"_s, u"+2 semitones"_s), u"/v/Clip (+2 semitones).mp4"_s);
        QCOMPARE(variant(u"/music/Song"_s, u"-1 semitones"_s), u"/music/Song (-1 semitones).mp3"_s); // no extension: mp3
        QCOMPARE(variant(u"/m/.take"_s, u"90% speed"_s), u"/m/.take (90% speed).mp3"_s);
        QCOMPARE(PracticeMode::speedSuffix(0.125), u"13% speed"_s); // half a percent rounds up
        QCOMPARE(PracticeMode::pitchSuffix(1), u"+1 semitones"_s);  // still plural
        QCOMPARE(PracticeMode::pitchShiftFilter(-1), u"asetrate=44100*0.9438743126816935,aresample=44100,atempo=1.0594630943592953"_s);
        // The shortest decimal that reads back to the same value.
        QCOMPARE(PracticeMode::decimalText(120.0), u"120.0"_s);
        QCOMPARE(PracticeMode::decimalText(0.30000000000000004), u"0.30000000000000004"_s);
    }

    // The exact command lines, through a stand-in ffmpeg.
    void renderCommandLines() {
        const QString stub = stubFFmpeg(0, true);
        const QString source = inFolder(QStringLiteral("Song.m4a"));
        const QUrl file = QUrl::fromLocalFile(source);

        const auto slow = vtest::await(PracticeMode::renderSpeed(file, 0.75, stub));
        const QString slowPath = inFolder(QStringLiteral("Song (75% speed).m4a"));
        QCOMPARE(text(slow), slowPath);
        QCOMPARE(recordedArguments(), (QStringList{QStringLiteral("-y"), QStringLiteral("-i"), source, QStringLiteral("-filter:a"),
                                                   QStringLiteral("atempo=0.75"), QStringLiteral("-vn"), slowPath}));

        const auto down = vtest::await(PracticeMode::renderPitchShift(file, -1, stub));
        const QString downPath = inFolder(QStringLiteral("Song (-1 semitones).m4a"));
        QCOMPARE(text(down), downPath);
        QCOMPARE(recordedArguments().mid(7), (QStringList{QStringLiteral("-y"), QStringLiteral("-i"), source, QStringLiteral("-filter:a"),
                                                          PracticeMode::pitchShiftFilter(-1), QStringLiteral("-vn"), downPath}));
        QFile::remove(slowPath);
        QFile::remove(downPath);
    }

    void failedRendersYieldNothing_data() {
        QTest::addColumn<bool>("speed"); // else a pitch shift
        QTest::addColumn<double>("rate");
        QTest::addColumn<int>("semitones");
        QTest::addColumn<int>("status");
        QTest::addColumn<bool>("writesOutput");
        QTest::addColumn<bool>("toolRuns");
        QTest::newRow("speed: ffmpeg fails after writing") << true << 0.5 << 0 << 1 << true << true;
        QTest::newRow("speed: stopped at the time-out") << true << 0.9 << 0 << 15 << true << true;
        QTest::newRow("speed: zero") << true << 0.0 << 0 << 0 << true << false;
        QTest::newRow("pitch: exit 0 without output") << false << 0.0 << -2 << 0 << false << true;
        QTest::newRow("pitch: zero semitones does nothing") << false << 0.0 << 0 << 0 << true << false;
    }

    void failedRendersYieldNothing() {
        QFETCH(bool, speed);
        QFETCH(double, rate);
        QFETCH(int, semitones);
        QFETCH(int, status);
        QFETCH(bool, writesOutput);
        QFETCH(bool, toolRuns);
        const QString stub = stubFFmpeg(status, writesOutput);
        const QUrl file = QUrl::fromLocalFile(inFolder(QStringLiteral("Song.m4a")));
        const auto out = speed ? vtest::await(PracticeMode::renderSpeed(file, rate, stub))
                               : vtest::await(PracticeMode::renderPitchShift(file, semitones, stub));
        QCOMPARE(text(out), QStringLiteral("<none>"));
        QCOMPARE(!recordedArguments().isEmpty(), toolRuns);
        for (const QString &leftover : QDir(folder()).entryList({QStringLiteral("Song (*")}))
            QFile::remove(inFolder(leftover));
    }

    void noFFmpegNoRender() {
        const QUrl file = QUrl::fromLocalFile(inFolder(QStringLiteral("Song.m4a")));
        QCOMPARE(text(vtest::await(PracticeMode::renderSpeed(file, 0.5, QString()))), QStringLiteral("<none>"));
        QCOMPARE(text(vtest::await(PracticeMode::renderPitchShift(file, 1, QString()))), QStringLiteral("<none>"));
        const QString missing = TestEnv::root() + QStringLiteral("/nowhere/ffmpeg");
        QCOMPARE(text(vtest::await(PracticeMode::renderSpeed(file, 0.5, missing))), QStringLiteral("<none>"));
    }

    // Real renders: slowing down stretches the file, transposing keeps its length and moves its key.
    void realRenders() {
        const QString source = inFolder(QStringLiteral("Song.m4a"));
        const QUrl file = QUrl::fromLocalFile(source);
        const double length = AnalysisMusic::duration(source);
        QVERIFY(length > 5.5);

        // An older variant of the same name is replaced.
        const QString slowPath = inFolder(QStringLiteral("Song (75% speed).m4a"));
        QVERIFY(TestEnv::writeFile(slowPath, "stale"));

        const auto slow = vtest::await(PracticeMode::renderSpeed(file, 0.75));
        QCOMPARE(text(slow), slowPath);
        QVERIFY2(std::abs(AnalysisMusic::duration(slowPath) / length - 1 / 0.75) < 0.02,
                 qPrintable(QString::number(AnalysisMusic::duration(slowPath))));

        const auto up = vtest::await(PracticeMode::renderPitchShift(file, 2));
        const QString upPath = inFolder(QStringLiteral("Song (+2 semitones).m4a"));
        QCOMPARE(text(up), upPath);
        QVERIFY2(std::abs(AnalysisMusic::duration(upPath) - length) < 0.1,
                 qPrintable(QString::number(AnalysisMusic::duration(upPath))));
        QCOMPARE(vtest::await(PracticeMode::analyze(file)).key, std::optional<QString>(QStringLiteral("C")));
        QCOMPARE(vtest::await(PracticeMode::analyze(*up)).key, std::optional<QString>(QStringLiteral("D")));
    }
};

VORLIX_TEST_SUITE(PracticeRenderTest)
#include "PracticeRenderTest.moc"

#include "Await.h"
#include "TestEnv.h"
#include "TestMain.h"
#include "analysis_music.h"

#include "analysis/PracticeMode.h"

#include <QDir>
#include <QTest>

#include <cmath>

using namespace Qt::StringLiterals;

namespace {

QString inFolder(const QString &name) { return TestEnv::root() + QStringLiteral("/renders/") + name; }

// A stand-in ffmpeg that creates its last argument unless told not to, and exits with `status`.
QString stubFFmpeg(int status, bool writesOutput) {
    return TestEnv::standIn(u"render-ffmpeg"_s, u"for last; do :; done\n%1\nexit %2"_s.arg(writesOutput ? u"echo rendered > \"$last\""_s : QString()).arg(status));
}

QString text(const std::optional<QUrl> &url) { return url ? url->toLocalFile() : u"<none>"_s; }

} // namespace

class PracticeRenderTest : public QObject {
    Q_OBJECT
    const QString m_source = inFolder(u"Song.m4a"_s);

private Q_SLOTS:
    void initTestCase() {
        QDir().mkpath(inFolder({}));
        QVERIFY(AnalysisMusic::chordProgression(m_source, 0, false, {6, 44100, 2, 0}));
    }

    void namesAndFilters() {
        const auto variant = [](const QString &source, const QString &suffix) { return PracticeMode::variantURL(QUrl::fromLocalFile(source), suffix).toLocalFile(); };
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

    // Through a stand-in ffmpeg: the exact command lines, and no file claimed unless one was written
    // by a run that succeeded.
    void renderRuns() {
        const QUrl file = QUrl::fromLocalFile(m_source);
        // a speed change (else a pitch shift), its rate or semitones, exit status, writes its output, the output (none: never run), claimed
        const std::tuple<bool, double, int, bool, QString, bool> rows[] = {
            {true, 0.75, 0, true, inFolder(u"Song (75% speed).m4a"_s), true}, {false, -1, 0, true, inFolder(u"Song (-1 semitones).m4a"_s), true},
            {true, 0.5, 1, true, inFolder(u"Song (50% speed).m4a"_s), false}, {true, 0.0, 0, true, {}, false}, // fails after writing; zero speed
            {false, -2, 0, false, inFolder(u"Song (-2 semitones).m4a"_s), false}, {false, 0, 0, true, {}, false}}; // exit 0 without output; zero semitones
        for (const auto &[speed, amount, status, writes, output, claimed] : rows) {
            const QString stub = stubFFmpeg(status, writes);
            const auto out = speed ? vtest::await(PracticeMode::renderSpeed(file, amount, stub)) : vtest::await(PracticeMode::renderPitchShift(file, int(amount), stub));
            QCOMPARE(text(out), claimed ? output : u"<none>"_s);
            const QString filter = speed ? u"atempo=%1"_s.arg(amount) : PracticeMode::pitchShiftFilter(int(amount));
            QCOMPARE(TestEnv::standInArgs(u"render-ffmpeg"_s), (output.isEmpty() ? QStringList() : QStringList{u"-y"_s, u"-i"_s, m_source, u"-filter:a"_s, filter, u"-vn"_s, output}));
            for (const QString &leftover : QDir(inFolder({})).entryList({u"Song (*"_s}))
                QFile::remove(inFolder(leftover));
        }
        for (const QString &missing : QStringList{QString(), TestEnv::root() + u"/nowhere/ffmpeg"_s}) {
            QCOMPARE(text(vtest::await(PracticeMode::renderSpeed(file, 0.5, missing))), u"<none>"_s);
            QCOMPARE(text(vtest::await(PracticeMode::renderPitchShift(file, 1, missing))), u"<none>"_s);
        }
    }

    // Real renders: slowing down stretches the file, transposing keeps its length and moves its key.
    void realRenders() {
        const QUrl file = QUrl::fromLocalFile(m_source);
        const double length = AnalysisMusic::duration(m_source);
        const QString slow = inFolder(u"Song (75% speed).m4a"_s);
        QVERIFY(length > 5.5 && TestEnv::writeFile(slow, "stale")); // an older variant of the same name is replaced
        QCOMPARE(text(vtest::await(PracticeMode::renderSpeed(file, 0.75))), slow);
        QVERIFY2(std::abs(AnalysisMusic::duration(slow) / length - 1 / 0.75) < 0.02, qPrintable(QString::number(AnalysisMusic::duration(slow))));
        const auto up = vtest::await(PracticeMode::renderPitchShift(file, 2));
        QCOMPARE(text(up), inFolder(u"Song (+2 semitones).m4a"_s));
        QVERIFY2(std::abs(AnalysisMusic::duration(text(up)) - length) < 0.1, qPrintable(QString::number(AnalysisMusic::duration(text(up)))));
        QCOMPARE(vtest::await(PracticeMode::analyze(file)).key, u"C"_s);
        QCOMPARE(vtest::await(PracticeMode::analyze(*up)).key, u"D"_s);
    }
};

VORLIX_TEST_SUITE(PracticeRenderTest)
#include "PracticeRenderTest.moc"

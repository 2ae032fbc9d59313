#include "Await.h"
#include "TestEnv.h"
#include "TestMain.h"
#include "analysis_music.h"

#include "analysis/PracticeMode.h"

#include <QDir>
#include <QElapsedTimer>
#include <QTimer>
#include <QTest>

#include <cmath>
#include <numbers>
#include <vector>

using PracticeMode::Analysis;
using PracticeMode::BeatGrid;

using namespace Qt::StringLiterals;

namespace {

QString media(const QString &name) { return TestEnv::root() + QStringLiteral("/media/") + name; }
QUrl mediaUrl(const QString &name) { return QUrl::fromLocalFile(media(name)); }

QString describe(const Analysis &a) {
    return QStringLiteral("bpm=%1 key=%2")
        .arg(a.bpm ? QString::number(*a.bpm) : QStringLiteral("none"), a.key.value_or(QStringLiteral("none")));
}

// What the decoder prints: 22050 Hz mono s16le with a short 3 kHz click on every beat.
QByteArray clickPcm(double bpm, size_t samples) {
    QByteArray pcm;
    const double period = 60.0 / bpm;
    for (size_t i = 0; i < samples; ++i) {
        const double t = double(i) / PracticeMode::analysisSampleRate;
        const double since = std::fmod(t, period);
        const double v = since < 0.25 ? 0.8 * std::sin(2 * std::numbers::pi * 3000 * t) * std::exp(-since * 20) : 0;
        const auto s = qint16(std::lround(v * 32767));
        pcm.append(char(s & 0xff)).append(char(s >> 8 & 0xff));
    }
    return pcm;
}

// A stand-in ffmpeg that prints `pcm` as its decode, then runs `end`.
QString decoder(const QString &name, const QByteArray &pcm, const QString &end = QStringLiteral("exit 0")) {
    const QString payload = TestEnv::root() + u'/' + name + QStringLiteral(".pcm");
    TestEnv::writeFile(payload, pcm);
    return TestEnv::standIn(name, QStringLiteral("cat '%1'\n%2").arg(payload, end));
}




QString inFolder(const QString &name) { return TestEnv::root() + QStringLiteral("/renders/") + name; }

// A stand-in ffmpeg that creates its last argument unless told not to, and exits with `status`.
QString stubFFmpeg(int status, bool writesOutput) {
    return TestEnv::standIn(u"render-ffmpeg"_s, u"for last; do :; done\n%1\nexit %2"_s.arg(writesOutput ? u"echo rendered > \"$last\""_s : QString()).arg(status));
}

QString text(const std::optional<QUrl> &url) { return url ? url->toLocalFile() : u"<none>"_s; }

} // namespace

namespace PracticeMode {
char *toString(const Analysis &a) { return qstrdup(qPrintable(describe(a))); }
} // namespace PracticeMode

class PracticeModeTest : public QObject {
    Q_OBJECT

    const QString m_source = inFolder(u"Song.m4a"_s);

private Q_SLOTS:
    void initTestCase() {
        QDir().mkpath(media(QString()));
        QDir().mkpath(inFolder({}));
        QVERIFY(AnalysisMusic::chordProgression(m_source, 0, false, {6, 44100, 2, 0})); // C major, for the renders
        // A D minor cadence with clicks at 100 BPM from 0.3 s: compressed, stereo, 44.1 kHz, so
        // the decoder has real work to do.
        QVERIFY(AnalysisMusic::song(media(QStringLiteral("song.m4a")), 2, true, 100, {8, 44100, 2, 0.3}));
        QVERIFY(TestEnv::writeFile(media(QStringLiteral("notes.m4a")), "Not audio, only text with a misleading name.\n"));
    }

    void realDecodes() {
        const Analysis found = vtest::await(PracticeMode::analyze(mediaUrl(QStringLiteral("song.m4a"))));
        QVERIFY2(found.bpm && std::abs(*found.bpm - 100) <= 1.0 && found.key == QStringLiteral("Dm"), qPrintable(describe(found)));
        const std::optional<BeatGrid> grid = vtest::await(PracticeMode::beatGrid(mediaUrl(QStringLiteral("song.m4a"))));
        QVERIFY(grid && std::abs(grid->bpm - 100) <= 1.0);
        // Beats land on clicks: onset frames are 46 ms long, so "on" is within 0.1 s.
        const double offset = std::fmod(grid->firstBeat - 0.3 + 6.0, 0.6);
        QVERIFY2(std::min(offset, 0.6 - offset) < 0.1, qPrintable(QString::number(grid->firstBeat)));
        QVERIFY(TestEnv::filesContaining(TestEnv::root(), QStringLiteral("vorlix-")).isEmpty());
    }

    void unusableInputsYieldNothing() {
        const QUrl song = mediaUrl(QStringLiteral("song.m4a"));
        // no ffmpeg, one that cannot start, text with an audio name, not a local file, silence
        const std::pair<QUrl, QString> rows[] = {{song, QString()}, {song, TestEnv::root() + QStringLiteral("/nowhere/ffmpeg")},
                                                 {mediaUrl(QStringLiteral("notes.m4a")), TestEnv::ffmpeg()}, {QUrl(QStringLiteral("https://example.com/song.mp3")), TestEnv::ffmpeg()},
                                                 {song, decoder(QStringLiteral("silent-ffmpeg"), QByteArray(441000, '\0'))}};
        for (const auto &[file, tool] : rows) {
            QCOMPARE(vtest::await(PracticeMode::analyze(file, tool)), Analysis{});
            QVERIFY(!vtest::await(PracticeMode::beatGrid(file, tool)));
        }
    }

    // The decoder's command line, and what happens with what it prints: a grid needs only what the
    // envelope needs, an analysis more than 5 s.
    void decoderRuns() {
        const QByteArray pcm = clickPcm(90, 22050 * 6);
        const QString input = media(QStringLiteral("song.m4a"));
        // printed, how it ends, a grid, an analysis
        const std::tuple<QByteArray, const char *, bool, bool> rows[] = {
            {pcm, "exit 0", true, true},         {pcm + 'x', "exit 0", true, true}, // an odd last byte
            {pcm, "exit 15", false, false},      {pcm, "kill -9 $$", false, false}, // stopped at the time-out, killed
            {QByteArray(), "exit 0", false, false}, {pcm.left(110250 * 2), "exit 0", true, false}, {pcm.left(110251 * 2), "exit 0", true, true}};
        for (const auto &[printed, end, expectGrid, expectAnalysis] : rows) {
            const QString stub = decoder(QStringLiteral("fake-ffmpeg"), printed, QString::fromLatin1(end));
            const std::optional<BeatGrid> grid = vtest::await(PracticeMode::beatGrid(QUrl::fromLocalFile(input), stub));
            const Analysis analysis = vtest::await(PracticeMode::analyze(QUrl::fromLocalFile(input), stub));
            QVERIFY2(grid.has_value() == expectGrid && (!grid || std::abs(grid->bpm - 90) <= 1.0) && analysis.bpm.has_value() == expectAnalysis &&
                         (!analysis.bpm || std::abs(*analysis.bpm - 90) <= 1.0),
                     qPrintable(QStringLiteral("%1 bytes, %2: grid %3, %4").arg(printed.size()).arg(QLatin1String(end)).arg(grid.value_or(BeatGrid{}).bpm).arg(describe(analysis))));
            // Two decodes of the input: the grid reads 90 s, the analysis 120.
            const QStringList args = TestEnv::standInArgs(QStringLiteral("fake-ffmpeg"));
            QCOMPARE(QStringList({args.value(2), args.value(8), args.value(14), args.value(20)}), (QStringList{input, u"90"_s, input, u"120"_s}));
        }
    }

    // Closing the sheet ends its beat-grid decode at once rather than at the 300 s time-out.
    void cancelledBeatGridEndsTheDecoder() {
        const QString stub = decoder(QStringLiteral("endless-ffmpeg"), clickPcm(90, 22050), QStringLiteral("exec sleep 600"));
        auto cancellation = std::make_shared<Tools::Cancellation>();
        QTimer poll;
        QObject::connect(&poll, &QTimer::timeout, [&] {
            if (!TestEnv::standInArgs(QStringLiteral("endless-ffmpeg")).isEmpty())
                cancellation->cancel();
        });
        poll.start(20);
        QElapsedTimer clock;
        clock.start();
        QVERIFY(!vtest::await(PracticeMode::beatGrid(QUrl::fromLocalFile(media(QStringLiteral("song.m4a"))), stub, cancellation)));
        QVERIFY(clock.elapsed() < 100000);
        QVERIFY(!vtest::await(PracticeMode::beatGrid(QUrl::fromLocalFile(media(QStringLiteral("song.m4a"))), stub, cancellation)));
    }

    void namesAndFilters() {
        const auto variant = [](const QString &source, const QString &suffix) { return PracticeMode::variantURL(QUrl::fromLocalFile(source), suffix).toLocalFile(); };
        QCOMPARE(variant(u"/music/Song"_s, u"-1 semitones"_s), u"/music/Song (-1 semitones).mp3"_s); // no extension: mp3
        QCOMPARE(variant(u"/m/.take"_s, u"90% speed"_s), u"/m/.take (90% speed).mp3"_s);
        QCOMPARE(PracticeMode::speedSuffix(0.125), u"13% speed"_s); // half a percent rounds up
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
        QCOMPARE(text(vtest::await(PracticeMode::renderPitchShift(file, 1, TestEnv::root() + u"/nowhere/ffmpeg"_s))), u"<none>"_s);
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

VORLIX_TEST_SUITE(PracticeModeTest)
#include "PracticeModeTest.moc"

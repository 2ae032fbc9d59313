#include "Await.h"
#include "TestEnv.h"
#include "TestMain.h"
#include "analysis_music.h"

#include "analysis/PracticeMode.h"

#include <QDir>
#include <QTest>

#include <cmath>
#include <numbers>
#include <vector>

using PracticeMode::Analysis;
using PracticeMode::BeatGrid;

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

} // namespace

namespace PracticeMode {
char *toString(const Analysis &a) { return qstrdup(qPrintable(describe(a))); }
} // namespace PracticeMode

class PracticeModeTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() {
        QDir().mkpath(media(QString()));
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
            QStringList decode{QStringLiteral("-nostdin"), QStringLiteral("-i"), input, QStringLiteral("-ac"), QStringLiteral("1"), QStringLiteral("-ar"),
                               QStringLiteral("22050"), QStringLiteral("-t"), QStringLiteral("90"), QStringLiteral("-f"), QStringLiteral("s16le"), QStringLiteral("pipe:1")};
            const QStringList gridDecode = decode; // the grid reads 90 s, the analysis 120
            decode[8] = QStringLiteral("120");
            QCOMPARE(TestEnv::standInArgs(QStringLiteral("fake-ffmpeg")), gridDecode + decode);
        }
    }
};

VORLIX_TEST_SUITE(PracticeModeTest)
#include "PracticeModeTest.moc"

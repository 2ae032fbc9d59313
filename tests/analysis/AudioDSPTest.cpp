#include "TestMain.h"

#include "analysis/AudioFeatures.h"
#include "analysis/PracticeMode.h"

#include <QRandomGenerator>
#include <QTest>

#include <array>
#include <cmath>
#include <numbers>
#include <numeric>

namespace {

constexpr double rate = 22050;

// A chord as equal-tempered MIDI notes, each a plain sine, `count` samples at the analysis rate.
std::vector<float> chord(const QList<int> &notes, int count) {
    std::vector<float> out(size_t(count), 0.0f);
    for (int note : notes) {
        const double f = 440.0 * std::pow(2.0, (note - 69) / 12.0);
        for (size_t i = 0; i < out.size(); ++i)
            out[i] += float(0.2 * std::sin(2 * std::numbers::pi * f * double(i) / rate));
    }
    return out;
}

// An onset envelope with a narrow bump every `period` frames, starting at `phase`.
std::vector<double> pulses(double period, double phase, size_t frames) {
    std::vector<double> env(frames);
    for (double centre = phase; centre < double(frames) + 3; centre += period)
        for (size_t i = 0; i < frames; ++i)
            env[i] += std::exp(-0.5 * std::pow((double(i) - centre) / 0.8, 2));
    const double mean = std::accumulate(env.begin(), env.end(), 0.0) / double(frames);
    for (double &e : env)
        e -= mean;
    return env;
}

QString text(const std::optional<QString> &key) { return key.value_or(QStringLiteral("<none>")); }

} // namespace

class AudioDSPTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void onsetEnvelopeNeedsMoreThan20480Samples() {
        QVERIFY(!PracticeMode::onsetEnvelope(std::vector<float>(20480, 0.5f)));
        const auto env = PracticeMode::onsetEnvelope(std::vector<float>(20481, 0.5f));
        QVERIFY(env);
        QCOMPARE(env->size(), size_t(39)); // frames at 0, 512, … while 1024 samples fit
    }

    // Only rising loudness is an onset, and the envelope is centred on zero.
    void onsetEnvelopeMarksRisesOnly() {
        std::vector<float> samples(22050 * 3, 0.0f);
        auto loud = [&](double from, double to, float level) {
            for (size_t i = size_t(from * rate); i < size_t(to * rate); ++i)
                samples[i] = (i % 2 ? level : -level);
        };
        loud(0.0, 1.0, 0.8);  // loud from the start: no rise inside the file
        loud(2.0, 3.0, 0.4);  // silence, then a rise at 2 s
        const auto env = PracticeMode::onsetEnvelope(samples);
        QVERIFY(env);
        QVERIFY(std::abs(std::accumulate(env->begin(), env->end(), 0.0)) < 1e-9);
        const auto peak = size_t(std::max_element(env->begin(), env->end()) - env->begin());
        QVERIFY2(std::abs(double(peak) * 512 / rate - 2.0) < 0.05, qPrintable(QString::number(peak)));
        // The fall at 1 s leaves the envelope at its floor (the negated mean).
        const double floor = *std::min_element(env->begin(), env->end());
        QCOMPARE(env->at(size_t(1.0 * rate / 512)), floor);
    }

    void tempoOfPulseTrains_data() {
        QTest::addColumn<double>("bpm");
        QTest::addColumn<double>("phase");
        for (const double bpm : {60.0, 117.0, 128.0, 170.0})
            QTest::addRow("%g BPM", bpm) << bpm << 3.0;
        QTest::newRow("120 BPM, late first pulse") << 120.0 << 17.0;
    }

    // The parabola refinement lets tempi between whole lags come out right, not just 2583.98/L.
    void tempoOfPulseTrains() {
        QFETCH(double, bpm);
        QFETCH(double, phase);
        const auto found = PracticeMode::estimateBPM(pulses(PracticeMode::tempoConstant / bpm, phase, 2600));
        QVERIFY(found);
        QVERIFY2(std::abs(*found - bpm) <= 1.0, qPrintable(QString::number(*found)));
        QCOMPARE(*found, std::round(*found * 10) / 10);
    }

    // Spike pairs a fixed number of frames apart, the pairs far from each other: only that one
    // lag correlates, so the search range alone decides whether it is a tempo.
    void tempoSearchRange_data() {
        QTest::addColumn<std::vector<double>>("onset");
        QTest::addColumn<double>("bpm"); // 0: no tempo
        const auto pairs = [](int lag) {
            std::vector<double> onset(2000, 0.0);
            for (size_t at = 100; at + size_t(lag) < onset.size(); at += 200)
                onset[at] = onset[at + size_t(lag)] = 1.0;
            return onset;
        };
        QTest::newRow("lag 11 is too fast") << pairs(11) << 0.0;
        QTest::newRow("lag 12, the fastest") << pairs(12) << 215.3;
        QTest::newRow("lag 46, the slowest") << pairs(46) << 56.2;
        QTest::newRow("lag 47 is too slow") << pairs(47) << 0.0;
        QTest::newRow("silence") << std::vector<double>(2000, 0.0) << 0.0;
        QTest::newRow("shorter than the shortest lag") << pulses(5, 0, 11) << 0.0;
        std::vector<double> single(2000, -1.0 / 2000);
        single[700] += 1.0;
        QTest::newRow("a single onset") << single << 0.0;
    }

    void tempoSearchRange() {
        QFETCH(std::vector<double>, onset);
        QFETCH(double, bpm);
        QCOMPARE(PracticeMode::estimateBPM(onset).value_or(0), bpm);
    }

    void beatGridFindsThePhase_data() {
        QTest::addColumn<double>("bpm");
        QTest::addColumn<double>("phase");
        QTest::newRow("on time") << 120.0 << 0.0;
        QTest::newRow("120 BPM, 10 frames in") << 120.0 << 10.0;
        QTest::newRow("a beat and a bit in") << 150.0 << 20.0; // 17.2 frames per beat
    }

    void beatGridFindsThePhase() {
        QFETCH(double, bpm);
        QFETCH(double, phase);
        const double period = PracticeMode::tempoConstant / bpm;
        const auto grid = PracticeMode::alignBeatGrid(pulses(period, phase, 3000), bpm);
        QCOMPARE(grid.bpm, bpm);
        QVERIFY(grid.firstBeat >= 0 && grid.firstBeat < grid.beatLength());
        const double expected = std::fmod(phase, period) / PracticeMode::onsetFrameRate;
        // One phase step is at most one frame (23 ms).
        QVERIFY2(std::abs(grid.firstBeat - expected) <= 1.0 / PracticeMode::onsetFrameRate,
                 qPrintable(QStringLiteral("%1 vs %2").arg(grid.firstBeat).arg(expected)));
    }

    // 20 frames a beat, 20 phase steps, five beats each. Equal sums keep the earliest phase, and
    // a sum below zero still beats none.
    void beatGridPhaseTies() {
        const double bpm = PracticeMode::tempoConstant / 20;
        QCOMPARE(PracticeMode::alignBeatGrid(std::vector<double>(100, 0.0), bpm).firstBeat, 0.0);
        std::vector<double> falling(100, -1.0);
        falling[7] = falling[67] = -0.5;
        QCOMPARE(PracticeMode::alignBeatGrid(falling, bpm).firstBeat, 7 / PracticeMode::onsetFrameRate);
    }

    void beatGridSnapping() {
        const PracticeMode::BeatGrid grid{120.0, 0.25}; // half a second a beat
        QCOMPARE(grid.snap(10.0), 10.25);
        QCOMPARE(grid.snap(0.1), 0.25); // before the first beat
        QCOMPARE(grid.snap(0.5), 0.75); // half a beat rounds up
        QCOMPARE(PracticeMode::BeatGrid({120.0, -0.2}).snap(-1.0), 0.0); // never below zero
        QCOMPARE(grid.snapLength(1.24), 1.0);
        QCOMPARE(grid.snapLength(1.25), 1.5);
        QCOMPARE(grid.snapLength(0.1), 0.5); // at least one beat
    }

    void keyOfChords_data() {
        QTest::addColumn<QList<int>>("notes");
        QTest::addColumn<int>("samples");
        QTest::addColumn<QString>("key");
        QTest::newRow("A minor triad") << QList<int>{45, 57, 60, 64} << 88200 << QStringLiteral("Am");
        QTest::newRow("E♭ minor triad") << QList<int>{51, 63, 66, 70} << 88200 << QStringLiteral("E♭m");
        QTest::newRow("F♯ major triad") << QList<int>{54, 66, 70, 73} << 88200 << QStringLiteral("F♯");
        QTest::newRow("one sample over 2 s") << QList<int>{48, 60, 64, 67} << 44101 << QStringLiteral("C");
        QTest::newRow("exactly 2 s") << QList<int>{48, 60, 64, 67} << 44100 << QStringLiteral("<none>");
    }

    void keyOfChords() {
        QFETCH(QList<int>, notes);
        QFETCH(int, samples);
        QFETCH(QString, key);
        QCOMPARE(text(PracticeMode::estimateKey(chord(notes, samples))), key);
    }

    // A chroma that correlates with the C major profile exactly as much as asked, and far less
    // with any other key: the C major profile's centred unit vector z, turned towards C♯ (u, the
    // centred C♯ axis made orthogonal to z) until cos = r.
    void keyAcceptance_data() {
        QTest::addColumn<double>("correlation");
        QTest::addColumn<QString>("key");
        QTest::newRow("0.59") << 0.59 << QStringLiteral("<none>");
        QTest::newRow("0.599") << 0.599 << QStringLiteral("<none>");
        QTest::newRow("0.601") << 0.601 << QStringLiteral("C");
        QTest::newRow("0.61") << 0.61 << QStringLiteral("C");
    }

    void keyAcceptance() {
        QFETCH(double, correlation);
        QFETCH(QString, key);
        // Krumhansl–Kessler's C major profile.
        std::array<double, 12> z{6.35, 2.23, 3.48, 2.33, 4.38, 4.09, 2.52, 5.19, 2.39, 3.66, 2.29, 2.88};
        std::array<double, 12> u{};
        u[1] = 1;
        const auto centreAndScale = [](std::array<double, 12> &v) {
            const double mean = std::accumulate(v.begin(), v.end(), 0.0) / 12;
            for (double &x : v)
                x -= mean;
            const double norm = std::sqrt(std::inner_product(v.begin(), v.end(), v.begin(), 0.0));
            for (double &x : v)
                x /= norm;
        };
        centreAndScale(z);
        centreAndScale(u);
        const double along = std::inner_product(u.begin(), u.end(), z.begin(), 0.0);
        for (size_t i = 0; i < 12; ++i)
            u[i] -= along * z[i];
        centreAndScale(u);
        PracticeMode::Chroma chroma{};
        for (size_t i = 0; i < 12; ++i) // shifted to stay positive, as band power is
            chroma[i] = 1 + correlation * z[i] + std::sqrt(1 - correlation * correlation) * u[i];
        QCOMPARE(text(PracticeMode::keyOf(chroma)), key);
    }

    // Frames are transformed two at a time; each must come out as if transformed alone.
    void pairedFramesMatchSingleFrames() {
        std::vector<float> samples = chord({45, 57, 60, 64}, 8192 + 4096 * 8);
        QRandomGenerator rng(11);
        for (size_t i = 0; i < samples.size(); ++i) // changing content, so neighbouring frames differ
            samples[i] = samples[i] * float(i % 20000) / 20000.0f + float(rng.generateDouble() - 0.5) * 0.05f;
        const auto paired = PracticeMode::pitchClassPower(samples, 0, 9);
        QVERIFY(paired);
        PracticeMode::Chroma single{};
        for (size_t frame = 0; frame < 9; ++frame) {
            const auto one = PracticeMode::pitchClassPower(samples, frame, frame + 1);
            QVERIFY(one);
            for (size_t pc = 0; pc < 12; ++pc)
                single[pc] += (*one)[pc];
        }
        for (size_t pc = 0; pc < 12; ++pc)
            QVERIFY2(std::abs(paired->at(pc) - single[pc]) <= 1e-4 * single[pc],
                     qPrintable(QStringLiteral("pitch class %1: %2 vs %3").arg(pc).arg(paired->at(pc)).arg(single[pc])));
        // Frames past the end are not there to be read.
        QCOMPARE(PracticeMode::pitchClassPower(samples, 0, 1000), paired);
    }

    // Fed in blocks of any size, the features are the whole-signal functions' to the last bit.
    void blocksGiveTheWholeSignalsFeatures() {
        std::vector<float> samples = chord({45, 57, 60, 64}, 22050 * 6 + 4096 * 3 + 77);
        QRandomGenerator rng(5);
        for (size_t i = 0; i < samples.size(); ++i)
            samples[i] *= float(i % 9000) / 9000.0f;
        PracticeMode::AudioFeatures features(true);
        for (size_t available = 0; available < samples.size();)
            features.advance(samples.data(), available = std::min(samples.size(), available + rng.bounded(1, 30000)), false);
        features.advance(samples.data(), samples.size(), true);
        QVERIFY(features.onsetEnvelope(samples.size()) == PracticeMode::onsetEnvelope(samples));
        QVERIFY(features.chroma() == PracticeMode::pitchClassPower(samples, 0, 1000));
        QCOMPARE(features.key(samples.size()), PracticeMode::estimateKey(samples));
        QVERIFY(features.key(samples.size()));
    }
};

VORLIX_TEST_SUITE(AudioDSPTest)
#include "AudioDSPTest.moc"

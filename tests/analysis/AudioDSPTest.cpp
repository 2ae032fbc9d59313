#include "TestMain.h"

#include "analysis/AudioFeatures.h"
#include "analysis/PracticeMode.h"

#include <QRandomGenerator>
#include <QTest>

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
        for (const double bpm : {60.0, 75.0, 90.0, 117.0, 120.0, 128.0, 150.0, 170.0})
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

    void noTempoWithoutPulses_data() {
        QTest::addColumn<std::vector<double>>("onset");
        QTest::newRow("silence") << std::vector<double>(2000, 0.0);
        QTest::newRow("shorter than the shortest lag") << pulses(5, 0, 11);
        std::vector<double> single(2000, -1.0 / 2000);
        single[700] += 1.0;
        QTest::newRow("a single onset") << single;
    }

    void noTempoWithoutPulses() {
        QFETCH(std::vector<double>, onset);
        const auto found = PracticeMode::estimateBPM(onset);
        QVERIFY2(!found, qPrintable(QString::number(found.value_or(0))));
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

    void keyOfChords_data() {
        QTest::addColumn<QList<int>>("notes");
        QTest::addColumn<int>("samples");
        QTest::addColumn<QString>("key");
        QTest::newRow("A minor triad") << QList<int>{45, 57, 60, 64} << 88200 << QStringLiteral("Am");
        QTest::newRow("E♭ minor triad") << QList<int>{51, 63, 66, 70} << 88200 << QStringLiteral("E♭m");
        QTest::newRow("F♯ major triad") << QList<int>{54, 66, 70, 73} << 88200 << QStringLiteral("F♯");
        QTest::newRow("one sample over 2 s") << QList<int>{48, 60, 64, 67} << 44101 << QStringLiteral("C");
        QTest::newRow("exactly 2 s") << QList<int>{48, 60, 64, 67} << 44100 << QStringLiteral("<none>");
        QTest::newRow("silence") << QList<int>{} << 110250 << QStringLiteral("<none>");
        QTest::newRow("all twelve notes at once") << QList<int>{60, 61, 62, 63, 64, 65, 66, 67, 68, 69, 70, 71} << 88200
                                                  << QStringLiteral("<none>");
    }

    void keyOfChords() {
        QFETCH(QList<int>, notes);
        QFETCH(int, samples);
        QFETCH(QString, key);
        QCOMPARE(text(PracticeMode::estimateKey(chord(notes, samples))), key);
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

    void noKeyInNoise() {
        std::vector<float> noise(22050 * 5);
        QRandomGenerator rng(7);
        for (float &s : noise)
            s = float(rng.generateDouble() * 2 - 1) * 0.5f;
        QCOMPARE(text(PracticeMode::estimateKey(noise)), QStringLiteral("<none>"));
    }
};

VORLIX_TEST_SUITE(AudioDSPTest)
#include "AudioDSPTest.moc"

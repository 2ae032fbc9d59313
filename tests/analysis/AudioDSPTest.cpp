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
    for (int note : notes)
        for (size_t i = 0; i < out.size(); ++i)
            out[i] += float(0.2 * std::sin(2 * std::numbers::pi * 440.0 * std::pow(2.0, (note - 69) / 12.0) * double(i) / rate));
    return out;
}

// An onset envelope with a narrow bump every `period` frames, starting at `phase`, mean removed.
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

// Single-frame spike pairs `lag` frames apart, the pairs far apart: only that one lag correlates.
std::vector<double> spikePairs(int lag) {
    std::vector<double> onset(2000, 0.0);
    for (size_t at = 100; at + size_t(lag) < onset.size(); at += 200)
        onset[at] = onset[at + size_t(lag)] = 1.0;
    return onset;
}

QString text(const std::optional<QString> &key) { return key.value_or(QStringLiteral("<none>")); }

} // namespace

class AudioDSPTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    // More than 20480 samples, only rising loudness counts, and the envelope is centred on zero.
    void onsetEnvelope() {
        // Frames at 0, 512, … while 1024 samples fit.
        QVERIFY(!PracticeMode::onsetEnvelope(std::vector<float>(20480, 0.5f)) && PracticeMode::onsetEnvelope(std::vector<float>(20481, 0.5f)).value_or(std::vector<double>()).size() == 39);
        std::vector<float> samples(22050 * 3, 0.0f);
        for (size_t i = 0; i < samples.size(); ++i) // loud from the start, silent at 1 s, rising again at 2 s
            samples[i] = i < size_t(rate) ? (i % 2 ? 0.8f : -0.8f) : i >= size_t(2 * rate) ? (i % 2 ? 0.4f : -0.4f) : 0.0f;
        const auto env = PracticeMode::onsetEnvelope(samples);
        QVERIFY(env && std::abs(std::accumulate(env->begin(), env->end(), 0.0)) < 1e-9);
        const auto peak = size_t(std::max_element(env->begin(), env->end()) - env->begin());
        QVERIFY2(std::abs(double(peak) * 512 / rate - 2.0) < 0.05, qPrintable(QString::number(peak)));
        QCOMPARE(env->at(size_t(rate / 512)), *std::min_element(env->begin(), env->end())); // the fall is no onset
    }

    void tempo() {
        // onset envelope, expected BPM (0: none), allowed error
        std::vector<std::tuple<const char *, std::vector<double>, double, double>> rows;
        // The parabola refinement lets tempi between whole lags come out right, not just 2583.98/L.
        for (const auto &[bpm, phase] : {std::pair{60.0, 3.0}, {117.0, 3.0}, {120.0, 17.0}, {128.0, 3.0}, {170.0, 3.0}})
            rows.emplace_back("whole signal", pulses(PracticeMode::tempoConstant / bpm, phase, 2600), bpm, 1.0);
        rows.emplace_back("lag 11 is too fast", spikePairs(11), 0.0, 0.0);
        rows.emplace_back("lag 12, the fastest", spikePairs(12), 215.3, 0.0);
        rows.emplace_back("lag 46, the slowest", spikePairs(46), 56.2, 0.0);
        rows.emplace_back("lag 47 is too slow", spikePairs(47), 0.0, 0.0);
        rows.emplace_back("silence", std::vector<double>(2000, 0.0), 0.0, 0.0);
        rows.emplace_back("shorter than the shortest lag", pulses(5, 0, 11), 0.0, 0.0);
        // Lags 12 and 13 both correlate without bound (one huge onset past the divisors' range):
        // an exact tie, which keeps the faster tempo.
        std::vector<double> tie(26, 0.0);
        tie[12] = tie[13] = 2;
        tie[25] = 1e308;
        rows.emplace_back("a tie keeps the faster tempo", tie, 215.3, 0.0);
        std::vector<double> single(2000, -1.0 / 2000);
        single[700] += 1.0;
        rows.emplace_back("a single onset", single, 0.0, 0.0);
        for (const auto &[name, onset, bpm, within] : rows) {
            const double found = PracticeMode::estimateBPM(onset).value_or(0);
            QVERIFY2(std::abs(found - bpm) <= within && found == std::round(found * 10) / 10, qPrintable(QStringLiteral("%1: %2").arg(QLatin1String(name)).arg(found)));
        }
    }

    void beatGrid() {
        for (const auto &[bpm, phase] : {std::pair{120.0, 0.0}, {120.0, 10.0}, {150.0, 20.0}}) { // 150: 17.2 frames a beat
            const double period = PracticeMode::tempoConstant / bpm;
            const auto grid = PracticeMode::alignBeatGrid(pulses(period, phase, 3000), bpm);
            const double expected = std::fmod(phase, period) / PracticeMode::onsetFrameRate;
            // One phase step is at most one frame (23 ms).
            QVERIFY2(grid.bpm == bpm && std::abs(grid.firstBeat - expected) <= 1.0 / PracticeMode::onsetFrameRate,
                     qPrintable(QStringLiteral("%1 vs %2").arg(grid.firstBeat).arg(expected)));
        }
        // 20 frames a beat in 20 phase steps: equal sums keep the earliest phase, and a sum below
        // zero still beats none.
        const double bpm = PracticeMode::tempoConstant / 20;
        QCOMPARE(PracticeMode::alignBeatGrid(std::vector<double>(100, 0.0), bpm).firstBeat, 0.0);
        std::vector<double> falling(100, -1.0);
        falling[7] = falling[67] = -0.5;
        QCOMPARE(PracticeMode::alignBeatGrid(falling, bpm).firstBeat, 7 / PracticeMode::onsetFrameRate);

        // Half a second a beat: before the first beat is on it, half a beat rounds up, never below
        // zero; lengths are whole beats, at least one.
        const PracticeMode::BeatGrid grid{120.0, 0.25};
        QCOMPARE((QList<double>{grid.snap(10.0), grid.snap(0.1), grid.snap(0.5), PracticeMode::BeatGrid({120.0, -0.2}).snap(-1.0)}), (QList<double>{10.25, 0.25, 0.75, 0.0}));
        QCOMPARE((QList<double>{grid.snapLength(1.24), grid.snapLength(1.25), grid.snapLength(0.1)}), (QList<double>{1.0, 1.5, 0.5}));
    }

    void keyOfChords() {
        // Flat and sharp spellings, and more than 2 s of audio.
        QStringList keys;
        for (const auto &[notes, samples] : {std::pair{QList<int>{45, 57, 60, 64}, 88200}, {{51, 63, 66, 70}, 88200}, {{54, 66, 70, 73}, 88200},
                                             {{48, 60, 64, 67}, 44101}, {{48, 60, 64, 67}, 44100}})
            keys << text(PracticeMode::estimateKey(chord(notes, samples)));
        QCOMPARE(keys, (QStringList{QStringLiteral("Am"), QStringLiteral("E♭m"), QStringLiteral("F♯"), QStringLiteral("C"), QStringLiteral("<none>")}));
    }

    // Chromas that correlate with the C major profile exactly as much as asked, and far less with
    // any other key: its centred unit vector z turned towards the C♯ axis u (made orthogonal to z).
    void keyAcceptance() {
        std::array<double, 12> z{6.35, 2.23, 3.48, 2.33, 4.38, 4.09, 2.52, 5.19, 2.39, 3.66, 2.29, 2.88}, u{0, 1}; // Krumhansl–Kessler
        const auto unit = [](std::array<double, 12> &v, const std::array<double, 12> &away) {
            const double mean = std::accumulate(v.begin(), v.end(), 0.0) / 12;
            const double along = std::inner_product(v.begin(), v.end(), away.begin(), 0.0);
            for (size_t i = 0; i < 12; ++i)
                v[i] -= mean + along * away[i];
            const double norm = std::sqrt(std::inner_product(v.begin(), v.end(), v.begin(), 0.0));
            for (double &x : v)
                x /= norm;
        };
        unit(z, {});
        unit(u, z);
        for (const auto &[r, key] : {std::pair{0.59, "<none>"}, {0.599, "<none>"}, {0.601, "C"}, {0.61, "C"}}) {
            PracticeMode::Chroma chroma{};
            for (size_t i = 0; i < 12; ++i) // shifted to stay positive, as band power is
                chroma[i] = 1 + r * z[i] + std::sqrt(1 - r * r) * u[i];
            QCOMPARE(text(PracticeMode::keyOf(chroma)), QString::fromUtf8(key));
        }
    }

    // Frames are transformed two at a time; each must come out as if transformed alone.
    void pairedFramesMatchSingleFrames() {
        std::vector<float> samples = chord({45, 57, 60, 64}, 8192 + 4096 * 8);
        for (size_t i = 0; i < samples.size(); ++i) // changing loudness, so neighbouring frames differ
            samples[i] *= float(i % 20000) / 20000.0f;
        const auto paired = PracticeMode::pitchClassPower(samples, 0, 9).value_or(PracticeMode::Chroma{});
        PracticeMode::Chroma single{};
        for (size_t frame = 0; frame < 9; ++frame)
            for (size_t pc = 0; pc < 12; ++pc)
                single[pc] += PracticeMode::pitchClassPower(samples, frame, frame + 1).value_or(PracticeMode::Chroma{})[pc];
        for (size_t pc = 0; pc < 12; ++pc)
            QVERIFY2(single[pc] > 0 && std::abs(paired[pc] - single[pc]) <= 1e-4 * single[pc], qPrintable(QStringLiteral("pitch class %1: %2 vs %3").arg(pc).arg(paired[pc]).arg(single[pc])));
        QCOMPARE(PracticeMode::pitchClassPower(samples, 0, 1000), std::optional(paired)); // frames past the end are not read
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
        QVERIFY(features.key(samples.size()) && features.key(samples.size()) == PracticeMode::estimateKey(samples));
    }
};

VORLIX_TEST_SUITE(AudioDSPTest)
#include "AudioDSPTest.moc"

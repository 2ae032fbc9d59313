#include "analysis/PracticeMode.h"
#include "analysis/AudioFeatures.h"

#include <kissfft/kiss_fft.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <memory>
#include <numbers>
#include <numeric>

#include <QFuture>
#include <QtConcurrent/QtConcurrentRun>

namespace PracticeMode {
namespace {

constexpr size_t onsetFrame = 1024;
constexpr size_t onsetHop = 512;
constexpr size_t minimumOnsetSamples = 20480;

constexpr int firstLag = 12; // ≈215 BPM
constexpr int lastLag = 46;  // ≈56 BPM
constexpr double tempoAcceptance = 0.01;

constexpr int keyFrame = 8192;
constexpr size_t keyHop = 4096;
constexpr size_t minimumKeySamples = 44100;
constexpr double keyAcceptance = 0.6;

// Krumhansl–Kessler profiles, tonic first.
constexpr std::array<double, 12> majorProfile{6.35, 2.23, 3.48, 2.33, 4.38, 4.09, 2.52, 5.19, 2.39, 3.66, 2.29, 2.88};
constexpr std::array<double, 12> minorProfile{6.33, 2.68, 3.52, 5.38, 2.60, 3.53, 2.54, 4.75, 3.98, 2.69, 3.34, 3.17};

double autocorr(const std::vector<double> &onset, long lag) {
    const long n = long(onset.size());
    if (lag < 1 || lag >= n)
        return 0;
    double num = 0;
    double den = 0;
    for (long i = 0; i < n - lag; ++i) {
        num += onset[size_t(i)] * onset[size_t(i + lag)];
        den += onset[size_t(i)] * onset[size_t(i)];
    }
    return den == 0 ? 0 : num / den;
}

double pearson(const std::array<double, 12> &x, const std::array<double, 12> &y) {
    const double mx = std::accumulate(x.begin(), x.end(), 0.0) / 12;
    const double my = std::accumulate(y.begin(), y.end(), 0.0) / 12;
    double sxy = 0, sxx = 0, syy = 0;
    for (size_t i = 0; i < 12; ++i) {
        const double dx = x[i] - mx;
        const double dy = y[i] - my;
        sxy += dx * dy;
        sxx += dx * dx;
        syy += dy * dy;
    }
    const double den = std::sqrt(sxx * syy);
    return den == 0 ? 0 : sxy / den;
}

// Pitch class of every DFT bin inside the 55–2000 Hz band, -1 outside it.
const std::array<int, keyFrame / 2> &binPitchClasses() {
    static const auto table = [] {
        std::array<int, keyFrame / 2> pc{};
        pc.fill(-1);
        for (int b = 2; b < keyFrame / 2; ++b) {
            const double f = double(b) * analysisSampleRate / keyFrame;
            if (f < 55 || f > 2000)
                continue;
            const long note = std::lround(12 * std::log2(f / 440) + 69);
            pc[size_t(b)] = int(((note % 12) + 12) % 12);
        }
        return pc;
    }();
    return table;
}

const std::array<float, keyFrame> &hannWindow() {
    static const auto window = [] {
        std::array<float, keyFrame> w{};
        for (int i = 0; i < keyFrame; ++i)
            w[size_t(i)] = float(0.5 * (1 - std::cos(2 * std::numbers::pi * i / keyFrame)));
        return w;
    }();
    return window;
}

struct KissDeleter {
    void operator()(kiss_fft_state *cfg) const { kiss_fft_free(cfg); }
};

size_t keyFrameCount(size_t samples) { return samples < size_t(keyFrame) ? 0 : (samples - keyFrame) / keyHop + 1; }

} // namespace

// The frames are real, so two of them share one complex transform (one as the real part, one as
// the imaginary part) and are told apart by the spectrum's symmetry: for a frame pair a + i·b,
// A[k] = (Z[k] + conj Z[N−k]) / 2 and B[k] = (Z[k] − conj Z[N−k]) / 2i. Same bins, half the work.
struct AudioFeatures::Dft {
    std::unique_ptr<kiss_fft_state, KissDeleter> cfg{kiss_fft_alloc(keyFrame, 0, nullptr, nullptr)};
    std::vector<kiss_fft_cpx> in = std::vector<kiss_fft_cpx>(keyFrame);
    std::vector<kiss_fft_cpx> out = std::vector<kiss_fft_cpx>(keyFrame);
    std::vector<float> secondPower = std::vector<float>(keyFrame / 2);

    // Band power per pitch class of frame a, plus frame b's when there is one.
    Chroma power(const float *a, const float *b) {
        const auto &window = hannWindow();
        const auto &pitchClass = binPitchClasses();
        for (size_t i = 0; i < size_t(keyFrame); ++i)
            in[i] = {a[i] * window[i], b ? b[i] * window[i] : 0.0f};
        kiss_fft(cfg.get(), in.data(), out.data());
        Chroma sums{};
        for (size_t bin = 2; bin < size_t(keyFrame / 2); ++bin) {
            const int pc = pitchClass[bin];
            if (pc < 0)
                continue;
            const kiss_fft_cpx z = out[bin];
            const kiss_fft_cpx m = out[size_t(keyFrame) - bin];
            if (!b) {
                sums[size_t(pc)] += z.r * z.r + z.i * z.i;
                continue;
            }
            const float ar = 0.5f * (z.r + m.r), ai = 0.5f * (z.i - m.i);
            const float br = 0.5f * (z.i + m.i), bi = 0.5f * (m.r - z.r);
            sums[size_t(pc)] += ar * ar + ai * ai;
            secondPower[bin] = br * br + bi * bi;
        }
        if (b)
            for (size_t bin = 2; bin < size_t(keyFrame / 2); ++bin)
                if (const int pc = pitchClass[bin]; pc >= 0)
                    sums[size_t(pc)] += secondPower[bin];
        return sums;
    }
};

namespace {

// Chroma of the key frames [first, last), two at a time from `first`.
std::optional<std::vector<Chroma>> pairPowers(const std::vector<float> &samples, size_t first, size_t last) {
    last = std::min(last, keyFrameCount(samples.size()));
    AudioFeatures::Dft dft;
    if (!dft.cfg)
        return std::nullopt;
    std::vector<Chroma> pairs;
    for (size_t frame = first; frame < last; frame += 2) {
        const float *a = samples.data() + frame * keyHop;
        pairs.push_back(dft.power(a, frame + 1 < last ? a + keyHop : nullptr));
    }
    return pairs;
}

// Summed in frame order, whichever way the pairs were computed.
Chroma sum(const std::vector<Chroma> &pairs) {
    Chroma total{};
    for (const Chroma &pair : pairs)
        for (size_t i = 0; i < 12; ++i)
            total[i] += pair[i];
    return total;
}

double frameRms(const float *frame) {
    double sumSquares = 0;
    for (size_t i = 0; i < onsetFrame; ++i)
        sumSquares += double(frame[i]) * frame[i];
    return std::sqrt(sumSquares * (1.0 / onsetFrame));
}

} // namespace

std::optional<QString> keyOf(const Chroma &total) {
    if (!(std::accumulate(total.begin(), total.end(), 0.0) > 0))
        return std::nullopt;
    double bestCorrelation = -std::numeric_limits<double>::infinity();
    QString bestName;
    for (int tonic = 0; tonic < 12; ++tonic) {
        for (const bool minor : {false, true}) {
            const auto &profile = minor ? minorProfile : majorProfile;
            std::array<double, 12> rotated{};
            for (int i = 0; i < 12; ++i)
                rotated[size_t(i)] = profile[size_t(((i - tonic) % 12 + 12) % 12)];
            const double r = pearson(total, rotated);
            // Strictly greater: ties keep the lower tonic, and major before minor.
            if (bestName.isEmpty() || r > bestCorrelation) {
                bestCorrelation = r;
                bestName = keyName(tonic, minor);
            }
        }
    }
    if (!(bestCorrelation > keyAcceptance))
        return std::nullopt;
    return bestName;
}

AudioFeatures::AudioFeatures(bool withKey) : m_withKey(withKey) {
    if (withKey)
        m_dft = std::make_unique<Dft>();
}

AudioFeatures::~AudioFeatures() = default;

void AudioFeatures::advance(const float *samples, size_t available, bool last) {
    if (available >= onsetFrame) {
        const size_t frames = (available - onsetFrame) / onsetHop + 1;
        for (size_t k = m_rms.size(); k < frames; ++k)
            m_rms.push_back(frameRms(samples + k * onsetHop));
    }
    if (!m_dft || !m_dft->cfg)
        return;
    const size_t frames = keyFrameCount(available);
    for (; m_keyFrames + 2 <= frames; m_keyFrames += 2) {
        const float *a = samples + m_keyFrames * keyHop;
        m_pairs.push_back(m_dft->power(a, a + keyHop));
    }
    if (last && m_keyFrames < frames) {
        m_pairs.push_back(m_dft->power(samples + m_keyFrames * keyHop, nullptr));
        ++m_keyFrames;
    }
}

std::optional<std::vector<double>> AudioFeatures::onsetEnvelope(size_t totalSamples) const {
    if (totalSamples <= minimumOnsetSamples)
        return std::nullopt;
    std::vector<double> envelope(m_rms.size());
    for (size_t k = 1; k < m_rms.size(); ++k)
        envelope[k] = std::max(0.0, m_rms[k] - m_rms[k - 1]);
    const double mean = std::accumulate(envelope.begin(), envelope.end(), 0.0) / double(envelope.size());
    for (double &e : envelope)
        e -= mean;
    return envelope;
}

std::optional<Chroma> AudioFeatures::chroma() const {
    if (!m_dft || !m_dft->cfg)
        return std::nullopt;
    return sum(m_pairs);
}

std::optional<QString> AudioFeatures::key(size_t totalSamples) const {
    if (totalSamples <= minimumKeySamples)
        return std::nullopt;
    const auto total = chroma();
    return total ? keyOf(*total) : std::nullopt;
}

std::optional<Chroma> pitchClassPower(const std::vector<float> &samples, size_t first, size_t last) {
    const auto pairs = pairPowers(samples, first, last);
    return pairs ? std::optional<Chroma>(sum(*pairs)) : std::nullopt;
}

std::optional<std::vector<double>> onsetEnvelope(const std::vector<float> &samples) {
    AudioFeatures features(false);
    features.advance(samples.data(), samples.size(), true);
    return features.onsetEnvelope(samples.size());
}

std::optional<double> estimateBPM(const std::vector<double> &onset) {
    int bestLag = firstLag;
    double bestScore = -std::numeric_limits<double>::infinity();
    for (int lag = firstLag; lag <= lastLag; ++lag) {
        const double tempo = tempoConstant / lag;
        const double octaves = std::log2(tempo / 120);
        const double weight = std::exp(-0.5 * octaves * octaves);
        const double score = weight * (autocorr(onset, lag) + 0.5 * autocorr(onset, 2L * lag));
        // Strictly greater: on a tie the faster tempo stays.
        if (lag == firstLag || score > bestScore) {
            bestScore = score;
            bestLag = lag;
        }
    }
    if (!(bestScore > tempoAcceptance))
        return std::nullopt;

    // A tempo between two whole lags: move to the vertex of the parabola through the neighbours.
    double lag = bestLag;
    const double a = autocorr(onset, bestLag - 1);
    const double b = autocorr(onset, bestLag);
    const double c = autocorr(onset, bestLag + 1);
    const double d = a - 2 * b + c;
    if (std::abs(d) > 1e-9) {
        const double delta = 0.5 * (a - c) / d;
        if (std::abs(delta) < 1.0)
            lag += delta;
    }
    return std::round(tempoConstant / lag * 10) / 10;
}

BeatGrid alignBeatGrid(const std::vector<double> &onset, double bpm) {
    const double period = tempoConstant / bpm;
    if (!(period >= 1 && period < 1e6)) // not a tempo estimateBPM gives
        return BeatGrid{bpm, 0};
    const int steps = std::max(4, int(period));
    double bestPhase = 0;
    double bestSum = -std::numeric_limits<double>::infinity();
    for (int k = 0; k < steps; ++k) {
        const double phase = period * k / steps;
        double sum = 0;
        for (long beat = 0;; ++beat) {
            const auto index = size_t(phase + double(beat) * period);
            if (index >= onset.size())
                break;
            sum += onset[index];
        }
        if (sum > bestSum) {
            bestSum = sum;
            bestPhase = phase;
        }
    }
    return BeatGrid{bpm, bestPhase / onsetFrameRate};
}

std::optional<QString> estimateKey(const std::vector<float> &samples) {
    if (samples.size() <= minimumKeySamples)
        return std::nullopt;
    // The DFTs are most of an analysis' cost: the second half of the frames runs on another core.
    const size_t frames = keyFrameCount(samples.size());
    const size_t split = frames / 4 * 2; // even, so both halves pair their frames as one run would
    QFuture<std::optional<std::vector<Chroma>>> secondHalf =
        QtConcurrent::run([&samples, split, frames] { return pairPowers(samples, split, frames); });
    std::optional<std::vector<Chroma>> pairs = pairPowers(samples, 0, split);
    const std::optional<std::vector<Chroma>> rest = secondHalf.result();
    if (!pairs || !rest)
        return std::nullopt;
    pairs->insert(pairs->end(), rest->begin(), rest->end());
    return keyOf(sum(*pairs));
}

QString keyName(int pitchClass, bool minor) {
    static const std::array<QString, 12> names{
        QStringLiteral("C"),  QStringLiteral("C♯"), QStringLiteral("D"),  QStringLiteral("E♭"),
        QStringLiteral("E"),  QStringLiteral("F"),  QStringLiteral("F♯"), QStringLiteral("G"),
        QStringLiteral("A♭"), QStringLiteral("A"),  QStringLiteral("B♭"), QStringLiteral("B")};
    const QString &name = names[size_t(((pitchClass % 12) + 12) % 12)];
    return minor ? name + u'm' : name;
}

} // namespace PracticeMode

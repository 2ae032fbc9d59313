#pragma once

#include "analysis/PracticeMode.h"

#include <memory>
#include <optional>
#include <vector>

struct kiss_fft_state;

namespace PracticeMode {

// The onset frames' RMS and the key frames' chroma of audio that arrives in blocks, so the
// signal processing runs while the decoder still decodes. The results are the batch functions'
// (onsetEnvelope, estimateKey) on the same samples, bit for bit: both are built from this.
class AudioFeatures {
public:
    explicit AudioFeatures(bool withKey);
    ~AudioFeatures();
    AudioFeatures(const AudioFeatures &) = delete;
    AudioFeatures &operator=(const AudioFeatures &) = delete;

    // Consumes every whole frame inside samples[0, available) not consumed before. `samples` may
    // move between calls; its first `available` values must not change. With `last`, the end of
    // the audio is known, and an unpaired last key frame is taken too.
    void advance(const float *samples, size_t available, bool last);

    // Once the audio is complete, with its total sample count.
    std::optional<std::vector<double>> onsetEnvelope(size_t totalSamples) const;
    std::optional<QString> key(size_t totalSamples) const;
    // Band power per pitch class summed over the key frames so far; absent without a DFT.
    std::optional<Chroma> chroma() const;

    struct Dft; // one reusable 8192-point transform with its buffers

private:
    bool m_withKey;
    std::vector<double> m_rms;
    std::vector<Chroma> m_pairs; // one per two key frames, in order
    size_t m_keyFrames = 0;
    std::unique_ptr<Dft> m_dft;
};

} // namespace PracticeMode

#pragma once

#include "engine/Tools.h"

#include "analysis/BeatGrid.h"

#include <QCoroTask>
#include <QString>
#include <QUrl>

#include <array>
#include <optional>
#include <vector>

// Practice tools for musicians: tempo, key and beat grid of a finished file, and slowed-down or
// transposed copies of it. Everything works on the file's audio through ffmpeg; nothing is kept
// between calls, so any number of calls may run at once.
namespace PracticeMode {

// What analyze() found; either field may be absent on its own.
struct Analysis {
    std::optional<double> bpm;   // one decimal
    std::optional<QString> key;  // "C", "F♯", "E♭m", …

    friend bool operator==(const Analysis &, const Analysis &) = default;
};

// Decoding constants of the analysis audio.
inline constexpr int analysisSampleRate = 22050;
inline constexpr double onsetFrameRate = 43.06640625;  // analysisSampleRate / onset hop
inline constexpr double tempoConstant = 2583.984375;   // 60 × onsetFrameRate: BPM = tempoConstant / lag

// Tempo and key of the first 120 s. Never fails: failures leave the fields absent.
QCoro::Task<Analysis> analyze(QUrl file);
// Tempo and first beat from the first 90 s; absent on any failure or without a tempo.
// `cancellation` ends the decode early (no grid) when its owner goes away.
QCoro::Task<std::optional<BeatGrid>> beatGrid(QUrl file, Tools::CancellationPtr cancellation = {});

// The same with an explicit ffmpeg executable; an empty path means there is none.
QCoro::Task<Analysis> analyze(QUrl file, QString ffmpeg);
QCoro::Task<std::optional<BeatGrid>> beatGrid(QUrl file, QString ffmpeg, Tools::CancellationPtr cancellation = {});

// Mean-removed, half-wave rectified RMS flux (1024-sample frames, hop 512); absent for 20480
// samples or fewer.
std::optional<std::vector<double>> onsetEnvelope(const std::vector<float> &samples);
// Autocorrelation tempo search between ≈56 and ≈215 BPM with a preference for tempi near 120.
std::optional<double> estimateBPM(const std::vector<double> &onset);
// Where the beats of a tempo line up best with the envelope's onsets.
BeatGrid alignBeatGrid(const std::vector<double> &onset, double bpm);
// Chroma of 8192-point DFT frames matched against the major and minor key profiles.
std::optional<QString> estimateKey(const std::vector<float> &samples);
// 55–2000 Hz band power per pitch class (0 = C) summed over the Hann-windowed DFT frames
// [firstFrame, lastFrame) at hop 4096; absent when the DFT cannot be set up.
using Chroma = std::array<double, 12>;
std::optional<Chroma> pitchClassPower(const std::vector<float> &samples, size_t firstFrame, size_t lastFrame);
// The key whose profile correlates best with the chroma, when that correlation is above 0.6.
std::optional<QString> keyOf(const Chroma &chroma);
// "C" … "B" with the ♯/♭ signs, plus "m" for minor.
QString keyName(int pitchClass, bool minor);

// A copy at `rate` times the speed, same pitch, saved as "<name> (75% speed).<ext>".
QCoro::Task<std::optional<QUrl>> renderSpeed(QUrl file, double rate);
// A copy transposed by whole semitones, same tempo, saved as "<name> (+2 semitones).<ext>".
// Nothing is rendered for 0 semitones.
QCoro::Task<std::optional<QUrl>> renderPitchShift(QUrl file, int semitones);
QCoro::Task<std::optional<QUrl>> renderSpeed(QUrl file, double rate, QString ffmpeg);
QCoro::Task<std::optional<QUrl>> renderPitchShift(QUrl file, int semitones, QString ffmpeg);

// "<folder>/<base name> (<suffix>).<extension>", "mp3" when the source has no extension.
QUrl variantURL(const QUrl &file, const QString &suffix);
QString speedSuffix(double rate);      // "75% speed"
QString pitchSuffix(int semitones);    // "+2 semitones", "-1 semitones"
QString speedFilter(double rate);      // "atempo=0.75"
QString pitchShiftFilter(int semitones);

// The shortest decimal text that reads back to the same double, with at least one digit after
// the point for whole numbers ("0.75", "120.0", "1.122462048309373").
QString decimalText(double value);

} // namespace PracticeMode

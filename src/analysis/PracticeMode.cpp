#include "analysis/PracticeMode.h"

#include "core/TempFile.h"

#include "engine/Tools.h"

#include <QCoroFuture>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QUuid>
#include <QtConcurrent/QtConcurrentRun>

#include <charconv>
#include <cmath>

namespace PracticeMode {
namespace {

constexpr double analyzeTimeout = 120;
constexpr double beatGridTimeout = 300;
constexpr double renderTimeout = 600;
constexpr size_t minimumAnalyzeSamples = 110250; // 5 s

// Decodes the first `span` seconds of `input` to 22050 Hz mono 16-bit PCM.
QCoro::Task<bool> decodeToWav(QString ffmpeg, QString input, QString wav, QString span, double timeout) {
    const QStringList args{QStringLiteral("-y"), QStringLiteral("-i"), input, QStringLiteral("-ac"), QStringLiteral("1"),
                           QStringLiteral("-ar"), QString::number(analysisSampleRate), QStringLiteral("-t"), span,
                           QStringLiteral("-f"), QStringLiteral("wav"), wav};
    try {
        const Tools::RunResult result = co_await Tools::run(ffmpeg, args, timeout);
        co_return result.status == 0;
    } catch (...) {
        co_return false;
    }
}

// A file-producing run counts only when it launched, exited 0 and left its output behind.
QCoro::Task<std::optional<QUrl>> runRender(QString ffmpeg, QString input, QString filter, QUrl out) {
    const QString outPath = out.toLocalFile();
    const QStringList args{QStringLiteral("-y"), QStringLiteral("-i"), input, QStringLiteral("-filter:a"), filter,
                           QStringLiteral("-vn"), outPath};
    try {
        const Tools::RunResult result = co_await Tools::run(ffmpeg, args, renderTimeout);
        if (result.status == 0 && QFileInfo::exists(outPath))
            co_return out;
    } catch (...) {
    }
    co_return std::nullopt;
}

Analysis analyzeSamples(const QString &wav) {
    const auto samples = readMonoWav16(wav);
    if (!samples || samples->size() <= minimumAnalyzeSamples)
        return {};
    // The tempo search is cheap; it runs beside the key's DFTs.
    QFuture<std::optional<double>> bpm = QtConcurrent::run([&samples]() -> std::optional<double> {
        const auto onset = onsetEnvelope(*samples);
        return onset ? estimateBPM(*onset) : std::nullopt;
    });
    Analysis analysis;
    analysis.key = estimateKey(*samples);
    analysis.bpm = bpm.result();
    return analysis;
}

std::optional<BeatGrid> gridFromWav(const QString &wav) {
    const auto samples = readMonoWav16(wav);
    if (!samples)
        return std::nullopt;
    const auto onset = onsetEnvelope(*samples);
    if (!onset)
        return std::nullopt;
    const auto bpm = estimateBPM(*onset);
    if (!bpm)
        return std::nullopt;
    return alignBeatGrid(*onset, *bpm);
}

} // namespace

// GCC 12 destroys temporaries inside a co_await expression twice, so every awaited call below
// takes named locals only.
QCoro::Task<Analysis> analyze(QUrl file) {
    const QString ffmpeg = Tools::ffmpegURL();
    const Analysis analysis = co_await analyze(file, ffmpeg);
    co_return analysis;
}

QCoro::Task<std::optional<BeatGrid>> beatGrid(QUrl file) {
    const QString ffmpeg = Tools::ffmpegURL();
    const std::optional<BeatGrid> grid = co_await beatGrid(file, ffmpeg);
    co_return grid;
}

QCoro::Task<Analysis> analyze(QUrl file, QString ffmpeg) {
    const RemoveOnExit wav(temporaryFilePath(QStringLiteral("vorlix-analyze-"), QStringLiteral(".wav")));
    if (ffmpeg.isEmpty())
        co_return Analysis{};
    const QString input = file.toLocalFile();
    const QString span = QStringLiteral("120");
    const bool decoded = co_await decodeToWav(ffmpeg, input, wav.path(), span, analyzeTimeout);
    if (!decoded)
        co_return Analysis{};
    QFuture<Analysis> job = QtConcurrent::run(analyzeSamples, wav.path());
    const Analysis analysis = co_await job;
    co_return analysis;
}

QCoro::Task<std::optional<BeatGrid>> beatGrid(QUrl file, QString ffmpeg) {
    const RemoveOnExit wav(temporaryFilePath(QStringLiteral("vorlix-beat-"), QStringLiteral(".wav")));
    if (ffmpeg.isEmpty())
        co_return std::nullopt;
    const QString input = file.toLocalFile();
    const QString span = QStringLiteral("90");
    const bool decoded = co_await decodeToWav(ffmpeg, input, wav.path(), span, beatGridTimeout);
    if (!decoded)
        co_return std::nullopt;
    QFuture<std::optional<BeatGrid>> job = QtConcurrent::run(gridFromWav, wav.path());
    const std::optional<BeatGrid> grid = co_await job;
    co_return grid;
}

QCoro::Task<std::optional<QUrl>> renderSpeed(QUrl file, double rate) {
    const QString ffmpeg = Tools::ffmpegURL();
    const std::optional<QUrl> out = co_await renderSpeed(file, rate, ffmpeg);
    co_return out;
}

QCoro::Task<std::optional<QUrl>> renderPitchShift(QUrl file, int semitones) {
    const QString ffmpeg = Tools::ffmpegURL();
    const std::optional<QUrl> out = co_await renderPitchShift(file, semitones, ffmpeg);
    co_return out;
}

QCoro::Task<std::optional<QUrl>> renderSpeed(QUrl file, double rate, QString ffmpeg) {
    if (ffmpeg.isEmpty() || !std::isfinite(rate) || rate <= 0)
        co_return std::nullopt;
    const QUrl out = variantURL(file, speedSuffix(rate));
    const QString input = file.toLocalFile();
    const QString filter = speedFilter(rate);
    const std::optional<QUrl> rendered = co_await runRender(ffmpeg, input, filter, out);
    co_return rendered;
}

QCoro::Task<std::optional<QUrl>> renderPitchShift(QUrl file, int semitones, QString ffmpeg) {
    if (ffmpeg.isEmpty() || semitones == 0)
        co_return std::nullopt;
    const QUrl out = variantURL(file, pitchSuffix(semitones));
    const QString input = file.toLocalFile();
    const QString filter = pitchShiftFilter(semitones);
    const std::optional<QUrl> rendered = co_await runRender(ffmpeg, input, filter, out);
    co_return rendered;
}

QUrl variantURL(const QUrl &file, const QString &suffix) {
    const QFileInfo info(file.toLocalFile());
    const QString name = info.fileName();
    // A leading dot names a hidden file, not an extension; a trailing one has nothing after it.
    const qsizetype dot = name.lastIndexOf(u'.');
    const bool hasExtension = dot > 0 && dot < name.size() - 1;
    const QString base = hasExtension ? name.left(dot) : name;
    const QString extension = hasExtension ? name.mid(dot + 1) : QStringLiteral("mp3");
    return QUrl::fromLocalFile(info.dir().filePath(base + QStringLiteral(" (") + suffix + QStringLiteral(").") + extension));
}

QString speedSuffix(double rate) { return QString::number(std::llround(rate * 100)) + QStringLiteral("% speed"); }

QString pitchSuffix(int semitones) {
    return (semitones > 0 ? QStringLiteral("+") : QString()) + QString::number(semitones) + QStringLiteral(" semitones");
}

QString speedFilter(double rate) { return QStringLiteral("atempo=") + decimalText(rate); }

QString pitchShiftFilter(int semitones) {
    // Play the audio as if sampled faster (pitch and tempo rise by the ratio), bring it back to
    // 44.1 kHz, then undo the tempo change. The source is taken as 44.1 kHz whatever it holds.
    const double ratio = std::pow(2.0, semitones / 12.0);
    return QStringLiteral("asetrate=44100*") + decimalText(ratio) + QStringLiteral(",aresample=44100,atempo=") +
           decimalText(1 / ratio);
}

QString decimalText(double value) {
    char buffer[64];
    const auto [end, error] = std::to_chars(buffer, buffer + sizeof buffer, value);
    if (error != std::errc())
        return QString::number(value);
    QString text = QString::fromLatin1(buffer, end - buffer);
    const bool wholeNumber = std::isfinite(value) && !text.contains(u'.') && !text.contains(u'e');
    if (wholeNumber)
        text += QStringLiteral(".0");
    return text;
}

} // namespace PracticeMode

#include "analysis/PracticeMode.h"

#include "analysis/AudioFeatures.h"
#include "engine/ProcessStart.h"
#include "engine/Tools.h"

#include <QCoroFuture>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTimer>
#include <QtConcurrent/QtConcurrentRun>

#include <QCoroSignal>

#include <charconv>
#include <cmath>
#include <cstdint>
#include <memory>
#include <unistd.h>

namespace PracticeMode {
namespace {

constexpr double analyzeTimeout = 120;
constexpr double beatGridTimeout = 300;
constexpr double renderTimeout = 600;
constexpr size_t minimumAnalyzeSamples = 110250; // 5 s

// The decoder's raw 16-bit output as it arrives, converted to floats in a buffer that only the
// main thread grows, and handed in batches to the thread pool, one batch at a time.
struct SampleStream {
    std::shared_ptr<AudioFeatures> features;
    std::vector<float> samples;
    QByteArray pending; // bytes not converted yet: an odd last byte, or no room while a batch runs
    size_t handed = 0;  // samples the batches have been given
    QFuture<void> batch;

    static constexpr size_t minimumBatch = 32768; // ≈1.5 s of audio

    bool batchRunning() const { return batch.isValid() && !batch.isFinished(); }

    void append(const QByteArray &bytes) {
        pending += bytes;
        size_t count = size_t(pending.size() / 2);
        const size_t room = samples.capacity() - samples.size();
        if (count > room) {
            // The running batch reads the buffer, so it may only move once that batch is done.
            if (batchRunning())
                count = room;
            else
                samples.reserve(std::max(samples.capacity() * 2, samples.size() + count));
        }
        const size_t first = samples.size();
        samples.resize(first + count);
        constexpr float scale = 1.0f / 32768.0f;
        const auto *u = reinterpret_cast<const uchar *>(pending.constData());
        for (size_t i = 0; i < count; ++i)
            samples[first + i] = float(std::int16_t(quint16(u[2 * i]) | quint16(u[2 * i + 1]) << 8)) * scale;
        pending.remove(0, qsizetype(count * 2));
    }

    void startBatch(bool last) {
        if (batchRunning() || (!last && samples.size() - handed < minimumBatch))
            return;
        handed = samples.size();
        batch = QtConcurrent::run([features = features, data = samples.data(), n = handed, last] {
            features->advance(data, n, last);
        });
    }
};

// Decodes the first `span` seconds of `input` to 22050 Hz mono 16-bit PCM on a pipe, feeding
// `features` while it decodes. The number of samples, or none when the decode failed.
QCoro::Task<std::optional<size_t>> decodeInto(QString ffmpeg, QString input, QString span, double timeout,
                                              std::shared_ptr<AudioFeatures> features,
                                              Tools::CancellationPtr cancellation = {}) {
    if (cancellation && cancellation->isCancelled())
        co_return std::nullopt;
    try {
        Tools::ensureLaunchable(ffmpeg);
    } catch (const Tools::LaunchError &) {
        co_return std::nullopt;
    }
    SampleStream stream;
    stream.features = std::move(features);
    stream.samples.reserve(size_t(span.toInt() + 1) * analysisSampleRate);

    QProcess process;
    process.setProgram(ffmpeg);
    process.setArguments({QStringLiteral("-nostdin"), QStringLiteral("-i"), input, QStringLiteral("-ac"),
                          QStringLiteral("1"), QStringLiteral("-ar"), QString::number(analysisSampleRate),
                          QStringLiteral("-t"), span, QStringLiteral("-f"), QStringLiteral("s16le"),
                          QStringLiteral("pipe:1")});
    process.setStandardErrorFile(QProcess::nullDevice());
    process.setChildProcessModifier([] { ::setpgid(0, 0); });
    QObject::connect(&process, &QProcess::readyReadStandardOutput, &process, [&stream, &process] {
        stream.append(process.readAllStandardOutput());
        stream.startBatch(false);
    });
    process.start(QIODevice::ReadOnly);
    const bool started = co_await Tools::waitUntilStarted(process);
    if (!started)
        co_return std::nullopt;

    const qint64 pid = process.processId();
    QTimer deadline;
    deadline.setSingleShot(true);
    deadline.setInterval(int(timeout * 1000));
    QObject::connect(&deadline, &QTimer::timeout, &process, [&process, pid] {
        if (process.state() == QProcess::Running)
            Tools::terminateProcessGroup(pid);
    });
    deadline.start();
    if (cancellation)
        cancellation->add(pid);
    if (process.state() != QProcess::NotRunning)
        co_await qCoro(&process, &QProcess::finished);
    deadline.stop();
    if (cancellation)
        cancellation->remove(pid);
    QObject::disconnect(&process, &QProcess::readyReadStandardOutput, nullptr, nullptr);

    if (stream.batch.isValid())
        co_await stream.batch;
    if (process.exitStatus() != QProcess::NormalExit || process.exitCode() != 0)
        co_return std::nullopt;
    stream.append(process.readAllStandardOutput()); // with whatever waited for room
    stream.startBatch(true);
    co_await stream.batch;
    co_return stream.samples.size();
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

Analysis analysisOf(const AudioFeatures &features, size_t samples) {
    const auto onset = features.onsetEnvelope(samples);
    return Analysis{onset ? estimateBPM(*onset) : std::nullopt, features.key(samples)};
}

std::optional<BeatGrid> gridOf(const AudioFeatures &features, size_t samples) {
    const auto onset = features.onsetEnvelope(samples);
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

QCoro::Task<std::optional<BeatGrid>> beatGrid(QUrl file, Tools::CancellationPtr cancellation) {
    const QString ffmpeg = Tools::ffmpegURL();
    const std::optional<BeatGrid> grid = co_await beatGrid(file, ffmpeg, cancellation);
    co_return grid;
}

QCoro::Task<Analysis> analyze(QUrl file, QString ffmpeg) {
    if (ffmpeg.isEmpty())
        co_return Analysis{};
    const auto features = std::make_shared<AudioFeatures>(true);
    const QString input = file.toLocalFile();
    const QString span = QStringLiteral("120");
    const std::optional<size_t> samples = co_await decodeInto(ffmpeg, input, span, analyzeTimeout, features);
    if (!samples || *samples <= minimumAnalyzeSamples)
        co_return Analysis{};
    QFuture<Analysis> job = QtConcurrent::run([features, n = *samples] { return analysisOf(*features, n); });
    const Analysis analysis = co_await job;
    co_return analysis;
}

QCoro::Task<std::optional<BeatGrid>> beatGrid(QUrl file, QString ffmpeg, Tools::CancellationPtr cancellation) {
    if (ffmpeg.isEmpty())
        co_return std::nullopt;
    const auto features = std::make_shared<AudioFeatures>(false);
    const QString input = file.toLocalFile();
    const QString span = QStringLiteral("90");
    const std::optional<size_t> samples = co_await decodeInto(ffmpeg, input, span, beatGridTimeout, features, cancellation);
    if (!samples)
        co_return std::nullopt;
    QFuture<std::optional<BeatGrid>> job = QtConcurrent::run([features, n = *samples] { return gridOf(*features, n); });
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

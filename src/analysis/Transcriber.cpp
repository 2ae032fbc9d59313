#include "analysis/Transcriber.h"

#include "core/TempFile.h"

#include "core/AppSettings.h"
#include "core/SiteAddresses.h"
#include "engine/Tools.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QUuid>

#include <QCoroNetworkReply>

#include <algorithm>

namespace {

// A download that delivers nothing for this long is given up.
constexpr int kStallTimeoutMs = 60 * 1000;
constexpr double kConversionTimeout = 600;
constexpr double kRecognitionTimeout = 3600;
constexpr int kErrorTailLength = 200;



struct DeleteLater {
    void operator()(QObject *object) const {
        if (object)
            object->deleteLater();
    }
};

QString modelFileName(const QString &name) { return QStringLiteral("ggml-") + name + QStringLiteral(".bin"); }

} // namespace

// ---- TranscribeError ----

Transcriber::TranscribeError::TranscribeError(Kind kind, const QString &message)
    : std::runtime_error(message.toStdString()), m_kind(kind) {}

Transcriber::TranscribeError Transcriber::TranscribeError::whisperFailed(const QString &errorTail) {
    return TranscribeError(Kind::whisperFailed, QStringLiteral("Transcription failed: ") + errorTail);
}

Transcriber::TranscribeError Transcriber::TranscribeError::whisperMissing() {
    return TranscribeError(Kind::whisperMissing, QStringLiteral("whisper-cli not found (brew install whisper-cpp)."));
}

Transcriber::TranscribeError Transcriber::TranscribeError::modelDownloadFailed() {
    return TranscribeError(Kind::modelDownloadFailed, QStringLiteral("Couldn't download the transcription model."));
}

Transcriber::TranscribeError Transcriber::TranscribeError::conversionFailed() {
    return TranscribeError(Kind::conversionFailed, QStringLiteral("Couldn't convert audio for transcription."));
}

namespace {
const QString partialPrefix = QStringLiteral(".vorlix-");
} // namespace

// ---- Transcriber ----

Transcriber::Transcriber()
    : Transcriber(Setup{&AppSettings::shared(), AppSettings::appSupportDir() + QStringLiteral("/models"),
                        QUrl(SiteAddresses::speechModelRepository), [] { return Tools::whisperURL(); },
                        [] { return Tools::ffmpegURL(); }}) {}

Transcriber::Transcriber(Setup setup, QObject *parent)
    : QObject(parent), m_setup(std::move(setup)), m_network(std::make_unique<QNetworkAccessManager>()) {
    // A model download cut short by a crash or a kill leaves its hidden partial file (hundreds
    // of megabytes); those of earlier runs can never complete.
    removeStaleLeftovers(m_setup.modelsDir, partialPrefix);
}

Transcriber::~Transcriber() = default;

Transcriber &Transcriber::shared() {
    static Transcriber *instance = new Transcriber(); // lives for the whole process
    return *instance;
}

QString Transcriber::currentModelName() const {
    return m_setup.settings ? m_setup.settings->whisperModel() : QStringLiteral("base");
}

QString Transcriber::modelPath(const QString &name) const { return m_setup.modelsDir + u'/' + modelFileName(name); }

QString Transcriber::modelURL() const { return modelPath(currentModelName()); }

QUrl Transcriber::modelDownloadURL(const QString &name) const {
    return m_setup.modelRepository.resolved(QUrl(modelFileName(name)));
}

QString Transcriber::pathWithoutExtension(const QString &path) {
    const qsizetype slash = path.lastIndexOf(u'/');
    const qsizetype dot = path.lastIndexOf(u'.');
    // A leading dot names a hidden file rather than starting an extension.
    if (dot <= slash + 1)
        return path;
    return path.left(dot);
}

QString Transcriber::lastCharacters(const QString &text, int count) {
    qsizetype start = text.size();
    for (int taken = 0; taken < count && start > 0; ++taken) {
        --start;
        if (start > 0 && text.at(start).isLowSurrogate() && text.at(start - 1).isHighSurrogate())
            --start;
    }
    return text.mid(start);
}

void Transcriber::setProgress(double fraction) {
    fraction = std::clamp(fraction, 0.0, 1.0);
    if (fraction == m_progress)
        return;
    m_progress = fraction;
    Q_EMIT modelDownloadProgressChanged(m_progress);
}

void Transcriber::beginDownload() {
    if (m_activeDownloads++ == 0) {
        setProgress(0.0);
        Q_EMIT isDownloadingModelChanged(true);
    }
}

void Transcriber::endDownload() {
    if (--m_activeDownloads == 0)
        Q_EMIT isDownloadingModelChanged(false);
}

QCoro::Task<> Transcriber::ensureModel() { return ensureModelNamed(currentModelName()); }

QCoro::Task<> Transcriber::ensureModelNamed(QString name) {
    const QString model = modelPath(name);
    const QFileInfo existing(model);
    // An empty file can only be left by something else; it would fail every transcription.
    if (existing.isFile() && existing.size() > 0)
        co_return;

    beginDownload();
    QDir().mkpath(existing.absolutePath());
    bool landed = false;
    try {
        landed = co_await download(modelDownloadURL(name), model);
    } catch (...) {
        landed = false;
    }
    if (landed)
        setProgress(1.0);
    else
        setProgress(0.0);
    endDownload();
    if (!landed)
        throw TranscribeError::modelDownloadFailed();
}

QCoro::Task<bool> Transcriber::download(QUrl source, QString destination) {
    // Received bytes go to a hidden file beside the model and are moved into place only after a
    // complete 200 answer, so an interrupted download never looks like a model.
    const QString partial = QFileInfo(destination).absolutePath() + u'/' + partialPrefix + upperUuid();
    RemoveOnExit cleanup(partial);
    QFile out(partial);
    if (!out.open(QIODevice::WriteOnly | QIODevice::Truncate))
        co_return false;

    QNetworkRequest request(source);
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::NoLessSafeRedirectPolicy);
    request.setTransferTimeout(kStallTimeoutMs);
    // Uncompressed, so the byte count can be checked against Content-Length.
    request.setRawHeader("Accept-Encoding", "identity");

    std::unique_ptr<QNetworkReply, DeleteLater> reply(m_network->get(request));
    QNetworkReply *raw = reply.get();
    bool writeFailed = false;
    auto drain = [raw, &out, &writeFailed] {
        const QByteArray chunk = raw->readAll();
        if (!writeFailed && out.write(chunk) != chunk.size()) {
            writeFailed = true;
            raw->abort();
        }
    };
    connect(raw, &QNetworkReply::readyRead, raw, drain);
    connect(raw, &QNetworkReply::downloadProgress, this, [this](qint64 received, qint64 total) {
        if (total > 0)
            setProgress(double(received) / double(total));
    });

    co_await raw;
    drain();

    const int status = raw->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    if (raw->error() != QNetworkReply::NoError || status != 200 || writeFailed)
        co_return false;
    const QVariant announced = raw->header(QNetworkRequest::ContentLengthHeader);
    if (!out.flush() || (announced.isValid() && out.size() != announced.toLongLong()))
        co_return false;
    out.close();

    QFile::remove(destination);
    co_return QFile::rename(partial, destination);
}

QCoro::Task<QString> Transcriber::transcribe(QString file) {
    const QString whisper = m_setup.whisperURL ? m_setup.whisperURL() : QString();
    if (whisper.isEmpty())
        throw TranscribeError::whisperMissing();

    // One model for the whole call, even if the setting changes while it downloads.
    const QString modelName = currentModelName();
    co_await ensureModelNamed(modelName);
    const QString model = modelPath(modelName);

    const QString wav = QDir::tempPath() + QStringLiteral("/vorlix-whisper-") + upperUuid() + QStringLiteral(".wav");
    RemoveOnExit cleanup(wav);

    const QString ffmpeg = m_setup.ffmpegURL ? m_setup.ffmpegURL() : QString();
    if (ffmpeg.isEmpty())
        throw TranscribeError::conversionFailed();
    // whisper.cpp works at 16 kHz mono; handing it exactly that spares it a resampling pass.
    const QStringList convertArgs{QStringLiteral("-y"),  QStringLiteral("-i"), file,
                                  QStringLiteral("-ar"), QStringLiteral("16000"),
                                  QStringLiteral("-ac"), QStringLiteral("1"),
                                  QStringLiteral("-f"),  QStringLiteral("wav"), wav};
    const Tools::RunResult converted = co_await Tools::run(ffmpeg, convertArgs, kConversionTimeout);
    if (converted.status != 0)
        throw TranscribeError::conversionFailed();

    const QString base = pathWithoutExtension(file);
    const QStringList recognizeArgs{QStringLiteral("-m"),    model, QStringLiteral("-f"), wav,
                                    QStringLiteral("-osrt"), QStringLiteral("-otxt"),
                                    QStringLiteral("-of"),   base};
    const Tools::RunResult recognized = co_await Tools::run(whisper, recognizeArgs, kRecognitionTimeout);
    const QString srt = base + QStringLiteral(".srt");
    if (recognized.status == 0 && QFileInfo::exists(srt))
        co_return srt;
    throw TranscribeError::whisperFailed(lastCharacters(recognized.stderrText, kErrorTailLength));
}

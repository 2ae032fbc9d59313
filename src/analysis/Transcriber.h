#pragma once

#include <QCoroTask>
#include <QObject>
#include <QString>
#include <QUrl>

#include <functional>
#include <memory>
#include <stdexcept>

class AppSettings;
class QNetworkAccessManager;

// Speech to subtitles on this machine: converts a media file to the 16 kHz mono WAV whisper-cli
// reads, runs the recognizer with the downloaded ggml model, and leaves "<name>.srt" and
// "<name>.txt" beside the media. Lives on the main thread; the properties drive the settings
// screen's model download bar and the queue row's status text.
class Transcriber : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool isDownloadingModel READ isDownloadingModel NOTIFY isDownloadingModelChanged)
    Q_PROPERTY(double modelDownloadProgress READ modelDownloadProgress NOTIFY modelDownloadProgressChanged)

public:
    // Every failure a user reads; what() is the complete message.
    class TranscribeError : public std::runtime_error {
    public:
        enum class Kind { whisperFailed, whisperMissing, modelDownloadFailed, conversionFailed };

        static TranscribeError whisperFailed(const QString &errorTail);
        static TranscribeError whisperMissing();
        static TranscribeError modelDownloadFailed();
        static TranscribeError conversionFailed();

        Kind kind() const { return m_kind; }
        QString message() const { return QString::fromUtf8(what()); }

    private:
        TranscribeError(Kind kind, const QString &message);
        Kind m_kind;
    };

    // What the transcriber depends on; the default constructor wires the real ones.
    struct Setup {
        AppSettings *settings = nullptr;       // for the whisperModel choice
        QString modelsDir;                     // where "ggml-<name>.bin" lives
        QUrl modelRepository;                  // ends in "resolve/main/"
        std::function<QString()> whisperURL;   // empty answer: not installed
        std::function<QString()> ffmpegURL;
    };

    Transcriber();
    explicit Transcriber(Setup setup, QObject *parent = nullptr);
    ~Transcriber() override;

    static Transcriber &shared();

    // The model file for the current whisperModel setting.
    QString modelURL() const;
    // Where the model named `name` is fetched from.
    QUrl modelDownloadURL(const QString &name) const;

    // Downloads the model unless it is already on disk. Throws TranscribeError.
    QCoro::Task<> ensureModel();
    // Transcribes `file` and answers the ".srt" path. Throws TranscribeError, or
    // Tools::LaunchError when ffmpeg or whisper-cli exist but cannot be started.
    QCoro::Task<QString> transcribe(QString file);

    bool isDownloadingModel() const { return m_activeDownloads > 0; }
    double modelDownloadProgress() const { return m_progress; }

    // "/x/Talk.mp4" -> "/x/Talk": the recognizer's output base (also used for the summary's name).
    static QString pathWithoutExtension(const QString &path);
    // The last `count` characters of `text`, never splitting a surrogate pair.
    static QString lastCharacters(const QString &text, int count);

Q_SIGNALS:
    void isDownloadingModelChanged(bool downloading);
    void modelDownloadProgressChanged(double fraction);

private:
    QString currentModelName() const;
    QString modelPath(const QString &name) const;
    QCoro::Task<> ensureModelNamed(QString name);
    QCoro::Task<bool> download(QUrl source, QString destination);
    void setProgress(double fraction);
    void beginDownload();
    void endDownload();

    Setup m_setup;
    std::unique_ptr<QNetworkAccessManager> m_network;
    int m_activeDownloads = 0;
    double m_progress = 0.0;
};

#pragma once

// Test doubles for the download queue: a recording notifier, a settable clock and scripted
// collaborators whose operations can be held open until the test releases them.

#include "core/AppSettings.h"
#include "queue/DownloadQueue.h"
#include "queue/HistoryStore.h"
#include "queue/Notifier.h"

#include "TestEnv.h"

#include <QCoreApplication>
#include <QCoroSignal>
#include <QHash>
#include <QObject>
#include <QStringList>
#include <QUuid>

#include <memory>
#include <stdexcept>

namespace queuetest {

struct RecordingNotifier : Notifier {
    QList<std::pair<QString, QString>> posted;
    void post(const QString &title, const QString &body) override { posted.append({title, body}); }
    QStringList titles() const {
        QStringList out;
        for (const auto &p : posted)
            out << p.first;
        return out;
    }
};

struct ManualClock {
    std::shared_ptr<double> now = std::make_shared<double>(1000.0);
    DownloadQueue::Clock clock() const {
        return [n = now] { return *n; };
    }
    void advance(double seconds) { *now += seconds; }
};

// Scripted engine: probes answer from a table, downloads follow a list of outcomes. With
// `hold` set, each operation waits for release() before answering.
class FakeEngine : public QObject {
    Q_OBJECT
public:
    struct DownloadOutcome {
        QString file;  // success when not empty
        QString error; // the thrown message otherwise
    };

    QHash<QString, ProbeResult> probes;      // by link; missing → a single video titled after the link
    QHash<QString, QString> probeErrors;     // by link
    QList<DownloadOutcome> downloads;        // consumed in order; empty → success into outputDir
    bool holdProbe = false;
    bool holdDownload = false;
    int probeCalls = 0;
    int downloadCalls = 0;
    int updateCalls = 0;
    QStringList downloadedURLs;
    QStringList outputDirs;
    QList<double> progressAtUpdate;
    DownloadItemPtr watched; // whose progress is sampled when the engine updates
    QHash<QString, std::pair<QString, SpotifyTrack>> spotify;
    std::pair<std::optional<double>, std::optional<QString>> analysis;
    int analyzeCalls = 0;
    QString transcribeError;
    QString transcriptPath;
    std::optional<QUrl> renderResult;
    QList<YtDlp::ProgressFn> progressSinks;

    int waiting = 0;
    void release() { Q_EMIT released(); }

    DownloadQueue::Services services() {
        DownloadQueue::Services s;
        s.probe = [this](QString url) { return probe(std::move(url)); };
        s.download = [this](DownloadItemPtr job, const AppSettings &, QString dir, YtDlp::RegisterFn,
                            YtDlp::ProgressFn progress) {
            return download(std::move(job), std::move(dir), std::move(progress));
        };
        s.updateEngine = [this] { return update(); };
        s.isSpotifyTrackURL = [](const QString &url) { return url.contains(QLatin1String("/track/")); };
        s.resolveSpotify = [this](QString url) { return resolve(std::move(url)); };
        s.applyTags = [](SpotifyTrack track, QString file) { return tag(std::move(track), std::move(file)); };
        s.analyze = [this](QUrl file) { return analyze(std::move(file)); };
        s.renderSpeed = [this](QUrl, double) { return render(); };
        s.renderPitchShift = [this](QUrl, int) { return render(); };
        s.speechModelPresent = [] { return false; };
        s.transcribe = [this](QString file) { return transcribe(std::move(file)); };
        s.writeSummary = [](const QString &text, const QString &) { return std::optional<QString>(text + QStringLiteral(".summary")); };
        return s;
    }

Q_SIGNALS:
    void released();

private:
    QCoro::Task<> gate(bool hold) {
        if (!hold)
            co_return;
        ++waiting;
        co_await qCoro(this, &FakeEngine::released);
        --waiting;
    }
    QCoro::Task<ProbeResult> probe(QString url) {
        ++probeCalls;
        co_await gate(holdProbe);
        if (probeErrors.contains(url))
            throw YtDlpError::probeFailed(probeErrors.value(url));
        if (probes.contains(url))
            co_return probes.value(url);
        ProbeResult r;
        r.title = QStringLiteral("Title of ") + url;
        r.durationSeconds = 61;
        co_return r;
    }
    QCoro::Task<QString> download(DownloadItemPtr job, QString dir, YtDlp::ProgressFn progress) {
        ++downloadCalls;
        downloadedURLs << job->url();
        outputDirs << dir;
        progressSinks << progress;
        co_await gate(holdDownload);
        const DownloadOutcome outcome = downloads.isEmpty() ? DownloadOutcome{} : downloads.takeFirst();
        if (!outcome.error.isEmpty())
            throw YtDlpError::downloadFailed(outcome.error);
        co_return outcome.file.isEmpty() ? dir + QStringLiteral("/file-") + QString::number(downloadCalls) + QStringLiteral(".mp4")
                                         : outcome.file;
    }
    QCoro::Task<bool> update() {
        ++updateCalls;
        if (watched)
            progressAtUpdate << watched->progress();
        co_return true;
    }
    QCoro::Task<std::pair<QString, SpotifyTrack>> resolve(QString url) {
        if (!spotify.contains(url))
            throw YtDlpError::probeFailed(QStringLiteral("Couldn't read track info from that Spotify link."));
        co_return spotify.value(url);
    }
    static QCoro::Task<QString> tag(SpotifyTrack track, QString file) {
        co_return file + QStringLiteral(".tagged-") + track.title;
    }
    QCoro::Task<std::pair<std::optional<double>, std::optional<QString>>> analyze(QUrl) {
        ++analyzeCalls;
        co_return analysis;
    }
    QCoro::Task<QString> transcribe(QString file) {
        if (!transcribeError.isEmpty())
            throw std::runtime_error(transcribeError.toStdString());
        co_return transcriptPath.isEmpty() ? file + QStringLiteral(".srt") : transcriptPath;
    }
    QCoro::Task<std::optional<QUrl>> render() { co_return renderResult; }
};

// A queue over private settings and history files, with the fake engine and notifier.
struct QueueRig {
    AppSettings settings;
    HistoryStore history;
    RecordingNotifier notifier;
    ManualClock clock;
    FakeEngine engine;
    DownloadQueue queue;

    explicit QueueRig(const QString &name)
        : settings(TestEnv::root() + u'/' + name + QStringLiteral(".ini")),
          history(TestEnv::root() + u'/' + name + QStringLiteral("-history.json")),
          queue(settings, history, notifier, engine.services(), clock.clock()) {
        settings.setDownloadFolderPath(TestEnv::root() + u'/' + name + QStringLiteral("-downloads"));
    }
    ~QueueRig() {
        // Let every held operation finish so no coroutine frame is left behind.
        engine.holdProbe = engine.holdDownload = false;
        for (int i = 0; i < 200 && engine.waiting > 0; ++i) {
            engine.release();
            QCoreApplication::processEvents();
        }
    }
    DownloadItemPtr find(const QString &url) const {
        for (const auto &item : queue.items())
            if (item->url() == url)
                return item;
        return {};
    }
    QStringList urls() const {
        QStringList out;
        for (const auto &item : queue.items())
            out << item->url();
        return out;
    }
};

} // namespace queuetest

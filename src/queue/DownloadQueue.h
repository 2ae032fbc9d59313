#pragma once

#include "core/ClipRange.h"
#include "core/DownloadItem.h"
#include "core/DownloadMode.h"
#include "core/SpotifyTrack.h"
#include "engine/ProbeResult.h"
#include "engine/YtDlp.h"

#include <QCoroTask>
#include <QHash>
#include <QList>
#include <QObject>
#include <QSet>
#include <QString>
#include <QTimer>
#include <QUrl>
#include <QUuid>

#include <functional>
#include <memory>
#include <optional>

class AppSettings;
class HistoryStore;
class Notifier;
namespace SpotifyResolver {
struct Endpoint;
}

// Owns every item the user asked for, starts at most `maxConcurrent` of them at once (oldest
// first), feeds the downloader's progress into them at a bounded rate and runs each item's
// pipeline: probe or resolve, playlist fan-out, download with one engine self-heal, tagging,
// analysis, history, notification. Main thread only.
class DownloadQueue : public QObject {
    Q_OBJECT
public:
    // Seconds on a monotonic clock; only differences are used.
    using Clock = std::function<double()>;

    // The long operations the pipeline awaits. real() wires the engine, the resolver, the
    // analysis and the transcriber; tests replace single members.
    struct Services {
        std::function<QCoro::Task<ProbeResult>(QString url, Tools::CancellationPtr cancellation)> probe;
        std::function<QCoro::Task<QString>(DownloadItemPtr job, const AppSettings &settings, QString outputDir,
                                           YtDlp::RegisterFn, YtDlp::ProgressFn)>
            download;
        std::function<QCoro::Task<bool>()> updateEngine;
        std::function<bool(const QString &url)> isSpotifyTrackURL;
        // Search query and track for a Spotify track link; throws a user-facing error.
        std::function<QCoro::Task<std::pair<QString, SpotifyTrack>>(QString trackURL)> resolveSpotify;
        // The tagged file's path (a new name); never throws.
        std::function<QCoro::Task<QString>(SpotifyTrack track, QString file)> applyTags;
        std::function<QCoro::Task<std::pair<std::optional<double>, std::optional<QString>>>(QUrl file)> analyze;
        std::function<QCoro::Task<std::optional<QUrl>>(QUrl file, double rate)> renderSpeed;
        std::function<QCoro::Task<std::optional<QUrl>>(QUrl file, int semitones)> renderPitchShift;
        std::function<bool()> speechModelPresent;
        // The transcript's path; throws a user-facing error.
        std::function<QCoro::Task<QString>(QString file)> transcribe;
        std::function<std::optional<QString>(const QString &transcriptText, const QString &title)> writeSummary;

        static Services real();
        // The same, asking Spotify's oEmbed service at `spotify` (a local stand-in in tests).
        static Services real(const SpotifyResolver::Endpoint &spotify);
    };

    static constexpr int autoClearDelayMs = 45000;
    static constexpr int trimKeeping = 80;
    static constexpr int playlistLimit = 100;
    static constexpr double progressInterval = 0.12;
    static constexpr double progressStep = 0.01;

    // The application's queue: shared settings and history, desktop notifications, real services.
    static DownloadQueue &shared();

    DownloadQueue(AppSettings &settings, HistoryStore &history, Notifier &notifier, Services services,
                  Clock clock = {}, QObject *parent = nullptr);
    ~DownloadQueue() override;

    const QList<DownloadItemPtr> &items() const { return m_items; }
    HistoryStore &history() const { return m_history; }
    const std::optional<QString> &lastMessage() const { return m_lastMessage; }
    void setLastMessage(const QString &message);
    void clearLastMessage();
    const DownloadItemPtr &momentsRequest() const { return m_momentsRequest; }
    // The Moments screen clears the request once it has taken the item.
    void setMomentsRequest(DownloadItemPtr item);
    int running() const { return m_running; }
    bool isActiveURL(const QString &url) const { return m_activeURLs.contains(url); }
    bool hasAutoClear(const QUuid &id) const { return m_autoClearWork.contains(id); }

    // Tests shorten the 45-second wait.
    void setAutoClearDelay(int ms) { m_autoClearDelayMs = ms; }

    void add(const QString &urlString, std::optional<DownloadMode> mode = std::nullopt,
             std::optional<ClipRange> clip = std::nullopt, bool wantsMoments = false);
    void pump();
    void retry(const DownloadItemPtr &item);
    void cancel(const DownloadItemPtr &item);
    void remove(const DownloadItemPtr &item);
    void clearFinished();
    void trimOldTerminalItems(int keeping);
    void scheduleAutoClear(const DownloadItemPtr &item);
    void cancelAutoClear(const QUuid &id);
    void applyProgress(const YtDlp::Progress &progress, const DownloadItemPtr &item);
    void notify(const QString &title, const QString &body);

    // Actions on a finished row; each starts at once and reports through the item and lastMessage.
    void transcribe(const DownloadItemPtr &item);
    void renderPractice(const DownloadItemPtr &item, double rate);
    void renderPitch(const DownloadItemPtr &item, int semitones);
    // "Detect BPM & Key": analyses the finished file and reports "120 BPM · A minor".
    void detectTempoAndKey(const DownloadItemPtr &item);
    static QString tempoAndKeyMessage(std::optional<double> bpm, const std::optional<QString> &key);

    // One downloader run for `job`, with progress and the child process credited to `item`.
    QCoro::Task<QString> runDownload(DownloadItemPtr job, DownloadItemPtr item, QString outputDir);

    static QString practiceStatus(double rate);
    static QString pitchStatus(int semitones);
    static bool isSpotifyLink(const QString &url);

Q_SIGNALS:
    void itemsChanged();
    void lastMessageChanged();
    void momentsRequestChanged();

private:
    QCoro::Task<> runItem(DownloadItemPtr item);
    QCoro::Task<> process(DownloadItemPtr item);
    QCoro::Task<> runTranscription(DownloadItemPtr item);
    QCoro::Task<> runTempoAndKey(DownloadItemPtr item);
    QCoro::Task<> runRender(DownloadItemPtr item, std::optional<double> rate, int semitones);
    bool isCancelled(const DownloadItem &item) const;
    void fail(const DownloadItemPtr &item, const QString &message);
    void removeFromList(const QUuid &id);
    void autoClearFired(const QUuid &id);

    AppSettings &m_settings;
    HistoryStore &m_history;
    Notifier &m_notifier;
    Services m_services;
    Clock m_clock;

    QList<DownloadItemPtr> m_items;
    std::optional<QString> m_lastMessage;
    DownloadItemPtr m_momentsRequest;
    int m_running = 0;
    QHash<QUuid, YtDlp::ChildProcess> m_processes;
    QHash<QUuid, Tools::CancellationPtr> m_probes; // probes still running, to end on cancel
    QSet<QString> m_activeURLs;
    QSet<QUuid> m_cancelledIDs;
    struct ProgressMark {
        double fraction = 0;
        double at = 0;
    };
    QHash<QUuid, ProgressMark> m_lastProgressUI;
    QHash<QUuid, QTimer *> m_autoClearWork;
    int m_autoClearDelayMs = autoClearDelayMs;
};

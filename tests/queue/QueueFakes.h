#pragma once

// Test doubles for the download queue: a recording notifier, a settable clock, a scripted engine
// whose operations can be held open until the test releases them, and a queue over private files.

#include "core/AppSettings.h"
#include "queue/DownloadQueue.h"
#include "queue/HistoryStore.h"
#include "queue/Notifier.h"

#include "TestEnv.h"

#include <QCoreApplication>
#include <QCoroSignal>
#include <QHash>
#include <QStringList>

#include <algorithm>
#include <memory>
#include <stdexcept>

namespace queuetest {

struct RecordingNotifier : Notifier {
    QStringList titles;
    void post(const QString &title, const QString &) override { titles << title; }
};

struct ManualClock {
    std::shared_ptr<double> now = std::make_shared<double>(1000.0);
    DownloadQueue::Clock clock() const { return [n = now] { return *n; }; }
    void advance(double seconds) { *now += seconds; }
};

inline YtDlp::Progress progressAt(std::optional<double> fraction, QString speed = QStringLiteral("1.0MiB/s"),
                                  QString eta = QStringLiteral("00:10")) {
    YtDlp::Progress p;
    p.fraction = fraction;
    p.speed = std::move(speed);
    p.eta = std::move(eta);
    return p;
}

// Probes answer from tables (default: a single video titled "Title of <link>"), downloads follow a
// list of error messages (empty: success into the output folder). hold* makes them wait for release().
class FakeEngine : public QObject {
    Q_OBJECT
public:
    QHash<QString, ProbeResult> probes;
    QHash<QString, QString> probeErrors;
    QStringList downloadErrors;
    bool holdProbe = false;
    bool holdDownload = false;
    int probeCalls = 0;
    int updateCalls = 0;
    int analyzeCalls = 0;
    int waiting = 0;
    QStringList downloadedURLs;
    QStringList outputDirs;
    QList<YtDlp::ProgressFn> progressSinks;
    QHash<QString, std::pair<QString, SpotifyTrack>> spotify;
    std::pair<std::optional<double>, std::optional<QString>> analysis;
    QString transcribeError;
    std::optional<QUrl> renderResult;

    void release() { Q_EMIT released(); }

    DownloadQueue::Services services() {
        DownloadQueue::Services s;
        s.probe = [this](QString url) { return probe(std::move(url)); };
        s.download = [this](DownloadItemPtr job, const AppSettings &, QString dir, YtDlp::RegisterFn,
                            YtDlp::ProgressFn progress) { return download(job->url(), std::move(dir), std::move(progress)); };
        s.updateEngine = [this] { return update(); };
        s.isSpotifyTrackURL = [](const QString &url) { return url.contains(QLatin1String("/track/")); };
        s.resolveSpotify = [this](QString url) { return resolve(std::move(url)); };
        s.applyTags = [](SpotifyTrack track, QString file) { return tag(std::move(track), std::move(file)); };
        s.analyze = [this](QUrl) { return analyze(); };
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
        ProbeResult single;
        single.title = QStringLiteral("Title of ") + url;
        co_return probes.value(url, single);
    }
    QCoro::Task<QString> download(QString url, QString dir, YtDlp::ProgressFn progress) {
        downloadedURLs << url;
        outputDirs << dir;
        progressSinks << progress;
        const QString file = dir + QStringLiteral("/file-") + QString::number(downloadedURLs.size()) + QStringLiteral(".mp4");
        co_await gate(holdDownload);
        if (!downloadErrors.isEmpty())
            throw YtDlpError::downloadFailed(downloadErrors.takeFirst());
        co_return file;
    }
    QCoro::Task<bool> update() {
        ++updateCalls;
        co_return true;
    }
    QCoro::Task<std::pair<QString, SpotifyTrack>> resolve(QString url) {
        if (!spotify.contains(url))
            throw YtDlpError::probeFailed(QStringLiteral("Couldn't read track info from that Spotify link."));
        co_return spotify.value(url);
    }
    static QCoro::Task<QString> tag(SpotifyTrack track, QString file) { co_return file + QStringLiteral(".tagged-") + track.title; }
    QCoro::Task<std::pair<std::optional<double>, std::optional<QString>>> analyze() {
        ++analyzeCalls;
        co_return analysis;
    }
    QCoro::Task<QString> transcribe(QString file) {
        if (!transcribeError.isEmpty())
            throw std::runtime_error(transcribeError.toStdString());
        co_return file + QStringLiteral(".srt");
    }
    QCoro::Task<std::optional<QUrl>> render() { co_return renderResult; }
};

// A queue over its own settings, history and download folder; the fake engine unless real
// services are given.
struct QueueRig {
    AppSettings settings;
    HistoryStore history;
    RecordingNotifier notifier;
    ManualClock clock;
    FakeEngine engine;
    DownloadQueue queue;
    QString downloads;

    explicit QueueRig(std::optional<DownloadQueue::Services> real = std::nullopt)
        : QueueRig(QStringLiteral("%1/rig-%2").arg(TestEnv::root()).arg(++serial()), std::move(real)) {}
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
    QStringList urls() const { // oldest first, the order links were handed over
        QStringList out;
        for (const auto &item : queue.items())
            out.prepend(item->url());
        return out;
    }
    int count(ItemState::Kind kind) const {
        return int(std::count_if(queue.items().cbegin(), queue.items().cend(),
                                 [kind](const DownloadItemPtr &i) { return i->state().is(kind); }));
    }
    QString message() const { return queue.lastMessage().value_or(QString()); }

private:
    static int &serial() {
        static int n = 0;
        return n;
    }
    QueueRig(const QString &base, std::optional<DownloadQueue::Services> real)
        : settings(base + QStringLiteral(".ini")), history(base + QStringLiteral("-history.json")),
          queue(settings, history, notifier, real ? std::move(*real) : engine.services(),
                real ? DownloadQueue::Clock() : clock.clock()),
          downloads(base + QStringLiteral("-downloads")) {
        settings.setDownloadFolderPath(downloads);
    }
};

} // namespace queuetest

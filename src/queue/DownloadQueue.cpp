#include "queue/DownloadQueue.h"

#include "core/AppSettings.h"
#include "core/MediaCategory.h"
#include "core/MediaSource.h"
#include "core/SiteAddresses.h"
#include "queue/DesktopNotifier.h"
#include "queue/HistoryStore.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QPointer>

#include <algorithm>
#include <exception>
#include <utility>

namespace {

QString errorText(std::exception_ptr error)
{
    try {
        std::rethrow_exception(error);
    } catch (const std::exception &e) {
        const QString text = QString::fromUtf8(e.what());
        if (!text.isEmpty())
            return text;
    } catch (...) {
    }
    return QStringLiteral("The operation could not be completed.");
}

// A step's result or its failure, so the pipeline decides what a failure means outside a handler.
template <typename T> struct Attempt {
    T value{};
    std::exception_ptr error;
};
template <typename T> QCoro::Task<Attempt<T>> attempt(QCoro::Task<T> task)
{
    Attempt<T> out;
    try {
        out.value = co_await std::move(task);
    } catch (...) {
        out.error = std::current_exception();
    }
    co_return out;
}

DownloadQueue::Clock monotonicClock()
{
    auto timer = std::make_shared<QElapsedTimer>();
    timer->start();
    return [timer] { return static_cast<double>(timer->nsecsElapsed()) / 1e9; };
}

} // namespace

DownloadQueue &DownloadQueue::shared()
{
    static DesktopNotifier notifier;
    static DownloadQueue *queue =
        new DownloadQueue(AppSettings::shared(), HistoryStore::shared(), notifier, Services::real());
    return *queue;
}

DownloadQueue::DownloadQueue(AppSettings &settings, HistoryStore &history, Notifier &notifier, Services services,
                             Clock clock, QObject *parent)
    : QObject(parent), m_settings(settings), m_history(history), m_notifier(notifier),
      m_services(std::move(services)), m_clock(clock ? std::move(clock) : monotonicClock())
{
    // A raised limit fills the new slots now; a lowered one lets running items finish.
    connect(&m_settings, &AppSettings::changed, this, [this](const QString &key) {
        if (key == QLatin1String("maxConcurrent"))
            pump();
    });
    // A history read in the background has its say once it is in.
    if (history.isLoaded())
        m_lastMessage = history.loadNotice();
    else
        connect(&history, &HistoryStore::loaded, this, [this] {
            if (m_history.loadNotice())
                setLastMessage(*m_history.loadNotice());
        });
}

DownloadQueue::~DownloadQueue()
{
    // Pipelines still suspended notice the queue is gone through their QPointer; their children
    // must not outlive it either.
    for (const auto &child : std::as_const(m_processes))
        if (child.isRunning())
            child.terminate();
    for (const auto &probe : std::as_const(m_probes))
        probe->cancel();
    qDeleteAll(m_autoClearWork);
}

void DownloadQueue::setLastMessage(const QString &message)
{
    m_lastMessage = message;
    Q_EMIT lastMessageChanged();
}

void DownloadQueue::clearLastMessage()
{
    if (!m_lastMessage)
        return;
    m_lastMessage.reset();
    Q_EMIT lastMessageChanged();
}

void DownloadQueue::setMomentsRequest(DownloadItemPtr item)
{
    if (m_momentsRequest == item)
        return;
    // An item stays in the list while its moments are reviewed, and leaves like any finished
    // item once the review is over.
    const DownloadItemPtr previous = std::exchange(m_momentsRequest, std::move(item));
    if (m_momentsRequest)
        cancelAutoClear(m_momentsRequest->id());
    if (previous && m_items.contains(previous) &&
        (previous->state().is(ItemState::Kind::done) || previous->state().is(ItemState::Kind::cancelled)))
        scheduleAutoClear(previous);
    Q_EMIT momentsRequestChanged();
}

bool DownloadQueue::isSpotifyLink(const QString &url)
{
    return url.contains(SiteAddresses::spotifyWebPlayerHost + u'/');
}

void DownloadQueue::add(const QString &urlString, std::optional<DownloadMode> mode, std::optional<ClipRange> clip,
                        bool wantsMoments)
{
    const QString url = YtDlp::normalizeURL(urlString);
    if (url.isEmpty() || !url.toLower().startsWith(QLatin1String("http")))
        return;
    if (m_activeURLs.contains(url))
        return;
    for (const auto &existing : std::as_const(m_items))
        if (existing->url() == url && existing->state().isActive())
            return;

    m_activeURLs.insert(url);
    const DownloadMode chosen = mode ? *mode : DownloadModes::fromRawOrDefault(m_settings.defaultModeRaw());
    auto item = DownloadItem::make(url, chosen, std::move(clip));
    item->setWantsMoments(wantsMoments && chosen != DownloadMode::audioOnly);
    if (isSpotifyLink(url)) {
        item->setMode(DownloadMode::audioOnly);
        item->setWantsMoments(false);
        item->setTitle(QStringLiteral("Spotify track\u2026"));
    }
    m_items.prepend(item);
    trimOldTerminalItems(trimKeeping);
    Q_EMIT itemsChanged();
    pump();
}

void DownloadQueue::pump()
{
    const int limit = std::max(1, m_settings.maxConcurrent());
    while (m_running < limit) {
        DownloadItemPtr next;
        for (auto it = m_items.crbegin(); it != m_items.crend(); ++it) {
            if ((*it)->state().is(ItemState::Kind::queued)) {
                next = *it;
                break;
            }
        }
        if (!next)
            return;
        ++m_running;
        next->setState(ItemState::probing());
        runItem(next);
    }
}

QCoro::Task<> DownloadQueue::runItem(DownloadItemPtr item)
{
    QPointer<DownloadQueue> self(this);
    try {
        co_await process(item);
    } catch (...) {
        // process() reports its own failures; anything escaping it still ends the item.
        if (self && !isCancelled(*item) && item->state().isActive())
            fail(item, errorText(std::current_exception()));
    }
    if (!self)
        co_return;
    --m_running;
    m_activeURLs.remove(item->url());
    m_processes.remove(item->id());
    m_lastProgressUI.remove(item->id());
    pump();
}

void DownloadQueue::retry(const DownloadItemPtr &item)
{
    if (!item || !item->state().is(ItemState::Kind::failed))
        return;
    m_cancelledIDs.remove(item->id());
    m_activeURLs.insert(item->url());
    item->setState(ItemState::queued());
    item->setProgress(0);
    item->setSpeedText({});
    item->setEtaText({});
    pump();
}

void DownloadQueue::cancel(const DownloadItemPtr &item)
{
    if (!item)
        return;
    m_cancelledIDs.insert(item->id());
    const auto child = m_processes.constFind(item->id());
    if (child != m_processes.cend() && child->isRunning())
        child->terminate();
    if (const auto probe = m_probes.value(item->id()))
        probe->cancel();
    item->setState(ItemState::cancelled());
    m_activeURLs.remove(item->url());
    m_lastProgressUI.remove(item->id());
    cancelAutoClear(item->id());
}

void DownloadQueue::remove(const DownloadItemPtr &item)
{
    if (!item)
        return;
    cancel(item);
    removeFromList(item->id());
    m_activeURLs.remove(item->url());
    m_cancelledIDs.remove(item->id());
    m_lastProgressUI.remove(item->id());
}

void DownloadQueue::removeFromList(const QUuid &id)
{
    const auto removed = m_items.removeIf([&](const DownloadItemPtr &i) { return i->id() == id; });
    if (removed > 0)
        Q_EMIT itemsChanged();
}

void DownloadQueue::clearFinished()
{
    QSet<QUuid> finished;
    for (const auto &item : std::as_const(m_items)) {
        if (!item->state().isTerminal())
            continue;
        finished.insert(item->id());
        m_activeURLs.remove(item->url());
        m_cancelledIDs.remove(item->id());
        m_lastProgressUI.remove(item->id());
        cancelAutoClear(item->id());
    }
    if (m_items.removeIf([&](const DownloadItemPtr &i) { return finished.contains(i->id()); }) > 0)
        Q_EMIT itemsChanged();
}

void DownloadQueue::trimOldTerminalItems(int keeping)
{
    QSet<QUuid> excess;
    int terminal = 0;
    for (const auto &item : std::as_const(m_items))
        if (item->state().isTerminal() && ++terminal > keeping)
            excess.insert(item->id());
    if (excess.isEmpty())
        return;
    m_items.removeIf([&](const DownloadItemPtr &i) { return excess.contains(i->id()); });
    Q_EMIT itemsChanged();
}

void DownloadQueue::scheduleAutoClear(const DownloadItemPtr &item)
{
    cancelAutoClear(item->id());
    auto *timer = new QTimer(this);
    timer->setSingleShot(true);
    const QUuid id = item->id();
    connect(timer, &QTimer::timeout, this, [this, id] { autoClearFired(id); });
    m_autoClearWork.insert(id, timer);
    timer->start(m_autoClearDelayMs);
}

void DownloadQueue::cancelAutoClear(const QUuid &id)
{
    if (QTimer *timer = m_autoClearWork.take(id)) {
        timer->stop();
        timer->deleteLater();
    }
}

void DownloadQueue::autoClearFired(const QUuid &id)
{
    if (QTimer *timer = m_autoClearWork.take(id))
        timer->deleteLater();
    const auto it = std::find_if(m_items.cbegin(), m_items.cend(),
                                 [&](const DownloadItemPtr &i) { return i->id() == id; });
    if (it == m_items.cend())
        return;
    const ItemState &state = (*it)->state();
    if (!state.is(ItemState::Kind::done) && !state.is(ItemState::Kind::cancelled))
        return;
    removeFromList(id);
    m_cancelledIDs.remove(id);
    m_lastProgressUI.remove(id);
}

void DownloadQueue::applyProgress(const YtDlp::Progress &p, const DownloadItemPtr &item)
{
    if (m_cancelledIDs.contains(item->id()) || item->state().is(ItemState::Kind::cancelled))
        return;
    if (p.phase) {
        item->setState(ItemState::processing(*p.phase));
        item->setSpeedText({});
        item->setEtaText({});
        return;
    }
    if (p.fraction) {
        const double fraction = std::clamp(*p.fraction, 0.0, 1.0);
        const double now = m_clock();
        const auto last = m_lastProgressUI.constFind(item->id());
        if (last != m_lastProgressUI.cend() && now - last->at < progressInterval
            && std::abs(fraction - last->fraction) < progressStep)
            return;
        m_lastProgressUI.insert(item->id(), ProgressMark{fraction, now});
        item->setProgress(fraction);
    }
    const QString unknown = QStringLiteral("Unknown");
    item->setSpeedText(p.speed == unknown ? QString() : p.speed);
    item->setEtaText(p.eta == unknown ? QString() : p.eta);
    if (item->state().is(ItemState::Kind::probing) || item->state().is(ItemState::Kind::downloading))
        item->setState(ItemState::downloading());
}

void DownloadQueue::notify(const QString &title, const QString &body)
{
    // A quarantined copy of the application may not post; kept for parity with that platform.
    if (QCoreApplication::applicationFilePath().contains(QLatin1String("/AppTranslocation/")))
        return;
    try {
        m_notifier.post(title, body);
    } catch (...) {
    }
}

bool DownloadQueue::isCancelled(const DownloadItem &item) const
{
    return m_cancelledIDs.contains(item.id()) || item.state().is(ItemState::Kind::cancelled);
}

void DownloadQueue::fail(const DownloadItemPtr &item, const QString &message)
{
    if (isCancelled(*item)) {
        item->setState(ItemState::cancelled());
        return;
    }
    item->setState(ItemState::failed(message));
    notify(QStringLiteral("Download failed"), item->title());
    setLastMessage(QStringLiteral("Failed \u00B7 ") + item->title());
}

QCoro::Task<> DownloadQueue::process(DownloadItemPtr item)
{
    QPointer<DownloadQueue> self(this);
    // After every suspension: the queue may be gone, or the user may have cancelled the item.
    auto stopped = [&] {
        if (!self)
            return true;
        if (!isCancelled(*item))
            return false;
        item->setState(ItemState::cancelled());
        return true;
    };

    if (stopped())
        co_return;
    const MediaSource source = MediaSource::detect(item->url());
    QString downloadURL;

    if (isSpotifyLink(item->url())) {
        if (!m_services.isSpotifyTrackURL(item->url())) {
            fail(item, QStringLiteral("Only Spotify track links are supported (not playlists/albums)."));
            co_return;
        }
        item->setMode(DownloadMode::audioOnly);
        item->setState(ItemState::processing(QStringLiteral("Matching track\u2026")));
        const auto resolution = co_await attempt(m_services.resolveSpotify(item->url()));
        if (self && resolution.error)
            fail(item, errorText(resolution.error));
        if (!self || resolution.error || stopped())
            co_return;
        const SpotifyTrack &track = resolution.value.second;
        item->setTitle(track.artist.isEmpty() ? track.title : track.artist + QStringLiteral(" \u2014 ") + track.title);
        item->setThumbnailURL(track.artworkURL);
        item->setSpotifyTags(track);
        item->setCategory(MediaCategory::classify(source, item->mode(), {}, item->title()));
        downloadURL = resolution.value.first;
    } else {
        // A cancel ends the probe rather than waiting for it: a stuck site would hold the slot.
        const auto probing = std::make_shared<Tools::Cancellation>();
        m_probes.insert(item->id(), probing);
        const auto probed = co_await attempt(m_services.probe(item->url(), probing));
        if (self)
            m_probes.remove(item->id());
        if (self && probed.error)
            fail(item, errorText(probed.error));
        if (!self || probed.error || stopped())
            co_return;
        const ProbeResult &probe = probed.value;
        if (!probe.playlistEntries.isEmpty()) {
            const auto count = probe.playlistEntries.size();
            item->setState(ItemState::done());
            item->setTitle(probe.title + QStringLiteral(" \u2014 ") + QString::number(count)
                           + QStringLiteral(" videos queued"));
            item->setProgress(1.0);
            const auto queued = std::min<qsizetype>(count, playlistLimit);
            for (qsizetype i = 0; i < queued; ++i)
                add(probe.playlistEntries.at(i).url, item->mode(), std::nullopt, false);
            setLastMessage(QStringLiteral("Queued ") + QString::number(queued)
                           + QStringLiteral(" videos from playlist"));
            scheduleAutoClear(item);
            co_return;
        }
        item->setTitle(probe.title);
        item->setThumbnailURL(probe.thumbnail ? *probe.thumbnail : QUrl());
        item->setDurationText(probe.durationText());
        item->setCategory(MediaCategory::classify(source, item->mode(), probe.categories, item->title()));
        downloadURL = item->url();
    }

    QString outputDir = m_settings.downloadFolder();
    if (m_settings.organizeDownloads()) {
        outputDir = QDir(outputDir).filePath(MediaCategory::libraryFolder(
            source, item->mode(), item->clip().has_value(), item->category(), item->url()));
        QDir().mkpath(outputDir); // a failure here is reported by the downloader
    }
    if (stopped())
        co_return;

    item->setState(ItemState::downloading());
    auto job = DownloadItem::make(downloadURL, item->mode(), item->clip());
    job->setSpotifyTags(item->spotifyTags());

    auto downloaded = co_await attempt(runDownload(job, item, outputDir));
    QString file = downloaded.value;
    std::exception_ptr error = downloaded.error;
    if (!self)
        co_return;
    if (error) {
        if (stopped())
            co_return;
        const QString message = errorText(error);
        if (!YtDlp::shouldSelfHeal(message)) {
            fail(item, message);
            co_return;
        }
        item->setState(ItemState::processing(QStringLiteral("Updating engine + retrying\u2026")));
        try {
            co_await m_services.updateEngine();
        } catch (...) {
            // The retry happens whether or not the engine changed.
        }
        if (stopped())
            co_return;
        item->setDidSelfHeal(true);
        item->setProgress(0);
        m_lastProgressUI.remove(item->id());
        item->setState(ItemState::downloading());
        downloaded = co_await attempt(runDownload(job, item, outputDir));
        file = downloaded.value;
        error = downloaded.error;
        if (self && error)
            fail(item, errorText(error));
        if (!self || error)
            co_return;
    }
    if (stopped())
        co_return;

    if (item->spotifyTags()) {
        item->setState(ItemState::processing(QStringLiteral("Tagging")));
        const SpotifyTrack tags = *item->spotifyTags();
        try {
            file = co_await m_services.applyTags(tags, file);
        } catch (...) {
            // Untagged audio is still a good download.
        }
        if (!self)
            co_return;
    }

    item->setFinalFileURL(QUrl::fromLocalFile(file));
    item->setState(ItemState::done());
    item->setProgress(1.0);
    item->setSpeedText({});
    item->setEtaText({});

    if (item->mode() == DownloadMode::audioOnly && m_settings.autoAnalyzeAudio()) {
        item->setState(ItemState::processing(QStringLiteral("Analyzing BPM & key")));
        std::pair<std::optional<double>, std::optional<QString>> analysis;
        try {
            analysis = co_await m_services.analyze(item->finalFileURL());
        } catch (...) {
        }
        if (stopped())
            co_return;
        item->setDetectedBPM(analysis.first);
        item->setDetectedKey(analysis.second);
        item->setState(ItemState::done());
    }

    m_history.record(*item);
    if (item->wantsMoments())
        setMomentsRequest(item);
    else
        scheduleAutoClear(item);
    notify(QStringLiteral("Download complete"), item->title());
    setLastMessage(QStringLiteral("Saved \u00B7 ") + item->title());
}

QCoro::Task<QString> DownloadQueue::runDownload(DownloadItemPtr job, DownloadItemPtr item, QString outputDir)
{
    QPointer<DownloadQueue> self(this);
    const QUuid id = item->id();
    std::weak_ptr<DownloadItem> visible = item;
    auto registerChild = [self, id, visible](YtDlp::ChildProcess child) {
        const auto target = visible.lock();
        if (!self || !target) {
            child.terminate();
            return;
        }
        self->m_processes.insert(id, child);
        // A cancel while the downloader was still starting had nothing to stop yet.
        if (self->isCancelled(*target))
            child.terminate();
    };
    auto onProgress = [self, visible](const YtDlp::Progress &progress) {
        const auto target = visible.lock();
        if (self && target)
            self->applyProgress(progress, target);
    };
    co_return co_await m_services.download(std::move(job), m_settings, std::move(outputDir), std::move(registerChild),
                                           std::move(onProgress));
}

QString DownloadQueue::practiceStatus(double rate)
{
    return QStringLiteral("Rendering ") + QString::number(static_cast<int>(rate * 100))
           + QStringLiteral("% version");
}

QString DownloadQueue::pitchStatus(int semitones)
{
    return QStringLiteral("Shifting ") + (semitones >= 1 ? QStringLiteral("+") : QString())
           + QString::number(semitones) + QStringLiteral(" st");
}

void DownloadQueue::transcribe(const DownloadItemPtr &item)
{
    if (!item || item->finalFileURL().isEmpty())
        return;
    item->setState(ItemState::processing(m_services.speechModelPresent()
                                             ? QStringLiteral("Transcribing\u2026")
                                             : QStringLiteral("Downloading speech model\u2026")));
    runTranscription(item);
}

QCoro::Task<> DownloadQueue::runTranscription(DownloadItemPtr item)
{
    QPointer<DownloadQueue> self(this);
    QString transcript;
    std::exception_ptr error;
    try {
        transcript = co_await m_services.transcribe(item->finalFileURL().toLocalFile());
    } catch (...) {
        error = std::current_exception();
    }
    if (!self)
        co_return;
    try {
        if (error) {
            // The download itself is still good: the row stays done.
            item->setState(ItemState::done());
            setLastMessage(errorText(error));
            co_return;
        }
        item->setTranscriptURL(QUrl::fromLocalFile(transcript));
        const QFileInfo info(transcript);
        const QString text = info.dir().filePath(info.completeBaseName() + QStringLiteral(".txt"));
        const auto summary = m_services.writeSummary(text, item->title());
        item->setSummaryURL(summary ? QUrl::fromLocalFile(*summary) : QUrl());
        item->setState(ItemState::done());
        notify(QStringLiteral("Transcript + summary ready"), item->title());
    } catch (...) {
        item->setState(ItemState::done());
    }
}

void DownloadQueue::renderPractice(const DownloadItemPtr &item, double rate)
{
    if (!item || item->finalFileURL().isEmpty())
        return;
    item->setState(ItemState::processing(practiceStatus(rate)));
    runRender(item, rate, 0);
}

void DownloadQueue::renderPitch(const DownloadItemPtr &item, int semitones)
{
    if (!item || item->finalFileURL().isEmpty())
        return;
    item->setState(ItemState::processing(pitchStatus(semitones)));
    runRender(item, std::nullopt, semitones);
}

void DownloadQueue::detectTempoAndKey(const DownloadItemPtr &item)
{
    if (!item || item->finalFileURL().isEmpty())
        return;
    item->setState(ItemState::processing(QStringLiteral("Analyzing BPM & key")));
    runTempoAndKey(item);
}

QString DownloadQueue::tempoAndKeyMessage(std::optional<double> bpm, const std::optional<QString> &key)
{
    return (bpm ? QString::asprintf("%.0f BPM", *bpm) : QStringLiteral("no BPM")) + QStringLiteral(" · ") +
           key.value_or(QStringLiteral("no key"));
}

QCoro::Task<> DownloadQueue::runTempoAndKey(DownloadItemPtr item)
{
    QPointer<DownloadQueue> self(this);
    std::pair<std::optional<double>, std::optional<QString>> analysis;
    try {
        analysis = co_await m_services.analyze(item->finalFileURL());
    } catch (...) {
        // Analysis reports failure as no result.
    }
    if (!self)
        co_return;
    item->setDetectedBPM(analysis.first);
    item->setDetectedKey(analysis.second);
    item->setState(ItemState::done());
    setLastMessage(tempoAndKeyMessage(analysis.first, analysis.second));
}

QCoro::Task<> DownloadQueue::runRender(DownloadItemPtr item, std::optional<double> rate, int semitones)
{
    QPointer<DownloadQueue> self(this);
    std::optional<QUrl> out;
    try {
        if (rate)
            out = co_await m_services.renderSpeed(item->finalFileURL(), *rate);
        else
            out = co_await m_services.renderPitchShift(item->finalFileURL(), semitones);
    } catch (...) {
        out.reset();
    }
    if (!self)
        co_return;
    item->setState(ItemState::done());
    setLastMessage(out ? QStringLiteral("Saved ") + QFileInfo(out->toLocalFile()).fileName()
                       : QStringLiteral("Render failed"));
}

#include "queue/DownloadQueue.h"

#include "analysis/PracticeMode.h"
#include "analysis/Summarizer.h"
#include "analysis/Transcriber.h"
#include "core/AppSettings.h"
#include "discovery/SpotifyResolver.h"
#include "engine/SelfHealer.h"

#include <QFileInfo>

// The queue's real collaborators. Each adapter is a plain function returning the callee's task,
// never a lambda coroutine, so no argument lives only in a closure.
namespace {

QCoro::Task<std::pair<std::optional<double>, std::optional<QString>>> analyzeFile(QUrl file)
{
    const PracticeMode::Analysis analysis = co_await PracticeMode::analyze(std::move(file));
    co_return std::pair{analysis.bpm, analysis.key};
}

QCoro::Task<std::pair<QString, SpotifyTrack>> resolveTrack(QString trackURL, SpotifyResolver::Endpoint endpoint)
{
    const SpotifyResolver::Resolution resolution =
        co_await SpotifyResolver::resolve(std::move(trackURL), std::move(endpoint));
    co_return std::pair{resolution.searchQuery, resolution.track};
}

} // namespace

DownloadQueue::Services DownloadQueue::Services::real()
{
    return real(SpotifyResolver::Endpoint::real());
}

DownloadQueue::Services DownloadQueue::Services::real(const SpotifyResolver::Endpoint &spotify)
{
    Services s;
    s.probe = [](QString url, Tools::CancellationPtr cancellation) { return YtDlp::probe(std::move(url), std::move(cancellation)); };
    s.download = [](DownloadItemPtr job, const AppSettings &settings, QString outputDir,
                    YtDlp::RegisterFn registerChild, YtDlp::ProgressFn onProgress) {
        return YtDlp::download(std::move(job), settings, std::move(outputDir), std::move(registerChild),
                               std::move(onProgress));
    };
    s.isSpotifyTrackURL = [](const QString &url) { return SpotifyResolver::isSpotifyTrackURL(url); };
    s.resolveSpotify = [spotify](QString url) { return resolveTrack(std::move(url), spotify); };
    s.applyTags = [spotify](SpotifyTrack track, QString file) {
        return SpotifyResolver::applyTags(std::move(track), std::move(file), spotify);
    };
    s.updateEngine = [] { return SelfHealer::shared().updateEngine(); };
    s.analyze = [](QUrl file) { return analyzeFile(std::move(file)); };
    s.renderSpeed = [](QUrl file, double rate) { return PracticeMode::renderSpeed(std::move(file), rate); };
    s.renderPitchShift = [](QUrl file, int semitones) {
        return PracticeMode::renderPitchShift(std::move(file), semitones);
    };
    s.speechModelPresent = [] { return QFileInfo::exists(Transcriber::shared().modelURL()); };
    s.transcribe = [](QString file) { return Transcriber::shared().transcribe(std::move(file)); };
    s.writeSummary = [](const QString &transcriptText, const QString &title) {
        return Summarizer::writeSummary(transcriptText, title);
    };
    return s;
}

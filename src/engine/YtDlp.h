#pragma once

#include "core/DownloadItem.h"
#include "engine/ProbeResult.h"
#include "engine/Tools.h"

#include <QCoroTask>
#include <QString>
#include <QStringList>

#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>

class AppSettings;

// A failure of the downloader that the user reads; what() is the whole message, nothing added.
class YtDlpError : public std::runtime_error {
public:
    enum class Kind { probeFailed, downloadFailed };

    static YtDlpError probeFailed(const QString &message) { return YtDlpError(Kind::probeFailed, message); }
    static YtDlpError downloadFailed(const QString &message) { return YtDlpError(Kind::downloadFailed, message); }

    Kind kind() const { return m_kind; }
    QString message() const { return m_message; }

private:
    YtDlpError(Kind kind, const QString &message)
        : std::runtime_error(message.toStdString()), m_kind(kind), m_message(message) {}
    Kind m_kind;
    QString m_message;
};

// The downloader (yt-dlp): its command line, a streaming run, progress and error texts, link
// clean-up and probing. Stateless; every operation may run for many links at once.
namespace YtDlp {

// One parsed progress report.
struct Progress {
    std::optional<double> fraction; // 0…1; absent without a readable percentage and for stages
    QString speed;                  // as the downloader printed it; empty for stages
    QString eta;                    // as the downloader printed it; empty for stages
    std::optional<QString> phase;   // post-processing stage, e.g. "Merging video + audio"
    friend bool operator==(const Progress &, const Progress &) = default;
};

// A running child, as handed to the `registerChild` callback of runStreaming. Copies share one
// state; once the run has returned, terminate() does nothing (the pid may belong to someone else).
class ChildProcess {
public:
    ChildProcess() = default;
    qint64 pid() const { return m_state ? m_state->pid : 0; }
    bool isRunning() const { return m_state && m_state->running; }
    // SIGTERM to the child's process group, so whatever it started (ffmpeg) ends with it.
    void terminate() const;

private:
    friend struct ChildProcessAccess;
    struct State {
        qint64 pid = 0;
        bool running = false;
    };
    std::shared_ptr<State> m_state;
};

struct StreamResult {
    int status = 0;    // exit code, or the signal's number for a signalled child (never 0 then)
    QString errorText; // the whole standard error; bytes that are not UTF-8 read as U+FFFD
};

using RegisterFn = std::function<void(ChildProcess)>;
using LineFn = std::function<void(const QString &line)>;
using ProgressFn = std::function<void(const Progress &)>;

// The exact argument list for downloading `item` (pure apart from locating ffmpeg).
QStringList buildArguments(const DownloadItem &item, const AppSettings &settings, const QString &pathFile,
                           const QString &outputDir);

// Runs `tool` with `args` until it exits or is terminated through the registered handle; there
// is no time-out. Standard output is cut into lines as bytes arrive: a partial line waits for its
// newline, each line is trimmed of spaces and tabs, bytes that are not UTF-8 read as U+FFFD,
// and a trailing partial line at exit is discarded. `onLine` is called on the calling (main)
// thread, one line at a time, in output order, and must not throw. `registerChild` is called exactly once, right
// after the launch and before anything suspends. Throws Tools::LaunchError (and nothing else) when the tool cannot
// be started; then neither callback is called. The child runs in its own process group.
QCoro::Task<StreamResult> runStreaming(QString tool, QStringList args, RegisterFn registerChild, LineFn onLine);

// Downloads `item` into `outputDir` (created if missing) and returns the finished file's path.
// `settings` is read only before the first suspension. Throws YtDlpError::downloadFailed or
// Tools::LaunchError. The per-download path file is removed on every way out.
QCoro::Task<QString> download(DownloadItemPtr item, const AppSettings &settings, QString outputDir,
                              RegisterFn registerChild, ProgressFn onProgress);

// "<app support>/outpath-<ITEM-UUID>.txt": where the downloader writes the finished file's path.
QString pathFileFor(const DownloadItem &item);

// A progress report from one trimmed output line, or none for anything else.
std::optional<Progress> parseProgressLine(const QString &line);

// The downloader's error output → one short line a user can read (at most 220 characters + "…").
QString friendlyError(const QString &text);

// Whether an engine update might cure a failure with this (friendly) message.
bool shouldSelfHeal(const QString &errorMessage);

// The link without tracking parameters (and without "?" if none is left); other query items
// are kept verbatim, in order. Text that is not a link comes back trimmed.
QString normalizeURL(const QString &text);

bool isLikelyPlaylistOrChannel(const QString &link);

// What a link is: a single video (title, length, thumbnail, categories) or a playlist/channel
// (up to 100 entries). Throws YtDlpError::probeFailed or Tools::LaunchError.
QCoro::Task<ProbeResult> probe(QString url, Tools::CancellationPtr cancellation = {});

// The single probes and their parsers; probe() picks among them.
QCoro::Task<ProbeResult> probeLight(QString url, Tools::CancellationPtr cancellation = {});
QCoro::Task<ProbeResult> probeJSON(QString url, Tools::CancellationPtr cancellation = {});
QCoro::Task<ProbeResult> probePlaylist(QString url, Tools::CancellationPtr cancellation = {});
ProbeResult parseProbeLight(const Tools::RunResult &result, const QString &url);
ProbeResult parseProbeJSON(const Tools::RunResult &result, const QString &url);

// The print template of probeLight: marker, title, duration, thumbnail, first category.
inline const QString metadataTemplate =
    QStringLiteral("VORLIXMETA\t%(title)s\t%(duration)s\t%(thumbnail)s\t%(categories.0,NA)s");
inline const QString progressTemplate =
    QStringLiteral("download:VORLIX|%(progress._percent_str)s|%(progress._speed_str)s|%(progress._eta_str)s");
inline const QString fileNameTemplate = QStringLiteral("%(title).80B [%(id).12B].%(ext)s");
inline const QString outputNotLocatedMessage = QStringLiteral("Finished, but the output file could not be located.");
inline const QString loginNeededMessage = QStringLiteral(
    "This content needs a login. Turn on Settings \u25B8 Capture \u25B8 \u201CUse Chrome login for private "
    "content\u201D and try again.");

// A decimal number filling the whole text ("45.3", "100", "-2e3"); no "N/A", "inf" or "".
std::optional<double> parseDecimal(const QString &text);

} // namespace YtDlp

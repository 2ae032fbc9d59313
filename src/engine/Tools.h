#pragma once

#include <QCoroTask>
#include <QHash>
#include <QSet>
#include <QString>
#include <QStringList>

#include <memory>
#include <stdexcept>

// Where the external programs live, how they are installed into the private tool folder,
// and how one is run to completion.
namespace Tools {

inline const QString ytDlpName = QStringLiteral("yt-dlp");
inline const QString ffmpegName = QStringLiteral("ffmpeg");
inline const QString whisperName = QStringLiteral("whisper-cli");

// The outcome of one run. Bytes that are not UTF-8 read as U+FFFD; callers never take a path
// from this text.
struct RunResult {
    int status = 0; // exit code, or the signal's number for a signalled child
    QString stdoutText;
    QString stderrText;
};

// The only error run() raises: the program could not be started. what() is the platform's text.
class LaunchError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
    QString message() const { return QString::fromUtf8(what()); }
};

// Everything the locating rules look at; real() is what the application uses.
struct Layout {
    QString toolDir;                          // <app support>/bin
    QString packagedDir;                      // <exe dir>/../share/vorlix/bin
    QHash<QString, QStringList> candidates;   // system-wide copies, in order
    static Layout real();
};

QString toolDir();
QString packagedDir();

// The downloader to run: the installed copy first. Always answers a path; when nothing exists
// anywhere it is the tool folder's path, and the run fails at launch.
QString ytDlpURL();
// ffmpeg / whisper-cli: system-wide copies first. Empty when there is none.
QString ffmpegURL();
QString whisperURL();

// Copies the packaged tools into the tool folder: yt-dlp only when absent (it updates itself),
// ffmpeg and whisper-cli also when the packaged copy is newer. Never throws.
void installBundledTools();

// Same rules against an explicit layout (the real getters use Layout::real()).
QString ytDlpURL(const Layout &layout);
QString systemFirstURL(const QString &name, const Layout &layout);
void installBundledTools(const Layout &layout);

// Lets an owner end every child it started through run() at once (a sheet that closes while
// its analysis runs). Once cancelled, further runs with it are refused with LaunchError.
class Cancellation {
public:
    void cancel();
    bool isCancelled() const { return m_cancelled; }
    void add(qint64 pid) { m_running.insert(pid); }
    void remove(qint64 pid) { m_running.remove(pid); }

private:
    bool m_cancelled = false;
    QSet<qint64> m_running;
};
using CancellationPtr = std::shared_ptr<Cancellation>;

// Runs a program to completion with both pipes drained. At the time-out, or when `cancellation`
// is cancelled, the child's process group gets SIGTERM once; the run still ends with an
// ordinary result (status 15). Throws LaunchError when the program cannot be started.
QCoro::Task<RunResult> run(QString executable, QStringList arguments, double timeoutSeconds,
                           CancellationPtr cancellation = {});

// Throws LaunchError (with the platform's text) unless `executable` can be run.
void ensureLaunchable(const QString &executable);

// Ends a running child together with the processes it started (its process group).
void terminateProcessGroup(qint64 pid);

} // namespace Tools

#include "engine/Tools.h"

#include "core/AppSettings.h"
#include "core/Utf8.h"
#include "engine/ChildRegistry.h"
#include "engine/ProcessStart.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTimer>

#include <QCoroProcess>
#include <QCoroSignal>

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstring>
#include <syslog.h>
#include <unistd.h>

namespace Tools {
namespace {

bool isExecutableFile(const QString &path) {
    if (path.isEmpty())
        return false;
    const QFileInfo info(path);
    return info.isFile() && ::access(QFile::encodeName(path).constData(), X_OK) == 0;
}

QString installed(const QString &name, const Layout &layout) {
    const QString path = layout.toolDir + u'/' + name;
    return isExecutableFile(path) ? path : QString();
}

QString firstExisting(const QStringList &paths) {
    for (const QString &p : paths)
        if (isExecutableFile(p))
            return p;
    return {};
}

QString packaged(const QString &name, const Layout &layout) {
    const QString path = layout.packagedDir + u'/' + name;
    return QFileInfo::exists(path) ? path : QString();
}

void logInstallFailure(const QString &name, const QString &error) {
    const QByteArray line = (QStringLiteral("Vorlix: failed to install ") + name + QStringLiteral(": ") + error).toUtf8();
    ::syslog(LOG_WARNING, "%s", line.constData());
}

void install(const QString &name, bool overwriteIfNewer, const Layout &layout) {
    const QString source = packaged(name, layout);
    if (source.isEmpty())
        return;
    const QString destination = layout.toolDir + u'/' + name;

    const QFileInfo dest(destination);
    if (dest.exists() || dest.isSymLink()) {
        if (!overwriteIfNewer)
            return;
        const QDateTime sourceTime = QFileInfo(source).lastModified();
        const QDateTime destTime = dest.lastModified();
        if (!sourceTime.isValid() || !destTime.isValid())
            return;
        if (!(sourceTime > destTime))
            return;
        QFile::remove(destination);
    }

    QFile in(source);
    if (!in.copy(destination)) {
        logInstallFailure(name, in.errorString());
        return;
    }
    // The copy carries the packaged file's time, so the next comparison is between builds,
    // not against the moment of this copy.
    QFile out(destination);
    const QDateTime builtAt = QFileInfo(source).lastModified();
    if (!out.open(QIODevice::ReadWrite) || !out.setFileTime(builtAt, QFileDevice::FileModificationTime))
        logInstallFailure(name, out.errorString());
    out.close();
    const auto mode755 = QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner |
                         QFileDevice::ReadGroup | QFileDevice::ExeGroup | QFileDevice::ReadOther |
                         QFileDevice::ExeOther;
    if (!out.setPermissions(mode755)) {
        logInstallFailure(name, out.errorString());
        return;
    }
    // No download-quarantine mark exists on Linux, so there is nothing to strip.
}

} // namespace

Layout Layout::real() {
    Layout layout;
    layout.toolDir = Tools::toolDir();
    layout.packagedDir = Tools::packagedDir();
    layout.candidates = {
        {ytDlpName,
         {QStringLiteral("/opt/homebrew/bin/yt-dlp"), QStringLiteral("/usr/local/bin/yt-dlp"),
          QStringLiteral("/usr/bin/yt-dlp")}},
        {ffmpegName,
         {QStringLiteral("/opt/homebrew/bin/ffmpeg"), QStringLiteral("/usr/local/bin/ffmpeg"),
          QStringLiteral("/usr/bin/ffmpeg")}},
        {whisperName,
         {QStringLiteral("/opt/homebrew/bin/whisper-cli"), QStringLiteral("/usr/local/bin/whisper-cli"),
          QStringLiteral("/opt/homebrew/bin/whisper-cpp"), QStringLiteral("/usr/local/bin/whisper-cpp"),
          QStringLiteral("/usr/bin/whisper-cli"), QStringLiteral("/usr/bin/whisper-cpp")}},
    };
    return layout;
}

QString toolDir() { return AppSettings::appSupportDir() + QStringLiteral("/bin"); }

QString packagedDir() {
    return QDir::cleanPath(QCoreApplication::applicationDirPath() + QStringLiteral("/../share/vorlix/bin"));
}

QString ytDlpURL(const Layout &layout) {
    if (QString p = installed(ytDlpName, layout); !p.isEmpty())
        return p;
    installBundledTools(layout);
    if (QString p = installed(ytDlpName, layout); !p.isEmpty())
        return p;
    if (QString p = firstExisting(layout.candidates.value(ytDlpName)); !p.isEmpty())
        return p;
    return layout.toolDir + u'/' + ytDlpName;
}

QString systemFirstURL(const QString &name, const Layout &layout) {
    if (QString p = firstExisting(layout.candidates.value(name)); !p.isEmpty())
        return p;
    if (QString p = installed(name, layout); !p.isEmpty())
        return p;
    return packaged(name, layout);
}

void installBundledTools(const Layout &layout) {
    QDir().mkpath(layout.toolDir);
    install(ytDlpName, false, layout);
    install(ffmpegName, true, layout);
    install(whisperName, true, layout);
}

QString ytDlpURL() { return ytDlpURL(Layout::real()); }
QString ffmpegURL() { return systemFirstURL(ffmpegName, Layout::real()); }
QString whisperURL() { return systemFirstURL(whisperName, Layout::real()); }
void installBundledTools() { installBundledTools(Layout::real()); }

void ensureLaunchable(const QString &executable) {
    // A missing or non-executable program is reported at once, in the platform's own words.
    if (::access(QFile::encodeName(executable).constData(), X_OK) != 0)
        throw LaunchError(std::strerror(errno));
    if (QFileInfo(executable).isDir())
        throw LaunchError(std::strerror(EACCES));
}

void terminateProcessGroup(qint64 pid) {
    if (pid <= 0)
        return;
    // Children run in their own group (see run()), so this reaches what they started too.
    if (::kill(-static_cast<pid_t>(pid), SIGTERM) != 0)
        ::kill(static_cast<pid_t>(pid), SIGTERM);
}

void Cancellation::cancel() {
    m_cancelled = true;
    for (qint64 pid : std::as_const(m_running))
        terminateProcessGroup(pid);
}

QCoro::Task<RunResult> run(QString executable, QStringList arguments, double timeoutSeconds,
                           CancellationPtr cancellation) {
    if (cancellation && cancellation->isCancelled())
        throw LaunchError("cancelled");
    ensureLaunchable(executable);

    QProcess process;
    process.setProgram(executable);
    process.setArguments(arguments);
    process.setInputChannelMode(QProcess::ForwardedInputChannel);
    process.setChildProcessModifier([] { ::setpgid(0, 0); });
    process.start(QIODevice::ReadOnly);
    const ChildRegistry::Entry tracked(process.processId()); // so quitting ends it too

    if (!co_await waitUntilStarted(process))
        throw LaunchError(process.errorString().toStdString());

    const qint64 pid = process.processId();
    QTimer deadline;
    deadline.setSingleShot(true);
    const double ms = timeoutSeconds * 1000.0;
    deadline.setInterval(ms >= double(INT_MAX) ? INT_MAX : ms <= 0 ? 0 : int(ms));
    QObject::connect(&deadline, &QTimer::timeout, &process, [&process, pid] {
        if (process.state() == QProcess::Running)
            terminateProcessGroup(pid);
    });
    deadline.start();

    if (cancellation) {
        cancellation->add(pid);
        if (cancellation->isCancelled()) // cancelled while the child was starting
            terminateProcessGroup(pid);
    }
    if (process.state() != QProcess::NotRunning)
        co_await qCoro(&process, &QProcess::finished);
    deadline.stop();
    if (cancellation)
        cancellation->remove(pid);

    RunResult result;
    result.status = process.exitCode(); // for a signalled child this is the signal number
    result.stdoutText = decodeUtf8Lossy(process.readAllStandardOutput());
    result.stderrText = decodeUtf8Lossy(process.readAllStandardError());
    co_return result;
}

} // namespace Tools

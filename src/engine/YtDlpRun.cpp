#include "engine/YtDlp.h"
#include "engine/ChildRegistry.h"
#include "engine/ProcessStart.h"

#include "core/AppSettings.h"
#include "core/TempFile.h"
#include "core/TextTrim.h"
#include "core/Utf8.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>

#include <QCoroSignal>

#include <cerrno>
#include <memory>
#include <cstring>
#include <unistd.h>

namespace YtDlp {

struct ChildProcessAccess {
    static ChildProcess make(qint64 pid, bool running) {
        ChildProcess child;
        child.m_state = std::make_shared<ChildProcess::State>();
        child.m_state->pid = pid;
        child.m_state->running = running;
        return child;
    }
    static void markExited(const ChildProcess &child) { child.m_state->running = false; }
};

void ChildProcess::terminate() const {
    if (m_state && m_state->running)
        Tools::terminateProcessGroup(m_state->pid);
}

namespace {
// An interrupted or failed run leaves the downloader's partial files (kept for resuming) in the
// user's folder; they are no download of theirs, so they go. Finished files stay.
void removePartials(const QStringList &destinations) {
    for (const QString &destination : destinations) {
        QFile::remove(destination + QStringLiteral(".part"));
        QFile::remove(destination + QStringLiteral(".ytdl"));
        const QFileInfo info(destination);
        QDir dir = info.dir();
        // Names hold "[id]", which a wildcard filter would read as a character class.
        const QString fragments = info.fileName() + QStringLiteral(".part-Frag");
        for (const QString &name : dir.entryList(QDir::Files | QDir::Hidden))
            if (name.startsWith(fragments))
                dir.remove(name);
    }
}



// The last non-empty line of the path file, if it names an existing file.
std::optional<QString> finishedFile(const QString &pathFile) {
    QFile file(pathFile);
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    const auto text = decodeUtf8Strict(file.readAll());
    if (!text)
        return std::nullopt;
    const QStringList lines = text->split(u'\n', Qt::SkipEmptyParts);
    if (lines.isEmpty())
        return std::nullopt;
    const QString &path = lines.last();
    if (!QFileInfo::exists(path))
        return std::nullopt;
    return path;
}

} // namespace

QCoro::Task<StreamResult> runStreaming(QString tool, QStringList args, RegisterFn registerChild, LineFn onLine) {
    Tools::ensureLaunchable(tool);

    QProcess process;
    process.setProgram(tool);
    process.setArguments(args);
    process.setProcessChannelMode(QProcess::SeparateChannels);
    // Its own process group, so terminating it also ends the ffmpeg it started.
    process.setChildProcessModifier([] { ::setpgid(0, 0); });

    QByteArray buffer;
    QObject::connect(&process, &QProcess::readyReadStandardOutput, &process, [&] {
        buffer += process.readAllStandardOutput();
        qsizetype from = 0;
        for (qsizetype newline = buffer.indexOf('\n', from); newline >= 0; newline = buffer.indexOf('\n', from)) {
            const QByteArrayView bytes(buffer.constData() + from, newline - from);
            from = newline + 1;
            if (onLine)
                onLine(trimSpacesAndTabs(decodeUtf8Lossy(bytes)).toString());
        }
        buffer.remove(0, from);
    });

    process.start(QIODevice::ReadOnly);
    // Known to its canceller before anything can suspend, so a cancel never misses it.
    const ChildRegistry::Entry tracked(process.processId());
    const ChildProcess child = ChildProcessAccess::make(process.processId(), process.processId() > 0);
    if (registerChild)
        registerChild(child);
    if (!co_await Tools::waitUntilStarted(process)) {
        ChildProcessAccess::markExited(child);
        throw Tools::LaunchError(process.errorString().toStdString());
    }

    if (process.state() != QProcess::NotRunning)
        co_await qCoro(&process, &QProcess::finished);
    ChildProcessAccess::markExited(child);
    // Lines still without their newline at exit are not delivered.
    QObject::disconnect(&process, &QProcess::readyReadStandardOutput, nullptr, nullptr);

    StreamResult result;
    result.status = process.exitCode();
    if (process.exitStatus() == QProcess::CrashExit && result.status == 0)
        result.status = -1; // a signalled child must never look successful
    result.errorText = decodeUtf8Lossy(process.readAllStandardError());
    co_return result;
}

QString pathFileFor(const DownloadItem &item) {
    return AppSettings::appSupportDir() + QStringLiteral("/outpath-") + item.idString() + QStringLiteral(".txt");
}

QCoro::Task<QString> download(DownloadItemPtr item, const AppSettings &settings, QString outputDir,
                              RegisterFn registerChild, ProgressFn onProgress) {
    const QString pathFile = pathFileFor(*item);
    QDir().mkpath(outputDir);
    const QStringList args = buildArguments(*item, settings, pathFile, outputDir);

    // The downloader appends to this file, so a leftover of an interrupted earlier attempt
    // must not be mistaken for this run's result.
    RemoveOnExit pathFileGuard(pathFile);
    QFile::remove(pathFile);

    auto destinations = std::make_shared<QStringList>();
    LineFn onLine = [onProgress, destinations](const QString &line) {
        static const QString destination = QStringLiteral("[download] Destination: ");
        if (line.startsWith(destination))
            *destinations << line.mid(destination.size());
        else if (const auto progress = parseProgressLine(line); progress && onProgress)
            onProgress(*progress);
    };
    const StreamResult run = co_await runStreaming(Tools::ytDlpURL(), args, std::move(registerChild), std::move(onLine));

    if (run.status != 0) {
        removePartials(*destinations);
        throw YtDlpError::downloadFailed(friendlyError(run.errorText));
    }
    const auto path = finishedFile(pathFile);
    if (!path)
        throw YtDlpError::downloadFailed(outputNotLocatedMessage);
    co_return *path;
}

} // namespace YtDlp


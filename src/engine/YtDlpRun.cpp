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
#include <QHash>
#include <QProcess>

#include <QCoroSignal>

#include <algorithm>
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
// The files one run announces, so that a stopped or failed run can take what it made with it.
// Only names the downloader itself created count: "already downloaded" files stay the user's.
bool sameFile(const QString &a, const QString &b) {
    if (QDir::cleanPath(a) == QDir::cleanPath(b))
        return true;
    const QString canonical = QFileInfo(a).canonicalFilePath();
    return !canonical.isEmpty() && canonical == QFileInfo(b).canonicalFilePath();
}

struct RunFiles {
    QStringList fresh;     // downloads and thumbnails this run wrote
    QStringList sources;   // the media the run converts: fresh downloads and existing ones
    QStringList converted; // audio extractions and merges

    void note(const QString &line) {
        static const QString destination = QStringLiteral("[download] Destination: ");
        static const QString extracted = QStringLiteral("[ExtractAudio] Destination: ");
        static const QString merged = QStringLiteral("[Merger] Merging formats into \"");
        static const QString downloadTag = QStringLiteral("[download] ");
        static const QString existing = QStringLiteral(" has already been downloaded");
        if (line.startsWith(destination)) {
            fresh << line.mid(destination.size());
            sources << fresh.last();
        } else if (line.startsWith(downloadTag) && line.endsWith(existing)) {
            sources << line.mid(downloadTag.size(), line.size() - downloadTag.size() - existing.size());
        } else if (line.startsWith(extracted)) {
            converted << line.mid(extracted.size());
        } else if (line.startsWith(merged) && line.endsWith(u'"')) {
            converted << line.mid(merged.size(), line.size() - merged.size() - 1);
        } else if (line.startsWith(QLatin1String("[info] Writing ")) && line.contains(QLatin1String("thumbnail"))) {
            // "[info] Writing video thumbnail 0 to: <path>"
            if (const auto to = line.indexOf(QLatin1String(" to: ")); to > 0)
                fresh << line.mid(to + 5);
        }
    }

    // After a stop or failure: everything the run made, finished or not. A conversion whose
    // target is its own source (an existing file converted in place) keeps that file.
    void removeAll() const {
        QStringList made = fresh;
        for (const QString &target : converted)
            if (std::none_of(sources.begin(), sources.end(), [&](const QString &s) { return sameFile(s, target); }))
                made << target;
        for (const QString &path : std::as_const(made))
            QFile::remove(path);
        removePartials(made + converted);
    }

    // After success: the downloads the extraction was made from (kept by "-k", so that an existing
    // video of the same name is never deleted) go; the finished file stays.
    void removeIntermediates(const QString &finished) const {
        for (const QString &path : fresh)
            if (!sameFile(path, finished))
                QFile::remove(path);
    }

    // The downloader's resume and work files beside each name.
    static void removePartials(const QStringList &paths) {
        QHash<QString, QStringList> fragmentsByFolder;
        for (const QString &path : paths) {
            QFile::remove(path + QStringLiteral(".part"));
            QFile::remove(path + QStringLiteral(".ytdl"));
            const QFileInfo info(path);
            QFile::remove(info.dir().filePath(info.completeBaseName() + QStringLiteral(".temp.") + info.suffix()));
            fragmentsByFolder[info.path()] << info.fileName() + QStringLiteral(".part-Frag");
        }
        // One listing per folder: a download folder can hold thousands of files. Names hold
        // "[id]", which a wildcard filter would read as a character class.
        for (auto it = fragmentsByFolder.cbegin(); it != fragmentsByFolder.cend(); ++it) {
            QDir dir(it.key());
            for (const QString &name : dir.entryList(QDir::Files | QDir::Hidden))
                if (std::any_of(it->begin(), it->end(), [&](const QString &prefix) { return name.startsWith(prefix); }))
                    dir.remove(name);
        }
    }
};

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

    auto files = std::make_shared<RunFiles>();
    LineFn onLine = [onProgress, files](const QString &line) {
        files->note(line);
        if (const auto progress = parseProgressLine(line); progress && onProgress)
            onProgress(*progress);
    };
    const StreamResult run = co_await runStreaming(Tools::ytDlpURL(), args, std::move(registerChild), std::move(onLine));

    if (run.status != 0) {
        files->removeAll();
        throw YtDlpError::downloadFailed(friendlyError(run.errorText));
    }
    const auto path = finishedFile(pathFile);
    if (!path)
        throw YtDlpError::downloadFailed(outputNotLocatedMessage);
    files->removeIntermediates(*path);
    co_return *path;
}

} // namespace YtDlp


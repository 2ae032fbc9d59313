#include "engine/EngineBytecode.h"

#include "engine/Tools.h"

#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QUuid>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <syslog.h>

namespace EngineBytecode {
namespace {

// ytdlp_bytecode.py's status for "not a zip with a #! prefix".
constexpr int notAZipStatus = 2;

void logFailure(const QString &error) {
    const QByteArray line = (QStringLiteral("Vorlix: failed to add bytecode to yt-dlp: ") + error).toUtf8();
    ::syslog(LOG_WARNING, "%s", line.constData());
}

Result failure(const QString &temp, const QString &error) {
    QFile::remove(temp);
    logFailure(error);
    return {Outcome::failed, error};
}

QString lastLine(const QString &text) {
    const QStringList lines = text.split(u'\n', Qt::SkipEmptyParts);
    return lines.isEmpty() ? QString() : lines.constLast().trimmed();
}

} // namespace

QString interpreterFor(const QString &zipPath) {
    QFile file(zipPath);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    const QByteArray first = file.readLine(512);
    if (!first.startsWith("#!"))
        return {};
    const QStringList words =
        QString::fromUtf8(first.mid(2)).split(QRegularExpression(QStringLiteral("\\s+")), Qt::SkipEmptyParts);
    if (words.isEmpty())
        return {};
    QString program = words.first();
    if (QFileInfo(program).fileName() == QLatin1String("env")) {
        program.clear();
        for (qsizetype i = 1; i < words.size() && program.isEmpty(); ++i)
            if (!words[i].startsWith(u'-'))
                program = words[i];
        if (!program.isEmpty() && !program.contains(u'/'))
            program = QStandardPaths::findExecutable(program);
    }
    if (!QFileInfo(program).fileName().startsWith(QLatin1String("python")))
        return {};
    return program;
}

QCoro::Task<Result> add(QString zipPath) {
    // A link is followed, so the link stays and its target gets the bytecode.
    const QFileInfo info(zipPath);
    const QString target = info.canonicalFilePath();
    const QString python = target.isEmpty() ? QString() : interpreterFor(target);
    if (python.isEmpty())
        co_return Result{Outcome::notApplicable, {}};

    QFile scriptFile(QStringLiteral(":/engine/ytdlp_bytecode.py"));
    if (!scriptFile.open(QIODevice::ReadOnly))
        co_return failure(QString(), QStringLiteral("the packing script is missing"));
    const QString script = QString::fromUtf8(scriptFile.readAll());
    const QString temp = QFileInfo(target).absolutePath() + QStringLiteral("/.vorlix-") +
                         QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();

    const QStringList args{QStringLiteral("-I"), QStringLiteral("-c"), script, target, temp};
    Tools::RunResult result;
    try {
        result = co_await Tools::run(python, args, timeoutSeconds);
    } catch (const Tools::LaunchError &e) {
        co_return failure(temp, e.message());
    }
    if (result.status == notAZipStatus) {
        QFile::remove(temp);
        co_return Result{Outcome::notApplicable, {}};
    }
    if (result.status != 0 || !QFileInfo::exists(temp)) {
        const QString why = lastLine(result.stderrText);
        co_return failure(temp, why.isEmpty() ? QStringLiteral("packing ended with status %1").arg(result.status) : why);
    }
    if (!QFile::setPermissions(temp, QFile::permissions(target)))
        co_return failure(temp, QStringLiteral("cannot set the permissions of ") + temp);
    if (std::rename(QFile::encodeName(temp).constData(), QFile::encodeName(target).constData()) != 0)
        co_return failure(temp, QString::fromLocal8Bit(std::strerror(errno)));
    co_return Result{Outcome::added, {}};
}

} // namespace EngineBytecode

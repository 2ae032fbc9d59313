#pragma once

#include <QCoroTask>
#include <QString>

// The downloader is a Python zip. Without compiled bytecode inside, every start of it compiles
// all of yt-dlp first (about a second). Its self-update writes a release zip that has none, so
// after each update the bytecode is added again.
namespace EngineBytecode {

enum class Outcome {
    added,         // the zip was replaced by one with bytecode
    notApplicable, // not a Python zip (a stub, a single-file binary): left alone
    failed,        // left exactly as it was; one system-log line says why
};

struct Result {
    Outcome outcome = Outcome::failed;
    QString error; // for `failed`
};

constexpr double timeoutSeconds = 300;

// The interpreter the zip's "#!" line runs it with ("/usr/bin/env python3" looks python3 up on
// PATH, as env does). Empty when the file does not start with a Python "#!" line.
QString interpreterFor(const QString &zipPath);

// Rewrites `zipPath` with bytecode for the interpreter that runs it. The new zip is written
// beside it and renamed over it, so readers see either the old file or the new one.
QCoro::Task<Result> add(QString zipPath);

} // namespace EngineBytecode

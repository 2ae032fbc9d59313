#pragma once

#include <QDateTime>
#include <QString>

// Upper-case, hyphenated, no braces: the form every file name and id of the application uses.
QString upperUuid();

// <temp folder>/<prefix><UPPER-UUID><suffix>, e.g. "vorlix-analyze-<UUID>.wav".
QString temporaryFilePath(const QString &prefix, const QString &suffix);

// Deletes a file on every way out of a scope; a failure to delete is ignored.
class RemoveOnExit {
public:
    explicit RemoveOnExit(QString path) : m_path(std::move(path)) {}
    ~RemoveOnExit();
    RemoveOnExit(const RemoveOnExit &) = delete;
    RemoveOnExit &operator=(const RemoveOnExit &) = delete;
    const QString &path() const { return m_path; }

private:
    QString m_path;
};

// When this process started (wall clock). A file last written before it cannot belong to
// anything this run is doing.
QDateTime processStartTime();

// Removes the files in `dir` whose names start with `prefix` and that were last written before
// this process started: leftovers of an earlier run that was killed mid-write.
void removeStaleLeftovers(const QString &dir, const QString &prefix);

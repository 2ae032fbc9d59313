#pragma once

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

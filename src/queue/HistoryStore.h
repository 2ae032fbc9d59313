#pragma once

#include "queue/HistoryEntry.h"

#include <QDateTime>
#include <QList>
#include <QObject>
#include <QString>
#include <QThreadPool>

#include <functional>
#include <memory>
#include <optional>

class DownloadItem;

// Everything the user has downloaded, newest first, kept in one JSON file. Main thread only.
//
// Every change is written out at once, but the encoding and the write run on a private
// one-thread pool so that a history of many thousands of entries never stalls the interface.
// Writes are strictly ordered and each one replaces the file atomically; when changes come
// faster than the disk, only the newest state is written. The destructor waits for the last write.
class HistoryStore : public QObject {
    Q_OBJECT
public:
    using Clock = std::function<QDateTime()>;

    // Loads `filePath`; a missing file gives an empty history. A file that exists but cannot be
    // read is moved aside as "<name>.unreadable-<date>" (or, failing that, never written over),
    // and loadNotice() says so. `clock` answers "now" (UTC); the system clock when not given.
    explicit HistoryStore(const QString &filePath, Clock clock = {}, QObject *parent = nullptr);
    ~HistoryStore() override;

    // The history of this user: "history.json" in the application-support folder.
    static HistoryStore &shared();

    const QList<HistoryEntry> &entries() const { return m_entries; }
    const QString &filePath() const { return m_filePath; }
    // One line for the status bar when the file on disk could not be read at start.
    const std::optional<QString> &loadNotice() const { return m_loadNotice; }

    // Adds an entry for a finished download, or refreshes the one with the same link in place.
    void record(const DownloadItem &item);
    // Puts a ready-made entry at the top (saved pictures, which are not download items).
    void add(const HistoryEntry &entry);
    // Flips `archived` of the entry equal to `entry` in every field; nothing when it changed meanwhile.
    void toggleArchive(const HistoryEntry &entry);
    // Removes every entry with the id of `entry`. Files on disk are never touched.
    void deleteEntry(const HistoryEntry &entry);
    // Keeps only the archived entries, in their order. Files on disk are never touched.
    void clearUnarchived();

    // Blocks until every requested write has finished (tests, benchmarks, shutdown).
    void waitForPendingSave();

Q_SIGNALS:
    void entriesChanged();

private:
    struct Writer;

    void load();
    void changed();
    void save();

    QString m_filePath;
    Clock m_clock;
    QList<HistoryEntry> m_entries;
    std::optional<QString> m_loadNotice;
    std::shared_ptr<Writer> m_writer;
    QThreadPool m_savePool; // one thread, so writes land in order
};

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
// The file can be read on the worker thread so that a long history never delays start-up. Until
// it is there the list is empty and every change waits: a download that finishes meanwhile is
// recorded once the history is in, so it still refreshes an existing entry for its link.
//
// Every change is written out at once, but the encoding and the write run on a private
// one-thread pool so that a history of many thousands of entries never stalls the interface.
// Writes are strictly ordered and each one replaces the file atomically; when changes come
// faster than the disk, only the newest state is written. The destructor waits for the last write.
class HistoryStore : public QObject {
    Q_OBJECT
public:
    using Clock = std::function<QDateTime()>;
    enum class Loading { now, inBackground };

    // Loads `filePath`; a missing file gives an empty history. A file that exists but cannot be
    // read is moved aside as "<name>.unreadable-<date>" (or, failing that, never written over),
    // and loadNotice() says so. `clock` answers "now" (UTC); the system clock when not given.
    explicit HistoryStore(const QString &filePath, Clock clock = {}, QObject *parent = nullptr);
    // With Loading::inBackground nothing is read until startLoading() or the first change.
    HistoryStore(const QString &filePath, Loading loading, Clock clock = {}, QObject *parent = nullptr);
    ~HistoryStore() override;

    // The history of this user: "history.json" in the application-support folder, read in the
    // background once the application asks for it.
    static HistoryStore &shared();

    // Reads the file on the worker thread; loaded() follows on this thread. Nothing when it is
    // read or being read.
    void startLoading();
    bool isLoaded() const { return m_loaded; }
    // Blocks until the file is read and loaded() has been emitted (tests, benchmarks).
    void waitUntilLoaded();

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
    // The file has been read: entries() and loadNotice() hold what it had.
    void loaded();

private:
    struct Writer;
    struct Loaded;

    Loaded readFile(const QDate &today) const;
    void finishLoading();
    // Runs `change` now when loaded, else once the history is in.
    void whenLoaded(std::function<void()> change);
    void changed();
    void save();

    QString m_filePath;
    Clock m_clock;
    QList<HistoryEntry> m_entries;
    bool m_loaded = false;
    bool m_loading = false;
    std::shared_ptr<Loaded> m_read; // the worker's result, guarded by the writer's mutex
    QList<std::function<void()>> m_waitingChanges;
    std::optional<QString> m_loadNotice;
    std::shared_ptr<Writer> m_writer;
    QThreadPool m_savePool; // one thread, so writes land in order
};

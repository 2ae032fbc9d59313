#pragma once

#include "queue/HistoryEntry.h"

#include <QAbstractListModel>
#include <QByteArray>
#include <QDateTime>
#include <QFuture>
#include <QList>
#include <QString>
#include <QUuid>

#include <functional>
#include <memory>
#include <optional>

class HistoryStore;

// The searchable text of one history snapshot (every entry's title, link, category and
// source), folded once so that a keystroke searches 100,000 entries in a few milliseconds.
// Immutable after construction, so it can be built off the user-interface thread.
class HistorySearchIndex {
public:
    explicit HistorySearchIndex(QList<HistoryEntry> entries);

    // The snapshot the index was built from (shared with the store's list, not copied).
    const QList<HistoryEntry> &entries() const { return m_entries; }
    // Whether the index stands for exactly this list (the same shared data, unchanged).
    bool covers(const QList<HistoryEntry> &entries) const;

    // Positions in entries() of the entries that `accepts` `search`, in order.
    QList<qint32> matching(const QString &search) const;

    // The rule itself: title, link, category or source contains `search`, ignoring case
    // (Unicode simple case folding). An empty search accepts everything.
    static bool accepts(const HistoryEntry &entry, const QString &search);

private:
    QList<HistoryEntry> m_entries;
    // Each entry's four fields with ASCII letters lowered, every other character that cannot
    // fold to ASCII written as 0xFF, each field followed by a NUL byte.
    QByteArray m_text;
    QList<qsizetype> m_ends;  // where each entry's text ends in m_text
    QList<qint32> m_nonAscii; // entries holding characters the byte text cannot stand for
};

// The history screen's list: the store's entries (newest first) that pass the search and the
// "Archived" filter. Follows the store's entriesChanged signal, announcing inserted, removed
// and changed rows where it can tell them apart (so the view keeps its place) and resetting
// otherwise. It holds the store's list as last seen, which is shared with the store rather than
// copied, so every row it announced stays readable until it announces the next change.
class HistoryModel : public QAbstractListModel {
    Q_OBJECT
public:
    enum Role {
        EntryRole = Qt::UserRole + 1, // the HistoryEntry
        CopiedRole,                   // whether the "Link copied" chip shows on this row
        RelativeDateRole,             // "2 hours ago"
    };

    explicit HistoryModel(HistoryStore &store, QObject *parent = nullptr);
    ~HistoryModel() override;

    int rowCount(const QModelIndex &parent = QModelIndex()) const override;
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;

    HistoryEntry entryAt(int row) const;
    // The row showing the entry with `id`, or -1.
    int rowOf(const QUuid &id) const;

    const QString &search() const { return m_search; }
    void setSearch(const QString &search);
    bool archivedOnly() const { return m_archivedOnly; }
    void setArchivedOnly(bool archivedOnly);
    const std::optional<QUuid> &copiedID() const { return m_copiedID; }
    void setCopiedID(const std::optional<QUuid> &id);

    // Every entry of the store, shown or not.
    qsizetype totalCount() const { return m_entries.size(); }
    // Whether "Clear…" has anything to clear.
    bool hasUnarchived() const { return m_hasUnarchived; }

    // Starts folding the current entries for search on a worker thread, so that the first
    // keystroke finds the index ready. Cheap when it is already built or being built.
    void prepareSearch();

    // Relative time in words, the way the history rows show it: "now", "5 minutes ago",
    // "yesterday", "last week", "in 2 hours".
    static QString relativeDate(const QDateTime &date, const QDateTime &now);

    // Answers "now" for the dates; the system clock unless a test sets another.
    void setClock(std::function<QDateTime()> clock) { m_clock = std::move(clock); }

Q_SIGNALS:
    // The shown or total count, or hasUnarchived, may have changed.
    void countsChanged();

private:
    bool filtering() const { return m_archivedOnly || !m_search.isEmpty(); }
    const HistoryEntry &shown(int row) const { return m_entries.at(m_all ? row : m_rows.at(row)); }
    std::shared_ptr<const HistorySearchIndex> indexFor(const QList<HistoryEntry> &entries);
    QList<qint32> filter(const QList<HistoryEntry> &entries);
    void storeChanged();
    void refilter();
    // Moves to the rows of `entries` given by `rows` (all of them when `all`), announcing the
    // smallest change the model can describe.
    void apply(QList<HistoryEntry> entries, bool all, QList<qint32> rows);
    void rowChanged(int row);

    HistoryStore &m_store;
    QList<HistoryEntry> m_entries; // the store's list as last seen (shared, not copied)
    QList<qint32> m_rows;          // positions in m_entries of the rows, when !m_all
    bool m_all = true;
    bool m_hasUnarchived = false;
    QString m_search;
    bool m_archivedOnly = false;
    std::optional<QUuid> m_copiedID;
    std::function<QDateTime()> m_clock;

    std::shared_ptr<const HistorySearchIndex> m_index;
    QFuture<std::shared_ptr<const HistorySearchIndex>> m_pending; // being built for m_pendingEntries
    QList<HistoryEntry> m_pendingEntries;
};

#include "ui/HistoryModel.h"

#include "queue/HistoryStore.h"

#include <QtConcurrent/QtConcurrentRun>

#include <QStringList>

#include <algorithm>
#include <climits>
#include <cstring>
#include <numeric>

namespace {
// Unicode simple case folding sends exactly two characters outside ASCII to ASCII letters:
// the Kelvin sign to k and the long s to s. Every other character outside ASCII folds to one
// outside ASCII, so it can never equal a folded ASCII character.
constexpr char16_t kelvinSign = 0x212A;
constexpr char16_t longS = 0x017F;
constexpr char notAscii = char(0xFF);

char foldedByte(char16_t c) {
    if (c < 0x80)
        return char(c >= u'A' && c <= u'Z' ? c + 32 : c);
    return c == kelvinSign ? 'k' : c == longS ? 's' : notAscii;
}

bool anyUnarchived(const QList<HistoryEntry> &entries) {
    return std::any_of(entries.cbegin(), entries.cend(), [](const HistoryEntry &e) { return !e.archived(); });
}
} // namespace

HistorySearchIndex::HistorySearchIndex(QList<HistoryEntry> entries) : m_entries(std::move(entries)) {
    // Folded from UTF-8 sizes: never fewer bytes than UTF-16 units.
    qsizetype total = 0;
    for (const HistoryEntry &e : std::as_const(m_entries))
        total += e.utf8(HistoryEntry::Text::title).size() + e.utf8(HistoryEntry::Text::url).size() +
                 e.utf8(HistoryEntry::Text::category).size() + e.utf8(HistoryEntry::Text::source).size() + 4;
    m_text.resize(total);
    m_ends.reserve(m_entries.size());
    char *out = m_text.data();
    qsizetype pos = 0;
    for (qsizetype i = 0; i < m_entries.size(); ++i) {
        const HistoryEntry &e = m_entries.at(i);
        bool ascii = true;
        const QString fields[] = {e.title(), e.url(), e.category(), e.source()};
        for (const QString *field = fields; field != std::end(fields); ++field) {
            const char16_t *chars = reinterpret_cast<const char16_t *>(field->constData());
            for (qsizetype k = 0, n = field->size(); k < n; ++k) {
                const char16_t c = chars[k];
                ascii = ascii && c < 0x80;
                out[pos++] = foldedByte(c);
            }
            out[pos++] = '\0';
        }
        m_ends.append(pos);
        if (!ascii)
            m_nonAscii.append(qint32(i));
    }
    m_text.resize(pos);
}

bool HistorySearchIndex::covers(const QList<HistoryEntry> &entries) const {
    // The index holds its own reference to the list's data, so any change to the list made
    // since has detached it: equal data pointers mean equal contents.
    return entries.constData() == m_entries.constData() && entries.size() == m_entries.size();
}

bool HistorySearchIndex::accepts(const HistoryEntry &entry, const QString &search) {
    return search.isEmpty() || entry.title().contains(search, Qt::CaseInsensitive) ||
           entry.url().contains(search, Qt::CaseInsensitive) ||
           entry.category().contains(search, Qt::CaseInsensitive) ||
           entry.source().contains(search, Qt::CaseInsensitive);
}

QList<qint32> HistorySearchIndex::matching(const QString &search) const {
    QList<qint32> out;
    if (search.isEmpty()) {
        out.resize(m_entries.size());
        std::iota(out.begin(), out.end(), 0);
        return out;
    }
    // A search whose folded form is ASCII (and holds no NUL, which separates the fields) is
    // answered from the byte text alone; that answer is exact.
    QByteArray needle(search.size(), Qt::Uninitialized);
    bool bytes = true;
    bool nonAscii = false;
    for (qsizetype i = 0; i < search.size(); ++i) {
        const char16_t c = search.at(i).unicode();
        needle[i] = foldedByte(c);
        bytes = bytes && c != 0 && needle[i] != notAscii;
        nonAscii = nonAscii || needle[i] == notAscii;
    }
    if (bytes) {
        const char *text = m_text.constData();
        const qsizetype end = m_text.size();
        qsizetype from = 0;
        qsizetype entry = 0;
        while (from < end) {
            const void *hit = memmem(text + from, size_t(end - from), needle.constData(), size_t(needle.size()));
            if (!hit)
                break;
            const qsizetype at = static_cast<const char *>(hit) - text;
            entry = std::upper_bound(m_ends.cbegin() + entry, m_ends.cend(), at) - m_ends.cbegin();
            out.append(qint32(entry));
            from = m_ends.at(entry);
            ++entry;
        }
        return out;
    }
    // A character that folds outside ASCII can only be found in entries that hold one.
    if (nonAscii) {
        for (qint32 i : m_nonAscii)
            if (accepts(m_entries.at(i), search))
                out.append(i);
        return out;
    }
    for (qsizetype i = 0; i < m_entries.size(); ++i)
        if (accepts(m_entries.at(i), search))
            out.append(qint32(i));
    return out;
}

HistoryModel::HistoryModel(HistoryStore &store, QObject *parent)
    : QAbstractListModel(parent), m_store(store), m_entries(store.entries()),
      m_hasUnarchived(anyUnarchived(m_entries)), m_clock([] { return QDateTime::currentDateTimeUtc(); }) {
    // The store may still be filling (or refilling) its list: every change arrives here.
    connect(&store, &HistoryStore::entriesChanged, this, &HistoryModel::storeChanged);
}

HistoryModel::~HistoryModel() = default;

int HistoryModel::rowCount(const QModelIndex &parent) const {
    if (parent.isValid())
        return 0;
    return int(m_all ? m_entries.size() : m_rows.size());
}

QVariant HistoryModel::data(const QModelIndex &index, int role) const {
    if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid))
        return {};
    const HistoryEntry &e = shown(index.row());
    const bool copied = m_copiedID && *m_copiedID == e.id();
    switch (role) {
    case Qt::DisplayRole:
        return e.title();
    case Qt::ToolTipRole:
    case Qt::AccessibleDescriptionRole:
        return e.url();
    case Qt::AccessibleTextRole: {
        // What the row shows, in reading order, for screen readers.
        QStringList parts;
        if (e.archived())
            parts << QStringLiteral("Archived");
        parts << e.title() << e.source() << e.category() << relativeDate(e.date(), m_clock());
        if (copied)
            parts << QStringLiteral("Link copied \u2014 paste anywhere");
        return parts.join(QStringLiteral(", "));
    }
    case EntryRole:
        return QVariant::fromValue(e);
    case CopiedRole:
        return copied;
    case RelativeDateRole:
        return relativeDate(e.date(), m_clock());
    default:
        return {};
    }
}

HistoryEntry HistoryModel::entryAt(int row) const {
    return row >= 0 && row < rowCount() ? shown(row) : HistoryEntry();
}

int HistoryModel::rowOf(const QUuid &id) const {
    for (int row = 0, n = rowCount(); row < n; ++row)
        if (shown(row).id() == id)
            return row;
    return -1;
}

void HistoryModel::setSearch(const QString &search) {
    if (search == m_search)
        return;
    m_search = search;
    refilter();
}

void HistoryModel::setArchivedOnly(bool archivedOnly) {
    if (archivedOnly == m_archivedOnly)
        return;
    m_archivedOnly = archivedOnly;
    refilter();
}

void HistoryModel::setCopiedID(const std::optional<QUuid> &id) {
    if (id == m_copiedID)
        return;
    const std::optional<QUuid> previous = std::exchange(m_copiedID, id);
    if (previous)
        rowChanged(rowOf(*previous));
    if (id)
        rowChanged(rowOf(*id));
}

void HistoryModel::rowChanged(int row) {
    if (row >= 0)
        Q_EMIT dataChanged(index(row), index(row));
}

void HistoryModel::prepareSearch() {
    if ((m_index && m_index->covers(m_entries)) ||
        (m_pending.isValid() && m_pendingEntries.constData() == m_entries.constData() &&
         m_pendingEntries.size() == m_entries.size()))
        return;
    m_pendingEntries = m_entries;
    m_pending = QtConcurrent::run(
        [entries = m_entries] { return std::make_shared<const HistorySearchIndex>(entries); });
}

std::shared_ptr<const HistorySearchIndex> HistoryModel::indexFor(const QList<HistoryEntry> &entries) {
    if (m_index && m_index->covers(entries))
        return m_index;
    if (m_pending.isValid() && m_pendingEntries.constData() == entries.constData() &&
        m_pendingEntries.size() == entries.size())
        m_index = m_pending.result(); // waits for the worker, or runs the build here if it has not started
    else
        m_index = std::make_shared<const HistorySearchIndex>(entries);
    m_pending = {};
    m_pendingEntries = {};
    return m_index;
}

QList<qint32> HistoryModel::filter(const QList<HistoryEntry> &entries) {
    QList<qint32> rows;
    if (!m_search.isEmpty()) {
        rows = indexFor(entries)->matching(m_search);
        if (m_archivedOnly)
            rows.removeIf([&entries](qint32 i) { return !entries.at(i).archived(); });
        return rows;
    }
    for (qsizetype i = 0; i < entries.size(); ++i)
        if (entries.at(i).archived())
            rows.append(qint32(i));
    return rows;
}

void HistoryModel::storeChanged() {
    QList<HistoryEntry> entries = m_store.entries();
    QList<qint32> rows = filtering() ? filter(entries) : QList<qint32>();
    apply(std::move(entries), !filtering(), std::move(rows));
}

void HistoryModel::refilter() {
    QList<qint32> rows = filtering() ? filter(m_entries) : QList<qint32>();
    apply(m_entries, !filtering(), std::move(rows));
}

void HistoryModel::apply(QList<HistoryEntry> entries, bool all, QList<qint32> rows) {
    const int oldCount = rowCount();
    const int newCount = int(all ? entries.size() : rows.size());
    const auto next = [&](int row) -> const HistoryEntry & { return entries.at(all ? row : rows.at(row)); };

    // Rows that keep their entry at the start and at the end of the list; what lies between
    // was inserted, removed or replaced.
    const int common = std::min(oldCount, newCount);
    int prefix = 0;
    while (prefix < common && shown(prefix).id() == next(prefix).id())
        ++prefix;
    int suffix = 0;
    while (suffix < common - prefix && shown(oldCount - 1 - suffix).id() == next(newCount - 1 - suffix).id())
        ++suffix;
    // Kept rows whose entry changed (archived, refreshed), in the new numbering. Unchanged
    // entries share their data with the previous list, so this is a pointer comparison each.
    int firstChanged = INT_MAX;
    int lastChanged = -1;
    const auto changed = [&](int row) {
        firstChanged = std::min(firstChanged, row);
        lastChanged = std::max(lastChanged, row);
    };
    for (int row = 0; row < prefix; ++row)
        if (shown(row) != next(row))
            changed(row);
    for (int k = 0; k < suffix; ++k)
        if (shown(oldCount - 1 - k) != next(newCount - 1 - k))
            changed(newCount - 1 - k);

    const auto commit = [&] {
        m_entries = std::move(entries);
        m_rows = std::move(rows);
        m_all = all;
    };
    if (prefix + suffix == oldCount && prefix + suffix == newCount) {
        commit();
    } else if (prefix + suffix == oldCount) {
        beginInsertRows(QModelIndex(), prefix, prefix + newCount - oldCount - 1);
        commit();
        endInsertRows();
    } else if (prefix + suffix == newCount) {
        beginRemoveRows(QModelIndex(), prefix, prefix + oldCount - newCount - 1);
        commit();
        endRemoveRows();
    } else {
        beginResetModel();
        commit();
        endResetModel();
        lastChanged = -1;
    }
    if (lastChanged >= 0)
        Q_EMIT dataChanged(index(firstChanged), index(lastChanged));
    m_hasUnarchived = anyUnarchived(m_entries);
    Q_EMIT countsChanged();
}

QString HistoryModel::relativeDate(const QDateTime &date, const QDateTime &now) {
    const qint64 difference = date.secsTo(now);
    if (difference == 0)
        return QStringLiteral("now");
    const bool past = difference > 0;
    const qint64 seconds = past ? difference : -difference;
    struct Unit {
        qint64 seconds;
        const char *name;
        const char *last; // the named form of one unit in the past, if the unit has one
        const char *next;
    };
    static constexpr Unit units[] = {
        {365 * 86400, "year", "last year", "next year"},
        {30 * 86400, "month", "last month", "next month"},
        {7 * 86400, "week", "last week", "next week"},
        {86400, "day", "yesterday", "tomorrow"},
        {3600, "hour", nullptr, nullptr},
        {60, "minute", nullptr, nullptr},
        {1, "second", nullptr, nullptr},
    };
    for (const Unit &unit : units) {
        const qint64 count = seconds / unit.seconds;
        if (count < 1)
            continue;
        if (count == 1 && unit.last)
            return QLatin1String(past ? unit.last : unit.next);
        const QString amount =
            QString::number(count) + u' ' + QLatin1String(unit.name) + (count == 1 ? QString() : QStringLiteral("s"));
        return past ? amount + QStringLiteral(" ago") : QStringLiteral("in ") + amount;
    }
    return QStringLiteral("now");
}

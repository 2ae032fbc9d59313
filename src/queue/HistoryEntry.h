#pragma once

#include <QAnyStringView>
#include <QAtomicInt>
#include <QByteArray>
#include <QByteArrayView>
#include <QDateTime>
#include <QString>
#include <QUuid>

#include <array>
#include <optional>
#include <utility>

// One downloaded link in the history. In the file every field is a key of the same name; "date"
// is seconds since 2001-01-01 00:00:00 UTC and "filePath" is left out when there is no file.
//
// A value type with equality over all fields, implicitly shared: a history of 100,000 entries
// copies, grows and hands a snapshot to the writer without copying every string. Kept compact
// because all of them stay in memory: one allocation per entry holds its fields and its texts as
// UTF-8 (a lone surrogate, which UTF-8 cannot hold, is stored as "?"); the source, category and
// mode, which few distinct values repeat across the whole history, are shared between entries.
class HistoryEntry {
public:
    enum class Text { url, title, source, category, mode, filePath };
    static constexpr int textCount = 6;

    HistoryEntry();
    HistoryEntry(const HistoryEntry &other) noexcept;
    HistoryEntry(HistoryEntry &&other) noexcept : d(std::exchange(other.d, nullptr)) {}
    HistoryEntry &operator=(const HistoryEntry &other) noexcept;
    HistoryEntry &operator=(HistoryEntry &&other) noexcept {
        swap(other);
        return *this;
    }
    ~HistoryEntry();
    void swap(HistoryEntry &other) noexcept { std::swap(d, other.d); }

    const QUuid &id() const { return d->id; }
    void setId(const QUuid &id) { detach()->id = id; }
    // Upper-case, hyphenated, no braces.
    QString idString() const;
    // The downloaded link; a re-download of the same text refreshes this entry.
    QString url() const { return text(Text::url); }
    void setUrl(const QString &url) { setText(Text::url, url); }
    QString title() const { return text(Text::title); }
    void setTitle(const QString &title) { setText(Text::title, title); }
    // Display name of the link's MediaSource.
    QString source() const { return text(Text::source); }
    void setSource(const QString &source) { setText(Text::source, source); }
    // The genre.
    QString category() const { return text(Text::category); }
    void setCategory(const QString &category) { setText(Text::category, category); }
    // The DownloadMode label ("Audio only"), not its raw value.
    QString mode() const { return text(Text::mode); }
    void setMode(const QString &mode) { setText(Text::mode, mode); }
    // When created or last refreshed; UTC, millisecond precision.
    QDateTime date() const { return QDateTime::fromMSecsSinceEpoch(d->dateMs, Qt::UTC); }
    void setDate(const QDateTime &date) { detach()->dateMs = date.toMSecsSinceEpoch(); }
    qint64 dateMs() const { return d->dateMs; }
    void setDateMs(qint64 ms) { detach()->dateMs = ms; }
    std::optional<QString> filePath() const;
    bool hasFilePath() const { return d->hasFile; }
    void setFilePath(const std::optional<QString> &path);
    // Kept when the history is cleared.
    bool archived() const { return d->archived; }
    void setArchived(bool archived) { detach()->archived = archived; }

    // A text as its UTF-8 bytes, valid until the entry changes (the file's reader and writer).
    QByteArrayView utf8(Text which) const { return textOf(*d, which); }
    // Sets every text at once from UTF-8, one allocation; `filePath` null when there is none.
    void setUtf8(const std::array<QByteArrayView, textCount> &texts);

    friend bool operator==(const HistoryEntry &a, const HistoryEntry &b) { return a.d == b.d || equal(*a.d, *b.d); }
    friend bool operator!=(const HistoryEntry &a, const HistoryEntry &b) { return !(a == b); }

    // The canonical 36-character form only (either letter case); braces or other spellings are refused.
    static std::optional<QUuid> parseId(QAnyStringView text);

    // 2001-01-01 00:00:00 UTC in milliseconds since 1970.
    static constexpr qint64 referenceEpochMs = 978307200000;
    // Seconds since 2001-01-01 00:00:00 UTC, and back (rounded to the millisecond, clamped to
    // ±100,000 years so that absurd numbers in a file cannot overflow).
    static double referenceSeconds(const QDateTime &date);
    static QDateTime fromReferenceSeconds(double seconds);
    static qint64 msFromReferenceSeconds(double seconds);

private:
    // Followed in the same allocation by the texts kept in the entry.
    struct Data {
        QAtomicInt ref = 1;
        bool hasFile = false;
        bool archived = false;
        std::array<quint16, 3> shared{}; // source, category, mode: a shared text's number, or none
        std::array<quint32, textCount> ends{}; // where each text kept in the entry ends
        qint64 dateMs = 0;
        QUuid id;

        char *texts() { return reinterpret_cast<char *>(this + 1); }
        const char *texts() const { return reinterpret_cast<const char *>(this + 1); }
        qsizetype textSize() const { return ends.back(); }
    };
    static Data *allocate(qsizetype textSize);
    static void release(Data *data);
    static bool equal(const Data &a, const Data &b);
    static QByteArrayView textOf(const Data &data, Text which);
    Data *detach();
    QString text(Text which) const { return QString::fromUtf8(utf8(which)); }
    void setText(Text which, const QString &value);

    Data *d;
};

Q_DECLARE_SHARED(HistoryEntry)

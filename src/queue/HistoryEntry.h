#pragma once

#include <QAnyStringView>
#include <QDateTime>
#include <QSharedData>
#include <QString>
#include <QUuid>

#include <optional>

// One downloaded link in the history. In the file every field is a key of the same name; "date"
// is seconds since 2001-01-01 00:00:00 UTC and "filePath" is left out when there is no file.
//
// A value type with equality over all fields, implicitly shared: a history of 100,000 entries
// copies, grows and hands a snapshot to the writer without copying every string.
class HistoryEntry {
public:
    HistoryEntry();
    HistoryEntry(const HistoryEntry &) = default;
    HistoryEntry(HistoryEntry &&) noexcept = default;
    HistoryEntry &operator=(const HistoryEntry &) = default;
    HistoryEntry &operator=(HistoryEntry &&) noexcept = default;
    ~HistoryEntry() = default;
    void swap(HistoryEntry &other) noexcept { d.swap(other.d); }

    const QUuid &id() const { return d->id; }
    void setId(const QUuid &id) { d->id = id; }
    // Upper-case, hyphenated, no braces.
    QString idString() const;
    // The downloaded link; a re-download of the same text refreshes this entry.
    const QString &url() const { return d->url; }
    void setUrl(const QString &url) { d->url = url; }
    const QString &title() const { return d->title; }
    void setTitle(const QString &title) { d->title = title; }
    // Display name of the link's MediaSource.
    const QString &source() const { return d->source; }
    void setSource(const QString &source) { d->source = source; }
    // The genre.
    const QString &category() const { return d->category; }
    void setCategory(const QString &category) { d->category = category; }
    // The DownloadMode label ("Audio only"), not its raw value.
    const QString &mode() const { return d->mode; }
    void setMode(const QString &mode) { d->mode = mode; }
    // When created or last refreshed; UTC, millisecond precision.
    const QDateTime &date() const { return d->date; }
    void setDate(const QDateTime &date) { d->date = date.toUTC(); }
    const std::optional<QString> &filePath() const { return d->filePath; }
    void setFilePath(const std::optional<QString> &path) { d->filePath = path; }
    // Kept when the history is cleared.
    bool archived() const { return d->archived; }
    void setArchived(bool archived) { d->archived = archived; }

    friend bool operator==(const HistoryEntry &a, const HistoryEntry &b) { return a.d == b.d || *a.d == *b.d; }
    friend bool operator!=(const HistoryEntry &a, const HistoryEntry &b) { return !(a == b); }

    // The canonical 36-character form only (either letter case); braces or other spellings are refused.
    static std::optional<QUuid> parseId(QAnyStringView text);

    // 2001-01-01 00:00:00 UTC in milliseconds since 1970.
    static constexpr qint64 referenceEpochMs = 978307200000;
    // Seconds since 2001-01-01 00:00:00 UTC, and back (rounded to the millisecond, clamped to
    // ±100,000 years so that absurd numbers in a file cannot overflow).
    static double referenceSeconds(const QDateTime &date);
    static QDateTime fromReferenceSeconds(double seconds);

private:
    struct Data : QSharedData {
        QUuid id;
        QString url;
        QString title;
        QString source;
        QString category;
        QString mode;
        QDateTime date;
        std::optional<QString> filePath;
        bool archived = false;

        bool operator==(const Data &o) const {
            return id == o.id && url == o.url && title == o.title && source == o.source && category == o.category &&
                   mode == o.mode && date == o.date && filePath == o.filePath && archived == o.archived;
        }
    };
    QSharedDataPointer<Data> d;
};

Q_DECLARE_SHARED(HistoryEntry)

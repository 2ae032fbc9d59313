#include "queue/HistoryEntry.h"

#include <QHash>
#include <QMutex>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>

namespace {
constexpr double maxReferenceSeconds = 100000.0 * 365.25 * 86400.0;
constexpr quint16 unshared = 0xFFFF;
constexpr int firstShared = int(HistoryEntry::Text::source);

// The texts that entries share, each kept once for the whole process. Only short ones and only so
// many: a file full of odd values cannot make the table grow without bound (those stay in their
// entries).
class SharedTexts {
public:
    static constexpr int capacity = 4096;
    static constexpr qsizetype maxLength = 64;

    // The number of `text`, added when new; unshared when it is too long or the table is full.
    quint16 find(QByteArrayView text) {
        if (text.size() > maxLength)
            return unshared;
        // Loading mostly asks for the values it has just asked for.
        thread_local std::array<quint16, 8> recent = [] {
            std::array<quint16, 8> none;
            none.fill(unshared);
            return none;
        }();
        thread_local unsigned next = 0;
        for (quint16 n : recent)
            if (n != unshared && at(n) == text)
                return n;
        QMutexLocker lock(&m_mutex);
        quint16 n = m_index.value(text, unshared);
        if (n == unshared && m_count < capacity) {
            n = quint16(m_count++);
            m_texts[n] = text.toByteArray();
            m_index.insert(QByteArrayView(m_texts[n]), n);
        }
        if (n != unshared)
            recent[next++ % recent.size()] = n;
        return n;
    }
    // Written once under the lock before its number is handed out, never changed after.
    QByteArrayView at(quint16 n) const { return m_texts[n]; }

private:
    QMutex m_mutex;
    std::array<QByteArray, capacity> m_texts; // never moved, so views of them stay valid
    QHash<QByteArrayView, quint16> m_index;
    int m_count = 0;
};

SharedTexts &sharedTexts() {
    static SharedTexts table;
    return table;
}
} // namespace

HistoryEntry::Data *HistoryEntry::allocate(qsizetype textSize) {
    Data *data = new (::operator new(sizeof(Data) + size_t(textSize))) Data;
    data->shared.fill(unshared);
    return data;
}

void HistoryEntry::release(Data *data) {
    if (data && !data->ref.deref()) {
        data->~Data();
        ::operator delete(data);
    }
}

HistoryEntry::HistoryEntry() : d(allocate(0)) {}

HistoryEntry::HistoryEntry(const HistoryEntry &other) noexcept : d(other.d) {
    if (d)
        d->ref.ref();
}

HistoryEntry &HistoryEntry::operator=(const HistoryEntry &other) noexcept {
    HistoryEntry copy(other);
    swap(copy);
    return *this;
}

HistoryEntry::~HistoryEntry() { release(d); }

HistoryEntry::Data *HistoryEntry::detach() {
    if (d->ref.loadRelaxed() != 1) {
        Data *copy = new (::operator new(sizeof(Data) + size_t(d->textSize()))) Data(*d);
        copy->ref.storeRelaxed(1);
        std::memcpy(copy->texts(), d->texts(), size_t(d->textSize()));
        release(std::exchange(d, copy));
    }
    return d;
}

bool HistoryEntry::equal(const Data &a, const Data &b) {
    if (a.id != b.id || a.dateMs != b.dateMs || a.hasFile != b.hasFile || a.archived != b.archived)
        return false;
    // A text may be shared in one entry and kept in the other (the table was full): compare the texts.
    for (int i = 0; i < textCount; ++i)
        if (textOf(a, Text(i)) != textOf(b, Text(i)))
            return false;
    return true;
}

QString HistoryEntry::idString() const { return d->id.toString(QUuid::WithoutBraces).toUpper(); }

QByteArrayView HistoryEntry::textOf(const Data &data, Text which) {
    const int i = int(which);
    if (i >= firstShared && i < firstShared + int(data.shared.size()) && data.shared[i - firstShared] != unshared)
        return sharedTexts().at(data.shared[i - firstShared]);
    const quint32 start = i == 0 ? 0 : data.ends[i - 1];
    return QByteArrayView(data.texts() + start, data.ends[i] - start);
}

void HistoryEntry::setUtf8(const std::array<QByteArrayView, textCount> &texts) {
    std::array<quint16, 3> shared;
    qsizetype total = 0;
    for (int i = 0; i < textCount; ++i) {
        const bool sharable = i >= firstShared && i < firstShared + int(shared.size());
        if (sharable)
            shared[i - firstShared] = sharedTexts().find(texts[i]);
        if (!sharable || shared[i - firstShared] == unshared)
            total += texts[i].size();
    }
    // Built before the old data goes: `texts` may point into it.
    Data *next = allocate(total);
    next->id = d->id;
    next->dateMs = d->dateMs;
    next->archived = d->archived;
    next->hasFile = !texts[int(Text::filePath)].isNull();
    next->shared = shared;
    char *out = next->texts();
    for (int i = 0; i < textCount; ++i) {
        const bool kept = i < firstShared || i >= firstShared + int(shared.size()) || shared[i - firstShared] == unshared;
        if (kept && !texts[i].isEmpty()) {
            std::memcpy(out, texts[i].data(), size_t(texts[i].size()));
            out += texts[i].size();
        }
        next->ends[i] = quint32(out - next->texts());
    }
    release(std::exchange(d, next));
}

void HistoryEntry::setText(Text which, const QString &value) {
    const QByteArray bytes = value.toUtf8();
    std::array<QByteArrayView, textCount> texts;
    for (int i = 0; i < textCount; ++i)
        texts[i] = utf8(Text(i));
    if (!d->hasFile)
        texts[int(Text::filePath)] = QByteArrayView();
    texts[int(which)] = bytes.isNull() ? QByteArrayView("", 0) : QByteArrayView(bytes);
    setUtf8(texts);
}

std::optional<QString> HistoryEntry::filePath() const {
    if (!d->hasFile)
        return std::nullopt;
    return text(Text::filePath);
}

void HistoryEntry::setFilePath(const std::optional<QString> &path) {
    setText(Text::filePath, path.value_or(QString()));
    d->hasFile = path.has_value();
}

std::optional<QUuid> HistoryEntry::parseId(QAnyStringView text) {
    if (text.size() != 36)
        return std::nullopt;
    const QUuid id = QUuid::fromString(text);
    // fromString answers the null UUID for bad text; the all-zero text itself is legitimate.
    if (id.isNull() && !QAnyStringView::equal(text, QLatin1String("00000000-0000-0000-0000-000000000000")))
        return std::nullopt;
    return id;
}

double HistoryEntry::referenceSeconds(const QDateTime &date) {
    return double(date.toMSecsSinceEpoch() - referenceEpochMs) / 1000.0;
}

qint64 HistoryEntry::msFromReferenceSeconds(double seconds) {
    if (!std::isfinite(seconds))
        seconds = 0;
    seconds = std::clamp(seconds, -maxReferenceSeconds, maxReferenceSeconds);
    return std::llround(seconds * 1000.0) + referenceEpochMs;
}

QDateTime HistoryEntry::fromReferenceSeconds(double seconds) {
    return QDateTime::fromMSecsSinceEpoch(msFromReferenceSeconds(seconds), Qt::UTC);
}

#include "queue/HistoryEntry.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace {
constexpr double maxReferenceSeconds = 100000.0 * 365.25 * 86400.0;
} // namespace

HistoryEntry::HistoryEntry() : d(new Data) {}

QString HistoryEntry::idString() const { return d->id.toString(QUuid::WithoutBraces).toUpper(); }

QByteArrayView HistoryEntry::utf8(Text which) const {
    const int i = int(which);
    const quint32 start = i == 0 ? 0 : d->ends[i - 1];
    return QByteArrayView(d->texts.constData() + start, d->ends[i] - start);
}

void HistoryEntry::setUtf8(const std::array<QByteArrayView, textCount> &texts) {
    qsizetype total = 0;
    for (QByteArrayView t : texts)
        total += t.size();
    QByteArray joined(total, Qt::Uninitialized);
    char *out = joined.data();
    for (int i = 0; i < textCount; ++i) {
        if (!texts[i].isEmpty())
            std::memcpy(out, texts[i].data(), size_t(texts[i].size()));
        out += texts[i].size();
        d->ends[i] = quint32(out - joined.constData());
    }
    d->texts = std::move(joined);
    d->hasFile = !texts[int(Text::filePath)].isNull();
}

void HistoryEntry::setText(Text which, const QString &value) {
    // The views into the old buffer stay valid: setUtf8 builds the new one before replacing it.
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

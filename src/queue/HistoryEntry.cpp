#include "queue/HistoryEntry.h"

#include <algorithm>
#include <cmath>

namespace {
constexpr double maxReferenceSeconds = 100000.0 * 365.25 * 86400.0;
} // namespace

HistoryEntry::HistoryEntry() : d(new Data) {}

QString HistoryEntry::idString() const { return d->id.toString(QUuid::WithoutBraces).toUpper(); }

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

QDateTime HistoryEntry::fromReferenceSeconds(double seconds) {
    if (!std::isfinite(seconds))
        seconds = 0;
    seconds = std::clamp(seconds, -maxReferenceSeconds, maxReferenceSeconds);
    return QDateTime::fromMSecsSinceEpoch(std::llround(seconds * 1000.0) + referenceEpochMs, Qt::UTC);
}

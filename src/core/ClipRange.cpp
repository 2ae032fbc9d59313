#include "core/ClipRange.h"

#include "core/TextTrim.h"

namespace {
// An optional sign then ASCII digits only; no value on overflow.
std::optional<std::int64_t> parseInteger(QStringView piece) {
    qsizetype i = 0;
    bool negative = false;
    if (piece.startsWith(u'+') || piece.startsWith(u'-')) {
        negative = piece.front() == u'-';
        i = 1;
    }
    if (i == piece.size())
        return std::nullopt;
    std::int64_t value = 0;
    for (; i < piece.size(); ++i) {
        const char16_t c = piece[i].unicode();
        if (c < u'0' || c > u'9')
            return std::nullopt;
        const int digit = c - u'0';
        // Accumulate negatively so INT64_MIN stays representable.
        if (__builtin_mul_overflow(value, 10, &value) || __builtin_sub_overflow(value, digit, &value))
            return std::nullopt;
    }
    if (!negative) {
        if (value == INT64_MIN)
            return std::nullopt;
        value = -value;
    }
    return value;
}
} // namespace

std::optional<std::int64_t> ClipRange::seconds(const QString &text) {
    const QStringView trimmed = trimSpacesAndTabs(text);
    if (trimmed.isEmpty())
        return std::nullopt;
    const auto pieces = trimmed.split(u':', Qt::SkipEmptyParts);
    if (pieces.isEmpty() || pieces.size() > 3)
        return std::nullopt;

    std::int64_t total = 0;
    std::int64_t weight = 1;
    for (qsizetype i = pieces.size() - 1; i >= 0; --i) {
        const auto value = parseInteger(pieces[i]);
        if (!value)
            return std::nullopt;
        std::int64_t term = 0;
        if (__builtin_mul_overflow(*value, weight, &term) || __builtin_add_overflow(total, term, &total))
            return std::nullopt;
        weight *= 60;
    }
    return total;
}

std::optional<QString> ClipRange::sectionExpression() const {
    if (start.isEmpty() && end.isEmpty())
        return std::nullopt;
    const auto s = seconds(start);
    const auto e = seconds(end);
    const QString startPart = s ? QString::number(*s) : QStringLiteral("0");
    const QString endPart = e ? QString::number(*e) : QStringLiteral("inf");
    return QStringLiteral("*") + startPart + QStringLiteral("-") + endPart;
}

QJsonObject ClipRange::toJson() const {
    return QJsonObject{{QStringLiteral("start"), start}, {QStringLiteral("end"), end}};
}

std::optional<ClipRange> ClipRange::fromJson(const QJsonObject &object) {
    const auto s = object.value(QStringLiteral("start"));
    const auto e = object.value(QStringLiteral("end"));
    if (!s.isString() || !e.isString())
        return std::nullopt;
    return ClipRange{s.toString(), e.toString()};
}

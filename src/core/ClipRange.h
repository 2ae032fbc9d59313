#pragma once

#include <QJsonObject>
#include <QString>

#include <cstdint>
#include <optional>

// A section of a media item, with the times exactly as the user typed them.
struct ClipRange {
    QString start;
    QString end;

    // True when either field is non-empty as typed (before trimming).
    bool isValid() const { return !start.isEmpty() || !end.isEmpty(); }

    // "90", "1:30", "1:02:15" → seconds; anything else (or a 64-bit overflow) → no value.
    static std::optional<std::int64_t> seconds(const QString &text);

    // The downloader's section argument, e.g. "*90-inf"; none when both fields are empty.
    std::optional<QString> sectionExpression() const;

    QJsonObject toJson() const;
    static std::optional<ClipRange> fromJson(const QJsonObject &object);

    friend bool operator==(const ClipRange &, const ClipRange &) = default;
};

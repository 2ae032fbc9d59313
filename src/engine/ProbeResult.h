#pragma once

#include <QList>
#include <QString>
#include <QStringList>
#include <QUrl>

#include <optional>

// What asking the downloader about a link learns before it is downloaded.
struct ProbeResult {
    struct Entry {
        QString url;
        QString title;
        friend bool operator==(const Entry &, const Entry &) = default;
    };

    QString title;                         // falls back to the link itself
    std::optional<double> durationSeconds; // length in seconds, when known
    std::optional<QUrl> thumbnail;         // a web address
    QList<Entry> playlistEntries;          // in the downloader's order; empty for a single video
    QStringList categories;                // the site's own category names; empty when unknown

    bool isPlaylist() const { return !playlistEntries.isEmpty(); }

    // The length as shown to the user: "3:32", "1:00:00"; empty when unknown or not positive.
    QString durationText() const { return formatDuration(durationSeconds); }

    // Whole seconds (truncated) as "m:ss", or "h:mm:ss" from one hour up.
    static QString formatDuration(std::optional<double> seconds) {
        // The upper bound keeps the conversion defined for absurd values.
        if (!seconds || !(*seconds > 0) || !(*seconds < 9.0e15))
            return {};
        const auto s = static_cast<long long>(*seconds);
        if (s >= 3600)
            return QString::asprintf("%lld:%02lld:%02lld", s / 3600, (s % 3600) / 60, s % 60);
        return QString::asprintf("%lld:%02lld", s / 60, s % 60);
    }
};

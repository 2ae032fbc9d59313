#pragma once

#include <QCoroTask>
#include <QList>
#include <QString>
#include <QStringList>

#include <array>
#include <functional>
#include <optional>

// Video and song search through the downloader's flat listing: one printed line per hit.
namespace YtDlp {

enum class SearchMode { videos, music, ccOnly };

inline constexpr std::array<SearchMode, 3> allSearchModes{SearchMode::videos, SearchMode::music, SearchMode::ccOnly};

// "Videos", "Music", "CC only": the raw value, which is also the label.
QString rawValue(SearchMode mode);
std::optional<SearchMode> searchModeFromRaw(const QString &raw);

struct SearchResult {
    QString id;
    QString title; // the id when the site gave none
    QString url;   // the watch page
    QString channel;
    QString durationText;
    std::optional<double> durationSeconds;
    QString viewsText;

    friend bool operator==(const SearchResult &, const SearchResult &) = default;
};

using SearchResultFn = std::function<void(const SearchResult &)>;

// Calls onResult for each hit as its line arrives, in the downloader's order, and returns when
// the downloader has exited. A blank query starts nothing. Throws YtDlpError (probeFailed, with the
// friendly message) when the downloader fails; results delivered before that stay delivered.
// Throws Tools::LaunchError when it cannot be started.
QCoro::Task<> searchStream(QString query, SearchMode mode, int count, SearchResultFn onResult);

// Every hit of searchStream, in arrival order.
QCoro::Task<QList<SearchResult>> search(QString query, SearchMode mode, int count);

// The downloader's arguments for a search (query already trimmed and non-empty).
QStringList searchArguments(const QString &query, SearchMode mode, int count);
// Letters, digits and "-._~!$&'()*+,;=:@/?" stay; every other UTF-8 byte becomes %XX.
QString encodeForURLQuery(const QString &text);
// One "VORLIXSR" output line → a hit; nothing for foreign or incomplete lines.
std::optional<SearchResult> parseSearchLine(const QString &line);
// Display texts: "3:32" / "1:02:05", and "2.5M views" / "12K views" / "999 views"; empty when unknown.
QString dur(const QString &text);
QString views(const QString &text);

inline const QString searchTemplate =
    QStringLiteral("VORLIXSR\t%(id)s\t%(title)s\t%(channel,uploader)s\t%(duration)s\t%(view_count)s");

} // namespace YtDlp

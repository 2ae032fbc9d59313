#include "discovery/YtDlpSearch.h"

#include "core/TextTrim.h"
#include "core/SiteAddresses.h"
#include "engine/Tools.h"
#include "engine/YtDlp.h"

#include <QUrl>

#include <cmath>
#include <cstdio>
#include <exception>

namespace YtDlp {
namespace {

const QString searchMarker = QStringLiteral("VORLIXSR");
const QString notAvailable = QStringLiteral("NA");


// The C library's rounding (half to even on exact ties), which Qt's own formatting does not share.
QString printfDouble(const char *format, double value) {
    char buffer[64];
    const int n = std::snprintf(buffer, sizeof buffer, format, value);
    return n > 0 ? QString::fromLatin1(buffer, qMin(n, int(sizeof buffer) - 1)) : QString();
}

} // namespace

QString rawValue(SearchMode mode) {
    switch (mode) {
    case SearchMode::videos:
        return QStringLiteral("Videos");
    case SearchMode::music:
        return QStringLiteral("Music");
    case SearchMode::ccOnly:
        return QStringLiteral("CC only");
    }
    return {};
}

std::optional<SearchMode> searchModeFromRaw(const QString &raw) {
    for (const SearchMode mode : allSearchModes)
        if (rawValue(mode) == raw)
            return mode;
    return std::nullopt;
}

QString encodeForURLQuery(const QString &text) {
    return QString::fromLatin1(QUrl::toPercentEncoding(text, QByteArrayLiteral("!$&'()*+,;=:@/?")));
}

QStringList searchArguments(const QString &query, SearchMode mode, int count) {
    QStringList args{QStringLiteral("--flat-playlist"), QStringLiteral("--no-warnings"), QStringLiteral("--print"),
                     searchTemplate};
    const QString range = QStringLiteral("1:") + QString::number(count);
    switch (mode) {
    case SearchMode::videos:
        args << QStringLiteral("ytsearch") + QString::number(count) + u':' + query;
        break;
    case SearchMode::music:
        // The fragment keeps the listing to the songs shelf.
        args << QStringLiteral("-I") << range
             << SiteAddresses::youTubeMusicSite + QStringLiteral("/search?q=") + encodeForURLQuery(query) +
                    QStringLiteral("#songs");
        break;
    case SearchMode::ccOnly:
        // The site's own Creative-Commons filter, already encoded twice as the site writes it.
        args << QStringLiteral("-I") << range
             << SiteAddresses::youTubeSite + QStringLiteral("/results?search_query=") + encodeForURLQuery(query) +
                    QStringLiteral("&sp=EgIwAQ%253D%253D");
        break;
    }
    return args;
}

std::optional<SearchResult> parseSearchLine(const QString &line) {
    if (!line.startsWith(searchMarker + u'\t'))
        return std::nullopt;
    const QStringList pieces = line.split(u'\t', Qt::KeepEmptyParts);
    if (pieces.size() < 6)
        return std::nullopt;
    const QString &id = pieces[1];
    if (id.isEmpty() || id == notAvailable)
        return std::nullopt;

    SearchResult r;
    r.id = id;
    r.title = pieces[2] == notAvailable ? id : pieces[2];
    r.url = SiteAddresses::youTubeWatchPrefix + id;
    r.channel = pieces[3] == notAvailable ? QString() : pieces[3];
    r.durationSeconds = parseDecimal(pieces[4]);
    r.durationText = dur(pieces[4]);
    r.viewsText = views(pieces[5]);
    return r;
}

QString dur(const QString &text) {
    const auto value = parseDecimal(text);
    if (!value || !(*value > 0))
        return {};
    const qint64 s = *value >= 9.0e15 ? qint64(9.0e15) : qint64(*value);
    if (s >= 3600)
        return QString::asprintf("%lld:%02lld:%02lld", s / 3600, (s % 3600) / 60, s % 60);
    return QString::asprintf("%lld:%02lld", s / 60, s % 60);
}

QString views(const QString &text) {
    const auto value = parseDecimal(text);
    if (!value || !(*value > 0))
        return {};
    const double v = *value;
    if (v >= 1000000)
        return printfDouble("%.1fM views", v / 1000000);
    if (v >= 1000)
        return printfDouble("%.0fK views", v / 1000);
    return QString::number(qint64(v)) + QStringLiteral(" views");
}

QCoro::Task<> searchStream(QString query, SearchMode mode, int count, SearchResultFn onResult) {
    const QString q = trimSpacesAndTabs(query).toString();
    if (q.isEmpty())
        co_return;

    const QStringList args = searchArguments(q, mode, count);
    std::exception_ptr callbackError;
    const RegisterFn ignoreChild = [](ChildProcess) {};
    const LineFn onLine = [&onResult, &callbackError](const QString &line) {
        if (callbackError)
            return;
        if (const auto result = parseSearchLine(line)) {
            try {
                onResult(*result);
            } catch (...) {
                callbackError = std::current_exception(); // handed back once the run is over
            }
        }
    };
    const StreamResult result = co_await runStreaming(Tools::ytDlpURL(), args, ignoreChild, onLine);
    if (callbackError)
        std::rethrow_exception(callbackError);
    if (result.status != 0)
        throw YtDlpError::probeFailed(friendlyError(result.errorText));
}

QCoro::Task<QList<SearchResult>> search(QString query, SearchMode mode, int count) {
    QList<SearchResult> results;
    const SearchResultFn collect = [&results](const SearchResult &r) { results.append(r); };
    co_await searchStream(query, mode, count, collect);
    co_return results;
}

} // namespace YtDlp

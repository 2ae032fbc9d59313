#include "engine/YtDlp.h"

#include "core/SiteAddresses.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QUrl>

#include <array>

namespace YtDlp {
namespace {

const QString metaMarker = QStringLiteral("VORLIXMETA");
const QString notAvailable = QStringLiteral("NA");

bool isTrackingParameter(const QString &lowerName) {
    static const std::array<QLatin1String, 15> names{
        QLatin1String("si"),           QLatin1String("feature"),
        QLatin1String("pp"),           QLatin1String("ab_channel"),
        QLatin1String("embeds_referring_euri"), QLatin1String("embeds_referring_origin"),
        QLatin1String("source"),       QLatin1String("ref"),
        QLatin1String("utm_source"),   QLatin1String("utm_medium"),
        QLatin1String("utm_campaign"), QLatin1String("utm_content"),
        QLatin1String("utm_term"),     QLatin1String("fbclid"),
        QLatin1String("gclid"),
    };
    for (const QLatin1String &name : names)
        if (lowerName == name)
            return true;
    return false;
}

// An absolute web address, or none.
std::optional<QUrl> webAddress(const QString &text) {
    if (text.isEmpty() || text == notAvailable)
        return std::nullopt;
    const QUrl url(text, QUrl::StrictMode);
    if (!url.isValid() || url.isRelative())
        return std::nullopt;
    return url;
}

QString nonEmptyString(const QJsonObject &object, const QString &key) {
    const QJsonValue value = object.value(key);
    return value.isString() ? value.toString() : QString();
}

// Some extractors list bare video ids where others give full addresses.
QString watchAddress(const QString &idOrAddress) {
    if (idOrAddress.startsWith(QLatin1String("http")))
        return idOrAddress;
    return SiteAddresses::youTubeWatchPrefix + idOrAddress;
}

ProbeResult playlistFrom(const QJsonObject &root, const QJsonArray &entries, const QString &url) {
    ProbeResult result;
    const QString title = nonEmptyString(root, QStringLiteral("title"));
    result.title = title.isEmpty() ? url : title;
    for (const QJsonValue &value : entries) {
        const QJsonObject entry = value.toObject();
        QString address = nonEmptyString(entry, QStringLiteral("url"));
        if (address.isEmpty())
            address = nonEmptyString(entry, QStringLiteral("webpage_url"));
        if (address.isEmpty()) {
            const QString id = nonEmptyString(entry, QStringLiteral("id"));
            if (id.isEmpty())
                continue;
            address = SiteAddresses::youTubeWatchPrefix + id;
        }
        address = watchAddress(address);
        const QString entryTitle = nonEmptyString(entry, QStringLiteral("title"));
        result.playlistEntries.append({address, entryTitle.isEmpty() ? address : entryTitle});
    }
    return result;
}

ProbeResult singleVideoFrom(const QJsonObject &root, const QString &url) {
    ProbeResult result;
    const QString title = nonEmptyString(root, QStringLiteral("title"));
    result.title = title.isEmpty() ? url : title;
    if (const QJsonValue duration = root.value(QStringLiteral("duration")); duration.isDouble())
        result.durationSeconds = duration.toDouble();
    result.thumbnail = webAddress(nonEmptyString(root, QStringLiteral("thumbnail")));
    if (const QJsonValue categories = root.value(QStringLiteral("categories")); categories.isArray()) {
        QStringList names;
        bool allTexts = true;
        for (const QJsonValue &c : categories.toArray()) {
            if (!c.isString()) {
                allTexts = false;
                break;
            }
            names << c.toString();
        }
        if (allTexts)
            result.categories = names;
    }
    return result;
}

} // namespace

QString normalizeURL(const QString &text) {
    const QString trimmed = text.trimmed();
    if (!QUrl(trimmed, QUrl::StrictMode).isValid())
        return trimmed;

    // Work on the text itself rather than through QUrlQuery, which would re-encode the values
    // of the items we keep ("%2B" would come back as "+", changing what the site receives).
    const qsizetype question = trimmed.indexOf(u'?');
    const qsizetype hash = trimmed.indexOf(u'#');
    if (question < 0 || (hash >= 0 && hash < question))
        return trimmed;
    const qsizetype queryEnd = hash >= 0 ? hash : trimmed.size();
    const QString query = trimmed.mid(question + 1, queryEnd - question - 1);
    if (query.isEmpty())
        return trimmed;

    QStringList kept;
    const QStringList items = query.split(u'&', Qt::KeepEmptyParts);
    for (const QString &item : items) {
        const QString name = item.section(u'=', 0, 0);
        const QString decoded = QUrl::fromPercentEncoding(name.toUtf8());
        if (!isTrackingParameter(decoded.toLower()))
            kept << item;
    }
    if (kept.size() == items.size())
        return trimmed;

    QString result = trimmed.left(question);
    if (!kept.isEmpty())
        result += u'?' + kept.join(u'&');
    result += QStringView(trimmed).mid(queryEnd);
    return result;
}

bool isLikelyPlaylistOrChannel(const QString &link) {
    const QString lower = link.toLower();
    const std::array<QString, 7> markers{
        QStringLiteral("/playlist"), QStringLiteral("list="),  QStringLiteral("/channel/"),
        QStringLiteral("/user/"),    QStringLiteral("/c/"),    SiteAddresses::youTubeChannelHandleMarker,
        QStringLiteral("/videos"),
    };
    for (const QString &marker : markers)
        if (lower.contains(marker))
            return true;
    return false;
}

ProbeResult parseProbeLight(const Tools::RunResult &result, const QString &url) {
    if (result.status != 0)
        throw YtDlpError::probeFailed(friendlyError(result.stderrText));

    const QStringList lines = result.stdoutText.split(u'\n', Qt::SkipEmptyParts);
    QString line;
    for (const QString &l : lines)
        if (l.startsWith(metaMarker + u'\t'))
            line = l;
    if (line.isNull())
        line = result.stdoutText.trimmed();

    const QStringList pieces = line.split(u'\t', Qt::KeepEmptyParts);
    if (pieces.size() >= 5 || (pieces.size() == 4 && pieces[0] == metaMarker)) {
        ProbeResult probe;
        probe.title = pieces[1].isEmpty() || pieces[1] == notAvailable ? url : pieces[1];
        probe.durationSeconds = parseDecimal(pieces[2]);
        probe.thumbnail = webAddress(pieces[3]);
        if (pieces.size() >= 5 && !pieces[4].isEmpty() && pieces[4] != notAvailable)
            probe.categories = QStringList{pieces[4]};
        return probe;
    }

    if (result.stdoutText.trimmed().isEmpty())
        throw YtDlpError::probeFailed(friendlyError(result.stderrText));
    // Output we do not recognise still names the thing better than nothing.
    ProbeResult probe;
    probe.title = url;
    for (const QString &l : lines) {
        if (const QString t = l.trimmed(); !t.isEmpty()) {
            probe.title = t;
            break;
        }
    }
    return probe;
}

ProbeResult parseProbeJSON(const Tools::RunResult &result, const QString &url) {
    if (result.status != 0)
        throw YtDlpError::probeFailed(friendlyError(result.stderrText));
    QJsonParseError error{};
    const QJsonDocument document = QJsonDocument::fromJson(result.stdoutText.toUtf8(), &error);
    if (error.error != QJsonParseError::NoError || !document.isObject())
        throw YtDlpError::probeFailed(friendlyError(result.stderrText));

    const QJsonObject root = document.object();
    if (const QJsonValue entries = root.value(QStringLiteral("entries")); entries.isArray()) {
        const QJsonArray list = entries.toArray();
        const bool allObjects =
            std::all_of(list.begin(), list.end(), [](const QJsonValue &v) { return v.isObject(); });
        if (!list.isEmpty() && allObjects)
            return playlistFrom(root, list, url);
    }
    return singleVideoFrom(root, url);
}

QCoro::Task<ProbeResult> probeLight(QString url, Tools::CancellationPtr cancellation) {
    const QStringList args{QStringLiteral("--no-warnings"), QStringLiteral("--no-playlist"), QStringLiteral("--print"),
                           metadataTemplate, url};
    const Tools::RunResult result = co_await Tools::run(Tools::ytDlpURL(), args, 45, std::move(cancellation));
    co_return parseProbeLight(result, url);
}

QCoro::Task<ProbeResult> probeJSON(QString url, Tools::CancellationPtr cancellation) {
    const QStringList args{QStringLiteral("-J"), QStringLiteral("--flat-playlist"), QStringLiteral("--no-warnings"),
                           QStringLiteral("--no-playlist"), url};
    const Tools::RunResult result = co_await Tools::run(Tools::ytDlpURL(), args, 60, std::move(cancellation));
    co_return parseProbeJSON(result, url);
}

QCoro::Task<ProbeResult> probePlaylist(QString url, Tools::CancellationPtr cancellation) {
    const QStringList args{QStringLiteral("-J"), QStringLiteral("--flat-playlist"), QStringLiteral("--no-warnings"),
                           QStringLiteral("--playlist-end"), QStringLiteral("100"), url};
    const Tools::RunResult result = co_await Tools::run(Tools::ytDlpURL(), args, 90, std::move(cancellation));
    co_return parseProbeJSON(result, url);
}

QCoro::Task<ProbeResult> probe(QString url, Tools::CancellationPtr cancellation) {
    if (isLikelyPlaylistOrChannel(url))
        co_return co_await probePlaylist(url, cancellation);

    // The light probe is quick and enough for most links; whatever makes it fail, the full
    // JSON answer gets a chance, and only its failure is reported.
    std::optional<ProbeResult> light;
    try {
        light = co_await probeLight(url, cancellation);
    } catch (...) {
    }
    if (light)
        co_return std::move(*light);
    if (cancellation && cancellation->isCancelled())
        throw YtDlpError::probeFailed(QStringLiteral("Cancelled"));
    co_return co_await probeJSON(url, cancellation);
}

} // namespace YtDlp

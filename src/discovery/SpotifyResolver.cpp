#include "discovery/SpotifyResolver.h"

#include "core/Utf8.h"
#include "discovery/Http.h"
#include "engine/Tools.h"
#include "engine/YtDlp.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkRequest>
#include <QRegularExpression>
#include <QUuid>
#include <QtConcurrent>

#include <QCoroFuture>

#include <array>
#include <utility>

namespace SpotifyResolver {
namespace {

const QString stopWords[] = {QStringLiteral("the"), QStringLiteral("and"), QStringLiteral("feat"), QStringLiteral("ft"),
                             QStringLiteral("official")};

struct Penalty {
    QLatin1String word;
    double points;
};
constexpr std::array<Penalty, 14> penalties{{
    {QLatin1String("karaoke"), 50},      {QLatin1String("nightcore"), 45}, {QLatin1String("slowed"), 30},
    {QLatin1String("reverb"), 25},       {QLatin1String("8d audio"), 30},  {QLatin1String("cover"), 20},
    {QLatin1String("instrumental"), 18}, {QLatin1String("piano version"), 18}, {QLatin1String("remix"), 15},
    {QLatin1String("live"), 10},         {QLatin1String("reaction"), 40},  {QLatin1String("sped up"), 25},
    {QLatin1String("chipmunk"), 35},     {QLatin1String("bass boosted"), 25},
}};

const QString notFoundMessage = QStringLiteral("Couldn't read track info from that Spotify link.");

QString newUuid() { return QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper(); }

bool isSuccess(const Http::Response &response) {
    return response.isHTTP() && response.status >= 200 && response.status < 300;
}

QCoro::Task<OEmbed> fetchOEmbed(QString trackURL, Endpoint endpoint) {
    const QUrl address(endpoint.oEmbedURL.toString() + QStringLiteral("?url=") + YtDlp::encodeForURLQuery(trackURL),
                       QUrl::StrictMode);
    if (!address.isValid())
        co_return OEmbed{};
    const Http::Response response = co_await Http::get(QNetworkRequest(address), endpoint.oEmbedTimeout, 1024 * 1024);
    if (!isSuccess(response))
        co_return OEmbed{};
    co_return parseOEmbed(response.body);
}

Metadata parsePage(const QByteArray &body) {
    const std::optional<QString> html = decodeUtf8Strict(body);
    return html ? parseTrackPage(*html) : Metadata{};
}

QCoro::Task<Metadata> fetchOpenGraph(QString trackURL, Endpoint endpoint) {
    const QUrl address(trackURL);
    if (!address.isValid() || address.isRelative())
        co_return Metadata{};
    QNetworkRequest request(address);
    // The page only carries its og: tags for desktop browsers.
    request.setRawHeader("User-Agent", "Mozilla/5.0 (Macintosh; Intel Mac OS X 10_15_7)");
    const Http::Response response = co_await Http::get(request, endpoint.pageTimeout, 32 * 1024 * 1024);
    if (!isSuccess(response))
        co_return Metadata{};
    // A large page makes for slow regular expressions: keep them off the caller's thread.
    QFuture<Metadata> parsed = QtConcurrent::run(parsePage, response.body);
    co_return co_await parsed;
}

std::optional<QString> firstCapture(const QString &html, const QString &pattern) {
    const QRegularExpression re(pattern, QRegularExpression::CaseInsensitiveOption);
    if (!re.isValid())
        return std::nullopt;
    const QRegularExpressionMatch match = re.match(html);
    if (!match.hasMatch())
        return std::nullopt;
    return decodeHTMLEntities(match.captured(1));
}

QString artistFromDescription(const QString &description) {
    static const QString dot = QStringLiteral(" · ");
    const QStringList pieces = description.split(dot);
    if (pieces.size() >= 2)
        return pieces.first();
    const qsizetype by = description.indexOf(QLatin1String(" by "), 0, Qt::CaseInsensitive);
    if (by < 0)
        return QString();
    return description.mid(by + 4).split(dot).first();
}

// The track's file leaves its old name only when it is really gone; the art never stays.
struct FileGuard {
    QString path;
    ~FileGuard() {
        if (!path.isEmpty())
            QFile::remove(path);
    }
};

QCoro::Task<QString> downloadArt(QUrl artwork, Endpoint endpoint) {
    if (artwork.isEmpty())
        co_return QString();
    const Http::Response response = co_await Http::get(QNetworkRequest(artwork), endpoint.artTimeout, 32 * 1024 * 1024);
    if (!isSuccess(response) || response.body.isEmpty())
        co_return QString();
    const QString path = QDir::tempPath() + QStringLiteral("/vorlix-art-") + newUuid() + QStringLiteral(".jpg");
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(response.body) != response.body.size() || !file.flush()) {
        file.close();
        QFile::remove(path);
        co_return QString();
    }
    co_return path;
}

} // namespace

bool isSpotifyTrackURL(const QString &link) {
    const QString &host = SiteAddresses::spotifyWebPlayerHost;
    if (link.contains(host + QStringLiteral("/track/")))
        return true;
    return link.contains(host + QStringLiteral("/intl-")) && link.contains(QLatin1String("/track/"));
}

QCoro::Task<Metadata> fetchMetadata(QString trackURL, Endpoint endpoint) {
    // Both requests are in flight before either answer is awaited.
    QCoro::Task<OEmbed> oEmbedTask = fetchOEmbed(trackURL, endpoint);
    QCoro::Task<Metadata> pageTask = fetchOpenGraph(trackURL, endpoint);
    const OEmbed oEmbed = co_await oEmbedTask;
    const Metadata page = co_await pageTask;

    Metadata meta;
    meta.title = oEmbed.title ? oEmbed.title : page.title;
    meta.artist = page.artist;
    meta.artwork = !oEmbed.thumbnail.isEmpty() ? oEmbed.thumbnail : page.artwork;
    co_return meta;
}

QCoro::Task<Resolution> resolve(QString trackURL, Endpoint endpoint) {
    const Metadata meta = co_await fetchMetadata(trackURL, endpoint);
    if (!meta.title || meta.title->isEmpty())
        throw YtDlpError::probeFailed(notFoundMessage);
    const QString title = cleanTitle(*meta.title);
    const QString artist = meta.artist.value_or(QString());

    std::optional<QList<YtDlp::SearchResult>> candidates;
    try {
        const QString query = searchQuery(title, artist);
        candidates = co_await YtDlp::search(query, YtDlp::SearchMode::videos, 6);
    } catch (...) {
        // A failed search still leaves the downloader's own search to fall back on.
    }
    co_return resolution(title, artist, meta.artwork, candidates);
}

QString searchQuery(const QString &title, const QString &artist) {
    QStringList parts;
    if (!artist.isEmpty())
        parts << artist;
    if (!title.isEmpty())
        parts << title;
    return parts.join(u' ');
}

Resolution resolution(const QString &title, const QString &artist, const QUrl &artwork,
                      const std::optional<QList<YtDlp::SearchResult>> &candidates) {
    const SpotifyTrack track{title, artist, artwork};
    if (candidates && !candidates->isEmpty()) {
        const auto best = pickBest(*candidates, title, artist);
        return {best ? best->url : candidates->first().url, track};
    }
    // Let the downloader take the first hit of a narrower search itself.
    return {QStringLiteral("ytsearch1:") + searchQuery(title, artist) + QStringLiteral(" official audio"), track};
}

OEmbed parseOEmbed(const QByteArray &body) {
    QJsonParseError error;
    const QJsonDocument doc = QJsonDocument::fromJson(body, &error);
    if (error.error != QJsonParseError::NoError || !doc.isObject())
        return {};
    OEmbed answer;
    const QJsonObject object = doc.object();
    if (const QJsonValue title = object.value(QLatin1String("title")); title.isString())
        answer.title = title.toString();
    if (const QJsonValue thumb = object.value(QLatin1String("thumbnail_url")); thumb.isString()) {
        const QUrl url(thumb.toString(), QUrl::StrictMode);
        if (url.isValid() && !url.isEmpty())
            answer.thumbnail = url;
    }
    return answer;
}

Metadata parseTrackPage(const QString &html) {
    Metadata meta;
    meta.title = metaContent(html, QStringLiteral("og:title"));
    if (const auto description = metaContent(html, QStringLiteral("og:description")))
        if (const QString artist = artistFromDescription(*description); !artist.isNull())
            meta.artist = artist;
    if (const auto image = metaContent(html, QStringLiteral("og:image"))) {
        const QUrl url(*image, QUrl::StrictMode);
        if (url.isValid() && !url.isEmpty())
            meta.artwork = url;
    }
    return meta;
}

std::optional<QString> metaContent(const QString &html, const QString &property) {
    const QString propertyFirst =
        QStringLiteral("<meta[^>]*property=\"") + property + QStringLiteral("\"[^>]*content=\"([^\"]*)\"");
    const QString contentFirst =
        QStringLiteral("<meta[^>]*content=\"([^\"]*)\"[^>]*property=\"") + property + QStringLiteral("\"");
    if (auto found = firstCapture(html, propertyFirst))
        return found;
    return firstCapture(html, contentFirst);
}

QString decodeHTMLEntities(QString text) {
    // "&amp;" first, so "&amp;lt;" ends as "<".
    text.replace(QLatin1String("&amp;"), QLatin1String("&"));
    text.replace(QLatin1String("&#x27;"), QLatin1String("'"));
    text.replace(QLatin1String("&#39;"), QLatin1String("'"));
    text.replace(QLatin1String("&quot;"), QLatin1String("\""));
    text.replace(QLatin1String("&lt;"), QLatin1String("<"));
    text.replace(QLatin1String("&gt;"), QLatin1String(">"));
    return text;
}

QString cleanTitle(QString text) {
    text.replace(QLatin1String(" - song and lyrics by "), QLatin1String(" "), Qt::CaseInsensitive);
    text.replace(QLatin1String(" song and lyrics by "), QLatin1String(" "), Qt::CaseInsensitive);
    return text.trimmed();
}

QSet<QString> tokens(const QString &text) {
    QSet<QString> words;
    const QList<uint> codePoints = text.toLower().toUcs4();
    QString word;
    auto flush = [&] {
        if (word.size() >= 2 && std::find(std::begin(stopWords), std::end(stopWords), word) == std::end(stopWords))
            words.insert(word);
        word.clear();
    };
    for (const uint cp : codePoints) {
        const char32_t c = cp;
        if (QChar::isLetterOrNumber(c))
            word += QString::fromUcs4(&c, 1);
        else
            flush();
    }
    flush();
    return words;
}

double score(const YtDlp::SearchResult &candidate, const QString &title, const QString &artist) {
    const QString t = candidate.title.toLower();
    const QString c = candidate.channel.toLower();
    const QString wantedTitle = title.toLower();
    const QString wantedArtist = artist.toLower();
    double s = 0;

    const QSet<QString> resultTokens = tokens(t);
    if (const QSet<QString> titleTokens = tokens(wantedTitle); !titleTokens.isEmpty())
        s += 40.0 * double(QSet<QString>(titleTokens).intersect(resultTokens).size()) / double(titleTokens.size());

    if (!wantedArtist.isEmpty()) {
        if (t.contains(wantedArtist) || c.contains(wantedArtist))
            s += 25;
        if (const QSet<QString> artistTokens = tokens(wantedArtist); !artistTokens.isEmpty()) {
            const QSet<QString> channelTokens = tokens(c);
            qsizetype found = 0;
            for (const QString &word : artistTokens)
                if (resultTokens.contains(word) || channelTokens.contains(word))
                    ++found;
            s += 15.0 * double(found) / double(artistTokens.size());
        }
    }

    if (t.contains(QLatin1String("official audio")))
        s += 22;
    if (t.contains(QLatin1String("official video")) || t.contains(QLatin1String("official music video")))
        s += 12;
    if (c.endsWith(QLatin1String(" - topic")) || c.contains(QLatin1String("topic")))
        s += 18; // auto-generated artist channels carry the studio recording
    if (t.contains(QLatin1String("lyric")) && !t.contains(QLatin1String("karaoke")))
        s += 4;
    for (const Penalty &p : penalties)
        if (t.contains(p.word))
            s -= p.points;

    if (const auto d = candidate.durationSeconds) {
        if (*d < 60)
            s -= 25;
        if (*d > 900)
            s -= 20;
        if (*d >= 120 && *d <= 480)
            s += 8;
    }
    return s;
}

std::optional<YtDlp::SearchResult> pickBest(const QList<YtDlp::SearchResult> &candidates, const QString &title,
                                            const QString &artist) {
    if (candidates.isEmpty())
        return std::nullopt;
    // Highest score wins; on a tie the earlier search hit stays ahead.
    qsizetype best = 0;
    double bestScore = score(candidates[0], title, artist);
    for (qsizetype i = 1; i < candidates.size(); ++i) {
        const double s = score(candidates[i], title, artist);
        if (s > bestScore) {
            best = i;
            bestScore = s;
        }
    }
    return candidates[best];
}

QString taggedFileName(const SpotifyTrack &track) {
    QString name = track.artist.isEmpty() ? track.title : track.artist + QStringLiteral(" - ") + track.title;
    name.replace(u'/', u'-');
    name.replace(u':', u'-');
    return name;
}

QCoro::Task<QString> applyTags(SpotifyTrack track, QString file, Endpoint endpoint) {
    try {
        const QString ffmpeg = Tools::ffmpegURL();
        if (ffmpeg.isEmpty())
            co_return file;

        const QFileInfo info(file);
        const QString folder = info.absolutePath();
        const QString ext = info.suffix();
        FileGuard tagged{folder + QStringLiteral("/.vorlix-tag-") + newUuid() + u'.' + ext};
        const QString artPath = co_await downloadArt(track.artworkURL, endpoint);
        FileGuard art{artPath};

        QStringList args{QStringLiteral("-y"), QStringLiteral("-i"), file};
        if (!art.path.isEmpty())
            args << QStringLiteral("-i") << art.path;
        args << QStringLiteral("-map") << QStringLiteral("0:a");
        if (!art.path.isEmpty()) {
            args << QStringLiteral("-map") << QStringLiteral("1:0") << QStringLiteral("-c:v") << QStringLiteral("copy")
                 << QStringLiteral("-disposition:v") << QStringLiteral("attached_pic");
            // Many players only show covers from ID3v2.3 frames.
            if (ext.compare(QLatin1String("mp3"), Qt::CaseInsensitive) == 0)
                args << QStringLiteral("-id3v2_version") << QStringLiteral("3");
        }
        args << QStringLiteral("-c:a") << QStringLiteral("copy") << QStringLiteral("-metadata")
             << (QStringLiteral("title=") + track.title) << QStringLiteral("-metadata")
             << (QStringLiteral("artist=") + track.artist) << tagged.path;

        const Tools::RunResult result = co_await Tools::run(ffmpeg, args, 120);
        if (result.status != 0 || !QFileInfo::exists(tagged.path))
            co_return file;

        QString name = taggedFileName(track);
        if (name.trimmed().isEmpty())
            name = info.completeBaseName();
        // Checked while the download still sits under its own name, so a clash with it counts.
        QString destination = folder + u'/' + name + u'.' + ext;
        for (int n = 2; QFileInfo::exists(destination) || QFileInfo(destination).isSymLink(); ++n)
            destination = folder + u'/' + name + u' ' + QString::number(n) + u'.' + ext;

        // Move the tagged copy into place before letting go of the download, so a failed
        // move never costs the user the file.
        if (!QFile::rename(tagged.path, destination))
            co_return file;
        tagged.path.clear();
        QFile::remove(file);
        co_return destination;
    } catch (const std::exception &) {
        co_return file; // ffmpeg could not start: the download stays as it is
    }
}

} // namespace SpotifyResolver

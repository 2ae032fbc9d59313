#pragma once

#include "core/SiteAddresses.h"
#include "core/SpotifyTrack.h"
#include "discovery/YtDlpSearch.h"

#include <QCoroTask>
#include <QList>
#include <QSet>
#include <QString>
#include <QUrl>

#include <chrono>
#include <optional>

// Spotify streams cannot be downloaded: a track link becomes the best matching upload on the
// video site, and the finished audio file gets the Spotify title, artist and cover.
namespace SpotifyResolver {

struct Resolution {
    QString searchQuery; // a watch-page address, or a "ytsearch1:" expression
    SpotifyTrack track;
};

// What Spotify's public pages tell about a track; each part may be missing.
struct Metadata {
    std::optional<QString> title;
    std::optional<QString> artist;
    QUrl artwork; // empty when unknown
};

// Where the oEmbed endpoint lives and how long each request may stall; real() for the application.
struct Endpoint {
    QUrl oEmbedURL;
    std::chrono::milliseconds oEmbedTimeout{60000};
    std::chrono::milliseconds pageTimeout{12000};
    std::chrono::milliseconds artTimeout{60000};
    static Endpoint real() { return {QUrl(SiteAddresses::spotifyOEmbedEndpoint)}; }
};

bool isSpotifyTrackURL(const QString &link);

// Reads the track's facts and finds the recording to download. Throws
// YtDlpError::probeFailed("Couldn't read track info from that Spotify link.") when no title can be
// read; a failed or empty search falls back to a "ytsearch1:" expression.
QCoro::Task<Resolution> resolve(QString trackURL, Endpoint endpoint = Endpoint::real());

// Writes title, artist and cover into `file` (audio copied, never re-encoded) and renames it after
// the track. Returns the new path, or `file` unchanged when anything fails. Never throws.
QCoro::Task<QString> applyTags(SpotifyTrack track, QString file, Endpoint endpoint = Endpoint::real());

// The steps behind resolve, usable on their own.
QCoro::Task<Metadata> fetchMetadata(QString trackURL, Endpoint endpoint);
// The resolution for a track given the search's hits, or nothing when the search failed.
Resolution resolution(const QString &title, const QString &artist, const QUrl &artwork,
                      const std::optional<QList<YtDlp::SearchResult>> &candidates);
QString searchQuery(const QString &title, const QString &artist);

// Reading the oEmbed answer: what it has of a title and an artwork address; empty when unusable.
struct OEmbed {
    std::optional<QString> title;
    QUrl thumbnail;
};
OEmbed parseOEmbed(const QByteArray &body);

// Reading the track page.
Metadata parseTrackPage(const QString &html);
std::optional<QString> metaContent(const QString &html, const QString &property);
QString decodeHTMLEntities(QString text);
QString cleanTitle(QString text);

// Matching candidates to the track.
QSet<QString> tokens(const QString &text);
double score(const YtDlp::SearchResult &candidate, const QString &title, const QString &artist);
std::optional<YtDlp::SearchResult> pickBest(const QList<YtDlp::SearchResult> &candidates, const QString &title,
                                            const QString &artist);

// "Artist - Title" for a tagged file, with "/" and ":" made safe.
QString taggedFileName(const SpotifyTrack &track);

} // namespace SpotifyResolver

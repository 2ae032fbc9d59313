#pragma once

#include <QString>

// Every site address the application knows, in one place, so that link normalization, source
// detection, the clipboard filter, search and the discovery services all use the same strings.
namespace SiteAddresses {

// ---- Video and music sites (link normalization, probing, source detection, intake) ----

// (end of video and music sites)


// ---- Discovery services (Spotify, Openverse, cover art and images) ----

// Spotify's web player: track links, the track page and the oEmbed endpoint all live here.
inline const QString spotifyWebHost = QStringLiteral("open.spotify.com");
inline const QString spotifyWebBase = QStringLiteral("https://open.spotify.com");
inline const QString spotifyOEmbedPath = QStringLiteral("/oembed");
// The Openverse catalogue of openly licensed images.
inline const QString openverseApiBase = QStringLiteral("https://api.openverse.org");
inline const QString openverseImagesPath = QStringLiteral("/v1/images/");

// (end of discovery services)


// ---- Speech models and application updates ----

// (end of speech models and application updates)

} // namespace SiteAddresses

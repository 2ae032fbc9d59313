#pragma once

#include <QString>

// Every site address the application knows, in one place, so that link normalization, source
// detection, the clipboard filter, search and the discovery services all use the same strings.
namespace SiteAddresses {

// ---- Video and music sites (link normalization, probing, source detection, intake) ----

// YouTube. The bare domain matches every sub-domain (www., m., music.) inside a link.
inline const QString youTubeDomain = QStringLiteral("youtube.com");
inline const QString youTubeShortDomain = QStringLiteral("youtu.be");
inline const QString youTubeMusicDomain = QStringLiteral("music.youtube.com");
inline const QString youTubeSite = QStringLiteral("https://www.youtube.com");
inline const QString youTubeMusicSite = QStringLiteral("https://music.youtube.com");
// The standard watch address up to and including "?v="; a video id completes it.
inline const QString youTubeWatchPrefix = QStringLiteral("https://www.youtube.com/watch?v=");
// A channel's handle page: the domain immediately followed by "/@".
inline const QString youTubeChannelHandleMarker = QStringLiteral("youtube.com/@");

// Spotify's web player, where shared track links point.
inline const QString spotifyWebPlayerHost = QStringLiteral("open.spotify.com");

// (end of video and music sites)


// ---- Discovery services (Spotify, Openverse, cover art and images) ----

// (end of discovery services)


// ---- Speech models and application updates ----

// (end of speech models and application updates)

} // namespace SiteAddresses

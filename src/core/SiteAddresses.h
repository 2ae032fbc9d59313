#pragma once

#include <QString>

// Every site address the application knows, in one place, so that link normalization, source
// detection, the clipboard filter, search and the discovery services all use the same strings.
namespace SiteAddresses {

// ---- Video and music sites (link normalization, probing, source detection, intake) ----

// -- Source detection: the domains that identify each site (sub-domains belong too) --
inline constexpr QLatin1String youtubeSourceDomain{"youtube.com"};
inline constexpr QLatin1String youtubeShortLinkDomain{"youtu.be"};
inline constexpr QLatin1String spotifySourceDomain{"spotify.com"};
inline constexpr QLatin1String instagramDomain{"instagram.com"};
inline constexpr QLatin1String tiktokDomain{"tiktok.com"};
inline constexpr QLatin1String vimeoDomain{"vimeo.com"};
inline constexpr QLatin1String soundcloudDomain{"soundcloud.com"};
inline constexpr QLatin1String twitchDomain{"twitch.tv"};
inline constexpr QLatin1String facebookDomain{"facebook.com"};
inline constexpr QLatin1String facebookVideoLinkDomain{"fb.watch"};
inline constexpr QLatin1String xDomain{"x.com"};
inline constexpr QLatin1String twitterDomain{"twitter.com"};

// YouTube. The bare domain matches every sub-domain (www., m., music.) inside a link.
inline const QString youTubeDomain = QString(youtubeSourceDomain);
inline const QString youTubeShortDomain = QString(youtubeShortLinkDomain);
inline const QString youTubeMusicDomain = QStringLiteral("music.youtube.com");
inline const QString youTubeSite = QStringLiteral("https://www.youtube.com");
inline const QString youTubeMusicSite = QStringLiteral("https://music.youtube.com");
// The standard watch address up to and including "?v="; a video id completes it.
inline const QString youTubeWatchPrefix = QStringLiteral("https://www.youtube.com/watch?v=");
// The video site's image server; "/vi/<id>/mqdefault.jpg" is a video's 320×180 still.
inline const QString youTubeThumbnailServer = QStringLiteral("https://i.ytimg.com");
// A channel's handle page: the domain immediately followed by "/@".
inline const QString youTubeChannelHandleMarker = QStringLiteral("youtube.com/@");

// Spotify's web player, where shared track links point.
inline const QString spotifyWebPlayerHost = QStringLiteral("open.spotify.com");

// Accepted by the clipboard filter although source detection files them under "other".
inline constexpr QLatin1String dailymotionDomain{"dailymotion.com"};
inline constexpr QLatin1String bandcampDomain{"bandcamp.com"};

// (end of video and music sites)


// ---- Discovery services (Spotify, Openverse, cover art and images) ----

// Spotify's oEmbed endpoint, on the web player's host (spotifyWebPlayerHost above).
inline const QString spotifyOEmbedEndpoint = QStringLiteral("https://open.spotify.com/oembed");
// The Openverse catalogue of openly licensed images.
inline const QString openverseApiBase = QStringLiteral("https://api.openverse.org");
inline const QString openverseImagesPath = QStringLiteral("/v1/images/");

// (end of discovery services)


// ---- Speech models and application updates ----

// The whisper.cpp ggml model repository; "ggml-<name>.bin" is fetched below it. The host answers
// with a redirect to its download CDN.
inline const QString speechModelRepository = QStringLiteral("https://huggingface.co/ggerganov/whisper.cpp/resolve/main/");

// (end of speech models and application updates)

} // namespace SiteAddresses

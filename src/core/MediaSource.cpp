#include "core/MediaSource.h"

#include "core/SiteAddresses.h"

#include <QUrl>

namespace {
struct SiteDomain {
    MediaSource::Value source;
    QLatin1String domain;
};

// Sites in detection order, each site's domains in the order they are tested.
constexpr SiteDomain siteDomains[] = {
    {MediaSource::youtube, SiteAddresses::youtubeSourceDomain},
    {MediaSource::youtube, SiteAddresses::youtubeShortLinkDomain},
    {MediaSource::spotify, SiteAddresses::spotifySourceDomain},
    {MediaSource::instagram, SiteAddresses::instagramDomain},
    {MediaSource::tiktok, SiteAddresses::tiktokDomain},
    {MediaSource::vimeo, SiteAddresses::vimeoDomain},
    {MediaSource::soundcloud, SiteAddresses::soundcloudDomain},
    {MediaSource::twitch, SiteAddresses::twitchDomain},
    {MediaSource::facebook, SiteAddresses::facebookDomain},
    {MediaSource::facebook, SiteAddresses::facebookVideoLinkDomain},
    {MediaSource::x, SiteAddresses::xDomain},
    {MediaSource::x, SiteAddresses::twitterDomain},
};
} // namespace

QString MediaSource::rawValue() const {
    switch (m_value) {
    case youtube: return QStringLiteral("YouTube");
    case spotify: return QStringLiteral("Spotify");
    case instagram: return QStringLiteral("Instagram");
    case tiktok: return QStringLiteral("TikTok");
    case vimeo: return QStringLiteral("Vimeo");
    case soundcloud: return QStringLiteral("SoundCloud");
    case twitch: return QStringLiteral("Twitch");
    case facebook: return QStringLiteral("Facebook");
    case x: return QStringLiteral("X");
    case other: break;
    }
    return QStringLiteral("Other");
}

MediaSource MediaSource::fromRawValue(const QString &raw) {
    for (Value v : allCases)
        if (MediaSource(v).rawValue() == raw)
            return v;
    return other;
}

bool MediaSource::hostBelongs(const QString &host, QLatin1String domain) {
    if (!host.endsWith(domain))
        return false;
    const qsizetype rest = host.size() - domain.size();
    return rest == 0 || host.at(rest - 1) == u'.';
}

MediaSource MediaSource::detect(const QString &link) {
    const QUrl url(link);
    if (!url.isValid())
        return other;
    QString host = url.host().toLower();
    // A fully qualified "youtube.com." is the same host.
    if (host.endsWith(u'.'))
        host.chop(1);
    if (host.isEmpty())
        return other;
    for (const SiteDomain &site : siteDomains)
        if (hostBelongs(host, site.domain))
            return site.source;
    return other;
}

#include "core/MediaCategory.h"

#include <QUrl>

namespace MediaCategory {

const QHash<QString, QString> &youtubeMap() {
    // Function-local statics: built once, on first use, thread-safely.
    static const QHash<QString, QString> map{
        {QStringLiteral("Education"), QStringLiteral("Education")},
        {QStringLiteral("Howto & Style"), QStringLiteral("Tutorials")},
        {QStringLiteral("Music"), QStringLiteral("Music")},
        {QStringLiteral("Entertainment"), QStringLiteral("Entertainment")},
        {QStringLiteral("Gaming"), QStringLiteral("Gaming")},
        {QStringLiteral("Sports"), QStringLiteral("Sports")},
        {QStringLiteral("News & Politics"), QStringLiteral("News")},
        {QStringLiteral("People & Blogs"), QStringLiteral("Vlogs")},
        {QStringLiteral("Film & Animation"), QStringLiteral("Films")},
        {QStringLiteral("Science & Technology"), QStringLiteral("Tech")},
        {QStringLiteral("Comedy"), QStringLiteral("Comedy")},
        {QStringLiteral("Travel & Events"), QStringLiteral("Vlogs")},
        {QStringLiteral("Autos & Vehicles"), QStringLiteral("Entertainment")},
        {QStringLiteral("Pets & Animals"), QStringLiteral("Entertainment")},
        {QStringLiteral("Nonprofits & Activism"), QStringLiteral("News")},
    };
    return map;
}

const QList<KeywordRule> &keywordRules() {
    static const QList<KeywordRule> rules{
        {{QStringLiteral("tutorial"), QStringLiteral("how to"), QStringLiteral("lesson"), QStringLiteral("course"),
          QStringLiteral("masterclass"), QStringLiteral("learn "), QStringLiteral("explained"),
          QStringLiteral("beginner"), QStringLiteral("step by step"), QStringLiteral("practice routine"),
          QStringLiteral("exercise")},
         QStringLiteral("Tutorials")},
        {{QStringLiteral("podcast"), QStringLiteral("interview"), QStringLiteral(" ep."), QStringLiteral("episode"),
          QStringLiteral("q&a"), QStringLiteral("fireside")},
         QStringLiteral("Podcasts")},
        {{QStringLiteral("official video"), QStringLiteral("official audio"), QStringLiteral("lyric"),
          QStringLiteral("live at"), QStringLiteral("concert"), QStringLiteral("cover)"), QStringLiteral("cover |"),
          QStringLiteral(" cover"), QStringLiteral("remix"), QStringLiteral("feat."), QStringLiteral(" ft."),
          QStringLiteral("unplugged"), QStringLiteral("full album"), QStringLiteral("single)"),
          QStringLiteral("jam session")},
         QStringLiteral("Music")},
        {{QStringLiteral("vlog"), QStringLiteral("day in the life"), QStringLiteral("behind the scenes")},
         QStringLiteral("Vlogs")},
        {{QStringLiteral("highlights"), QStringLiteral("match"), QStringLiteral("vs "), QStringLiteral("final"),
          QStringLiteral("championship")},
         QStringLiteral("Sports")},
        {{QStringLiteral("review"), QStringLiteral("unboxing"), QStringLiteral("benchmark")}, QStringLiteral("Tech")},
        {{QStringLiteral("standup"), QStringLiteral("stand-up"), QStringLiteral("sketch"), QStringLiteral("funny")},
         QStringLiteral("Comedy")},
    };
    return rules;
}

QString classify(MediaSource source, DownloadMode mode, const QStringList &youtubeCategories, const QString &title) {
    if (source == MediaSource::spotify || source == MediaSource::soundcloud)
        return QStringLiteral("Music");

    // The padding lets keywords that start or end with a space match at the title's edges.
    const QString haystack = u' ' + title.toLower() + u' ';
    for (const KeywordRule &rule : keywordRules())
        for (const QString &keyword : rule.keywords)
            if (haystack.contains(keyword))
                return rule.genre;

    // Only the first category counts: the site lists the main one first.
    if (!youtubeCategories.isEmpty()) {
        const auto it = youtubeMap().constFind(youtubeCategories.first());
        if (it != youtubeMap().constEnd())
            return *it;
    }
    return mode == DownloadMode::audioOnly ? QStringLiteral("Music") : QStringLiteral("Videos");
}

QString libraryFolder(MediaSource source, DownloadMode mode, bool hasClip, const std::optional<QString> &category,
                      const QString &link) {
    // A clipped audio download is a sound effect, whatever the site.
    if (mode == DownloadMode::audioOnly && hasClip)
        return source.rawValue() + QStringLiteral("/Sound FX");

    switch (source) {
    case MediaSource::youtube:
        if (mode == DownloadMode::audioOnly)
            return QStringLiteral("YouTube/Audio");
        return QStringLiteral("YouTube/") + (category && !category->isEmpty() ? *category : QStringLiteral("Videos"));
    case MediaSource::spotify:
        return QStringLiteral("Spotify");
    case MediaSource::instagram: {
        const QUrl url(link);
        const QString path = url.isValid() ? url.path().toLower() : QString();
        if (path.contains(QLatin1String("/reel")))
            return QStringLiteral("Instagram/Reels");
        if (path.contains(QLatin1String("/stories")))
            return QStringLiteral("Instagram/Stories");
        return QStringLiteral("Instagram/Posts");
    }
    default:
        return source.rawValue();
    }
}

} // namespace MediaCategory

#pragma once

#include "core/DownloadMode.h"
#include "core/MediaSource.h"

#include <QHash>
#include <QString>
#include <QStringList>

#include <optional>

// The genre of a download and the library sub-folder it is filed into. Pure functions over two
// constant tables; safe from any thread.
namespace MediaCategory {

struct KeywordRule {
    QStringList keywords; // lower case; surrounding spaces are part of a keyword
    QString genre;
};

// YouTube's own category names (exact, case-sensitive) to our genres.
const QHash<QString, QString> &youtubeMap();
// Title keyword rules in priority order.
const QList<KeywordRule> &keywordRules();

// Never empty: the source rule, then title keywords, then the first platform category, then the
// download mode.
QString classify(MediaSource source, DownloadMode mode, const QStringList &youtubeCategories, const QString &title);

// Relative folder ("YouTube/Music", "Instagram/Reels", "TikTok") inside the download folder.
QString libraryFolder(MediaSource source, DownloadMode mode, bool hasClip, const std::optional<QString> &category,
                      const QString &link);

} // namespace MediaCategory

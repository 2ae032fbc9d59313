#include "core/DownloadItem.h"

DownloadItem::DownloadItem(QString url, DownloadMode mode, std::optional<ClipRange> clip,
                           std::optional<QString> title)
    : m_id(QUuid::createUuid()), m_url(std::move(url)), m_addedAt(QDateTime::currentDateTimeUtc()), m_mode(mode),
      m_clip(std::move(clip)), m_title(title ? *title : m_url) {}

QString DownloadItem::idString() const { return m_id.toString(QUuid::WithoutBraces).toUpper(); }

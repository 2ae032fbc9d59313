#include "queue/ClipboardWatcher.h"

#include "core/AppSettings.h"
#include "core/SiteAddresses.h"
#include "queue/ClipboardSource.h"
#include "queue/DownloadQueue.h"

#include <QRegularExpression>
#include <QUrl>

#include <algorithm>

ClipboardWatcher::ClipboardWatcher(ClipboardSource &clipboard, AppSettings &settings, DownloadQueue &queue,
                                   QObject *parent)
    : QObject(parent), m_clipboard(clipboard), m_settings(settings), m_queue(queue),
      m_lastChangeCount(clipboard.changeCount())
{
}

ClipboardWatcher::~ClipboardWatcher() = default;

const QStringList &ClipboardWatcher::mediaHosts()
{
    static const QStringList hosts{
        SiteAddresses::youtubeSourceDomain, SiteAddresses::youtubeShortLinkDomain, SiteAddresses::youTubeMusicDomain,
        SiteAddresses::vimeoDomain,         SiteAddresses::tiktokDomain,           SiteAddresses::instagramDomain,
        SiteAddresses::facebookDomain,      SiteAddresses::facebookVideoLinkDomain, SiteAddresses::soundcloudDomain,
        SiteAddresses::twitchDomain,        SiteAddresses::dailymotionDomain,      SiteAddresses::xDomain,
        SiteAddresses::twitterDomain,       SiteAddresses::spotifyWebPlayerHost,   SiteAddresses::bandcampDomain,
    };
    return hosts;
}

bool ClipboardWatcher::isMediaURL(const QString &text)
{
    const QString t = text.trimmed();
    // Any kind of space inside (a no-break space, say) means text around a link, not a link.
    if (!t.toLower().startsWith(QLatin1String("http")) ||
        std::any_of(t.cbegin(), t.cend(), [](QChar c) { return c.isSpace(); }))
        return false;
    const QUrl url(t, QUrl::StrictMode);
    if (!url.isValid() || url.host().isEmpty())
        return false;
    const QString host = url.host().toLower();
    for (const QString &entry : mediaHosts())
        if (host == entry || host.endsWith(u'.' + entry))
            return true;
    return false;
}

void ClipboardWatcher::start()
{
    stop();
    m_lastChangeCount = m_clipboard.changeCount();
    m_timer = std::make_unique<QTimer>();
    m_timer->setInterval(intervalMs);
    connect(m_timer.get(), &QTimer::timeout, this, &ClipboardWatcher::check);
    m_timer->start();
}

void ClipboardWatcher::stop()
{
    m_timer.reset();
}

void ClipboardWatcher::check()
{
    if (!m_settings.smartMode())
        return;
    const qint64 count = m_clipboard.changeCount();
    if (count == m_lastChangeCount)
        return;
    // Recorded before anything else, so each change is looked at exactly once.
    m_lastChangeCount = count;
    const auto text = m_clipboard.text();
    if (!text)
        return;

    const QString trimmed = text->trimmed();
    static const QRegularExpression lineBreaks(QStringLiteral("[\\n\\v\\f\\r\\x{0085}\\x{2028}\\x{2029}]"));
    // Only the first line counts; a huge clipboard is cut at the first break without splitting it all.
    const auto firstBreak = trimmed.indexOf(lineBreaks);
    // Trimmed of every kind of space, so the queued link never carries a no-break space along.
    const QString piece =
        (firstBreak < 0 ? QStringView(trimmed) : QStringView(trimmed).left(firstBreak)).trimmed().toString();
    if (!isMediaURL(piece))
        return;
    m_queue.add(piece);
    m_queue.setLastMessage(QStringLiteral("Smart Mode \u00B7 queued link"));
}

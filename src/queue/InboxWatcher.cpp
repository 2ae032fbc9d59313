#include "queue/InboxWatcher.h"

#include "core/AppSettings.h"
#include "core/TextTrim.h"
#include "core/Utf8.h"
#include "queue/DownloadQueue.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

namespace {

bool writeEmpty(const QString &path)
{
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return false;
    return file.commit();
}

} // namespace

InboxWatcher &InboxWatcher::shared()
{
    static InboxWatcher *watcher =
        new InboxWatcher(AppSettings::shared(), DownloadQueue::shared(), &InboxWatcher::defaultInboxPath);
    return *watcher;
}

InboxWatcher::InboxWatcher(AppSettings &settings, DownloadQueue &queue, PathProvider inboxPath, QObject *parent)
    : QObject(parent), m_settings(settings), m_queue(queue), m_inboxPath(std::move(inboxPath))
{
}

InboxWatcher::~InboxWatcher() = default;

QString InboxWatcher::syncServiceName(const QString &inboxPath)
{
    // <synced folder>/Vorlix/inbox.txt; ~/Sync is Syncthing's default folder.
    const QString folder = QFileInfo(QFileInfo(QFileInfo(inboxPath).path()).path()).fileName();
    if (folder == QLatin1String("Nextcloud") || folder == QLatin1String("Dropbox"))
        return folder;
    return QStringLiteral("Syncthing");
}

QString InboxWatcher::defaultInboxPath()
{
    const QDir home(QDir::homePath());
    QString synced = home.filePath(QStringLiteral("Sync"));
    for (const auto name : {QLatin1String("Nextcloud"), QLatin1String("Dropbox"), QLatin1String("Sync")}) {
        if (QFileInfo(home.filePath(name)).isDir()) {
            synced = home.filePath(name);
            break;
        }
    }
    return QDir(synced).filePath(QStringLiteral("Vorlix/inbox.txt"));
}

void InboxWatcher::start()
{
    m_timer.reset();
    const QString path = m_inboxPath();
    QDir().mkpath(QFileInfo(path).absolutePath());
    if (!QFileInfo::exists(path))
        writeEmpty(path);

    m_timer = std::make_unique<QTimer>();
    m_timer->setInterval(intervalMs);
    connect(m_timer.get(), &QTimer::timeout, this, &InboxWatcher::drain);
    m_timer->start();
}

void InboxWatcher::drain()
{
    if (!m_settings.watchiCloudInbox())
        return;
    const QString path = m_inboxPath();
    QFile file(path);
    if (file.size() > maxInboxBytes || !file.open(QIODevice::ReadOnly))
        return;
    const auto content = decodeUtf8Strict(file.readAll());
    file.close();
    if (!content || content->trimmed().isEmpty())
        return;
    // A file we could not empty last time would otherwise queue the same links every tick.
    if (m_uncleared && *m_uncleared == *content)
        return;
    m_uncleared.reset();

    QStringList links;
    const auto lines = content->split(u'\n', Qt::SkipEmptyParts);
    for (const QString &line : lines) {
        // Only spaces and tabs are trimmed; a CR from a CRLF file is dropped by the queue's
        // normalization.
        const QString piece = trimSpacesAndTabs(line).toString();
        if (piece.toLower().startsWith(QLatin1String("http")))
            links.append(piece);
    }
    if (links.isEmpty())
        return;

    // Emptied before queuing, so a crash while adding never queues the same links twice.
    if (!writeEmpty(path))
        m_uncleared = *content;
    for (const QString &link : std::as_const(links))
        m_queue.add(link);
    const auto n = links.size();
    m_queue.setLastMessage(QStringLiteral("Phone \u00B7 queued ") + QString::number(n)
                           + (n == 1 ? QStringLiteral(" link") : QStringLiteral(" links")));
}

#include "queue/InboxWatcher.h"

#include "core/AppSettings.h"
#include "core/Utf8.h"
#include "queue/DownloadQueue.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

#include <algorithm>

namespace {

bool writeEmpty(const QString &path)
{
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return false;
    return file.commit();
}

// Replaces `path` by its bytes from `offset` on, copied in pieces (the rest may be large).
bool keepFrom(const QString &path, qint64 offset)
{
    QFile in(path);
    QSaveFile out(path);
    if (!in.open(QIODevice::ReadOnly) || !in.seek(offset) || !out.open(QIODevice::WriteOnly))
        return false;
    while (!in.atEnd()) {
        const QByteArray piece = in.read(1 << 20);
        if (piece.isEmpty() || out.write(piece) != piece.size()) {
            out.cancelWriting();
            return false;
        }
    }
    return out.commit();
}

// The links of an inbox's lines: each line trimmed of any kind of space, its link ending at the
// first space inside (a phone may add a no-break space after a shared link).
QStringList linksIn(const QString &content)
{
    QStringList links;
    const auto lines = content.split(u'\n', Qt::SkipEmptyParts);
    for (const QString &line : lines) {
        const QString piece = line.trimmed();
        const auto space = std::find_if(piece.cbegin(), piece.cend(), [](QChar c) { return c.isSpace(); });
        const QString link = piece.left(space - piece.cbegin());
        if (link.toLower().startsWith(QLatin1String("http")))
            links.append(link);
    }
    return links;
}

QString queuedMessage(qsizetype n)
{
    return QStringLiteral("iPhone \u00B7 queued ") + QString::number(n) + (n == 1 ? QStringLiteral(" link") : QStringLiteral(" links"));
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
    if (file.size() > maxInboxBytes) {
        drainOversized(path);
        return;
    }
    m_toldOversized = false;
    if (!file.open(QIODevice::ReadOnly))
        return;
    const auto content = decodeUtf8Strict(file.readAll());
    file.close();
    if (!content || content->trimmed().isEmpty())
        return;
    // A file we could not empty last time would otherwise queue the same links every tick.
    if (m_uncleared && *m_uncleared == *content)
        return;
    m_uncleared.reset();

    const QStringList links = linksIn(*content);
    if (links.isEmpty())
        return;

    // Emptied before queuing, so a crash while adding never queues the same links twice.
    if (!writeEmpty(path))
        m_uncleared = *content;
    for (const QString &link : std::as_const(links))
        m_queue.add(link);
    m_queue.setLastMessage(queuedMessage(links.size()));
}

void InboxWatcher::drainOversized(const QString &path)
{
    // Something appended far more than links; rather than never reading it again, take the
    // first whole lines that fit and leave the rest for the next polls.
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return;
    QByteArray head = file.read(maxInboxBytes);
    file.close();
    const qsizetype lastNewline = head.lastIndexOf('\n');
    if (lastNewline >= 0)
        head.truncate(lastNewline + 1); // else one endless line: no link, dropped whole
    if (!keepFrom(path, head.size()))
        return; // taking the links again next time is worse than waiting
    const QStringList links = linksIn(decodeUtf8Lossy(head));
    for (const QString &link : links)
        m_queue.add(link);
    if (!m_toldOversized)
        m_queue.setLastMessage(queuedMessage(links.size()) + QStringLiteral(" \u00B7 inbox over 4 MB, the rest follows"));
    else if (!links.isEmpty())
        m_queue.setLastMessage(queuedMessage(links.size()));
    m_toldOversized = true;
}

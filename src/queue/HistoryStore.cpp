#include "queue/HistoryStore.h"

#include "core/AppSettings.h"
#include "core/DownloadItem.h"
#include "core/MediaSource.h"
#include "core/TempFile.h"
#include "queue/HistoryJson.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QMutex>
#include <QTemporaryFile>
#include <QUrl>

#include <optional>

#include <cstdio>
#include <unistd.h>

namespace {
// A history this large is not ours; reading it would only exhaust memory.
constexpr qint64 maxFileSize = qint64(1) << 30;

// Saves write a hidden sibling under this prefix and rename it over the file. A crash mid-save
// leaves one behind; no user names a file like that, so start-up sweeps those of earlier runs.
QString saveCopyPrefix(const QFileInfo &file) { return u'.' + file.fileName() + QStringLiteral(".vorlix-save-"); }

// The first free "<name>.unreadable-<date>" beside `path`.
QString asideName(const QString &path, const QDate &date) {
    const QString base = path + QStringLiteral(".unreadable-") + date.toString(Qt::ISODate);
    QString candidate = base;
    for (int n = 2; QFileInfo::exists(candidate) || QFileInfo(candidate).isSymLink(); ++n)
        candidate = base + u'-' + QString::number(n);
    return candidate;
}

std::optional<QList<HistoryEntry>> read(QFile &file) {
    if (!file.open(QIODevice::ReadOnly) || file.size() > maxFileSize)
        return std::nullopt;
    if (file.size() == 0)
        return QList<HistoryEntry>(); // nothing there to lose
    // Mapped rather than read: a large history is parsed straight from the page cache. Saves
    // replace the file by renaming a new one over it, so the mapped bytes never change under us.
    if (const uchar *mapped = file.map(0, file.size())) {
        auto entries = HistoryJson::decode(QByteArrayView(mapped, file.size()));
        file.unmap(const_cast<uchar *>(mapped));
        return entries;
    }
    return HistoryJson::decode(file.readAll());
}

bool writeAtomically(const QString &path, const QList<HistoryEntry> &entries) {
    const QFileInfo info(path);
    QDir().mkpath(info.absolutePath());
    QTemporaryFile file(info.absolutePath() + u'/' + saveCopyPrefix(info) + QStringLiteral("XXXXXX"));
    if (!file.open())
        return false;
    // flush() surfaces a refused write (full disk, size limit); fsync makes the rename safe.
    if (!HistoryJson::write(file, entries) || !file.flush() || ::fsync(file.handle()) != 0)
        return false;
    if (::rename(QFile::encodeName(file.fileName()).constData(), QFile::encodeName(path).constData()) != 0)
        return false;
    file.setAutoRemove(false);
    return true;
}
} // namespace

// The background side of save(): holds the newest unsaved state and drains it on one thread.
struct HistoryStore::Writer {
    QString path;
    bool blocked = false; // the file on disk could not be read nor moved aside: never replace it
    QMutex mutex;
    std::optional<QList<HistoryEntry>> pending; // guarded by mutex
    bool draining = false;                      // guarded by mutex

    void drain() {
        for (;;) {
            QList<HistoryEntry> snapshot;
            {
                QMutexLocker lock(&mutex);
                if (!pending || blocked) {
                    draining = false;
                    return;
                }
                snapshot = std::move(*pending);
                pending.reset();
            }
            // A failed write is not reported: the previous file stays and the next change retries.
            writeAtomically(path, snapshot);
        }
    }
};

HistoryStore::HistoryStore(const QString &filePath, Clock clock, QObject *parent)
    : QObject(parent), m_filePath(filePath), m_clock(std::move(clock)), m_writer(std::make_shared<Writer>()) {
    if (!m_clock)
        m_clock = [] { return QDateTime::currentDateTimeUtc(); };
    m_writer->path = m_filePath;
    m_savePool.setMaxThreadCount(1);
    load();
}

void HistoryStore::load() {
    const QFileInfo info(m_filePath);
    removeStaleLeftovers(info.absolutePath(), saveCopyPrefix(info));
    QFile file(m_filePath);
    if (!file.exists())
        return;
    if (auto entries = read(file)) {
        m_entries = std::move(*entries);
        return;
    }
    file.close();
    // Whatever is in there is the user's history in a form we cannot read: keep it, never save over it.
    const QString aside = asideName(m_filePath, m_clock().date());
    if (QFile::rename(m_filePath, aside)) {
        m_loadNotice = QStringLiteral("History could not be read \u00B7 kept as ") + QFileInfo(aside).fileName();
    } else {
        m_writer->blocked = true;
        m_loadNotice = QStringLiteral("History could not be read \u00B7 new downloads are not being saved to it");
    }
}

HistoryStore::~HistoryStore() { waitForPendingSave(); }

HistoryStore &HistoryStore::shared() {
    static HistoryStore store(AppSettings::appSupportDir() + QStringLiteral("/history.json"));
    return store;
}

void HistoryStore::record(const DownloadItem &item) {
    const QDateTime now = m_clock();
    const QUrl &file = item.finalFileURL();
    const std::optional<QString> path =
        file.isLocalFile() ? std::optional<QString>(file.toLocalFile()) : std::nullopt;
    for (qsizetype i = 0; i < m_entries.size(); ++i) {
        if (m_entries.at(i).url() == item.url()) {
            // A re-download keeps its place, id and classification.
            HistoryEntry &e = m_entries[i];
            e.setDate(now);
            e.setTitle(item.title());
            e.setFilePath(path);
            changed();
            return;
        }
    }

    HistoryEntry e;
    e.setId(QUuid::createUuid());
    e.setUrl(item.url());
    e.setTitle(item.title());
    e.setSource(MediaSource::detect(item.url()).rawValue());
    e.setCategory(item.category() && !item.category()->isEmpty() ? *item.category() : QStringLiteral("Videos"));
    e.setMode(DownloadModes::label(item.mode()));
    e.setDate(now);
    e.setFilePath(path);
    m_entries.prepend(std::move(e));
    changed();
}

void HistoryStore::add(const HistoryEntry &entry) {
    m_entries.prepend(entry);
    changed();
}

void HistoryStore::toggleArchive(const HistoryEntry &entry) {
    const qsizetype i = m_entries.indexOf(entry);
    if (i < 0)
        return;
    HistoryEntry &e = m_entries[i];
    e.setArchived(!e.archived());
    changed();
}

void HistoryStore::deleteEntry(const HistoryEntry &entry) {
    const QUuid id = entry.id();
    if (m_entries.removeIf([&id](const HistoryEntry &e) { return e.id() == id; }) > 0)
        Q_EMIT entriesChanged();
    save();
}

void HistoryStore::clearUnarchived() {
    if (m_entries.removeIf([](const HistoryEntry &e) { return !e.archived(); }) > 0)
        Q_EMIT entriesChanged();
    save();
}

void HistoryStore::changed() {
    Q_EMIT entriesChanged();
    save();
}

void HistoryStore::save() {
    QMutexLocker lock(&m_writer->mutex);
    // The list is shared, not copied, until the next change detaches it.
    m_writer->pending = m_entries;
    if (m_writer->draining)
        return;
    m_writer->draining = true;
    m_savePool.start([writer = m_writer] { writer->drain(); });
}

void HistoryStore::waitForPendingSave() { m_savePool.waitForDone(); }

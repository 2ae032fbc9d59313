#include "queue/HistoryStore.h"

#include "core/AppSettings.h"
#include "core/DownloadItem.h"
#include "core/MediaSource.h"
#include "queue/HistoryJson.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QMutex>
#include <QSaveFile>
#include <QUrl>

#include <optional>

namespace {
// A history this large is not ours; reading it would only exhaust memory.
constexpr qint64 maxFileSize = qint64(1) << 30;

// A save cut short by a crash can leave its unfinished temporary copy ("history.json.XXXXXX")
// beside the file; nothing else ever names a file like that, so it is safe to sweep at start.
void removeStaleSaveCopies(const QString &path) {
    const QFileInfo info(path);
    QDir dir = info.absoluteDir();
    const QString prefix = info.fileName() + u'.';
    const auto names = dir.entryList({prefix + QStringLiteral("*")}, QDir::Files | QDir::Hidden);
    for (const QString &name : names)
        if (name.size() == prefix.size() + 6)
            dir.remove(name);
}

QList<HistoryEntry> load(const QString &path) {
    removeStaleSaveCopies(path);
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly) || file.size() > maxFileSize)
        return {};
    // Mapped rather than read: a large history is parsed straight from the page cache. Saves
    // replace the file by renaming a new one over it, so the mapped bytes never change under us.
    if (const uchar *mapped = file.map(0, file.size())) {
        auto entries = HistoryJson::decode(QByteArrayView(mapped, file.size()));
        file.unmap(const_cast<uchar *>(mapped));
        return entries.value_or(QList<HistoryEntry>());
    }
    return HistoryJson::decode(file.readAll()).value_or(QList<HistoryEntry>());
}

bool writeAtomically(const QString &path, const QList<HistoryEntry> &entries) {
    QDir().mkpath(QFileInfo(path).absolutePath());
    QSaveFile file(path);
    // Unbuffered, so a refused write (full disk, size limit) fails here rather than being
    // swallowed by a buffer flush inside commit().
    if (!file.open(QIODevice::WriteOnly | QIODevice::Unbuffered))
        return false;
    if (!HistoryJson::write(file, entries)) {
        file.cancelWriting();
        return false;
    }
    return file.commit();
}
} // namespace

// The background side of save(): holds the newest unsaved state and drains it on one thread.
struct HistoryStore::Writer {
    QString path;
    QMutex mutex;
    std::optional<QList<HistoryEntry>> pending; // guarded by mutex
    bool draining = false;                      // guarded by mutex

    void drain() {
        for (;;) {
            QList<HistoryEntry> snapshot;
            {
                QMutexLocker lock(&mutex);
                if (!pending) {
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
    : QObject(parent), m_filePath(filePath), m_clock(std::move(clock)), m_entries(load(filePath)),
      m_writer(std::make_shared<Writer>()) {
    if (!m_clock)
        m_clock = [] { return QDateTime::currentDateTimeUtc(); };
    m_writer->path = m_filePath;
    m_savePool.setMaxThreadCount(1);
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

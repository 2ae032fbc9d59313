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
#include <utility>

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
    // Mapped rather than read: the parser works straight from the page cache, its reads past
    // the end landing in the zeros of the last page. Saves rename a new file over this one, so
    // the mapped bytes never change under us.
    if (const uchar *mapped = file.map(0, file.size())) {
        const qsizetype page = ::sysconf(_SC_PAGESIZE);
        const qsizetype readable = (file.size() + page - 1) / page * page;
        auto entries = HistoryJson::decode(QByteArrayView(mapped, file.size()), readable);
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

struct HistoryStore::Loaded {
    QList<HistoryEntry> entries;
    std::optional<QString> notice;
    bool blocked = false;
};

HistoryStore::HistoryStore(const QString &filePath, Clock clock, QObject *parent)
    : HistoryStore(filePath, Loading::now, std::move(clock), parent) {}

HistoryStore::HistoryStore(const QString &filePath, Loading loading, Clock clock, QObject *parent)
    : QObject(parent), m_filePath(filePath), m_clock(std::move(clock)), m_writer(std::make_shared<Writer>()) {
    if (!m_clock)
        m_clock = [] { return QDateTime::currentDateTimeUtc(); };
    m_writer->path = m_filePath;
    m_savePool.setMaxThreadCount(1);
    if (loading == Loading::now) {
        m_loading = true;
        m_read = std::make_shared<Loaded>(readFile(m_clock().date()));
        finishLoading();
    }
}

HistoryStore::Loaded HistoryStore::readFile(const QDate &today) const {
    Loaded result;
    const QFileInfo info(m_filePath);
    removeStaleLeftovers(info.absolutePath(), saveCopyPrefix(info));
    QFile file(m_filePath);
    if (!file.exists())
        return result;
    if (auto entries = read(file)) {
        result.entries = std::move(*entries);
        return result;
    }
    file.close();
    // Whatever is in there is the user's history in a form we cannot read: keep it, never save over it.
    const QString aside = asideName(m_filePath, today);
    if (QFile::rename(m_filePath, aside)) {
        result.notice = QStringLiteral("History could not be read \u00B7 kept as ") + QFileInfo(aside).fileName();
    } else {
        result.blocked = true;
        result.notice = QStringLiteral("History could not be read \u00B7 new downloads are not being saved to it");
    }
    return result;
}

void HistoryStore::startLoading() {
    if (m_loading)
        return;
    m_loading = true;
    // On the save thread, so that no save can start before the file has been read.
    m_savePool.start([this, today = m_clock().date()] {
        auto result = std::make_shared<Loaded>(readFile(today));
        {
            QMutexLocker lock(&m_writer->mutex);
            m_read = std::move(result);
        }
        // The destructor waits for this pool, so `this` is alive; a call queued to a store
        // deleted meanwhile is dropped.
        QMetaObject::invokeMethod(this, &HistoryStore::finishLoading, Qt::QueuedConnection);
    });
}

void HistoryStore::waitUntilLoaded() {
    startLoading();
    m_savePool.waitForDone();
    finishLoading();
}

void HistoryStore::finishLoading() {
    if (m_loaded)
        return;
    std::shared_ptr<Loaded> result;
    {
        QMutexLocker lock(&m_writer->mutex);
        result = std::move(m_read);
        m_writer->blocked = result && result->blocked;
    }
    if (!result)
        return;
    m_loaded = true;
    m_entries = std::move(result->entries);
    m_loadNotice = std::move(result->notice);
    if (!m_entries.isEmpty())
        Q_EMIT entriesChanged();
    Q_EMIT loaded();
    for (const auto &change : std::exchange(m_waitingChanges, {}))
        change();
}

void HistoryStore::whenLoaded(std::function<void()> change) {
    if (m_loaded) {
        change();
        return;
    }
    m_waitingChanges.append(std::move(change));
    startLoading();
}

HistoryStore::~HistoryStore() { waitForPendingSave(); }

HistoryStore &HistoryStore::shared() {
    static HistoryStore store(AppSettings::appSupportDir() + QStringLiteral("/history.json"), Loading::inBackground);
    return store;
}

void HistoryStore::record(const DownloadItem &item) {
    // What to record is taken now; where it goes depends on the history, which may still be loading.
    const QDateTime now = m_clock();
    const QUrl &file = item.finalFileURL();
    const std::optional<QString> path =
        file.isLocalFile() ? std::optional<QString>(file.toLocalFile()) : std::nullopt;
    whenLoaded([this, now, path, url = item.url(), title = item.title(),
                category = item.category() && !item.category()->isEmpty() ? *item.category() : QStringLiteral("Videos"),
                mode = DownloadModes::label(item.mode())] {
        const QByteArray link = url.toUtf8(); // compared as stored, without a string per entry
        for (qsizetype i = 0; i < m_entries.size(); ++i) {
            if (m_entries.at(i).utf8(HistoryEntry::Text::url) == link) {
                // A re-download keeps its place, id and classification.
                HistoryEntry &e = m_entries[i];
                e.setDate(now);
                e.setTitle(title);
                e.setFilePath(path);
                changed();
                return;
            }
        }
        HistoryEntry e;
        e.setId(QUuid::createUuid());
        e.setUrl(url);
        e.setTitle(title);
        e.setSource(MediaSource::detect(url).rawValue());
        e.setCategory(category);
        e.setMode(mode);
        e.setDate(now);
        e.setFilePath(path);
        m_entries.prepend(std::move(e));
        changed();
    });
}

void HistoryStore::add(const HistoryEntry &entry) {
    whenLoaded([this, entry] {
        m_entries.prepend(entry);
        changed();
    });
}

void HistoryStore::toggleArchive(const HistoryEntry &entry) {
    whenLoaded([this, entry] {
        const qsizetype i = m_entries.indexOf(entry);
        if (i < 0)
            return;
        HistoryEntry &e = m_entries[i];
        e.setArchived(!e.archived());
        changed();
    });
}

void HistoryStore::deleteEntry(const HistoryEntry &entry) {
    whenLoaded([this, id = entry.id()] {
        if (m_entries.removeIf([&id](const HistoryEntry &e) { return e.id() == id; }) > 0)
            Q_EMIT entriesChanged();
        save();
    });
}

void HistoryStore::clearUnarchived() {
    whenLoaded([this] {
        if (m_entries.removeIf([](const HistoryEntry &e) { return !e.archived(); }) > 0)
            Q_EMIT entriesChanged();
        save();
    });
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

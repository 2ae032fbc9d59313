#pragma once

#include <QCache>
#include <QCoroTask>
#include <QPointer>
#include <QHash>
#include <QList>
#include <QSet>
#include <QObject>
#include <QPixmap>
#include <QSize>
#include <QUrl>

#include <functional>

class QNetworkAccessManager;
class QNetworkReply;

// Fetches the small pictures of queue rows, search rows and image cells for the whole process.
//
// One network manager with a disk cache, at most `maxInFlight` transfers at once (the rest wait
// in line), decoding and scaling on the thread pool, and an in-memory cache of finished pictures
// bounded in bytes. Each receiver (a row, a cell) waits for at most one picture; asking again
// replaces its earlier wish, and a receiver that is destroyed or cancels stops waiting. A
// transfer nobody waits for any more is aborted, or never started.
class ThumbnailLoader : public QObject {
    Q_OBJECT
public:
    using Ready = std::function<void(const QPixmap &)>;

    static constexpr int maxInFlight = 6;
    static constexpr qint64 defaultMemoryBytes = 48 * 1024 * 1024;
    static constexpr qint64 diskCacheBytes = 64 * 1024 * 1024;
    static constexpr qint64 maxDownloadBytes = 8 * 1024 * 1024;
    static constexpr int transferTimeoutMs = 20000;

    // diskCacheDir empty: no disk cache.
    explicit ThumbnailLoader(const QString &diskCacheDir, qint64 memoryBytes = defaultMemoryBytes,
                             QObject *parent = nullptr);
    ~ThumbnailLoader() override;

    // The application's loader, caching under <app support>/Caches/Thumbnails.
    static ThumbnailLoader &shared();

    // Asks for `url` scaled to fill `size` (cropped evenly, corners rounded by `radius`); a width
    // of 0 keeps the picture's own shape at that height. When the
    // picture is in memory, `ready` runs before this returns; otherwise it runs later on the main
    // thread with the picture, or with a null pixmap when the address fails or is no picture.
    void request(QObject *receiver, const QUrl &url, QSize size, qreal radius, Ready ready);
    // The receiver no longer waits for anything.
    void cancel(QObject *receiver);

    // `source` filling `size` with rounded corners (a width of 0: the source's shape at that height);
    // a null source gives the neutral placeholder tile.
    static QImage fill(const QImage &source, QSize size, qreal radius, qreal pixelRatio = 1.0);

    int inFlight() const { return int(m_replies.size()); }
    int waiting() const { return int(m_pending.size()); }
    qint64 memoryBytes() const { return m_memory.totalCost(); }
    qint64 memoryLimit() const { return m_memory.maxCost(); }

private:
    struct Wish {
        QUrl url;
        QSize size;
        qreal radius = 0;
        qreal pixelRatio = 1;
        Ready ready;
        QMetaObject::Connection destroyed;
    };
    static QString cacheKey(const QUrl &url, QSize size, qreal radius, qreal pixelRatio);
    bool isWanted(const QUrl &url) const;
    void dropIfUnwanted(const QUrl &url);
    void startNext();
    void startSoon();
    void finished(QNetworkReply *reply, const QUrl &url);
    struct Shape {
        QSize size;
        qreal radius = 0;
        qreal pixelRatio = 1;
        QString key;
    };
    static QCoro::Task<> decode(QPointer<ThumbnailLoader> self, QUrl url, QByteArray bytes, QList<Shape> shapes);
    void decoded(const QUrl &url, const QHash<QString, QImage> &pictures);

    QNetworkAccessManager *m_network;
    QHash<QObject *, Wish> m_wishes;
    QList<QUrl> m_pending;                  // waiting for a free transfer slot, oldest first
    QHash<QUrl, QNetworkReply *> m_replies; // transfers under way
    QSet<QUrl> m_decoding;                  // answers being decoded
    QCache<QString, QPixmap> m_memory;
    bool m_startQueued = false;
};

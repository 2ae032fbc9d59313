#include "ui/ThumbnailLoader.h"

#include "core/AppSettings.h"
#include "ui/Brand.h"

#include <QApplication>
#include <QCoroFuture>
#include <QImageReader>
#include <QBuffer>
#include <QNetworkAccessManager>
#include <QNetworkDiskCache>
#include <QNetworkReply>
#include <QPainter>
#include <QPainterPath>
#include <QScreen>
#include <QtConcurrent/QtConcurrentRun>

#include <algorithm>
#include <cmath>

namespace {
// Pictures larger than this are scaled while they are read, so a huge "thumbnail" costs no more
// memory than a fitting one.
constexpr int decodeLimit = 1024;

QImage readPicture(const QByteArray &bytes) {
    QBuffer buffer;
    buffer.setData(bytes);
    buffer.open(QIODevice::ReadOnly);
    QImageReader reader(&buffer);
    reader.setAutoTransform(true);
    const QSize full = reader.size();
    if (full.isValid() && (full.width() > decodeLimit || full.height() > decodeLimit))
        reader.setScaledSize(full.scaled(decodeLimit, decodeLimit, Qt::KeepAspectRatio));
    return reader.read();
}

qreal screenRatio() {
    const QScreen *screen = QGuiApplication::primaryScreen();
    return screen ? std::max<qreal>(1.0, screen->devicePixelRatio()) : 1.0;
}
} // namespace

ThumbnailLoader::ThumbnailLoader(const QString &diskCacheDir, qint64 memoryBytes, QObject *parent)
    : QObject(parent), m_network(new QNetworkAccessManager(this)) {
    m_memory.setMaxCost(memoryBytes);
    if (!diskCacheDir.isEmpty()) {
        auto *disk = new QNetworkDiskCache(m_network);
        disk->setCacheDirectory(diskCacheDir);
        disk->setMaximumCacheSize(diskCacheBytes);
        m_network->setCache(disk);
    }
}

ThumbnailLoader::~ThumbnailLoader() {
    for (auto it = m_wishes.cbegin(); it != m_wishes.cend(); ++it)
        disconnect(it->destroyed);
    m_wishes.clear();
    const auto replies = m_replies;
    m_replies.clear();
    for (QNetworkReply *reply : replies) {
        reply->disconnect(this);
        reply->abort();
        delete reply;
    }
}

ThumbnailLoader &ThumbnailLoader::shared() {
    static ThumbnailLoader *loader =
        new ThumbnailLoader(AppSettings::appSupportDir() + QStringLiteral("/Caches/Thumbnails"), defaultMemoryBytes, qApp);
    return *loader;
}

QString ThumbnailLoader::cacheKey(const QUrl &url, QSize size, qreal radius, qreal pixelRatio) {
    return QString::number(size.width()) + u'x' + QString::number(size.height()) + u'r' + QString::number(radius) +
           u'@' + QString::number(pixelRatio) + u' ' + url.toString(QUrl::FullyEncoded);
}

void ThumbnailLoader::request(QObject *receiver, const QUrl &url, QSize size, qreal radius, Ready ready) {
    cancel(receiver);
    if (!receiver || size.height() <= 0)
        return;
    if (url.isEmpty() || !(url.scheme() == QLatin1String("http") || url.scheme() == QLatin1String("https"))) {
        ready(QPixmap());
        return;
    }
    const qreal ratio = screenRatio();
    if (const QPixmap *hit = m_memory.object(cacheKey(url, size, radius, ratio))) {
        ready(*hit);
        return;
    }
    Wish wish{url, size, radius, ratio, std::move(ready), {}};
    wish.destroyed = connect(receiver, &QObject::destroyed, this, [this, receiver] { cancel(receiver); });
    m_wishes.insert(receiver, std::move(wish));
    if (!m_replies.contains(url) && !m_decoding.contains(url) && !m_pending.contains(url)) {
        m_pending.append(url);
        startNext();
    }
}

void ThumbnailLoader::cancel(QObject *receiver) {
    const auto it = m_wishes.find(receiver);
    if (it == m_wishes.end())
        return;
    const QUrl url = it->url;
    disconnect(it->destroyed);
    m_wishes.erase(it);
    dropIfUnwanted(url);
}

bool ThumbnailLoader::isWanted(const QUrl &url) const {
    return std::any_of(m_wishes.cbegin(), m_wishes.cend(), [&url](const Wish &w) { return w.url == url; });
}

void ThumbnailLoader::dropIfUnwanted(const QUrl &url) {
    if (isWanted(url))
        return;
    m_pending.removeAll(url);
    if (QNetworkReply *reply = m_replies.take(url)) {
        reply->disconnect(this);
        reply->abort();
        reply->deleteLater();
        startSoon();
    }
}

// Rows go in bursts (a scroll, a list cleared): refilling a freed slot at once would start the
// transfer of a row that the same burst destroys a moment later.
void ThumbnailLoader::startSoon() {
    if (m_startQueued)
        return;
    m_startQueued = true;
    QMetaObject::invokeMethod(
        this,
        [this] {
            m_startQueued = false;
            startNext();
        },
        Qt::QueuedConnection);
}

void ThumbnailLoader::startNext() {
    while (m_replies.size() < maxInFlight && !m_pending.isEmpty()) {
        const QUrl url = m_pending.takeFirst();
        QNetworkRequest request(url);
        request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::NoLessSafeRedirectPolicy);
        request.setAttribute(QNetworkRequest::CacheLoadControlAttribute, QNetworkRequest::PreferCache);
        request.setTransferTimeout(transferTimeoutMs);
        QNetworkReply *reply = m_network->get(request);
        m_replies.insert(url, reply);
        connect(reply, &QNetworkReply::downloadProgress, this, [reply](qint64 received, qint64) {
            if (received > maxDownloadBytes)
                reply->abort();
        });
        connect(reply, &QNetworkReply::finished, this, [this, reply, url] { finished(reply, url); });
    }
}

void ThumbnailLoader::finished(QNetworkReply *reply, const QUrl &url) {
    reply->deleteLater();
    if (m_replies.value(url) != reply)
        return;
    m_replies.remove(url);
    const int status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    const bool ok = reply->error() == QNetworkReply::NoError && (status == 0 || status == 200);
    QList<Shape> shapes;
    for (const Wish &w : std::as_const(m_wishes))
        if (w.url == url) {
            const QString key = cacheKey(w.url, w.size, w.radius, w.pixelRatio);
            if (std::none_of(shapes.cbegin(), shapes.cend(), [&key](const Shape &s) { return s.key == key; }))
                shapes.append({w.size, w.radius, w.pixelRatio, key});
        }
    if (!ok || shapes.isEmpty()) {
        decoded(url, {});
    } else {
        m_decoding.insert(url);
        decode(this, url, reply->readAll(), shapes);
    }
    startNext();
}

QCoro::Task<> ThumbnailLoader::decode(QPointer<ThumbnailLoader> self, QUrl url, QByteArray bytes, QList<Shape> shapes) {
    auto work = [](const QByteArray &data, const QList<Shape> &wanted) {
        QHash<QString, QImage> out;
        const QImage picture = readPicture(data);
        if (!picture.isNull())
            for (const Shape &s : wanted)
                out.insert(s.key, fill(picture, s.size, s.radius, s.pixelRatio));
        return out;
    };
    const QHash<QString, QImage> pictures = co_await QtConcurrent::run(work, std::move(bytes), std::move(shapes));
    if (self)
        self->decoded(url, pictures);
}

void ThumbnailLoader::decoded(const QUrl &url, const QHash<QString, QImage> &pictures) {
    m_decoding.remove(url);
    QHash<QString, QPixmap> pixmaps;
    for (auto it = pictures.cbegin(); it != pictures.cend(); ++it) {
        QPixmap pm = QPixmap::fromImage(it.value());
        pixmaps.insert(it.key(), pm);
        m_memory.insert(it.key(), new QPixmap(pm), qint64(pm.width()) * pm.height() * std::max(1, pm.depth() / 8));
    }
    const bool failed = pictures.isEmpty();
    bool askAgain = false;
    QList<Ready> toCall;
    QList<QPixmap> toGive;
    for (auto it = m_wishes.begin(); it != m_wishes.end();) {
        if (it->url != url) {
            ++it;
            continue;
        }
        const QString key = cacheKey(it->url, it->size, it->radius, it->pixelRatio);
        if (failed || pixmaps.contains(key)) {
            toCall.append(std::move(it->ready));
            toGive.append(pixmaps.value(key));
            disconnect(it->destroyed);
            it = m_wishes.erase(it);
        } else {
            // Asked for another size while this one was decoding: the disk cache answers at once.
            askAgain = true;
            ++it;
        }
    }
    if (askAgain && !m_pending.contains(url)) {
        m_pending.append(url);
        startNext();
    }
    // Last: a callback may ask for the next picture straight away.
    for (qsizetype i = 0; i < toCall.size(); ++i)
        toCall[i](toGive[i]);
}

QImage ThumbnailLoader::fill(const QImage &source, QSize size, qreal radius, qreal pixelRatio) {
    if (size.width() <= 0) {
        // Only the height is fixed: keep the picture's shape, within reason.
        const int h = size.height();
        const int w = source.isNull() || source.height() <= 0 ? h : int(std::lround(qreal(h) * source.width() / source.height()));
        size = QSize(std::clamp(w, h / 2, h * 3), h);
    }
    QImage out(size * pixelRatio, QImage::Format_ARGB32_Premultiplied);
    out.setDevicePixelRatio(pixelRatio);
    out.fill(Qt::transparent);
    QPainter p(&out);
    p.setRenderHint(QPainter::Antialiasing);
    p.setRenderHint(QPainter::SmoothPixmapTransform);
    QPainterPath clip;
    clip.addRoundedRect(QRectF(0, 0, size.width(), size.height()), radius, radius);
    p.setClipPath(clip);
    if (source.isNull()) {
        p.fillRect(QRectF(0, 0, size.width(), size.height()), Brand::hairline());
    } else {
        // Fill the frame, cropping the overflow evenly.
        const QSizeF scaled = QSizeF(source.size()).scaled(QSizeF(size), Qt::KeepAspectRatioByExpanding);
        const QRectF target((size.width() - scaled.width()) / 2, (size.height() - scaled.height()) / 2, scaled.width(),
                            scaled.height());
        p.drawImage(target, source);
    }
    return out;
}

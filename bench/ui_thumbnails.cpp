// `bench_ui_thumbnails`: how long the window's thread is kept busy while 30 search thumbnails
// (1280×720 JPEG each) arrive through the shared loader, against decoding the same pictures on
// that thread, measured in the same run. A stall is the window thread's CPU time between two
// turns of its event loop. Prints the longest stall of each and their ratio.
#include "FixtureSite.h"
#include "TestEnv.h"

#include "ui/ThumbnailLoader.h"

#include <QApplication>
#include <QBuffer>
#include <QElapsedTimer>
#include <QImage>
#include <QPainter>
#include <QTest>
#include <QTimer>

#include <cstdio>
#include <ctime>

using namespace Qt::StringLiterals;

namespace {
constexpr int pictures = 30;
const QSize rowThumbnail(160, 90);

QByteArray photo(int seed) {
    QImage picture(1280, 720, QImage::Format_RGB32);
    QPainter p(&picture);
    QLinearGradient g(0, 0, 1280, 720);
    g.setColorAt(0, QColor::fromHsv(seed * 11 % 360, 180, 220));
    g.setColorAt(1, QColor::fromHsv(seed * 29 % 360, 200, 80));
    p.fillRect(picture.rect(), g);
    for (int i = 0; i < 400; ++i) // detail, so the JPEG is not trivially small
        p.fillRect((i * 97 + seed * 13) % 1280, (i * 53) % 720, 12, 9, QColor::fromHsv((i * 7) % 360, 120, 200));
    p.end();
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    picture.save(&buffer, "JPG", 85);
    return bytes;
}
// CPU time of the calling thread: what the window's thread itself spends, whatever else the
// machine is doing (wall-clock gaps on a busy machine also count time the thread was not running).
qint64 threadCpuNs() {
    timespec t{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return qint64(t.tv_sec) * 1000000000 + t.tv_nsec;
}
} // namespace

int main(int argc, char **argv) {
    TestEnv::setUp();
    QApplication app(argc, argv);
    FixtureSite site;
    if (!site.isRunning())
        return 1;
    QList<QByteArray> data;
    for (int i = 0; i < pictures; ++i) {
        data << photo(i);
        site.put(u"vi/%1/mqdefault.jpg"_s.arg(i), data.last());
    }

    // Both sides warm up first: image plugins, the network stack's one-time set-up.
    ThumbnailLoader loader{QString()};
    {
        QObject warm;
        bool ready = false;
        site.put(u"warm.jpg"_s, photo(99));
        loader.request(&warm, QUrl(site.url(u"/warm.jpg"_s)), rowThumbnail, 6, [&ready](const QPixmap &) { ready = true; });
        for (int waited = 0; !ready && waited < 10000; waited += 10)
            QTest::qWait(10);
        (void)QImage::fromData(data.first());
    }

    // Baseline: each picture decoded and scaled where the window lives.
    qint64 baselineStall = 0;
    QElapsedTimer total;
    total.start();
    for (const QByteArray &bytes : std::as_const(data)) {
        const qint64 before = threadCpuNs();
        const QImage decoded = QImage::fromData(bytes);
        const QImage shown = ThumbnailLoader::fill(decoded, rowThumbnail, 6);
        baselineStall = std::max(baselineStall, threadCpuNs() - before);
    }
    const double baselineTotalMs = total.nsecsElapsed() / 1e6;

    // The loader: the event loop's longest gap between two ticks while the pictures arrive.
    std::vector<std::unique_ptr<QObject>> rows;
    int arrived = 0;
    qint64 lastTick = threadCpuNs();
    qint64 loaderStall = 0;
    QTimer tick;
    tick.setInterval(0);
    QObject::connect(&tick, &QTimer::timeout, [&] {
        const qint64 now = threadCpuNs();
        loaderStall = std::max(loaderStall, now - lastTick);
        lastTick = now;
    });
    tick.start();
    for (int i = 0; i < pictures; ++i) {
        rows.push_back(std::make_unique<QObject>());
        loader.request(rows.back().get(), QUrl(site.url(u"/vi/%1/mqdefault.jpg"_s.arg(i))), rowThumbnail, 6,
                       [&arrived](const QPixmap &pm) { arrived += pm.isNull() ? 0 : 1; });
    }
    for (int waited = 0; arrived < pictures && waited < 30000; waited += 10)
        QTest::qWait(10);
    tick.stop();
    if (arrived < pictures) {
        std::printf("FAILED: %d of %d thumbnails arrived\n", arrived, pictures);
        return 1;
    }
    std::printf("on-thread decode: longest stall %.2f ms (all %d: %.1f ms wall clock)\n", baselineStall / 1e6, pictures,
                baselineTotalMs);
    std::printf("thumbnail loader: longest stall %.2f ms\n", loaderStall / 1e6);
    std::printf("stall ratio loader/on-thread: %.2f\n", double(loaderStall) / double(std::max<qint64>(1, baselineStall)));
    return 0;
}

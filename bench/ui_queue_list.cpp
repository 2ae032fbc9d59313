// The main window's queue with 1,000 items against the same window with 10: the cost of filling it and
// of one scroll step (relayout plus a full repaint of the visible rows). Ratios near 1 mean
// the list's cost does not grow with the queue.
#include "TestEnv.h"

#include "core/AppSettings.h"
#include "queue/DownloadQueue.h"
#include "queue/HistoryStore.h"
#include "queue/Notifier.h"
#include "ui/Brand.h"
#include "queue/ClipboardSource.h"
#include "queue/ClipboardWatcher.h"
#include "engine/SelfHealer.h"
#include "ui/ContentView.h"
#include "ui/QueueList.h"

#include <QApplication>
#include <QCoroTimer>
#include <QElapsedTimer>
#include <QScrollBar>

#include <cstdio>

namespace {

struct SilentNotifier : Notifier {
    void post(const QString &, const QString &) override {}
};

struct NoClipboard : ClipboardSource {
    qint64 changeCount() const override { return 0; }
    std::optional<QString> text() const override { return std::nullopt; }
};

QCoro::Task<ProbeResult> neverAnswers(QString, Tools::CancellationPtr) {
    co_await QCoro::sleepFor(std::chrono::hours(1));
    co_return ProbeResult{};
}

struct Timing {
    double fillMs = 0;
    double scrollStepMs = 0;
};

Timing measure(int count) {
    const QString dir = TestEnv::root() + QStringLiteral("/list-") + QString::number(count);
    AppSettings settings(dir + QStringLiteral("/settings.ini"));
    settings.setMaxConcurrent(1);
    HistoryStore history(dir + QStringLiteral("/history.json"));
    SilentNotifier notifier;
    DownloadQueue::Services services;
    services.probe = neverAnswers;
    services.isSpotifyTrackURL = [](const QString &) { return false; };
    DownloadQueue queue(settings, history, notifier, services);
    NoClipboard clipboard;
    ClipboardWatcher watcher(clipboard, settings, queue);
    SelfHealer healer(settings, [] { return QString(); }, [] { return 0.0; });
    ContentView view(queue, settings, healer, watcher, clipboard);
    view.resize(860, 560);
    view.show();
    QueueList &list = *view.queueList();
    QCoreApplication::processEvents();

    QElapsedTimer clock;
    clock.start();
    for (int i = 0; i < count; ++i)
        queue.add(QStringLiteral("https://example.com/watch?v=") + QString::number(i));
    QCoreApplication::processEvents();
    Timing t;
    t.fillMs = double(clock.nsecsElapsed()) / 1e6;

    // Scroll from top to bottom in steps of a third of a row, repainting each step, as a
    // wheel or trackpad would; with few items, cycle over the short range instead.
    QScrollBar *bar = list.verticalScrollBar();
    const int steps = 300;
    clock.restart();
    for (int i = 0; i < steps; ++i) {
        const int range = std::max(bar->maximum(), 1);
        bar->setValue((i * QueueList::rowHeight / 3) % (range + 1));
        list.viewport()->repaint();
        for (QWidget *row : list.viewport()->findChildren<QWidget *>(Qt::FindDirectChildrenOnly))
            if (row->isVisible())
                row->repaint();
    }
    t.scrollStepMs = double(clock.nsecsElapsed()) / 1e6 / steps;
    for (const DownloadItemPtr &item : queue.items())
        queue.cancel(item);
    return t;
}

} // namespace

int main(int argc, char **argv) {
    TestEnv::setUp();
    QApplication app(argc, argv);
    Brand::applyDarkAppearance(app);
    measure(10); // warm fonts, icons and caches
    const Timing small = measure(10);
    const Timing large = measure(1000);
    std::printf("fill: 10 items %.1f ms, 1000 items %.1f ms; per item at 1000 / per item at 10: %.2f\n", small.fillMs,
                large.fillMs, (large.fillMs / 1000) / (small.fillMs / 10));
    std::printf("scroll step with repaint: 10 items %.2f ms, 1000 items %.2f ms, ratio %.2f\n", small.scrollStepMs,
                large.scrollStepMs, large.scrollStepMs / small.scrollStepMs);
    return 0;
}

// Idle cost of the main window: main-thread CPU over a quiet stretch with Smart Mode on and
// nothing queued (the breathing dot is the only thing moving), against a bare Qt window, with
// Smart Mode off, and with the window minimised, all in the same run. Run under X:
//   QT_QPA_PLATFORM=xcb xvfb-run -a build/bench/bench_ui_idle [seconds per case, default 20]
// Target: under 0.3 % of one core with the dot breathing; no dot frames while minimised.
#include "TestEnv.h"

#include "core/AppSettings.h"
#include "engine/SelfHealer.h"
#include "queue/ClipboardSource.h"
#include "queue/ClipboardWatcher.h"
#include "queue/DownloadQueue.h"
#include "queue/HistoryStore.h"
#include "queue/Notifier.h"
#include "ui/Brand.h"
#include "ui/ContentView.h"

#include <QApplication>
#include <QEventLoop>
#include <QTimer>

#include <cstdio>
#include <ctime>

namespace {

struct SilentNotifier : Notifier {
    void post(const QString &, const QString &) override {}
};

struct NoClipboard : ClipboardSource {
    qint64 changeCount() const override { return 0; }
    std::optional<QString> text() const override { return std::nullopt; }
};

double threadCpuSeconds() {
    timespec t{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return double(t.tv_sec) + double(t.tv_nsec) / 1e9;
}

// Counts the paints of one widget.
struct PaintCounter : QObject {
    int paints = 0;
    bool eventFilter(QObject *, QEvent *event) override {
        paints += event->type() == QEvent::Paint;
        return false;
    }
};

struct Sample {
    double cpuPercent = 0;
    double framesPerSecond = 0;
};

// Lets the window settle, then measures `seconds` of doing nothing.
Sample idle(int seconds, PaintCounter *counter) {
    QEventLoop settle;
    QTimer::singleShot(1000, &settle, &QEventLoop::quit);
    settle.exec();
    if (counter)
        counter->paints = 0;
    const double start = threadCpuSeconds();
    QEventLoop loop;
    QTimer::singleShot(seconds * 1000, &loop, &QEventLoop::quit);
    loop.exec();
    Sample s;
    s.cpuPercent = 100.0 * (threadCpuSeconds() - start) / seconds;
    s.framesPerSecond = counter ? double(counter->paints) / seconds : 0;
    return s;
}

} // namespace

int main(int argc, char **argv) {
    TestEnv::setUp(); // private settings and data folders
    QApplication app(argc, argv);
    Brand::loadFonts();
    Brand::applyDarkAppearance(app);
    const int seconds = argc > 1 ? std::max(1, atoi(argv[1])) : 20;

    Sample bare;
    {
        QWidget window;
        window.resize(860, 560);
        window.show();
        bare = idle(seconds, nullptr);
    }

    const QString dir = TestEnv::root() + QStringLiteral("/idle");
    AppSettings settings(dir + QStringLiteral("/settings.ini"));
    settings.setSmartMode(true);
    HistoryStore history(dir + QStringLiteral("/history.json"));
    SilentNotifier notifier;
    DownloadQueue queue(settings, history, notifier, DownloadQueue::Services());
    NoClipboard clipboard;
    ClipboardWatcher watcher(clipboard, settings, queue);
    SelfHealer healer(settings, [] { return QString(); }, [] { return 0.0; });
    ContentView view(queue, settings, healer, watcher, clipboard);
    view.resize(860, 560);
    PaintCounter counter;
    QWidget *dot = view.findChild<QWidget *>(QStringLiteral("smartDot"));
    if (!dot) {
        std::fprintf(stderr, "ui_idle: no Smart Mode dot in the window\n");
        return 1;
    }
    dot->installEventFilter(&counter);
    view.show();
    const Sample on = idle(seconds, &counter);
    view.showMinimized();
    const Sample minimised = idle(seconds, &counter);
    view.showNormal();
    const Sample again = idle(seconds, &counter); // shown again: the dot resumes
    settings.setSmartMode(false);
    const Sample off = idle(seconds, &counter);

    auto ratio = [&](double v) { return bare.cpuPercent > 0 ? v / bare.cpuPercent : 0.0; };
    std::printf("idle main-thread CPU over %d s per case (same run), %% of one core:\n", seconds);
    std::printf("  bare Qt window           %.3f %%\n", bare.cpuPercent);
    std::printf("  Smart Mode on, dot shown %.3f %% (ratio %.1f vs bare), dot %.1f frames/s (target < 0.3 %%)\n",
                on.cpuPercent, ratio(on.cpuPercent), on.framesPerSecond);
    std::printf("  shown again              %.3f %% (ratio %.1f vs bare), dot %.1f frames/s\n", again.cpuPercent,
                ratio(again.cpuPercent), again.framesPerSecond);
    std::printf("  window minimised         %.3f %% (ratio %.1f vs bare), dot %.1f frames/s (target 0)\n",
                minimised.cpuPercent, ratio(minimised.cpuPercent), minimised.framesPerSecond);
    std::printf("  Smart Mode off           %.3f %% (ratio %.1f vs bare), dot %.1f frames/s\n", off.cpuPercent,
                ratio(off.cpuPercent), off.framesPerSecond);
    return 0;
}

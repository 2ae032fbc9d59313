// `bench_ui_screenshots <folder>` renders the Ember sampler, the main window and its sheets and
// the settings window into PNG files, for looking at them as a person would
// (bench/ui_screenshots.sh runs it under Xvfb).
#include "TestEnv.h"

#include "Await.h"
#include "analysis/Transcriber.h"
#include "core/AppSettings.h"
#include "engine/SelfHealer.h"
#include "ui/Brand.h"
#include "ui/EmberButtonStyle.h"
#include "ui/EmberProgressBar.h"
#include "queue/ClipboardSource.h"
#include "queue/ClipboardWatcher.h"
#include "queue/DownloadQueue.h"
#include "queue/HistoryStore.h"
#include "queue/Notifier.h"
#include "ui/BatchSheet.h"
#include "ui/ContentView.h"
#include "ui/OptionsSheet.h"
#include "ui/PinchMark.h"
#include "ui/SettingsView.h"
#include "ui/StatusChip.h"

#include <QApplication>
#include <QDir>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QTest>
#include <QVBoxLayout>
#include <QLineEdit>
#include <QCoroTimer>

namespace {
bool save(QWidget &w, const QString &folder, const QString &name) {
    w.show();
    if (!QTest::qWaitForWindowExposed(&w))
        return false;
    QTest::qWait(400); // let animations settle
    const QString path = folder + u'/' + name;
    const bool ok = w.grab().save(path);
    std::printf("%s %s\n", ok ? "wrote" : "FAILED", qPrintable(path));
    return ok;
}

QWidget *sampler() {
    auto *page = new QWidget;
    page->setWindowTitle(QStringLiteral("Ember"));
    page->resize(620, 420);
    auto *v = new QVBoxLayout(page);
    v->setContentsMargins(28, 24, 28, 24);
    v->setSpacing(16);

    auto *marks = new QHBoxLayout;
    for (int size : {24, 48, 96})
        marks->addWidget(new PinchMark(size, Brand::bone(), true));
    marks->addWidget(new PinchMark(48, Brand::stone(), false));
    auto *title = new QLabel(QStringLiteral("Vorlix"));
    title->setFont(Brand::displayFont(28, QFont::Bold));
    marks->addSpacing(12);
    marks->addWidget(title);
    marks->addStretch(1);
    v->addLayout(marks);

    auto *buttons = new QHBoxLayout;
    auto *primary = new QPushButton(QStringLiteral("Download"));
    EmberButtonStyle::apply(primary);
    auto *pressed = new QPushButton(QStringLiteral("Pressed"));
    EmberButtonStyle::apply(pressed);
    pressed->setProperty("emberFill", Brand::emberDeep());
    auto *compact = new QPushButton(QStringLiteral("Retry"));
    EmberButtonStyle::apply(compact, true);
    auto *disabled = new QPushButton(QStringLiteral("Download 0"));
    EmberButtonStyle::apply(disabled);
    disabled->setEnabled(false);
    for (QPushButton *b : {primary, pressed, compact, disabled})
        buttons->addWidget(b);
    buttons->addStretch(1);
    v->addLayout(buttons);

    for (double value : {0.0, 0.42, 1.0}) {
        auto *bar = new EmberProgressBar;
        bar->setMaximumWidth(280);
        bar->resetValue(value);
        v->addWidget(bar);
    }

    auto *chips = new QGridLayout;
    chips->addWidget(new StatusChip(QStringLiteral("Video (best quality)"), QStringLiteral("film"), Brand::stone()), 0, 0);
    chips->addWidget(new StatusChip(QStringLiteral("Tutorials"), QString(), Brand::ember()), 0, 1);
    chips->addWidget(new StatusChip(QStringLiteral("1:20–end"), QStringLiteral("scissors"), Brand::stone()), 0, 2);
    chips->addWidget(new StatusChip(QStringLiteral("128 BPM"), QStringLiteral("metronome"), Brand::stone()), 0, 3);
    chips->addWidget(new StatusChip(QStringLiteral("Queued"), QStringLiteral("clock"), Brand::stone()), 1, 0);
    chips->addWidget(new StatusChip(QStringLiteral("Done"), QStringLiteral("checkmark.circle.fill"), Brand::success()), 1, 1);
    chips->addWidget(new StatusChip(QStringLiteral("Failed"), QStringLiteral("exclamationmark.triangle.fill"), Brand::danger()), 1, 2);
    chips->addWidget(new StatusChip(QStringLiteral("self-healed"), QStringLiteral("bandage"), Brand::ember()), 1, 3);
    chips->setAlignment(Qt::AlignLeft);
    v->addLayout(chips);
    v->addStretch(1);
    return page;
}

struct QuietNotifier : Notifier {
    void post(const QString &, const QString &) override {}
};

struct NoClipboard : ClipboardSource {
    qint64 changeCount() const override { return 0; }
    std::optional<QString> text() const override { return QStringLiteral("https://vimeo.com/123 and https://youtu.be/xyz"); }
};

QCoro::Task<ProbeResult> neverAnswers(QString) {
    co_await QCoro::sleepFor(std::chrono::hours(1));
    co_return ProbeResult{};
}

// The main window: empty, then with rows in the states a user sees most, then its two sheets.
bool mainWindowShots(AppSettings &settings, SelfHealer &healer, const QString &folder) {
    HistoryStore history(TestEnv::root() + QStringLiteral("/shot-history.json"));
    QuietNotifier notifier;
    NoClipboard clipboard;
    DownloadQueue::Services services;
    services.probe = neverAnswers;
    services.isSpotifyTrackURL = [](const QString &) { return false; };
    settings.setMaxConcurrent(1);
    settings.setSmartMode(true);
    DownloadQueue queue(settings, history, notifier, services);
    ClipboardWatcher watcher(clipboard, settings, queue);
    ContentView view(queue, settings, healer, watcher, clipboard);
    view.resize(860, 560);
    bool ok = save(view, folder, QStringLiteral("main-empty.png"));

    queue.add(QStringLiteral("https://www.tiktok.com/@x/video/1"));
    queue.add(QStringLiteral("https://vimeo.com/123"), DownloadMode::videoOnly);
    queue.add(QStringLiteral("https://soundcloud.com/a/b"), DownloadMode::audioOnly, ClipRange{QStringLiteral("1:20"), QString()});
    queue.add(QStringLiteral("https://www.youtube.com/watch?v=abc"));
    const QList<DownloadItemPtr> items = queue.items(); // newest first
    const DownloadItemPtr &downloading = items[0];
    downloading->setTitle(QStringLiteral("How to Play Wonderwall — Easy Guitar Lesson"));
    downloading->setCategory(QStringLiteral("Tutorials"));
    downloading->setState(ItemState::downloading());
    downloading->setProgress(0.62);
    downloading->setSpeedText(QStringLiteral("2.1MiB/s"));
    downloading->setEtaText(QStringLiteral("00:12"));
    const DownloadItemPtr &done = items[1];
    done->setTitle(QStringLiteral("Night Drive (Extended Mix)"));
    done->setFinalFileURL(QUrl::fromLocalFile(QStringLiteral("/tmp/Night Drive.mp3")));
    done->setDetectedBPM(124.0);
    done->setDetectedKey(QStringLiteral("F# minor"));
    done->setDidSelfHeal(true);
    done->setState(ItemState::done());
    const DownloadItemPtr &failed = items[2];
    failed->setTitle(QStringLiteral("Studio tour"));
    failed->setState(ItemState::failed(QStringLiteral("This video is private. Turn on “Use Chrome login” in Settings.")));
    queue.setLastMessage(QStringLiteral("Saved · Night Drive (Extended Mix)"));
    ok &= save(view, folder, QStringLiteral("main-queue.png"));

    view.showBatch();
    auto *batch = view.findChild<BatchSheet *>();
    batch->pasteFromClipboard();
    ok &= save(*batch, folder, QStringLiteral("batch-sheet.png"));
    batch->reject();
    view.linkBar()->setText(QStringLiteral("https://www.youtube.com/watch?v=abc"));
    view.showOptions();
    auto *options = view.findChild<OptionsSheet *>();
    options->findChild<QLineEdit *>(QStringLiteral("clipStart"))->setText(QStringLiteral("1:2:3:4"));
    ok &= save(*options, folder, QStringLiteral("options-sheet.png"));
    options->reject();
    for (const DownloadItemPtr &item : queue.items())
        queue.cancel(item);
    return ok;
}

int screenshots(int argc, char **argv) {
    const QString folder = argc > 1 ? QString::fromLocal8Bit(argv[1]) : QStringLiteral("screenshots");
    QDir().mkpath(folder);
    TestEnv::setUp(); // private settings and data folders
    QApplication app(argc, argv);
    Brand::loadFonts();
    Brand::applyDarkAppearance(app);
    app.setWindowIcon(PinchMark::icon(Brand::bone(), true));

    bool ok = true;
    std::unique_ptr<QWidget> page(sampler());
    ok &= save(*page, folder, QStringLiteral("ember-style.png"));

    AppSettings settings(TestEnv::root() + QStringLiteral("/shot.conf"));
    settings.setDownloadFolderPath(QDir::homePath() + QStringLiteral("/Downloads/Vorlix"));
    const QString tool = TestEnv::writeScript(TestEnv::root() + QStringLiteral("/shot-yt-dlp"),
                                              QStringLiteral("#!/bin/sh\n[ \"$1\" = --version ] && echo 2025.10.22 && exit 0\n"
                                                             "echo 'yt-dlp is up to date (2025.10.22)'\n"));
    SelfHealer healer(settings, [tool] { return tool; }, [] { return 0.0; });
    vtest::await(healer.updateEngine());
    Transcriber::Setup setup;
    setup.settings = &settings;
    setup.modelsDir = TestEnv::root() + QStringLiteral("/models");
    setup.whisperURL = [] { return QString(); };
    setup.ffmpegURL = [] { return QString(); };
    Transcriber transcriber(setup);
    ok &= mainWindowShots(settings, healer, folder);
    SettingsView view(settings, healer, transcriber);
    ok &= save(view, folder, QStringLiteral("settings.png"));
    view.resize(SettingsView::formSize.width(), 1180); // the whole form at once
    ok &= save(view, folder, QStringLiteral("settings-full.png"));
    return ok ? 0 : 1;
}
} // namespace

int main(int argc, char **argv) { return screenshots(argc, argv); }

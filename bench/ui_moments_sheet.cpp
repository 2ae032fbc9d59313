// The Smart Moments sheet on a 60 s 640×360 video with a cut every 4 s: seconds from opening to
// the first thumbnail on screen and to the full grid, and from "Save Both" to the status line,
// against `vorlix moments` (the headless analysis) on the same file in the same run.
#include "TestEnv.h"

#include "core/AppSettings.h"
#include "queue/DownloadQueue.h"
#include "queue/HistoryStore.h"
#include "queue/Notifier.h"
#include "ui/MomentsView.h"

#include <QApplication>
#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QProcess>
#include <QPushButton>

#include <cstdio>

namespace {

struct QuietNotifier : Notifier {
    void post(const QString &, const QString &) override {}
};

bool makeVideo(const QString &path) {
    const QStringList sources{QStringLiteral("testsrc2"), QStringLiteral("smptebars"), QStringLiteral("mandelbrot"),
                              QStringLiteral("rgbtestsrc"), QStringLiteral("testsrc"), QStringLiteral("yuvtestsrc"),
                              QStringLiteral("pal100bars"), QStringLiteral("smptehdbars")};
    QStringList args{QStringLiteral("-v"), QStringLiteral("error"), QStringLiteral("-y")};
    QString graph;
    // Fifteen 4-second scenes; the sources come round twice, the second time mirrored.
    for (int i = 0; i < 15; ++i) {
        args << QStringLiteral("-f") << QStringLiteral("lavfi") << QStringLiteral("-i")
             << sources[i % 8] + QStringLiteral("=s=640x360:r=30");
        graph += QStringLiteral("[%1:v]trim=duration=4,setpts=PTS-STARTPTS,setsar=1,format=yuv420p%2[v%1];")
                     .arg(i)
                     .arg(i >= 8 ? QStringLiteral(",hflip") : QString());
    }
    for (int i = 0; i < 15; ++i)
        graph += QStringLiteral("[v%1]").arg(i);
    graph += QStringLiteral("concat=n=15:v=1:a=0[out]");
    args << QStringLiteral("-filter_complex") << graph << QStringLiteral("-map") << QStringLiteral("[out]")
         << QStringLiteral("-c:v") << QStringLiteral("libx264") << QStringLiteral("-preset") << QStringLiteral("veryfast")
         << path;
    return TestEnv::runTool(TestEnv::ffmpeg(), args, nullptr, 900000);
}

double seconds(const QElapsedTimer &t) { return double(t.nsecsElapsed()) / 1e9; }

} // namespace

int main(int argc, char **argv) {
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    TestEnv::setUp();
    QApplication app(argc, argv);
    const QString folder = TestEnv::root() + QStringLiteral("/sheet-bench");
    QDir().mkpath(folder);
    const QString video = folder + QStringLiteral("/Sixty Seconds.mp4");
    if (!makeVideo(video)) {
        std::fprintf(stderr, "could not generate the video\n");
        return 1;
    }

    // Baseline: the command-line analysis of the same file.
    const QString vorlix = QCoreApplication::applicationDirPath() + QStringLiteral("/../bin/vorlix");
    QElapsedTimer t;
    t.start();
    QProcess cli;
    cli.start(vorlix, {QStringLiteral("moments"), video});
    cli.waitForFinished(-1);
    const double cliTime = seconds(t);
    const QString cliOut = QString::fromUtf8(cli.readAllStandardOutput()).trimmed().section(u'\n', -1);

    AppSettings settings(TestEnv::root() + QStringLiteral("/bench.conf"));
    settings.setMomentsCount(8);
    HistoryStore history(TestEnv::root() + QStringLiteral("/history.json"));
    QuietNotifier notifier;
    DownloadQueue queue(settings, history, notifier, DownloadQueue::Services());
    auto item = DownloadItem::make(QStringLiteral("https://example.com/sixty"), DownloadMode::bestVideoAudio);
    item->setFinalFileURL(QUrl::fromLocalFile(video));
    item->setState(ItemState::done());
    MomentsView::Engines engines = MomentsView::Engines::real();
    engines.openFolder = [](const QString &) {};
    MomentsView sheet(item, queue, settings, engines);

    double firstThumbnail = -1;
    double fullGrid = -1;
    QEventLoop loop;
    QObject::connect(&sheet, &MomentsView::thumbnailShown, &sheet, [&] {
        if (firstThumbnail < 0)
            firstThumbnail = seconds(t);
    });
    QObject::connect(&sheet, &MomentsView::analysisFinished, &loop, &QEventLoop::quit);
    t.restart();
    sheet.show();
    loop.exec();
    fullGrid = seconds(t);

    QObject::connect(&queue, &DownloadQueue::lastMessageChanged, &loop, &QEventLoop::quit);
    t.restart();
    sheet.findChild<QPushButton *>(QStringLiteral("exportBoth"))->click();
    loop.exec();
    const double saveTime = seconds(t);

    std::printf("vorlix moments: %.2f s (%s)\n", cliTime, qPrintable(cliOut));
    std::printf("sheet: first thumbnail %.2f s, full grid %.2f s (%lld moments)\n", firstThumbnail, fullGrid,
                qlonglong(sheet.allMoments().size()));
    std::printf("sheet: Save Both of %lld moments to status line %.2f s (%s)\n", qlonglong(sheet.selection().size()),
                saveTime, qPrintable(queue.lastMessage().value_or(QString())));
    std::printf("first thumbnail / command line: %.2f\n", firstThumbnail / cliTime);
    std::printf("full grid / command line: %.2f\n", fullGrid / cliTime);
    return 0;
}

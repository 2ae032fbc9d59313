#include "app/Bootstrap.h"

#include "app/InstanceGuard.h"
#include "app/LinkHandOver.h"
#include "app/SystemClipboard.h"
#include "app/VorlixApp.h"

#include "analysis/MomentsEngine.h"
#include "analysis/PracticeMode.h"
#include "analysis/Summarizer.h"
#include "core/DownloadMode.h"
#include "core/MediaCategory.h"
#include "core/MediaSource.h"
#include "core/Utf8.h"
#include "engine/Tools.h"
#include "engine/YtDlp.h"
#include "queue/DownloadQueue.h"
#include "ui/Brand.h"

#include <QApplication>
#include <QCoreApplication>
#include <QEventLoop>
#include <QFile>
#include <QUrl>

#include <QCoroTask>

#include <charconv>
#include <cstdio>

namespace Bootstrap {
namespace {

const QStringList commands{QStringLiteral("analyze"), QStringLiteral("moments"), QStringLiteral("beatgrid"),
                           QStringLiteral("summarize"), QStringLiteral("probe")};

// One write per value, so a multi-line value reaches the terminal whole.
void print(const QString &text) {
    const QByteArray bytes = (text + u'\n').toUtf8();
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stdout);
    std::fflush(stdout);
}

QUrl fileUrl(const QString &path) { return QUrl::fromLocalFile(path); }

QCoro::Task<> analyzeCommand(QString path) {
    const PracticeMode::Analysis analysis = co_await PracticeMode::analyze(fileUrl(path));
    print(QStringLiteral("bpm=") + tempoText(analysis.bpm) + QStringLiteral(" key=") +
          analysis.key.value_or(QStringLiteral("none")));
}

QCoro::Task<> momentsCommand(QString path) {
    const QList<Moment> moments = co_await MomentsEngine::analyze(path);
    for (const Moment &moment : moments)
        print(momentLine(moment));
    print(QStringLiteral("%1 moments").arg(moments.size()));
}

QCoro::Task<> beatGridCommand(QString path) {
    const std::optional<PracticeMode::BeatGrid> grid = co_await PracticeMode::beatGrid(fileUrl(path));
    if (!grid) {
        print(QStringLiteral("no beat grid detected"));
        co_return;
    }
    print(QString::asprintf("bpm=%.1f firstBeat=%.3fs beatLength=%.3fs", grid->bpm, grid->firstBeat, grid->beatLength()));
    print(QString::asprintf("snap(10.0)=%.3f snapLength(2.5)=%.3f", grid->snap(10.0), grid->snapLength(2.5)));
}

void summarizeCommand(const QString &path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return;
    const std::optional<QString> text = decodeUtf8Strict(file.readAll());
    if (!text)
        return;
    for (const QString &sentence : Summarizer::summarize(*text, std::nullopt))
        print(QStringLiteral("\u2022 ") + sentence);
}

QCoro::Task<> probeCommand(QString link) {
    const MediaSource source = MediaSource::detect(link);
    ProbeResult result;
    try {
        result = co_await YtDlp::probe(link);
    } catch (const YtDlpError &error) {
        print(QStringLiteral("probe failed: ") + error.message());
        co_return;
    } catch (const Tools::LaunchError &error) {
        print(QStringLiteral("probe failed: ") + error.message());
        co_return;
    }
    const QString genre = MediaCategory::classify(source, DownloadMode::bestVideoAudio, result.categories, result.title);
    const QString folder = MediaCategory::libraryFolder(source, DownloadMode::bestVideoAudio, false, genre, link);
    print(QStringLiteral("title=") + result.title + QStringLiteral("\nsource=") + source.rawValue() +
          QStringLiteral(" platformCats=") + categoryList(result.categories) + QStringLiteral(" genre=") + genre +
          QStringLiteral("\nfolder=") + folder);
}

QCoro::Task<> runCommand(QString command, QString argument) {
    if (command == QLatin1String("analyze"))
        co_await analyzeCommand(argument);
    else if (command == QLatin1String("moments"))
        co_await momentsCommand(argument);
    else if (command == QLatin1String("beatgrid"))
        co_await beatGridCommand(argument);
    else if (command == QLatin1String("probe"))
        co_await probeCommand(argument);
}

QCoro::Task<> runThenQuit(QString command, QString argument, QEventLoop *loop, bool *done) {
    try {
        co_await runCommand(command, argument);
    } catch (const std::exception &error) {
        // The engines report failure as empty results; anything else still ends the command.
        std::fprintf(stderr, "%s\n", error.what());
    }
    *done = true;
    loop->quit();
}

int runDiagnostic(int argc, char **argv, const QString &command, const QString &argument) {
    QCoreApplication app(argc, argv);
    if (command == QLatin1String("summarize")) {
        summarizeCommand(argument);
        return 0;
    }
    QEventLoop loop;
    bool done = false;
    auto task = runThenQuit(command, argument, &loop, &done);
    if (!done)
        loop.exec();
    return 0;
}

int runApplication(int argc, char **argv) {
    QApplication app(argc, argv);
    const LinkHandOver::Request request = LinkHandOver::parse(app.arguments());
    Brand::loadFonts();
    InstanceGuard guard;
    if (!guard.claim()) {
        if (!request.isEmpty())
            LinkHandOver::send(request, InstanceGuard::serviceName);
        return 0;
    }
    VorlixApp vorlix(app);
    LinkHandOver handOver(DownloadQueue::shared(), SystemClipboard::shared());
    handOver.listen();
    handOver.handle(request);
    QObject::connect(&guard, &InstanceGuard::activateRequested, &vorlix, &VorlixApp::showMainWindow);
    return vorlix.exec();
}

} // namespace

QString diagnosticCommand(const QStringList &arguments) {
    if (arguments.size() < 3)
        return {};
    for (const QString &command : commands)
        if (arguments[1] == command)
            return command;
    return {};
}

QString tempoText(std::optional<double> bpm) {
    if (!bpm)
        return QStringLiteral("none");
    char buffer[64];
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, *bpm);
    QString text = QString::fromLatin1(buffer, result.ptr - buffer);
    if (!text.contains(u'.') && !text.contains(u'e') && !text.contains(u'n') && !text.contains(u'i'))
        text += QStringLiteral(".0");
    return text;
}

QString momentLine(const Moment &moment) {
    return QString::asprintf("t=%7.2f  score=%.3f  thumb=", moment.time, moment.score) +
           (moment.thumbnail ? QStringLiteral("yes") : QStringLiteral("no"));
}

QString categoryList(const QStringList &categories) {
    QStringList quoted;
    for (const QString &category : categories)
        quoted << u'"' + category + u'"';
    return u'[' + quoted.join(QStringLiteral(", ")) + u']';
}

QString usageText() {
    return QStringLiteral(
        "Usage: vorlix [COMMAND ARGUMENT | LINK... | --from-clipboard]\n"
        "\n"
        "Without a command, starts Vorlix: the main window and its tray menu. Closing the\n"
        "window keeps it running in the tray; starting it again brings the window back.\n"
        "Web links given on the command line are queued, by the running Vorlix when there\n"
        "is one; --from-clipboard queues the link on the clipboard.\n"
        "\n"
        "Diagnostic commands run without a display and print plain text:\n"
        "  analyze FILE     tempo (BPM) and key of an audio or video file\n"
        "  beatgrid FILE    beat grid of an audio or video file\n"
        "  moments FILE     visually distinct moments of a video file\n"
        "  summarize FILE   key sentences of a UTF-8 transcript\n"
        "  probe LINK       title, source, genre and library folder of a link\n"
        "\n"
        "Options:\n"
        "  -h, --help       show this help and exit\n"
        "  --version        show the version and exit\n");
}

QString versionText() { return QStringLiteral("vorlix " VORLIX_VERSION "\n"); }

void main(int argc, char **argv) {
    QStringList arguments;
    for (int i = 0; i < argc; ++i)
        arguments << QString::fromLocal8Bit(argv[i]);
    // Answered before any application object exists, so they work without a display.
    if (arguments.size() >= 2 && (arguments[1] == QLatin1String("--help") || arguments[1] == QLatin1String("-h") ||
                                  arguments[1] == QLatin1String("--version"))) {
        const QByteArray text = (arguments[1] == QLatin1String("--version") ? versionText() : usageText()).toLocal8Bit();
        std::fwrite(text.constData(), 1, size_t(text.size()), stdout);
        std::fflush(stdout);
        return;
    }
    const QString command = diagnosticCommand(arguments);
    if (command.isEmpty())
        runApplication(argc, argv);
    else
        runDiagnostic(argc, argv, command, arguments[2]);
}

} // namespace Bootstrap

#include "engine/YtDlp.h"

#include "engine/CookieBrowser.h"

#include "core/TextTrim.h"

#include "core/AppSettings.h"

#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>
#include <QTextBoundaryFinder>

#include <array>
#include <cmath>

namespace YtDlp {
namespace {

bool isNewline(QChar c) {
    switch (c.unicode()) {
    case 0x0A: case 0x0B: case 0x0C: case 0x0D: case 0x85: case 0x2028: case 0x2029:
        return true;
    default:
        return false;
    }
}

// Pieces between newline characters (any of LF, CR, VT, FF, NEL, LS, PS), empty ones dropped.
QStringList splitLines(const QString &text) {
    QStringList pieces;
    qsizetype start = 0;
    for (qsizetype i = 0; i <= text.size(); ++i) {
        if (i == text.size() || isNewline(text[i])) {
            if (i > start)
                pieces << text.mid(start, i - start);
            start = i + 1;
        }
    }
    return pieces;
}

// Cuts to `limit` user-perceived characters, so an emoji or an accented letter is never split.
QString truncateGraphemes(const QString &text, int limit) {
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, text);
    int count = 0;
    qsizetype cut = -1;
    while (finder.toNextBoundary() != -1) {
        ++count;
        if (count == limit)
            cut = finder.position();
        if (count > limit)
            return text.left(cut) + u'\u2026';
    }
    return text;
}

Progress stage(const QString &phase) { return Progress{std::nullopt, QString(), QString(), phase}; }

} // namespace


std::optional<double> parseDecimal(const QString &text) {
    static const QRegularExpression decimal(QStringLiteral(R"(\A[+-]?(?:\d+\.?\d*|\.\d+)(?:[eE][+-]?\d+)?\z)"));
    if (!decimal.match(text).hasMatch())
        return std::nullopt;
    bool ok = false;
    const double value = text.toDouble(&ok);
    if (!ok || !std::isfinite(value))
        return std::nullopt;
    return value;
}

QStringList buildArguments(const DownloadItem &item, const AppSettings &settings, const QString &pathFile,
                           const QString &outputDir) {
    QStringList args{
        QStringLiteral("--newline"),
        QStringLiteral("--no-warnings"),
        QStringLiteral("--progress-template"),
        progressTemplate,
        QStringLiteral("--print-to-file"),
        QStringLiteral("after_move:filepath"),
        pathFile,
        QStringLiteral("-o"),
        outputDir + u'/' + fileNameTemplate,
        QStringLiteral("--no-playlist"),
        QStringLiteral("-N"),
        QStringLiteral("8"),
        QStringLiteral("--retries"),
        QStringLiteral("8"),
        QStringLiteral("--fragment-retries"),
        QStringLiteral("8"),
        QStringLiteral("--socket-timeout"),
        QStringLiteral("20"),
    };

    // yt-dlp wants the folder that holds ffmpeg (and ffprobe beside it), not the program.
    if (const QString ffmpeg = Tools::ffmpegURL(); !ffmpeg.isEmpty())
        args << QStringLiteral("--ffmpeg-location") << QFileInfo(ffmpeg).path();

    if (settings.useBrowserCookies())
        if (const auto browser = CookieBrowser::detect())
            args << QStringLiteral("--cookies-from-browser") << browser->id;

    switch (item.mode()) {
    case DownloadMode::bestVideoAudio:
        if (settings.preferMP4())
            args << QStringLiteral("-f") << QStringLiteral("bv*[ext=mp4]+ba[ext=m4a]/b[ext=mp4]/bv*+ba/b")
                 << QStringLiteral("--merge-output-format") << QStringLiteral("mp4");
        else
            args << QStringLiteral("-f") << QStringLiteral("bv*+ba/b");
        break;
    case DownloadMode::videoOnly:
        args << QStringLiteral("-f") << (settings.preferMP4() ? QStringLiteral("bv*[ext=mp4]/bv*") : QStringLiteral("bv*"));
        break;
    case DownloadMode::audioOnly: {
        const QString format = settings.audioFormatRaw() == QLatin1String("m4a") ? QStringLiteral("m4a")
                                                                                 : QStringLiteral("mp3");
        // "-k": otherwise the downloader deletes a video of the same name the user already has
        // when it extracts from it; the run removes its own intermediate download itself.
        args << QStringLiteral("-f") << QStringLiteral("ba/b") << QStringLiteral("-x") << QStringLiteral("--audio-format")
             << format << QStringLiteral("--audio-quality") << QStringLiteral("0") << QStringLiteral("--embed-thumbnail")
             << QStringLiteral("--embed-metadata") << QStringLiteral("-k");
        break;
    }
    }

    if (item.clip()) {
        if (const auto section = item.clip()->sectionExpression())
            args << QStringLiteral("--download-sections") << *section << QStringLiteral("--force-keyframes-at-cuts");
    }

    args << item.url();
    return args;
}

std::optional<Progress> parseProgressLine(const QString &line) {
    if (line.startsWith(QLatin1String("VORLIX|"))) {
        const QStringList raw = line.split(u'|', Qt::KeepEmptyParts);
        if (raw.size() < 4)
            return std::nullopt;
        Progress p;
        QString percent = trimSpacesAndTabs(raw[1]).toString();
        percent.remove(u'%');
        // A percentage a little over 100 happens when the size was estimated; the bar stays in range.
        if (const auto value = parseDecimal(percent))
            p.fraction = std::clamp(*value / 100.0, 0.0, 1.0);
        p.speed = trimSpacesAndTabs(raw[2]).toString();
        p.eta = trimSpacesAndTabs(raw[3]).toString();
        return p;
    }
    if (line.startsWith(QLatin1String("[Merger]")))
        return stage(QStringLiteral("Merging video + audio"));
    if (line.startsWith(QLatin1String("[ExtractAudio]")))
        return stage(QStringLiteral("Extracting audio"));
    if (line.startsWith(QLatin1String("[EmbedThumbnail]")))
        return stage(QStringLiteral("Embedding artwork"));
    return std::nullopt;
}

QString friendlyError(const QString &text) {
    const QStringList pieces = splitLines(text);
    QString message;
    for (const QString &piece : pieces)
        if (piece.contains(QLatin1String("ERROR")))
            message = piece;
    if (message.isNull())
        message = pieces.isEmpty() ? QStringLiteral("Unknown error") : pieces.last();

    message.remove(QStringLiteral("ERROR: "));

    // The browser's login was asked for but the browser has no profile here.
    static const QRegularExpression noCookies(QStringLiteral("could not find (\\w+) cookies database"));
    if (const QRegularExpressionMatch m = noCookies.match(text); m.hasMatch()) {
        const QString browser = CookieBrowser::labelFor(m.captured(1));
        return QStringLiteral("No %1 login found on this computer: sign in to %1, or turn off \u201CUse %1 login "
                              "for private content\u201D in Settings.")
            .arg(browser);
    }

    if (message.contains(QLatin1String("--cookies")) || message.contains(QLatin1String("login required")) ||
        message.contains(QLatin1String("Requested content is not available"))) {
        // The hint names the settings row as it reads here.
        if (const auto browser = CookieBrowser::detect())
            return QString(loginNeededMessage)
                .replace(QStringLiteral("Use Chrome login"), QStringLiteral("Use ") + browser->label + QStringLiteral(" login"));
        return loginNeededMessage;
    }

    message = truncateGraphemes(message, 220);
    return message.isEmpty() ? QStringLiteral("Unknown error") : message;
}

bool shouldSelfHeal(const QString &errorMessage) {
    // Failures an engine update cannot cure: access, removal, the network, the disk.
    static const std::array<QLatin1String, 23> permanent{
        QLatin1String("login"),
        QLatin1String("cookies"),
        QLatin1String("private"),
        QLatin1String("members-only"),
        QLatin1String("premium"),
        QLatin1String("not available in your"),
        QLatin1String("copyright"),
        QLatin1String("removed"),
        QLatin1String("deleted"),
        QLatin1String("confirm your age"),
        QLatin1String("timed out"),
        QLatin1String("timeout"),
        QLatin1String("network"),
        QLatin1String("connection reset"),
        QLatin1String("connection refused"),
        QLatin1String("no space"),
        QLatin1String("permission denied"),
        QLatin1String("http error 404"),
        QLatin1String("video unavailable"),
        QLatin1String("this video is unavailable"),
        QLatin1String("sign in to confirm"),
        QLatin1String("only spotify track"),
        QLatin1String("couldn't read track"),
    };
    const QString lower = errorMessage.toLower();
    for (const QLatin1String &phrase : permanent)
        if (lower.contains(phrase))
            return false;
    return true;
}

} // namespace YtDlp

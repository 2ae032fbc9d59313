#include "analysis/TranscriptSearch.h"

#include "analysis/MomentsEngine.h"
#include "core/Utf8.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QtConcurrent/QtConcurrentMap>

#include <algorithm>
#include <cmath>
#include <functional>
#include <array>
#include <cctype>

namespace TranscriptSearch {
namespace {

constexpr qint64 largestSubtitleFile = 8'000'000;
constexpr qsizetype hitsPerFile = 41;
constexpr qsizetype enoughHits = 151;
// Files are read in parallel in batches; results are still taken in enumeration order, so the
// early stop lands on the same file as a one-by-one scan would.
constexpr qsizetype batchSize = 64;

QString trimSpacesAndTabs(const QString &text) {
    qsizetype first = 0;
    qsizetype last = text.size();
    while (first < last && (text.at(first) == u' ' || text.at(first) == u'\t'))
        ++first;
    while (last > first && (text.at(last - 1) == u' ' || text.at(last - 1) == u'\t'))
        --last;
    return text.mid(first, last - first);
}

bool isAscii(const QByteArray &bytes) {
    return std::all_of(bytes.cbegin(), bytes.cend(), [](char c) { return (uchar(c) & 0x80) == 0; });
}

// Horspool search that ignores ASCII case, without lowering a copy of the file.
class AsciiCaseInsensitiveFinder {
public:
    explicit AsciiCaseInsensitiveFinder(const QByteArray &lowerNeedle) : m_needle(lowerNeedle) {
        const qsizetype n = m_needle.size();
        m_skip.fill(n);
        for (qsizetype i = 0; i + 1 < n; ++i) {
            const uchar c = uchar(m_needle[i]);
            m_skip[c] = n - 1 - i;
            m_skip[uchar(std::toupper(c))] = n - 1 - i;
        }
    }
    bool isValid() const { return !m_needle.isEmpty(); }
    bool foundIn(const QByteArray &haystack) const {
        const qsizetype n = m_needle.size();
        const auto *hay = reinterpret_cast<const uchar *>(haystack.constData());
        const auto *needle = reinterpret_cast<const uchar *>(m_needle.constData());
        for (qsizetype pos = 0; pos + n <= haystack.size();) {
            const uchar last = hay[pos + n - 1];
            if (lower(last) == needle[n - 1]) {
                qsizetype i = n - 2;
                while (i >= 0 && lower(hay[pos + i]) == needle[i])
                    --i;
                if (i < 0)
                    return true;
            }
            pos += m_skip[last];
        }
        return false;
    }

private:
    static uchar lower(uchar c) { return c >= 'A' && c <= 'Z' ? uchar(c + 32) : c; }
    QByteArray m_needle;
    std::array<qsizetype, 256> m_skip{};
};

// Unicode case folding turns only the Kelvin sign and the long s into ASCII letters (k, s): an
// ASCII query without those letters cannot match non-ASCII text that its bytes do not match.
bool byteSearchIsExact(const QByteArray &lowerNeedle, const QByteArray &haystack) {
    return !lowerNeedle.contains('k') && !lowerNeedle.contains('s') ? true : isAscii(haystack);
}

std::optional<QByteArray> readSmallFile(const QString &path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    const qint64 size = file.size();
    if (size > largestSubtitleFile)
        return std::nullopt;
    QByteArray bytes = file.read(largestSubtitleFile + 1);
    if (bytes.size() > largestSubtitleFile) // grew while we looked
        return std::nullopt;
    return bytes;
}

// Cues of one file's text (line ends already normalised) that contain query.
QList<Hit> cuesMatching(const QString &text, const QString &query, const QString &srtFile) {
    const std::optional<QString> media = siblingMedia(srtFile);
    const QString videoName = MomentsEngine::shortName(media.value_or(srtFile), 42);
    QList<Hit> hits;
    for (const QString &block : text.split(QStringLiteral("\n\n"))) {
        const QStringList lines = block.split(u'\n', Qt::SkipEmptyParts);
        if (lines.size() < 2)
            continue;
        const auto timeLine = std::find_if(lines.cbegin(), lines.cend(),
                                           [](const QString &line) { return line.contains(QLatin1String("-->")); });
        if (timeLine == lines.cend())
            continue;
        const QString cueText = trimSpacesAndTabs(QStringList(timeLine + 1, lines.cend()).join(u' '));
        if (!cueText.contains(query, Qt::CaseInsensitive))
            continue;
        const QStringList times = timeLine->split(QLatin1String("-->"));
        if (times.size() != 2)
            continue;
        const auto start = seconds(trimSpacesAndTabs(times[0]));
        const auto end = seconds(trimSpacesAndTabs(times[1]));
        if (!start || !end)
            continue;
        Hit hit;
        hit.videoFile = media;
        hit.srtFile = srtFile;
        hit.start = *start;
        hit.end = *end;
        hit.text = cueText;
        hit.videoName = videoName;
        hits.append(hit);
        if (hits.size() >= hitsPerFile)
            break;
    }
    return hits;
}

QList<Hit> matchesWithin(const QString &query, const QByteArray &asciiLowerQuery,
                         const AsciiCaseInsensitiveFinder &finder, const QString &srtFile) {
    const auto bytes = readSmallFile(srtFile);
    if (!bytes)
        return {};
    // Most files do not mention the phrase: answer those from the raw bytes when that is exact.
    if (finder.isValid() && !finder.foundIn(*bytes) && byteSearchIsExact(asciiLowerQuery, *bytes))
        return {};
    std::optional<QString> text = decodeUtf8Strict(*bytes);
    if (!text || !text->contains(query, Qt::CaseInsensitive))
        return {};
    // Windows and old Mac line ends read like Unix ones.
    text->replace(QLatin1String("\r\n"), QLatin1String("\n"));
    text->replace(u'\r', u'\n');
    return cuesMatching(*text, query, srtFile);
}

QByteArray asciiLower(const QString &query) {
    for (QChar c : query)
        if (c.unicode() >= 0x80)
            return {};
    return query.toLatin1().toLower();
}

} // namespace

std::optional<double> seconds(const QString &srtTime) {
    QString text = srtTime;
    text.replace(u',', u'.');
    QList<double> numbers;
    for (const QString &piece : text.split(u':', Qt::SkipEmptyParts)) {
        bool ok = false;
        const double value = piece.toDouble(&ok);
        if (ok && std::isfinite(value))
            numbers.append(value);
    }
    if (numbers.size() != 3)
        return std::nullopt;
    return numbers[0] * 3600 + numbers[1] * 60 + numbers[2];
}

std::optional<QString> siblingMedia(const QString &srtFile) {
    const QFileInfo info(srtFile);
    const QString name = info.fileName();
    const qsizetype dot = name.lastIndexOf(u'.');
    const QString stem = info.path() + u'/' + (dot > 0 ? name.left(dot) : name);
    for (const char *extension : {"mp4", "mkv", "webm", "mov", "m4a", "mp3"}) {
        const QString candidate = stem + u'.' + QLatin1String(extension);
        if (QFileInfo(candidate).isFile())
            return candidate;
    }
    return std::nullopt;
}

QList<Hit> matches(const QString &query, const QString &srtFile) {
    const QByteArray lowerQuery = asciiLower(query);
    return matchesWithin(query, lowerQuery, AsciiCaseInsensitiveFinder(lowerQuery), srtFile);
}

QList<Hit> search(const QString &query, const QString &folder) {
    const QString trimmed = trimSpacesAndTabs(query);
    if (trimmed.size() < 2 || folder.isEmpty())
        return {};
    const QByteArray lowerQuery = asciiLower(trimmed);
    const AsciiCaseInsensitiveFinder finder(lowerQuery);

    QList<Hit> hits;
    QDirIterator it(folder, QDir::Files | QDir::Dirs | QDir::NoDotAndDotDot, QDirIterator::Subdirectories);
    bool done = false;
    while (!done && it.hasNext()) {
        QStringList batch;
        while (batch.size() < batchSize && it.hasNext()) {
            it.next();
            const QFileInfo info = it.fileInfo();
            if (!info.isFile() || info.suffix().toLower() != QLatin1String("srt"))
                continue;
            if (info.size() > largestSubtitleFile)
                continue;
            batch.append(info.filePath());
        }
        const std::function<QList<Hit>(const QString &)> scan = [&](const QString &path) {
            return matchesWithin(trimmed, lowerQuery, finder, path);
        };
        const QList<QList<Hit>> perFile = QtConcurrent::blockingMapped<QList<QList<Hit>>>(batch, scan);
        for (const QList<Hit> &fileHits : perFile) {
            hits.append(fileHits);
            if (hits.size() >= enoughHits) {
                done = true;
                break;
            }
        }
    }
    std::stable_sort(hits.begin(), hits.end(), [](const Hit &a, const Hit &b) {
        const int byName = a.videoName.compare(b.videoName);
        return byName != 0 ? byName < 0 : a.start < b.start;
    });
    return hits;
}

QString clipFileName(const Hit &hit) {
    QString quote = MomentsEngine::leftCharacters(hit.text, 32);
    quote.replace(u'/', u'-');
    quote.replace(u':', u'-');
    QString label = hit.timeLabel();
    label.replace(u':', u'm');
    return hit.videoName + QStringLiteral(" \u2014 \u201C") + quote + QStringLiteral("\u201D @ ") + label +
           QStringLiteral("s.mp4");
}

ClipWindow clipWindow(const Hit &hit) {
    return {std::max(0.0, hit.start - 0.8), std::min(15.0, std::max(2.0, hit.end - hit.start + 2.0))};
}

QCoro::Task<std::optional<QString>> exportClip(Hit hit) {
    if (!hit.videoFile)
        co_return std::nullopt;
    const QString folder =
        QFileInfo(*hit.videoFile).absolutePath() + u'/' + hit.videoName + QStringLiteral(" \u2014 Quotes");
    QDir().mkpath(folder);
    const ClipWindow window = clipWindow(hit);
    const QString output = folder + u'/' + clipFileName(hit);
    const bool ok = co_await MomentsEngine::exportClip(*hit.videoFile, window.start, window.length,
                                                       MomentsEngine::Aspect::original, output);
    co_return ok ? std::optional<QString>(output) : std::nullopt;
}

} // namespace TranscriptSearch

#include "analysis/MomentsEngine.h"

#include "core/AppSettings.h"
#include "engine/Tools.h"

#include <QDir>
#include <QFile>
#include <QImage>
#include <QFileInfo>
#include <QRegularExpression>
#include <QTextBoundaryFinder>
#include <QtConcurrent/QtConcurrentRun>

#include <QCoroFuture>

#include <algorithm>
#include <bit>
#include <cmath>
#include <memory>
#include <numeric>

namespace MomentsEngine {
namespace {

constexpr double shortestVideo = 4.0;
constexpr int poolSize = 48;
constexpr int maxAccepted = 20;
constexpr int minReturned = 5;
constexpr int parallelThumbnails = 4;
constexpr qint64 largestThumbnail = 32 * 1024 * 1024;

QString fixed(const char *format, double value) { return QString::asprintf(format, value); }

// The number made of the longest run of digits and dots right after marker.
std::optional<double> numberAfter(const QString &line, QLatin1String marker) {
    const qsizetype at = line.indexOf(marker);
    if (at < 0)
        return std::nullopt;
    qsizetype end = at + marker.size();
    while (end < line.size() && (line.at(end).isDigit() || line.at(end) == u'.'))
        ++end;
    bool ok = false;
    const double value = line.mid(at + marker.size(), end - at - marker.size()).toDouble(&ok);
    if (!ok || !std::isfinite(value))
        return std::nullopt;
    return value;
}

bool isSpaced(double t, const QList<Candidate> &pool, double spacing) {
    return std::all_of(pool.cbegin(), pool.cend(), [&](const Candidate &c) { return std::abs(c.time - t) >= spacing; });
}

void sortByScore(QList<Candidate> &list) {
    std::stable_sort(list.begin(), list.end(), [](const Candidate &a, const Candidate &b) { return a.score > b.score; });
}

std::optional<QByteArray> readThumbnail(const QString &path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly) || file.size() > largestThumbnail)
        return std::nullopt;
    return file.readAll();
}

// The result of one successful ffmpeg run that writes `output`.
QCoro::Task<bool> runProducing(QString ffmpeg, QStringList args, double timeout, QString output,
                               Tools::CancellationPtr cancellation = {}) {
    if (ffmpeg.isEmpty())
        co_return false;
    try {
        const Tools::RunResult result = co_await Tools::run(ffmpeg, args, timeout, cancellation);
        if (cancellation && cancellation->isCancelled())
            co_return false;
        co_return result.status == 0 && QFileInfo::exists(output);
    } catch (const std::exception &) {
        co_return false;
    }
}

QStringList thumbnailArguments(double time, const QString &file, const QString &path) {
    return {QStringLiteral("-ss"), fixed("%.3f", time), QStringLiteral("-i"), file, QStringLiteral("-frames:v"),
            QStringLiteral("1"),   QStringLiteral("-vf"), QStringLiteral("scale=480:-2"), QStringLiteral("-q:v"),
            QStringLiteral("5"),   QStringLiteral("-y"),  path};
}

struct ThumbnailJob {
    QList<Candidate> candidates;
    QString file;
    QString cacheDir;
    QString ffmpeg;
    qsizetype next = 0;
    QList<std::optional<QString>> results;
};

// One of the parallel extractors: takes the next candidate until none is left; each result goes
// into its candidate's slot, so finishing order does not matter.
QCoro::Task<> thumbnailWorker(ThumbnailJob *job) {
    while (job->next < job->candidates.size()) {
        const qsizetype i = job->next++;
        const QString path = job->cacheDir + QStringLiteral("/m%1.jpg").arg(i);
        const QStringList args = thumbnailArguments(job->candidates[i].time, job->file, path);
        if (co_await runProducing(job->ffmpeg, args, 60, path))
            job->results[i] = path;
    }
}

struct HashedThumbnail {
    quint64 hash = 0;
    QByteArray signature;
};

std::optional<HashedThumbnail> hashOne(const QString &path) {
    if (!QFileInfo::exists(path))
        return std::nullopt;
    const auto hash = dHash(path);
    const auto signature = colorSignature(path);
    if (!hash || !signature)
        return std::nullopt;
    return HashedThumbnail{*hash, *signature};
}

// The duplicate walk, fed one pool entry at a time in pool order.
class DistinctSelector {
public:
    explicit DistinctSelector(ThumbnailCallback onThumbnail) : m_onThumbnail(std::move(onThumbnail)) {}

    bool isFull() const { return m_accepted.size() >= maxAccepted; }

    void offer(const Fingerprint &fp) {
        if (isFull())
            return;
        const bool duplicate = std::any_of(m_accepted.cbegin(), m_accepted.cend(), [&](const Fingerprint &other) {
            return isNearDuplicate(fp.hash, fp.signature, other.hash, other.signature);
        });
        if (duplicate)
            m_reserve.append(fp);
        else
            accept(fp);
    }

    // Tops up from the near-duplicates, strongest first: a video that is one long shot still
    // deserves a handful of moments. Returns the moments in acceptance order.
    QList<Moment> finish() {
        std::vector<qsizetype> order(size_t(m_reserve.size()));
        std::iota(order.begin(), order.end(), 0);
        std::stable_sort(order.begin(), order.end(), [&](qsizetype a, qsizetype b) {
            return m_reserve[a].moment.score > m_reserve[b].moment.score;
        });
        for (size_t i = 0; i < order.size() && m_accepted.size() < minReturned; ++i)
            accept(m_reserve[order[i]]);
        QList<Moment> moments;
        for (const Fingerprint &fp : std::as_const(m_accepted))
            moments.append(fp.moment);
        return moments;
    }

private:
    void accept(const Fingerprint &fp) {
        m_accepted.append(fp);
        if (m_onThumbnail)
            m_onThumbnail(fp.moment);
    }

    ThumbnailCallback m_onThumbnail;
    QList<Fingerprint> m_accepted;
    QList<Fingerprint> m_reserve;
};

// Thumbnails are extracted and hashed in parallel while the duplicate walk follows in pool
// order; once 20 moments are accepted the remaining candidates are never extracted.
struct AnalysisJob {
    QList<Candidate> pool;
    QString file;
    QString cacheDir;
    QString ffmpeg;
    Tools::CancellationPtr cancellation;
    DistinctSelector selector;
    qsizetype next = 0;
    qsizetype walked = 0;
    QList<std::optional<QString>> thumbnails;
    QList<std::optional<HashedThumbnail>> hashes;
    QList<bool> finished;

    void walk() {
        while (walked < pool.size() && finished[walked] && !selector.isFull()) {
            if (const auto &h = hashes[walked]) {
                Moment moment;
                moment.time = pool[walked].time;
                moment.score = pool[walked].score;
                moment.thumbnail = thumbnails[walked];
                selector.offer({moment, h->hash, h->signature});
            }
            ++walked;
        }
    }
    bool isCancelled() const { return cancellation && cancellation->isCancelled(); }
    bool hasWork() const { return next < pool.size() && !selector.isFull() && !isCancelled(); }
};

QCoro::Task<> analysisWorker(AnalysisJob *job) {
    while (job->hasWork()) {
        const qsizetype i = job->next++;
        const QString path = job->cacheDir + QStringLiteral("/m%1.jpg").arg(i);
        const QStringList args = thumbnailArguments(job->pool[i].time, job->file, path);
        if (co_await runProducing(job->ffmpeg, args, 60, path, job->cancellation)) {
            job->thumbnails[i] = path;
            // Decoding stays off the calling thread; the future is a named local because GCC 12
            // mishandles temporaries inside a co_await expression.
            QFuture<std::optional<HashedThumbnail>> hashing = QtConcurrent::run(&hashOne, path);
            job->hashes[i] = co_await hashing;
        }
        job->finished[i] = true;
        if (!job->isCancelled())
            job->walk();
    }
}

} // namespace

QList<Aspect> allAspects() { return {Aspect::original, Aspect::vertical, Aspect::square}; }

QString rawValue(Aspect aspect) {
    switch (aspect) {
    case Aspect::vertical:
        return QStringLiteral("9:16 Reels");
    case Aspect::square:
        return QStringLiteral("1:1 Square");
    case Aspect::original:
        break;
    }
    return QStringLiteral("Original");
}

std::optional<Aspect> aspectFromRaw(const QString &raw) {
    for (Aspect aspect : allAspects())
        if (rawValue(aspect) == raw)
            return aspect;
    return std::nullopt;
}

QString cropFilter(Aspect aspect) {
    switch (aspect) {
    case Aspect::vertical:
        return QStringLiteral("crop='min(iw,ih*9/16)':ih");
    case Aspect::square:
        return QStringLiteral("crop='min(iw,ih)':ih");
    case Aspect::original:
        break;
    }
    return {};
}

QString fileNameSuffix(Aspect aspect) {
    switch (aspect) {
    case Aspect::vertical:
        return QStringLiteral(" (Reels 9x16)");
    case Aspect::square:
        return QStringLiteral(" (Square 1x1)");
    case Aspect::original:
        break;
    }
    return {};
}

std::optional<double> parseDuration(const QString &ffmpegOutput) {
    const QLatin1String marker("Duration: ");
    const qsizetype at = ffmpegOutput.indexOf(marker);
    if (at < 0)
        return std::nullopt;
    const qsizetype start = at + marker.size();
    const qsizetype comma = ffmpegOutput.indexOf(u',', start);
    const QString text = ffmpegOutput.mid(start, comma < 0 ? -1 : comma - start);
    QList<double> numbers;
    for (const QString &part : text.split(u':')) {
        bool ok = false;
        const double value = part.toDouble(&ok);
        if (ok && std::isfinite(value))
            numbers.append(value);
    }
    if (numbers.size() != 3)
        return std::nullopt;
    return numbers[0] * 3600 + numbers[1] * 60 + numbers[2];
}

QCoro::Task<std::optional<double>> mediaDuration(QString file) { co_return co_await mediaDuration(file, Tools::ffmpegURL()); }

QCoro::Task<std::optional<double>> mediaDuration(QString file, QString ffmpeg, Tools::CancellationPtr cancellation) {
    if (ffmpeg.isEmpty())
        co_return std::nullopt;
    const QStringList args{QStringLiteral("-i"), file};
    try {
        // ffmpeg with an input and no output always fails; only the banner matters.
        const Tools::RunResult result = co_await Tools::run(ffmpeg, args, 60, cancellation);
        co_return parseDuration(result.stderrText);
    } catch (const std::exception &) {
        co_return std::nullopt;
    }
}

QList<Candidate> parseSceneScores(const QString &output) {
    static const QRegularExpression lineBreak(QStringLiteral("[\r\n]+"));
    QList<Candidate> scenes;
    double pendingTime = 0;
    bool pending = false;
    for (const QString &line : output.split(lineBreak, Qt::SkipEmptyParts)) {
        if (line.contains(QLatin1String("pts_time:"))) {
            const auto time = numberAfter(line, QLatin1String("pts_time:"));
            pending = time.has_value();
            pendingTime = time.value_or(0);
        } else if (pending && line.contains(QLatin1String("lavfi.scene_score="))) {
            if (const auto score = numberAfter(line, QLatin1String("lavfi.scene_score="))) {
                scenes.append({pendingTime, *score});
                pending = false;
            }
        }
    }
    return scenes;
}

QList<Candidate> pickCandidates(const QList<Candidate> &scenes, double duration) {
    const double startMargin = std::min(0.02 * duration, 1.0);
    const double endLimit = duration - 3.0;
    const double spacing = std::max(duration / poolSize, 2.0);
    const auto inside = [&](double t) { return t > startMargin && t < endLimit; };

    QList<Candidate> sorted;
    for (const Candidate &c : scenes)
        if (inside(c.time))
            sorted.append(c);
    sortByScore(sorted);

    QList<Candidate> pool;
    for (const Candidate &c : std::as_const(sorted)) {
        if (pool.size() >= poolSize)
            break;
        if (isSpaced(c.time, pool, spacing))
            pool.append(c);
    }
    // Too few cuts (a static video, a single long shot): fill with evenly spaced times.
    for (int k = 0; k < poolSize && pool.size() < poolSize; ++k) {
        const double t = (k + 0.5) * duration / poolSize;
        if (inside(t) && isSpaced(t, pool, spacing))
            pool.append({t, 0.0});
    }
    sortByScore(pool);
    return pool;
}

QCoro::Task<QList<std::optional<QString>>> extractThumbnails(QList<Candidate> candidates, QString file, QString cacheDir,
                                                             QString ffmpeg) {
    ThumbnailJob job{candidates, file, cacheDir, ffmpeg, 0, {}};
    job.results.resize(candidates.size());
    std::vector<QCoro::Task<>> workers;
    for (int i = 0; i < parallelThumbnails; ++i)
        workers.push_back(thumbnailWorker(&job));
    for (auto &worker : workers)
        co_await worker;
    co_return job.results;
}

namespace {
// The thumbnail drawn smoothly into a tiny bitmap; none when it cannot be decoded.
std::optional<QImage> shrunk(const QString &imageFile, int width, int height) {
    const auto bytes = readThumbnail(imageFile);
    if (!bytes)
        return std::nullopt;
    QImage image;
    if (!image.loadFromData(*bytes) || image.isNull())
        return std::nullopt;
    QImage small = image.convertToFormat(QImage::Format_RGB32)
                       .scaled(width, height, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
    if (small.isNull())
        return std::nullopt;
    return small;
}
} // namespace

std::optional<quint64> dHash(const QString &imageFile) {
    const auto small = shrunk(imageFile, 9, 8);
    if (!small)
        return std::nullopt;
    const QImage grey = small->convertToFormat(QImage::Format_Grayscale8);
    quint64 hash = 0;
    for (int r = 0; r < 8; ++r) {
        const uchar *row = grey.constScanLine(r);
        for (int c = 0; c < 8; ++c)
            if (row[c] > row[c + 1])
                hash |= quint64(1) << (8 * r + c);
    }
    return hash;
}

std::optional<QByteArray> colorSignature(const QString &imageFile) {
    const auto small = shrunk(imageFile, 4, 4);
    if (!small)
        return std::nullopt;
    QByteArray signature;
    signature.reserve(48);
    for (int y = 0; y < 4; ++y) {
        const auto *row = reinterpret_cast<const QRgb *>(small->constScanLine(y));
        for (int x = 0; x < 4; ++x) {
            signature.append(char(qRed(row[x])));
            signature.append(char(qGreen(row[x])));
            signature.append(char(qBlue(row[x])));
        }
    }
    return signature;
}

bool isNearDuplicate(quint64 hashA, const QByteArray &signatureA, quint64 hashB, const QByteArray &signatureB) {
    const int distance = std::popcount(hashA ^ hashB);
    if (distance < 12)
        return true;
    if (distance >= 18 || signatureA.isEmpty() || signatureA.size() != signatureB.size())
        return false;
    double sum = 0;
    for (qsizetype i = 0; i < signatureA.size(); ++i)
        sum += std::abs(int(quint8(signatureA[i])) - int(quint8(signatureB[i])));
    return sum / double(signatureA.size()) < 14.0;
}

QList<Moment> selectDistinct(const QList<Fingerprint> &pool, const ThumbnailCallback &onThumbnail) {
    DistinctSelector selector(onThumbnail);
    for (const Fingerprint &fp : pool)
        selector.offer(fp);
    return selector.finish();
}

QCoro::Task<QList<Moment>> analyze(QString file, ThumbnailCallback onThumbnail) {
    co_return co_await analyze(file, std::move(onThumbnail), Tools::ffmpegURL(), AppSettings::appSupportDir());
}

QCoro::Task<QList<Moment>> analyze(QString file, ThumbnailCallback onThumbnail, QString ffmpeg, QString supportDir,
                                   Tools::CancellationPtr cancellation) {
    if (ffmpeg.isEmpty())
        co_return {};
    const std::optional<double> duration = co_await mediaDuration(file, ffmpeg, cancellation);
    if (!duration || *duration <= shortestVideo)
        co_return {};

    QList<Candidate> scenes;
    try {
        // The exit status is ignored: a scan cut short by its time-out still printed real cuts.
        const Tools::RunResult scan = co_await Tools::run(ffmpeg, sceneScanArguments(file), 600, cancellation);
        scenes = parseSceneScores(scan.stderrText + u'\n' + scan.stdoutText);
    } catch (const std::exception &) {
        // No scan: the even fill below provides every candidate.
    }
    if (cancellation && cancellation->isCancelled())
        co_return {};
    const QList<Candidate> pool = pickCandidates(scenes, *duration);

    const QString cacheDir = supportDir + QStringLiteral("/moments-cache/") +
                             QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
    QDir().mkpath(cacheDir);
    AnalysisJob job{pool, file, cacheDir, ffmpeg, cancellation, DistinctSelector(std::move(onThumbnail)), 0, 0, {}, {}, {}};
    job.thumbnails.resize(pool.size());
    job.hashes.resize(pool.size());
    job.finished.resize(pool.size());
    std::vector<QCoro::Task<>> workers;
    for (int i = 0; i < parallelThumbnails; ++i)
        workers.push_back(analysisWorker(&job));
    for (auto &worker : workers)
        co_await worker;
    if (job.isCancelled())
        co_return {};
    QList<Moment> moments = job.selector.finish();
    std::stable_sort(moments.begin(), moments.end(), [](const Moment &a, const Moment &b) { return a.time < b.time; });
    co_return moments;
}

QStringList sceneScanArguments(const QString &file) {
    return {QStringLiteral("-i"), file, QStringLiteral("-vf"),
            QStringLiteral("scale=320:-2,select='gt(scene,0.12)',metadata=print"), QStringLiteral("-an"),
            QStringLiteral("-f"), QStringLiteral("null"), QStringLiteral("-")};
}

QStringList clipArguments(const QString &video, double start, double length, Aspect aspect, const QString &output) {
    QStringList args{QStringLiteral("-ss"), fixed("%.3f", start), QStringLiteral("-i"), video, QStringLiteral("-t"),
                     fixed("%.2f", length)};
    if (aspect != Aspect::original)
        args << QStringLiteral("-vf") << cropFilter(aspect);
    args << QStringLiteral("-c:v") << QStringLiteral("libx264") << QStringLiteral("-preset") << QStringLiteral("veryfast")
         << QStringLiteral("-crf") << QStringLiteral("19") << QStringLiteral("-pix_fmt") << QStringLiteral("yuv420p")
         << QStringLiteral("-c:a") << QStringLiteral("aac") << QStringLiteral("-b:a") << QStringLiteral("192k")
         << QStringLiteral("-movflags") << QStringLiteral("+faststart") << QStringLiteral("-y") << output;
    return args;
}

QStringList stillArguments(const QString &video, double time, const QString &output) {
    return {QStringLiteral("-ss"), fixed("%.3f", time), QStringLiteral("-i"), video, QStringLiteral("-frames:v"),
            QStringLiteral("1"), QStringLiteral("-y"), output};
}

QStringList gifArguments(const QString &video, double start, double length, Aspect aspect, const QString &output) {
    QString graph = QStringLiteral("[0:v]");
    if (aspect != Aspect::original)
        graph += cropFilter(aspect) + u',';
    graph += QStringLiteral("fps=12,scale=480:-2:flags=lanczos,split[a][b];[a]palettegen=stats_mode=diff[p];"
                            "[b][p]paletteuse=dither=bayer");
    return {QStringLiteral("-ss"), fixed("%.3f", start), QStringLiteral("-t"), fixed("%.2f", length),
            QStringLiteral("-i"), video, QStringLiteral("-filter_complex"), graph, QStringLiteral("-y"), output};
}

QCoro::Task<bool> exportClip(QString video, double start, double length, Aspect aspect, QString output,
                             Tools::CancellationPtr cancellation) {
    co_return co_await runProducing(Tools::ffmpegURL(), clipArguments(video, start, length, aspect, output), 300, output,
                                    cancellation);
}

QCoro::Task<bool> exportStill(QString video, double time, QString output, Tools::CancellationPtr cancellation) {
    co_return co_await runProducing(Tools::ffmpegURL(), stillArguments(video, time, output), 120, output, cancellation);
}

QCoro::Task<bool> exportGif(QString video, double start, double length, Aspect aspect, QString output,
                            Tools::CancellationPtr cancellation) {
    co_return co_await runProducing(Tools::ffmpegURL(), gifArguments(video, start, length, aspect, output), 300, output,
                                    cancellation);
}

QString exportFolder(const QString &video) {
    const QString folder =
        QFileInfo(video).absolutePath() + u'/' + shortName(video, 42) + QStringLiteral(" \u2014 Moments");
    QDir().mkpath(folder);
    return folder;
}

QString leftCharacters(const QString &text, int n) {
    if (n <= 0)
        return {};
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, text);
    int count = 0;
    while (finder.toNextBoundary() >= 0) {
        if (++count == n)
            return text.left(finder.position());
    }
    return text;
}

QString shortName(const QString &file, int maxLength) {
    QString name = QFileInfo(file).fileName();
    const qsizetype dot = name.lastIndexOf(u'.');
    if (dot > 0)
        name.truncate(dot);
    static const QRegularExpression siteId(QStringLiteral("\\s*\\[[^\\[\\]]{4,}\\]\\s*$"));
    name.remove(siteId);
    qsizetype first = 0;
    qsizetype last = name.size();
    while (first < last && (name.at(first) == u' ' || name.at(first) == u'\t'))
        ++first;
    while (last > first && (name.at(last - 1) == u' ' || name.at(last - 1) == u'\t'))
        --last;
    name = name.mid(first, last - first);

    QString prefix = leftCharacters(name, maxLength);
    if (prefix.size() == name.size())
        return name;
    const qsizetype space = prefix.lastIndexOf(u' ');
    if (space >= 0) {
        // Count characters, not UTF-16 units, before the space.
        QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, prefix.left(space));
        int before = 0;
        while (finder.toNextBoundary() >= 0)
            ++before;
        if (before > maxLength / 2)
            prefix.truncate(space);
    }
    return prefix;
}

} // namespace MomentsEngine

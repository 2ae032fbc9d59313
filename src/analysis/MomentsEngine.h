#pragma once

#include "analysis/Moment.h"
#include "engine/Tools.h"

#include <QByteArray>
#include <QList>
#include <QString>

#include <QCoroTask>

#include <functional>
#include <optional>

// Smart Moments: finds visually distinct shots of a video and exports approved ones as clips,
// stills and GIFs. Stateless; every operation is safe to call concurrently.
namespace MomentsEngine {

enum class Aspect { original, vertical, square };

QList<Aspect> allAspects();
QString rawValue(Aspect aspect);
std::optional<Aspect> aspectFromRaw(const QString &raw);
QString cropFilter(Aspect aspect);     // empty for original
QString fileNameSuffix(Aspect aspect); // e.g. " (Reels 9x16)"

// A time worth looking at and how strongly ffmpeg saw a cut there (0 for an even fill).
struct Candidate {
    double time = 0;
    double score = 0;
};

// A moment with what the duplicate test compares.
struct Fingerprint {
    Moment moment;
    quint64 hash = 0;
    QByteArray signature; // 48 bytes of RGB
};

using ThumbnailCallback = std::function<void(const Moment &)>;

// Moments of a video in time order; empty on any failure. onThumbnail sees each moment as soon
// as it is accepted.
QCoro::Task<QList<Moment>> analyze(QString file, ThumbnailCallback onThumbnail = {});
// Same with an explicit ffmpeg (empty: none) and the folder that holds "moments-cache".
// Cancelling `cancellation` ends the running ffmpeg children; the analysis then returns empty
// without handing out further moments.
QCoro::Task<QList<Moment>> analyze(QString file, ThumbnailCallback onThumbnail, QString ffmpeg, QString supportDir,
                                   Tools::CancellationPtr cancellation = {});

QCoro::Task<std::optional<double>> mediaDuration(QString file);
QCoro::Task<std::optional<double>> mediaDuration(QString file, QString ffmpeg, Tools::CancellationPtr cancellation = {});
// Reads "Duration: hh:mm:ss.ss," out of ffmpeg's banner.
std::optional<double> parseDuration(const QString &ffmpegOutput);

// The scene scan: prints every cut scoring above 0.12 on a 320-pixel-wide decode.
QStringList sceneScanArguments(const QString &file);
// Scene cuts printed by the metadata filter, in order of appearance.
QList<Candidate> parseSceneScores(const QString &output);
// The candidate pool: the strongest well-spaced cuts inside the margins, then an even fill, at
// most 48, strongest first.
QList<Candidate> pickCandidates(const QList<Candidate> &scenes, double duration);

// One thumbnail path per candidate ("m<i>.jpg"), in candidate order; none where extraction failed.
QCoro::Task<QList<std::optional<QString>>> extractThumbnails(QList<Candidate> candidates, QString file, QString cacheDir,
                                                             QString ffmpeg);

std::optional<quint64> dHash(const QString &imageFile);
std::optional<QByteArray> colorSignature(const QString &imageFile);
bool isNearDuplicate(quint64 hashA, const QByteArray &signatureA, quint64 hashB, const QByteArray &signatureB);
// Walks fingerprints in pool order, keeps distinct ones (at most 20) and tops up to 5 from the
// near-duplicates, strongest first. Returns the accepted moments in acceptance order.
QList<Moment> selectDistinct(const QList<Fingerprint> &pool, const ThumbnailCallback &onThumbnail);

// A cancelled export ends its ffmpeg and reports false; the caller removes the partial file.
QCoro::Task<bool> exportClip(QString video, double start, double length, Aspect aspect, QString output,
                             Tools::CancellationPtr cancellation = {});
QCoro::Task<bool> exportStill(QString video, double time, QString output, Tools::CancellationPtr cancellation = {});
QCoro::Task<bool> exportGif(QString video, double start, double length, Aspect aspect, QString output,
                            Tools::CancellationPtr cancellation = {});
// Argument vectors of the three exports, without the program.
QStringList clipArguments(const QString &video, double start, double length, Aspect aspect, const QString &output);
QStringList stillArguments(const QString &video, double time, const QString &output);
QStringList gifArguments(const QString &video, double start, double length, Aspect aspect, const QString &output);

// "<short name> — Moments" next to the video, created on the way.
QString exportFolder(const QString &video);
// The file's title without its extension and trailing site id, cut at a word near maxLength.
QString shortName(const QString &file, int maxLength);
// The first n user-perceived characters of text.
QString leftCharacters(const QString &text, int n);

} // namespace MomentsEngine

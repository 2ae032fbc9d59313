#pragma once

#include "TestEnv.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QString>
#include <QStringList>

#include <cmath>
#include <optional>

// Media for the moments and quote-clip suites, generated with the real ffmpeg.
namespace MomentsMedia {

inline bool ffmpeg(const QStringList &args) { return TestEnv::runFfmpeg(args); }

inline QString probe(const QString &file, const QStringList &entries) {
    QProcess p;
    p.start(QFileInfo(TestEnv::ffmpeg()).absolutePath() + QStringLiteral("/ffprobe"),
            QStringList{QStringLiteral("-v"), QStringLiteral("error")} + entries +
                QStringList{QStringLiteral("-of"), QStringLiteral("default=noprint_wrappers=1:nokey=1"), file});
    p.waitForFinished(60000);
    return QString::fromUtf8(p.readAllStandardOutput()).trimmed();
}

inline double duration(const QString &file) {
    bool ok = false;
    const double d = probe(file, {QStringLiteral("-show_entries"), QStringLiteral("format=duration")}).toDouble(&ok);
    return ok ? d : -1;
}

// "WxH" of the first video stream.
inline QString frameSize(const QString &file) {
    return probe(file, {QStringLiteral("-select_streams"), QStringLiteral("v:0"), QStringLiteral("-show_entries"),
                        QStringLiteral("stream=width,height")})
        .replace(u'\n', u'x');
}

// Mean grey level of the first frame of `file`, or of `file` at `at` seconds (-1 when unreadable).
inline double brightness(const QString &file, std::optional<double> at = std::nullopt) {
    QStringList args{QStringLiteral("-v"), QStringLiteral("error")};
    if (at)
        args << QStringLiteral("-ss") << QString::number(*at, 'f', 3);
    args << QStringLiteral("-i") << file << QStringLiteral("-frames:v") << QStringLiteral("1") << QStringLiteral("-vf")
         << QStringLiteral("scale=32:18,format=gray") << QStringLiteral("-f") << QStringLiteral("rawvideo")
         << QStringLiteral("-");
    QProcess p;
    p.start(TestEnv::ffmpeg(), args);
    p.waitForFinished(60000);
    const QByteArray grey = p.readAllStandardOutput();
    if (grey.size() != 32 * 18)
        return -1;
    double sum = 0;
    for (const char c : grey)
        sum += quint8(c);
    return sum / double(grey.size());
}

// Made once per test run: 6 s of 640x360 picture that brightens steadily from black (so a frame
// tells when it was taken), with a tone. Tests that may delete it work on copies.
inline QString rampVideo() {
    static const QString path = [] {
        const QString file = TestEnv::root() + QStringLiteral("/media/ramp.mp4");
        QDir().mkpath(QFileInfo(file).absolutePath());
        const bool ok = ffmpeg({QStringLiteral("-f"), QStringLiteral("lavfi"), QStringLiteral("-i"),
                                QStringLiteral("color=c=white:s=640x360:r=25:d=6,fade=t=in:st=0:d=6"),
                                QStringLiteral("-f"), QStringLiteral("lavfi"), QStringLiteral("-i"),
                                QStringLiteral("sine=f=440:d=6"), QStringLiteral("-c:v"), QStringLiteral("libx264"),
                                QStringLiteral("-preset"), QStringLiteral("ultrafast"), QStringLiteral("-pix_fmt"),
                                QStringLiteral("yuv420p"), QStringLiteral("-c:a"), QStringLiteral("aac"),
                                QStringLiteral("-shortest"), file});
        return ok ? file : QString();
    }();
    return path;
}

inline QString copyOfRamp(const QString &path) {
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile::remove(path);
    return QFile::copy(rampVideo(), path) ? path : QString();
}

} // namespace MomentsMedia

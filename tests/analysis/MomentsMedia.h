#pragma once

#include "TestEnv.h"

#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QString>
#include <QStringList>

#include <cmath>
#include <optional>

// Media for the moments and transcript-clip suites, generated with the real ffmpeg.
namespace MomentsMedia {

inline QString ffprobe() { return QFileInfo(TestEnv::ffmpeg()).absolutePath() + QStringLiteral("/ffprobe"); }

inline bool ffmpeg(const QStringList &args) { return TestEnv::runFfmpeg(args); }

inline QString probe(const QString &file, const QStringList &entries) {
    QProcess p;
    QStringList args{QStringLiteral("-v"), QStringLiteral("error")};
    args += entries;
    args << QStringLiteral("-of") << QStringLiteral("default=noprint_wrappers=1:nokey=1") << file;
    p.start(ffprobe(), args);
    p.waitForFinished(60000);
    return QString::fromUtf8(p.readAllStandardOutput()).trimmed();
}

inline std::optional<double> duration(const QString &file) {
    bool ok = false;
    const double d = probe(file, {QStringLiteral("-show_entries"), QStringLiteral("format=duration")}).toDouble(&ok);
    return ok ? std::optional<double>(d) : std::nullopt;
}

// "WxH" of the first video stream.
inline QString frameSize(const QString &file) {
    return probe(file, {QStringLiteral("-select_streams"), QStringLiteral("v:0"), QStringLiteral("-show_entries"),
                        QStringLiteral("stream=width,height")})
        .replace(u'\n', u'x');
}

// Mean absolute difference of two pictures' 32x18 grey reductions (255 when unreadable).
inline double meanDifference(const QString &a, const QString &b) {
    const auto grey = [](const QString &file) {
        QProcess p;
        p.start(TestEnv::ffmpeg(), {QStringLiteral("-v"), QStringLiteral("error"), QStringLiteral("-i"), file,
                                    QStringLiteral("-vf"), QStringLiteral("scale=32:18,format=gray"), QStringLiteral("-f"),
                                    QStringLiteral("rawvideo"), QStringLiteral("-")});
        p.waitForFinished(60000);
        return p.readAllStandardOutput();
    };
    const QByteArray x = grey(a);
    const QByteArray y = grey(b);
    if (x.size() != 32 * 18 || y.size() != x.size())
        return 255;
    double sum = 0;
    for (qsizetype i = 0; i < x.size(); ++i)
        sum += std::abs(int(quint8(x[i])) - int(quint8(y[i])));
    return sum / double(x.size());
}

// A small test picture with a tone, `seconds` long.
inline bool videoWithAudio(const QString &path, double seconds, const QString &size = QStringLiteral("320x180")) {
    const QString d = QString::number(seconds);
    return ffmpeg({QStringLiteral("-f"), QStringLiteral("lavfi"), QStringLiteral("-i"),
                   QStringLiteral("testsrc2=s=%1:r=25:d=%2").arg(size, d), QStringLiteral("-f"), QStringLiteral("lavfi"),
                   QStringLiteral("-i"), QStringLiteral("sine=f=440:d=%1").arg(d), QStringLiteral("-c:v"),
                   QStringLiteral("libx264"), QStringLiteral("-preset"), QStringLiteral("ultrafast"),
                   QStringLiteral("-pix_fmt"), QStringLiteral("yuv420p"), QStringLiteral("-c:a"), QStringLiteral("aac"),
                   QStringLiteral("-shortest"), path});
}

} // namespace MomentsMedia

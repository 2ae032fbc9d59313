#pragma once

#include "TestEnv.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>

#include <optional>

// Media for the moments and quote-clip suites, generated with the real ffmpeg.
namespace MomentsMedia {

// Standard output of ffprobe (`tool` "ffprobe") or ffmpeg run with `args`.
inline QByteArray output(const QString &tool, const QStringList &args) {
    QProcess p;
    p.start(QFileInfo(TestEnv::ffmpeg()).absolutePath() + u'/' + tool, QStringList{QStringLiteral("-v"), QStringLiteral("error")} + args);
    p.waitForFinished(60000);
    return p.readAllStandardOutput().trimmed();
}

inline QString probe(const QString &file, const QString &entries, const QString &stream = {}) {
    QStringList args{QStringLiteral("-show_entries"), entries, QStringLiteral("-of"), QStringLiteral("default=nw=1:nk=1"), file};
    if (!stream.isEmpty())
        args << QStringLiteral("-select_streams") << stream << QStringLiteral("-count_frames");
    return QString::fromUtf8(output(QStringLiteral("ffprobe"), args));
}

inline double duration(const QString &file) { return probe(file, QStringLiteral("format=duration")).toDouble(); }
inline QString frameSize(const QString &file) { return probe(file, QStringLiteral("stream=width,height"), QStringLiteral("v:0")).replace(u'\n', u'x'); }

// Mean grey level of the frame at `at` seconds (the first by default) of `file`; -1 when unreadable.
inline double brightness(const QString &file, std::optional<double> at = std::nullopt) {
    const QByteArray grey = output(QStringLiteral("ffmpeg"), {QStringLiteral("-ss"), QString::number(at.value_or(0), 'f', 3), QStringLiteral("-i"), file,
                                                             QStringLiteral("-frames:v"), QStringLiteral("1"), QStringLiteral("-vf"), QStringLiteral("scale=32:18,format=gray"),
                                                             QStringLiteral("-f"), QStringLiteral("rawvideo"), QStringLiteral("-")});
    double sum = 0;
    for (const char c : grey)
        sum += quint8(c);
    return grey.size() == 32 * 18 ? sum / double(grey.size()) : -1;
}

// Made once per test run: 6 s of 640x360 picture that brightens steadily from black (so a frame
// tells when it was taken), with a tone. Tests that may delete it work on copies.
inline QString copyOfRamp(const QString &path) {
    static const QString ramp = TestEnv::root() + QStringLiteral("/media/ramp.mp4");
    static const bool made = QDir().mkpath(TestEnv::root() + QStringLiteral("/media")) &&
                             TestEnv::runFfmpeg({QStringLiteral("-f"), QStringLiteral("lavfi"), QStringLiteral("-i"), QStringLiteral("color=c=white:s=640x360:r=25:d=6,fade=t=in:st=0:d=6"),
                                                 QStringLiteral("-f"), QStringLiteral("lavfi"), QStringLiteral("-i"), QStringLiteral("sine=f=440:d=6"), QStringLiteral("-c:v"),
                                                 QStringLiteral("libx264"), QStringLiteral("-preset"), QStringLiteral("ultrafast"), QStringLiteral("-pix_fmt"),
                                                 QStringLiteral("yuv420p"), QStringLiteral("-c:a"), QStringLiteral("aac"), QStringLiteral("-shortest"), ramp});
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile::remove(path);
    return made && QFile::copy(ramp, path) ? path : QString();
}

} // namespace MomentsMedia

#pragma once

#include <QString>
#include <QUuid>

#include <optional>

// Clock text for a position in a video: whole seconds, hours shown only from one hour up
// ("1:15", "1:02:05"). Moments and transcript hits label their times the same way.
QString clockLabel(double seconds);

// One visually distinct shot of a video, found by the Smart Moments analysis.
struct Moment {
    QUuid id = QUuid::createUuid();
    double time = 0;                  // seconds from the start of the video
    double score = 0;                 // ffmpeg's scene-change score; 0 for an evenly spaced pick
    std::optional<QString> thumbnail; // JPEG path inside the moments cache

    QString timeLabel() const { return clockLabel(time); }
};

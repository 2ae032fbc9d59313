#pragma once

#include "analysis/Moment.h"

#include <QList>
#include <QString>
#include <QUuid>

#include <QCoroTask>

#include <optional>

// Finds spoken phrases in the ".srt" files the transcriber leaves next to media files, and cuts
// the clip where a phrase is said.
namespace TranscriptSearch {

struct Hit {
    QUuid id = QUuid::createUuid();
    std::optional<QString> videoFile; // the media file beside the subtitles, if still there
    QString srtFile;
    double start = 0;
    double end = 0;
    QString text;      // the cue's lines joined by spaces
    QString videoName; // short display name of the media (or subtitle) file

    QString timeLabel() const { return clockLabel(start); }
};

// Every cue containing query under folder (hidden entries skipped), sorted by video name then
// time. Blocking: call it off the user-interface thread.
QList<Hit> search(const QString &query, const QString &folder);
// One subtitle file's hits in file order, at most 41; query already trimmed.
QList<Hit> matches(const QString &query, const QString &srtFile);
// "00:01:02,500" -> 62.5
std::optional<double> seconds(const QString &srtTime);
std::optional<QString> siblingMedia(const QString &srtFile);

// The clip's file name for a hit, inside its quotes folder.
QString clipFileName(const Hit &hit);
// The stretch of media a quote clip covers: a lead-in before the cue, some room after it.
struct ClipWindow {
    double start = 0;
    double length = 0;
};
ClipWindow clipWindow(const Hit &hit);
// Cuts the hit with a little context into "<video> — Quotes" beside the media; the clip's path.
QCoro::Task<std::optional<QString>> exportClip(Hit hit);

} // namespace TranscriptSearch

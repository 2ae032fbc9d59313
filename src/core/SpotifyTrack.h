#pragma once

#include <QString>
#include <QUrl>

// What a Spotify track page tells: used to find a recording and to tag the audio file.
struct SpotifyTrack {
    QString title;
    QString artist;
    QUrl artworkURL; // empty when the page has none

    friend bool operator==(const SpotifyTrack &, const SpotifyTrack &) = default;
};

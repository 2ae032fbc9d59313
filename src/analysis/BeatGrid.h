#pragma once

namespace PracticeMode {

// The music's pulse: a tempo and where its first beat falls. Clip exports use it to start and
// size cuts on the beat.
struct BeatGrid {
    double bpm = 0;       // beats per minute, one decimal
    double firstBeat = 0; // seconds from the start of the file, within the first beat

    double beatLength() const { return 60.0 / bpm; }

    // The grid point nearest to t (never before the first beat, never negative).
    double snap(double t) const;
    // d as a whole number of beats, at least one.
    double snapLength(double d) const;

    friend bool operator==(const BeatGrid &, const BeatGrid &) = default;
};

} // namespace PracticeMode

#include "analysis/BeatGrid.h"

#include <algorithm>
#include <cmath>

namespace PracticeMode {

double BeatGrid::snap(double t) const {
    const double beat = beatLength();
    double snapped = firstBeat;
    if (t > firstBeat)
        snapped = firstBeat + std::round((t - firstBeat) / beat) * beat;
    return std::max(0.0, snapped);
}

double BeatGrid::snapLength(double d) const {
    const double beat = beatLength();
    return std::max(beat, std::round(d / beat) * beat);
}

} // namespace PracticeMode

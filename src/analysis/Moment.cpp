#include "analysis/Moment.h"

#include <cmath>

QString clockLabel(double seconds) {
    const double clamped = std::isfinite(seconds) ? std::max(0.0, seconds) : 0.0;
    const qint64 s = qint64(clamped);
    if (s >= 3600)
        return QString::asprintf("%lld:%02lld:%02lld", s / 3600, (s % 3600) / 60, s % 60);
    return QString::asprintf("%lld:%02lld", s / 60, s % 60);
}

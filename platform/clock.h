// Clocks and the process's pseudo-random sequence: a monotonic counter for latencies, absolute
// time on the 2001 reference clock, and random()/srandom().
#pragma once

#include <QDateTime>

namespace platform {

// Seconds from an arbitrary fixed point, never going backwards; for measuring intervals.
double monotonicSeconds();

// Seconds since 1 January 2001 00:00:00 UTC (the reference clock of stored dates).
double absoluteTimeNow();
inline constexpr double kSecondsFrom1970To2001 = 978307200.0;
QDateTime dateFromAbsoluteTime(double seconds);
double absoluteTimeFromDate(const QDateTime& date);

// The C library's random() and srandom(): 31-bit values from a seedable sequence.
long random();
void srandom(unsigned int seed);

}  // namespace platform

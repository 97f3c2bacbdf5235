#include "clock.h"

#include <QTimeZone>

#include <cstdlib>
#include <ctime>

namespace platform {

double monotonicSeconds() {
    struct timespec ts {};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) / 1e9;
}

double absoluteTimeNow() {
    return static_cast<double>(QDateTime::currentMSecsSinceEpoch()) / 1000.0 -
           kSecondsFrom1970To2001;
}

QDateTime dateFromAbsoluteTime(double seconds) {
    return QDateTime::fromMSecsSinceEpoch(
        static_cast<qint64>((seconds + kSecondsFrom1970To2001) * 1000.0), Qt::UTC);
}

double absoluteTimeFromDate(const QDateTime& date) {
    return static_cast<double>(date.toMSecsSinceEpoch()) / 1000.0 - kSecondsFrom1970To2001;
}

long random() {
    return ::random();
}

void srandom(unsigned int seed) {
    ::srandom(seed);
}

}  // namespace platform

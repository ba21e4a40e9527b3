#include "platform/linux/system/SystemClock.h"

#include <chrono>

namespace skylet {

Seconds SystemClock::systemUptime() const {
    return std::chrono::steady_clock::now().time_since_epoch();
}

QDateTime SystemClock::currentDate() const {
    return QDateTime::currentDateTimeUtc();
}

} // namespace skylet

#include "platform/linux/system/SystemClock.h"

#include <gtest/gtest.h>

#include <ctime>

namespace skylet::test {

namespace {

Seconds monotonicTime() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return Seconds(static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9);
}

} // namespace

TEST(SystemClock, TheUptimeIsTheMonotonicClock) {
    const SystemClock clock;
    const Seconds before = monotonicTime();
    const Seconds uptime = clock.systemUptime();
    const Seconds after = monotonicTime();
    // A double holds a nanosecond of a year's uptime only about.
    EXPECT_GE(uptime, before - Seconds(1e-6));
    EXPECT_LE(uptime, after + Seconds(1e-6));
}

TEST(SystemClock, TheDateIsTheWallClockInUtc) {
    const QDateTime before = QDateTime::currentDateTimeUtc();
    const QDateTime date = SystemClock().currentDate();
    EXPECT_EQ(date.timeSpec(), Qt::UTC);
    EXPECT_GE(date, before);
    EXPECT_LE(date, QDateTime::currentDateTimeUtc());
}

} // namespace skylet::test

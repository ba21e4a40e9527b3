#include "platform/linux/transfer/UploadMeter.h"

#include <gtest/gtest.h>

namespace skylet {
namespace {

constexpr std::int64_t body = 20'000'000;

TcpInfo sent(std::int64_t acknowledged, std::int64_t pending) {
    return {.acknowledged = acknowledged, .pending = pending};
}

TEST(UploadMeterTest, WithNothingAcknowledgedNothingWasSent) {
    UploadMeter meter;
    meter.bodyStarts(sent(1500, 300));
    EXPECT_EQ(meter.acknowledged(sent(1500, 300), 0), 0);
    EXPECT_EQ(meter.acknowledged(sent(1500, 4'000'300), 4'000'000), 0);
}

TEST(UploadMeterTest, WhatWasStillPendingWhenTheBodyBeganIsNotTheBodys) {
    UploadMeter meter;
    meter.bodyStarts(sent(1000, 500));
    EXPECT_EQ(meter.acknowledged(sent(1500, 100'000), 100'000), 0);
    EXPECT_EQ(meter.acknowledged(sent(11'500, 90'000), 100'000), 10'000);
}

TEST(UploadMeterTest, AcknowledgedBytesAreCountedWithoutWhatTlsAndHttpAdd) {
    UploadMeter meter;
    meter.bodyStarts(sent(0, 0));
    // A tenth of the stream is not the body's.
    EXPECT_EQ(meter.acknowledged(sent(500'000, 500'000), 900'000), 450'000);
}

TEST(UploadMeterTest, AllAcknowledgedIsTheWholeBodyToTheByte) {
    UploadMeter meter;
    meter.bodyStarts(sent(777, 0));
    EXPECT_EQ(meter.acknowledged(sent(777 + body + 61'003, 0), body), body);
}

TEST(UploadMeterTest, NoMoreThanTheAcknowledgedBytesIsCountedWhileMoreIsOnItsWayToTheKernel) {
    UploadMeter meter;
    meter.bodyStarts(sent(0, 0));
    EXPECT_EQ(meter.acknowledged(sent(10'000, 20'000), 94'000), 10'000);
}

TEST(UploadMeterTest, AnAnswerNeverExceedsWhatWasGiven) {
    UploadMeter meter;
    meter.bodyStarts(sent(0, 0));
    EXPECT_EQ(meter.acknowledged(sent(5000, 0), 3000), 3000);
    EXPECT_LE(meter.acknowledged(sent(5000, 100), 3000), 3000);
}

TEST(UploadMeterTest, SizesBeyondFourGigabytesStayExact) {
    UploadMeter meter;
    meter.bodyStarts(sent(0, 0));
    const std::int64_t large = 5'000'000'000'000;
    EXPECT_EQ(meter.acknowledged(sent(large + 1000, 0), large), large);
    EXPECT_NEAR(static_cast<double>(meter.acknowledged(sent(large / 2, large / 2), large)),
                static_cast<double>(large) / 2, 1);
}

TEST(UploadMeterTest, WithoutAnyKnowledgeOfTheConnectionWhatWasGivenCounts) {
    UploadMeter meter;
    meter.bodyStarts(std::nullopt);
    EXPECT_EQ(meter.acknowledged(std::nullopt, 100'000), 100'000);
}

TEST(UploadMeterTest, OnceNothingIsKnownOfTheConnectionAnyMoreItTellsNothing) {
    UploadMeter meter;
    meter.bodyStarts(sent(0, 0));
    EXPECT_EQ(meter.acknowledged(std::nullopt, 100'000), 0);
}

} // namespace
} // namespace skylet

#include "platform/linux/transfer/DownloadMeter.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

namespace skylet {
namespace {

/// Bytes of a full TLS record in the stream, and what it carries.
constexpr std::int64_t record = 16'406;
constexpr std::int64_t carried = 16'384;
/// The stream up to the end of the head.
constexpr std::int64_t head = 3000;

DownloadMeter afterTheHead() {
    DownloadMeter meter;
    meter.bodyStarts(TcpInfo{head, 0});
    return meter;
}

DownloadMeter afterTwoRecords() {
    auto meter = afterTheHead();
    meter.recordRead(TcpInfo{head + record, 0}, carried);
    meter.recordRead(TcpInfo{head + 2 * record, 0}, 2 * carried);
    return meter;
}

TEST(DownloadMeterTest, WithNothingBehindTheHeadNothingHasArrived) {
    EXPECT_EQ(afterTheHead().arrived(TcpInfo{head, 0}, 0), 0);
}

TEST(DownloadMeterTest, BytesOfARecordThatIsNotWholeCountAsTheyCome) {
    const auto meter = afterTheHead();
    EXPECT_EQ(meter.arrived(TcpInfo{head + 5000, 0}, 0), 5000 - DownloadMeter::trailingOverhead);
    EXPECT_EQ(meter.arrived(TcpInfo{head + 10'000, 0}, 0), 10'000 - DownloadMeter::trailingOverhead);
}

TEST(DownloadMeterTest, WhatTheKernelStillHoldsCounts) {
    const auto meter = afterTheHead();
    EXPECT_EQ(meter.arrived(TcpInfo{head + 500'000, 500'000}, 0), 500'000 - DownloadMeter::trailingOverhead);
}

TEST(DownloadMeterTest, ABodyThatBeginsInTheHeadsRecordIsNotCountedTwice) {
    auto meter = afterTheHead();
    meter.recordRead(TcpInfo{head, 0}, 9000);
    EXPECT_EQ(meter.arrived(TcpInfo{head, 0}, 9000), 9000);
    EXPECT_EQ(meter.arrived(TcpInfo{head + 5000, 0}, 9000), 14'000 - DownloadMeter::trailingOverhead);
}

TEST(DownloadMeterTest, WhatIsWrappedAroundTheBodyIsNotCounted) {
    auto meter = afterTheHead();
    // A tenth of the stream is not the body's.
    meter.recordRead(TcpInfo{head + 100'000'000, 0}, 90'000'000);
    const auto arrived = meter.arrived(TcpInfo{head + 101'000'000, 1'000'000}, 90'000'000);
    EXPECT_NEAR(static_cast<double>(arrived), 90'900'000, 1000);
}

TEST(DownloadMeterTest, OneSmallRecordDoesNotTellTheShareOfAllThatFollow) {
    auto meter = afterTheHead();
    meter.recordRead(TcpInfo{head + 102, 0}, 80);
    const auto arrived = meter.arrived(TcpInfo{head + 102 + 10'000, 0}, 80);
    EXPECT_NEAR(static_cast<double>(arrived), 10'080, 200);
}

TEST(DownloadMeterTest, BeforeTheHeadIsInAnAllowanceIsMadeForItAndTheRestCounts) {
    DownloadMeter meter;
    meter.requestStarts(TcpInfo{head, 0});
    EXPECT_EQ(meter.arrived(TcpInfo{head + 1000, 0}, 0), 0);
    EXPECT_EQ(meter.arrived(TcpInfo{head + 10'000, 0}, 0), 10'000 - DownloadMeter::headOverhead);
}

TEST(DownloadMeterTest, BeforeTheHeadIsInNoMoreThanItsRecordCounts) {
    DownloadMeter meter;
    meter.requestStarts(TcpInfo{head, 0});
    EXPECT_EQ(meter.arrived(TcpInfo{head + 5'000'000, 5'000'000}, 0), DownloadMeter::largestRecord);
}

TEST(DownloadMeterTest, TheHeadEndsTheAllowanceForIt) {
    DownloadMeter meter;
    meter.requestStarts(TcpInfo{head, 0});
    meter.bodyStarts(TcpInfo{head + 700, 0});
    EXPECT_EQ(meter.arrived(TcpInfo{head + 10'700, 0}, 0), 10'000 - DownloadMeter::trailingOverhead);
}

TEST(DownloadMeterTest, IsNeverAheadOfTheBodyAtTheEndOfARecord) {
    const auto meter = afterTwoRecords();
    for (std::int64_t further = 0; further <= record; ++further) {
        EXPECT_LE(meter.arrived(TcpInfo{head + 2 * record + further, 0}, 2 * carried), 3 * carried);
    }
}

TEST(DownloadMeterTest, IsNeverLessThanWhatHasBeenRead) {
    const auto meter = afterTwoRecords();
    EXPECT_EQ(meter.arrived(TcpInfo{head + 2 * record, 0}, 3 * carried), 3 * carried);
    EXPECT_EQ(meter.arrived(TcpInfo{}, 2 * carried), 2 * carried);
}

TEST(DownloadMeterTest, RecordsThatCarryNothingCountForNoMoreThanOneThatIsNotWhole) {
    const auto meter = afterTwoRecords();
    EXPECT_LE(meter.arrived(TcpInfo{head + 50'000'000, 0}, 2 * carried), 2 * carried + DownloadMeter::largestRecord);
}

TEST(DownloadMeterTest, SizesBeyondFourGigabytesStayExact) {
    auto meter = afterTheHead();
    const std::int64_t large = 5'000'000'000'000;
    meter.recordRead(TcpInfo{head + large, 0}, large);
    EXPECT_EQ(meter.arrived(TcpInfo{head + large + 1000 + DownloadMeter::trailingOverhead, 0}, large), large + 1000);
}

TEST(DownloadMeterTest, WithoutAnyKnowledgeOfTheConnectionWhatHasBeenReadCounts) {
    DownloadMeter meter;
    EXPECT_EQ(meter.arrived(std::nullopt, 700), 700);
    EXPECT_EQ(meter.arrived(TcpInfo{100'000, 0}, 700), 700) << "nothing tells where the body begins";
    meter.recordRead(std::nullopt, 700);
    EXPECT_EQ(meter.arrived(TcpInfo{100'000, 0}, 700), 700);
}

TEST(TcpInfoTest, IsUnknownForWhatIsNoTcpSocket) {
    const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    EXPECT_FALSE(TcpInfo::of(socket).has_value());
    ::close(socket);
    EXPECT_FALSE(TcpInfo::of(-1).has_value());
}

} // namespace
} // namespace skylet

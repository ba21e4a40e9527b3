#include "platform/linux/transfer/curl/RecordGuard.h"

#include "support/Timing.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <thread>

namespace skylet {
namespace {

using namespace std::chrono_literals;

void work(std::chrono::nanoseconds amount) {
    const auto end = test::processorTime() + amount;
    while (test::processorTime() < end) {
    }
}

class RecordGuardTest : public testing::Test {
  protected:
    /// An action with two records that cost `amount` each.
    bool action(std::chrono::nanoseconds amount) {
        guard.actionBegins();
        bool isTooMuch = guard.recordArrived();
        work(amount);
        isTooMuch = guard.recordArrived() || isTooMuch;
        work(amount);
        guard.actionEnds();
        return isTooMuch;
    }

    std::int64_t progress = 0;
    RecordGuard guard{[this] { return progress; }};
};

TEST_F(RecordGuardTest, OneActionMayNotTakeLong) {
    EXPECT_TRUE(action(RecordGuard::actionLimit + 5ms));
}

TEST_F(RecordGuardTest, ManyShortActionsMayNotTakeLongInAll) {
    int actions = 0;
    while (!action(RecordGuard::actionLimit / 4) && actions < 1000) {
        ++actions;
    }
    EXPECT_GE(actions, RecordGuard::totalLimit / (RecordGuard::actionLimit / 2) - 1);
    EXPECT_LT(actions, 1000);
}

TEST_F(RecordGuardTest, WhereTheTransfersGetOnItIsNoMatter) {
    for (auto spent = 0ms; spent < 2 * RecordGuard::totalLimit; spent += RecordGuard::actionLimit / 2) {
        ++progress;
        EXPECT_FALSE(action(RecordGuard::actionLimit / 4));
    }
}

TEST_F(RecordGuardTest, WaitingForTheProcessorIsNotCounted) {
    guard.actionBegins();
    EXPECT_FALSE(guard.recordArrived());
    std::this_thread::sleep_for(RecordGuard::actionLimit * 2);
    EXPECT_FALSE(guard.recordArrived());
}

TEST_F(RecordGuardTest, WhatAHandshakeCostsIsNotCounted) {
    guard.connectionOpened();
    EXPECT_FALSE(action(RecordGuard::actionLimit * 2));
}

TEST_F(RecordGuardTest, AfterTheHandshakeItCountsAgain) {
    guard.connectionOpened();
    for (int call = 0; call < RecordGuard::handshakeCalls; ++call) {
        EXPECT_FALSE(guard.recordArrived());
    }
    EXPECT_TRUE(action(RecordGuard::actionLimit + 5ms));
}

TEST_F(RecordGuardTest, WhatLiesBetweenTwoActionsIsNotCounted) {
    for (int count = 0; count < 4; ++count) {
        EXPECT_FALSE(action(0ms));
        work(RecordGuard::totalLimit / 2);
    }
}

} // namespace
} // namespace skylet

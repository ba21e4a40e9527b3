#include "connectivity/ConnectionState.h"

#include <gtest/gtest.h>

#include <array>

namespace skylet {
namespace {

TEST(ConnectionState, OnlineEqualsOnlineWithTheSameLatency) {
    EXPECT_EQ(ConnectionState::online(12), ConnectionState::online(12));
}

TEST(ConnectionState, OnlineDiffersFromOnlineWithAnotherLatency) {
    EXPECT_NE(ConnectionState::online(12), ConnectionState::online(13));
}

TEST(ConnectionState, CheckingDiffersFromPaused) {
    EXPECT_NE(ConnectionState::checking(), ConnectionState::paused());
}

TEST(ConnectionState, EveryKindEqualsOnlyItself) {
    const std::array states = {ConnectionState::online(1), ConnectionState::checking(), ConnectionState::offline(),
                               ConnectionState::paused()};
    for (const auto& first : states) {
        for (const auto& second : states) {
            EXPECT_EQ(first == second, &first == &second);
        }
    }
}

TEST(ConnectionState, OnlineCarriesALatencyBeyond32Bits) {
    EXPECT_EQ(ConnectionState::online(5'000'000'000).latency(), 5'000'000'000);
}

} // namespace
} // namespace skylet

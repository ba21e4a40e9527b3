#include "platform/Cancellation.h"

#include <gtest/gtest.h>

#include <memory>

namespace skylet {
namespace {

TEST(CancellationAction, RunsItsActionEachTimeItIsCancelled) {
    int runs = 0;
    CancellationAction cancellation([&] { ++runs; });
    cancellation.cancel();
    EXPECT_EQ(runs, 1);
    cancellation.cancel();
    EXPECT_EQ(runs, 2);
}

TEST(CancellationAction, DoesNotRunItsActionWhenDropped) {
    int runs = 0;
    {
        CancellationAction cancellation([&] { ++runs; });
    }
    EXPECT_EQ(runs, 0);
}

TEST(CancellationAction, ReleasesItsActionOnlyWithItself) {
    auto held = std::make_shared<int>(0);
    const std::weak_ptr<int> watched = held;
    {
        CancellationAction cancellation([held = std::move(held)] { ++*held; });
        cancellation.cancel();
        EXPECT_FALSE(watched.expired());
    }
    EXPECT_TRUE(watched.expired());
}

} // namespace
} // namespace skylet

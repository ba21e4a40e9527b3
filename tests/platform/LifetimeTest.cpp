#include "platform/Lifetime.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>

namespace skylet {
namespace {

TEST(Lifetime, AGuardedActionRunsWhileItsOwnerLives) {
    const Lifetime lifetime;
    int sum = 0;
    const std::function<void(int)> add = lifetime.guard([&](int value) { sum += value; });
    add(2);
    add(3);
    EXPECT_EQ(sum, 5);
}

TEST(Lifetime, AGuardedActionDoesNothingOnceItsOwnerIsGone) {
    auto lifetime = std::make_unique<Lifetime>();
    int runs = 0;
    const std::function<void()> action = lifetime->guard([&] { ++runs; });
    lifetime.reset();
    action();
    EXPECT_EQ(runs, 0);
}

TEST(Lifetime, AResetSilencesWhatWasGuardedBeforeItAndNothingAfter) {
    Lifetime lifetime;
    int before = 0;
    int after = 0;
    const std::function<void()> old = lifetime.guard([&] { ++before; });
    lifetime.reset();
    const std::function<void()> fresh = lifetime.guard([&] { ++after; });
    old();
    fresh();
    EXPECT_EQ(before, 0);
    EXPECT_EQ(after, 1);
}

} // namespace
} // namespace skylet

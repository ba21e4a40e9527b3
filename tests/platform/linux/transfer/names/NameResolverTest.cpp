#include "platform/linux/transfer/names/NameResolver.h"

#include "support/EventLoop.h"
#include "support/FakeClock.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

namespace skylet {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Addresses = NameResolver::Addresses;
using Freshness = NameResolver::Freshness;

const auto host = QStringLiteral("probe.example");
const auto other = QStringLiteral("other.example");
const Addresses first{"192.0.2.1", "2001:db8::1"};
const Addresses second{"192.0.2.2"};

/// Stands for getaddrinfo: each call waits on its thread until the test answers it.
class FakeSystem {
  public:
    NameResolver::SystemLookUp lookUp() {
        return [state = state_](const QByteArray& name) {
            std::unique_lock lock(state->mutex);
            const auto call = state->calls.size();
            state->calls.push_back(name);
            state->changed.notify_all();
            state->changed.wait(lock, [&] { return state->answers.count(call) != 0; });
            return NameResolver::Answer{state->answers.at(call), {}};
        };
    }

    /// Of all names, in the order in which they began.
    std::vector<QByteArray> calls() const {
        const std::lock_guard lock(state_->mutex);
        return state_->calls;
    }

    void answer(std::size_t call, const Addresses& addresses) {
        const std::lock_guard lock(state_->mutex);
        state_->answers[call] = addresses;
        state_->changed.notify_all();
    }

    ~FakeSystem() {
        for (std::size_t call = 0; call < 1000; ++call) {
            answer(call, {});
        }
    }

    FakeSystem() = default;
    FakeSystem(const FakeSystem&) = delete;
    FakeSystem& operator=(const FakeSystem&) = delete;
    FakeSystem(FakeSystem&&) = delete;
    FakeSystem& operator=(FakeSystem&&) = delete;

  private:
    struct State {
        std::mutex mutex;
        std::condition_variable changed;
        std::vector<QByteArray> calls;
        std::map<std::size_t, Addresses> answers;
    };
    std::shared_ptr<State> state_ = std::make_shared<State>();
};

class NameResolverTest : public testing::Test {
  protected:
    void lookUp(const QString& name = host, Freshness freshness = Freshness::kept) {
        resolver->lookUp(name, freshness, [this](const Addresses& addresses) { results.push_back(addresses); });
    }

    bool runUntilCalls(std::size_t count) {
        return test::waitUntil([&] { return system.calls().size() >= count; });
    }
    bool runUntilResults(std::size_t count) {
        return test::waitUntil([&] { return results.size() >= count; });
    }
    void answer(std::size_t call, const Addresses& addresses) {
        const auto before = results.size();
        ASSERT_TRUE(runUntilCalls(call + 1));
        system.answer(call, addresses);
        ASSERT_TRUE(runUntilResults(before + 1));
    }
    /// Time enough for a thread that should not be there to show itself.
    static void settle() { test::runFor(std::chrono::milliseconds(30)); }

    FakeSystem system;
    std::shared_ptr<test::FakeClock> clock = std::make_shared<test::FakeClock>();
    std::shared_ptr<NetworkEpoch> epoch = std::make_shared<NetworkEpoch>();
    QByteArray configuration = "one";
    std::unique_ptr<NameResolver> resolver =
        std::make_unique<NameResolver>(clock, epoch, system.lookUp(), [this] { return configuration; });
    std::vector<Addresses> results;
};

TEST_F(NameResolverTest, TellsTheAddressesInTheSystemsOrderFromTheEventLoop) {
    lookUp();
    EXPECT_THAT(results, IsEmpty());
    answer(0, first);
    EXPECT_THAT(results, ElementsAre(first));
    EXPECT_THAT(system.calls(), ElementsAre("probe.example"));
}

TEST_F(NameResolverTest, ANameThatSeveralWaitForIsLookedUpOnce) {
    lookUp();
    lookUp();
    lookUp(host, Freshness::fresh);
    ASSERT_TRUE(runUntilCalls(1));
    settle();
    EXPECT_EQ(system.calls().size(), 1U);
    system.answer(0, first);
    ASSERT_TRUE(runUntilResults(3));
    EXPECT_THAT(results, ElementsAre(first, first, first));
}

TEST_F(NameResolverTest, TwoNamesDoNotWaitForEachOther) {
    lookUp(host);
    lookUp(other);
    ASSERT_TRUE(runUntilCalls(2));
    const bool isOtherSecond = system.calls()[1] == "other.example";
    system.answer(isOtherSecond ? 1 : 0, second);
    ASSERT_TRUE(runUntilResults(1));
    EXPECT_THAT(results, ElementsAre(second));
}

TEST_F(NameResolverTest, AnAnswerServesForAMinuteFromInsideTheCall) {
    lookUp();
    answer(0, first);
    clock->uptime += Seconds(29);
    lookUp();
    EXPECT_THAT(results, ElementsAre(first, first));
    settle();
    EXPECT_EQ(system.calls().size(), 1U);
}

TEST_F(NameResolverTest, AnAnswerThatCameLateServesWhoeverAsksNext) {
    lookUp();
    clock->uptime += Seconds(40);
    answer(0, first);
    lookUp();
    EXPECT_EQ(results.size(), 2U) << "kept from when it came, not from when it was asked for";
}

TEST_F(NameResolverTest, AnAgeingAnswerStillServesAndIsLookedUpAgainMeanwhile) {
    lookUp();
    answer(0, first);
    clock->uptime += Seconds(31);
    lookUp();
    EXPECT_THAT(results, ElementsAre(first, first));
    ASSERT_TRUE(runUntilCalls(2));
    system.answer(1, second);
    settle();
    clock->uptime += Seconds(35);
    lookUp();
    ASSERT_TRUE(runUntilResults(3));
    EXPECT_THAT(results, ElementsAre(first, first, second)) << "the newer answer, 35 s old";
}

TEST_F(NameResolverTest, AStaleAnswerGivesWayToANewOneThatComesSoon) {
    lookUp();
    answer(0, first);
    resolver->setStale(host, true);
    settle();
    EXPECT_EQ(system.calls().size(), 1U) << "only for those who want it";
    lookUp();
    EXPECT_EQ(results.size(), 1U);
    answer(1, second);
    EXPECT_THAT(results, ElementsAre(first, second));
    lookUp();
    settle();
    EXPECT_THAT(results, ElementsAre(first, second, second));
    EXPECT_EQ(system.calls().size(), 2U) << "the new answer is not stale";
}

TEST_F(NameResolverTest, AStaleAnswerServesWhereNoOtherComesSoon) {
    lookUp();
    answer(0, first);
    resolver->setStale(host, true);
    lookUp();
    ASSERT_TRUE(runUntilResults(2));
    EXPECT_THAT(results, ElementsAre(first, first));
    ASSERT_TRUE(runUntilCalls(2));
    system.answer(1, second);
    settle();
    EXPECT_EQ(results.size(), 2U) << "told once";
    lookUp();
    ASSERT_TRUE(runUntilResults(3));
    EXPECT_THAT(results, ElementsAre(first, first, second));
}

TEST_F(NameResolverTest, AStaleAnswerServesWhereThereIsNoOther) {
    lookUp();
    answer(0, first);
    resolver->setStale(host, true);
    lookUp();
    answer(1, {});
    EXPECT_THAT(results, ElementsAre(first, first));
}

TEST_F(NameResolverTest, TheSameAnswerAgainIsStaleToo) {
    lookUp();
    answer(0, first);
    resolver->setStale(host, true);
    lookUp();
    answer(1, first);
    lookUp();
    EXPECT_TRUE(runUntilCalls(3));
}

TEST_F(NameResolverTest, AnAnswerThatProvedRightIsStaleNoMore) {
    lookUp();
    answer(0, first);
    resolver->setStale(host, true);
    resolver->setStale(host, false);
    lookUp();
    EXPECT_THAT(results, ElementsAre(first, first));
    settle();
    EXPECT_EQ(system.calls().size(), 1U);
}

TEST_F(NameResolverTest, AnAddressThatLedNowhereComesLastUntilTheAnswerIsAnother) {
    const Addresses turned{first[1], first[0]};
    lookUp();
    answer(0, first);
    resolver->putFirstAddressLast(host);
    lookUp();
    EXPECT_THAT(results, ElementsAre(first, turned));
    lookUp(host, Freshness::fresh);
    answer(1, first);
    EXPECT_EQ(results.back(), turned) << "the same addresses again";
    lookUp(host, Freshness::fresh);
    answer(2, second);
    lookUp(host, Freshness::fresh);
    answer(3, first);
    EXPECT_EQ(results.back(), first);
}

TEST_F(NameResolverTest, OnAnotherNetworkTheAddressesHaveTheSystemsOrderAgain) {
    lookUp();
    answer(0, first);
    resolver->putFirstAddressLast(host);
    epoch->advance();
    lookUp();
    answer(1, first);
    EXPECT_EQ(results.back(), first);
}

TEST_F(NameResolverTest, OtherNameServersAreAskedAtOnceForThoseWhoWait) {
    lookUp();
    ASSERT_TRUE(runUntilCalls(1));
    configuration = "two";
    lookUp();
    answer(1, second);
    EXPECT_THAT(results, ElementsAre(second, second));
    system.answer(0, first);
    settle();
    EXPECT_EQ(results.size(), 2U) << "what the earlier ones say is of no use any more";
}

TEST_F(NameResolverTest, OtherNameServersMakeWhatIsKeptStale) {
    lookUp();
    answer(0, first);
    configuration = "two";
    lookUp();
    answer(1, second);
    EXPECT_THAT(results, ElementsAre(first, second));
}

TEST_F(NameResolverTest, ANameThatNobodyAskedForCannotBeStale) {
    resolver->setStale(host, true);
    settle();
    EXPECT_THAT(system.calls(), IsEmpty());
}

TEST_F(NameResolverTest, AnOldAnswerIsWaitedForAnew) {
    lookUp();
    answer(0, first);
    clock->uptime += Seconds(60);
    lookUp();
    EXPECT_EQ(results.size(), 1U);
    answer(1, second);
    EXPECT_THAT(results, ElementsAre(first, second));
}

TEST_F(NameResolverTest, WhoWantsAFreshAnswerWaitsForOneAlthoughOneIsKept) {
    lookUp();
    answer(0, first);
    lookUp(host, Freshness::fresh);
    EXPECT_EQ(results.size(), 1U);
    answer(1, second);
    EXPECT_THAT(results, ElementsAre(first, second));
}

TEST_F(NameResolverTest, NoAnswerIsNotKept) {
    lookUp();
    answer(0, {});
    EXPECT_THAT(results, ElementsAre(IsEmpty()));
    lookUp();
    answer(1, first);
    EXPECT_THAT(results, ElementsAre(IsEmpty(), first));
}

TEST_F(NameResolverTest, AFailedRefreshLeavesTheKeptAnswerUntilItsMinuteIsOver) {
    lookUp();
    answer(0, first);
    clock->uptime += Seconds(31);
    lookUp();
    ASSERT_TRUE(runUntilCalls(2));
    system.answer(1, {});
    settle();
    lookUp();
    EXPECT_THAT(results, ElementsAre(first, first, first));
}

TEST_F(NameResolverTest, AnswersDoNotSurviveAChangeOfNetwork) {
    lookUp();
    answer(0, first);
    epoch->advance();
    lookUp();
    EXPECT_EQ(results.size(), 1U);
    answer(1, second);
    EXPECT_THAT(results, ElementsAre(first, second));
}

TEST_F(NameResolverTest, ALookUpOfAnEarlierNetworkEndsEmptyForThoseWhoWaitAndIsNotUsed) {
    lookUp();
    ASSERT_TRUE(runUntilCalls(1));
    epoch->advance();
    lookUp();
    ASSERT_TRUE(runUntilResults(1));
    EXPECT_THAT(results, ElementsAre(IsEmpty()));
    ASSERT_TRUE(runUntilCalls(2)) << "the new network does not wait for the old one's look-up";
    system.answer(0, first);
    settle();
    EXPECT_EQ(results.size(), 1U);
    answer(1, second);
    EXPECT_THAT(results, ElementsAre(IsEmpty(), second));
}

TEST_F(NameResolverTest, LookUpsOfManyNetworksAreBoundedAndOneMoreHasNoAnswerUntilAnotherEnds) {
    for (std::size_t i = 0; i < NameResolver::threadLimit; ++i) {
        lookUp();
        ASSERT_TRUE(runUntilCalls(i + 1));
        epoch->advance();
    }
    std::optional<Addresses> answered;
    resolver->lookUp(host, Freshness::kept, [&](const Addresses& addresses) { answered = addresses; });
    EXPECT_FALSE(answered.has_value()) << "from the event loop";
    ASSERT_TRUE(test::waitUntil([&] { return answered.has_value(); }));
    EXPECT_THAT(*answered, IsEmpty());
    settle();
    EXPECT_EQ(system.calls().size(), NameResolver::threadLimit);
    system.answer(7, first);
    ASSERT_TRUE(test::waitUntil([this] {
        lookUp();
        return system.calls().size() > NameResolver::threadLimit;
    }));
    answer(NameResolver::threadLimit, second);
    EXPECT_EQ(results.back(), second);
}

TEST_F(NameResolverTest, ACompletionMayLookUpTheNextName) {
    resolver->lookUp(host, Freshness::kept, [this](const Addresses& /*addresses*/) { lookUp(other); });
    ASSERT_TRUE(runUntilCalls(1));
    system.answer(0, first);
    answer(1, second);
    EXPECT_THAT(results, ElementsAre(second));
}

TEST_F(NameResolverTest, NothingIsToldOnceItIsGoneAndTheThreadEndsByItself) {
    lookUp();
    ASSERT_TRUE(runUntilCalls(1));
    resolver.reset();
    system.answer(0, first);
    settle();
    EXPECT_THAT(results, IsEmpty());
}

TEST(NameResolverSystemTest, TheSystemKnowsItself) {
    const auto addresses = NameResolver::askSystem("localhost").addresses;
    EXPECT_THAT(addresses, testing::Not(IsEmpty()));
    for (const auto& address : addresses) {
        EXPECT_TRUE(address.startsWith("127.") || address == "::1") << address.constData();
    }
}

TEST(NameResolverSystemTest, TheConfigurationIsTheSameUntilItChanges) {
    EXPECT_EQ(NameResolver::systemConfiguration(), NameResolver::systemConfiguration());
}

TEST(NameResolverSystemTest, ANameThatCannotBeIsNoAnswer) {
    const auto answer = NameResolver::askSystem("..");
    EXPECT_THAT(answer.addresses, IsEmpty());
    EXPECT_FALSE(answer.error.isEmpty()) << "why there is none";
}

} // namespace
} // namespace skylet

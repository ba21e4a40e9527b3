#include "platform/linux/statusitem/host/SniRegistration.h"

#include "platform/linux/statusitem/host/FakeStatusHost.h"
#include "support/EventLoop.h"
#include "support/PrivateBus.h"
#include "support/QStringPrinting.h"
#include "support/Timing.h"

#include <gtest/gtest.h>

#include <chrono>

namespace skylet {
namespace {

using test::PrivateBus;
using test::runFor;
using test::waitUntil;

using namespace std::chrono_literals;

constexpr SniRegistrationLimits shortLimits{20ms, 4};
constexpr auto wellBeyondTheLimits = 300ms;

class SniRegistrationTest : public testing::Test {
  protected:
    void setWatcher(bool readsLayout = false) {
        registration_.setWatcher(host_.connection().baseService(), readsLayout);
    }

    bool registrationsReach(int count) {
        return waitUntil([this, count] { return host_.registrations().size() >= count; });
    }

    /// Lets time pass in which nothing further should come.
    int registrationsAfterAWhile() {
        runFor(wellBeyondTheLimits);
        return static_cast<int>(host_.registrations().size());
    }

    PrivateBus bus_;
    FakeStatusHost host_{bus_.connect()};
    QDBusConnection connection_ = bus_.connect();
    SniRegistration registration_{connection_, shortLimits};
};

TEST_F(SniRegistrationTest, RegistersUnderTheNameOfItsConnection) {
    setWatcher();
    ASSERT_TRUE(registrationsReach(1));
    EXPECT_EQ(host_.item(), connection_.baseService());
}

TEST_F(SniRegistrationTest, RegistersOnceWhereAllIsWell) {
    setWatcher();
    EXPECT_EQ(registrationsAfterAWhile(), 1);
}

TEST_F(SniRegistrationTest, RegistersAgainWithTheNextOwnerOnly) {
    setWatcher();
    ASSERT_TRUE(registrationsReach(1));
    setWatcher();
    EXPECT_EQ(registrationsAfterAWhile(), 1);
    registration_.setWatcher({}, false);
    EXPECT_EQ(registrationsAfterAWhile(), 1);
    setWatcher();
    ASSERT_TRUE(registrationsReach(2));
}

TEST_F(SniRegistrationTest, RegistersAgainWhenTheMenuIsNotReadAndGivesUpInTheEnd) {
    setWatcher(true);
    EXPECT_EQ(registrationsAfterAWhile(), shortLimits.maximumTries);
}

TEST_F(SniRegistrationTest, IsContentOnceTheMenuIsRead) {
    SniRegistration persistent{connection_, {shortLimits.layoutTimeout, 1000}};
    persistent.setWatcher(host_.connection().baseService(), true);
    ASSERT_TRUE(registrationsReach(2));
    persistent.layoutRead();
    host_.settle();
    const auto before = host_.registrations().size();
    EXPECT_EQ(registrationsAfterAWhile(), before);
}

TEST_F(SniRegistrationTest, DoesNotWaitForTheMenuWhereHostsReadItLate) {
    setWatcher(false);
    EXPECT_EQ(registrationsAfterAWhile(), 1);
}

TEST_F(SniRegistrationTest, ExpectsANewWatcherToReadTheMenuAnew) {
    setWatcher(true);
    ASSERT_TRUE(registrationsReach(1));
    registration_.layoutRead();
    registration_.setWatcher({}, false);
    setWatcher(true);
    EXPECT_TRUE(registrationsReach(3));
}

TEST_F(SniRegistrationTest, TriesAgainWhereTheWatcherRefuses) {
    host_.setManner(FakeStatusHost::Manner::refuses);
    setWatcher();
    ASSERT_TRUE(registrationsReach(2));
    host_.setManner(FakeStatusHost::Manner::accepts);
    ASSERT_TRUE(registrationsReach(3));
    EXPECT_EQ(registrationsAfterAWhile(), 3);
}

TEST_F(SniRegistrationTest, TriesAgainWhereTheWatcherRefusesLaterThanItWaits) {
    static_assert(FakeStatusHost::hesitation > 5 * shortLimits.layoutTimeout);
    host_.setManner(FakeStatusHost::Manner::refusesLate);
    setWatcher();
    ASSERT_TRUE(registrationsReach(1));
    host_.setManner(FakeStatusHost::Manner::accepts);
    ASSERT_TRUE(registrationsReach(2));
    EXPECT_EQ(registrationsAfterAWhile(), 2);
}

TEST_F(SniRegistrationTest, DoesNotWaitForAWatcherThatNeverAnswers) {
    host_.setManner(FakeStatusHost::Manner::isSilent);
    const auto began = std::chrono::steady_clock::now();
    setWatcher();
    if (test::runsAlone()) {
        EXPECT_LT(std::chrono::steady_clock::now() - began, test::allowing(50ms));
    }
    ASSERT_TRUE(registrationsReach(1));
    EXPECT_EQ(registrationsAfterAWhile(), 1);
}

TEST_F(SniRegistrationTest, SurvivesTheEndOfTheBus) {
    setWatcher(true);
    ASSERT_TRUE(registrationsReach(1));
    bus_.kill();
    runFor(wellBeyondTheLimits);
    registration_.setWatcher(QStringLiteral(":1.99"), true);
    runFor(50ms);
    EXPECT_EQ(host_.registrations().size(), 1);
}

} // namespace
} // namespace skylet

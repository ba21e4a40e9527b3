#include "platform/linux/statusitem/host/SniRegistration.h"

#include "platform/linux/statusitem/host/FakeStatusHost.h"
#include "support/EventLoop.h"
#include "support/PrivateBus.h"
#include "support/QStringPrinting.h"
#include "support/Timing.h"

#include <QCoreApplication>
#include <QDBusConnectionInterface>

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
    SniRegistration::Watcher watcher(bool readsLayout = false, bool prefersConnectionName = false) {
        return {host_.connection().baseService(), readsLayout, prefersConnectionName};
    }

    bool registrationsReach(int count) {
        return waitUntil([this, count] { return host_.registrations().size() >= count; });
    }

    /// Lets time pass in which nothing further should come.
    int registrationsAfterAWhile() {
        runFor(wellBeyondTheLimits);
        return static_cast<int>(host_.registrations().size());
    }

    QString ownName() const {
        return QStringLiteral("org.kde.StatusNotifierItem-%1-1").arg(QCoreApplication::applicationPid());
    }

    PrivateBus bus_;
    FakeStatusHost host_{bus_.connect()};
    QDBusConnection connection_ = bus_.connect();
    SniRegistration registration_{connection_, shortLimits};
};

TEST_F(SniRegistrationTest, RegistersUnderANameOfItsOwn) {
    registration_.setWatcher(watcher());
    ASSERT_TRUE(registrationsReach(1));
    EXPECT_EQ(host_.item(), ownName());
    EXPECT_EQ(registration_.serviceName(), ownName());
    EXPECT_EQ(host_.connection().interface()->serviceOwner(ownName()).value(), connection_.baseService());
}

TEST_F(SniRegistrationTest, RegistersOnceWhereAllIsWell) {
    registration_.setWatcher(watcher());
    EXPECT_EQ(registrationsAfterAWhile(), 1);
}

TEST_F(SniRegistrationTest, GivesTheConnectionsNameToAWatcherThatPrefersIt) {
    registration_.setWatcher(watcher(false, true));
    ASSERT_TRUE(registrationsReach(1));
    EXPECT_EQ(host_.item(), connection_.baseService());
    EXPECT_FALSE(host_.connection().interface()->isServiceRegistered(ownName()).value());
}

TEST_F(SniRegistrationTest, GivesTheConnectionsNameWhereItsOwnIsTaken) {
    QDBusConnection rival = bus_.connect();
    ASSERT_TRUE(rival.registerService(ownName()));
    registration_.setWatcher(watcher());
    ASSERT_TRUE(registrationsReach(1));
    EXPECT_EQ(host_.item(), connection_.baseService());
}

TEST_F(SniRegistrationTest, RegistersAgainWithTheNextOwnerOnly) {
    registration_.setWatcher(watcher());
    ASSERT_TRUE(registrationsReach(1));
    registration_.setWatcher(watcher());
    EXPECT_EQ(registrationsAfterAWhile(), 1);
    registration_.setWatcher({});
    EXPECT_EQ(registrationsAfterAWhile(), 1);
    registration_.setWatcher(watcher());
    ASSERT_TRUE(registrationsReach(2));
}

TEST_F(SniRegistrationTest, RegistersAgainWhenTheMenuIsNotReadAndGivesUpInTheEnd) {
    registration_.setWatcher(watcher(true));
    EXPECT_EQ(registrationsAfterAWhile(), shortLimits.maximumTries);
}

TEST_F(SniRegistrationTest, IsContentOnceTheMenuIsRead) {
    SniRegistration persistent{connection_, {shortLimits.layoutTimeout, 1000}};
    persistent.setWatcher(watcher(true));
    ASSERT_TRUE(registrationsReach(2));
    persistent.layoutRead();
    host_.settle();
    const auto before = host_.registrations().size();
    EXPECT_EQ(registrationsAfterAWhile(), before);
}

TEST_F(SniRegistrationTest, DoesNotWaitForTheMenuWhereHostsReadItLate) {
    registration_.setWatcher(watcher(false));
    EXPECT_EQ(registrationsAfterAWhile(), 1);
}

TEST_F(SniRegistrationTest, ExpectsANewWatcherToReadTheMenuAnew) {
    registration_.setWatcher(watcher(true));
    ASSERT_TRUE(registrationsReach(1));
    registration_.layoutRead();
    registration_.setWatcher({});
    registration_.setWatcher(watcher(true));
    EXPECT_TRUE(registrationsReach(3));
}

TEST_F(SniRegistrationTest, TriesAgainWhereTheWatcherRefuses) {
    host_.setManner(FakeStatusHost::Manner::refuses);
    registration_.setWatcher(watcher());
    ASSERT_TRUE(registrationsReach(2));
    host_.setManner(FakeStatusHost::Manner::accepts);
    ASSERT_TRUE(registrationsReach(3));
    EXPECT_EQ(registrationsAfterAWhile(), 3);
}

TEST_F(SniRegistrationTest, TriesAgainWhereTheWatcherRefusesLaterThanItWaits) {
    static_assert(FakeStatusHost::hesitation > 5 * shortLimits.layoutTimeout);
    host_.setManner(FakeStatusHost::Manner::refusesLate);
    registration_.setWatcher(watcher());
    ASSERT_TRUE(registrationsReach(1));
    host_.setManner(FakeStatusHost::Manner::accepts);
    ASSERT_TRUE(registrationsReach(2));
    EXPECT_EQ(registrationsAfterAWhile(), 2);
}

TEST_F(SniRegistrationTest, DoesNotWaitForAWatcherThatNeverAnswers) {
    host_.setManner(FakeStatusHost::Manner::isSilent);
    const auto began = std::chrono::steady_clock::now();
    registration_.setWatcher(watcher());
    if (test::runsAlone()) {
        EXPECT_LT(std::chrono::steady_clock::now() - began, test::allowing(50ms));
    }
    ASSERT_TRUE(registrationsReach(1));
    EXPECT_EQ(registrationsAfterAWhile(), 1);
}

TEST_F(SniRegistrationTest, SurvivesTheEndOfTheBus) {
    registration_.setWatcher(watcher(true));
    ASSERT_TRUE(registrationsReach(1));
    bus_.kill();
    runFor(wellBeyondTheLimits);
    registration_.setWatcher({QStringLiteral(":1.99"), true, false});
    runFor(50ms);
    EXPECT_EQ(registration_.watcherOwner(), QStringLiteral(":1.99"));
}

} // namespace
} // namespace skylet

#include "platform/linux/system/UnixSignals.h"

#include "support/EventLoop.h"

#include <QProcess>

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <memory>

namespace skylet::test {

namespace {

using namespace std::chrono_literals;

struct sigaction dispositionOf(int number) {
    struct sigaction action {};
    sigaction(number, nullptr, &action);
    return action;
}

/// Runs as if started from a terminal: a shell lets what it starts in the background ignore SIGINT.
class UnixSignalsTest : public testing::Test {
  protected:
    void SetUp() override {
        for (const int number : {SIGTERM, SIGINT, SIGHUP}) {
            signal(number, SIG_DFL);
        }
    }
};

using UnixSignalsDeathTest = UnixSignalsTest;

} // namespace

class EachUnixSignalTest : public UnixSignalsTest, public testing::WithParamInterface<int> {};

TEST_P(EachUnixSignalTest, BecomesOneCallFromTheEventLoop) {
    int calls = 0;
    const UnixSignals signals([&calls] { ++calls; });
    raise(GetParam());
    EXPECT_EQ(calls, 0) << "not from inside the signal handler";
    EXPECT_TRUE(waitUntil([&calls] { return calls == 1; }));
}

INSTANTIATE_TEST_SUITE_P(UnixSignals, EachUnixSignalTest, testing::Values(SIGTERM, SIGINT, SIGHUP));

TEST_F(UnixSignalsTest, AHangUpBehindTheFirstSignalIsNeitherASecondCallNorTheEnd) {
    int calls = 0;
    const UnixSignals signals([&calls] { ++calls; });
    raise(SIGTERM);
    raise(SIGHUP);
    ASSERT_TRUE(waitUntil([&calls] { return calls > 0; }));
    raise(SIGHUP);
    runFor(20ms);
    EXPECT_EQ(calls, 1);
}

TEST_F(UnixSignalsDeathTest, ASecondRequestEndsTheProcessAtOnce) {
    for (const int second : {SIGTERM, SIGINT}) {
        EXPECT_EXIT(
            {
                const UnixSignals signals([] {});
                raise(SIGTERM);
                raise(second);
                std::exit(0);
            },
            testing::KilledBySignal(second), "");
    }
}

TEST_F(UnixSignalsTest, DoAgainAfterwardsWhatTheyDidBefore) {
    {
        const UnixSignals signals([] {});
        EXPECT_NE(dispositionOf(SIGTERM).sa_handler, SIG_DFL);
        raise(SIGTERM);
    }
    for (const int number : {SIGTERM, SIGINT, SIGHUP}) {
        EXPECT_EQ(dispositionOf(number).sa_handler, SIG_DFL) << number;
    }
}

TEST_F(UnixSignalsTest, ASignalThatWasIgnoredFromTheStartStaysIgnored) {
    signal(SIGHUP, SIG_IGN);
    int calls = 0;
    {
        const UnixSignals signals([&calls] { ++calls; });
        raise(SIGHUP);
        runFor(20ms);
        EXPECT_EQ(calls, 0);
        EXPECT_EQ(dispositionOf(SIGHUP).sa_handler, SIG_IGN);
    }
}

TEST_F(UnixSignalsTest, ChildrenInheritNothing) {
    const UnixSignals signals([] {});
    QProcess child;
    child.start(QStringLiteral("cat"), {QStringLiteral("/proc/self/status")});
    ASSERT_TRUE(child.waitForFinished());
    const QByteArray status = child.readAllStandardOutput();
    EXPECT_TRUE(status.contains("SigBlk:\t0000000000000000\n")) << status.constData();
    EXPECT_TRUE(status.contains("SigCgt:\t0000000000000000\n")) << status.constData();
    const auto ignored = status.mid(status.indexOf("SigIgn:\t") + 8, 16).toULongLong(nullptr, 16);
    EXPECT_EQ(ignored & (1ULL << (SIGTERM - 1) | 1ULL << (SIGINT - 1) | 1ULL << (SIGHUP - 1)), 0U);
}

} // namespace skylet::test

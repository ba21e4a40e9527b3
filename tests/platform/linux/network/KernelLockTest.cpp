#include "NetworkNamespace.h"
#include "platform/linux/network/NetlinkInterfaceCounters.h"
#include "platform/linux/network/NetlinkPathMonitor.h"
#include "platform/linux/network/NetlinkSocket.h"
#include "support/EventLoop.h"
#include "support/Timing.h"

#include <QFile>
#include <QProcess>

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <future>
#include <stop_token>
#include <thread>

namespace skylet::test {

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr auto tickInterval = 5ms;
constexpr auto longestGap = 100ms;
constexpr auto observed = 3s;

/// How long this thread could have run so far but had no processor (proc(5), schedstat).
Clock::duration starved() {
    QFile file(QStringLiteral("/proc/thread-self/schedstat"));
    return file.open(QIODevice::ReadOnly) ? std::chrono::nanoseconds(file.readAll().split(' ').value(1).toLongLong())
                                          : std::chrono::nanoseconds(0);
}

/// The longest time between two turns of the event loop while the object lives, less the time without a processor.
class LongestGap {
  public:
    LongestGap() {
        tick_.setTimerType(Qt::PreciseTimer);
        QObject::connect(&tick_, &QTimer::timeout, &tick_, [this] { turn(); });
        tick_.start(tickInterval);
    }

    std::chrono::milliseconds value() const { return std::chrono::duration_cast<std::chrono::milliseconds>(longest_); }

  private:
    void turn() {
        const auto now = Clock::now();
        const auto lacked = starved();
        longest_ = std::max(longest_, now - last_ - (lacked - lacked_));
        last_ = now;
        lacked_ = lacked;
    }

    QTimer tick_;
    Clock::time_point last_ = Clock::now();
    Clock::duration lacked_ = starved();
    Clock::duration longest_{0};
};

/// How long whoever lists the links now and then has to wait for it at worst.
Clock::duration longestWait(const std::stop_token& stop) {
    Clock::duration longest{0};
    while (!stop.stop_requested()) {
        const auto before = Clock::now();
        auto socket = NetlinkSocket::open();
        if (!socket || !socket->requestLinks()) {
            return Clock::duration(0);
        }
        longest = std::max(longest, Clock::now() - before);
        std::this_thread::sleep_for(tickInterval);
    }
    return longest;
}

class KernelLockTest : public testing::Test {
  protected:
    void SetUp() override {
        if (!namespace_) {
            GTEST_SKIP() << reason_.toStdString();
        }
        namespace_->addUplink("wan", 1);
    }

    QString reason_;
    std::unique_ptr<NetworkNamespace> namespace_ = NetworkNamespace::enter(reason_);
    NetworkEpoch epoch_;
};

} // namespace

TEST_F(KernelLockTest, TimedTheEventLoopNeverWaitsForThoseWhoChangeInterfaces) {
    NetlinkInterfaceCounters counters;
    NetlinkPathMonitor monitor(epoch_);
    const KernelLockContention contention;
    std::stop_source end;
    auto wait = std::async(std::launch::async, longestWait, end.get_token());
    QProcess changes;
    int samples = 0;
    int reports = 0;
    const LongestGap gap;
    QTimer sampling;
    QObject::connect(&sampling, &QTimer::timeout, &sampling, [&] { samples += counters.read() ? 1 : 0; });
    sampling.start(20ms);
    monitor.start([&](bool) { ++reports; });
    changes.start(QStringLiteral("sh"),
                  {QStringLiteral("-c"), QStringLiteral("for i in $(seq 2 99); do ip route replace default via"
                                                        " 10.1.0.$i; sleep 0.1; done")});
    runFor(observed);
    EXPECT_LT(gap.value(), allowing(longestGap));
    EXPECT_GE(samples, observed / 20ms / 2);
    EXPECT_TRUE(waitUntil([&] { return reports >= 2; }));
    end.request_stop();
    EXPECT_GT(wait.get(), longestGap) << "nobody had to wait";
    changes.kill();
    changes.waitForFinished();
}

TEST_F(KernelLockTest, TimedCountersKnowALinkAtOnceThoughItsTableCannotBeReadYet) {
    const KernelLockContention contention;
    NetlinkInterfaceCounters counters;
    for (int i = 0; i < 5; ++i) {
        const QByteArray name = "eth" + QByteArray::number(i);
        namespace_->ip(("link add " + name + " type bridge").constData());
        const auto all = counters.read();
        ASSERT_TRUE(all);
        const auto found = std::find_if(all->begin(), all->end(), [&name](const InterfaceCounter& counter) {
            return counter.name == QString::fromUtf8(name);
        });
        ASSERT_NE(found, all->end());
        EXPECT_TRUE(found->stacked);
    }
}

} // namespace skylet::test

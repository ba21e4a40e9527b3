#include "LoopWatch.h"
#include "PrivateSystem.h"
#include "Proxy.h"
#include "SystemNames.h"
#include "platform/linux/transfer/CurlTransferSession.h"
#include "support/Timing.h"

#include <QCoreApplication>
#include <QEventLoop>

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <optional>

namespace skylet::test {
namespace {

using namespace std::chrono_literals;

/// A proxy of the environment that never stops talking.
class HostileProxyTest : public testing::TestWithParam<Proxy::Manner> {
  protected:
    void SetUp() override {
        if (const auto reason = PrivateSystem::enter()) {
            GTEST_SKIP() << "needs namespaces: " << reason->toStdString();
        }
        proxy = std::make_unique<Proxy>(GetParam());
        qputenv("https_proxy", proxy->url());
    }
    void TearDown() override { qunsetenv("https_proxy"); }

    std::unique_ptr<Proxy> proxy;
};

TEST_P(HostileProxyTest, IsLeftWithAnErrorBeforeItHoldsUpTheProgram) {
    const auto epoch = std::make_shared<NetworkEpoch>();
    CurlTransferSession session({60s, 1s}, epoch, systemNames(epoch));
    std::optional<TransferError> ended;
    LoopWatch watch;
    session.head(
        QUrl(QStringLiteral("https://127.0.0.1/generate_204")), [](const auto&) { return true; },
        [&ended](const auto& response, const auto& error) {
            EXPECT_FALSE(response.has_value());
            ended = error;
        });
    const auto end = std::chrono::steady_clock::now() + 60s;
    while (!ended && std::chrono::steady_clock::now() < end) {
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
    EXPECT_TRUE(ended.has_value());
    EXPECT_EQ(proxy->connections(), 1);
    RecordProperty("longestTurnMs", std::to_string(watch.longestTurn() / 1ms));
    RecordProperty("totalMs", std::to_string(watch.total() / 1ms));
    if (runsAlone()) {
        EXPECT_LT(watch.longestTurn(), allowing(100ms)) << "of the processor at one go";
    }
}

INSTANTIATE_TEST_SUITE_P(WithoutEnd, HostileProxyTest,
                         testing::Values(Proxy::Manner::demandingWithoutEnd, Proxy::Manner::talkingWithoutEnd),
                         [](const auto& manner) {
                             return manner.param == Proxy::Manner::demandingWithoutEnd ? "ARefusal" : "AHead";
                         });

} // namespace
} // namespace skylet::test

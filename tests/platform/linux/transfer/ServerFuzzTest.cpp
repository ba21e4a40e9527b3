#include "BulkResults.h"
#include "PeerWatch.h"
#include "ServerPair.h"
#include "platform/linux/transfer/CurlBulkTransferSession.h"
#include "support/Timing.h"

#include <algorithm>
#include <array>
#include <iostream>
#include <random>
#include <vector>

namespace skylet::test {
namespace {

using namespace std::chrono_literals;

/// A server whose answers are changed at random: SKYLET_SEED has them again, and SKYLET_FUZZ_SECONDS more of them.
class ServerFuzzTest : public testing::Test, protected PeerWatch {
  protected:
    static constexpr std::chrono::milliseconds shortLimit{250};
    static constexpr int probesAtOnce = 6;

    void SetUp() override {
        servers = ServerPair::make();
        if (!servers) {
            GTEST_SKIP() << "needs namespaces";
        }
        expectAnswer(*makeSession(epoch), servers->bad);
        runFor(20ms);
        holdingsBefore = Holdings::now();
    }

    /// Some requests and transfers at the same time, each over a connection of its own with a seed of its own.
    void runRound(std::uint32_t seed) {
        SCOPED_TRACE("this round: " + std::to_string(seed));
        const std::array places{QStringLiteral("handshake"), QStringLiteral("open"), QStringLiteral("request")};
        servers->bad.speak(seed % 2 == 0 ? QStringLiteral("h2") : QStringLiteral("http/1.1"));
        servers->bad.turnHostile({{QStringLiteral("mutate"), static_cast<qint64>(seed)},
                                  {QStringLiteral("mutateFrom"), places.at(seed / 2 % places.size())}});
        std::vector<std::unique_ptr<CurlTransferSession>> sessions;
        std::vector<std::shared_ptr<std::optional<Ended>>> asked;
        for (int i = 0; i < probesAtOnce; ++i) {
            sessions.push_back(std::make_unique<CurlTransferSession>(SessionConfiguration{60s, shortLimit}, epoch,
                                                                     systemNames(epoch)));
            asked.push_back(head(*sessions.back(), servers->bad));
        }
        BulkResults results;
        CurlBulkTransferSession transfers(SessionConfiguration{shortLimit, shortLimit}, epoch, systemNames(epoch),
                                          results, nullptr);
        const auto down = transfers.download(SpeedServer::down(100'000));
        const auto up = transfers.upload(SpeedServer::up(), "application/octet-stream", 100'000, shortLimit);
        ASSERT_TRUE(runUntil(
            [&] {
                return results.results.size() == 2 &&
                       std::all_of(asked.begin(), asked.end(), [](const auto& end) { return end->has_value(); });
            },
            shortLimit + slack))
            << "not all of them end";
        executions += probesAtOnce + 2;
        servers->bad.turnHostile({});
        for (const auto& session : sessions) {
            expectGoodAnswer(*session);
        }
    }

    /// Its old connection has not come to its senses.
    void expectGoodAnswer(CurlTransferSession& session) {
        bool isAnswered = false;
        for (int i = 0; i < attempts && !isAnswered; ++i) {
            const auto asked = head(session, servers->bad);
            ASSERT_TRUE(runUntil([&] { return asked->has_value(); }, shortLimit + slack));
            isAnswered = (*asked)->response.has_value();
        }
        EXPECT_TRUE(isAnswered) << "the next good answer is not seen";
    }

    std::unique_ptr<ServerPair> servers;
    int executions = 0;
};

TEST_F(ServerFuzzTest, WhateverAServerSendsEndsAtTheLimitAndTheNextGoodAnswerIsOne) {
    const auto first = qEnvironmentVariableIsSet("SKYLET_SEED") ? qEnvironmentVariable("SKYLET_SEED").toUInt()
                                                                : std::random_device()();
    const std::chrono::seconds time(
        qEnvironmentVariableIsSet("SKYLET_FUZZ_SECONDS") ? qEnvironmentVariableIntValue("SKYLET_FUZZ_SECONDS") : 2);
    SCOPED_TRACE("SKYLET_SEED=" + std::to_string(first));
    std::cout << "SKYLET_SEED=" << first << std::endl;
    std::mt19937 seeds(first);
    beginWatch();
    const auto end = std::chrono::steady_clock::now() + time;
    do {
        runRound(static_cast<std::uint32_t>(seeds()));
    } while (!HasFailure() && std::chrono::steady_clock::now() < end);
    std::cout << executions << " answers in " << time.count() << " s" << std::endl;
    RecordProperty("executions", std::to_string(executions));
    servers->good.reset();
    expectNothingLeft();
}

} // namespace
} // namespace skylet::test

#pragma once

#include "Hostilities.h"
#include "LoopWatch.h"
#include "PrivateSystem.h"
#include "SpeedServer.h"
#include "SystemNames.h"
#include "platform/linux/transfer/CurlTransferSession.h"
#include "platform/network/NetworkEpoch.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QTimer>

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>

namespace skylet::test {

/// What a test is called after.
inline std::string hostileName(const testing::TestParamInfo<Hostile>& hostile) {
    return hostile.param.name;
}

/// How a request ended, and after how long.
struct Ended {
    std::optional<TransferResponse> response;
    std::optional<TransferError> error;
    std::chrono::steady_clock::duration after;
};

/// One server that misbehaves, and one beside it that does not.
class HostilePeerTest : public testing::TestWithParam<Hostile> {
  protected:
    /// For one request; what is slower than that by the slack, on whichever machine, is not held to it.
    static constexpr std::chrono::milliseconds limit{1000};
    static constexpr std::chrono::seconds slack{60};
    /// Of the processor's time: the longest that the event loop may stand still, and what a hostile server may cost in
    /// two attempts at it and all that is done beside them.
    static constexpr std::chrono::milliseconds longestTurn{100};
    static constexpr std::chrono::milliseconds totalCost{800};
    static constexpr std::int64_t memoryLimit = std::int64_t{8} * 1024 * 1024;

    void SetUp() override;

    static std::unique_ptr<CurlTransferSession> makeSession(const std::shared_ptr<NetworkEpoch>& epoch);
    static void runFor(std::chrono::milliseconds time);
    template <typename Condition>
    static bool runUntil(Condition condition, std::chrono::milliseconds longest) {
        QTimer beat;
        beat.start(std::chrono::milliseconds(2));
        const auto end = std::chrono::steady_clock::now() + longest;
        while (!condition() && std::chrono::steady_clock::now() < end) {
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        }
        return condition();
    }

    /// The result stays valid while the test runs; empty until the end.
    static std::shared_ptr<std::optional<Ended>> head(CurlTransferSession& session, const SpeedServer& server);
    /// On a busy machine a request may be too late by no fault of anybody's; so many in a row are not.
    static constexpr int attempts = 8;
    /// A request to a server that is well, or more of them.
    static void expectAnswer(CurlTransferSession& session, const SpeedServer& server);

    /// Whether the hostile server has not come to its flood yet, on a busy machine because a request came too late.
    bool lacksItsFlood() const { return GetParam().isEndless() && hostile->flooded() == 0; }
    /// From here on the hostile server is.
    void beginHostility();
    /// From here on it is well again, as far as new connections are concerned.
    void endHostility();
    /// What the hostility has cost since it began.
    void expectLittleCost();
    /// Nothing is left of it, once there is no session any more.
    void expectNothingLeft();

    std::unique_ptr<SpeedServer> hostile;
    std::unique_ptr<SpeedServer> good;
    std::shared_ptr<NetworkEpoch> epoch = std::make_shared<NetworkEpoch>();
    std::unique_ptr<LoopWatch> watch;
    Holdings holdingsBefore;
    std::int64_t memoryBefore = 0;
    std::int64_t residentBefore = 0;
};

} // namespace skylet::test

#pragma once

#include "LoopWatch.h"
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

namespace skylet::test {

/// How a request ended, and after how long.
struct Ended {
    std::optional<TransferResponse> response;
    std::optional<TransferError> error;
    std::chrono::steady_clock::duration after;
};

/// What tests with servers that misbehave have in common: requests to them, and what those may cost.
class PeerWatch {
  protected:
    /// For one request; what is slower than that by the slack, on whichever machine, is not held to it.
    static constexpr std::chrono::milliseconds limit{1000};
    static constexpr std::chrono::seconds slack{60};
    /// Of the processor's time: the longest that the event loop may stand still, and what a hostile server may cost in
    /// two attempts at it and all that is done beside them.
    static constexpr std::chrono::milliseconds longestTurn{100};
    static constexpr std::chrono::milliseconds totalCost{800};
    static constexpr std::int64_t memoryLimit = std::int64_t{8} * 1024 * 1024;

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

    /// From here on it counts what this process does.
    void beginWatch();
    void expectLittleCost();
    /// Nothing is left of it, once there is no session any more. `holdingsBefore`: of before there was one.
    void expectNothingLeft();

    std::shared_ptr<NetworkEpoch> epoch = std::make_shared<NetworkEpoch>();
    Holdings holdingsBefore;

  private:
    std::unique_ptr<LoopWatch> watch_;
    std::int64_t memoryBefore_ = 0;
    std::int64_t residentBefore_ = 0;
};

} // namespace skylet::test

#include "PeerWatch.h"

#include "support/Timing.h"

#include <string>

namespace skylet::test {

using namespace std::chrono_literals;

namespace {

std::int64_t milliseconds(std::chrono::nanoseconds time) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(time).count();
}

} // namespace

std::unique_ptr<CurlTransferSession> PeerWatch::makeSession(const std::shared_ptr<NetworkEpoch>& epoch) {
    return std::make_unique<CurlTransferSession>(SessionConfiguration{60s, limit}, epoch, systemNames(epoch));
}

void PeerWatch::runFor(std::chrono::milliseconds time) {
    runUntil([] { return false; }, time);
}

std::shared_ptr<std::optional<Ended>> PeerWatch::head(CurlTransferSession& session, const SpeedServer& server) {
    auto ended = std::make_shared<std::optional<Ended>>();
    const auto accepts = [](const TransferResponse& response) { return response.statusCode == 204; };
    session.head(server.endpoint(), accepts,
                 [ended, start = std::chrono::steady_clock::now()](auto response, auto error) {
                     EXPECT_FALSE(ended->has_value()) << "told twice";
                     *ended = Ended{response, error, std::chrono::steady_clock::now() - start};
                 });
    return ended;
}

void PeerWatch::expectAnswer(CurlTransferSession& session, const SpeedServer& server) {
    std::string errors;
    for (int i = 0; i < attempts; ++i) {
        const auto ended = head(session, server);
        ASSERT_TRUE(runUntil([&] { return ended->has_value(); }, limit + slack)) << "it does not end at its limit";
        if ((*ended)->response) {
            EXPECT_EQ((*ended)->response->statusCode, 204);
            return;
        }
        errors += (*ended)->error->description.toStdString() + "; ";
    }
    ADD_FAILURE() << "no answer: " << errors;
}

void PeerWatch::beginWatch() {
    memoryBefore_ = privateMemory();
    takePeakMemory();
    residentBefore_ = takePeakMemory();
    watch_ = std::make_unique<LoopWatch>();
}

void PeerWatch::expectLittleCost() {
    const auto turn = watch_->longestTurn();
    const auto total = watch_->total();
    const auto grown = takePeakMemory() - residentBefore_;
    watch_.reset();
    testing::Test::RecordProperty("longestTurnMs", std::to_string(milliseconds(turn)));
    testing::Test::RecordProperty("totalMs", std::to_string(milliseconds(total)));
    testing::Test::RecordProperty("grownKB", std::to_string(grown / 1024));
    if (runsAlone()) {
        EXPECT_LT(turn, allowing(longestTurn)) << "of the processor at one go";
        EXPECT_LT(total, allowing(totalCost)) << "of the processor in all";
        EXPECT_LT(grown, memoryLimit);
    }
}

void PeerWatch::expectNothingLeft() {
    // An earlier test's look-up may have ended meanwhile.
    const auto isNoMore = [this](const Holdings& now) {
        return now.descriptors <= holdingsBefore.descriptors && now.threads <= holdingsBefore.threads;
    };
    runUntil([&] { return isNoMore(Holdings::now()); }, slack);
    const auto now = Holdings::now();
    EXPECT_LE(now.descriptors, holdingsBefore.descriptors);
    EXPECT_LE(now.threads, holdingsBefore.threads);
    testing::Test::RecordProperty("keptKB", std::to_string((privateMemory() - memoryBefore_) / 1024));
    if (runsAlone()) {
        EXPECT_LT(privateMemory() - memoryBefore_, memoryLimit);
    }
}

} // namespace skylet::test

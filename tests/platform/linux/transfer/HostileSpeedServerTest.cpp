#include "BulkResults.h"
#include "HostilePeerTest.h"
#include "platform/linux/transfer/CurlBulkTransferSession.h"

#include <string>

namespace skylet::test {
namespace {

using namespace std::chrono_literals;

/// A service of the speed test that misbehaves towards downloads and uploads, and an endpoint beside it that does not.
class HostileSpeedServerTest : public HostilePeerTest {
  protected:
    static constexpr std::int64_t downloadBytes = 20'000'000;
    /// Little, so that nothing moves any more after a moment, whoever reads it.
    static constexpr std::int64_t uploadBytes = 500'000;
    static constexpr std::int64_t wellBehavedBytes = 100'000;
    /// For a transfer as a whole; a second of silence ends it too.
    static constexpr std::chrono::seconds transferLimit{2};

    void SetUp() override {
        HostilePeerTest::SetUp();
        if (IsSkipped()) {
            return;
        }
        session = makeBulkSession();
        expectTransfer(false);
        expectTransfer(true);
        session.reset();
        runFor(50ms);
        holdingsBefore = Holdings::now();
        session = makeBulkSession();
        probes = makeSession(epoch);
        if (!GetParam().isBeforeRequests()) {
            expectTransfer(false);
        }
        expectAnswer(*probes, *good);
    }

    std::unique_ptr<CurlBulkTransferSession> makeBulkSession() {
        // each session counts from the beginning
        delegate.results.clear();
        return std::make_unique<CurlBulkTransferSession>(SessionConfiguration{limit, transferLimit}, epoch,
                                                         systemNames(epoch), delegate, nullptr);
    }

    std::shared_ptr<BulkTransferTask> start(bool isUpload, std::int64_t bytes) {
        if (isUpload) {
            return session->upload(SpeedServer::up(), "application/octet-stream", bytes, limit);
        }
        return session->download(SpeedServer::down(bytes));
    }

    bool ends(const std::shared_ptr<BulkTransferTask>& task) {
        return runUntil([&] { return delegate.results.contains(task->taskIdentifier()); }, transferLimit + slack);
    }

    /// A transfer to the server that is well, or more of them.
    void expectTransfer(bool isUpload) {
        for (int i = 0; i < attempts; ++i) {
            const auto task = start(isUpload, wellBehavedBytes);
            ASSERT_TRUE(ends(task)) << "it does not end at its limit";
            if (delegate.results.at(task->taskIdentifier()).end == BulkTransferResult::End::finished) {
                return;
            }
        }
        ADD_FAILURE() << "no transfer succeeds";
    }

    /// A transfer to the one, a request to the other.
    void transfer(bool isUpload) {
        const auto task = start(isUpload, isUpload ? uploadBytes : downloadBytes);
        expectAnswer(*probes, *good);
        ASSERT_TRUE(ends(task)) << "it does not end at its limit";
        const auto end = delegate.results.at(task->taskIdentifier()).end;
        if (GetParam().answer == Hostile::Answer::never) {
            EXPECT_NE(end, BulkTransferResult::End::finished);
        }
        RecordProperty("outcome", std::to_string(static_cast<int>(end)));
    }

    void run(bool isUpload) {
        beginHostility();
        transfer(isUpload);
        if (GetParam().stage() == QStringLiteral("answer")) {
            runFor(300ms);
            transfer(isUpload);
        }
        for (int i = 0; i < attempts && lacksItsFlood(); ++i) {
            transfer(isUpload);
        }
        endHostility();
        // its old connections have not come to their senses, and may cost a transfer each
        expectTransfer(isUpload);
        expectAnswer(*probes, *good);
        session.reset();
        probes.reset();
        expectLittleCost();
        expectNothingLeft();
    }

    BulkResults delegate;
    std::unique_ptr<CurlBulkTransferSession> session;
    std::unique_ptr<CurlTransferSession> probes;
};

TEST_P(HostileSpeedServerTest, ADownloadEndsAtItsLimitAtLittleCostAndHarmsNothingElse) {
    run(false);
}

TEST_P(HostileSpeedServerTest, AnUploadEndsAtItsLimitAtLittleCostAndHarmsNothingElse) {
    run(true);
}

INSTANTIATE_TEST_SUITE_P(Stalls, HostileSpeedServerTest,
                         testing::ValuesIn(deeds("http/1.1",
                                                 {"accept", "handshake", "request", "head", "body", "answer"},
                                                 {"stall", "drip"})),
                         hostileName);
INSTANTIATE_TEST_SUITE_P(Breaks, HostileSpeedServerTest,
                         testing::ValuesIn(deeds("http/1.1", {"handshake", "request", "head", "body", "answer"},
                                                 {"close", "fin", "reset", "garbage"})),
                         hostileName);
INSTANTIATE_TEST_SUITE_P(FirstRecords, HostileSpeedServerTest,
                         testing::ValuesIn(floods("http/1.1", "open",
                                                  {"ticket", "largeTicket", "keyUpdate", "keyUpdateRequest"})),
                         hostileName);
INSTANTIATE_TEST_SUITE_P(InPlaceOfAnAnswer, HostileSpeedServerTest,
                         testing::ValuesIn(floods("http/1.1", "request",
                                                  {"interim", "fields", "shortFields", "foldedField", "field",
                                                   "emptyLines", "chunkExtension", "trailers", "ticket", "largeTicket",
                                                   "keyUpdate", "keyUpdateRequest"})),
                         hostileName);
INSTANTIATE_TEST_SUITE_P(ForAnAnswer, HostileSpeedServerTest,
                         testing::ValuesIn(floods("http/1.1", "request", {"bodyAfter204", "answers"},
                                                  Hostile::Answer::possible)),
                         hostileName);
INSTANTIATE_TEST_SUITE_P(InTheBody, HostileSpeedServerTest,
                         testing::ValuesIn(floods("http/1.1", "body",
                                                  {"ticket", "largeTicket", "keyUpdate", "keyUpdateRequest"})),
                         hostileName);
INSTANTIATE_TEST_SUITE_P(WhileIdle, HostileSpeedServerTest,
                         testing::ValuesIn(floods("http/1.1", "answer",
                                                  {"interim", "fields", "answers", "ticket", "largeTicket", "keyUpdate",
                                                   "keyUpdateRequest"},
                                                  Hostile::Answer::possible)),
                         hostileName);

} // namespace
} // namespace skylet::test

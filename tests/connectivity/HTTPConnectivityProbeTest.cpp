#include "connectivity/HTTPConnectivityProbe.h"

#include "support/FakeClock.h"
#include "support/LogCapture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

namespace skylet {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const auto address = QStringLiteral("https://probe.example/generate_204");
const QUrl url(address);

TransferResponse answer(int status, const QString& from = address) {
    return {status, from, Seconds(0)};
}

bool accepted(int status, const QString& from, const QString& asked = address) {
    return HTTPConnectivityProbe::accepts(answer(status, from), QUrl(asked), {});
}

TEST(HTTPConnectivityProbeAccepts, ADirect204OfTheRequestedAddress) {
    EXPECT_TRUE(accepted(204, address));
}

TEST(HTTPConnectivityProbeAccepts, NoAnswerThatCameWithAnError) {
    EXPECT_FALSE(HTTPConnectivityProbe::accepts(answer(204), url, TransferError{QStringLiteral("reset")}));
}

TEST(HTTPConnectivityProbeAccepts, NothingWithoutAResponse) {
    EXPECT_FALSE(HTTPConnectivityProbe::accepts({}, url, {}));
}

TEST(HTTPConnectivityProbeAccepts, NoResponseOfAnUnknownAddress) {
    EXPECT_FALSE(HTTPConnectivityProbe::accepts(TransferResponse{204, {}, Seconds(0)}, url, {}));
}

TEST(HTTPConnectivityProbeAccepts, NoOtherStatus) {
    for (const int status : {0, 100, 200, 203, 205, 301, 302, 304, 404, 500, 511}) {
        EXPECT_FALSE(accepted(status, address)) << status;
    }
}

TEST(HTTPConnectivityProbeAccepts, NoOtherScheme) {
    EXPECT_FALSE(accepted(204, QStringLiteral("http://probe.example/generate_204")));
    EXPECT_FALSE(accepted(204, QStringLiteral("//probe.example/generate_204")));
}

TEST(HTTPConnectivityProbeAccepts, NoSchemeInCapitals) {
    EXPECT_FALSE(accepted(204, QStringLiteral("HTTPS://probe.example/generate_204")));
}

TEST(HTTPConnectivityProbeAccepts, NoOtherHost) {
    EXPECT_FALSE(accepted(204, QStringLiteral("https://portal.example/generate_204")));
    EXPECT_FALSE(accepted(204, QStringLiteral("https:/generate_204")));
}

TEST(HTTPConnectivityProbeAccepts, NoAddressWithAPortThatIsNoNumber) {
    EXPECT_FALSE(accepted(204, QStringLiteral("https://probe.example:PORT/generate_204")));
}

TEST(HTTPConnectivityProbeAccepts, TwoAbsentHostsAsEqual) {
    EXPECT_TRUE(accepted(204, QStringLiteral("https:/generate_204"), QStringLiteral("https:/generate_204")));
}

TEST(HTTPConnectivityProbeAccepts, AnExplicitPortOnlyWithTheSameExplicitPort) {
    const auto withPort = QStringLiteral("https://probe.example:8443/generate_204");
    const auto withDefaultPort = QStringLiteral("https://probe.example:443/generate_204");
    EXPECT_TRUE(accepted(204, withPort, withPort));
    EXPECT_FALSE(accepted(204, address, withPort));
    EXPECT_FALSE(accepted(204, withPort, address));
    EXPECT_FALSE(accepted(204, withDefaultPort, address));
    EXPECT_FALSE(accepted(204, withDefaultPort, withPort));
}

TEST(HTTPConnectivityProbeAccepts, NoOtherPath) {
    EXPECT_FALSE(accepted(204, QStringLiteral("https://probe.example/login")));
    EXPECT_FALSE(accepted(204, QStringLiteral("https://probe.example")));
}

/// A session whose transfers end when the test says so.
class FakeSession final : public TransferSession {
  public:
    struct Request {
        QUrl url;
        Accepts accepts;
        Completion completion;
        bool cancelled = false;
    };
    struct Log {
        std::vector<std::shared_ptr<Request>> requests;
        int invalidations = 0;
    };

    explicit FakeSession(std::shared_ptr<Log> log) : log_(std::move(log)) {}

    std::shared_ptr<Cancellation> head(const QUrl& target, Accepts accepts, Completion completion) override {
        auto request = std::make_shared<Request>(Request{target, std::move(accepts), std::move(completion)});
        log_->requests.push_back(request);
        return std::make_shared<CancellationAction>([request] { request->cancelled = true; });
    }
    void invalidateAndCancel() override { ++log_->invalidations; }

  private:
    std::shared_ptr<Log> log_;
};

class HTTPConnectivityProbeTest : public testing::Test {
  protected:
    HTTPConnectivityProbeTest()
        : probe(
              [this](const SessionConfiguration& configuration) {
                  configurations.push_back(configuration);
                  clock->uptime += sessionCost;
                  return std::make_unique<FakeSession>(log);
              },
              clock) {}

    std::shared_ptr<Cancellation> start() {
        return probe.probe(url, [this](std::optional<std::int64_t> latency) { results.push_back(latency); });
    }

    void answerAfter(Seconds elapsed, int status = 204) {
        clock->uptime += elapsed;
        log->requests.back()->completion(answer(status), {});
    }

    std::shared_ptr<test::FakeClock> clock = std::make_shared<test::FakeClock>();
    std::shared_ptr<FakeSession::Log> log = std::make_shared<FakeSession::Log>();
    std::vector<SessionConfiguration> configurations;
    Seconds sessionCost{0};
    std::vector<std::optional<std::int64_t>> results;
    HTTPConnectivityProbe probe;
};

TEST_F(HTTPConnectivityProbeTest, LimitsTheWholeExchangeToThreeSeconds) {
    EXPECT_EQ(probe.configuration().timeoutIntervalForRequest, Seconds(3));
    EXPECT_EQ(probe.configuration().timeoutIntervalForResource, Seconds(3));
}

TEST_F(HTTPConnectivityProbeTest, MakesOneSessionWithTheFirstProbeAndKeepsIt) {
    EXPECT_THAT(configurations, IsEmpty());
    start();
    start();
    ASSERT_EQ(configurations.size(), 1U);
    EXPECT_EQ(configurations.front().timeoutIntervalForResource, Seconds(3));
}

TEST_F(HTTPConnectivityProbeTest, AsksTheVeryAddressItWasGiven) {
    start();
    ASSERT_EQ(log->requests.size(), 1U);
    EXPECT_EQ(log->requests.front()->url, url);
}

TEST_F(HTTPConnectivityProbeTest, AnAnswerAfter400MicrosecondsCountsAsOneMillisecond) {
    start();
    answerAfter(Seconds(0.0004));
    EXPECT_THAT(results, ElementsAre(1));
}

TEST_F(HTTPConnectivityProbeTest, MillisecondsAreCutOffNotRounded) {
    start();
    answerAfter(Seconds(0.0379));
    EXPECT_THAT(results, ElementsAre(37));
}

TEST_F(HTTPConnectivityProbeTest, TheFirstLatencyIncludesMakingTheSession) {
    sessionCost = Seconds(0.25);
    start();
    answerAfter(Seconds(0.25));
    EXPECT_THAT(results, ElementsAre(500));
}

TEST_F(HTTPConnectivityProbeTest, A200OfACaptivePortalIsAFailure) {
    start();
    answerAfter(Seconds(0.01), 200);
    EXPECT_THAT(results, ElementsAre(std::nullopt));
}

TEST_F(HTTPConnectivityProbeTest, ARedirectIsAFailure) {
    for (const int status : {301, 302}) {
        start();
        answerAfter(Seconds(0.01), status);
    }
    EXPECT_THAT(results, ElementsAre(std::nullopt, std::nullopt));
}

TEST_F(HTTPConnectivityProbeTest, TellsTheSessionWhichAnswersToAccept) {
    start();
    const auto& accepts = log->requests.back()->accepts;
    EXPECT_TRUE(accepts(answer(204)));
    EXPECT_FALSE(accepts(answer(200)));
    EXPECT_FALSE(accepts(answer(204, QStringLiteral("https://portal.example/generate_204"))));
}

TEST_F(HTTPConnectivityProbeTest, TheTimeThatTheProgramWasBusyWithSomethingElseIsNoResponseTime) {
    start();
    clock->uptime += Seconds(0.375);
    auto late = answer(204);
    late.localDelay = Seconds(0.25);
    log->requests.back()->completion(late, {});
    EXPECT_THAT(results, ElementsAre(125));
}

TEST_F(HTTPConnectivityProbeTest, ATransportErrorIsAFailure) {
    start();
    log->requests.back()->completion({}, TransferError{QStringLiteral("no route")});
    EXPECT_THAT(results, ElementsAre(std::nullopt));
}

TEST_F(HTTPConnectivityProbeTest, CancellingTheHandleCancelsTheTransferWhichThenFails) {
    const auto handle = start();
    handle->cancel();
    ASSERT_TRUE(log->requests.back()->cancelled);
    EXPECT_THAT(results, IsEmpty());
    log->requests.back()->completion({}, TransferError{QStringLiteral("cancelled")});
    EXPECT_THAT(results, ElementsAre(std::nullopt));
}

TEST_F(HTTPConnectivityProbeTest, InvalidateEndsTheSessionAndMakesItFirstIfNeedBe) {
    probe.invalidate();
    EXPECT_EQ(configurations.size(), 1U);
    EXPECT_EQ(log->invalidations, 1);
}

using HTTPConnectivityProbeDeathTest = HTTPConnectivityProbeTest;

TEST_F(HTTPConnectivityProbeDeathTest, AResponseTimeThatIsNoNumberStopsTheProgram) {
    start();
    EXPECT_DEATH(answerAfter(Seconds(std::numeric_limits<double>::quiet_NaN())), "out of range");
}

TEST_F(HTTPConnectivityProbeDeathTest, AResponseTimeBeyond64BitsOfMillisecondsStopsTheProgram) {
    start();
    EXPECT_DEATH(answerAfter(Seconds(9.3e15)), "out of range");
}

TEST_F(HTTPConnectivityProbeTest, WhatCameOfAProbeIsLogged) {
    const test::LogCapture messages(QStringLiteral("skylet.*=true"));
    start();
    answerAfter(Seconds(0.012), 302);
    start();
    clock->uptime += Seconds(3);
    log->requests.back()->completion({}, TransferError{QStringLiteral("timed out connecting")});
    EXPECT_EQ(messages.text(), QStringLiteral("skylet.connectivity: %1: status 302 from %1 after 12.0 ms\n"
                                              "skylet.connectivity: %1: timed out connecting after 3000.0 ms")
                                   .arg(url.toString()));
}

TEST_F(HTTPConnectivityProbeTest, NothingIsLoggedByDefault) {
    const test::LogCapture messages;
    start();
    answerAfter(Seconds(0.012), 302);
    EXPECT_EQ(messages.text(), QString());
}

} // namespace
} // namespace skylet

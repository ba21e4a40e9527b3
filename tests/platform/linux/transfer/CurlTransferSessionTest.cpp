#include "platform/linux/transfer/CurlTransferSession.h"

#include "DeadNames.h"
#include "PrivateSystem.h"
#include "SilentSocket.h"
#include "SystemNames.h"
#include "support/EventLoop.h"
#include "support/Timing.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <vector>

namespace skylet {
namespace {

using namespace std::chrono_literals;

struct Result {
    std::optional<TransferResponse> response;
    std::optional<TransferError> error;
    std::chrono::steady_clock::duration after;
};

class CurlTransferSessionTest : public testing::Test {
  protected:
    void SetUp() override {
        if (const auto reason = test::PrivateSystem::enter()) {
            GTEST_SKIP() << "needs namespaces: " << reason->toStdString();
        }
        makeSession(200ms);
    }

    void makeSession(Seconds limit) {
        session = std::make_unique<CurlTransferSession>(SessionConfiguration{Seconds(60), limit}, epoch, names);
    }

    std::shared_ptr<Cancellation> head(const QUrl& url) {
        const auto accepts = [](const TransferResponse& response) { return response.statusCode == 204; };
        return session->head(url, accepts, [this, start = std::chrono::steady_clock::now()](auto response, auto error) {
            results.push_back({response, error, std::chrono::steady_clock::now() - start});
        });
    }

    void runUntil(std::size_t count, std::chrono::milliseconds longest = 30s) {
        QElapsedTimer since;
        since.start();
        while (results.size() < count && since.elapsed() < longest.count()) {
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 5);
        }
    }

    static void expectSoonerThan(std::chrono::nanoseconds limit, const Result& result) {
        if (test::runsAlone()) {
            EXPECT_LT(result.after, test::allowing(limit));
        }
    }

    void runFor(std::chrono::milliseconds time) { runUntil(std::numeric_limits<std::size_t>::max(), time); }

    /// Sockets, pipes and the like that this process holds open.
    static qsizetype openDescriptors() {
        return QDir(QStringLiteral("/proc/self/fd")).entryList(QDir::Files | QDir::System).size();
    }

    static qsizetype threads() {
        return QDir(QStringLiteral("/proc/self/task")).entryList(QDir::Dirs | QDir::NoDotAndDotDot).size();
    }

    std::shared_ptr<NetworkEpoch> epoch = std::make_shared<NetworkEpoch>();
    std::shared_ptr<NameResolver> names = test::systemNames(epoch);
    std::unique_ptr<CurlTransferSession> session;
    std::vector<Result> results;
};

TEST_F(CurlTransferSessionTest, ARefusedConnectionFailsAtOnceAndNotFromInsideTheCall) {
    const test::SilentSocket closed(SOCK_STREAM);
    makeSession(1h);
    head(closed.url());
    EXPECT_TRUE(results.empty());
    runUntil(1);
    ASSERT_EQ(results.size(), 1U);
    EXPECT_TRUE(results[0].error.has_value());
    EXPECT_FALSE(results[0].response.has_value());
}

TEST_F(CurlTransferSessionTest, AServerThatAcceptsAndSaysNothingFailsAtTheLimitNeitherEarlyNorLate) {
    const test::SilentSocket silent(SOCK_STREAM);
    silent.listen();
    head(silent.url());
    runUntil(1);
    ASSERT_EQ(results.size(), 1U);
    EXPECT_TRUE(results[0].error.has_value());
    EXPECT_GE(results[0].after, 200ms);
    expectSoonerThan(250ms, results[0]);
    runFor(500ms);
    EXPECT_EQ(results.size(), 1U);
}

TEST_F(CurlTransferSessionTest, TheSmallerOfTheTwoLimitsRules) {
    const test::SilentSocket silent(SOCK_STREAM);
    silent.listen();
    session = std::make_unique<CurlTransferSession>(SessionConfiguration{Seconds(0.1), 1h}, epoch, names);
    head(silent.url());
    runUntil(1);
    ASSERT_EQ(results.size(), 1U);
    EXPECT_GE(results[0].after, 100ms);
}

TEST_F(CurlTransferSessionTest, SpeaksHttpsAlone) {
    const test::SilentSocket silent(SOCK_STREAM);
    silent.listen();
    // In which a plain connection would wait for the silent server.
    makeSession(1h);
    for (const auto& scheme : {QStringLiteral("http"), QStringLiteral("ftp"), QStringLiteral("file")}) {
        auto url = silent.url();
        url.setScheme(scheme);
        head(url);
    }
    runUntil(3);
    ASSERT_EQ(results.size(), 3U);
    for (const auto& result : results) {
        EXPECT_TRUE(result.error.has_value());
    }
}

TEST_F(CurlTransferSessionTest, CancellingCompletesOnceWithAnErrorFromTheEventLoop) {
    const test::SilentSocket silent(SOCK_STREAM);
    silent.listen();
    const auto task = head(silent.url());
    runFor(20ms);
    task->cancel();
    task->cancel();
    EXPECT_TRUE(results.empty());
    runUntil(1);
    ASSERT_EQ(results.size(), 1U);
    EXPECT_TRUE(results[0].error.has_value());
    expectSoonerThan(100ms, results[0]);
    runFor(400ms);
    EXPECT_EQ(results.size(), 1U);
    task->cancel();
    runFor(5ms);
    EXPECT_EQ(results.size(), 1U);
}

TEST_F(CurlTransferSessionTest, ACancelledTransferIsGoneFromTheWireAfterItsLimits) {
    const test::SilentSocket silent(SOCK_STREAM);
    silent.listen();
    makeSession(1s);
    runFor(5ms);
    const auto before = openDescriptors();
    head(silent.url())->cancel();
    runFor(20ms);
    EXPECT_GT(openDescriptors(), before);
    EXPECT_TRUE(test::waitUntil([&] { return openDescriptors() == before; }));
}

TEST_F(CurlTransferSessionTest, ADroppedHandleDoesNotEndTheTransfer) {
    const test::SilentSocket silent(SOCK_STREAM);
    silent.listen();
    head(silent.url());
    runUntil(1);
    ASSERT_EQ(results.size(), 1U);
    EXPECT_GE(results[0].after, 200ms);
}

TEST_F(CurlTransferSessionTest, AnotherNetworkDropsWhatRanUnseen) {
    const test::SilentSocket silent(SOCK_STREAM);
    const test::SilentSocket closed(SOCK_STREAM);
    silent.listen();
    const auto before = openDescriptors();
    head(silent.url())->cancel();
    runFor(20ms);
    epoch->advance();
    head(closed.url());
    runUntil(2);
    runFor(10ms);
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(CurlTransferSessionTest, InvalidateEndsEveryTransferOnceWithAnError) {
    const test::SilentSocket silent(SOCK_STREAM);
    silent.listen();
    makeSession(1h);
    const auto before = openDescriptors();
    head(silent.url());
    head(silent.url());
    runFor(20ms);
    session->invalidateAndCancel();
    runUntil(2);
    ASSERT_EQ(results.size(), 2U);
    for (const auto& result : results) {
        EXPECT_TRUE(result.error.has_value());
    }
    runFor(20ms);
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(CurlTransferSessionTest, InvalidateEndsTransfersOfAnEarlierNetworkToo) {
    const test::SilentSocket silent(SOCK_STREAM);
    silent.listen();
    makeSession(60s);
    head(silent.url());
    runFor(20ms);
    epoch->advance();
    head(silent.url());
    session->invalidateAndCancel();
    runUntil(2);
    EXPECT_EQ(results.size(), 2U);
}

TEST_F(CurlTransferSessionTest, ManyFailuresLeaveNothingBehind) {
    const test::SilentSocket closed(SOCK_STREAM);
    const test::SilentSocket silent(SOCK_STREAM);
    silent.listen();
    makeSession(5ms);
    head(closed.url());
    runUntil(1);
    runFor(10ms);
    const auto before = openDescriptors();
    for (std::size_t i = 0; i < 100; ++i) {
        head(closed.url());
        head(silent.url());
        runUntil(3 + 2 * i);
    }
    EXPECT_EQ(results.size(), 201U);
    runFor(50ms);
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(CurlTransferSessionTest, DestroyingTheSessionWithTransfersUnderWayIsSilentAndClosesTheirConnections) {
    const test::SilentSocket silent(SOCK_STREAM);
    silent.listen();
    const auto before = openDescriptors();
    const auto task = head(silent.url());
    runFor(20ms);
    EXPECT_GT(openDescriptors(), before);
    session.reset();
    EXPECT_EQ(openDescriptors(), before);
    task->cancel();
    runFor(300ms);
    EXPECT_TRUE(results.empty());
}

/// Names are looked up at a server that never answers.
class DeadNamesTest : public CurlTransferSessionTest {
  protected:
    void SetUp() override {
        CurlTransferSessionTest::SetUp();
        if (IsSkipped()) {
            return;
        }
        names = std::make_unique<test::DeadNames>();
    }

    static QUrl host(std::size_t number) {
        return QUrl(QStringLiteral("https://dead%1.example/generate_204").arg(number));
    }

    std::unique_ptr<test::DeadNames> names;
};

TEST_F(DeadNamesTest, ALookUpWithoutAnAnswerFailsAtTheLimitAndHoldsUpNothing) {
    head(host(0));
    runUntil(1);
    ASSERT_EQ(results.size(), 1U);
    EXPECT_TRUE(results[0].error.has_value());
    EXPECT_GE(results[0].after, 200ms);
    expectSoonerThan(250ms, results[0]);
}

TEST_F(DeadNamesTest, ANameIsLookedUpOnceHoweverManyAskForIt) {
    const auto before = threads();
    for (std::size_t count = 1; count <= 4; ++count) {
        head(host(0));
        runUntil(count);
        EXPECT_LE(threads() - before, 1);
    }
    EXPECT_EQ(results.size(), 4U);
}

} // namespace
} // namespace skylet

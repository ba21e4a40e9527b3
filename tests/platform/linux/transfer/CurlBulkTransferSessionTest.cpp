#include "platform/linux/transfer/CurlBulkTransferSession.h"

#include "DeadNames.h"
#include "LoopWatch.h"
#include "PrivateSystem.h"
#include "Proxy.h"
#include "SpeedServer.h"
#include "SystemNames.h"
#include "support/Timing.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QMap>
#include <QTimer>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/sockios.h>
#include <linux/tcp.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace skylet {
namespace {

using namespace std::chrono_literals;
using End = BulkTransferResult::End;

/// For as long as 400 MB take where many others want the processor too.
constexpr auto aBusyMachinesTime = 10min;

/// What a delegate was told about one transfer.
struct Told {
    std::vector<std::optional<int>> heads;
    std::int64_t received = 0;
    std::int64_t sent = 0;
    int pieces = 0;
    std::vector<BulkTransferResult> results;
};

class Delegate final : public BulkTransferDelegate {
  public:
    ResponseDisposition responseReceived(TaskIdentifier task, std::optional<int> statusCode) override {
        EXPECT_TRUE(told[task].results.empty());
        told[task].heads.push_back(statusCode);
        onHead(task);
        return disposition(statusCode);
    }
    void dataReceived(TaskIdentifier task, std::int64_t count) override {
        EXPECT_GT(count, 0);
        EXPECT_TRUE(told[task].results.empty());
        told[task].received += count;
        ++told[task].pieces;
        onData(task);
    }
    void bodySent(TaskIdentifier task, std::int64_t count) override {
        EXPECT_GT(count, 0);
        EXPECT_TRUE(told[task].results.empty());
        told[task].sent += count;
        ++told[task].pieces;
        onSent(task);
    }
    void completed(TaskIdentifier task, const BulkTransferResult& result) override {
        told[task].results.push_back(result);
        onCompleted(task);
    }

    std::map<TaskIdentifier, Told> told;
    std::function<ResponseDisposition(std::optional<int>)> disposition = [](std::optional<int> status) {
        return status && *status / 100 == 2 ? ResponseDisposition::allow : ResponseDisposition::cancel;
    };
    std::function<void(TaskIdentifier)> onHead = [](TaskIdentifier) {};
    std::function<void(TaskIdentifier)> onData = [](TaskIdentifier) {};
    std::function<void(TaskIdentifier)> onSent = [](TaskIdentifier) {};
    std::function<void(TaskIdentifier)> onCompleted = [](TaskIdentifier) {};
};

class CurlBulkTransferSessionTest : public testing::Test {
  protected:
    void SetUp() override {
        if (const auto reason = test::PrivateSystem::enter()) {
            GTEST_SKIP() << "needs namespaces: " << reason->toStdString();
        }
        server = std::make_unique<test::SpeedServer>();
        makeSession();
    }

    void makeSession(const SessionConfiguration& configuration = {15s, 15s}) {
        session = std::make_unique<CurlBulkTransferSession>(configuration, epoch, names, delegate, sentByMachine);
    }

    template <typename Condition>
    bool runUntil(Condition condition, std::chrono::milliseconds longest = aBusyMachinesTime) {
        QElapsedTimer since;
        since.start();
        // Given a longest time, processEvents would not wait but spin.
        QTimer beat;
        beat.start(2ms);
        while (!condition() && since.elapsed() < longest.count()) {
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        }
        return condition();
    }

    BulkTransferResult finish(const std::shared_ptr<BulkTransferTask>& task) {
        const auto& told = delegate.told[task->taskIdentifier()];
        EXPECT_TRUE(runUntil([&] { return !told.results.empty(); }));
        return told.results.empty() ? BulkTransferResult{} : told.results.front();
    }

    const Told& told(const std::shared_ptr<BulkTransferTask>& task) { return delegate.told[task->taskIdentifier()]; }

    std::shared_ptr<BulkTransferTask> upload(std::int64_t size) {
        return session->upload(test::SpeedServer::up(), "application/octet-stream", size, 60s);
    }

    void runFor(std::chrono::milliseconds time) {
        runUntil([] { return false; }, time);
    }

    static QJsonObject withHeader(const QString& name, const QString& value) {
        return {{QStringLiteral("headers"), QJsonArray{QJsonArray{name, value}}}};
    }

    QMap<QString, QString> headersOf(qsizetype request) {
        QMap<QString, QString> headers;
        for (const auto& pair : server->requests().at(request).toObject().value(QStringLiteral("headers")).toArray()) {
            headers[pair.toArray().at(0).toString()] = pair.toArray().at(1).toString();
        }
        return headers;
    }

    static std::int64_t lastSeriesValue(const QJsonObject& request) {
        return request.value(QStringLiteral("series")).toArray().last().toArray().at(1).toInteger();
    }

    /// Of this machine's clients, in whichever state, that have not been closed for good (proc_pid_net(5)).
    static int tcpSockets() {
        int count = 0;
        forEachClientSocket([&](const auto&) { ++count; });
        return count;
    }

    /// Of the one connection: the bytes of this process's that its peer has taken, and those in the kernel's hands.
    static std::pair<std::int64_t, std::int64_t> kernelCounts() {
        for (int descriptor = 0; descriptor < 256; ++descriptor) {
            tcp_info info{};
            socklen_t length = sizeof info;
            int pending = 0;
            if (::getsockopt(descriptor, IPPROTO_TCP, TCP_INFO, &info, &length) == 0 &&
                ::ioctl(descriptor, SIOCOUTQ, &pending) == 0) {
                return {static_cast<std::int64_t>(info.tcpi_bytes_acked), pending};
            }
        }
        return {};
    }

    /// The share of TLS in what is not read yet is an estimate, and the more waits unread, on a busy machine, the
    /// coarser. Only at a normal end is the count exact.
    static void expectAbout(std::int64_t bytes, std::int64_t expected) {
        EXPECT_NEAR(static_cast<double>(bytes), static_cast<double>(expected), 0.05 * static_cast<double>(expected));
    }

    /// The event loop turns no more often than something happens, which is at most each of the two milliseconds of
    /// runUntil and of the five of a slow server, on any machine. One that turns for nothing turns 100,000 times a
    /// second.
    void expectIdleFor(std::chrono::milliseconds time) {
        QElapsedTimer since;
        since.start();
        int turns = 0;
        runUntil([&turns] { return ++turns < 0; }, time);
        EXPECT_LT(turns, 3 * since.elapsed() + 100);
    }

    static std::int64_t residentBytes() {
        QFile file(QStringLiteral("/proc/self/statm"));
        EXPECT_TRUE(file.open(QIODevice::ReadOnly));
        return file.readAll().split(' ').at(1).toLongLong() * ::sysconf(_SC_PAGESIZE);
    }

    /// Of this process's memory. A sanitizer has some of its own, and keeps what has been freed for a while.
    static void expectGrowthBelow(std::int64_t limit, std::int64_t before) {
#ifdef __SANITIZE_ADDRESS__
        limit += 200'000'000;
#endif
        EXPECT_LT(residentBytes() - before, limit);
    }

    std::unique_ptr<test::SpeedServer> server;
    Delegate delegate;
    std::shared_ptr<NetworkEpoch> epoch = std::make_shared<NetworkEpoch>();
    std::shared_ptr<NameResolver> names = test::systemNames(epoch);
    std::unique_ptr<CurlBulkTransferSession> session;
    /// Of the sessions that are made from now on.
    CurlBulkTransferSession::SentByMachine sentByMachine;

    template <typename Action>
    static void forEachClientSocket(Action action) {
        QFile file(QStringLiteral("/proc/self/net/tcp"));
        ASSERT_TRUE(file.open(QIODevice::ReadOnly));
        for (const auto& line : file.readAll().split('\n').mid(1)) {
            const auto columns = line.simplified().split(' ');
            if (columns.size() > 3 && columns.at(2).endsWith(":01BB") && columns.at(3) != "06") {
                action(columns);
            }
        }
    }
};

TEST_F(CurlBulkTransferSessionTest, ADownloadReportsItsHeadEveryByteAndItsEnd) {
    const auto task = session->download(test::SpeedServer::down(40'000'000));
    const auto result = finish(task);
    EXPECT_EQ(result.end, End::finished);
    EXPECT_EQ(result.statusCode, 200);
    EXPECT_THAT(told(task).heads, testing::ElementsAre(std::optional(200)));
    EXPECT_EQ(told(task).received, 40'000'000);
    EXPECT_EQ(told(task).sent, 0);
}

TEST_F(CurlBulkTransferSessionTest, AnUploadReportsEveryByteAndItsEnd) {
    const auto task = upload(20'000'000);
    const auto result = finish(task);
    EXPECT_EQ(result.end, End::finished);
    EXPECT_EQ(result.statusCode, 200);
    EXPECT_EQ(told(task).sent, 20'000'000);
    const auto request = server->requests().at(0).toObject();
    EXPECT_TRUE(request.value(QStringLiteral("whole")).toBool());
    EXPECT_TRUE(request.value(QStringLiteral("allZero")).toBool());
}

TEST_F(CurlBulkTransferSessionTest, SpeaksHttp1WithAServerThatWouldSpeakHttp2) {
    finish(session->download(test::SpeedServer::down(1000)));
    finish(upload(1000));
    for (const auto& request : server->requests()) {
        EXPECT_EQ(request.toObject().value(QStringLiteral("protocol")).toString(), QStringLiteral("http/1.1"));
    }
    EXPECT_EQ(server->requests().size(), 2);
}

TEST_F(CurlBulkTransferSessionTest, MovesAndCountsTheSameOverIPv6) {
    if (!QFile::exists(QStringLiteral("/proc/self/net/if_inet6"))) {
        GTEST_SKIP() << "this kernel has no IPv6";
    }
    auto downUrl = test::SpeedServer::down(40'000'000);
    auto upUrl = test::SpeedServer::up();
    downUrl.setHost(QStringLiteral("::1"));
    upUrl.setHost(QStringLiteral("::1"));
    const auto down = session->download(downUrl);
    EXPECT_EQ(finish(down).end, End::finished);
    EXPECT_EQ(told(down).received, 40'000'000);
    server->set(QStringLiteral("up"),
                {{QStringLiteral("at"), 100'000}, {QStringLiteral("deed"), QStringLiteral("stall")}});
    const auto up = session->upload(upUrl, "text/plain", 20'000'000, 60s);
    EXPECT_TRUE(runUntil([&] { return told(up).sent > 100'000; }));
    up->cancel();
    EXPECT_EQ(finish(up).end, End::cancelled);
    EXPECT_LT(told(up).sent, 19'000'000) << "what the other end has acknowledged";
    EXPECT_EQ(server->connections(), 1);
}

TEST_F(CurlBulkTransferSessionTest, AServerWithSmallBuffersGetsTheWholeBody) {
    server->limitReceiveBuffers(32 * 1024);
    const auto task = upload(5'000'000);
    EXPECT_EQ(finish(task).end, End::finished);
    EXPECT_EQ(told(task).sent, 5'000'000);
}

TEST_F(CurlBulkTransferSessionTest, AsksForAnUncompressedAnswerAndSendsTheBodyWithoutWaitingForLeave) {
    finish(session->download(test::SpeedServer::down(1000)));
    finish(upload(1'500'000));
    const auto get = headersOf(0);
    EXPECT_EQ(get.value(QStringLiteral("accept-encoding")), QStringLiteral("identity"));
    EXPECT_FALSE(get.contains(QStringLiteral("cookie")));
    EXPECT_EQ(get.value(QStringLiteral("cache-control")), QStringLiteral("no-cache")) << "of caches on the way";
    EXPECT_EQ(get.value(QStringLiteral("pragma")), QStringLiteral("no-cache"));
    const auto post = headersOf(1);
    EXPECT_EQ(post.value(QStringLiteral("content-type")), QStringLiteral("application/octet-stream"));
    EXPECT_EQ(post.value(QStringLiteral("content-length")), QStringLiteral("1500000"));
    EXPECT_FALSE(post.contains(QStringLiteral("expect")));
}

TEST_F(CurlBulkTransferSessionTest, ACompressedAnswerIsCountedAsItComes) {
    server->set(QStringLiteral("down"), withHeader(QStringLiteral("content-encoding"), QStringLiteral("gzip")));
    const auto task = session->download(test::SpeedServer::down(50'000));
    EXPECT_EQ(finish(task).end, End::finished);
    EXPECT_EQ(told(task).received, 50'000);
}

TEST_F(CurlBulkTransferSessionTest, CookiesAreNotKept) {
    server->set(QStringLiteral("down"), withHeader(QStringLiteral("set-cookie"), QStringLiteral("a=b")));
    finish(session->download(test::SpeedServer::down(1000)));
    finish(session->download(test::SpeedServer::down(1000)));
    EXPECT_FALSE(headersOf(1).contains(QStringLiteral("cookie")));
}

TEST_F(CurlBulkTransferSessionTest, ARedirectIsTheFinalAnswer) {
    auto behaviour = withHeader(QStringLiteral("location"), test::SpeedServer::down(9).toString());
    behaviour[QStringLiteral("status")] = 301;
    server->set(QStringLiteral("down"), behaviour);
    const auto task = session->download(test::SpeedServer::down(1000));
    const auto result = finish(task);
    EXPECT_THAT(told(task).heads, testing::ElementsAre(std::optional(301)));
    EXPECT_EQ(result.end, End::cancelled);
    EXPECT_EQ(result.statusCode, 301);
    EXPECT_EQ(server->requests().size(), 1);
}

TEST_F(CurlBulkTransferSessionTest, ARefusedAnswerEndsWithoutABodyAndWithoutBeingReadToItsEnd) {
    for (const int status : {403, 429, 500}) {
        server->set(QStringLiteral("down"), {{QStringLiteral("status"), status}});
        const auto task = session->download(test::SpeedServer::down(4'000'000'000));
        const auto result = finish(task);
        EXPECT_EQ(result.end, End::cancelled);
        EXPECT_EQ(result.statusCode, status);
        EXPECT_LT(told(task).received, 20'000) << "one record, with the head in it";
        EXPECT_LT(lastSeriesValue(server->requests().last().toObject()), 100'000'000);
    }
}

TEST_F(CurlBulkTransferSessionTest, ARefusedStatusOfAWholeAnswerIsACancelledTransferToo) {
    server->set(QStringLiteral("down"), {{QStringLiteral("status"), 404}});
    const auto task = session->download(test::SpeedServer::down(10));
    EXPECT_EQ(finish(task).end, End::cancelled);
    EXPECT_EQ(told(task).received, 0);
}

TEST_F(CurlBulkTransferSessionTest, InterimAnswersAreSkipped) {
    server->set(QStringLiteral("down"), {{QStringLiteral("interim"), 3}});
    const auto task = session->download(test::SpeedServer::down(1000));
    EXPECT_EQ(finish(task).end, End::finished);
    EXPECT_THAT(told(task).heads, testing::ElementsAre(std::optional(200)));
}

TEST_F(CurlBulkTransferSessionTest, SpeaksHttpsAlone) {
    auto url = test::SpeedServer::down(1000);
    url.setScheme(QStringLiteral("http"));
    url.setPort(443);
    const auto task = session->download(url);
    EXPECT_TRUE(told(task).results.empty());
    EXPECT_EQ(finish(task).end, End::failed);
    EXPECT_TRUE(told(task).heads.empty());
    EXPECT_EQ(server->connections(), 0);
}

TEST_F(CurlBulkTransferSessionTest, ATransferThatFailsAtOnceCompletesOnceAndNotFromInsideTheCall) {
    auto url = test::SpeedServer::down(1000);
    url.setPort(9);
    std::vector<std::shared_ptr<BulkTransferTask>> tasks;
    for (int i = 0; i < 20; ++i) {
        tasks.push_back(session->download(url));
        tasks.push_back(session->download(QUrl(QStringLiteral("https://"))));
    }
    EXPECT_TRUE(delegate.told.empty());
    for (const auto& task : tasks) {
        finish(task);
    }
    runFor(100ms);
    for (const auto& task : tasks) {
        ASSERT_EQ(told(task).results.size(), 1U);
        EXPECT_EQ(told(task).results[0].end, End::failed);
        EXPECT_EQ(told(task).results[0].statusCode, std::nullopt);
    }
}

TEST_F(CurlBulkTransferSessionTest, IdentifiersGrowAndAreNeverUsedTwice) {
    const auto first = session->download(test::SpeedServer::down(1000));
    const auto second = session->download(test::SpeedServer::down(1000));
    finish(first);
    finish(second);
    const auto third = session->download(test::SpeedServer::down(1000));
    EXPECT_LT(first->taskIdentifier(), second->taskIdentifier());
    EXPECT_LT(second->taskIdentifier(), third->taskIdentifier());
}

TEST_F(CurlBulkTransferSessionTest, AnUploadAfterADownloadGoesOverTheSameConnection) {
    finish(session->download(test::SpeedServer::down(1'000'000)));
    runFor(600ms);
    const auto task = upload(1'000'000);
    EXPECT_EQ(finish(task).end, End::finished);
    EXPECT_EQ(told(task).sent, 1'000'000);
    EXPECT_EQ(server->connections(), 1);
}

TEST_F(CurlBulkTransferSessionTest, TwoTransfersAtOnceGoOverTwoConnections) {
    server->set(QStringLiteral("down"), {{QStringLiteral("rate"), 20'000'000}});
    const auto down = session->download(test::SpeedServer::down(5'000'000));
    ASSERT_TRUE(runUntil([&] { return told(down).pieces > 0; }));
    const auto up = upload(5'000'000);
    EXPECT_EQ(finish(down).end, End::finished);
    EXPECT_EQ(finish(up).end, End::finished);
    EXPECT_EQ(told(down).received, 5'000'000);
    EXPECT_EQ(told(up).sent, 5'000'000);
    EXPECT_EQ(server->connections(), 2);
}

TEST_F(CurlBulkTransferSessionTest, AnotherNetworkGetsAnotherConnection) {
    finish(session->download(test::SpeedServer::down(1000)));
    epoch->advance();
    finish(session->download(test::SpeedServer::down(1000)));
    EXPECT_EQ(server->connections(), 2);
}

TEST_F(CurlBulkTransferSessionTest, AConnectionThatTheServerHasClosedIsReplacedWithoutALoss) {
    finish(session->download(test::SpeedServer::down(1000)));
    server->drop(QStringLiteral("close"));
    runFor(20ms);
    const auto task = upload(1'000'000);
    EXPECT_EQ(finish(task).end, End::finished);
    EXPECT_EQ(told(task).sent, 1'000'000);
}

TEST_F(CurlBulkTransferSessionTest, AnUploadThatLosesAKeptConnectionStartsAnewWithItsWholeBody) {
    finish(session->download(test::SpeedServer::down(1000)));
    server->set(QStringLiteral("up"), {{QStringLiteral("rate"), 2'000'000}});
    const auto task = upload(1'000'000);
    ASSERT_TRUE(runUntil([&] { return told(task).sent > 0; }));
    server->drop(QStringLiteral("reset"));
    EXPECT_EQ(finish(task).end, End::finished);
    EXPECT_EQ(told(task).sent, 1'000'000);
    EXPECT_EQ(lastSeriesValue(server->requests().last().toObject()), 1'000'000);
    EXPECT_EQ(server->connections(), 2);
}

TEST_F(CurlBulkTransferSessionTest, AKeptConnectionIsClosedWhenNothingFollows) {
    finish(session->download(test::SpeedServer::down(1000)));
    EXPECT_EQ(tcpSockets(), 1);
    runFor(CurlBulkTransferSession::keepConnectionsFor + 100ms);
    EXPECT_EQ(tcpSockets(), 0);
    EXPECT_EQ(finish(session->download(test::SpeedServer::down(1000))).end, End::finished);
}

/// A server that has sent or taken this much and then does neither.
class StalledServerTest : public CurlBulkTransferSessionTest {
  protected:
    void SetUp() override {
        CurlBulkTransferSessionTest::SetUp();
        if (IsSkipped()) {
            return;
        }
        for (const auto& way : {QStringLiteral("down"), QStringLiteral("up")}) {
            server->set(way, {{QStringLiteral("at"), 100'000}, {QStringLiteral("deed"), QStringLiteral("stall")}});
        }
    }
};

TEST_F(StalledServerTest, CancellingCompletesOnceFromTheEventLoopAndLeavesNoSocket) {
    for (const bool isUpload : {false, true}) {
        const auto task = isUpload ? upload(20'000'000) : session->download(test::SpeedServer::down(20'000'000));
        ASSERT_TRUE(runUntil([&] { return told(task).pieces > 0; }));
        runFor(100ms);
        task->cancel();
        task->cancel();
        EXPECT_EQ(tcpSockets(), 0) << "what the kernel holds of it would still be sent";
        EXPECT_TRUE(told(task).results.empty());
        const auto result = finish(task);
        EXPECT_EQ(result.end, End::cancelled);
        EXPECT_EQ(result.statusCode, isUpload ? std::nullopt : std::optional(200));
        runFor(50ms);
        task->cancel();
        runFor(50ms);
        EXPECT_EQ(told(task).results.size(), 1U);
    }
    EXPECT_EQ(server->connections(), 2) << "a cut-off transfer's connection carries no other";
}

TEST_F(StalledServerTest, WhatHadBeenAcknowledgedIsReportedBeforeACancelledTransferCompletes) {
    const auto task = upload(20'000'000);
    // Cancelled before the first report is due.
    ASSERT_TRUE(runUntil([&] { return server->requests().size() == 1 && kernelCounts().first > 20'000; }));
    task->cancel();
    EXPECT_EQ(finish(task).end, End::cancelled);
    EXPECT_GE(told(task).sent, 16'000);
    EXPECT_LT(told(task).sent, 20'000'000);
}

TEST_F(StalledServerTest, AnUploadCountsOnlyWhatTheOtherEndHasAcknowledged) {
    const auto task = upload(20'000'000);
    runFor(300ms);
    EXPECT_TRUE(runUntil([&] {
        const auto [acknowledged, unsent] = kernelCounts();
        EXPECT_LE(told(task).sent, acknowledged);
        return unsent > 100'000 && static_cast<double>(told(task).sent) > 0.98 * static_cast<double>(acknowledged);
    })) << "the kernel was to hold a part of the body, and the rest to be counted";
}

TEST_F(StalledServerTest, AStallLeavesTheEventLoopIdle) {
    const auto down = session->download(test::SpeedServer::down(20'000'000));
    const auto up = upload(20'000'000);
    runFor(100ms);
    expectIdleFor(500ms);
    EXPECT_TRUE(told(down).results.empty());
    EXPECT_TRUE(told(up).results.empty());
}

TEST_F(StalledServerTest, TheResourceLimitHoldsForTheWholeTransfer) {
    makeSession({15s, Seconds(1)});
    const auto down = session->download(test::SpeedServer::down(20'000'000));
    const auto up = upload(20'000'000);
    runFor(250ms);
    EXPECT_TRUE(told(down).results.empty());
    EXPECT_TRUE(told(up).results.empty());
    EXPECT_EQ(finish(down).end, End::failed);
    EXPECT_EQ(finish(up).end, End::failed);
    EXPECT_EQ(tcpSockets(), 0);
}

TEST_F(CurlBulkTransferSessionTest, TheRequestLimitIsForHowLongNothingMoves) {
    makeSession({Seconds(1), 15s});
    server->set(QStringLiteral("down"), {{QStringLiteral("rate"), 2'000'000},
                                         {QStringLiteral("at"), 2'000'000},
                                         {QStringLiteral("deed"), QStringLiteral("stall")}});
    server->set(QStringLiteral("up"), {{QStringLiteral("at"), 0}, {QStringLiteral("deed"), QStringLiteral("stall")}});
    QElapsedTimer since;
    since.start();
    const auto down = session->download(test::SpeedServer::down(20'000'000));
    const auto up = session->upload(test::SpeedServer::up(), "text/plain", 20'000'000, Seconds(4));
    EXPECT_EQ(finish(down).end, End::failed);
    EXPECT_GE(since.elapsed(), 1800) << "a second of moving, and the limit";
    expectAbout(told(down).received, 2'000'000);
    EXPECT_TRUE(told(up).results.empty()) << "the request's own limit takes the place of the session's";
    EXPECT_EQ(finish(up).end, End::failed);
    EXPECT_GE(since.elapsed(), 4000);
}

TEST_F(CurlBulkTransferSessionTest, AServerThatAcceptsAndSaysNothingFailsAtTheLimit) {
    server->acceptSilently();
    makeSession({15s, Seconds(0.2)});
    const auto task = session->download(test::SpeedServer::down(1000));
    const auto result = finish(task);
    EXPECT_EQ(result.end, End::failed);
    EXPECT_EQ(result.statusCode, std::nullopt);
    EXPECT_TRUE(told(task).heads.empty());
}

/// Where in the life of a transfer a delegate does something drastic.
enum class Moment { head, data, sent, completed };

class InsideCallbacksTest : public CurlBulkTransferSessionTest {
  protected:
    /// Runs a transfer of either way until `moment` has come, where `action` is done once.
    std::shared_ptr<BulkTransferTask> actAt(Moment moment, const std::function<void()>& action) {
        const auto once = [this, action](TaskIdentifier) {
            if (!std::exchange(acted, true)) {
                action();
            }
        };
        (moment == Moment::head   ? delegate.onHead
         : moment == Moment::data ? delegate.onData
         : moment == Moment::sent ? delegate.onSent
                                  : delegate.onCompleted) = once;
        task = moment == Moment::sent ? upload(size) : session->download(test::SpeedServer::down(size));
        EXPECT_TRUE(runUntil([this] { return acted; }));
        return task;
    }

    int callsAbout(const std::shared_ptr<BulkTransferTask>& about) {
        const auto& all = told(about);
        return static_cast<int>(all.heads.size() + all.results.size()) + all.pieces;
    }

    std::shared_ptr<BulkTransferTask> task;
    std::int64_t size = 20'000'000;
    bool acted = false;
};

TEST_F(InsideCallbacksTest, DestroyingTheSessionIsSilentAndHarmless) {
    for (const auto moment : {Moment::head, Moment::data, Moment::sent, Moment::completed}) {
        acted = false;
        delegate = {};
        makeSession();
        int calls = 0;
        actAt(moment, [&] {
            session.reset();
            calls = callsAbout(task);
        });
        EXPECT_EQ(tcpSockets(), 0);
        task->cancel();
        runFor(60ms);
        EXPECT_EQ(callsAbout(task), calls);
    }
}

TEST_F(InsideCallbacksTest, CancellingEndsTheTransferOnce) {
    size = 4'000'000'000;
    for (const auto moment : {Moment::head, Moment::data, Moment::sent}) {
        acted = false;
        delegate = {};
        makeSession();
        actAt(moment, [this] { task->cancel(); });
        EXPECT_EQ(finish(task).end, End::cancelled);
        runFor(60ms);
        EXPECT_EQ(told(task).results.size(), 1U);
    }
}

TEST_F(InsideCallbacksTest, StartingAnotherTransferWorks) {
    for (const auto moment : {Moment::head, Moment::data, Moment::sent, Moment::completed}) {
        acted = false;
        delegate = {};
        makeSession();
        std::shared_ptr<BulkTransferTask> second;
        actAt(moment, [&] { second = session->download(test::SpeedServer::down(2'000'000)); });
        EXPECT_EQ(finish(second).end, End::finished);
        EXPECT_EQ(told(second).received, 2'000'000);
        EXPECT_EQ(finish(task).end, End::finished);
    }
}

TEST_F(InsideCallbacksTest, CancellingAnotherTransferIsNotToldFromInsideTheCancel) {
    const auto other = upload(4'000'000'000);
    actAt(Moment::data, [&] {
        other->cancel();
        EXPECT_TRUE(told(other).results.empty());
    });
    EXPECT_EQ(finish(other).end, End::cancelled);
    EXPECT_EQ(finish(task).end, End::finished);
}

TEST_F(CurlBulkTransferSessionTest, DestroyingTheSessionWithTransfersUnderWayIsSilent) {
    const auto down = session->download(test::SpeedServer::down(4'000'000'000));
    const auto up = upload(4'000'000'000);
    ASSERT_TRUE(runUntil([&] { return told(down).pieces > 0 && told(up).pieces > 0; }));
    session.reset();
    EXPECT_EQ(tcpSockets(), 0);
    down->cancel();
    up->cancel();
    runFor(50ms);
    EXPECT_TRUE(told(down).results.empty());
    EXPECT_TRUE(told(up).results.empty());
}

TEST_F(CurlBulkTransferSessionTest, ADroppedHandleDoesNotEndTheTransfer) {
    const auto identifier = session->download(test::SpeedServer::down(1'000'000))->taskIdentifier();
    EXPECT_TRUE(runUntil([&] { return !delegate.told[identifier].results.empty(); }));
    EXPECT_EQ(delegate.told[identifier].received, 1'000'000);
}

TEST_F(CurlBulkTransferSessionTest, BytesAreReportedInSteps) {
    server->set(QStringLiteral("down"), {{QStringLiteral("rate"), 20'000'000}});
    QElapsedTimer since;
    since.start();
    const auto task = session->download(test::SpeedServer::down(10'000'000));
    finish(task);
    EXPECT_GE(told(task).pieces, 3);
    EXPECT_LE(told(task).pieces, since.elapsed() / 20 + 2) << "one report every 20 ms";
}

/// Servers that end a transfer in ways that are not in the book.
class HostileServerTest : public CurlBulkTransferSessionTest {
  protected:
    static QJsonObject deed(std::int64_t at, const char* name) {
        return {{QStringLiteral("at"), static_cast<qint64>(at)}, {QStringLiteral("deed"), QString::fromUtf8(name)}};
    }

    /// Starts a download or an upload of a length that cannot end by itself in a test.
    std::shared_ptr<BulkTransferTask> start(const QString& way) {
        return way == QStringLiteral("up") ? upload(4'000'000'000)
                                           : session->download(test::SpeedServer::down(4'000'000'000));
    }
};

TEST_F(HostileServerTest, ALostConnectionFailsTheTransferAndKeepsWhatWasMoved) {
    for (const auto& way : {QStringLiteral("down"), QStringLiteral("up")}) {
        for (const auto* how : {"close", "reset", "cancel"}) {
            // Slow enough for us to keep up: what the kernel still has for us when an RST comes is lost.
            auto behaviour = deed(3'000'000, how);
            behaviour[QStringLiteral("rate")] = 10'000'000;
            server->set(way, behaviour);
            const auto task = start(way);
            const auto result = finish(task);
            EXPECT_EQ(result.end, End::failed) << how;
            EXPECT_EQ(result.statusCode, way == QStringLiteral("down") ? std::optional(200) : std::nullopt) << how;
            EXPECT_GT(told(task).received + told(task).sent, 100'000) << how;
            EXPECT_LT(told(task).received + told(task).sent, 20'000'000) << how;
        }
    }
}

TEST_F(HostileServerTest, ABodyThatEndsTooSoonIsNoWholeAnswer) {
    server->set(QStringLiteral("down"), deed(500'000, "close"));
    const auto task = session->download(test::SpeedServer::down(1'000'000));
    EXPECT_EQ(finish(task).end, End::failed);
    expectAbout(told(task).received, 500'000);
}

TEST_F(HostileServerTest, WhatIsNotHttpFailsWithoutAStatus) {
    for (const auto& way : {QStringLiteral("down"), QStringLiteral("up")}) {
        server->set(way, deed(0, "garbage"));
        const auto task = start(way);
        const auto result = finish(task);
        EXPECT_EQ(result.end, End::failed);
        EXPECT_EQ(result.statusCode, std::nullopt);
        EXPECT_TRUE(told(task).heads.empty());
    }
}

TEST_F(HostileServerTest, AHeadWithoutEndFails) {
    for (const auto& way : {QStringLiteral("down"), QStringLiteral("up")}) {
        server->set(way, deed(0, "flood"));
        const auto task = start(way);
        EXPECT_EQ(finish(task).end, End::failed);
        EXPECT_TRUE(told(task).heads.empty());
    }
}

TEST_F(HostileServerTest, AHeadBeyondTheLimitFails) {
    const auto fields = [](int count) {
        QJsonArray all;
        for (int i = 0; i < count; ++i) {
            all.append(QJsonArray{QStringLiteral("x-field"), QString(1000, u'x')});
        }
        return QJsonObject{{QStringLiteral("headers"), all}};
    };
    server->set(QStringLiteral("down"), fields(60));
    EXPECT_EQ(finish(session->download(test::SpeedServer::down(1000))).end, End::finished);
    server->set(QStringLiteral("down"), fields(70));
    const auto task = session->download(test::SpeedServer::down(1000));
    EXPECT_EQ(finish(task).end, End::failed);
    EXPECT_TRUE(told(task).heads.empty());
}

TEST_F(HostileServerTest, AFloodOfInterimAnswersFails) {
    server->set(QStringLiteral("down"), {{QStringLiteral("interim"), 10'000}});
    const auto task = start(QStringLiteral("down"));
    EXPECT_EQ(finish(task).end, End::failed);
    EXPECT_TRUE(told(task).heads.empty());
}

TEST_F(HostileServerTest, WhoeverOnlyKeepsTheProcessorBusyIsLeft) {
    // No limit but that of work for nothing ends these.
    makeSession({1h, 1h});
    for (const auto* flood : {"keyUpdateRequest", "ticket"}) {
        for (const auto* stage : {"request", "body"}) {
            server->turnHostile({{QStringLiteral("stage"), QString::fromUtf8(stage)},
                                 {QStringLiteral("bytes"), 100'000},
                                 {QStringLiteral("flood"), QString::fromUtf8(flood)}});
            for (const auto& way : {QStringLiteral("down"), QStringLiteral("up")}) {
                const auto task = start(way);
                EXPECT_EQ(finish(task).end, End::failed) << flood << ' ' << stage << ' ' << way.toStdString();
                EXPECT_LT(told(task).received, 10'000'000);
            }
        }
    }
}

TEST_F(HostileServerTest, ATrickleLeavesTheEventLoopIdle) {
    for (const auto& way : {QStringLiteral("down"), QStringLiteral("up")}) {
        server->set(way, {{QStringLiteral("rate"), 20'000}});
        const auto task = start(way);
        runFor(200ms);
        expectIdleFor(500ms);
        EXPECT_TRUE(told(task).results.empty());
        task->cancel();
        finish(task);
    }
}

TEST_F(HostileServerTest, AnAnswerOfFourGigabytesTakesNoMemory) {
    server->set(QStringLiteral("down"), {{QStringLiteral("length"), qint64{4'000'000'000}}});
    const auto task = session->download(test::SpeedServer::down(40'000'000));
    ASSERT_TRUE(runUntil([&] { return told(task).received > 20'000'000; }));
    const auto before = residentBytes();
    ASSERT_TRUE(runUntil([&] { return told(task).received > 100'000'000; }));
    expectGrowthBelow(4'000'000, before);
}

TEST_F(HostileServerTest, ABodyOfFourGigabytesTakesNoMemory) {
    const auto before = residentBytes();
    const auto task = start(QStringLiteral("up"));
    ASSERT_TRUE(runUntil([&] { return told(task).sent > 100'000'000; }));
    expectGrowthBelow(8'000'000, before);
}

/// Uploads that are answered before their body has been read.
class EarlyAnswerTest : public CurlBulkTransferSessionTest {
  protected:
    static constexpr std::int64_t size = 20'000'000;

    std::shared_ptr<BulkTransferTask> answered(int status, int at, const char* afterwards) {
        server->set(QStringLiteral("up"), {{QStringLiteral("status"), status},
                                           {QStringLiteral("answerAt"), at},
                                           {QStringLiteral("afterwards"), QString::fromUtf8(afterwards)}});
        return upload(size);
    }
};

TEST_F(EarlyAnswerTest, ARefusalEndsTheTransferAtOnce) {
    for (const int status : {301, 403, 429, 500}) {
        for (const auto* afterwards : {"read", "stop"}) {
            const auto task = answered(status, 100'000, afterwards);
            const auto result = finish(task);
            EXPECT_EQ(result.end, End::cancelled) << status << afterwards;
            EXPECT_EQ(result.statusCode, status);
            EXPECT_LT(told(task).sent, size);
        }
    }
}

TEST_F(EarlyAnswerTest, WhoAnswersAndReadsOnGetsTheWholeBody) {
    for (const int at : {0, 100'000, 1'000'000}) {
        const auto task = answered(200, at, "read");
        const auto result = finish(task);
        EXPECT_EQ(result.end, End::finished) << at;
        EXPECT_EQ(result.statusCode, 200);
        // libcurl is done when the kernel has it all.
        EXPECT_GT(told(task).sent, size / 2);
        EXPECT_LE(told(task).sent, size);
        EXPECT_TRUE(runUntil([&] { return lastSeriesValue(server->requests().last().toObject()) > size / 2; }));
    }
}

TEST_F(EarlyAnswerTest, WhatTheKernelStillHoldsAtTheEndIsNotCounted) {
    server->set(QStringLiteral("up"), {{QStringLiteral("rate"), 20'000'000}, {QStringLiteral("answerAt"), 0}});
    const auto task = upload(size);
    EXPECT_EQ(finish(task).end, End::finished);
    const auto unsent = kernelCounts().second;
    ASSERT_GT(unsent, 100'000) << "it ends when the kernel has it all";
    EXPECT_LE(told(task).sent, size - unsent / 2);
}

TEST_F(EarlyAnswerTest, WhoAnswersAndReadsNoMoreGetsNoMore) {
    for (const int at : {0, 100'000, 1'000'000}) {
        const auto task = answered(200, at, "stop");
        ASSERT_TRUE(runUntil([&] { return !told(task).heads.empty(); }));
        runFor(100ms);
        expectIdleFor(400ms);
        EXPECT_LT(told(task).sent, size / 2) << "only what has been acknowledged counts";
        EXPECT_TRUE(told(task).results.empty()) << "the caller's deadline decides";
        task->cancel();
        finish(task);
    }
}

TEST_F(EarlyAnswerTest, AConnectionLostAfterAWholeAnswerDoesNotUndoTheAnswer) {
    const auto task = answered(200, 1'000'000, "close");
    const auto result = finish(task);
    // The end of the connection may overtake the answer; then there is none.
    EXPECT_EQ(result.end, result.statusCode ? End::finished : End::failed);
    EXPECT_LT(told(task).sent, size);
}

TEST_F(CurlBulkTransferSessionTest, NobodyWaitsForALookUpThatIsNotAnswered) {
    const test::DeadNames dead;
    const auto task = session->download(QUrl(QStringLiteral("https://dead.example/")));
    runFor(3ms);
    EXPECT_TRUE(told(task).results.empty());
    task->cancel();
    EXPECT_EQ(finish(task).end, End::cancelled);
}

TEST_F(CurlBulkTransferSessionTest, ANameThatIsNotFoundFailsTheTransfer) {
    const test::DeadNames dead;
    const auto task = session->download(QUrl(QStringLiteral("https://dead.example/")));
    EXPECT_EQ(finish(task).end, End::failed);
}

TEST_F(CurlBulkTransferSessionTest, ThroughAProxyTheProxysOwnAnswerIsNotTheServers) {
    const test::Proxy proxy;
    qputenv("https_proxy", proxy.url());
    const auto down = session->download(test::SpeedServer::down(1'000'000));
    EXPECT_EQ(finish(down).end, End::finished);
    const auto up = upload(3'000'000);
    EXPECT_EQ(finish(up).end, End::finished);
    qunsetenv("https_proxy");
    EXPECT_THAT(told(down).heads, testing::ElementsAre(std::optional(200)));
    EXPECT_EQ(told(down).received, 1'000'000);
    EXPECT_EQ(told(up).sent, 3'000'000);
    EXPECT_EQ(proxy.connections(), 1);
}

TEST_F(CurlBulkTransferSessionTest, AProxyThatRefusesGivesNoStatus) {
    const test::Proxy proxy(test::Proxy::Manner::refusing);
    qputenv("https_proxy", proxy.url());
    const auto task = session->download(test::SpeedServer::down(1'000'000));
    const auto result = finish(task);
    qunsetenv("https_proxy");
    EXPECT_EQ(result.end, End::failed);
    EXPECT_EQ(result.statusCode, std::nullopt);
    EXPECT_TRUE(told(task).heads.empty());
}

TEST_F(CurlBulkTransferSessionTest, AProxyWhoseAnswerHasNoEndIsLeftBeforeItHoldsUpTheProgram) {
    const test::Proxy proxy(test::Proxy::Manner::talkingWithoutEnd);
    qputenv("https_proxy", proxy.url());
    makeSession({1s, 1s});
    const test::LoopWatch watch;
    const auto result = finish(session->download(test::SpeedServer::down(1'000'000)));
    qunsetenv("https_proxy");
    EXPECT_EQ(result.end, End::failed);
    if (test::runsAlone()) {
        EXPECT_LT(watch.longestTurn(), test::allowing(100ms)) << "of the processor at one go";
    }
}

/// The machine itself acknowledges what is sent, as a proxy on it would.
class NearServerTest : public CurlBulkTransferSessionTest {
  protected:
    void SetUp() override {
        CurlBulkTransferSessionTest::SetUp();
        sentByMachine = [this] { return left; };
        makeSession();
    }

    std::optional<std::int64_t> left = 5'000'000;
};

TEST_F(NearServerTest, AnUploadUnderWayCountsForNoMoreThanHasLeftTheMachineSinceItBegan) {
    const auto task = upload(400'000'000);
    ASSERT_TRUE(runUntil([&] { return kernelCounts().first > 1'000'000; }));
    runFor(60ms);
    EXPECT_EQ(told(task).sent, 0);
    left = *left + 300'000;
    EXPECT_TRUE(runUntil([&] { return told(task).sent == 300'000; }));
    left = *left + 200'000;
    task->cancel();
    finish(task);
    EXPECT_EQ(told(task).sent, 500'000);
}

TEST_F(NearServerTest, AnUploadThatHasBeenAnsweredCountsForNoMoreEither) {
    delegate.onHead = [this](TaskIdentifier) { left = *left + 700'000; };
    const auto task = upload(1'000'000);
    EXPECT_EQ(finish(task).end, End::finished);
    EXPECT_LE(told(task).sent, 700'000);
}

TEST_F(NearServerTest, WhereTheMachineHasSentMoreTheAcknowledgedBytesCount) {
    sentByMachine = [this] { return left = *left + 10'000'000; };
    makeSession();
    server->set(QStringLiteral("up"),
                {{QStringLiteral("at"), 100'000}, {QStringLiteral("deed"), QStringLiteral("stall")}});
    const auto task = upload(20'000'000);
    EXPECT_TRUE(runUntil([&] { return told(task).sent > 100'000; }));
    EXPECT_LE(told(task).sent, kernelCounts().first);
}

TEST_F(NearServerTest, WhereNobodyKnowsWhatHasLeftTheAcknowledgedBytesCount) {
    left.reset();
    const auto task = upload(1'000'000);
    EXPECT_EQ(finish(task).end, End::finished);
    EXPECT_EQ(told(task).sent, 1'000'000);
}

TEST_F(CurlBulkTransferSessionTest, AnUploadIsNotHeldInMemory) {
    const auto before = residentBytes();
    const auto task = upload(200'000'000);
    EXPECT_EQ(finish(task).end, End::finished);
    expectGrowthBelow(8'000'000, before);
}

} // namespace
} // namespace skylet

#include "platform/linux/transfer/CurlBulkTransferSession.h"

#include "PrivateSystem.h"
#include "SpeedServer.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <vector>

namespace skylet {
namespace {

using namespace std::chrono_literals;
using End = BulkTransferResult::End;

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
        EXPECT_EQ(told[task].received, 0);
        EXPECT_TRUE(told[task].results.empty());
        told[task].heads.push_back(statusCode);
        onHead(task);
        return disposition(statusCode);
    }
    void dataReceived(TaskIdentifier task, std::int64_t count) override {
        EXPECT_GT(count, 0);
        EXPECT_FALSE(told[task].heads.empty());
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

class CurlBulkTransferSessionTest : public testing::TestWithParam<const char*> {
  protected:
    void SetUp() override {
        if (const auto reason = test::PrivateSystem::enter()) {
            GTEST_SKIP() << "needs namespaces: " << reason->toStdString();
        }
        server = std::make_unique<test::SpeedServer>();
        server->speak(QString::fromUtf8(GetParam()));
        session = std::make_unique<CurlBulkTransferSession>(SessionConfiguration{15s, 15s}, epoch, delegate);
    }

    template <typename Condition>
    bool runUntil(Condition condition, std::chrono::milliseconds longest = 10s) {
        QElapsedTimer since;
        since.start();
        while (!condition() && since.elapsed() < longest.count()) {
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 5);
        }
        return condition();
    }

    BulkTransferResult finish(const std::shared_ptr<BulkTransferTask>& task) {
        const auto& told = delegate.told[task->taskIdentifier()];
        EXPECT_TRUE(runUntil([&] { return !told.results.empty(); }));
        return told.results.empty() ? BulkTransferResult{} : told.results.front();
    }

    const Told& told(const std::shared_ptr<BulkTransferTask>& task) { return delegate.told[task->taskIdentifier()]; }

    std::shared_ptr<BulkTransferTask> upload(std::size_t size) {
        return session->upload(test::SpeedServer::up(), "application/octet-stream", zeroBody(size), 60s);
    }

    std::unique_ptr<test::SpeedServer> server;
    Delegate delegate;
    std::shared_ptr<NetworkEpoch> epoch = std::make_shared<NetworkEpoch>();
    std::unique_ptr<CurlBulkTransferSession> session;
};

INSTANTIATE_TEST_SUITE_P(Protocols, CurlBulkTransferSessionTest, testing::Values("h2", "http/1.1"),
                         [](const auto& protocol) { return std::string(protocol.index == 0 ? "Http2" : "Http1"); });

TEST_P(CurlBulkTransferSessionTest, ADownloadReportsItsHeadEveryByteAndItsEnd) {
    const auto task = session->download(test::SpeedServer::down(40'000'000));
    const auto result = finish(task);
    EXPECT_EQ(result.end, End::finished);
    EXPECT_EQ(result.statusCode, 200);
    EXPECT_THAT(told(task).heads, testing::ElementsAre(std::optional(200)));
    EXPECT_EQ(told(task).received, 40'000'000);
    EXPECT_EQ(told(task).sent, 0);
}

TEST_P(CurlBulkTransferSessionTest, AnUploadReportsEveryByteAndItsEnd) {
    const auto task = upload(20'000'000);
    const auto result = finish(task);
    EXPECT_EQ(result.end, End::finished);
    EXPECT_EQ(result.statusCode, 200);
    EXPECT_EQ(told(task).sent, 20'000'000);
    const auto request = server->requests().at(0).toObject();
    EXPECT_TRUE(request.value(QStringLiteral("whole")).toBool());
    EXPECT_EQ(request.value(QStringLiteral("protocol")).toString(), QString::fromUtf8(GetParam()));
}

} // namespace
} // namespace skylet

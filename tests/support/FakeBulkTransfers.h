#pragma once

#include "platform/transfer/BulkTransferSession.h"

#include <QByteArray>
#include <QUrl>

#include <memory>
#include <optional>
#include <utility>
#include <vector>

namespace skylet::test {

/// Stands for the sessions that a test's subject makes. Nothing moves but what the test reports to the delegate.
class FakeBulkTransfers {
  public:
    class Task final : public BulkTransferTask {
      public:
        Task(TaskIdentifier identifier, QUrl address) : url(std::move(address)), identifier_(identifier) {}
        TaskIdentifier taskIdentifier() const override { return identifier_; }
        void cancel() override { ++cancels; }

        const QUrl url;
        bool isUpload = false;
        QByteArray contentType;
        std::int64_t bodySize = 0;
        std::optional<Seconds> timeoutInterval;
        int cancels = 0;

      private:
        const TaskIdentifier identifier_;
    };

    BulkTransferSessionFactory factory() {
        return [this](const SessionConfiguration& configuration, BulkTransferDelegate& delegate) {
            configurations.push_back(configuration);
            delegate_ = &delegate;
            return std::make_unique<Session>(*this);
        };
    }

    BulkTransferDelegate& delegate() const { return *delegate_; }
    Task& last() const { return *tasks.back(); }

    // What a transport reports, about the last task unless another one is named.
    ResponseDisposition respond(std::optional<int> statusCode) {
        return delegate_->responseReceived(last().taskIdentifier(), statusCode);
    }
    void receive(std::int64_t count) { delegate_->dataReceived(last().taskIdentifier(), count); }
    void send(std::int64_t count) { delegate_->bodySent(last().taskIdentifier(), count); }
    void complete(BulkTransferResult::End end, std::optional<int> statusCode) { complete(last(), end, statusCode); }
    void complete(const Task& task, BulkTransferResult::End end, std::optional<int> statusCode) {
        delegate_->completed(task.taskIdentifier(), {end, statusCode});
    }

    std::vector<SessionConfiguration> configurations;
    /// All that were ever started.
    std::vector<std::shared_ptr<Task>> tasks;

  private:
    class Session final : public BulkTransferSession {
      public:
        explicit Session(FakeBulkTransfers& owner) : owner_(owner) {}
        std::shared_ptr<BulkTransferTask> download(const QUrl& url) override { return owner_.add(url); }
        std::shared_ptr<BulkTransferTask> upload(const QUrl& url, const QByteArray& contentType, std::int64_t size,
                                                 Seconds timeoutInterval) override {
            auto task = owner_.add(url);
            task->isUpload = true;
            task->contentType = contentType;
            task->bodySize = size;
            task->timeoutInterval = timeoutInterval;
            return task;
        }

      private:
        FakeBulkTransfers& owner_;
    };

    std::shared_ptr<Task> add(const QUrl& url) {
        tasks.push_back(std::make_shared<Task>(static_cast<TaskIdentifier>(tasks.size()) + 1, url));
        return tasks.back();
    }

    BulkTransferDelegate* delegate_ = nullptr;
};

} // namespace skylet::test

#pragma once

#include "platform/transfer/BulkTransferSession.h"

#include <gtest/gtest.h>

#include <map>
#include <optional>

namespace skylet::test {

/// Takes what has a status of success, as the speed test does.
class BulkResults final : public BulkTransferDelegate {
  public:
    ResponseDisposition responseReceived(TaskIdentifier /*task*/, std::optional<int> statusCode) override {
        const bool isSuccess = statusCode && *statusCode / 100 == 2;
        return isSuccess ? ResponseDisposition::allow : ResponseDisposition::cancel;
    }
    void dataReceived(TaskIdentifier /*task*/, std::int64_t /*count*/) override {}
    void bodySent(TaskIdentifier /*task*/, std::int64_t /*count*/) override {}
    void completed(TaskIdentifier task, const BulkTransferResult& result) override {
        EXPECT_FALSE(results.contains(task)) << "told twice";
        results[task] = result;
    }

    std::map<TaskIdentifier, BulkTransferResult> results;
};

} // namespace skylet::test

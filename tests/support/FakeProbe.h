#pragma once

#include "connectivity/ConnectivityProbing.h"

#include <deque>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

namespace skylet::test {

/// Probes that answer when the test says so, or at once from `synchronousAnswers`. Outlives the handles.
class FakeProbe final : public ConnectivityProbing {
  public:
    struct Call {
        QUrl url;
        Completion completion;
        int cancellations = 0;
        /// Before the call that began it returned, or while it was cancelled.
        bool hasAnsweredByItself = false;
    };

    std::shared_ptr<Cancellation> probe(const QUrl& url, Completion completion) override {
        auto call = std::make_shared<Call>(Call{url, std::move(completion)});
        calls.push_back(call);
        if (!synchronousAnswers.empty()) {
            const auto answer = synchronousAnswers.front();
            synchronousAnswers.pop_front();
            call->hasAnsweredByItself = true;
            call->completion(answer);
        }
        return std::make_shared<CancellationAction>([this, call] {
            ++call->cancellations;
            if (completesWhenCancelled) {
                call->hasAnsweredByItself = true;
                call->completion({});
            }
        });
    }

    /// Completes the given probe, counted from 0 over the whole test.
    void complete(std::size_t index, std::optional<std::int64_t> latency) { calls.at(index)->completion(latency); }

    std::vector<std::shared_ptr<Call>> calls;
    std::deque<std::optional<std::int64_t>> synchronousAnswers;
    bool completesWhenCancelled = false;
};

} // namespace skylet::test

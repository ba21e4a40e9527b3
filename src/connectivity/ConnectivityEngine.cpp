#include "connectivity/ConnectivityEngine.h"

#include "BuildConstants.h"
#include "connectivity/ConnectivityLog.h"
#include "platform/ConstantUrl.h"

#include <limits>
#include <utility>

namespace skylet {

Q_LOGGING_CATEGORY(connectivityLog, "skylet.connectivity", QtWarningMsg)

namespace {

const char* nameOf(ConnectionState::Kind kind) {
    switch (kind) {
    case ConnectionState::Kind::online:
        return "online";
    case ConnectionState::Kind::checking:
        return "checking";
    case ConnectionState::Kind::offline:
        return "offline";
    case ConnectionState::Kind::paused:
        return "paused";
    }
    return "";
}

} // namespace

ConnectivityEngine::ConnectivityEngine(std::shared_ptr<ConnectivityProbing> probe, std::vector<QUrl> endpoints,
                                       Schedule schedule)
    : probe_(std::move(probe)), schedule_(std::move(schedule)), endpoints_(std::move(endpoints)) {
    if (endpoints_.empty()) {
        qFatal("ConnectivityEngine: the list of endpoints is empty");
    }
}

std::vector<QUrl> ConnectivityEngine::defaultEndpoints() {
    std::vector<QUrl> endpoints;
    endpoints.reserve(build::endpoints.size());
    for (const char* text : build::endpoints) {
        endpoints.push_back(constantUrl(QString::fromUtf8(text)));
    }
    return endpoints;
}

void ConnectivityEngine::checkNow() {
    if (paused_ || sleeping_ || checking_) {
        return;
    }
    cancelAndClear(timer_);
    if (pathAvailable_ == false) {
        assign(ConnectionState::offline(), "there is no network path");
        return;
    }
    assign(ConnectionState::checking(), "a check begins");
    begin(false);
}

void ConnectivityEngine::pathChanged(bool available) {
    pathAvailable_ = available;
    invalidate();
    if (paused_ || sleeping_) {
        return;
    }
    if (!available) {
        assign(ConnectionState::offline(), "the network path is gone");
        return;
    }
    assign(ConnectionState::checking(), "the network path may be another one");
    begin(false);
}

void ConnectivityEngine::setPaused(bool paused) {
    paused_ = paused;
    invalidate();
    if (paused) {
        assign(ConnectionState::paused(), "paused by the user");
    } else {
        checkNow();
    }
}

void ConnectivityEngine::sleep() {
    sleeping_ = true;
    invalidate();
    if (!paused_) {
        assign(ConnectionState::checking(), "the system goes to sleep");
    }
}

void ConnectivityEngine::wake() {
    sleeping_ = false;
    pathAvailable_.reset();
    invalidate();
    checkNow();
}

void ConnectivityEngine::stop() {
    sleeping_ = true;
    invalidate();
}

void ConnectivityEngine::begin(bool confirming) {
    if (paused_ || sleeping_) {
        return;
    }
    invalidate();
    checking_ = true;
    remaining_ = static_cast<std::int64_t>(endpoints_.size());
    const auto generation = generation_;
    for (const auto& endpoint : endpoints_) {
        if (generation_ != generation) {
            return;
        }
        auto task = probe_->probe(endpoint,
                                  lifetime_.guard([this, generation, confirming](std::optional<std::int64_t> latency) {
                                      probeCompleted(latency, generation, confirming);
                                  }));
        if (generation_ != generation) {
            // The completion ran inside the call and closed the cycle.
            task->cancel();
        } else {
            tasks_.push_back(std::move(task));
        }
    }
}

void ConnectivityEngine::probeCompleted(std::optional<std::int64_t> latency, std::int64_t generation, bool confirming) {
    if (generation_ != generation) {
        return;
    }
    if (latency) {
        invalidate();
        assign(ConnectionState::online(*latency), "an endpoint answered");
        scheduleCycle(delayAfterSuccess, false);
        return;
    }
    if (remaining_ == std::numeric_limits<std::int64_t>::min()) {
        qFatal("ConnectivityEngine: the count of remaining endpoints overflowed");
    }
    --remaining_;
    if (remaining_ != 0) {
        return;
    }
    invalidate();
    if (confirming) {
        assign(ConnectionState::offline(), "every endpoint failed in the confirming cycle too");
    } else {
        assign(ConnectionState::checking(), "every endpoint failed, a confirming cycle follows");
    }
    scheduleCycle(confirming ? delayAfterOffline : delayBeforeConfirming, !confirming);
}

void ConnectivityEngine::invalidate() {
    if (generation_ == std::numeric_limits<std::int64_t>::max()) {
        qFatal("ConnectivityEngine: the cycle counter overflowed");
    }
    ++generation_;
    cancelAndClear(timer_);
    for (const auto& task : tasks_) {
        task->cancel();
    }
    tasks_.clear();
    checking_ = false;
}

void ConnectivityEngine::assign(const ConnectionState& state, const char* reason) {
    state_ = state;
    qCInfo(connectivityLog, "%s: %s", nameOf(state.kind()), reason);
    if (onChange) {
        onChange(state_);
    }
}

void ConnectivityEngine::scheduleCycle(Seconds delay, bool confirming) {
    timer_ = schedule_(delay, lifetime_.guard([this, confirming] { begin(confirming); }));
}

} // namespace skylet

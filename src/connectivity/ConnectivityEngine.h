#pragma once

#include "connectivity/ConnectionState.h"
#include "connectivity/ConnectivityProbing.h"
#include "platform/Lifetime.h"
#include "platform/Timers.h"

#include <QUrl>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace skylet {

/// Decides what the dot shows: runs cycles of probes against a fixed list of endpoints, calls the connection online
/// with the first success of a cycle and offline after two cycles in a row in which every endpoint failed. Path
/// reports, the user's pause, sleep and wake come in as calls. It draws nothing, knows no transport, and belongs to the
/// main thread.
class ConnectivityEngine {
  public:
    /// After a success, until the next normal cycle.
    static constexpr Seconds delayAfterSuccess{5.0};
    /// After a normal cycle that failed, until the confirming one: long enough for a hiccup to pass.
    static constexpr Seconds delayBeforeConfirming{0.5};
    /// After a confirming cycle that failed, until the next normal cycle.
    static constexpr Seconds delayAfterOffline{3.0};

    /// `endpoints`: probed in this order in every cycle; must not be empty. Construction starts nothing.
    explicit ConnectivityEngine(std::shared_ptr<ConnectivityProbing> probe,
                                std::vector<QUrl> endpoints = defaultEndpoints(), Schedule schedule = commonTimer);

    /// The endpoints of the build. A text that is no URL stops the program.
    static std::vector<QUrl> defaultEndpoints();

    /// The state last assigned.
    const ConnectionState& state() const { return state_; }

    /// Called with each state as it is assigned, from inside the operation that assigned it, also when it equals the
    /// state before.
    std::function<void(const ConnectionState&)> onChange;

    void start() { checkNow(); }
    /// Checks at once, unless a cycle is running or the engine is paused or asleep.
    void checkNow();
    /// Records whether the system has a usable path, and starts afresh from that.
    void pathChanged(bool available);
    void setPaused(bool paused);
    void sleep();
    /// Forgets the last path report, which may be from another network, and checks at once.
    void wake();
    /// Cancels all work, without a report, until a later `wake`.
    void stop();

  private:
    void begin(bool confirming);
    void invalidate();
    void probeCompleted(std::optional<std::int64_t> latency, std::int64_t generation, bool confirming);
    /// `reason`: for the log.
    void assign(const ConnectionState& state, const char* reason);
    void scheduleCycle(Seconds delay, bool confirming);

    std::shared_ptr<ConnectivityProbing> probe_;
    Schedule schedule_;
    std::vector<QUrl> endpoints_;
    std::vector<std::shared_ptr<Cancellation>> tasks_;
    std::shared_ptr<Cancellation> timer_;
    /// Grows with every invalidation; a probe result that carries an older value is stale.
    std::int64_t generation_ = 0;
    /// Endpoints of the current cycle that have not failed yet.
    std::int64_t remaining_ = 0;
    bool checking_ = false;
    bool paused_ = false;
    /// The system is asleep, or the engine was stopped.
    bool sleeping_ = false;
    /// Absent: not known.
    std::optional<bool> pathAvailable_;
    ConnectionState state_ = ConnectionState::checking();
    Lifetime lifetime_;
};

} // namespace skylet

#pragma once

#include "platform/linux/network/CurrentPath.h"
#include "platform/linux/network/NetlinkSocket.h"
#include "platform/network/NetworkEpoch.h"
#include "platform/network/PathMonitor.h"

#include <QSocketNotifier>
#include <QTimer>

#include <chrono>
#include <optional>

namespace skylet {

/// The routes of the process's network namespace. The kernel's messages about links, addresses, routes and rules only
/// say that something happened; how packets would leave then is asked anew each time, so a lost message cannot leave a
/// wrong picture behind. Where the system gives no netlink socket it reports "satisfied" once, leaves the judgement to
/// the probes and keeps trying.
class NetlinkPathMonitor : public PathMonitor {
  public:
    /// `epoch` is advanced right before each report except the first, and outlives the monitor.
    explicit NetlinkPathMonitor(NetworkEpoch& epoch);

    void start(UpdateHandler handler) override;
    void cancel() override;

  private:
    void listen();
    void stopListening();
    void readEvents();
    void scheduleUpdate(std::chrono::milliseconds delay);
    void update();
    void report(const PathState& state);

    NetworkEpoch& epoch_;
    UpdateHandler handler_;
    std::optional<NetlinkSocket> events_;
    QSocketNotifier eventReadable_{QSocketNotifier::Read};
    QTimer updateTimer_;
    LinkTable links_;
    std::optional<PathState> reported_;
};

} // namespace skylet

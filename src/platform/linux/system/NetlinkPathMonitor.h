#pragma once

#include "platform/NetworkEpoch.h"
#include "platform/PathMonitor.h"
#include "platform/linux/system/NetlinkSocket.h"
#include "platform/linux/system/PathSnapshot.h"

#include <QSocketNotifier>
#include <QTimer>

#include <chrono>
#include <optional>

namespace skylet {

/// The default routes of the process's network namespace, watched over rtnetlink. The kernel's messages only say that
/// something happened; what is true then is read anew each time, so a lost message cannot leave a wrong picture behind.
/// Where the system gives no netlink socket it reports "satisfied" once, leaves the judgement to the probes and keeps
/// trying.
class NetlinkPathMonitor : public PathMonitor {
  public:
    /// `epoch` is advanced right before each report except the first, and outlives the monitor.
    explicit NetlinkPathMonitor(NetworkEpoch& epoch);

    void start(UpdateHandler handler) override;
    void cancel() override;

  private:
    void listen();
    void readEvents();
    void lookIn(std::chrono::milliseconds delay);
    void look();
    void snapshotTaken(std::optional<PathState> state);
    void report(bool satisfied);

    NetworkEpoch& epoch_;
    UpdateHandler handler_;
    std::optional<NetlinkSocket> events_;
    QSocketNotifier eventReadable_{QSocketNotifier::Read};
    QTimer nextLook_;
    PathSnapshot snapshot_;
    bool reported_ = false;
    /// What was reported last; absent as well when it was only assumed.
    std::optional<PathState> last_;
};

} // namespace skylet

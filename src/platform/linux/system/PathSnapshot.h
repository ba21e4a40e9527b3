#pragma once

#include "platform/linux/system/DefaultRoutes.h"
#include "platform/linux/system/NetlinkSocket.h"

#include <QSocketNotifier>
#include <QTimer>

#include <functional>
#include <optional>
#include <vector>

namespace skylet {

/// Reads the kernel's tables of links and routes once, in slices that leave the event loop its turn however long the
/// tables are, and says what they amount to. It does not watch for changes.
class PathSnapshot {
  public:
    /// Empty optional: the tables could not be read, or changed each time while they were read.
    using Completion = std::function<void(std::optional<PathState>)>;

    /// `completion` is called from the event loop once for each `take` that is not abandoned, and may call both.
    explicit PathSnapshot(Completion completion);

    /// Harmless while one is being taken: that one goes on.
    void take();
    bool isUnderWay() const { return underWay_; }
    void abandon();

  private:
    enum class Table { links, routes };

    void begin();
    void readSlice();
    void consume(const nlmsghdr& message);
    void tableComplete();
    void tableInterrupted();
    void finish(std::optional<PathState> state);

    Completion completion_;
    std::optional<NetlinkSocket> socket_;
    QSocketNotifier readable_{QSocketNotifier::Read};
    QTimer deadline_;
    bool underWay_ = false;
    int attempts_ = 0;
    Table table_ = Table::links;
    LinkFlags links_;
    std::vector<DefaultRoute> routes_;
};

} // namespace skylet

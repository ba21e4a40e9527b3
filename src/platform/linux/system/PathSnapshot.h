#pragma once

#include "platform/linux/system/Background.h"
#include "platform/linux/system/DefaultRoutes.h"

#include <QTimer>

#include <functional>
#include <optional>

namespace skylet {

/// Reads the kernel's tables of links and routes once, away from the event loop however long that takes, and says what
/// they amount to. It does not watch for changes.
class PathSnapshot {
  public:
    /// Empty optional: the tables could not be read, or changed each time while they were read.
    using Completion = std::function<void(std::optional<PathState>)>;

    /// `completion` is called from the event loop once for each `take` that is not abandoned, and may call both.
    explicit PathSnapshot(Completion completion);

    /// What is told was read after this. Harmless while one is being taken: that one goes on.
    void take();
    bool isUnderWay() const { return underWay_; }
    void abandon();

  private:
    void begin();
    void readingEnded(std::optional<PathState> state);
    void finish(std::optional<PathState> state);

    Completion completion_;
    Background<std::optional<PathState>> reading_;
    QTimer deadline_;
    bool underWay_ = false;
    /// What is being read was asked for by a `take` that has ended.
    bool stale_ = false;
};

} // namespace skylet

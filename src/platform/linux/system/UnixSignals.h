#pragma once

#include "platform/linux/system/FileDescriptor.h"

#include <QSocketNotifier>

#include <array>
#include <csignal>
#include <functional>

namespace skylet {

/// Turns the requests of the system to end (SIGTERM, SIGINT, SIGHUP) into one call from the event loop, however many of
/// them come. A second SIGTERM or SIGINT ends the process at once, so that a shut-down that hangs can be ended; a
/// SIGHUP does not, since session managers send it right behind the first signal. A signal that the process was started
/// to ignore (nohup) stays ignored, and child processes inherit nothing of this. One object at a time.
class UnixSignals {
  public:
    explicit UnixSignals(std::function<void()> onTerminationRequest);
    /// The signals do again what they did before.
    ~UnixSignals();

  private:
    Q_DISABLE_COPY_MOVE(UnixSignals)

    static constexpr std::array numbers = {SIGTERM, SIGINT, SIGHUP};

    FileDescriptor readEnd_;
    FileDescriptor writeEnd_;
    QSocketNotifier readable_{QSocketNotifier::Read};
    std::array<struct sigaction, numbers.size()> previous_{};
};

} // namespace skylet

#include "platform/linux/system/UnixSignals.h"

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <utility>

namespace skylet {

namespace {

// A signal handler is handed nothing but the number, so where it reports to stands outside of any object.
std::atomic<int> reportTo = -1;
static_assert(std::atomic<int>::is_always_lock_free, "only then a signal handler may read it (signal-safety(7))");

extern "C" void handleTerminationRequest(int /*number*/) {
    const int savedErrno = errno;
    for (const int number : {SIGTERM, SIGINT}) {
        struct sigaction current {};
        if (sigaction(number, nullptr, &current) == 0 && current.sa_handler == handleTerminationRequest) {
            current.sa_handler = SIG_DFL;
            sigaction(number, &current, nullptr);
        }
    }
    const char anything = 0;
    // A full pipe already says what is to be said.
    [[maybe_unused]] const ssize_t written = write(reportTo, &anything, sizeof anything);
    errno = savedErrno;
}

} // namespace

UnixSignals::UnixSignals(std::function<void()> onTerminationRequest) {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK) != 0) {
        // The signals then end the process as they always do.
        return;
    }
    readEnd_ = FileDescriptor(ends[0]);
    writeEnd_ = FileDescriptor(ends[1]);
    reportTo = writeEnd_.get();
    QObject::connect(&readable_, &QSocketNotifier::activated, &readable_,
                     [this, act = std::move(onTerminationRequest)] {
                         // Once is enough: whatever else arrives stays in the pipe.
                         readable_.setEnabled(false);
                         act();
                     });
    readable_.setSocket(readEnd_.get());
    readable_.setEnabled(true);

    struct sigaction action {};
    action.sa_handler = handleTerminationRequest;
    action.sa_flags = SA_RESTART;
    for (std::size_t i = 0; i < numbers.size(); ++i) {
        sigaction(numbers[i], nullptr, &previous_[i]);
        if (previous_[i].sa_handler != SIG_IGN) {
            sigaction(numbers[i], &action, nullptr);
        }
    }
}

UnixSignals::~UnixSignals() {
    if (!writeEnd_.isValid()) {
        return;
    }
    for (std::size_t i = 0; i < numbers.size(); ++i) {
        sigaction(numbers[i], &previous_[i], nullptr);
    }
    reportTo = -1;
}

} // namespace skylet

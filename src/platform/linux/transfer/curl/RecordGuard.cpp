#include "platform/linux/transfer/curl/RecordGuard.h"

#include <ctime>
#include <utility>

namespace skylet {

namespace {

std::chrono::nanoseconds processorTime() {
    timespec used{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &used);
    return std::chrono::seconds(used.tv_sec) + std::chrono::nanoseconds(used.tv_nsec);
}

} // namespace

RecordGuard::RecordGuard(std::function<std::int64_t()> progress) : progress_(std::move(progress)) {}

void RecordGuard::actionBegins() {
    lastRecord_.reset();
    inAction_ = std::chrono::nanoseconds(0);
}

bool RecordGuard::recordArrived() {
    count();
    if (handshakeCallsLeft_ > 0) {
        --handshakeCallsLeft_;
        return false;
    }
    return inAction_ > actionLimit || inAll_ > totalLimit;
}

void RecordGuard::actionEnds() {
    if (lastRecord_) {
        count();
        lastRecord_.reset();
    }
}

void RecordGuard::reset() {
    inAction_ = std::chrono::nanoseconds(0);
    inAll_ = std::chrono::nanoseconds(0);
}

void RecordGuard::count() {
    const auto now = processorTime();
    const auto spent = lastRecord_ ? now - *lastRecord_ : std::chrono::nanoseconds(0);
    lastRecord_ = now;
    if (const auto progress = progress_(); std::exchange(lastProgress_, progress) != progress) {
        reset();
    } else if (handshakeCallsLeft_ == 0) {
        inAction_ += spent;
        inAll_ += spent;
    }
}

} // namespace skylet

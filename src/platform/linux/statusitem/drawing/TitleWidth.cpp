#include "platform/linux/statusitem/drawing/TitleWidth.h"

#include <algorithm>
#include <utility>

namespace skylet {

TitleWidth::TitleWidth(Schedule schedule, std::function<void()> onShrunk)
    : schedule_(std::move(schedule)), onShrunk_(std::move(onShrunk)) {}

void TitleWidth::setNeeded(double needed) {
    needed_ = needed;
    recentlyNeeded_ = std::max(recentlyNeeded_, needed);
    if (needed >= width_) {
        width_ = needed;
        if (timer_) {
            std::exchange(timer_, nullptr)->cancel();
        }
    } else if (!timer_) {
        recentlyNeeded_ = needed;
        timer_ = schedule_(quietTime, lifetime_.guard([this] { shrink(); }));
    }
}

void TitleWidth::shrink() {
    timer_.reset();
    width_ = recentlyNeeded_;
    setNeeded(needed_);
    onShrunk_();
}

} // namespace skylet

#pragma once

#include "connectivity/Cancellation.h"
#include "platform/Clock.h"

#include <functional>
#include <memory>

namespace skylet {

/// Starts a timer that runs `action` on the main thread every `interval`, late by at most `tolerance`, until cancelled.
using RepeatingTimer =
    std::function<std::shared_ptr<Cancellation>(Seconds interval, Seconds tolerance, std::function<void()> action)>;

/// The real one, on the event loop; it runs also while a menu is open.
std::shared_ptr<Cancellation> repeatingTimer(Seconds interval, Seconds tolerance, std::function<void()> action);

} // namespace skylet

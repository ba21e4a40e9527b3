#pragma once

#include "platform/Cancellation.h"
#include "platform/Clock.h"

#include <functional>
#include <memory>

namespace skylet {

/// Starts a one-shot delay of the given length, after which the action runs on the main thread.
using Schedule = std::function<std::shared_ptr<Cancellation>(Seconds interval, std::function<void()> action)>;

/// Starts a timer that runs `action` on the main thread every `interval`, late by at most `tolerance`, until it is
/// cancelled or its handle dropped.
using RepeatingTimer =
    std::function<std::shared_ptr<Cancellation>(Seconds interval, Seconds tolerance, std::function<void()> action)>;

/// The real ones, on the event loop; they run also while a menu is open.

/// One-shot. Never fires early; may fire late by the smaller of 10 % of `interval` and 0.2 s. The handle may be
/// dropped, the timer then still fires.
std::shared_ptr<Cancellation> commonTimer(Seconds interval, std::function<void()> action);
std::shared_ptr<Cancellation> repeatingTimer(Seconds interval, Seconds tolerance, std::function<void()> action);

} // namespace skylet

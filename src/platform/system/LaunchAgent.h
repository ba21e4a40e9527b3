#pragma once

#include <functional>

namespace skylet {

/// Makes the desktop start the program at login. Nothing is started or stopped now.
class LaunchAgent {
  public:
    virtual ~LaunchAgent() = default;
    /// Whether the program is started at login, as far as the desktop's own records say now.
    virtual bool exists() const = 0;
    /// Switches the start at login off if it exists, else on. Errors are ignored: ask `exists` afterwards, and again
    /// after each `onChange`.
    virtual void toggle() = 0;

    /// Runs from the event loop where somebody else had to be asked and has answered. Empty at first.
    std::function<void()> onChange;
};

} // namespace skylet

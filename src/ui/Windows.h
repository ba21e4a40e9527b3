#pragma once

#include <functional>
#include <memory>

namespace skylet {

/// A window that is kept when the user closes it.
class Window {
  public:
    virtual ~Window() = default;
    /// Shows the window before those of other programs, with the keyboard.
    virtual void bringToFront() = 0;
    virtual void close() = 0;
};

/// The window of the first start.
class WelcomeWindow : public Window {
  public:
    virtual bool loginBoxIsOn() const = 0;
};

/// Makes the program's plain windows, centred on the screen and not shown yet. Never null. A window may be destroyed
/// from inside the callback that it was given.
class WindowFactory {
  public:
    virtual ~WindowFactory() = default;
    /// `loginBoxOn`: how the check box stands at first. `finishWelcome` runs when the user presses the button.
    virtual std::unique_ptr<WelcomeWindow> makeWelcomeWindow(bool loginBoxOn, std::function<void()> finishWelcome) = 0;
    /// `openBrimlake` runs when the user presses the link.
    virtual std::unique_ptr<Window> makeAboutWindow(std::function<void()> openBrimlake) = 0;
};

} // namespace skylet

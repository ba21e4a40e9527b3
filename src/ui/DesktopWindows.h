#pragma once

#include "ui/Windows.h"

#include <functional>
#include <memory>

namespace skylet {

/// Makes the real windows. Needs a QApplication, whose window icon they show.
class DesktopWindows final : public WindowFactory {
  public:
    /// To be called before there is an application. Else Qt asks only once, as it starts, whether a screen reader runs,
    /// and one that is switched on later finds no window.
    static void awaitScreenReaders();

    std::unique_ptr<WelcomeWindow> makeWelcomeWindow(bool loginBoxOn, std::function<void()> finishWelcome) override;
    std::unique_ptr<Window> makeAboutWindow(std::function<void()> openBrimlake) override;
};

} // namespace skylet

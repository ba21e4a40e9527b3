#pragma once

#include "ui/Windows.h"

#include <functional>
#include <memory>

namespace skylet {

/// Makes the real windows. Needs a QApplication, whose window icon they show.
class DesktopWindows final : public WindowFactory {
  public:
    std::unique_ptr<WelcomeWindow> makeWelcomeWindow(bool loginBoxOn, std::function<void()> finishWelcome) override;
    std::unique_ptr<Window> makeAboutWindow(std::function<void()> openBrimlake) override;
};

} // namespace skylet

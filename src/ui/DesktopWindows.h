#pragma once

#include "ui/Windows.h"

#include <QString>

#include <functional>
#include <memory>
#include <optional>
#include <utility>

namespace skylet {

/// Makes the real windows. Needs a QApplication, whose window icon they show.
class DesktopWindows final : public WindowFactory {
  public:
    /// The version of the build.
    static QString buildVersion();

    /// `version`: shown in the About window; absent: "1.0".
    explicit DesktopWindows(std::optional<QString> version = buildVersion()) : version_(std::move(version)) {}

    std::unique_ptr<WelcomeWindow> makeWelcomeWindow(bool loginBoxOn, std::function<void()> finishWelcome) override;
    std::unique_ptr<Window> makeAboutWindow(std::function<void()> openBrimlake) override;

  private:
    const std::optional<QString> version_;
};

} // namespace skylet

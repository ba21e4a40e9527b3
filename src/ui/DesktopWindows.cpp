#include "ui/DesktopWindows.h"

#include "BuildConstants.h"
#include "ui/AboutPanel.h"
#include "ui/WelcomePanel.h"

#include <utility>

namespace skylet {

namespace {

class DesktopWelcome final : public WelcomeWindow {
  public:
    DesktopWelcome(bool loginBoxOn, std::function<void()> finishWelcome)
        : panel_(loginBoxOn, std::move(finishWelcome)) {}
    void bringToFront() override { panel_.bringToFront(); }
    void close() override { panel_.close(); }
    bool loginBoxIsOn() const override { return panel_.loginBoxIsOn(); }

  private:
    WelcomePanel panel_;
};

class DesktopAbout final : public Window {
  public:
    DesktopAbout(const QString& version, std::function<void()> openBrimlake)
        : panel_(version, std::move(openBrimlake)) {}
    void bringToFront() override { panel_.bringToFront(); }
    void close() override { panel_.close(); }

  private:
    AboutPanel panel_;
};

} // namespace

QString DesktopWindows::buildVersion() {
    return QString::fromUtf8(build::version);
}

std::unique_ptr<WelcomeWindow> DesktopWindows::makeWelcomeWindow(bool loginBoxOn, std::function<void()> finishWelcome) {
    return std::make_unique<DesktopWelcome>(loginBoxOn, std::move(finishWelcome));
}

std::unique_ptr<Window> DesktopWindows::makeAboutWindow(std::function<void()> openBrimlake) {
    return std::make_unique<DesktopAbout>(version_.value_or(QStringLiteral("1.0")), std::move(openBrimlake));
}

} // namespace skylet

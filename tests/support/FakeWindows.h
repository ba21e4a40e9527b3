#pragma once

#include "speedtest/SpeedTesting.h"
#include "support/FakeServices.h"
#include "ui/Windows.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <utility>

namespace skylet::test {

/// Makes speed tests that run when and as the test says.
class FakeSpeedTests {
  public:
    class SpeedTest final : public SpeedTesting {
      public:
        explicit SpeedTest(CallLog& calls) : calls_(calls) {}
        bool isRunning() const override { return running; }
        void setLatencyMs(std::int64_t milliseconds) override { latencyMs = milliseconds; }
        void show() override {
            calls_ += QStringLiteral("speedTest.show");
            if (!running) {
                running = true;
                onStarted();
            }
        }
        void cancel() override {
            calls_ += QStringLiteral("speedTest.cancel");
            if (std::exchange(running, false)) {
                onCancelled();
            }
        }
        void finish(std::optional<double> down, std::optional<double> up) {
            running = false;
            onFinished(down, up);
        }

        bool running = false;
        std::int64_t latencyMs = -1;

      private:
        CallLog& calls_;
    };

    explicit FakeSpeedTests(CallLog& calls) : calls_(calls) {}
    SpeedTestFactory factory() {
        return [this] {
            calls_ += QStringLiteral("speedTest.make");
            auto made = std::make_unique<SpeedTest>(calls_);
            last = made.get();
            return made;
        };
    }

    /// Owned by the application object; null before the first is made.
    SpeedTest* last = nullptr;

  private:
    CallLog& calls_;
};

/// Makes windows whose controls the test works.
class FakeWindows final : public WindowFactory {
  public:
    explicit FakeWindows(CallLog& calls) : calls_(calls) {}

    std::unique_ptr<WelcomeWindow> makeWelcomeWindow(bool loginBoxOn, std::function<void()> finishWelcome) override {
        calls_ += QStringLiteral("welcome.make");
        loginBox = loginBoxOn;
        gotIt = std::move(finishWelcome);
        return std::make_unique<Welcome>(*this);
    }
    std::unique_ptr<Window> makeAboutWindow(std::function<void()> openBrimlake) override {
        calls_ += QStringLiteral("about.make");
        link = std::move(openBrimlake);
        return std::make_unique<About>(*this);
    }

    bool loginBox = false;
    std::function<void()> gotIt;
    std::function<void()> link;

  private:
    class Welcome final : public WelcomeWindow {
      public:
        explicit Welcome(FakeWindows& owner) : owner_(owner) {}
        void bringToFront() override { owner_.calls_ += QStringLiteral("welcome.bringToFront"); }
        void close() override { owner_.calls_ += QStringLiteral("welcome.close"); }
        bool loginBoxIsOn() const override { return owner_.loginBox; }

      private:
        FakeWindows& owner_;
    };

    class About final : public Window {
      public:
        explicit About(FakeWindows& owner) : owner_(owner) {}
        void bringToFront() override { owner_.calls_ += QStringLiteral("about.bringToFront"); }
        void close() override { owner_.calls_ += QStringLiteral("about.close"); }

      private:
        FakeWindows& owner_;
    };

    CallLog& calls_;
};

} // namespace skylet::test

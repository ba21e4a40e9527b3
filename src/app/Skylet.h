#pragma once

#include "app/Rendering.h"
#include "app/Traffic.h"
#include "connectivity/ConnectivityEngine.h"
#include "platform/Clock.h"
#include "platform/Lifetime.h"
#include "platform/Timers.h"
#include "platform/desktop/Application.h"
#include "platform/desktop/Menu.h"
#include "platform/desktop/StatusItem.h"
#include "platform/network/InterfaceCounters.h"
#include "platform/network/PathMonitor.h"
#include "platform/system/DiagnosticLog.h"
#include "platform/system/LaunchAgent.h"
#include "platform/system/SleepMonitor.h"
#include "platform/system/UserDefaults.h"
#include "speedtest/SpeedTesting.h"
#include "ui/Windows.h"

#include <QString>

#include <memory>
#include <optional>

namespace skylet {

/// The application object: holds all display state, builds the status item and its menu, and wires the engine to the
/// path reports, sleep and wake, the traffic samples and the user's commands. It lives as long as the process, on the
/// main thread; what it shows is decided in Rendering.
class Skylet {
  public:
    /// What the program needs of the desktop and the system. All of it outlives the application object.
    struct Services {
        Application& application;
        PathMonitor& pathMonitor;
        SleepMonitor& sleepMonitor;
        InterfaceCounters& interfaceCounters;
        UserDefaults& userDefaults;
        DiagnosticLog& diagnosticLog;
        LaunchAgent& launchAgent;
        const Clock& clock;
        RepeatingTimer repeatingTimer;
        Schedule oneShotTimer;
        SpeedTestFactory makeSpeedTest;
        WindowFactory& windows;
    };

    static constexpr Seconds rateInterval{2.0};
    static constexpr Seconds rateTolerance{0.2};
    /// How long the result of a speed test stands in the place of the latency.
    static constexpr Seconds resultBannerLifetime{10.0};

    /// Starts nothing.
    Skylet(Services services, std::unique_ptr<ConnectivityEngine> connectivity);

    /// Start-up; once.
    void applicationDidFinishLaunching();
    /// Shut-down; once.
    void applicationWillTerminate();

    void checkNow();
    void togglePause();
    void toggleTraffic();
    /// The check mark says what came of it: at once, or in a sandbox when the desktop has answered.
    void toggleLogin();
    /// Only while online, neither paused nor testing; else nothing happens.
    void runSpeedTest();
    void showAbout();
    void openBrimlake();
    void willSleep();
    void didWake();

    /// Reads the interface counters, updates the rates and shows them.
    void sampleRate();
    /// Shows the whole display state. Only after the start-up has built the menu; before, it stops the program.
    void render();

    const DisplayState& displayState() const { return state_; }

  private:
    void dbg(const QString& message);
    Menu makeMenu();
    void showLaunchAgent();
    void connectionChanged(const ConnectionState& connection);
    void pathChanged(bool satisfied);
    void startRateTimer();
    void resetTraffic();
    /// The one speed test of the run, made with the first access.
    SpeedTesting& speedTest();
    void speedTestStarted();
    void speedTestCancelled();
    void speedTestFinished(std::optional<double> down, std::optional<double> up);
    /// `lifetime` absent: until it is replaced or removed.
    void setBanner(const QString& text, std::optional<Seconds> lifetime);
    void showWelcome();
    void finishWelcome();

    const Services services_;
    std::unique_ptr<StatusItem> item_;
    const std::unique_ptr<ConnectivityEngine> connectivity_;
    std::shared_ptr<Cancellation> rateTimer_;
    std::shared_ptr<Cancellation> bannerTimer_;
    DisplayState state_;
    /// The previous reading; absent: no baseline yet.
    std::optional<TrafficCounters> lastCounters_;
    const std::shared_ptr<MenuItem> statusLine_;
    const std::shared_ptr<MenuItem> rateLine_;
    const std::shared_ptr<MenuItem> speedLine_;
    std::shared_ptr<MenuItem> pauseItem_;
    std::shared_ptr<MenuItem> testItem_;
    std::shared_ptr<MenuItem> checkItem_;
    std::shared_ptr<MenuItem> loginItem_;
    std::shared_ptr<MenuItem> trafficItem_;
    std::unique_ptr<SpeedTesting> speedTest_;
    std::unique_ptr<WelcomeWindow> welcomeWindow_;
    std::unique_ptr<Window> aboutWindow_;
    Lifetime lifetime_;
};

} // namespace skylet

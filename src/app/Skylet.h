#pragma once

#include "app/Rendering.h"
#include "app/RepeatingTimer.h"
#include "app/Traffic.h"
#include "connectivity/ConnectivityEngine.h"
#include "platform/Application.h"
#include "platform/Clock.h"
#include "platform/DiagnosticLog.h"
#include "platform/InterfaceCounters.h"
#include "platform/Lifetime.h"
#include "platform/Menu.h"
#include "platform/PathMonitor.h"
#include "platform/SleepMonitor.h"
#include "platform/StatusItem.h"
#include "platform/UserDefaults.h"

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
        const Clock& clock;
        RepeatingTimer repeatingTimer;
    };

    static constexpr Seconds rateInterval{2.0};
    static constexpr Seconds rateTolerance{0.2};

    /// `agentPath`: the file whose existence means that the program starts at login. Starts nothing.
    Skylet(Services services, std::unique_ptr<ConnectivityEngine> connectivity, QString agentPath);

    /// Start-up; once.
    void applicationDidFinishLaunching();
    /// Shut-down; once.
    void applicationWillTerminate();

    void checkNow();
    void togglePause();
    void toggleTraffic();
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
    void connectionChanged(const ConnectionState& connection);
    void pathChanged(bool satisfied);
    void startRateTimer();
    void resetTraffic();

    const Services services_;
    std::unique_ptr<StatusItem> item_;
    const std::unique_ptr<ConnectivityEngine> connectivity_;
    std::shared_ptr<Cancellation> rateTimer_;
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
    const QString agentPath_;
    Lifetime lifetime_;
};

} // namespace skylet

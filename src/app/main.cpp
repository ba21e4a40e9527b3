#include "app/Skylet.h"
#include "app/UplinkTraffic.h"
#include "connectivity/ConnectivityEngine.h"
#include "connectivity/HTTPConnectivityProbe.h"
#include "platform/Timers.h"
#include "platform/linux/desktop/DarkTitleBar.h"
#include "platform/linux/desktop/DesktopApplication.h"
#include "platform/linux/network/NetlinkInterfaceCounters.h"
#include "platform/linux/network/NetlinkPathMonitor.h"
#include "platform/linux/system/AutostartLaunchAgent.h"
#include "platform/linux/system/BusLoss.h"
#include "platform/linux/system/FileDiagnosticLog.h"
#include "platform/linux/system/IniUserDefaults.h"
#include "platform/linux/system/LogindSleepMonitor.h"
#include "platform/linux/system/SingleInstance.h"
#include "platform/linux/system/SystemClock.h"
#include "platform/linux/system/UnixSignals.h"
#include "platform/linux/transfer/CurlBulkTransferSession.h"
#include "platform/linux/transfer/CurlTransferSession.h"
#include "platform/linux/transfer/names/NameResolver.h"
#include "platform/network/NetworkEpoch.h"
#include "speedtest/SpeedTest.h"
#include "ui/DesktopWindows.h"

#include <QApplication>
#include <QDBusConnection>

#include <cstdio>
#include <cstdlib>
#include <memory>

using namespace skylet;

namespace {

std::unique_ptr<ConnectivityEngine> makeEngine(const std::shared_ptr<const Clock>& clock,
                                               const std::shared_ptr<const NetworkEpoch>& epoch,
                                               const std::shared_ptr<NameResolver>& names) {
    auto probe = std::make_shared<HTTPConnectivityProbe>(
        [epoch, names](const SessionConfiguration& configuration) {
            return std::make_unique<CurlTransferSession>(configuration, epoch, names);
        },
        clock);
    return std::make_unique<ConnectivityEngine>(std::move(probe));
}

SpeedTestFactory makeSpeedTest(const std::shared_ptr<const Clock>& clock,
                               const std::shared_ptr<const NetworkEpoch>& epoch,
                               const std::shared_ptr<NameResolver>& names, InterfaceCounters& counters) {
    return [clock, epoch, names, &counters] {
        auto speedTest = std::make_unique<SpeedTestController>(
            [epoch, names, &counters](const SessionConfiguration& configuration, BulkTransferDelegate& delegate) {
                return std::make_unique<CurlBulkTransferSession>(
                    configuration, epoch, names, delegate,
                    [uplinks = UplinkTraffic(counters)]() mutable { return uplinks.sentBytes(); });
            },
            *clock);
        speedTest->beforeShowing = askForDarkTitleBar;
        return speedTest;
    };
}

} // namespace

int main(int argc, char** argv) {
    const QApplication qt(argc, argv);
    DesktopApplication application;
    if (!application.sessionBusAvailable()) {
        std::fputs("skylet: there is no D-Bus session bus, so no desktop can show the status item\n", stderr);
        return EXIT_FAILURE;
    }
    SingleInstance instance(QDBusConnection::sessionBus(), [&application] { application.requestAttention(); });
    if (instance.claim() == SingleInstance::Role::second) {
        return EXIT_SUCCESS;
    }
    const UnixSignals signals([&application] { application.terminate(); });
    const BusLoss busLoss(QDBusConnection::sessionBus(), [&application] { application.terminate(); });

    const auto clock = std::make_shared<SystemClock>();
    const auto epoch = std::make_shared<NetworkEpoch>();
    const auto names = std::make_shared<NameResolver>(clock, epoch);
    NetlinkPathMonitor pathMonitor(*epoch);
    LogindSleepMonitor sleepMonitor(QDBusConnection::systemBus(), *epoch);
    NetlinkInterfaceCounters interfaceCounters;
    IniUserDefaults userDefaults(IniUserDefaults::defaultPath());
    FileDiagnosticLog diagnosticLog;
    AutostartLaunchAgent launchAgent(AutostartLaunchAgent::defaultPath(), QCoreApplication::applicationFilePath());
    DesktopWindows windows;

    Skylet skylet({.application = application,
                   .pathMonitor = pathMonitor,
                   .sleepMonitor = sleepMonitor,
                   .interfaceCounters = interfaceCounters,
                   .userDefaults = userDefaults,
                   .diagnosticLog = diagnosticLog,
                   .launchAgent = launchAgent,
                   .clock = *clock,
                   .repeatingTimer = repeatingTimer,
                   .oneShotTimer = commonTimer,
                   .makeSpeedTest = makeSpeedTest(clock, epoch, names, interfaceCounters),
                   .windows = windows},
                  makeEngine(clock, epoch, names));
    // Quit, the end of the session or of its bus, and the signals all leave the event loop this way.
    QObject::connect(&qt, &QCoreApplication::aboutToQuit, &qt, [&skylet] { skylet.applicationWillTerminate(); });
    skylet.applicationDidFinishLaunching();
    return QApplication::exec();
}

#include "app/Skylet.h"
#include "app/UplinkTraffic.h"
#include "connectivity/ConnectivityEngine.h"
#include "connectivity/HTTPConnectivityProbe.h"
#include "platform/Timers.h"
#include "platform/linux/desktop/DesktopApplication.h"
#include "platform/linux/network/NetlinkInterfaceCounters.h"
#include "platform/linux/network/NetlinkPathMonitor.h"
#include "platform/linux/system/AutostartLaunchAgent.h"
#include "platform/linux/system/BusLoss.h"
#include "platform/linux/system/FileDiagnosticLog.h"
#include "platform/linux/system/HomeFolder.h"
#include "platform/linux/system/IniUserDefaults.h"
#include "platform/linux/system/LogindSleepMonitor.h"
#include "platform/linux/system/PortalLaunchAgent.h"
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

#include <fcntl.h>
#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string_view>

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
        return std::make_unique<SpeedTestController>(
            [epoch, names, &counters](const SessionConfiguration& configuration, BulkTransferDelegate& delegate) {
                return std::make_unique<CurlBulkTransferSession>(
                    configuration, epoch, names, delegate,
                    [uplinks = UplinkTraffic(counters)]() mutable { return uplinks.sentBytes(); });
            },
            *clock);
    };
}

std::unique_ptr<LaunchAgent> makeLaunchAgent(const QDBusConnection& bus) {
    const QString path = AutostartLaunchAgent::defaultPath();
    const QString executable = QCoreApplication::applicationFilePath();
    if (PortalLaunchAgent::isNeeded()) {
        return std::make_unique<PortalLaunchAgent>(bus, path, executable);
    }
    return std::make_unique<AutostartLaunchAgent>(path, executable);
}

/// For the time in which Qt looks for a display: where there is none it would end the process with a core dump.
void endWithoutDisplay(QtMsgType type, const QMessageLogContext& context, const QString& message) {
    if (type == QtFatalMsg) {
        std::fputs("skylet: no display can be opened (see DISPLAY, WAYLAND_DISPLAY and QT_QPA_PLATFORM)\n", stderr);
        std::_Exit(EXIT_FAILURE);
    }
    std::fprintf(stderr, "%s\n", qPrintable(qFormatLogMessage(type, context, message)));
}

// What windows, speed tests and lost networks needed for a while the C library keeps: 2 MB and more.
constexpr Seconds heapTrimInterval{60};
constexpr Seconds heapTrimTolerance{6};

// Display and bus may accept and answer late: what systemd starts on demand does.
constexpr unsigned secondsUntilWaitIsSaid = 5;

extern "C" void sayWhatIsWaitedFor(int /*signal*/) {
    constexpr std::string_view text =
        "skylet: waits for the display, the accessibility bus or the D-Bus session bus, which does not answer\n";
    [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, text.data(), text.size());
}

/// Buses and connections would take the numbers of those that are closed, and warnings would be written to them.
void openStandardStreams() {
    for (int stream = STDIN_FILENO; stream <= STDERR_FILENO; ++stream) {
        if (fcntl(stream, F_GETFD) < 0) {
            open("/dev/null", O_RDWR);
        }
    }
}

} // namespace

int main(int argc, char** argv) {
    // Each thread that looks up a name would get a heap of its own from the C library, which is never given back.
    mallopt(M_ARENA_MAX, 1);
    openStandardStreams();
    ensureHome();
    // A limit on the size of files (setrlimit(2)) is met as a full disk is, and nobody need read what it warns of.
    std::signal(SIGXFSZ, SIG_IGN);
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGALRM, sayWhatIsWaitedFor);
    alarm(secondsUntilWaitIsSaid);
    DesktopWindows::awaitScreenReaders();
    qInstallMessageHandler(endWithoutDisplay);
    // It takes no arguments, and Qt would take some.
    int onlyItsName = std::min(argc, 1);
    const QApplication qt(onlyItsName, argv);
    qInstallMessageHandler(nullptr);
    DesktopApplication application;
    const QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected() || !DesktopApplication::statusItemBus().isConnected()) {
        std::fputs("skylet: there is no D-Bus session bus, so no desktop can show the status item\n", stderr);
        return EXIT_FAILURE;
    }
    std::function<void()> showAbout;
    SingleInstance instance(bus, [&](const QString& activationToken) {
        if (!application.requestAttention(activationToken) && showAbout) {
            showAbout();
        }
    });
    if (instance.claim() == SingleInstance::Role::second) {
        return EXIT_SUCCESS;
    }
    const UnixSignals signals([&application] { application.terminate(); });
    const BusLoss busLoss(bus, [&application] { application.terminate(); });
    const BusLoss statusItemBusLoss(DesktopApplication::statusItemBus(), [&application] { application.terminate(); });

    const auto clock = std::make_shared<SystemClock>();
    const auto epoch = std::make_shared<NetworkEpoch>();
    const auto names = std::make_shared<NameResolver>(clock, epoch);
    NetlinkPathMonitor pathMonitor(*epoch);
    LogindSleepMonitor sleepMonitor(LogindSleepMonitor::systemBusAddress(), *epoch);
    NetlinkInterfaceCounters interfaceCounters;
    IniUserDefaults userDefaults(IniUserDefaults::defaultPath());
    FileDiagnosticLog diagnosticLog;
    const auto launchAgent = makeLaunchAgent(bus);
    DesktopWindows windows;
    const auto heapTrim = repeatingTimer(heapTrimInterval, heapTrimTolerance, [] { malloc_trim(0); });

    Skylet skylet({.application = application,
                   .pathMonitor = pathMonitor,
                   .sleepMonitor = sleepMonitor,
                   .interfaceCounters = interfaceCounters,
                   .userDefaults = userDefaults,
                   .diagnosticLog = diagnosticLog,
                   .launchAgent = *launchAgent,
                   .clock = *clock,
                   .repeatingTimer = repeatingTimer,
                   .oneShotTimer = commonTimer,
                   .makeSpeedTest = makeSpeedTest(clock, epoch, names, interfaceCounters),
                   .windows = windows},
                  makeEngine(clock, epoch, names));
    // Quit, the end of the session or of its bus, and the signals all leave the event loop this way.
    QObject::connect(&qt, &QCoreApplication::aboutToQuit, &qt, [&skylet] { skylet.applicationWillTerminate(); });
    skylet.applicationDidFinishLaunching();
    alarm(0);
    showAbout = [&skylet] { skylet.showAbout(); };
    return QApplication::exec();
}

#include "app/Skylet.h"

#include "BuildConstants.h"
#include "platform/ConstantUrl.h"

#include <QLoggingCategory>

#include <functional>
#include <utility>

namespace skylet {

namespace {

Q_LOGGING_CATEGORY(systemLog, "skylet.system", QtWarningMsg)

const auto showTrafficKey = QStringLiteral("showTraffic");
const auto didOnboardKey = QStringLiteral("didOnboard");
constexpr int menuIconSize = 16;

void invalidate(const std::shared_ptr<Cancellation>& timer) {
    if (timer) {
        timer->cancel();
    }
}

std::shared_ptr<MenuItem> informationLine() {
    return std::make_shared<MenuItem>(QString(), nullptr, QString());
}

std::shared_ptr<MenuItem> command(const QString& title, std::function<void()> action,
                                  const QString& keyEquivalent = {}) {
    return std::make_shared<MenuItem>(L(title), std::move(action), keyEquivalent);
}

} // namespace

Skylet::Skylet(Services services, std::unique_ptr<ConnectivityEngine> connectivity)
    : services_(std::move(services)), connectivity_(std::move(connectivity)), statusLine_(informationLine()),
      rateLine_(informationLine()), speedLine_(informationLine()) {
    state_.showTraffic = services_.userDefaults.boolForKey(showTrafficKey).value_or(true);
    state_.lastSpeed = L(QStringLiteral("not run yet"));
}

void Skylet::applicationDidFinishLaunching() {
    dbg(QStringLiteral("didFinishLaunching"));
    services_.application.becomeAccessory();
    item_ = services_.application.makeStatusItem();
    dbg(QStringLiteral("item created button=%1 window=%2").arg(item_->buttonDescription(), item_->windowDescription()));
    item_->setAutosaveName(QStringLiteral("Skylet"));
    item_->setVisible(true);
    item_->setMenu(makeMenu());
    render();
    connectivity_->onChange = lifetime_.guard([this](const ConnectionState& state) { connectionChanged(state); });
    services_.pathMonitor.start(lifetime_.guard([this](bool satisfied) { pathChanged(satisfied); }));
    services_.sleepMonitor.start(lifetime_.guard([this] { willSleep(); }), lifetime_.guard([this] { didWake(); }));
    connectivity_->start();
    startRateTimer();
    sampleRate();
    if (!services_.userDefaults.boolForKey(didOnboardKey).value_or(false)) {
        showWelcome();
    }
}

void Skylet::applicationWillTerminate() {
    connectivity_->stop();
    services_.pathMonitor.cancel();
    invalidate(rateTimer_);
    invalidate(bannerTimer_);
    speedTest().cancel();
    services_.sleepMonitor.stop();
}

void Skylet::checkNow() {
    connectivity_->checkNow();
}

void Skylet::togglePause() {
    state_.paused = !state_.paused;
    connectivity_->setPaused(state_.paused);
    render();
}

void Skylet::toggleTraffic() {
    state_.showTraffic = !state_.showTraffic;
    services_.userDefaults.setBool(state_.showTraffic, showTrafficKey);
    render();
}

void Skylet::toggleLogin() {
    services_.launchAgent.toggle();
    showLaunchAgent();
}

void Skylet::showLaunchAgent() {
    loginItem_->setChecked(services_.launchAgent.exists());
}

void Skylet::runSpeedTest() {
    if (state_.online != true || state_.paused || state_.testing) {
        return;
    }
    speedTest().setLatencyMs(state_.latencyMs);
    speedTest().show();
}

void Skylet::showAbout() {
    if (!aboutWindow_) {
        aboutWindow_ = services_.windows.makeAboutWindow(lifetime_.guard([this] { openBrimlake(); }));
    }
    aboutWindow_->bringToFront();
}

void Skylet::openBrimlake() {
    services_.application.openURL(constantUrl(QString::fromUtf8(build::webSite)));
}

void Skylet::willSleep() {
    qCInfo(systemLog) << "the system is about to sleep";
    connectivity_->sleep();
    invalidate(rateTimer_);
    resetTraffic();
    speedTest().cancel();
}

void Skylet::didWake() {
    qCInfo(systemLog) << "the system is awake again";
    resetTraffic();
    connectivity_->wake();
    startRateTimer();
    sampleRate();
}

void Skylet::sampleRate() {
    const auto interfaces = services_.interfaceCounters.read();
    const auto current = trafficTotals(interfaces, services_.clock.systemUptime());
    if (lastCounters_) {
        const auto rates = trafficRates(*lastCounters_, current, {state_.downRate, state_.upRate});
        state_.downRate = rates.down;
        state_.upRate = rates.up;
    }
    lastCounters_ = current;
    render();
}

void Skylet::render() {
    if (!item_ || !pauseItem_) {
        qFatal("Skylet: render() before the start-up has built the menu");
    }
    const auto display = renderDisplay(state_);
    item_->setDisplay(display.item);
    statusLine_->setTitle(display.statusLine);
    rateLine_->setTitle(display.rateLine);
    speedLine_->setTitle(display.speedLine);
    pauseItem_->setChecked(display.pauseChecked);
    trafficItem_->setChecked(display.trafficChecked);
    testItem_->setEnabled(display.testEnabled);
    checkItem_->setEnabled(display.checkEnabled);
}

void Skylet::dbg(const QString& message) {
    const auto date = services_.clock.currentDate().toUTC().toString(QStringLiteral("yyyy-MM-dd HH:mm:ss '+0000'"));
    services_.diagnosticLog.append(date + u' ' + message + u'\n');
}

Menu Skylet::makeMenu() {
    for (const auto& line : {statusLine_, rateLine_, speedLine_}) {
        line->setEnabled(false);
    }
    testItem_ = command(QStringLiteral("Run Speed Test…  (up to ~60 MB of data)"),
                        lifetime_.guard([this] { runSpeedTest(); }), QStringLiteral("t"));
    checkItem_ =
        command(QStringLiteral("Check Connection Now"), lifetime_.guard([this] { checkNow(); }), QStringLiteral("r"));
    trafficItem_ = command(QStringLiteral("Show Live Traffic in Menu Bar   (e.g. ↓12.4M ↑210K)"),
                           lifetime_.guard([this] { toggleTraffic(); }));
    pauseItem_ = command(QStringLiteral("Pause Automatic Checks"), lifetime_.guard([this] { togglePause(); }));
    loginItem_ = command(QStringLiteral("Launch at Login"), lifetime_.guard([this] { toggleLogin(); }));
    showLaunchAgent();
    services_.launchAgent.onChange = lifetime_.guard([this] { showLaunchAgent(); });
    const auto aboutItem = command(QStringLiteral("About Skylet"), lifetime_.guard([this] { showAbout(); }));
    if (!services_.application.hasApplicationIcon()) {
        qFatal("Skylet: the application icon is missing");
    }
    aboutItem->setApplicationIconSize(menuIconSize);
    const auto quitItem = command(QStringLiteral("Quit"),
                                  lifetime_.guard([this] { services_.application.terminate(); }), QStringLiteral("q"));
    return {statusLine_,  rateLine_,  speedLine_, MenuItem::separator(), testItem_, checkItem_, MenuItem::separator(),
            trafficItem_, pauseItem_, loginItem_, MenuItem::separator(), aboutItem, quitItem};
}

void Skylet::connectionChanged(const ConnectionState& connection) {
    switch (connection.kind()) {
    case ConnectionState::Kind::online:
        state_.online = true;
        state_.latencyMs = connection.latency();
        break;
    case ConnectionState::Kind::offline:
        state_.online = false;
        state_.latencyMs = 0;
        break;
    case ConnectionState::Kind::checking:
    case ConnectionState::Kind::paused:
        // The grey display comes from the pause flag of the display state, not from the engine's paused state.
        state_.online.reset();
        state_.latencyMs = 0;
        break;
    }
    render();
}

void Skylet::pathChanged(bool satisfied) {
    resetTraffic();
    connectivity_->pathChanged(satisfied);
}

void Skylet::startRateTimer() {
    invalidate(rateTimer_);
    rateTimer_ = services_.repeatingTimer(rateInterval, rateTolerance, lifetime_.guard([this] { sampleRate(); }));
}

void Skylet::resetTraffic() {
    lastCounters_.reset();
    state_.downRate = 0;
    state_.upRate = 0;
}

SpeedTesting& Skylet::speedTest() {
    if (!speedTest_) {
        speedTest_ = services_.makeSpeedTest();
        speedTest_->onStarted = lifetime_.guard([this] { speedTestStarted(); });
        speedTest_->onCancelled = lifetime_.guard([this] { speedTestCancelled(); });
        speedTest_->onFinished = lifetime_.guard(
            [this](std::optional<double> down, std::optional<double> up) { speedTestFinished(down, up); });
    }
    return *speedTest_;
}

void Skylet::speedTestStarted() {
    state_.testing = true;
    state_.lastSpeed = L(QStringLiteral("running..."));
    setBanner(L(QStringLiteral("Speed test running…")), std::nullopt);
}

void Skylet::speedTestCancelled() {
    state_.testing = false;
    state_.lastSpeed = L(QStringLiteral("Cancelled"));
    invalidate(bannerTimer_);
    state_.banner.reset();
    render();
}

void Skylet::speedTestFinished(std::optional<double> down, std::optional<double> up) {
    const auto figure = [](std::optional<double> speed) {
        return speed ? fixed(*speed, 1) + QStringLiteral(" Mbps") : L(QStringLiteral("failed"));
    };
    const auto d = figure(down);
    const auto u = figure(up);
    state_.testing = false;
    const auto time = services_.clock.currentDate().toLocalTime().toString(QStringLiteral("HH:mm"));
    state_.lastSpeed =
        QStringLiteral("%1   (%2)").arg(formatted(L(QStringLiteral("Download %@  ·  Upload %@")), {d, u}), time);
    setBanner(QStringLiteral("↓ %1  ↑ %2").arg(d, u), resultBannerLifetime);
}

void Skylet::setBanner(const QString& text, std::optional<Seconds> lifetime) {
    invalidate(bannerTimer_);
    state_.banner = text;
    if (lifetime) {
        bannerTimer_ = services_.oneShotTimer(*lifetime, lifetime_.guard([this] {
            state_.banner.reset();
            render();
        }));
    }
    render();
}

void Skylet::showWelcome() {
    welcomeWindow_ = services_.windows.makeWelcomeWindow(services_.launchAgent.exists(),
                                                         lifetime_.guard([this] { finishWelcome(); }));
    welcomeWindow_->bringToFront();
}

void Skylet::finishWelcome() {
    const bool wanted = welcomeWindow_ && welcomeWindow_->loginBoxIsOn();
    if (wanted != services_.launchAgent.exists()) {
        toggleLogin();
    }
    services_.userDefaults.setBool(true, didOnboardKey);
    if (welcomeWindow_) {
        std::exchange(welcomeWindow_, nullptr)->close();
    }
}

} // namespace skylet

#include "platform/linux/system/LogindSleepMonitor.h"

#include "platform/linux/system/BusCall.h"

#include <QDBusVariant>

#include <utility>

namespace skylet {

namespace {

constexpr QLatin1StringView logindService("org.freedesktop.login1");
constexpr QLatin1StringView logindPath("/org/freedesktop/login1");
constexpr QLatin1StringView managerInterface("org.freedesktop.login1.Manager");
constexpr QLatin1StringView sleepSignal("PrepareForSleep");

} // namespace

LogindSleepMonitor::LogindSleepMonitor(QDBusConnection bus, NetworkEpoch& epoch,
                                       std::chrono::milliseconds toleratedAbsence)
    : bus_(std::move(bus)), busLoss_(bus_, [this] { followOwner(QString()); }), epoch_(epoch) {
    watcher_.setConnection(bus_);
    watcher_.setWatchMode(QDBusServiceWatcher::WatchForOwnerChange);
    connect(&watcher_, &QDBusServiceWatcher::serviceOwnerChanged, this,
            [this](const QString&, const QString&, const QString& newOwner) { followOwner(newOwner); });
    absence_.setSingleShot(true);
    absence_.setInterval(toleratedAbsence);
    connect(&absence_, &QTimer::timeout, this, &LogindSleepMonitor::wakeUp);
}

void LogindSleepMonitor::start(std::function<void()> willSleep, std::function<void()> didWake) {
    stop();
    willSleep_ = std::move(willSleep);
    didWake_ = std::move(didWake);
    watcher_.addWatchedService(logindService);
    findOwner();
}

void LogindSleepMonitor::stop() {
    watcher_.removeWatchedService(logindService);
    asleep_ = false;
    followOwner(QString());
    absence_.stop();
    questions_.reset();
    inhibitor_ = QDBusUnixFileDescriptor();
}

// Asks who is there without starting it: logind runs where the system uses it.
void LogindSleepMonitor::findOwner() {
    callAsync(bus_, busCall(QStringLiteral("GetNameOwner"), {QString(logindService)}), this,
              questions_.guard([this](const QDBusMessage& reply) { followOwner(QDBusReply<QString>(reply).value()); }));
}

// The signal is taken from the owner's unique name: to match the well-known one Qt would ask the bus and wait.
void LogindSleepMonitor::followOwner(const QString& owner) {
    if (owner == owner_) {
        return;
    }
    questions_.reset();
    inhibitorRequest_.reset();
    bus_.disconnect(owner_, logindPath, managerInterface, sleepSignal, this, SLOT(prepareForSleep(bool)));
    owner_ = owner;
    if (owner_.isEmpty()) {
        if (asleep_) {
            absence_.start();
        }
        return;
    }
    absence_.stop();
    bus_.connect(owner_, logindPath, managerInterface, sleepSignal, this, SLOT(prepareForSleep(bool)));
    askWhetherPreparing();
}

// Signals sent before this owner was listened to are lost; its property tells what they said.
void LogindSleepMonitor::askWhetherPreparing() {
    const auto call = propertyCall(owner_, logindPath, QString(managerInterface), QStringLiteral("PreparingForSleep"));
    callAsync(bus_, call, this, questions_.guard([this](const QDBusMessage& reply) {
        const bool preparing = QDBusReply<QDBusVariant>(reply).value().variant().toBool();
        if (preparing || asleep_) {
            prepareForSleep(preparing);
        } else {
            requestInhibitor();
        }
    }));
}

void LogindSleepMonitor::requestInhibitor() {
    auto call = QDBusMessage::createMethodCall(owner_, logindPath, managerInterface, QStringLiteral("Inhibit"));
    call << QStringLiteral("sleep") << QStringLiteral("Skylet")
         << QStringLiteral("Stops its connection checks before the system is suspended") << QStringLiteral("delay");
    callAsync(bus_, call, this, inhibitorRequest_.guard([this](const QDBusMessage& reply) {
        // Refused: the announcements come all the same, only the suspend does not wait.
        inhibitor_ = QDBusReply<QDBusUnixFileDescriptor>(reply).value();
    }));
}

void LogindSleepMonitor::prepareForSleep(bool sleeping) {
    if (sleeping != asleep_) {
        sleeping ? goToSleep() : wakeUp();
    }
}

void LogindSleepMonitor::goToSleep() {
    asleep_ = true;
    inhibitorRequest_.reset();
    willSleep_();
    inhibitor_ = QDBusUnixFileDescriptor();
}

void LogindSleepMonitor::wakeUp() {
    asleep_ = false;
    epoch_.advance();
    if (!owner_.isEmpty()) {
        requestInhibitor();
    }
    didWake_();
}

} // namespace skylet

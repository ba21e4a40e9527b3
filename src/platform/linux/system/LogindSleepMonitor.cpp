#include "platform/linux/system/LogindSleepMonitor.h"

#include "platform/linux/system/BusCall.h"
#include "platform/linux/system/FileDescriptor.h"

#include <QDBusVariant>
#include <QFile>

#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <utility>

namespace skylet {

namespace {

constexpr QLatin1StringView busService("org.freedesktop.DBus");
constexpr QLatin1StringView logindService("org.freedesktop.login1");
constexpr QLatin1StringView logindPath("/org/freedesktop/login1");
constexpr QLatin1StringView managerInterface("org.freedesktop.login1.Manager");
constexpr QLatin1StringView sleepSignal("PrepareForSleep");

QDBusMessage matchRequest(const QString& rule) {
    return busCall(QStringLiteral("AddMatch"), {QStringLiteral("type='signal',") + rule});
}

/// Whether the bus has stopped to accept connections: Qt would wait until it accepts again, and all of the process with
/// it.
bool isFull(const QString& address) {
    const QByteArray path = QFile::encodeName(address.section(u'=', 1, 1).section(u',', 0, 0));
    sockaddr_un place{.sun_family = AF_UNIX, .sun_path = {}};
    if (path.size() >= qsizetype{sizeof place.sun_path}) {
        return false;
    }
    std::copy(path.begin(), path.end(), std::begin(place.sun_path));
    const FileDescriptor probe(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    return connect(probe.get(), reinterpret_cast<const sockaddr*>(&place), sizeof place) != 0 && errno == EAGAIN;
}

} // namespace

LogindSleepMonitor::LogindSleepMonitor(QString busAddress, NetworkEpoch& epoch,
                                       std::chrono::milliseconds toleratedAbsence,
                                       std::chrono::milliseconds retryInterval)
    : busAddress_(std::move(busAddress)), bus_((QString())), epoch_(epoch) {
    retry_.setSingleShot(true);
    retry_.setInterval(retryInterval);
    connect(&retry_, &QTimer::timeout, this, &LogindSleepMonitor::connectToBus);
    absence_.setSingleShot(true);
    absence_.setInterval(toleratedAbsence);
    connect(&absence_, &QTimer::timeout, this, &LogindSleepMonitor::wakeUp);
}

QString LogindSleepMonitor::systemBusAddress() {
    const QString address = qEnvironmentVariable("DBUS_SYSTEM_BUS_ADDRESS");
    return address.isEmpty() ? QStringLiteral("unix:path=/var/run/dbus/system_bus_socket") : address;
}

void LogindSleepMonitor::start(std::function<void()> willSleep, std::function<void()> didWake) {
    stop();
    willSleep_ = std::move(willSleep);
    didWake_ = std::move(didWake);
    connectToBus();
}

void LogindSleepMonitor::stop() {
    asleep_ = false;
    followOwner(QString());
    absence_.stop();
    retry_.stop();
    questions_.reset();
    inhibitor_ = QDBusUnixFileDescriptor();
    disconnectFromBus();
}

// To Qt the bus is a peer. To a bus it would say "Hello" itself and wait for the answer, and with it all of the
// process that talks to another bus. What is sent here waits in order until the bus takes it.
void LogindSleepMonitor::connectToBus() {
    disconnectFromBus();
    if (!isFull(busAddress_)) {
        bus_ = QDBusConnection::connectToPeer(busAddress_, QStringLiteral("skylet-logind-%1").arg(quintptr(this)));
    }
    if (!bus_.isConnected()) {
        retry_.start();
        return;
    }
    busLoss_.emplace(bus_, [this] {
        followOwner(QString());
        retry_.start();
    });
    bus_.connect(busService, QString(), busService, QStringLiteral("NameOwnerChanged"), this,
                 SLOT(ownerChanged(QString, QString, QString)));
    bus_.send(busCall(QStringLiteral("Hello")));
    bus_.send(matchRequest(
        QStringLiteral("sender='org.freedesktop.DBus',member='NameOwnerChanged',arg0='%1'").arg(logindService)));
    bus_.send(matchRequest(QStringLiteral("sender='%1',member='%2'").arg(logindService, sleepSignal)));
    // Asks who is there without starting it: logind runs where the system uses it.
    callAsync(bus_, busCall(QStringLiteral("GetNameOwner"), {QString(logindService)}), this,
              questions_.guard([this](const QDBusMessage& reply) { followOwner(QDBusReply<QString>(reply).value()); }),
              noTimeout);
}

void LogindSleepMonitor::disconnectFromBus() {
    const QString name = bus_.name();
    busLoss_.reset();
    bus_ = QDBusConnection(QString());
    QDBusConnection::disconnectFromPeer(name);
}

void LogindSleepMonitor::ownerChanged(const QString& name, const QString& /*oldOwner*/, const QString& newOwner) {
    if (name == logindService) {
        followOwner(newOwner);
    }
}

// Only the owner is believed, by its unique name, which is what a message's sender is called.
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
    // An announcement is newer than an answer that Qt may hand over after it.
    questions_.reset();
    if (sleeping != asleep_) {
        sleeping ? goToSleep() : wakeUp();
    } else if (!sleeping && !inhibitor_.isValid()) {
        requestInhibitor();
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

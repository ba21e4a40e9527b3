#include "platform/linux/system/SingleInstance.h"

#include "platform/linux/system/ApplicationInterface.h"

#include <QDBusError>
#include <QDBusMessage>
#include <QDeadlineTimer>

#include <algorithm>
#include <optional>
#include <utility>

namespace skylet {

namespace {

// D-Bus Specification, "Message Bus Messages", RequestName.
constexpr unsigned doNotQueue = 4;
constexpr unsigned primaryOwner = 1;
constexpr unsigned alreadyOwner = 4;

int remaining(const QDeadlineTimer& deadline) {
    return static_cast<int>(std::max<qint64>(deadline.remainingTime(), 1));
}

/// Empty optional: no answer.
std::optional<bool> takeName(const QDBusConnection& bus, const QDeadlineTimer& deadline) {
    auto request =
        QDBusMessage::createMethodCall(QStringLiteral("org.freedesktop.DBus"), QStringLiteral("/org/freedesktop/DBus"),
                                       QStringLiteral("org.freedesktop.DBus"), QStringLiteral("RequestName"));
    request << QString::fromLatin1(SingleInstance::serviceName) << doNotQueue;
    const QDBusMessage reply = bus.call(request, QDBus::Block, remaining(deadline));
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty()) {
        return std::nullopt;
    }
    const unsigned outcome = reply.arguments().constFirst().toUInt();
    return outcome == primaryOwner || outcome == alreadyOwner;
}

/// False: the other process has gone in the meantime, so the name is free again.
bool activateOther(const QDBusConnection& bus, const QDeadlineTimer& deadline) {
    auto request = QDBusMessage::createMethodCall(
        QString::fromLatin1(SingleInstance::serviceName), QString::fromLatin1(SingleInstance::objectPath),
        QStringLiteral("org.freedesktop.Application"), QStringLiteral("Activate"));
    request << QVariantMap();
    request.setAutoStartService(false);
    const QDBusMessage reply = bus.call(request, QDBus::Block, remaining(deadline));
    const QDBusError::ErrorType error = QDBusError(reply).type();
    const bool gone = error == QDBusError::ServiceUnknown || error == QDBusError::NoReply;
    return !gone || deadline.hasExpired();
}

} // namespace

SingleInstance::SingleInstance(QDBusConnection bus, std::function<void()> onActivated) : bus_(std::move(bus)) {
    auto* interface = new ApplicationInterface(&object_);
    QObject::connect(interface, &ApplicationInterface::activated, interface, std::move(onActivated));
}

SingleInstance::~SingleInstance() {
    bus_.unregisterObject(QString::fromLatin1(objectPath));
}

SingleInstance::Role SingleInstance::claim(std::chrono::milliseconds patience) {
    const QDeadlineTimer deadline(patience);
    // There before the name is, so that nobody finds the name without the object.
    bus_.registerObject(QString::fromLatin1(objectPath), &object_);
    do {
        const auto taken = takeName(bus_, deadline);
        if (!taken) {
            return Role::noBus;
        }
        if (*taken) {
            return Role::first;
        }
    } while (!activateOther(bus_, deadline));
    return Role::second;
}

} // namespace skylet

#include "platform/linux/system/SingleInstance.h"

#include "platform/linux/system/ApplicationInterface.h"
#include "platform/linux/system/BusCall.h"

#include <QDBusError>
#include <QDeadlineTimer>

#include <algorithm>
#include <utility>

namespace skylet {

namespace {

int remaining(const QDeadlineTimer& deadline) {
    return static_cast<int>(std::max<qint64>(deadline.remainingTime(), 1));
}

/// False: the other process has gone in the meantime, so the name is free again.
bool activateOther(const QDBusConnection& bus, const QDeadlineTimer& deadline) {
    auto request = QDBusMessage::createMethodCall(
        QString::fromLatin1(SingleInstance::serviceName), QString::fromLatin1(SingleInstance::objectPath),
        QStringLiteral("org.freedesktop.Application"), QStringLiteral("Activate"));
    request << QVariantMap{{QStringLiteral("activation-token"), qEnvironmentVariable("XDG_ACTIVATION_TOKEN")}};
    request.setAutoStartService(false);
    const QDBusMessage reply = bus.call(request, QDBus::Block, remaining(deadline));
    const QDBusError::ErrorType error = QDBusError(reply).type();
    const bool gone = error == QDBusError::ServiceUnknown || error == QDBusError::NoReply;
    return !gone || deadline.hasExpired();
}

} // namespace

SingleInstance::SingleInstance(QDBusConnection bus, std::function<void(const QString& activationToken)> onActivated)
    : bus_(std::move(bus)) {
    auto* interface = new ApplicationInterface(&object_);
    QObject::connect(interface, &ApplicationInterface::activated, interface, std::move(onActivated));
}

SingleInstance::Role SingleInstance::claim(std::chrono::milliseconds timeout) {
    const QDeadlineTimer deadline(timeout);
    // There before the name is, so that nobody finds the name without the object.
    bus_.registerObject(QString::fromLatin1(objectPath), &object_);
    do {
        const auto reply = bus_.call(nameRequest(QString::fromLatin1(serviceName)), QDBus::Block, remaining(deadline));
        if (reply.type() != QDBusMessage::ReplyMessage) {
            return Role::noBus;
        }
        if (hasGrantedName(reply)) {
            return Role::first;
        }
    } while (!activateOther(bus_, deadline));
    return Role::second;
}

} // namespace skylet

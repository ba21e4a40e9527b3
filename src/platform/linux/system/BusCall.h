#pragma once

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusReply>
#include <QObject>
#include <QString>
#include <QVariantList>

#include <functional>
#include <limits>
#include <utility>

namespace skylet {

/// A time-out for `callAsync`: no reply is too late.
inline constexpr int noTimeout = std::numeric_limits<int>::max();

/// Sends `call` and hands the reply, which may be an error, to `take` from the event loop; never once `context` is
/// gone. `timeout` in milliseconds; -1: what D-Bus usually takes.
inline void callAsync(const QDBusConnection& connection, const QDBusMessage& call, QObject* context,
                      std::function<void(const QDBusMessage& reply)> take, int timeout = -1) {
    auto* watcher = new QDBusPendingCallWatcher(connection.asyncCall(call, timeout), context);
    QObject::connect(watcher, &QDBusPendingCallWatcher::finished, context, [watcher, take = std::move(take)] {
        watcher->deleteLater();
        take(watcher->reply());
    });
}

/// A call to the message bus itself (D-Bus Specification, "Message Bus Messages").
inline QDBusMessage busCall(const QString& method, const QVariantList& arguments = {}) {
    auto call =
        QDBusMessage::createMethodCall(QStringLiteral("org.freedesktop.DBus"), QStringLiteral("/org/freedesktop/DBus"),
                                       QStringLiteral("org.freedesktop.DBus"), method);
    call.setArguments(arguments);
    return call;
}

/// Asks the bus for a name, or for nothing where somebody else has it.
inline QDBusMessage nameRequest(const QString& name) {
    constexpr uint doNotQueue = 4;
    return busCall(QStringLiteral("RequestName"), {name, doNotQueue});
}

/// Whether this reply to a `nameRequest` means that the connection has the name.
inline bool hasGrantedName(const QDBusMessage& reply) {
    constexpr uint primaryOwner = 1;
    constexpr uint alreadyOwner = 4;
    const uint outcome = QDBusReply<uint>(reply).value();
    return outcome == primaryOwner || outcome == alreadyOwner;
}

/// Its reply is a QDBusVariant.
inline QDBusMessage propertyCall(const QString& service, const QString& path, const QString& interface,
                                 const QString& property) {
    auto call = QDBusMessage::createMethodCall(service, path, QStringLiteral("org.freedesktop.DBus.Properties"),
                                               QStringLiteral("Get"));
    call.setArguments({interface, property});
    return call;
}

} // namespace skylet

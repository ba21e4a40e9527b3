#include "platform/linux/statusitem/host/FakeStatusHost.h"

#include "platform/linux/statusitem/host/DBusTypes.h"
#include "support/PrivateBus.h"

#include <QCoreApplication>
#include <QDBusError>
#include <QTimer>

#include <gtest/gtest.h>

#include <utility>

namespace skylet {

namespace {

using test::callAndWait;

using namespace std::chrono_literals;

const auto watcherName = [] { return QStringLiteral("org.kde.StatusNotifierWatcher"); };
const auto watcherPath = [] { return QStringLiteral("/StatusNotifierWatcher"); };
const auto itemPath = [] { return QStringLiteral("/StatusNotifierItem"); };
const auto itemInterface = [] { return QStringLiteral("org.kde.StatusNotifierItem"); };
const auto menuPath = [] { return QStringLiteral("/MenuBar"); };
const auto menuInterface = [] { return QStringLiteral("com.canonical.dbusmenu"); };
const auto propertiesInterface = [] { return QStringLiteral("org.freedesktop.DBus.Properties"); };

} // namespace

FakeStatusHost::FakeStatusHost(QDBusConnection connection, Manner manner)
    : connection_(std::move(connection)), manner_(manner) {
    registerDBusTypes();
    connection_.registerVirtualObject(watcherPath(), this);
    for (const QString& interface : {itemInterface(), menuInterface()}) {
        // No member: every signal of the interface.
        connection_.connect(QString(), QString(), interface, QString(), this, SLOT(takeSignal(QDBusMessage)));
    }
}

FakeStatusHost::~FakeStatusHost() {
    connection_.unregisterObject(watcherPath());
}

void FakeStatusHost::appear() {
    EXPECT_TRUE(connection_.registerService(watcherName()));
}

void FakeStatusHost::disappear() {
    connection_.unregisterService(watcherName());
}

void FakeStatusHost::tellOfHosts() {
    connection_.send(
        QDBusMessage::createSignal(watcherPath(), watcherName(), QStringLiteral("StatusNotifierHostRegistered")));
}

void FakeStatusHost::tellOfProperties() {
    QDBusMessage signal =
        QDBusMessage::createSignal(watcherPath(), propertiesInterface(), QStringLiteral("PropertiesChanged"));
    signal.setArguments({watcherName(), QVariantMap(), QStringList()});
    connection_.send(signal);
}

QVariantList FakeStatusHost::last(const QString& signal) const {
    const auto range = signals_.equal_range(signal);
    return range.first == range.second ? QVariantList() : std::prev(range.second)->second;
}

void FakeStatusHost::settle() {
    // What is told in the next turn of the event loop, and what that leads to in the turn after it.
    QCoreApplication::processEvents();
    QCoreApplication::processEvents();
    // An answer overtakes none of the signals that the same connection sent before it.
    itemProperty(QStringLiteral("Id"));
    QCoreApplication::processEvents();
}

QDBusMessage FakeStatusHost::call(const QString& path, const QString& interface, const QString& method,
                                  const QVariantList& arguments) const {
    QDBusMessage message = QDBusMessage::createMethodCall(item(), path, interface, method);
    message.setArguments(arguments);
    return callAndWait(connection_, message);
}

QDBusMessage FakeStatusHost::callItem(const QString& method, const QVariantList& arguments) const {
    return call(itemPath(), itemInterface(), method, arguments);
}

QDBusMessage FakeStatusHost::callMenu(const QString& method, const QVariantList& arguments) const {
    return call(menuPath(), menuInterface(), method, arguments);
}

QVariantMap FakeStatusHost::itemProperties() const {
    const QDBusMessage answer = call(itemPath(), propertiesInterface(), QStringLiteral("GetAll"), {itemInterface()});
    return qdbus_cast<QVariantMap>(answer.arguments().value(0));
}

QDBusMessage FakeStatusHost::itemProperty(const QString& name) const {
    return call(itemPath(), propertiesInterface(), QStringLiteral("Get"), {itemInterface(), name});
}

QString FakeStatusHost::introspect(const QString& /*path*/) const {
    return {};
}

bool FakeStatusHost::handleMessage(const QDBusMessage& message, const QDBusConnection& connection) {
    if (message.member() == QLatin1String("Get") && saysHostIsRegistered) {
        connection.send(message.createReply(QVariant::fromValue(QDBusVariant(*saysHostIsRegistered))));
        return true;
    }
    if (message.member() != QLatin1String("RegisterStatusNotifierItem")) {
        return false;
    }
    registrations_.append(message.arguments().value(0).toString());
    if (onRegistration) {
        onRegistration();
    }
    if (manner_ == Manner::accepts) {
        connection.send(message.createReply());
    } else if (manner_ != Manner::isSilent) {
        const auto refuse = [message, connection] {
            connection.send(message.createErrorReply(QDBusError::Failed, QStringLiteral("not now")));
        };
        QTimer::singleShot(manner_ == Manner::refusesLate ? hesitation : 0ms, this, refuse);
    }
    return true;
}

void FakeStatusHost::takeSignal(const QDBusMessage& message) {
    signals_.emplace(message.member(), message.arguments());
}

} // namespace skylet

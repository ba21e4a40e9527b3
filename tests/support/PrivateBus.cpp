#include "support/PrivateBus.h"

#include "support/ChildProcess.h"
#include "support/EventLoop.h"

#include <QCoreApplication>
#include <QDBusConnectionInterface>
#include <QDBusPendingCallWatcher>
#include <QDBusReply>
#include <QEventLoop>
#include <QFile>

#include <gtest/gtest.h>

namespace skylet::test {

namespace {

// With the limits of the usual session bus, but it starts no services of the system's.
constexpr auto configuration = R"(<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <listen>unix:path=%1/bus</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
    <allow own="*"/>
  </policy>
  <limit name="max_incoming_bytes">1000000000</limit>
  <limit name="max_outgoing_bytes">1000000000</limit>
  <limit name="max_message_size">1000000000</limit>
</busconfig>
)";

} // namespace

PrivateBus::PrivateBus() {
    QFile file(folder_.filePath(QStringLiteral("bus.conf")));
    EXPECT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(QString::fromUtf8(configuration).arg(folder_.path()).toUtf8());
    file.close();
    endWithThisProcess(daemon_);
    // It complains when it may not raise its limits.
    daemon_.setStandardErrorFile(QProcess::nullDevice());
    daemon_.start(QStringLiteral("dbus-daemon"), {QStringLiteral("--nofork"), QStringLiteral("--print-address"),
                                                  QStringLiteral("--config-file=") + file.fileName()});
    // The address is printed once the bus listens.
    EXPECT_TRUE(waitUntil([this] { return daemon_.canReadLine(); })) << "no dbus-daemon";
    address_ = QString::fromUtf8(daemon_.readLine()).trimmed();
}

PrivateBus::~PrivateBus() {
    for (const QString& name : connections_) {
        QDBusConnection::disconnectFromBus(name);
    }
    kill();
}

QDBusConnection PrivateBus::connect() {
    // Connections are known by name in the whole process, so the name has to differ between buses.
    const QString name = QStringLiteral("%1#%2").arg(address_).arg(connections_.size());
    connections_.append(name);
    return QDBusConnection::connectToBus(address_, name);
}

void PrivateBus::disconnect(const QString& name) {
    QDBusConnection::disconnectFromBus(name);
}

void PrivateBus::kill() {
    daemon_.kill();
    daemon_.waitForFinished();
}

bool isOnBus(const QDBusConnection& bus, const QString& service) {
    return bus.interface()->isServiceRegistered(service);
}

QDBusMessage callAndWait(const QDBusConnection& from, const QDBusMessage& call) {
    const QDBusPendingCallWatcher answer(from.asyncCall(call));
    QEventLoop loop;
    QObject::connect(&answer, &QDBusPendingCallWatcher::finished, &loop, &QEventLoop::quit);
    if (answer.isFinished()) {
        // What came before the answer has its turn, as below.
        QCoreApplication::processEvents();
    } else {
        loop.exec();
    }
    return answer.reply();
}

} // namespace skylet::test

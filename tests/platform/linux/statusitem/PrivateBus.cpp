#include "platform/linux/statusitem/PrivateBus.h"

#include <QCoreApplication>
#include <QDBusPendingCall>
#include <QDeadlineTimer>
#include <QFile>
#include <QTimer>

#include <gtest/gtest.h>

namespace skylet {

namespace {

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
</busconfig>
)";

int connectionCount = 0;

} // namespace

PrivateBus::PrivateBus() {
    const QString file = folder_.filePath(QStringLiteral("bus.conf"));
    QFile written(file);
    EXPECT_TRUE(written.open(QIODevice::WriteOnly));
    written.write(QString::fromUtf8(configuration).arg(folder_.path()).toUtf8());
    written.close();
    daemon_.setStandardErrorFile(QProcess::nullDevice());
    daemon_.start(QStringLiteral("dbus-daemon"), {QStringLiteral("--nofork"), QStringLiteral("--print-address"),
                                                  QStringLiteral("--config-file=") + file});
    // The address is printed once the bus listens.
    EXPECT_TRUE(waitUntil([this] { return daemon_.canReadLine(); })) << "no dbus-daemon";
}

PrivateBus::~PrivateBus() {
    for (const QString& name : connections_) {
        QDBusConnection::disconnectFromBus(name);
    }
    kill();
}

QDBusConnection PrivateBus::connect() {
    const QString name = QStringLiteral("test-%1").arg(++connectionCount);
    connections_.append(name);
    return QDBusConnection::connectToBus(QStringLiteral("unix:path=%1/bus").arg(folder_.path()), name);
}

void PrivateBus::disconnect(const QString& name) {
    QDBusConnection::disconnectFromBus(name);
}

void PrivateBus::kill() {
    daemon_.kill();
    daemon_.waitForFinished();
}

bool waitUntil(const std::function<bool()>& reached, std::chrono::milliseconds limit) {
    const QDeadlineTimer deadline(limit);
    // Wakes the event loop where nothing else does.
    QTimer tick;
    tick.start(std::chrono::milliseconds(1));
    while (!reached()) {
        if (deadline.hasExpired()) {
            return false;
        }
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
    return true;
}

QDBusMessage callAndWait(const QDBusConnection& from, const QDBusMessage& call) {
    const QDBusPendingCall answer = from.asyncCall(call);
    EXPECT_TRUE(waitUntil([&answer] { return answer.isFinished(); })) << "no answer to " << qPrintable(call.member());
    return answer.reply();
}

} // namespace skylet

#include "PrivateBus.h"

#include "ChildProcess.h"

#include <QDBusConnectionInterface>
#include <QDBusReply>

namespace skylet::test {

PrivateBus::PrivateBus() {
    endWithThisProcess(daemon_);
    // It complains when it may not raise its limits.
    daemon_.setStandardErrorFile(QProcess::nullDevice());
    daemon_.start(QStringLiteral("dbus-daemon"),
                  {QStringLiteral("--session"), QStringLiteral("--nofork"), QStringLiteral("--nopidfile"),
                   QStringLiteral("--print-address"),
                   QStringLiteral("--address=unix:path=") + folder_.filePath(QStringLiteral("bus"))});
    if (daemon_.waitForReadyRead()) {
        address_ = QString::fromUtf8(daemon_.readLine()).trimmed();
    }
}

PrivateBus::~PrivateBus() {
    stop();
}

QDBusConnection PrivateBus::connect(const char* name) const {
    // Connections are known by name in the whole process, so the name has to differ between buses.
    return QDBusConnection::connectToBus(address_, address_ + QString::fromUtf8(name));
}

void PrivateBus::stop() {
    daemon_.terminate();
    daemon_.waitForFinished();
}

bool isOnBus(const QDBusConnection& bus, const QString& service) {
    return bus.interface()->isServiceRegistered(service);
}

} // namespace skylet::test

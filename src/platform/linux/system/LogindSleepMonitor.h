#pragma once

#include "platform/Lifetime.h"
#include "platform/linux/system/BusLoss.h"
#include "platform/network/NetworkEpoch.h"
#include "platform/system/SleepMonitor.h"

#include <QDBusConnection>
#include <QDBusUnixFileDescriptor>
#include <QObject>
#include <QString>
#include <QTimer>

#include <chrono>
#include <functional>
#include <optional>

namespace skylet {

/// Suspend and resume as logind announces them (org.freedesktop.login1(5)). While the system is awake it holds a delay
/// inhibitor, so that a suspend waits for `willSleep`. Without a bus or without logind it stays silent; both may come
/// late, go and come back at any time. It never waits for an answer, nor for the bus to accept it.
class LogindSleepMonitor : public QObject, public SleepMonitor {
    Q_OBJECT

  public:
    /// Once logind has been gone for this long during a suspend, nobody is left to announce the end of it.
    static constexpr std::chrono::seconds defaultAbsence{5};
    /// How often a bus is tried that is not there.
    static constexpr std::chrono::seconds defaultRetryInterval{10};

    /// `busAddress`: of the bus that logind is on. `epoch` is advanced right before each `didWake` and outlives the
    /// monitor.
    LogindSleepMonitor(QString busAddress, NetworkEpoch& epoch,
                       std::chrono::milliseconds toleratedAbsence = defaultAbsence,
                       std::chrono::milliseconds retryInterval = defaultRetryInterval);
    ~LogindSleepMonitor() override { stop(); }

    static QString systemBusAddress();

    void start(std::function<void()> willSleep, std::function<void()> didWake) override;
    void stop() override;

  private Q_SLOTS:
    void prepareForSleep(bool sleeping);
    void ownerChanged(const QString& name, const QString& oldOwner, const QString& newOwner);

  private: // NOLINT(readability-redundant-access-specifiers): the ones above are moc's
    Q_DISABLE_COPY_MOVE(LogindSleepMonitor)

    void connectToBus();
    void disconnectFromBus();
    void followOwner(const QString& owner);
    void askWhetherPreparing();
    void requestInhibitor();
    void goToSleep();
    void wakeUp();

    const QString busAddress_;
    QDBusConnection bus_;
    std::optional<BusLoss> busLoss_;
    QTimer retry_;
    NetworkEpoch& epoch_;
    QTimer absence_;
    std::function<void()> willSleep_;
    std::function<void()> didWake_;
    /// logind's unique bus name; empty: not there.
    QString owner_;
    bool asleep_ = false;
    QDBusUnixFileDescriptor inhibitor_;
    /// Questions to the present owner; its successor does not answer for it.
    Lifetime questions_;
    /// The request for an inhibitor. An answer that comes after the system has begun to suspend is dropped and closed.
    Lifetime inhibitorRequest_;
};

} // namespace skylet

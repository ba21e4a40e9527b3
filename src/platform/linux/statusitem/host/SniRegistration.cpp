#include "platform/linux/statusitem/host/SniRegistration.h"

#include "platform/linux/statusitem/StatusItemLog.h"
#include "platform/linux/system/BusCall.h"

#include <utility>

namespace skylet {

SniRegistration::SniRegistration(QDBusConnection connection, SniRegistrationLimits limits)
    : connection_(std::move(connection)), limits_(limits) {
    timer_.setSingleShot(true);
    timer_.setInterval(limits_.layoutTimeout);
    connect(&timer_, &QTimer::timeout, this, &SniRegistration::tryAgainIfLost);
}

void SniRegistration::setWatcher(const QString& owner, bool readsLayout) {
    readsLayout_ = readsLayout;
    if (owner == watcher_) {
        return;
    }
    watcher_ = owner;
    layoutRead_ = false;
    tries_ = 0;
    timer_.stop();
    if (!watcher_.isEmpty()) {
        registerItem();
    }
}

void SniRegistration::registerItem() {
    ++tries_;
    refused_ = false;
    Q_EMIT registering();
    qCInfo(statusItemLog) << "registers as" << connection_.baseService() << "with" << watcher_ << "try" << tries_;
    auto call = QDBusMessage::createMethodCall(watcher_, QStringLiteral("/StatusNotifierWatcher"),
                                               QStringLiteral("org.kde.StatusNotifierWatcher"),
                                               QStringLiteral("RegisterStatusNotifierItem"));
    call.setArguments({connection_.baseService()});
    callAsync(connection_, call, this, [this, owner = watcher_](const QDBusMessage& reply) {
        if (owner != watcher_) {
            return;
        }
        refused_ = reply.type() == QDBusMessage::ErrorMessage;
        qCInfo(statusItemLog) << (refused_ ? "refused by" : "registered with") << owner << reply.errorMessage();
        // A busy desktop may take longer to refuse than the timer has waited.
        if (refused_ && !timer_.isActive()) {
            tryAgainLater();
        }
    });
    tryAgainLater();
}

void SniRegistration::tryAgainLater() {
    if (tries_ < limits_.maximumTries) {
        timer_.start();
    }
}

void SniRegistration::tryAgainIfLost() {
    if (refused_ || (readsLayout_ && !layoutRead_)) {
        registerItem();
    }
}

} // namespace skylet

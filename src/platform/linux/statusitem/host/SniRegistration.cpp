#include "platform/linux/statusitem/host/SniRegistration.h"

#include "platform/linux/statusitem/StatusItemLog.h"
#include "platform/linux/system/BusCall.h"

#include <QCoreApplication>

#include <utility>

namespace skylet {

SniRegistration::SniRegistration(QDBusConnection connection, SniRegistrationLimits limits)
    : connection_(std::move(connection)), limits_(limits) {
    timer_.setSingleShot(true);
    timer_.setInterval(limits_.layoutTimeout);
    connect(&timer_, &QTimer::timeout, this, &SniRegistration::tryAgainIfLost);
}

QString SniRegistration::serviceName() const {
    return watcher_.prefersConnectionName || ownName_.isEmpty() ? connection_.baseService() : ownName_;
}

void SniRegistration::setWatcher(const Watcher& watcher) {
    const bool sameOwner = watcher.owner == watcher_.owner;
    watcher_ = watcher;
    if (sameOwner) {
        return;
    }
    layoutRead_ = false;
    tries_ = 0;
    timer_.stop();
    if (watcher_.owner.isEmpty()) {
        return;
    }
    // The own name is claimed for those watchers alone that are given it: one that also looks for items by itself could
    // take an item with two names for two.
    if (watcher_.prefersConnectionName || !ownName_.isEmpty()) {
        registerItem();
    } else {
        claimName();
    }
}

void SniRegistration::claimName() {
    const QString name = QStringLiteral("org.kde.StatusNotifierItem-%1-1").arg(QCoreApplication::applicationPid());
    // QDBusConnection::registerService() would wait for the answer.
    callAsync(connection_, nameRequest(name), this, [this, name, owner = watcher_.owner](const QDBusMessage& reply) {
        // Two programs in different process id namespaces can come to the same name. Watchers take the connection's
        // name just as well.
        if (hasGrantedName(reply)) {
            ownName_ = name;
        }
        if (owner == watcher_.owner) {
            registerItem();
        }
    });
}

void SniRegistration::registerItem() {
    ++tries_;
    refused_ = false;
    qCInfo(statusItemLog) << "registers as" << serviceName() << "with" << watcher_.owner << "try" << tries_;
    auto call = QDBusMessage::createMethodCall(watcher_.owner, QStringLiteral("/StatusNotifierWatcher"),
                                               QStringLiteral("org.kde.StatusNotifierWatcher"),
                                               QStringLiteral("RegisterStatusNotifierItem"));
    call.setArguments({serviceName()});
    callAsync(connection_, call, this, [this, owner = watcher_.owner](const QDBusMessage& reply) {
        if (owner != watcher_.owner) {
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
    if (refused_ || (watcher_.readsLayout && !layoutRead_)) {
        registerItem();
    }
}

} // namespace skylet

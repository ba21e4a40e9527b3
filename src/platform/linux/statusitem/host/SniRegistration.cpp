#include "platform/linux/statusitem/host/SniRegistration.h"

#include <QCoreApplication>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>

#include <utility>

namespace skylet {

namespace {

// From the D-Bus specification, "org.freedesktop.DBus.RequestName".
constexpr uint doNotQueue = 4;
constexpr uint primaryOwner = 1;
constexpr uint alreadyOwner = 4;

} // namespace

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
    QDBusMessage call =
        QDBusMessage::createMethodCall(QStringLiteral("org.freedesktop.DBus"), QStringLiteral("/org/freedesktop/DBus"),
                                       QStringLiteral("org.freedesktop.DBus"), QStringLiteral("RequestName"));
    call.setArguments({name, doNotQueue});
    auto* answer = new QDBusPendingCallWatcher(connection_.asyncCall(call), this);
    connect(answer, &QDBusPendingCallWatcher::finished, this, [this, answer, name, owner = watcher_.owner] {
        answer->deleteLater();
        const QDBusPendingReply<uint> result = *answer;
        // Two programs in different process id namespaces can come to the same name. Watchers take the connection's
        // name just as well.
        if (!result.isError() && (result.value() == primaryOwner || result.value() == alreadyOwner)) {
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
    QDBusMessage call = QDBusMessage::createMethodCall(watcher_.owner, QStringLiteral("/StatusNotifierWatcher"),
                                                       QStringLiteral("org.kde.StatusNotifierWatcher"),
                                                       QStringLiteral("RegisterStatusNotifierItem"));
    call.setArguments({serviceName()});
    auto* answer = new QDBusPendingCallWatcher(connection_.asyncCall(call), this);
    connect(answer, &QDBusPendingCallWatcher::finished, this, [this, answer, owner = watcher_.owner] {
        answer->deleteLater();
        if (answer->isError() && owner == watcher_.owner) {
            refused_ = true;
            // a busy desktop may take longer to refuse than the timer has waited
            if (!timer_.isActive()) {
                tryAgainLater();
            }
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

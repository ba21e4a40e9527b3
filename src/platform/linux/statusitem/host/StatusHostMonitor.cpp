#include "platform/linux/statusitem/host/StatusHostMonitor.h"

#include "platform/linux/statusitem/StatusItemLog.h"
#include "platform/linux/system/BusCall.h"

#include <QDBusVariant>
#include <QFile>

#include <algorithm>
#include <utility>

namespace skylet {

namespace {

constexpr QLatin1String watcherName("org.kde.StatusNotifierWatcher");
const auto watcherPath = [] { return QStringLiteral("/StatusNotifierWatcher"); };
constexpr QLatin1String hostPrefix("org.kde.StatusNotifierHost-");

bool isOfInterest(const QString& name) {
    return name == watcherName || name.startsWith(hostPrefix);
}

const char* nameOf(Presentation presentation) {
    switch (presentation) {
    case Presentation::label:
        return "label";
    case Presentation::wide:
        return "wide icon";
    case Presentation::badge:
        break;
    }
    return "badge";
}

} // namespace

StatusHostEnvironment StatusHostEnvironment::system() {
    StatusHostEnvironment environment;
    environment.processName = [](uint processId) {
        QFile file(QStringLiteral("/proc/%1/comm").arg(processId));
        return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()).trimmed() : QString();
    };
    environment.currentDesktop = qEnvironmentVariable("XDG_CURRENT_DESKTOP");
    return environment;
}

StatusHostMonitor::StatusHostMonitor(QDBusConnection connection, StatusHostEnvironment environment)
    : connection_(std::move(connection)), environment_(std::move(environment)),
      presentation_(traitsOfConnection({}).presentation) {}

void StatusHostMonitor::start() {
    nameWatcher_.setConnection(connection_);
    nameWatcher_.setWatchMode(QDBusServiceWatcher::WatchForOwnerChange);
    // Hosts bear their process id in their name, so their whole family is watched.
    nameWatcher_.addWatchedService(QStringLiteral("org.kde*"));
    connect(&nameWatcher_, &QDBusServiceWatcher::serviceOwnerChanged, this, [this](const QString& name) {
        if (name == watcherName) {
            forgetWatcher();
        }
        if (isOfInterest(name)) {
            refresh();
        }
    });
    for (const QString& signal :
         {QStringLiteral("StatusNotifierHostRegistered"), QStringLiteral("StatusNotifierHostUnregistered")}) {
        connection_.connect(QString(), watcherPath(), QString(watcherName), signal, this, SLOT(refresh()));
    }
    refresh();
}

StatusHostTraits StatusHostMonitor::traitsOfConnection(const QString& connectionName) const {
    return traitsOfHost(processNames_.value(connectionName), environment_.currentDesktop);
}

// A watcher that gives its name up and takes it again knows no items, though it is the same connection as before.
void StatusHostMonitor::forgetWatcher() {
    watcherIsAlone_ = false;
    if (!watcherOwner_.isEmpty()) {
        watcherOwner_.clear();
        report();
    }
}

void StatusHostMonitor::refresh() {
    questions_.reset();
    unanswered_ = 0;
    findings_ = {};
    ask(QStringLiteral("ListNames"), {}, [this](const QVariant& answer) {
        for (const QString& name : answer.toStringList()) {
            if (isOfInterest(name)) {
                askForOwner(name);
            }
        }
    });
}

void StatusHostMonitor::askForOwner(const QString& name) {
    ask(QStringLiteral("GetNameOwner"), {name}, [this, name](const QVariant& answer) {
        const QString owner = answer.toString();
        if (owner.isEmpty()) {
            return;
        }
        if (name == watcherName) {
            findings_.watcherOwner = owner;
        } else {
            findings_.hostOwners.insert(owner);
        }
        askForProcess(owner);
    });
}

void StatusHostMonitor::askForProcess(const QString& owner) {
    ask(QStringLiteral("GetConnectionUnixProcessID"), {owner}, [this, owner](const QVariant& answer) {
        const uint processId = answer.toUInt();
        findings_.processNames.insert(owner, processId == 0 ? QString() : environment_.processName(processId));
    });
}

void StatusHostMonitor::ask(const QString& method, const QVariantList& arguments,
                            std::function<void(const QVariant& answer)> take) {
    ++unanswered_;
    callAsync(connection_, busCall(method, arguments), this,
              questions_.guard([this, take = std::move(take)](const QDBusMessage& reply) {
                  // An error: the name has gone since, which the name watcher reports as well.
                  take(reply.type() == QDBusMessage::ReplyMessage ? reply.arguments().value(0) : QVariant());
                  if (--unanswered_ == 0) {
                      conclude();
                  }
              }));
}

void StatusHostMonitor::conclude() {
    const Findings found = std::exchange(findings_, {});
    const QString& owner = found.watcherOwner;
    const QSet<QString>& hosts = found.hostOwners;
    processNames_ = found.processNames;
    // Where hosts are known they decide, else the watcher, which then shows the items itself.
    const Presentation presentation = presentationForAll(hosts.isEmpty() ? QSet<QString>{owner} : hosts);
    const bool isWithoutHostNames = !owner.isEmpty() && hosts.isEmpty();
    const bool asksForHosts = isWithoutHostNames && !traitsOfConnection(owner).watchesOnly;
    const bool alone = isWithoutHostNames && (!asksForHosts || watcherIsAlone_);
    const bool same = presentation == presentation_ && owner == watcherOwner_ && alone == watcherIsAlone_;
    presentation_ = presentation;
    watcherOwner_ = owner;
    watcherIsAlone_ = alone;
    if (asksForHosts) {
        askWatcherForHosts();
    }
    if (!same) {
        report();
    }
}

/// Every host can show a badge; so with several hosts another presentation is chosen only where it is that of them all.
Presentation StatusHostMonitor::presentationForAll(const QSet<QString>& hosts) const {
    const Presentation first = traitsOfConnection(*hosts.cbegin()).presentation;
    const bool allAlike = std::all_of(hosts.cbegin(), hosts.cend(), [&](const QString& host) {
        return traitsOfConnection(host).presentation == first;
    });
    return allAlike ? first : Presentation::badge;
}

// What is known already does not wait for a program that may be slow to answer.
void StatusHostMonitor::askWatcherForHosts() {
    callAsync(connection_,
              propertyCall(watcherOwner_, watcherPath(), QString(watcherName),
                           QStringLiteral("IsStatusNotifierHostRegistered")),
              this, questions_.guard([this](const QDBusMessage& reply) {
                  const QDBusReply<QDBusVariant> registered(reply);
                  // A watcher that does not say is taken for its own host.
                  const bool alone = registered.isValid() && registered.value().variant() == QVariant(false);
                  if (alone != std::exchange(watcherIsAlone_, alone)) {
                      report();
                  }
              }));
}

void StatusHostMonitor::report() {
    qCInfo(statusItemLog) << "watcher:" << watcherOwner_ << "programs:" << processNames_ << "has host:" << hasHost()
                          << "presentation:" << nameOf(presentation_);
    Q_EMIT changed();
}

} // namespace skylet

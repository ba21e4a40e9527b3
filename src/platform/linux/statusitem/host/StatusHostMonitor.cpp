#include "platform/linux/statusitem/host/StatusHostMonitor.h"

#include "platform/linux/statusitem/StatusItemLog.h"
#include "platform/linux/system/BusCall.h"

#include <QDBusVariant>
#include <QFile>
#include <QGuiApplication>
#include <QScreen>

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

QDBusMessage processQuestion(const QString& connection) {
    return busCall(QStringLiteral("GetConnectionUnixProcessID"), {connection});
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
    environment.panelsStandUpright = [] {
        const QScreen* screen = QGuiApplication::primaryScreen();
        return screen != nullptr && screen->availableSize().width() < screen->size().width() &&
               screen->availableSize().height() == screen->size().height();
    };
    return environment;
}

StatusHostMonitor::StatusHostMonitor(QDBusConnection connection, StatusHostEnvironment environment)
    : connection_(std::move(connection)), environment_(std::move(environment)),
      presentation_(traitsOf({}).presentation) {}

void StatusHostMonitor::start() {
    nameWatcher_.setConnection(connection_);
    nameWatcher_.setWatchMode(QDBusServiceWatcher::WatchForOwnerChange);
    // Hosts bear their process id in their name, so their whole family is watched.
    nameWatcher_.addWatchedService(QStringLiteral("org.kde*"));
    connect(&nameWatcher_, &QDBusServiceWatcher::serviceOwnerChanged, this,
            [this](const QString& name, const QString& /*before*/, const QString& owner) { setOwner(name, owner); });
    for (const QString& signal :
         {QStringLiteral("StatusNotifierHostRegistered"), QStringLiteral("StatusNotifierHostUnregistered")}) {
        connection_.connect(QString(), watcherPath(), QString(watcherName), signal, this, SLOT(askWatcherForHosts()));
    }
    // Cinnamon's watcher says in no other way that its last host has gone, and lives on.
    connection_.connect(QString(), watcherPath(), QStringLiteral("org.freedesktop.DBus.Properties"),
                        QStringLiteral("PropertiesChanged"), this, SLOT(askWatcherForHosts()));
    // In the event loop each answer would wait for all else that the start of the program takes.
    const QDBusReply<QStringList> names = connection_.call(busCall(QStringLiteral("ListNames")));
    for (const QString& name : names.value()) {
        if (isOfInterest(name)) {
            const QDBusReply<QString> owner = connection_.call(busCall(QStringLiteral("GetNameOwner"), {name}));
            if (owner.isValid()) {
                owners_.insert(name, {owner, std::nullopt});
                setProcess(name, connection_.call(processQuestion(owner)));
            }
        }
    }
    update();
}

void StatusHostMonitor::setOwner(const QString& name, const QString& owner) {
    if (!isOfInterest(name)) {
        return;
    }
    owners_.remove(name);
    if (!owner.isEmpty()) {
        owners_.insert(name, {owner, std::nullopt});
        callAsync(connection_, processQuestion(owner), this, [this, name, owner](const QDBusMessage& reply) {
            const auto program = owners_.find(name);
            if (program != owners_.end() && program->connection == owner) {
                setProcess(name, reply);
                update();
            }
        });
    }
    update();
}

void StatusHostMonitor::setProcess(const QString& name, const QDBusMessage& reply) {
    const uint processId = QDBusReply<uint>(reply).value();
    Program& program = owners_[name];
    program.process = processId == 0 ? QString() : environment_.processName(processId);
    qCInfo(statusItemLog) << name << "belongs to" << program.connection << *program.process;
}

Presentation StatusHostMonitor::presentation() const {
    const bool isSqueezed = traitsOfConnection(watcherOwner_).squeezesWideIcons && environment_.panelsStandUpright();
    return isSqueezed ? Presentation::badge : presentation_;
}

StatusHostTraits StatusHostMonitor::traitsOf(const Program& program) const {
    return traitsOfHost(program.process.value_or(QString()), environment_.currentDesktop);
}

StatusHostTraits StatusHostMonitor::traitsOfConnection(const QString& connectionName) const {
    const auto program = std::find_if(owners_.cbegin(), owners_.cend(),
                                      [&](const Program& candidate) { return candidate.connection == connectionName; });
    return traitsOf(program == owners_.cend() ? Program() : *program);
}

void StatusHostMonitor::update() {
    const auto watcher = owners_.constFind(watcherName);
    if (watcher == owners_.cend()) {
        // A watcher that gives its name up and takes it again knows no items, though it is the same connection.
        watcherHasNoHost_ = false;
        if (!watcherOwner_.isEmpty()) {
            watcherOwner_.clear();
            report();
        }
        return;
    }
    if (std::any_of(owners_.cbegin(), owners_.cend(), [](const Program& program) { return !program.process; })) {
        return;
    }
    // Where hosts are known they decide, else the watcher, which then shows the items itself. Every host can show a
    // badge; so with several hosts another presentation is chosen only where it is that of them all.
    const bool hasHostNames = owners_.size() > 1;
    std::optional<Presentation> presentation;
    for (auto program = owners_.cbegin(); program != owners_.cend(); ++program) {
        if (program != watcher || !hasHostNames) {
            const Presentation own = traitsOf(*program).presentation;
            presentation = presentation.value_or(own) == own ? own : Presentation::badge;
        }
    }
    const bool hasNoHost = !hasHostNames && (watcherHasNoHost_ || traitsOf(*watcher).watchesOnly);
    const bool same =
        presentation == presentation_ && watcher->connection == watcherOwner_ && hasNoHost == watcherHasNoHost_;
    presentation_ = *presentation;
    watcherOwner_ = watcher->connection;
    watcherHasNoHost_ = hasNoHost;
    askWatcherForHosts();
    if (!same) {
        report();
    }
}

// What is known already does not wait for a program that may be slow to answer.
void StatusHostMonitor::askWatcherForHosts() {
    const auto isWanted = [this] {
        return owners_.size() == 1 && !watcherOwner_.isEmpty() && !traitsOfConnection(watcherOwner_).watchesOnly;
    };
    hostQuestion_.reset();
    if (!isWanted()) {
        return;
    }
    callAsync(connection_,
              propertyCall(watcherOwner_, watcherPath(), QString(watcherName),
                           QStringLiteral("IsStatusNotifierHostRegistered")),
              this, hostQuestion_.guard([this, isWanted, asked = watcherOwner_](const QDBusMessage& reply) {
                  const QDBusReply<QDBusVariant> registered(reply);
                  // A watcher that does not say is taken for its own host.
                  const bool hasNoHost = registered.isValid() && registered.value().variant() == QVariant(false);
                  if (asked == watcherOwner_ && isWanted() && hasNoHost != watcherHasNoHost_) {
                      watcherHasNoHost_ = hasNoHost;
                      report();
                  }
              }));
}

void StatusHostMonitor::report() {
    qCInfo(statusItemLog) << "watcher:" << watcherOwner_ << "has host:" << hasHost()
                          << "presentation:" << nameOf(presentation_);
    Q_EMIT changed();
}

} // namespace skylet

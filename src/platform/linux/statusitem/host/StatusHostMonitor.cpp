#include "platform/linux/statusitem/host/StatusHostMonitor.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusVariant>
#include <QFile>

#include <algorithm>
#include <array>
#include <utility>

namespace skylet {

namespace {

constexpr QLatin1String watcherName("org.kde.StatusNotifierWatcher");
const auto watcherPath = [] { return QStringLiteral("/StatusNotifierWatcher"); };
constexpr QLatin1String hostPrefix("org.kde.StatusNotifierHost-");
// The longest process name that the kernel keeps: TASK_COMM_LEN less the terminating zero.
constexpr qsizetype longestProcessName = 15;

struct KnownProgram {
    QLatin1String name;
    StatusHostTraits traits;
};

// Refusing `Activate` keeps GNOME's AppIndicator extension from waiting for a second click before it opens the menu.
// Under the item's own name the extension (seen in version 46) forgets what it has read of the item when its watch on
// that name answers after the item has, and then drops the item: 4 of 12 starts on a busy machine, against none under
// the name of the connection.
// It paints each icon that is given in pixels anew and leaves them to its garbage collector (GNOME Shell 43 grew by 10
// MB with 500 changes of the dot's colour); the icons that it has read from files it keeps.
constexpr StatusHostTraits gnome{
    .presentation = Presentation::label, .opensMenu = true, .prefersConnectionName = true, .prefersIconName = true};
// These look at the icon's name alone, never at its pixels.
constexpr StatusHostTraits indicators{.presentation = Presentation::label, .prefersIconName = true};
// MATE's panel sets a label too, but hides the icon beside it where the desktop shows no images on buttons.
constexpr StatusHostTraits wideHost{.presentation = Presentation::wide};
// Plasma 5 sends `Activate` on a left click, and opens the menu where that is refused.
constexpr StatusHostTraits plasma{.presentation = Presentation::badge, .opensMenu = true};
// Plasma's watcher lives in its service daemon and outlives the shell, its host; it was seen (5.27) to speak of a host
// when there was none. The shell has a host's name on the bus.
constexpr StatusHostTraits plasmaWatcher{.presentation = Presentation::badge, .opensMenu = true, .watchesOnly = true};

// The rest, among them xfce4-panel (whose plugin runs as "panel-N-systray") and lxqt-panel, show a square icon alone.
constexpr std::array knownPrograms = {
    KnownProgram{QLatin1String("gnome-shell"), gnome},
    // MATE's panel, as a process of its own (notification-area-applet) and inside the panel.
    KnownProgram{QLatin1String("notification-area-applet"), wideHost},
    KnownProgram{QLatin1String("mate-panel"), wideHost},
    KnownProgram{QLatin1String("waybar"), wideHost},
    // The application indicator services of the Ayatana project and of Unity.
    KnownProgram{QLatin1String("ayatana-indicator-application-service"), indicators},
    KnownProgram{QLatin1String("indicator-application-service"), indicators},
    KnownProgram{QLatin1String("plasmashell"), plasma},
    KnownProgram{QLatin1String("kded5"), plasmaWatcher},
    KnownProgram{QLatin1String("kded6"), plasmaWatcher},
};

// Passes the items on to the applets of several desktops, so it is the desktop that decides there.
constexpr QLatin1String goBetween("xapp-sn-watcher");

// Asked when a process cannot be seen.
constexpr std::array knownDesktops = {
    KnownProgram{QLatin1String("GNOME"), gnome},         KnownProgram{QLatin1String("MATE"), wideHost},
    KnownProgram{QLatin1String("X-Cinnamon"), wideHost}, KnownProgram{QLatin1String("Unity"), indicators},
    KnownProgram{QLatin1String("KDE"), plasma},
};

} // namespace

StatusHostTraits traitsOfProcess(const QString& processName) {
    const auto program = std::find_if(knownPrograms.cbegin(), knownPrograms.cend(), [&](const KnownProgram& known) {
        return processName == known.name.left(longestProcessName);
    });
    return program == knownPrograms.cend() ? StatusHostTraits() : program->traits;
}

StatusHostTraits traitsOfDesktop(const QString& currentDesktop) {
    for (const QString& name : currentDesktop.split(QLatin1Char(':'))) {
        const auto desktop = std::find_if(knownDesktops.cbegin(), knownDesktops.cend(),
                                          [&](const KnownProgram& known) { return name == known.name; });
        if (desktop != knownDesktops.cend()) {
            return desktop->traits;
        }
    }
    return {};
}

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
      presentation_(traitsOfDesktop(environment_.currentDesktop).presentation) {}

void StatusHostMonitor::start() {
    // Hosts bear their process id in their name, so their whole family is watched.
    nameWatcher_ = std::make_unique<QDBusServiceWatcher>(QStringLiteral("org.kde*"), connection_,
                                                         QDBusServiceWatcher::WatchForOwnerChange);
    connect(nameWatcher_.get(), &QDBusServiceWatcher::serviceOwnerChanged, this, [this](const QString& name) {
        if (name == watcherName) {
            forgetWatcher();
        }
        if (name == watcherName || name.startsWith(hostPrefix)) {
            lookAnew();
        }
    });
    for (const QString& signal :
         {QStringLiteral("StatusNotifierHostRegistered"), QStringLiteral("StatusNotifierHostUnregistered")}) {
        connection_.connect(QString(), watcherPath(), QString(watcherName), signal, this, SLOT(lookAnew()));
    }
    lookAnew();
}

StatusHostTraits StatusHostMonitor::traitsOfConnection(const QString& connectionName) const {
    const auto known = traits_.constFind(connectionName);
    return known != traits_.cend() ? *known : traitsOfDesktop(environment_.currentDesktop);
}

// A watcher that gives its name up and takes it again knows no items, though it is the same connection as before.
void StatusHostMonitor::forgetWatcher() {
    watcherIsAlone_ = false;
    if (!watcherOwner_.isEmpty()) {
        watcherOwner_.clear();
        Q_EMIT changed();
    }
}

void StatusHostMonitor::lookAnew() {
    auto look = std::make_shared<Look>();
    currentLook_ = look;
    ask(QStringLiteral("ListNames"), {}, look, [this, look](const QVariantList& answer) {
        const QStringList names = answer.value(0).toStringList();
        for (const QString& name : names) {
            if (name == watcherName || name.startsWith(hostPrefix)) {
                askForOwner(name, look);
            }
        }
    });
}

void StatusHostMonitor::askForOwner(const QString& name, const std::shared_ptr<Look>& look) {
    ask(QStringLiteral("GetNameOwner"), {name}, look, [this, name, look](const QVariantList& answer) {
        const QString owner = answer.value(0).toString();
        if (owner.isEmpty()) {
            return;
        }
        if (name == watcherName) {
            look->watcherOwner = owner;
        } else {
            look->hostOwners.insert(owner);
        }
        askForProcess(owner, look);
    });
}

void StatusHostMonitor::askForProcess(const QString& owner, const std::shared_ptr<Look>& look) {
    ask(QStringLiteral("GetConnectionUnixProcessID"), {owner}, look, [this, owner, look](const QVariantList& answer) {
        look->traits.insert(owner, traitsOfProcessId(answer.value(0).toUInt()));
    });
}

StatusHostTraits StatusHostMonitor::traitsOfProcessId(uint processId) const {
    const QString name = processId == 0 ? QString() : environment_.processName(processId);
    return name.isEmpty() || name == goBetween ? traitsOfDesktop(environment_.currentDesktop) : traitsOfProcess(name);
}

void StatusHostMonitor::ask(const QString& method, const QVariantList& arguments, const std::shared_ptr<Look>& look,
                            std::function<void(const QVariantList& answer)> take) {
    QDBusMessage call =
        QDBusMessage::createMethodCall(QStringLiteral("org.freedesktop.DBus"), QStringLiteral("/org/freedesktop/DBus"),
                                       QStringLiteral("org.freedesktop.DBus"), method);
    call.setArguments(arguments);
    ++look->pendingAnswers;
    auto* answer = new QDBusPendingCallWatcher(connection_.asyncCall(call), this);
    connect(answer, &QDBusPendingCallWatcher::finished, this, [this, answer, look, take = std::move(take)] {
        answer->deleteLater();
        if (look != currentLook_) {
            return;
        }
        // An error has no arguments that mean anything: the name has gone since, which the name watcher tells as well.
        take(answer->isError() ? QVariantList() : answer->reply().arguments());
        if (--look->pendingAnswers == 0) {
            finish(look);
        }
    });
}

void StatusHostMonitor::finish(const std::shared_ptr<Look>& finished) {
    const Look& look = *finished;
    traits_ = look.traits;
    // Where hosts are known they decide, else the watcher, which then shows the items itself. Every host can show a
    // badge; so with several hosts another way is chosen only where it is that of all of them.
    const QSet<QString> deciding = look.hostOwners.isEmpty() ? QSet<QString>{look.watcherOwner} : look.hostOwners;
    const Presentation first = traitsOfConnection(*deciding.cbegin()).presentation;
    const bool allAlike = std::all_of(deciding.cbegin(), deciding.cend(), [&](const QString& owner) {
        return traitsOfConnection(owner).presentation == first;
    });
    const Presentation presentation = allAlike ? first : Presentation::badge;
    const bool isWithoutHostNames = !look.watcherOwner.isEmpty() && look.hostOwners.isEmpty();
    const bool asksForHosts = isWithoutHostNames && !traitsOfConnection(look.watcherOwner).watchesOnly;
    const bool alone = isWithoutHostNames && (!asksForHosts || watcherIsAlone_);
    const bool same = presentation == presentation_ && look.watcherOwner == watcherOwner_ && alone == watcherIsAlone_;
    presentation_ = presentation;
    watcherOwner_ = look.watcherOwner;
    watcherIsAlone_ = alone;
    if (asksForHosts) {
        // Not part of the look itself, whose result must not wait for a program that may be slow to answer.
        askWatcherForHosts(finished);
    }
    if (!same) {
        Q_EMIT changed();
    }
}

void StatusHostMonitor::askWatcherForHosts(const std::shared_ptr<Look>& look) {
    QDBusMessage question = QDBusMessage::createMethodCall(
        look->watcherOwner, watcherPath(), QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Get"));
    question.setArguments({QString(watcherName), QStringLiteral("IsStatusNotifierHostRegistered")});
    auto* answer = new QDBusPendingCallWatcher(connection_.asyncCall(question), this);
    connect(answer, &QDBusPendingCallWatcher::finished, this, [this, answer, look] {
        answer->deleteLater();
        const QDBusPendingReply<QDBusVariant> reply = *answer;
        if (look == currentLook_) {
            // A watcher that does not say is taken for its own host.
            setWatcherAlone(!reply.isError() && reply.value().variant() == QVariant(false));
        }
    });
}

void StatusHostMonitor::setWatcherAlone(bool alone) {
    if (alone != watcherIsAlone_) {
        watcherIsAlone_ = alone;
        Q_EMIT changed();
    }
}

} // namespace skylet

#pragma once

#include <QDBusConnection>
#include <QObject>
#include <QString>
#include <QTimer>

#include <chrono>

namespace skylet {

/// How long a registration is given, and how often it is repeated.
struct SniRegistrationLimits {
    /// A host that shows the item reads its menu at once. GNOME's AppIndicator extension was seen to lose an item that
    /// registered while the shell was starting; when the menu has not been read by then, the item registers again.
    std::chrono::milliseconds layoutTimeout{3000};
    /// One minute in all. By then the slowest desktop has started; a host that has not read the menu never will, and
    /// trying for ever would only keep the machine awake.
    int maximumTries = 20;
};

/// Makes the item known to the watcher: registers it with each new owner of the watcher's name, whether a host is there
/// yet or not, and again where that seems to have been lost. The objects behind it have to be exported before. Never
/// blocks.
class SniRegistration final : public QObject {
    Q_OBJECT

  public:
    /// What a watcher is like.
    struct Watcher {
        /// The connection that owns the watcher's name; empty: there is none.
        QString owner;
        /// Its host reads the menu of every item as soon as it knows the item.
        bool readsLayout = false;
        /// It does best with the name of the item's connection instead of a name of the item's own.
        bool prefersConnectionName = false;
    };

    SniRegistration(QDBusConnection connection, SniRegistrationLimits limits);

    void setWatcher(const Watcher& watcher);
    /// A host has read the menu.
    void layoutRead() { layoutRead_ = true; }
    /// The name under which the item is, or is about to be, registered.
    QString serviceName() const;
    const QString& watcherOwner() const { return watcher_.owner; }

  private:
    void claimName();
    void registerItem();
    void tryAgainLater();
    void tryAgainIfLost();

    QDBusConnection connection_;
    SniRegistrationLimits limits_;
    Watcher watcher_;
    /// The item's own name; empty until it is claimed, and when somebody else has it.
    QString ownName_;
    bool layoutRead_ = false;
    bool refused_ = false;
    int tries_ = 0;
    QTimer timer_;
};

} // namespace skylet

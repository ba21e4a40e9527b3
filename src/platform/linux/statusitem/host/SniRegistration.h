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

/// Makes the item known to the watcher, under the name of its connection: registers it with each new owner of the
/// watcher's name, whether a host is there yet or not, and again where that seems to have been lost. The objects behind
/// it have to be exported before. Never blocks.
class SniRegistration final : public QObject {
    Q_OBJECT

  public:
    SniRegistration(QDBusConnection connection, SniRegistrationLimits limits);

    /// `owner`: the connection that owns the watcher's name; empty: there is none. `readsLayout`: the host behind it
    /// reads the menu of every item as soon as it knows the item.
    void setWatcher(const QString& owner, bool readsLayout);
    /// A host has read the menu.
    void layoutRead() { layoutRead_ = true; }

  Q_SIGNALS:
    /// The watcher is about to be told of the item, for the first time or once more.
    void registering();

  private: // NOLINT(readability-redundant-access-specifiers): the one above is moc's
    void registerItem();
    void tryAgainLater();
    void tryAgainIfLost();

    QDBusConnection connection_;
    SniRegistrationLimits limits_;
    QString watcher_;
    bool readsLayout_ = false;
    bool layoutRead_ = false;
    bool refused_ = false;
    int tries_ = 0;
    QTimer timer_;
};

} // namespace skylet

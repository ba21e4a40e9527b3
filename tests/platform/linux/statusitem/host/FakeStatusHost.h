#pragma once

#include "support/Timing.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVirtualObject>
#include <QStringList>
#include <QVariantMap>

#include <chrono>
#include <functional>
#include <map>
#include <optional>

namespace skylet {

namespace test {

/// About how large the messages of a test are that are as large as the bus carries them: an array has 64 MB at most.
/// Fewer where others want the machine, too.
inline qsizetype largestMegabytes() {
    return runsAlone() ? 60 : 1;
}

} // namespace test

/// A StatusNotifierWatcher and the host behind it, on a connection of its own: takes registrations, counts the signals
/// of items, and calls them as a panel does.
class FakeStatusHost final : public QDBusVirtualObject {
    Q_OBJECT

  public:
    /// How the watcher answers a registration.
    enum class Manner { accepts, refuses, refusesLate, isSilent };

    explicit FakeStatusHost(QDBusConnection connection, Manner manner = Manner::accepts);
    ~FakeStatusHost() override;
    FakeStatusHost(const FakeStatusHost&) = delete;
    FakeStatusHost& operator=(const FakeStatusHost&) = delete;
    FakeStatusHost(FakeStatusHost&&) = delete;
    FakeStatusHost& operator=(FakeStatusHost&&) = delete;

    /// Takes the watcher's name; items hear of it.
    void appear();
    void disappear();
    void setManner(Manner manner) { manner_ = manner; }
    /// What it answers when it is asked for hosts; absent: an error.
    std::optional<bool> saysHostIsRegistered;
    /// Says that a host has come or gone.
    void tellOfHosts();
    /// Says only that its properties have changed.
    void tellOfProperties();
    /// Runs in the middle of a registration.
    std::function<void()> onRegistration;

    /// How long it thinks before it refuses late.
    static constexpr std::chrono::milliseconds hesitation{200};

    const QDBusConnection& connection() const { return connection_; }
    /// What items called themselves, in the order of their registrations.
    const QStringList& registrations() const { return registrations_; }
    /// As if the item of that connection had registered.
    void takeItem(const QString& name) { registrations_.append(name); }
    /// The bus name of the item registered last.
    QString item() const { return registrations_.isEmpty() ? QString() : registrations_.last(); }

    /// How often a signal has come from an item or its menu.
    int count(const QString& signal) const { return static_cast<int>(signals_.count(signal)); }
    int countAll() const { return static_cast<int>(signals_.size()); }
    /// The arguments of the last signal of that name.
    QVariantList last(const QString& signal) const;
    void forgetSignals() { signals_.clear(); }
    /// Returns when everything that items have to tell by now has arrived.
    void settle();

    QDBusMessage call(const QString& path, const QString& interface, const QString& method,
                      const QVariantList& arguments) const;
    QDBusMessage callItem(const QString& method, const QVariantList& arguments = {}) const;
    QDBusMessage callMenu(const QString& method, const QVariantList& arguments = {}) const;
    /// Absent from the map: the item does not have it.
    QVariantMap itemProperties() const;
    QDBusMessage itemProperty(const QString& name) const;

    QString introspect(const QString& path) const override;
    bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override;

  private:
    Q_SLOT void takeSignal(const QDBusMessage& message);

    QDBusConnection connection_;
    Manner manner_;
    QStringList registrations_;
    std::multimap<QString, QVariantList> signals_;
};

} // namespace skylet

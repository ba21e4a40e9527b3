#pragma once

#include <QDBusConnection>
#include <QProcess>
#include <QStringList>
#include <QTemporaryDir>

#include <chrono>
#include <functional>

namespace skylet {

/// A message bus of a test's own, with nothing on it but what the test puts there.
class PrivateBus {
  public:
    PrivateBus();
    ~PrivateBus();
    PrivateBus(const PrivateBus&) = delete;
    PrivateBus& operator=(const PrivateBus&) = delete;
    PrivateBus(PrivateBus&&) = delete;
    PrivateBus& operator=(PrivateBus&&) = delete;

    /// A new connection, closed with the bus at the latest.
    QDBusConnection connect();
    /// Ends the connection of that QDBusConnection::name(), of which no copy may be left.
    static void disconnect(const QString& name);
    /// The bus dies and takes all connections with it.
    void kill();

  private:
    QTemporaryDir folder_;
    QProcess daemon_;
    QStringList connections_;
};

/// Runs the event loop until `reached`; false when that has not come about after `limit`.
bool waitUntil(const std::function<bool()>& reached, std::chrono::milliseconds limit = std::chrono::seconds(5));

/// Sends a call and runs the event loop until its answer is there.
QDBusMessage callAndWait(const QDBusConnection& from, const QDBusMessage& call);

} // namespace skylet

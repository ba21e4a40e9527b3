#pragma once

#include <QDBusConnection>
#include <QDBusMessage>
#include <QProcess>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

namespace skylet::test {

/// A message bus with a real daemon that nobody else knows, with nothing on it but what the test puts there. It ends
/// with the object.
class PrivateBus {
  public:
    PrivateBus();
    ~PrivateBus();
    PrivateBus(const PrivateBus&) = delete;
    PrivateBus& operator=(const PrivateBus&) = delete;
    PrivateBus(PrivateBus&&) = delete;
    PrivateBus& operator=(PrivateBus&&) = delete;

    bool isRunning() const { return !address_.isEmpty(); }
    const QString& address() const { return address_; }
    /// A new connection, closed with the bus at the latest.
    QDBusConnection connect();
    /// Ends the connection of that QDBusConnection::name(), of which no copy may be left.
    static void disconnect(const QString& name);
    /// The bus dies and takes all connections with it.
    void kill();

  private:
    const QTemporaryDir folder_;
    QProcess daemon_;
    QString address_;
    QStringList connections_;
};

/// Whether somebody owns `service`, as the bus tells the owner of `bus`.
bool isOnBus(const QDBusConnection& bus, const QString& service);

/// Sends a call and runs the event loop until its answer is there, which is an error where none comes in 25 s.
QDBusMessage callAndWait(const QDBusConnection& from, const QDBusMessage& call);

} // namespace skylet::test

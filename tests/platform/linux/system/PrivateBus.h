#pragma once

#include <QDBusConnection>
#include <QProcess>
#include <QString>
#include <QTemporaryDir>

namespace skylet::test {

/// A message bus that nobody else knows, with a real daemon. It ends with the object.
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
    /// A connection of its own for each `name`.
    QDBusConnection connect(const char* name) const;
    /// Ends the daemon; everybody's connections break.
    void stop();

  private:
    const QTemporaryDir folder_;
    QProcess daemon_;
    QString address_;
};

/// Whether somebody owns `service`, as the bus tells the owner of `bus`.
bool isOnBus(const QDBusConnection& bus, const QString& service);

} // namespace skylet::test

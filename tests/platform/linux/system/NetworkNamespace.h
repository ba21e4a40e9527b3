#pragma once

#include "platform/linux/system/FileDescriptor.h"

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <memory>

namespace skylet::test {

/// A fresh network namespace with nothing in it but a loopback that is down. The process lives in it while the object
/// does; the namespace goes with the last of its users. Without root it takes a user namespace to get there, which the
/// process then stays in.
class NetworkNamespace {
  public:
    /// Null when none can be made here; `reason` then says why.
    static std::unique_ptr<NetworkNamespace> enter(QString& reason);
    ~NetworkNamespace();
    NetworkNamespace(const NetworkNamespace&) = delete;
    NetworkNamespace& operator=(const NetworkNamespace&) = delete;
    NetworkNamespace(NetworkNamespace&&) = delete;
    NetworkNamespace& operator=(NetworkNamespace&&) = delete;

    /// Runs ip(8) with the words of `command`. False when it refused.
    bool ip(const char* command) const;
    /// Runs the commands, one per line, in one process. Goes on after those that are refused.
    void batch(const QByteArray& commands) const;
    /// Adds a pair of links, NAME and NAME-far, both up, NAME with the addresses 10.N.0.1/24 and fd00:N::1/64.
    void addUplink(const char* name, int number) const;

  private:
    explicit NetworkNamespace(FileDescriptor outside) : outside_(std::move(outside)) {}

    FileDescriptor outside_;
};

} // namespace skylet::test

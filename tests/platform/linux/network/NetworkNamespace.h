#pragma once

#include "platform/linux/system/FileDescriptor.h"

#include <QByteArray>
#include <QProcess>
#include <QString>
#include <QStringList>
#include <QTemporaryFile>

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
    /// Adds a pair of links, NAME and NAME-far, both up, NAME with the addresses 10.N.0.1/24 and fd00:N::1/64. Nothing
    /// happens to them later by itself, as it would to link-local addresses.
    void addUplink(const char* name, int number) const;
    /// Adds so many links that the kernel needs several datagrams to tell of them.
    void addManyLinks(int count = 60) const;
    /// For links that are added from now on.
    void disableIPv6() const;

  private:
    explicit NetworkNamespace(FileDescriptor outside) : outside_(std::move(outside)) {}

    FileDescriptor outside_;
};

/// Adds and removes links in the present namespace as fast as it can while it lives.
class LinkChurn {
  public:
    LinkChurn();
    ~LinkChurn();
    LinkChurn(const LinkChurn&) = delete;
    LinkChurn& operator=(const LinkChurn&) = delete;
    LinkChurn(LinkChurn&&) = delete;
    LinkChurn& operator=(LinkChurn&&) = delete;

    bool isUnderWay() { return process_.state() == QProcess::Running && !process_.waitForFinished(0); }

  private:
    QTemporaryFile commands_;
    QProcess process_;
};

/// Holds, again and again while it lives, the lock that the kernel takes whenever somebody sets up, removes or lists
/// interfaces, in whatever namespace: for some tenths of a second each time, by removing many links at once.
class KernelLockContention {
  public:
    KernelLockContention();
    ~KernelLockContention();
    KernelLockContention(const KernelLockContention&) = delete;
    KernelLockContention& operator=(const KernelLockContention&) = delete;
    KernelLockContention(KernelLockContention&&) = delete;
    KernelLockContention& operator=(KernelLockContention&&) = delete;

  private:
    QProcess process_;
};

} // namespace skylet::test

#pragma once

#include "PrivateSystem.h"
#include "SilentSocket.h"

#include <QFile>
#include <QTemporaryDir>

#include <memory>

namespace skylet::test {

/// While it lives, names are looked up at a server that never answers. Each look-up gives up after a second. Wants a
/// PrivateSystem.
class DeadNames {
  public:
    DeadNames() {
        QFile resolver(folder_.filePath(QStringLiteral("resolv.conf")));
        EXPECT_TRUE(resolver.open(QIODevice::WriteOnly));
        resolver.write("nameserver 127.0.0.1\noptions timeout:1 attempts:1\n");
        resolver.close();
        configuration_ = std::make_unique<Replacement>(QStringLiteral("/etc/resolv.conf"), resolver.fileName());
        EXPECT_TRUE(configuration_->isInPlace());
    }

  private:
    QTemporaryDir folder_;
    std::unique_ptr<Replacement> configuration_;
    SilentSocket nameServer_{SOCK_DGRAM, 53};
};

} // namespace skylet::test

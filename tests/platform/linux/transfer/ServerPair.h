#pragma once

#include "PrivateSystem.h"
#include "SpeedServer.h"

#include <memory>

namespace skylet::test {

/// A server that can be told to misbehave and one beside it that never does, for all the cases of a suite.
struct ServerPair {
    /// Absent where this process can have no network of its own.
    static std::unique_ptr<ServerPair> make() {
        return PrivateSystem::enter() ? nullptr : std::make_unique<ServerPair>();
    }

    SpeedServer bad;
    std::unique_ptr<SpeedServer> good = SpeedServer::beside(bad);
};

} // namespace skylet::test

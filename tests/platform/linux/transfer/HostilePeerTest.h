#pragma once

#include "Hostilities.h"
#include "PeerWatch.h"
#include "SpeedServer.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace skylet::test {

/// What a test is called after.
inline std::string hostileName(const testing::TestParamInfo<Hostile>& hostile) {
    return hostile.param.name;
}

/// One server that misbehaves, and one beside it that does not.
class HostilePeerTest : public testing::TestWithParam<Hostile>, protected PeerWatch {
  protected:
    void SetUp() override;

    /// Whether the hostile server has not come to its flood yet, on a busy machine because a request came too late.
    bool lacksItsFlood() const { return GetParam().isEndless() && hostile->flooded() == 0; }
    /// From here on the hostile server is.
    void beginHostility();
    /// From here on it is well again, as far as new connections are concerned.
    void endHostility();

    std::unique_ptr<SpeedServer> hostile;
    std::unique_ptr<SpeedServer> good;
};

} // namespace skylet::test

#pragma once

#include "Hostility.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace skylet::test {

/// Where in its conversation a connection is when it begins to flood.
struct FloodPlace {
    bool isHttp2 = false;
    /// HTTP/2: the request that waits for its answer, or 0; and the newest that has had one, or 0.
    std::int32_t open = 0;
    std::int32_t closed = 0;
    /// The answer's head has been sent.
    bool isAnswering = false;
};

/// Pieces of HTTP without end, and what has to go before the first of them. Hands them out in batches, since the
/// smallest ones, sent one by one, would cost the server more than the client.
class Flood {
  public:
    /// Throws std::invalid_argument where the protocol has no flood of this name.
    Flood(const Hostility& hostility, const FloodPlace& place);

    /// Appends the next batch; nothing once there have been as many as were wanted.
    void produce(std::string& out);
    bool isOver() const { return left_ == 0; }

  private:
    std::string unit_;
    std::string before_;
    /// Several units.
    std::string batch_;
    std::int64_t unitsInBatch_ = 0;
    /// Negative: without end.
    std::int64_t left_;
};

} // namespace skylet::test

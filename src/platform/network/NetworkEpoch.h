#pragma once

#include <cstdint>

namespace skylet {

/// Counts the networks the program has lived through. A monitor advances it when the network may be another one
/// (packets leave by another route, the system woke up); a transport that finds it advanced throws away what it kept
/// from before.
class NetworkEpoch {
  public:
    std::uint64_t current() const { return current_; }
    void advance() { ++current_; }

  private:
    std::uint64_t current_ = 0;
};

} // namespace skylet

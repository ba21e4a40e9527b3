#pragma once

#include <cstdint>
#include <random>
#include <string>

namespace skylet::test {

/// Changes bytes at random: the same ones in the same way for the same seed.
class Mutator {
  public:
    explicit Mutator(std::uint32_t seed) : random_(seed) {}

    void change(std::string& bytes);

  private:
    void changeOnce(std::string& bytes);
    std::size_t below(std::size_t limit);

    std::mt19937 random_;
};

} // namespace skylet::test

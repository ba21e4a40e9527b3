#pragma once

#include "support/Timing.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <deque>
#include <iostream>
#include <random>
#include <sstream>
#include <string>

namespace skylet::test {

/// A long random sequence of events for a test that compares its subject with the rules after each of them. The seed is
/// printed; SKYLET_MODEL_SEED in the environment repeats a run, SKYLET_MODEL_EVENTS (or `countVariable`) gives it
/// another length. Without that variable it is `longCount` where the test has the machine to itself.
class RandomEvents {
  public:
    explicit RandomEvents(std::size_t usualCount, std::size_t longCount = 1'000'000,
                          const char* countVariable = "SKYLET_MODEL_EVENTS")
        : count_(fromEnvironment(countVariable, runsAlone() ? longCount : usualCount)),
          seed_(fromEnvironment("SKYLET_MODEL_SEED", std::random_device()())), generator_(seed_) {
        std::cout << "SKYLET_MODEL_SEED=" << seed_ << ' ' << countVariable << '=' << count_ << std::endl;
    }

    // Not the distributions of <random>, which differ from library to library.
    std::size_t below(std::size_t limit) { return static_cast<std::size_t>(generator_() % limit); }
    bool oneIn(std::size_t count) { return below(count) == 0; }

    template <typename List>
    auto& anyOf(List& list) {
        return list[below(list.size())];
    }

    /// `step` makes one event happen, compares, and gives the event's name. Ends with the first failure, and then tells
    /// what led to it.
    template <typename Step>
    void run(Step step) {
        std::deque<const char*> last;
        std::size_t number = 0;
        for (; number < count_ && !testing::Test::HasFailure(); ++number) {
            last.push_back(step());
            if (last.size() > namesToTell) {
                last.pop_front();
            }
        }
        if (testing::Test::HasFailure()) {
            std::ostringstream names;
            for (const char* name : last) {
                names << "\n  " << name;
            }
            ADD_FAILURE() << "SKYLET_MODEL_SEED=" << seed_ << ", event " << number << ", the last ones:" << names.str();
        }
    }

  private:
    static constexpr std::size_t namesToTell = 20;

    static std::uint64_t fromEnvironment(const char* name, std::uint64_t usual) {
        const char* text = std::getenv(name);
        return text == nullptr ? usual : std::stoull(text);
    }

    const std::size_t count_;
    const std::uint64_t seed_;
    std::mt19937_64 generator_;
};

} // namespace skylet::test

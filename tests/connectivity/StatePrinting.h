#pragma once

#include "connectivity/ConnectionState.h"

#include <array>
#include <cstddef>
#include <ostream>

namespace skylet {

/// How a failed expectation shows a state.
inline void PrintTo(const ConnectionState& state, std::ostream* out) {
    static constexpr std::array names = {"online", "checking", "offline", "paused"};
    *out << names.at(static_cast<std::size_t>(state.kind()));
    if (state.kind() == ConnectionState::Kind::online) {
        *out << '(' << state.latency() << ')';
    }
}

} // namespace skylet

#pragma once

#include "platform/linux/system/SystemClock.h"
#include "platform/linux/transfer/names/NameResolver.h"

#include <memory>

namespace skylet::test {

/// A resolver as the program has it.
inline std::shared_ptr<NameResolver> systemNames(const std::shared_ptr<const NetworkEpoch>& epoch) {
    return std::make_shared<NameResolver>(std::make_shared<SystemClock>(), epoch);
}

} // namespace skylet::test

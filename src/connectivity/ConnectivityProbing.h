#pragma once

#include "platform/Cancellation.h"

#include <QUrl>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

namespace skylet {

/// Asks one endpoint once whether the internet is there. Retrying and judging belong to the engine.
class ConnectivityProbing {
  public:
    /// The response time in whole milliseconds (at least 1), or nothing on failure of any kind.
    using Completion = std::function<void(std::optional<std::int64_t> latency)>;

    virtual ~ConnectivityProbing() = default;
    /// Starts one probe of `url`. `completion` is called once, on the main thread, possibly before this returns, and
    /// possibly (with nothing) after the returned handle was cancelled. Never returns null.
    virtual std::shared_ptr<Cancellation> probe(const QUrl& url, Completion completion) = 0;
};

} // namespace skylet

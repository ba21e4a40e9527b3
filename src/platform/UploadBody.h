#pragma once

#include <cstddef>
#include <memory>

namespace skylet {

/// Bytes to send, held in memory until the last copy of this goes.
struct UploadBody {
    std::shared_ptr<const std::byte> bytes;
    std::size_t size = 0;
};

/// A body of `size` zero bytes that, as long as it is only read, takes address space but no memory.
UploadBody zeroBody(std::size_t size);

} // namespace skylet

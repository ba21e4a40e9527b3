#pragma once

#include <cstddef>
#include <memory>

namespace skylet {

/// Bytes to send, held in memory until the last copy of this goes.
struct UploadBody {
    std::shared_ptr<const std::byte> bytes;
    std::size_t size = 0;
};

/// `size` zero bytes that cannot be written to. Reading them costs no memory: the kernel shows its one page of zeros
/// for each of them. Stops the program when there is no room for them in the address space.
UploadBody zeroBody(std::size_t size);

} // namespace skylet

#include "platform/UploadBody.h"

#include <cstdlib>
#include <new>

namespace skylet {

UploadBody zeroBody(std::size_t size) {
    // Unlike a container, calloc does not touch what the kernel hands out zeroed: read, all pages are one and the same.
    auto* bytes = static_cast<const std::byte*>(std::calloc(size, 1));
    if (bytes == nullptr) {
        throw std::bad_alloc();
    }
    const auto release = [](const std::byte* memory) { std::free(const_cast<std::byte*>(memory)); };
    return {std::shared_ptr<const std::byte>(bytes, release), size};
}

} // namespace skylet

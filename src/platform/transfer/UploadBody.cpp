#include "platform/transfer/UploadBody.h"

#include <QtGlobal>

#include <sys/mman.h>

namespace skylet {

// Not from calloc: it hands out memory that was in use before, which it has to clear and so to occupy.
UploadBody zeroBody(std::size_t size) {
    if (size == 0) {
        return {};
    }
    void* const pages = ::mmap(nullptr, size, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (pages == MAP_FAILED) {
        qFatal("no room for a body of %zu bytes", size);
    }
    // One fault for every 2 MB instead of every 4 KB, where the kernel has its zeros in that size too.
    ::madvise(pages, size, MADV_HUGEPAGE);
    const auto release = [size](const std::byte* bytes) { ::munmap(const_cast<std::byte*>(bytes), size); };
    return {std::shared_ptr<const std::byte>(static_cast<const std::byte*>(pages), release), size};
}

} // namespace skylet

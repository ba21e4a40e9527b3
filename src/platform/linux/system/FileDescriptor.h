#pragma once

#include <unistd.h>

#include <utility>

namespace skylet {

/// Owns a file descriptor and closes it.
class FileDescriptor {
  public:
    FileDescriptor() = default;
    explicit FileDescriptor(int descriptor) : descriptor_(descriptor) {}
    ~FileDescriptor() {
        if (isValid()) {
            close(descriptor_);
        }
    }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    FileDescriptor(FileDescriptor&& other) noexcept : descriptor_(std::exchange(other.descriptor_, none)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        std::swap(descriptor_, other.descriptor_);
        return *this;
    }

    bool isValid() const { return descriptor_ != none; }
    int get() const { return descriptor_; }

  private:
    static constexpr int none = -1;

    int descriptor_ = none;
};

} // namespace skylet

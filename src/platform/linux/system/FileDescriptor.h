#pragma once

#include <unistd.h>

#include <utility>

namespace skylet {

/// Owns a file descriptor and closes it.
class FileDescriptor {
  public:
    FileDescriptor() = default;
    explicit FileDescriptor(int descriptor) : descriptor_(descriptor) {}
    ~FileDescriptor() { close(); }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    FileDescriptor(FileDescriptor&& other) noexcept : descriptor_(std::exchange(other.descriptor_, none)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        if (this != &other) {
            close();
            descriptor_ = std::exchange(other.descriptor_, none);
        }
        return *this;
    }

    bool isValid() const { return descriptor_ != none; }
    int get() const { return descriptor_; }

  private:
    static constexpr int none = -1;

    void close() {
        if (isValid()) {
            ::close(descriptor_);
        }
    }

    int descriptor_ = none;
};

} // namespace skylet

// Owner of one file descriptor.
#pragma once

#include <unistd.h>

#include <utility>

#include "Platform/Base/Export.h"

namespace ferrox {

/// Closes what it holds. Thread: one at a time
class FRX_EXPORT FileDescriptor {
 public:
  FileDescriptor() = default;
  explicit FileDescriptor(int descriptor) : descriptor_(descriptor) {}
  ~FileDescriptor() { reset(); }
  FileDescriptor(FileDescriptor&& other) noexcept : descriptor_(other.release()) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept {
    if (this != &other) {
      reset();
      descriptor_ = other.release();
    }
    return *this;
  }

  bool isOpen() const { return descriptor_ >= 0; }
  int get() const { return descriptor_; }
  [[nodiscard]] int release() { return std::exchange(descriptor_, -1); }
  void reset() {
    if (isOpen()) ::close(release());
  }

 private:
  int descriptor_ = -1;
};

}  // namespace ferrox

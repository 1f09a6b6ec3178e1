#pragma once

#include <unistd.h>

#include <utility>

namespace quorvel {

/// Owns a file descriptor, or none (-1), and closes it at its end. An error of close() is lost then, so files that were
/// written are flushed first.
class Descriptor {
 public:
  Descriptor() noexcept = default;
  explicit Descriptor(int descriptor) noexcept : descriptor_(descriptor) {}
  Descriptor(Descriptor&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(descriptor_, other.descriptor_);
    return *this;
  }
  ~Descriptor() {
    if (descriptor_ >= 0) ::close(descriptor_);
  }

  /// The descriptor, or -1. It stays owned by this object.
  int get() const noexcept { return descriptor_; }

  /// Hands the descriptor over: the caller closes it.
  int release() noexcept { return std::exchange(descriptor_, -1); }

  explicit operator bool() const noexcept { return descriptor_ >= 0; }

 private:
  int descriptor_ = -1;
};

}  // namespace quorvel

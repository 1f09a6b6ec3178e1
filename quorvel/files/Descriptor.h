#pragma once

#include <unistd.h>

#include <cerrno>
#include <utility>

namespace quorvel {

/// Owns a file descriptor, or none (-1). Closes it at its end; what close() reports is lost then, so files that were
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
    if (descriptor_ < 0) return;
    const int error = errno;  // still to be read by whoever gave up before this went
    ::close(descriptor_);
    errno = error;
  }

  int get() const noexcept { return descriptor_; }

  /// Hands the descriptor over: whoever gets it closes it.
  int release() noexcept { return std::exchange(descriptor_, -1); }

  explicit operator bool() const noexcept { return descriptor_ >= 0; }

 private:
  int descriptor_ = -1;
};

}  // namespace quorvel

#pragma once

#include <cerrno>
#include <functional>
#include <string_view>

#include "quorvel/files/SystemCalls.h"

namespace quorvel {

/// The system calls of a history. Each can be interrupted by something, or made to fail, just before it is made.
class HistoryCalls : public SystemCalls {
 public:
  /// Called before each call with its name; an answer other than 0 is the errno that it fails with, without being made.
  std::function<int(std::string_view call)> before = [](std::string_view) { return 0; };

  /// How many bytes at most one call writes.
  std::size_t mostWritten = static_cast<std::size_t>(-1);

  int open(int folder, const char* name, int flags, unsigned int mode) const noexcept override {
    return made("open") ? SystemCalls::open(folder, name, flags, mode) : -1;
  }
  int status(int folder, const char* name, struct stat* status) const noexcept override {
    return made("status") ? SystemCalls::status(folder, name, status) : -1;
  }
  long readAt(int file, void* bytes, std::size_t count, off_t at) const noexcept override {
    return made("readAt") ? SystemCalls::readAt(file, bytes, count, at) : -1;
  }
  long writeAt(int file, const void* bytes, std::size_t count, off_t at) const noexcept override {
    return made("writeAt") ? SystemCalls::writeAt(file, bytes, count < mostWritten ? count : mostWritten, at) : -1;
  }
  int flush(int file) const noexcept override { return made("flush") ? SystemCalls::flush(file) : -1; }
  int flushBytes(int file) const noexcept override { return made("flushBytes") ? SystemCalls::flushBytes(file) : -1; }
  int unlink(int folder, const char* name) const noexcept override {
    return made("unlink") ? SystemCalls::unlink(folder, name) : -1;
  }

 private:
  // What is done meanwhile may use a history itself.
  bool made(std::string_view call) const noexcept {
    if (isInside_) return true;
    isInside_ = true;
    const int error = before(call);
    isInside_ = false;
    errno = error;
    return error == 0;
  }

  mutable bool isInside_ = false;
};

}  // namespace quorvel

#pragma once

#include <malloc.h>
#include <unistd.h>

#include <cstddef>
#include <fstream>
#include <string>

namespace kelvane::tests {

/// Whether the memory that this process has is what its code allocated. A sanitizer's allocator keeps much more.
inline bool memoryCanBeTold() {
  const auto taken = [] { return ::mallinfo2().uordblks + ::mallinfo2().hblkhd; };
  const auto before = taken();
  std::string large;
  large.reserve(64'000'000);
  return taken() >= before + large.capacity();
}

/// The bytes of the machine's memory that this process has now.
inline std::size_t residentMemory() {
  std::size_t size = 0, resident = 0;
  std::ifstream("/proc/self/statm") >> size >> resident;
  return resident * static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
}

/// The most that it had since it started, or since `forgetPeakOfMemory`.
inline std::size_t peakOfMemory() {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with("VmHWM:")) return std::stoul(line.substr(6)) * 1024;
  }
  return 0;
}

/// False if the system does not offer it.
inline bool forgetPeakOfMemory() {
  return static_cast<bool>(std::ofstream("/proc/self/clear_refs") << "5" << std::flush);
}

}  // namespace kelvane::tests

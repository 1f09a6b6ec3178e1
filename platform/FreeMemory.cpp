#include "platform/FreeMemory.h"

#include <cstdint>
#include <cstdlib>

#if defined(__linux__) && !defined(KELVANE_PORTABLE)
#include <sys/mman.h>
#include <unistd.h>
#endif

#if defined(__GLIBC__) && !defined(KELVANE_PORTABLE)
#include <malloc.h>
#endif

namespace kelvane {

bool returnFreeMemory() noexcept {
#if defined(__GLIBC__) && !defined(KELVANE_PORTABLE)
  ::malloc_trim(0);
  return true;
#else
  return false;
#endif
}

void giveBack([[maybe_unused]] void* bytes, [[maybe_unused]] std::size_t size) noexcept {
#if defined(__linux__) && !defined(KELVANE_PORTABLE)
  const auto page = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
  const std::size_t before = -reinterpret_cast<std::uintptr_t>(bytes) % page;
  if (size < before + page) return;
  static_cast<void>(::madvise(static_cast<char*>(bytes) + before, (size - before) / page * page, MADV_DONTNEED));
#endif
}

}  // namespace kelvane

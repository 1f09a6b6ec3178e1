#include "platform/LargePages.h"

#include <cstdint>
#include <cstdlib>

#if defined(__linux__) && !defined(KELVANE_PORTABLE)
#include <sys/mman.h>
#endif

namespace kelvane {

void* allocate(std::size_t size) noexcept {
#if defined(__linux__) && !defined(KELVANE_PORTABLE) && defined(MADV_HUGEPAGE)
  constexpr std::size_t page = std::size_t{2} << 20;
  if (size >= 2 * page && size <= SIZE_MAX / 2) {
    // The end of the block is in a large page, too, if that is at least half full then.
    const std::size_t inLastPage = size % page;
    if (inLastPage >= page / 2) size += page - inLastPage;
    void* block = nullptr;
    if (::posix_memalign(&block, page, size) != 0) return nullptr;
    static_cast<void>(::madvise(block, size / page * page, MADV_HUGEPAGE));
    return block;
  }
#endif
  return std::malloc(size);
}

}  // namespace kelvane

#include "platform/FreeMemory.h"

#include <cstdlib>

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

}  // namespace kelvane

#include <cstddef>
#include <cstdlib>
#include <new>

#include "platform/LargePages.h"

// The C++ runtime's own allocation, replaced in this program, so that replies and texts of many megabytes are in large
// pages. The libraries leave that to whoever embeds them.

void* operator new(std::size_t size) {
  while (true) {
    if (void* memory = kelvane::allocate(size > 0 ? size : 1)) return memory;
    const std::new_handler handler = std::get_new_handler();
    if (handler == nullptr) throw std::bad_alloc();
    handler();
  }
}

void operator delete(void* memory) noexcept {
  std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}

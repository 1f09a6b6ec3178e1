#pragma once

#include <cstddef>

namespace kelvane {

/// Gives memory that was freed back to the system, as far as whole pages of it are free. Without this, the allocator
/// keeps such pages for later; so it is for after an unusually large use of memory. False, with nothing done, where the
/// allocator offers no such operation.
///
/// Takes time linear in the memory that the allocator keeps. May be called from several threads at once.
bool returnFreeMemory() noexcept;

/// Gives the memory in a block back to the system before the block is freed: whole pages of it, whose bytes are zero
/// then. For parts of a large block that is read once, from the start to the end. Does nothing where the system offers
/// no such operation. Several threads may call it at once.
void giveBack(void* bytes, std::size_t size) noexcept;

}  // namespace kelvane

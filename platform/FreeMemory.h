#pragma once

namespace kelvane {

/// Gives memory that was freed back to the system, as far as whole pages of it are free. Without this, the allocator
/// keeps such pages for later; so it is for after an unusually large use of memory. False, with nothing done, where the
/// allocator offers no such operation.
///
/// Takes time linear in the memory that the allocator keeps. May be called from several threads at once.
bool returnFreeMemory() noexcept;

}  // namespace kelvane

#pragma once

#include <cstddef>

namespace kelvane {

/// As std::malloc, and to be freed with std::free: null if there is no memory. A block of at least 4 MiB lies in large
/// pages, of 2 MiB, where the system has some.
///
/// Each page of memory that is touched first costs a fault: 10 MB in pages of 4 KiB cost 2,500 of them, which take
/// longer than copying 10 MB. What is touched of such a block takes up to 2 MiB of memory more than was written to it.
///
/// May be called from several threads at once.
void* allocate(std::size_t size) noexcept;

}  // namespace kelvane

#include "tests/protocol/CountedMemory.h"

#include <cerrno>
#include <cstdlib>
#include <new>

// The linker redirects every call of these functions in this program to here (see tests/CMakeLists.txt).
extern "C" {
void* __real_malloc(std::size_t size);
void* __real_realloc(void* memory, std::size_t size);
int __real_posix_memalign(void** memory, std::size_t alignment, std::size_t size);
void __real_free(void* memory);
void* __wrap_malloc(std::size_t size);
void* __wrap_realloc(void* memory, std::size_t size);
int __wrap_posix_memalign(void** memory, std::size_t alignment, std::size_t size);
void __wrap_free(void* memory);
}

namespace kelvane::tests {
namespace {

struct Count {
  bool isOn = false;
  std::size_t left = 0;
  std::size_t asked = 0;
  std::ptrdiff_t held = 0;
};

thread_local Count count;

}  // namespace

CountedMemory::CountedMemory(std::size_t pieces) noexcept {
  count = {true, pieces, 0, 0};
}

CountedMemory::~CountedMemory() {
  count.isOn = false;
}

std::size_t CountedMemory::asked() const noexcept {
  return count.asked;
}

std::ptrdiff_t CountedMemory::held() const noexcept {
  return count.held;
}

}  // namespace kelvane::tests

void* __wrap_malloc(std::size_t size) {
  using kelvane::tests::count;
  if (!count.isOn) return __real_malloc(size);
  ++count.asked;
  if (count.left == 0) return nullptr;
  --count.left;
  void* memory = __real_malloc(size);
  if (memory != nullptr) ++count.held;
  return memory;
}

// Asks for memory; what is held already stays one piece.
void* __wrap_realloc(void* memory, std::size_t size) {
  using kelvane::tests::count;
  if (!count.isOn) return __real_realloc(memory, size);
  ++count.asked;
  if (count.left == 0) return nullptr;
  --count.left;
  void* larger = __real_realloc(memory, size);
  if (larger != nullptr && memory == nullptr) ++count.held;
  return larger;
}

int __wrap_posix_memalign(void** memory, std::size_t alignment, std::size_t size) {
  using kelvane::tests::count;
  if (!count.isOn) return __real_posix_memalign(memory, alignment, size);
  ++count.asked;
  if (count.left == 0) return ENOMEM;
  --count.left;
  const int error = __real_posix_memalign(memory, alignment, size);
  if (error == 0) ++count.held;
  return error;
}

void __wrap_free(void* memory) {
  using kelvane::tests::count;
  if (count.isOn && memory != nullptr) --count.held;
  __real_free(memory);
}

// All of the operators: a sanitizer has its own, and reports memory that one kind allocates and another frees.

void* operator new(std::size_t size) {
  if (void* memory = std::malloc(size == 0 ? 1 : size)) return memory;
  throw std::bad_alloc();
}

void* operator new[](std::size_t size) {
  return ::operator new(size);
}

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return std::malloc(size == 0 ? 1 : size);
}

void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return std::malloc(size == 0 ? 1 : size);
}

void operator delete(void* memory) noexcept {
  std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}

void operator delete[](void* memory) noexcept {
  std::free(memory);
}

void operator delete[](void* memory, std::size_t) noexcept {
  std::free(memory);
}

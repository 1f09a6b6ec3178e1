#include "tests/quorvel/ScarceMemory.h"

#include <cstdlib>
#include <new>

namespace kelvane::tests {
namespace {

thread_local std::size_t left = 0;
thread_local std::size_t made = 0;

void* allocate(std::size_t size) noexcept {
  if (size > ScarceMemory::largestPiece && left > 0) return --left, ++made, nullptr;
  return std::malloc(size == 0 ? 1 : size);
}

}  // namespace

ScarceMemory::ScarceMemory(std::size_t failures) noexcept {
  left = failures;
  made = 0;
}

ScarceMemory::~ScarceMemory() {
  left = 0;
}

std::size_t ScarceMemory::failed() const noexcept {
  return made;
}

}  // namespace kelvane::tests

// All of the operators: a sanitizer has its own, and reports memory that one kind allocates and another frees.

void* operator new(std::size_t size) {
  if (void* memory = kelvane::tests::allocate(size)) return memory;
  throw std::bad_alloc();
}

void* operator new[](std::size_t size) {
  return ::operator new(size);
}

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return kelvane::tests::allocate(size);
}

void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return kelvane::tests::allocate(size);
}

void operator delete(void* memory) noexcept {
  std::free(memory);
}

void operator delete[](void* memory) noexcept {
  std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}

void operator delete[](void* memory, std::size_t) noexcept {
  std::free(memory);
}

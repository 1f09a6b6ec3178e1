#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

namespace kelvane {

/// A stack whose first `inlineCount` elements need no memory from the heap. Elements are moved as bytes and are never
/// destroyed, so it is only for types that permit that.
///
/// Used where other code would recurse: a level of nesting is an element. A push takes amortised constant time, all
/// else constant time. Belongs to one thread.
template <class Element, std::size_t inlineCount>
class ScratchStack {
 public:
  ScratchStack() = default;
  ScratchStack(const ScratchStack&) = delete;
  ScratchStack& operator=(const ScratchStack&) = delete;

  std::size_t size() const noexcept { return size_; }

  /// The element at an index, counted from the bottom. `at(size())` is permitted: the end of the elements.
  Element* at(std::size_t index) noexcept { return elements_ + index; }
  /// The last element. There must be one, here and for `pop`.
  Element& top() noexcept { return elements_[size_ - 1]; }

  /// Memory for one more element, which the caller fills. Pointers from `at` and `top` become invalid. Throws
  /// std::bad_alloc; the stack is unchanged then.
  Element* push() {
    if (size_ == capacity_) [[unlikely]] {
      grow();
    }
    return elements_ + size_++;
  }

  void pop() noexcept { --size_; }
  /// Removes the elements from that index on.
  void cut(std::size_t size) noexcept { size_ = size; }

 private:
  struct Free {
    void operator()(Element* memory) const noexcept { std::free(static_cast<void*>(memory)); }
  };

  void grow() {
    if (capacity_ > SIZE_MAX / 4 / sizeof(Element)) throw std::bad_alloc();
    auto* larger = static_cast<Element*>(std::malloc(2 * capacity_ * sizeof(Element)));
    if (larger == nullptr) throw std::bad_alloc();
    std::memcpy(static_cast<void*>(larger), elements_, size_ * sizeof(Element));
    heap_.reset(larger);
    elements_ = larger;
    capacity_ *= 2;
  }

  alignas(Element) unsigned char inline_[inlineCount * sizeof(Element)];
  std::unique_ptr<Element, Free> heap_;
  Element* elements_ = reinterpret_cast<Element*>(inline_);
  std::size_t size_ = 0;
  std::size_t capacity_ = inlineCount;
};

}  // namespace kelvane

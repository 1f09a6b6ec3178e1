#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

namespace kelvane {

/// A stack whose first `inlineCount` elements need no memory from the heap.
///
///     ScratchStack<Open, 32> open;                        // 32 levels in the stack frame
///     *open.push() = {isObject, begin};                   // a level opens
///     const bool isObject = open.top().isObject;
///     open.pop();                                         // and closes
///
/// Used where other code would recurse: a level of nesting is an element, so that no input can exhaust the stack of a
/// thread. Elements are moved as bytes and are never destroyed, so it is only for types that permit that; who destroys
/// what an element refers to is the caller's question.
///
/// A push takes amortised constant time, all else constant time. Room grows by doubling and is given back only by the
/// destructor. Only `push` throws. Belongs to one thread.
template <class Element, std::size_t inlineCount>
requires(inlineCount >= 2) class ScratchStack {
 public:
  ScratchStack() = default;
  ScratchStack(const ScratchStack&) = delete;
  ScratchStack& operator=(const ScratchStack&) = delete;

  /// How many elements there are.
  std::size_t size() const noexcept { return static_cast<std::size_t>(end_ - elements_); }

  /// The element at an index, counted from the bottom. `at(size())` is permitted: the end of the elements.
  Element* at(std::size_t index) noexcept { return elements_ + index; }
  /// The last element. There must be one, here and for `pop`.
  Element& top() noexcept { return end_[-1]; }

  /// Memory for one more element, which the caller fills. Pointers from `at` and `top` become invalid. Throws
  /// std::bad_alloc; the stack is unchanged then.
  Element* push() {
    if (end_ == limit_) [[unlikely]] {
      grow();
    }
    return end_++;
  }

  void pop() noexcept { --end_; }
  /// Removes the elements from that index on.
  void cut(std::size_t size) noexcept { end_ = elements_ + size; }

 private:
  struct Free {
    void operator()(Element* memory) const noexcept { std::free(static_cast<void*>(memory)); }
  };

  void grow() {
    const auto capacity = static_cast<std::size_t>(limit_ - elements_);
    if (capacity > SIZE_MAX / 4 / sizeof(Element)) throw std::bad_alloc();
    // Half as much again, because a document of many megabytes may be nothing but nesting. The system moves the pages
    // of a large stack, so that it is never there twice.
    const std::size_t increased = capacity + capacity / 2;
    auto* larger = static_cast<Element*>(std::realloc(static_cast<void*>(heap_.get()), increased * sizeof(Element)));
    if (larger == nullptr) throw std::bad_alloc();
    if (!heap_) std::memcpy(static_cast<void*>(larger), elements_, capacity * sizeof(Element));
    static_cast<void>(heap_.release());
    heap_.reset(larger);
    elements_ = larger;
    end_ = larger + capacity;
    limit_ = larger + increased;
  }

  alignas(Element) unsigned char inline_[inlineCount * sizeof(Element)];
  std::unique_ptr<Element, Free> heap_;
  Element* elements_ = reinterpret_cast<Element*>(inline_);
  Element* end_ = elements_;
  Element* limit_ = elements_ + inlineCount;
};

}  // namespace kelvane

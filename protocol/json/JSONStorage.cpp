#include "protocol/json/JSONStorage.h"

#include <algorithm>
#include <cstdlib>

#include "platform/Unicode.h"

namespace kelvane {

bool JSON::Storage::equalStrings(const JSON& left, const JSON& right) noexcept {
  if (stringOf(left) == stringOf(right)) return true;
  // Two different ASCII strings are never equivalent.
  if (form(left) == Form::ascii && form(right) == Form::ascii) return false;
  return unicode::equivalent(stringOf(left), stringOf(right));
}

JSON::Block* JSON::Storage::newValues(std::size_t capacity) {
  if (capacity > (SIZE_MAX / 2 - sizeof(Count) - sizeof(Block)) / sizeof(JSON)) throw std::bad_alloc();
  void* memory = std::malloc(sizeof(Count) + sizeof(Block) + capacity * sizeof(JSON));
  if (memory == nullptr) throw std::bad_alloc();
  Count* count = ::new (memory) Count{1, capacity, true};
  return ::new (count + 1) Block{{nullptr}, 0};
}

JSON::Block* JSON::Storage::newString(std::string_view string) {
  void* memory = std::malloc(sizeof(Count) + sizeof(Block) + string.size());
  if (memory == nullptr) throw std::bad_alloc();
  Count* count = ::new (memory) Count{1, 0, false};
  Block* block = ::new (count + 1) Block{{nullptr}, string.size()};
  std::memcpy(block->bytes(), string.data(), string.size());
  return block;
}

bool JSON::Storage::isOwn(Block* block) noexcept {
  return block->arena == nullptr && count(block).references.load(std::memory_order_acquire) == 1;
}

void JSON::Storage::own(Block*& block, std::size_t needed) {
  if (block != nullptr && isOwn(block) && count(block).capacity >= needed) return;
  const std::size_t size = block ? block->size : 0;
  Block* fresh = newValues(needed > size ? std::max(needed, 2 * size) : needed);
  if (block != nullptr && isOwn(block)) {
    // Nobody else refers to the old block, so the values move as bytes and their counts stay as they are.
    std::memcpy(static_cast<void*>(fresh->values()), block->values(), size * sizeof(JSON));
    std::free(&count(block));
  } else if (block != nullptr) {
    for (std::size_t i = 0; i < size; ++i) ::new (fresh->values() + i) JSON(block->values()[i]);
    release(block);
  }
  fresh->size = size;
  block = fresh;
}

/// Frees a block that nothing refers to any more, and everything that only it referred to. The blocks that are still to
/// be freed form a list through their own heads, so neither the stack nor the heap is needed, however deep they nest.
void JSON::Storage::destroy(Block* block) noexcept {
  if (block->arena != nullptr) return destroy(block->arena);
  Block* dead = block;
  dead->nextDead = nullptr;
  while (dead != nullptr) {
    Block* current = std::exchange(dead, dead->nextDead);
    if (count(current).holdsValues) {
      for (std::size_t i = 0; i < current->size; ++i) {
        const JSON& value = current->values()[i];
        if (!isShared(value)) continue;
        Block* child = Storage::block(value);
        if (child == nullptr || !drop(child)) continue;
        if (child->arena != nullptr) {
          destroy(child->arena);
        } else {
          child->nextDead = std::exchange(dead, child);
        }
      }
    }
    std::free(&count(current));
  }
}

void JSON::Storage::destroy(Arena* arena) noexcept {
  Arena::Chunk* chunk = arena->chunks;
  while (chunk != nullptr) std::free(std::exchange(chunk, chunk->next));
}

}  // namespace kelvane

#pragma once

#include <algorithm>
#include <cstdlib>

#include "protocol/json/JSONStorage.h"

namespace kelvane {

/// Fills the arena of a document that is being decoded, and gives it up when it goes unless it was handed over.
class JSON::Storage::ArenaBuilder {
 public:
  /// `expected` is a guess at the bytes that will be asked for; no more than a small part of it is taken at once.
  explicit ArenaBuilder(std::size_t expected) noexcept
      : chunkSize_(std::clamp(expected, smallestChunk, largestFirstChunk)) {}
  ArenaBuilder(const ArenaBuilder&) = delete;
  ArenaBuilder& operator=(const ArenaBuilder&) = delete;
  ~ArenaBuilder() {
    if (arena_ != nullptr) destroy(arena_);
  }

  /// A block with room for `bytes` bytes and its size set to `size`.
  Block* newBlock(std::size_t size, std::size_t bytes) {
    const std::size_t needed = (sizeof(Block) + bytes + alignof(Block) - 1) / alignof(Block) * alignof(Block);
    if (needed > static_cast<std::size_t>(limit_ - at_)) [[unlikely]] {
      if (needed > chunkSize_ / 4) return newOutsized(size, needed);
      addChunk(chunkSize_);
    }
    Block* block = ::new (at_) Block{{arena_}, size};
    at_ += needed;
    return block;
  }

  /// Hands the arena over with one reference, that of a value outside it.
  void handOver() noexcept { arena_ = nullptr; }

 private:
  static constexpr std::size_t smallestChunk = 512;
  static constexpr std::size_t largestFirstChunk = std::size_t{64} << 10;
  static constexpr std::size_t largestChunk = std::size_t{1} << 20;

  /// Links a chunk in and returns its memory behind the heads.
  char* addMemory(std::size_t bytes) {
    const std::size_t heads = sizeof(Arena::Chunk) + (arena_ == nullptr ? sizeof(Arena) : 0);
    void* memory = std::malloc(heads + bytes);
    if (memory == nullptr) throw std::bad_alloc();
    auto* chunk = ::new (memory) Arena::Chunk{nullptr};
    if (arena_ == nullptr) arena_ = ::new (chunk + 1) Arena{1, nullptr};
    chunk->next = std::exchange(arena_->chunks, chunk);
    return static_cast<char*>(memory) + heads;
  }

  void addChunk(std::size_t bytes) {
    at_ = addMemory(bytes);
    limit_ = at_ + bytes;
    chunkSize_ = std::min(2 * chunkSize_, std::max(chunkSize_, largestChunk));
  }

  /// A chunk for one large block, beside the one that is being filled.
  Block* newOutsized(std::size_t size, std::size_t needed) {
    char* memory = addMemory(needed);
    return ::new (memory) Block{{arena_}, size};
  }

  Arena* arena_ = nullptr;
  char* at_ = nullptr;
  char* limit_ = nullptr;
  std::size_t chunkSize_;
};

}  // namespace kelvane

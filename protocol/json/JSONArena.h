#pragma once

#include <algorithm>

#include "platform/LargePages.h"
#include "protocol/json/JSONStorage.h"

namespace kelvane {

/// Allocates the blocks of one document while it is being decoded. Blocks are cut from chunks that double in size, so a
/// document takes few allocations, however many values it has. The destructor frees all of them, unless `handOver` was
/// called: so a text that is refused half-way leaves nothing behind.
///
/// Belongs to one thread. No block can be freed by itself.
class JSON::Storage::ArenaBuilder {
 public:
  /// `expected` is an estimate of the bytes that will be needed, such as the size of the text. It only chooses the size
  /// of the first chunk, up to 64 KiB, so a wrong estimate is harmless. Allocates nothing yet.
  explicit ArenaBuilder(std::size_t expected) noexcept
      : chunkSize_(std::clamp(expected, smallestChunk, largestFirstChunk)) {}
  ArenaBuilder(const ArenaBuilder&) = delete;
  ArenaBuilder& operator=(const ArenaBuilder&) = delete;
  ~ArenaBuilder() {
    if (arena_ != nullptr) destroy(arena_);
  }

  /// A block of the arena with room for `bytes` bytes, and with the given `size`. Takes constant time. Throws
  /// std::bad_alloc; the blocks so far stay valid then.
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

  /// Gives up the arena, which has one reference now: that of the value outside it which the caller makes next.
  void handOver() noexcept { arena_ = nullptr; }

 private:
  static constexpr std::size_t smallestChunk = 512;
  static constexpr std::size_t largestFirstChunk = std::size_t{64} << 10;
  static constexpr std::size_t largestChunk = std::size_t{1} << 20;

  /// Allocates a chunk, puts it into the list, and returns its memory after the heads.
  char* addMemory(std::size_t bytes) {
    const std::size_t heads = sizeof(Arena::Chunk) + (arena_ == nullptr ? sizeof(Arena) : 0);
    void* memory = allocate(heads + bytes);
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

  /// A block with a chunk of its own. The current chunk keeps its free space.
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

#pragma once

#include <algorithm>

#include "platform/LargePages.h"
#include "protocol/json/JSONStorage.h"

namespace kelvane {

/// Allocates the blocks of one document while it is being decoded. Blocks are cut from a few chunks, however many
/// values the document has. The destructor frees all of them, unless `handOver` was called: so a document that is
/// refused half-way leaves nothing behind.
///
/// The first chunk is small. A later one is as large as the rest of the document will need, judging by the part that
/// has been read (`readUpTo`). So little is left over at the end, and the largest chunk is most of the memory. That
/// matters for speed: the C library keeps freed memory of up to twice the largest chunk that it has seen, and what it
/// keeps has no page faults the next time. With chunks of limited size, canada.json takes 1.5 times as long.
///
/// Belongs to one thread. No block can be freed by itself.
class JSON::Storage::ArenaBuilder {
 public:
  /// For a document that is about to be read, and that outlives the builder. Allocates nothing yet: a document without
  /// blocks, such as a number, has no arena.
  explicit ArenaBuilder(std::string_view json) noexcept : json_(json), read_(json.data()) {}
  ArenaBuilder(const ArenaBuilder&) = delete;
  ArenaBuilder& operator=(const ArenaBuilder&) = delete;
  ~ArenaBuilder() {
    if (arena_ != nullptr) destroy(arena_);
  }

  /// Notes that the blocks so far are for what is before `at` in the document. A wrong place is harmless.
  void readUpTo(const char* at) noexcept { read_ = at; }

  /// A block of the arena with room for `bytes` bytes, and with the given `size`. What is in it is for the caller to
  /// write. It stays where it is as long as the arena exists. Takes constant time. Throws std::bad_alloc; the blocks so
  /// far stay valid then.
  [[gnu::always_inline]] Block* newBlock(std::size_t size, std::size_t bytes) {
    const std::size_t needed = (sizeof(Block) + bytes + alignof(Block) - 1) / alignof(Block) * alignof(Block);
    if (needed > static_cast<std::size_t>(limit_ - at_)) [[unlikely]] {
      if (!addChunkFor(needed)) return newOutsized(size, needed);
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

  /// How large the next chunk should be.
  std::size_t nextChunk() const noexcept {
    if (arena_ == nullptr) return std::clamp(json_.size(), smallestChunk, largestFirstChunk);
    const auto read = static_cast<std::size_t>(read_ - json_.data());
    const auto left = static_cast<double>(json_.size() - read);
    // An eighth more, because a second part is seldom just like the first. At most twice what is left, because that may
    // be one long string. At least an eighth of what there is, so that there are few chunks whatever is left.
    const double expected = 1.125 * static_cast<double>(allocated_) * left / static_cast<double>(read + 1);
    return std::max({smallestChunk, allocated_ / 8, static_cast<std::size_t>(std::min(expected, 2 * left))});
  }

  /// Allocates a chunk, puts it into the list, and returns its memory after the heads.
  char* addMemory(std::size_t bytes) {
    const std::size_t heads = sizeof(Arena::Chunk) + (arena_ == nullptr ? sizeof(Arena) : 0);
    void* memory = allocate(heads + bytes);
    if (memory == nullptr) throw std::bad_alloc();
    auto* chunk = ::new (memory) Arena::Chunk{nullptr};
    if (arena_ == nullptr) arena_ = ::new (chunk + 1) Arena{1, nullptr};
    chunk->next = std::exchange(arena_->chunks, chunk);
    allocated_ += bytes;
    return static_cast<char*>(memory) + heads;
  }

  /// Makes a new chunk the current one, unless a block of that size should have one of its own.
  [[gnu::noinline]] bool addChunkFor(std::size_t needed) {
    const std::size_t bytes = nextChunk();
    if (needed > bytes / 4) return false;
    at_ = addMemory(bytes);
    limit_ = at_ + bytes;
    return true;
  }

  /// A block with a chunk of its own. The current chunk keeps its free space.
  [[gnu::noinline]] Block* newOutsized(std::size_t size, std::size_t needed) {
    char* memory = addMemory(needed);
    return ::new (memory) Block{{arena_}, size};
  }

  const std::string_view json_;
  const char* read_;
  std::size_t allocated_ = 0;
  Arena* arena_ = nullptr;
  char* at_ = nullptr;
  char* limit_ = nullptr;
};

}  // namespace kelvane

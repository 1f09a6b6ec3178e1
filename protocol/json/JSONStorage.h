#pragma once

#include <atomic>
#include <cstring>
#include <new>

#include "protocol/JSON.h"

namespace kelvane {

/// What stands behind a JSON value: how its 16 bytes are read, and the storage that values share.
///
/// Storage comes in blocks. A block on its own has a count of the values that refer to it. The blocks of a decoded
/// document lie in one arena, which has one count for all of them: values outside the arena are counted, values inside
/// are not, and the arena goes as a whole. Blocks in an arena never change, and refer to blocks of that arena only.
class JSON::Storage {
 public:
  /// The lowest bits of a value's first byte.
  enum class Tag : std::uint8_t { null, boolean, number, inlineText, sharedText, array, object };
  static constexpr std::uint8_t tagMask = 7;

  /// What is known of a text's bytes; beside the tag, so that no text is looked at twice.
  enum class Form : std::uint8_t { ascii = 0, utf8 = 1 << 3, illFormed = 2 << 3 };
  static constexpr std::uint8_t formMask = 3 << 3;

  struct Arena;
  class ArenaBuilder;
  class Decoder;
  class Encoder;

  static Tag tag(const JSON& value) noexcept { return static_cast<Tag>(value.head_.tag & tagMask); }
  static Form form(const JSON& value) noexcept { return static_cast<Form>(value.head_.tag & formMask); }

  static std::uint8_t firstByte(Tag tag, Form form) noexcept {
    return static_cast<std::uint8_t>(static_cast<unsigned>(tag) | static_cast<unsigned>(form));
  }

  /// Whether the value refers to a block.
  static bool isShared(const JSON& value) noexcept { return tag(value) >= Tag::sharedText; }

  /// The block of a value that `isShared`; null for an empty array or object.
  static Block* block(const JSON& value) noexcept;

  /// The bytes of a value that is a text.
  static std::string_view text(const JSON& value) noexcept;

  /// Canonical equivalence of two values that are texts.
  static bool equalTexts(const JSON& left, const JSON& right) noexcept;

  /// Makes a value in raw memory of an arena or of a stack that is going there: it refers to its block uncounted, and
  /// its destructor must not run. `text` is kept inline and has at most `inlineCapacity` bytes.
  static void construct(JSON* slot, Tag tag, Block* block) noexcept {
    ::new (slot) JSON(firstByte(tag, Form::ascii), block);
  }
  static void constructText(JSON* slot, Form form, Block* block) noexcept;
  static void constructText(JSON* slot, Form form, std::string_view text) noexcept;

  /// A block of its own with one reference: room for that many values, or a copy of the text.
  static Block* newValues(std::size_t capacity);
  static Block* newText(std::string_view text);

  /// Makes `block` (null: an empty one) one that only the caller refers to, with room for `needed` values in all.
  static void own(Block*& block, std::size_t needed);

  static void retain(Block* block) noexcept;
  static void release(Block* block) noexcept;

 private:
  struct Count;
  static Count& count(Block* block) noexcept;
  static bool drop(Block* block) noexcept;
  static void destroy(Block* block) noexcept;
  static void destroy(Arena* arena) noexcept;
  static bool isOwn(Block* block) noexcept;
};

/// Values or the bytes of a text, behind this head.
struct JSON::Block {
  union {
    Storage::Arena* arena;  // null for a block on its own
    Block* nextDead;        // while blocks on their own are being destroyed
  };
  std::size_t size;  // values (an object has two a member, the key first), or bytes

  JSON* values() noexcept { return reinterpret_cast<JSON*>(this + 1); }
  char* bytes() noexcept { return reinterpret_cast<char*>(this + 1); }
};

/// Stands before a block on its own.
struct JSON::Storage::Count {
  std::atomic<std::size_t> references;
  std::size_t capacity;  // in values
  bool holdsValues;
};

/// The memory of one decoded document: a list of chunks, the arena itself at the start of the first.
struct JSON::Storage::Arena {
  struct Chunk {
    Chunk* next;
  };
  std::atomic<std::size_t> references;
  Chunk* chunks;  // the newest first; the last one holds the arena
};

inline JSON::Block* JSON::Storage::block(const JSON& value) noexcept {
  static_assert(offsetof(SharedText, block) == offsetof(Items, array));
  static_assert(offsetof(SharedText, block) == offsetof(Members, object));
  static_assert(sizeof(Array) == sizeof(Block*) && sizeof(Object) == sizeof(Block*));
  Block* block;
  std::memcpy(&block, reinterpret_cast<const char*>(&value) + offsetof(SharedText, block), sizeof block);
  return block;
}

inline std::string_view JSON::Storage::text(const JSON& value) noexcept {
  if (tag(value) == Tag::inlineText) return {value.inlineText_.bytes, value.head_.length};
  return {block(value)->bytes(), block(value)->size};
}

inline JSON::JSON(std::uint8_t tag, Block* block) noexcept {
  switch (static_cast<Storage::Tag>(tag & Storage::tagMask)) {
    case Storage::Tag::array:
      ::new (&items_) Items{{tag, 0}, Array(block)};
      break;
    case Storage::Tag::object:
      ::new (&members_) Members{{tag, 0}, Object(block)};
      break;
    default:
      ::new (&sharedText_) SharedText{{tag, 0}, block};
  }
}

inline void JSON::Storage::constructText(JSON* slot, Form form, Block* block) noexcept {
  ::new (slot) JSON(firstByte(Tag::sharedText, form), block);
}

inline void JSON::Storage::constructText(JSON* slot, Form form, std::string_view text) noexcept {
  ::new (slot) JSON(nullptr);
  slot->head_ = {firstByte(Tag::inlineText, form), static_cast<std::uint8_t>(text.size())};
  std::memcpy(slot->inlineText_.bytes, text.data(), text.size());
}

inline void JSON::Storage::retain(Block* block) noexcept {
  if (block == nullptr) return;
  (block->arena ? block->arena->references : count(block).references).fetch_add(1, std::memory_order_relaxed);
}

inline JSON::Storage::Count& JSON::Storage::count(Block* block) noexcept {
  return *(reinterpret_cast<Count*>(block) - 1);
}

inline void JSON::Storage::release(Block* block) noexcept {
  if (block != nullptr && drop(block)) destroy(block);
}

/// Gives up one reference; true when it was the last.
inline bool JSON::Storage::drop(Block* block) noexcept {
  std::atomic<std::size_t>& references = block->arena ? block->arena->references : count(block).references;
  return references.fetch_sub(1, std::memory_order_acq_rel) == 1;
}

}  // namespace kelvane

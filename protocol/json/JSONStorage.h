#pragma once

#include <algorithm>
#include <atomic>
#include <bit>
#include <cstring>
#include <new>

#include "protocol/JSON.h"

namespace kelvane {

/// The inside of a JSON value: what its 16 bytes mean, and the storage that values share.
///
/// # The 16 bytes
///
///     byte 0            the tag (what the value is, 3 bits) and, for a string, the form of its bytes (2 bits)
///     byte 1            the length of a string that is stored inline
///     byte 2            a Bool
///     bytes 2 to 15     a string of up to 14 bytes
///     bytes 8 to 15     a number, or a pointer to a block (bytes 4 to 7 if a pointer has 32 bits)
///
/// # Blocks
///
/// A block holds a longer string's bytes, an array's values, or an object's members: key, value, key, value, sorted by
/// the canonical form of the keys. There are two kinds:
///
/// - A block on its own has a count of the values that refer to it. It may be changed if the count is 1.
/// - The blocks of a decoded document are in one arena with one count, of the values outside that refer to it. Values
///   inside are not counted, blocks in it never change, and they refer only to blocks of the same arena. So decoding is
///   a few allocations, and destroying a document is as many.
///
/// A change to what is shared, or to what is in an arena, copies the block first (`own`). The copy is a block on its
/// own whose values may still refer to the arena.
///
/// # Failure
///
/// What allocates throws std::bad_alloc, and leaves everything as it was. Nothing else throws. Values are moved with
/// memcpy, also from one block to another, so moving them cannot fail and runs no destructor.
///
/// # Threads
///
/// Counts are atomic. A new reference is taken from an existing one, so it needs no ordering; dropping one is both
/// release and acquire, so the thread that destroys a block sees all that others did with it.
class JSON::Storage {
 public:
  /// What a value is: the lowest bits of its first byte. From `sharedString` on, the value refers to a block.
  enum class Tag : std::uint8_t { null, boolean, number, inlineString, sharedString, array, object };
  static constexpr std::uint8_t tagMask = 7;

  /// What is known of a string's bytes. Stored beside the tag, so that no string is scanned twice.
  enum class Form : std::uint8_t { ascii = 0, utf8 = 1 << 3, illFormed = 2 << 3 };
  static constexpr std::uint8_t formMask = 3 << 3;

  struct Arena;
  class ArenaBuilder;  // protocol/json/JSONArena.h
  class Decoder;       // protocol/json/JSONDecoder.cpp
  class Encoder;       // protocol/json/JSONEncoder.cpp
  class SoughtKey;     // protocol/json/JSONObject.cpp

  /// What the first byte of a value says. `form` means something only for a string.
  static Tag tag(const JSON& value) noexcept { return static_cast<Tag>(value.head_.tag & tagMask); }
  static Form form(const JSON& value) noexcept { return static_cast<Form>(value.head_.tag & formMask); }

  /// The first byte of a value with that tag and, if it is a string, that form.
  static std::uint8_t firstByte(Tag tag, Form form) noexcept {
    return static_cast<std::uint8_t>(static_cast<unsigned>(tag) | static_cast<unsigned>(form));
  }

  /// Whether the value refers to a block.
  static bool isShared(const JSON& value) noexcept { return tag(value) >= Tag::sharedString; }

  /// The block of a value that `isShared`. Null for an empty array or object.
  static Block* block(const JSON& value) noexcept;

  /// The bytes of a value that is a string. The view lives as long as the value, and no longer than that stays where it
  /// is: a short string is within its value.
  static std::string_view stringOf(const JSON& value) noexcept;

  /// The first eight bytes of a string as a number that orders like them; those that it lacks count as 0. So different
  /// numbers order two strings of ASCII, and equal ones say nothing: "a" and "a\0" have the same.
  static std::uint64_t leadingBytes(const JSON& value) noexcept;
  static std::uint64_t leadingBytes(std::string_view bytes) noexcept;

  /// Whether two values that are strings are canonically equivalent.
  static bool equalStrings(const JSON& left, const JSON& right) noexcept;

  /// Constructs a value in memory of an arena, or on a stack whose content goes to an arena. Its reference to the block
  /// is not counted, so its destructor must not run. `string` is stored inline and has at most `inlineCapacity` bytes.
  static void construct(JSON* slot, Tag tag, Block* block) noexcept {
    ::new (slot) JSON(firstByte(tag, Form::ascii), block);
  }
  static void construct(JSON* slot, double number) noexcept {
    ::new (&slot->number_) Number{{firstByte(Tag::number, Form::ascii), 0}, number};
  }
  static void constructString(JSON* slot, Form form, Block* block) noexcept;
  static void constructString(JSON* slot, Form form, std::string_view string) noexcept;

  /// A new block on its own with one reference: with room for that many values, or a copy of the string. Throws
  /// std::bad_alloc.
  static Block* newValues(std::size_t capacity);
  static Block* newString(std::string_view string);

  /// Makes sure that only the caller refers to `block`, and that it has room for `needed` values in all, by copying it
  /// if necessary. Null is an empty block. Room grows by doubling. Throws std::bad_alloc; nothing is changed then.
  static void own(Block*& block, std::size_t needed);

  /// Counts one more reference, or one less; the last one frees the block, or its whole arena. Null is permitted.
  /// Freeing allocates nothing and does not recurse.
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

/// The head of a block. The values, or the bytes of a string, come right after it.
struct JSON::Block {
  union {
    Storage::Arena* arena;  // null for a block on its own
    Block* nextDead;        // while blocks on their own are being destroyed
  };
  std::size_t size;  // values (an object has two a member, the key first), or bytes

  JSON* values() noexcept { return reinterpret_cast<JSON*>(this + 1); }
  char* bytes() noexcept { return reinterpret_cast<char*>(this + 1); }
};

/// Comes right before a block on its own.
struct JSON::Storage::Count {
  std::atomic<std::size_t> references;
  std::size_t capacity;  // in values
  bool holdsValues;
};

/// The memory of one decoded document: a list of chunks. The arena itself is at the start of the first chunk.
struct JSON::Storage::Arena {
  struct Chunk {
    Chunk* next;
  };
  std::atomic<std::size_t> references;
  Chunk* chunks;  // the newest first; the last contains the arena
};

inline JSON::Block* JSON::Storage::block(const JSON& value) noexcept {
  static_assert(offsetof(SharedString, block) == offsetof(Items, array));
  static_assert(offsetof(SharedString, block) == offsetof(Members, object));
  static_assert(sizeof(Array) == sizeof(Block*) && sizeof(Object) == sizeof(Block*));
  Block* block;
  std::memcpy(&block, reinterpret_cast<const char*>(&value) + offsetof(SharedString, block), sizeof block);
  return block;
}

inline std::string_view JSON::Storage::stringOf(const JSON& value) noexcept {
  if (tag(value) == Tag::inlineString) return {value.inlineString_.bytes, value.head_.length};
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
      ::new (&sharedString_) SharedString{{tag, 0}, block};
  }
}

inline std::uint64_t JSON::Storage::leadingBytes(const JSON& value) noexcept {
  const std::string_view bytes = stringOf(value);
  // There are eight bytes: a string that is stored inline has room for them, any other is longer.
  static_assert(inlineCapacity >= sizeof(std::uint64_t));
  const std::uint64_t word = leadingBytes({bytes.data(), sizeof word});
  return bytes.size() < sizeof word ? word & ~(~std::uint64_t{0} >> 8 * bytes.size()) : word;
}

inline std::uint64_t JSON::Storage::leadingBytes(std::string_view bytes) noexcept {
  std::uint64_t word = 0;
  std::memcpy(&word, bytes.data(), std::min(bytes.size(), sizeof word));
  if constexpr (std::endian::native == std::endian::little) word = __builtin_bswap64(word);
  return word;
}

inline void JSON::Storage::constructString(JSON* slot, Form form, Block* block) noexcept {
  ::new (slot) JSON(firstByte(Tag::sharedString, form), block);
}

inline void JSON::Storage::constructString(JSON* slot, Form form, std::string_view string) noexcept {
  InlineString inlineString{{firstByte(Tag::inlineString, form), static_cast<std::uint8_t>(string.size())}, {}};
  std::memcpy(inlineString.bytes, string.data(), string.size());
  ::new (&slot->inlineString_) InlineString(inlineString);
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

/// Drops one reference. True if it was the last.
inline bool JSON::Storage::drop(Block* block) noexcept {
  std::atomic<std::size_t>& references = block->arena ? block->arena->references : count(block).references;
  return references.fetch_sub(1, std::memory_order_acq_rel) == 1;
}

}  // namespace kelvane

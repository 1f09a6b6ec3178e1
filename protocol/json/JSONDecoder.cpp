#include <algorithm>
#include <cmath>
#include <vector>

#include "platform/Unicode.h"
#include "platform/json/JSONGrammar.h"
#include "platform/json/ScratchStack.h"
#include "platform/unicode/Processor.h"
#include "protocol/json/JSONArena.h"
#include "protocol/json/JSONStorage.h"

namespace kelvane {

// How JSON becomes a value. The grammar (platform/json/JSONGrammar.h) reads the document once and tells the decoder,
// its sink, about each value. The decoder pushes each value on one stack, keys included. When an array or object
// closes, its values are the topmost ones: they move into a block of exactly their size, and the array or object
// replaces them on the stack. For {"a": [1, 2]}:
//
//     "a"                    the key
//     "a" 1 2                the values of the array
//     "a" [1, 2]             the array closes
//     {"a": [1, 2]}          the object closes
//
// So only the stack ever grows by copying, and no size is guessed. All blocks are in one arena with one count of
// references, so decoding takes a few allocations, and destroying as many.
//
// The members of an object are sorted when it closes. The first eight bytes of each key, read as one number, decide
// most comparisons. Only objects with a key beyond ASCII need canonical forms.
//
// Values on the stack and in blocks are moved as bytes, and their destructors never run: the arena owns what they refer
// to. If the document is refused, the arena is freed, and everything with it.

/// Builds the value of one document.
class JSON::Storage::Decoder {
 public:
  explicit Decoder(std::string_view json) noexcept : arena_(json), end_(json.data() + json.size()) {}

  std::optional<JSON> decoded(std::string_view json) {
    if (!JSONGrammar<Decoder>(json, *this).read()) return std::nullopt;
    JSON* root = values_.at(0);
    if (isShared(*root) && block(*root) != nullptr) arena_.handOver();
    return std::move(*root);
  }

 private:
  friend class JSONGrammar<Decoder>;

  /// The mark of an array or object: where its values start on the stack.
  std::size_t open(bool, const char* at) noexcept {
    arena_.readUpTo(at);
    return values_.size();
  }

  /// Moves the values from `first` on into a block, and replaces them on the stack by the array or object.
  void close(bool isObject, std::size_t first, const char*) {
    const std::size_t count = values_.size() - first;
    Block* block = nullptr;
    if (count > 0) {
      block = arena_.newBlock(count, count * sizeof(JSON));
      const JSON* const values = values_.at(first);
      if (!isObject || areInOrder(values, count / 2)) {
        move(block->values(), values, count);
      } else {
        sortMembers(values, count / 2, block);
      }
    }
    values_.cut(first);
    construct(values_.push(), isObject ? Tag::object : Tag::array, block);
  }

  void null(std::string_view) { ::new (values_.push()) JSON(nullptr); }
  void boolean(bool value, std::string_view) { ::new (values_.push()) JSON(value); }

  /// False for a number too large for a double.
  bool number(const jsonscanner::Number& number, std::string_view written) {
    const double value = jsonscanner::doubleValue(number, written.data());
    construct(values_.push(), value);
    return !std::isinf(value);
  }

  [[gnu::always_inline]] void string(std::string_view bytes, const JSONString& found) {
    const Form form = found.isASCII ? Form::ascii : Form::utf8;
    JSON* slot = values_.push();
    arena_.readUpTo(found.written.data());
    if (bytes.size() <= inlineCapacity) return constructShortString(slot, form, bytes, found.written);
    Block* block = std::exchange(room_, nullptr);
    if (block == nullptr) {
      block = arena_.newBlock(bytes.size(), bytes.size());
      std::memcpy(block->bytes(), bytes.data(), bytes.size());
    }
    block->size = bytes.size();
    constructString(slot, form, block);
  }

  /// Memory for a string with escapes. It is written where it stays, unless it may be short enough to be stored inline:
  /// an escape has up to six times as many bytes as what it says.
  char* room(std::size_t bytes) {
    if (bytes <= sizeof shortRoom_) return shortRoom_;
    room_ = arena_.newBlock(0, bytes);
    return room_->bytes();
  }

  /// UTF-8 has no lone surrogates.
  static bool loneSurrogate(const char*) noexcept { return false; }

  /// Constructs a string that is stored inline. If the document has 16 bytes from there on, one load and one store copy
  /// them; those after the string mean nothing.
  void constructShortString(JSON* slot, Form form, std::string_view bytes,
                            [[maybe_unused]] std::string_view written) const noexcept {
#if defined(KELVANE_SSE2)
    if (end_ - written.data() > 16) {
      const __m128i loaded = _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes.data()));
      const int head = firstByte(Tag::inlineString, form) | static_cast<int>(bytes.size()) << 8;
      static_assert(offsetof(InlineString, bytes) == 2 && sizeof(JSON) == 16);
      _mm_storeu_si128(reinterpret_cast<__m128i*>(slot), _mm_insert_epi16(_mm_slli_si128(loaded, 2), head, 0));
      return;
    }
#endif
    constructString(slot, form, bytes);
  }

  /// Moves values as bytes to a block. Most blocks have few, for which a call of memcpy takes longer.
  static void move(JSON* to, const JSON* from, std::size_t count) noexcept {
    if (count > 16) {
      std::memcpy(static_cast<void*>(to), from, count * sizeof(JSON));
      return;
    }
    for (std::size_t i = 0; i + 1 < count; i += 2) std::memcpy(static_cast<void*>(to + i), from + i, 2 * sizeof(JSON));
    if (count % 2 == 1) std::memcpy(static_cast<void*>(to + count - 1), from + count - 1, sizeof(JSON));
  }

  /// Whether the first eight bytes of the keys show that the members are in order, as many programs write them, and
  /// that no two keys are the same.
  static bool areInOrder(const JSON* members, std::size_t count) noexcept {
    std::uint64_t before = 0;
    for (std::size_t i = 0; i < count; ++i) {
      const std::uint64_t rank = leadingBytes(members[2 * i]);
      if (form(members[2 * i]) != Form::ascii || (i > 0 && rank <= before)) return false;
      before = rank;
    }
    return true;
  }

  /// Copies the members to the block in the order of their keys; of members with the same key only the last. Most
  /// objects have few members.
  void sortMembers(const JSON* members, std::size_t count, Block* block) {
    constexpr std::size_t few = 16;
    Ranked fewRanked[few];
    if (count > few) manyRanked_.resize(count);
    Ranked* const ranked = count > few ? manyRanked_.data() : fewRanked;

    const auto key = [members](std::size_t member) -> const JSON& { return members[2 * member]; };
    for (std::size_t i = 0; i < count; ++i) {
      if (form(key(i)) != Form::ascii) return sortByCanonicalForm(members, count, block);
      ranked[i] = {leadingBytes(key(i)), i};
    }
    const auto isBefore = [&key](const Ranked& left, const Ranked& right) {
      if (left.rank != right.rank) return left.rank < right.rank;
      const int order = stringOf(key(left.member)).compare(stringOf(key(right.member)));
      return order != 0 ? order < 0 : left.member < right.member;
    };
    if (count <= few) {
      insertionSort(ranked, count, isBefore);
    } else if (!std::is_sorted(ranked, ranked + count, isBefore)) {
      std::sort(ranked, ranked + count, isBefore);
    }
    JSON* to = block->values();
    for (std::size_t i = 0; i < count; ++i) {
      const bool isLastOfItsKey = i + 1 == count || ranked[i].rank != ranked[i + 1].rank ||
                                  stringOf(key(ranked[i].member)) != stringOf(key(ranked[i + 1].member));
      if (!isLastOfItsKey) continue;
      std::memcpy(static_cast<void*>(to), members + 2 * ranked[i].member, 2 * sizeof(JSON));
      to += 2;
    }
    block->size = static_cast<std::size_t>(to - block->values());
  }

  void sortByCanonicalForm(const JSON* members, std::size_t count, Block* block) {
    std::vector<std::pair<std::string, std::size_t>> forms;
    forms.reserve(count);
    for (std::size_t i = 0; i < count; ++i) forms.emplace_back(unicode::canonicalForm(stringOf(members[2 * i])), i);
    std::sort(forms.begin(), forms.end());
    JSON* to = block->values();
    for (std::size_t i = 0; i < count; ++i) {
      if (i + 1 < count && forms[i].first == forms[i + 1].first) continue;
      std::memcpy(static_cast<void*>(to), members + 2 * forms[i].second, 2 * sizeof(JSON));
      to += 2;
    }
    block->size = static_cast<std::size_t>(to - block->values());
  }

  /// A member's index, and the first eight bytes of its key as a number that has the order of those bytes.
  struct Ranked {
    std::uint64_t rank;
    std::size_t member;
  };

  template <class Compare>
  static void insertionSort(Ranked* ranked, std::size_t count, Compare isBefore) {
    for (std::size_t i = 1; i < count; ++i) {
      const Ranked current = ranked[i];
      std::size_t index = i;
      for (; index > 0 && isBefore(current, ranked[index - 1]); --index) ranked[index] = ranked[index - 1];
      ranked[index] = current;
    }
  }

  ArenaBuilder arena_;
  ScratchStack<JSON, 64> values_;
  Block* room_ = nullptr;  // what `room` allocated for the string that comes next
  char shortRoom_[6 * inlineCapacity + jsonscanner::unescapedSlack];
  std::vector<Ranked> manyRanked_;          // kept between objects for its memory
  [[maybe_unused]] const char* const end_;  // of the document
};

std::optional<JSON> JSON::decoded(std::string_view json) {
  return Storage::Decoder(json).decoded(json);
}

}  // namespace kelvane

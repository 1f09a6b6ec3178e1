#include <algorithm>
#include <charconv>
#include <memory>
#include <vector>

#include "platform/Unicode.h"
#include "protocol/JSONArena.h"
#include "protocol/JSONScanner.h"
#include "protocol/JSONStorage.h"

namespace kelvane {
namespace {

/// A stack of plain bytes' worth of elements, the first few of which need no memory from the heap.
template <class Element, std::size_t inlineCount>
class ScratchStack {
 public:
  ScratchStack() = default;
  ScratchStack(const ScratchStack&) = delete;
  ScratchStack& operator=(const ScratchStack&) = delete;

  /// Room for one element more, which the caller fills.
  Element* push() {
    if (size_ == capacity_) [[unlikely]]
      grow();
    return elements_ + size_++;
  }
  void cut(std::size_t size) noexcept { size_ = size; }
  std::size_t size() const noexcept { return size_; }
  Element* operator+(std::size_t index) noexcept { return elements_ + index; }

 private:
  struct Free {
    void operator()(Element* memory) const noexcept { std::free(memory); }
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

/// The four hexadecimal digits as a number; nothing where they are not.
std::optional<unsigned> hexadecimal(const char* at, const char* end) noexcept {
  if (end - at < 4) return std::nullopt;
  unsigned value = 0;
  const auto [stop, error] = std::from_chars(at, at + 4, value, 16);
  return stop == at + 4 ? std::optional(value) : std::nullopt;
}

char* appendUTF8(char* out, unsigned scalar) noexcept {
  const auto put = [&out](unsigned byte) { *out++ = static_cast<char>(byte); };
  if (scalar < 0x80) {
    put(scalar);
  } else if (scalar < 0x800) {
    put(0xC0 | scalar >> 6);
    put(0x80 | (scalar & 0x3F));
  } else if (scalar < 0x10000) {
    put(0xE0 | scalar >> 12);
    put(0x80 | (scalar >> 6 & 0x3F));
    put(0x80 | (scalar & 0x3F));
  } else {
    put(0xF0 | scalar >> 18);
    put(0x80 | (scalar >> 12 & 0x3F));
    put(0x80 | (scalar >> 6 & 0x3F));
    put(0x80 | (scalar & 0x3F));
  }
  return out;
}

/// Writes [at, end) with its escapes replaced to `out`, which has room for as many bytes; returns the end of what was
/// written, or nullptr where an escape is none, or half of a surrogate pair.
char* unescaped(const char* at, const char* end, char* out) noexcept {
  while (true) {
    const auto* escape = static_cast<const char*>(std::memchr(at, '\\', static_cast<std::size_t>(end - at)));
    const char* plainEnd = escape ? escape : end;
    std::memcpy(out, at, static_cast<std::size_t>(plainEnd - at));
    out += plainEnd - at;
    if (escape == nullptr) return out;
    at = escape + 2;
    switch (escape[1]) {
      case '"':
      case '\\':
      case '/':
        *out++ = escape[1];
        break;
      case 'b':
        *out++ = '\b';
        break;
      case 'f':
        *out++ = '\f';
        break;
      case 'n':
        *out++ = '\n';
        break;
      case 'r':
        *out++ = '\r';
        break;
      case 't':
        *out++ = '\t';
        break;
      case 'u': {
        const auto unit = hexadecimal(at, end);
        if (!unit) return nullptr;
        at += 4;
        unsigned scalar = *unit;
        if (scalar >= 0xDC00 && scalar < 0xE000) return nullptr;
        if (scalar >= 0xD800 && scalar < 0xDC00) {
          if (end - at < 6 || at[0] != '\\' || at[1] != 'u') return nullptr;
          const auto low = hexadecimal(at + 2, end);
          if (!low || *low < 0xDC00 || *low >= 0xE000) return nullptr;
          scalar = 0x10000 + ((scalar - 0xD800) << 10) + (*low - 0xDC00);
          at += 6;
        }
        out = appendUTF8(out, scalar);
        break;
      }
      default:
        return nullptr;
    }
  }
}

/// The double nearest to the number; nothing when it is too large for one.
std::optional<double> doubleValue(const jsonscanner::Number& number, const char* begin) noexcept {
  static constexpr double powersOfTen[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11,
                                           1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
  if (number.digitCount <= 19) {
    const auto digits = static_cast<double>(number.digits);
    if (number.exponent == 0 || number.digits == 0) return number.isNegative ? -digits : digits;
    // Both sides exact, so that the one rounding is right (Clinger's fast path).
    if (number.digits <= std::uint64_t{1} << 53 && number.exponent >= -22 && number.exponent <= 22) {
      const double value = number.exponent < 0 ? digits / powersOfTen[-number.exponent]  //
                                               : digits * powersOfTen[number.exponent];
      return number.isNegative ? -value : value;
    }
  }
  double value = 0;
  if (std::from_chars(begin, number.end, value).ec == std::errc()) return value;
  // Out of range on one side or the other, which from_chars does not tell.
  if (number.exponent + static_cast<std::int64_t>(number.digitCount) > 0) return std::nullopt;
  return number.isNegative ? -0.0 : 0.0;
}

}  // namespace

/// Reads one JSON text in one pass. Finished values gather on one stack; an array or object takes its own off it, into
/// a block of exactly their size, when it closes.
class JSON::Storage::Decoder {
 public:
  explicit Decoder(std::string_view text) noexcept
      : at_(text.data()), end_(text.data() + text.size()), arena_(text.size()) {}

  std::optional<JSON> decoded() {
    if (std::string_view(at_, static_cast<std::size_t>(end_ - at_)).substr(0, 3) == "\xEF\xBB\xBF") at_ += 3;
    if (!readDocument()) return std::nullopt;
    JSON* root = values_ + 0;
    if (isShared(*root) && block(*root) != nullptr) arena_.handOver();
    return std::move(*root);
  }

 private:
  /// An array or object that is open: where its values start on the stack, and which of the two it is.
  struct Open {
    std::size_t first;
    bool isObject;
  };

  void skipBlanks() noexcept { at_ = jsonscanner::skippingBlanks(at_, end_); }

  bool take(char byte) noexcept {
    if (at_ == end_ || *at_ != byte) return false;
    ++at_;
    return true;
  }

  /// True when the text is one value and nothing else; it is on the stack then.
  bool readDocument() {
    bool valueFollows = true;
    while (true) {
      if (valueFollows) {
        skipBlanks();
        if (at_ == end_) return false;
        if (*at_ == '{' || *at_ == '[') {
          const bool isObject = *at_++ == '{';
          *open_.push() = {values_.size(), isObject};
          skipBlanks();
          if (take(isObject ? '}' : ']')) {
            close();
            valueFollows = false;
          } else if (isObject && !readKey()) {
            return false;
          }
          continue;
        }
        if (!readScalar()) return false;
      }
      skipBlanks();
      if (open_.size() == 0) return at_ == end_;
      const bool inObject = (open_ + (open_.size() - 1))->isObject;
      valueFollows = take(',');
      if (valueFollows) {
        if (inObject) {
          skipBlanks();
          if (!readKey()) return false;
        }
      } else {
        if (!take(inObject ? '}' : ']')) return false;
        close();
      }
    }
  }

  bool readKey() {
    if (at_ == end_ || *at_ != '"' || !readText()) return false;
    skipBlanks();
    return take(':');
  }

  bool readScalar() {
    switch (*at_) {
      case '"':
        return readText();
      case 't':
        return readWord("true", [](JSON* slot) { ::new (slot) JSON(true); });
      case 'f':
        return readWord("false", [](JSON* slot) { ::new (slot) JSON(false); });
      case 'n':
        return readWord("null", [](JSON* slot) { ::new (slot) JSON(nullptr); });
      default:
        return readNumber();
    }
  }

  template <class Place>
  bool readWord(std::string_view word, Place place) {
    if (std::string_view(at_, static_cast<std::size_t>(end_ - at_)).substr(0, word.size()) != word) return false;
    at_ += word.size();
    place(values_.push());
    return true;
  }

  bool readNumber() {
    const jsonscanner::Number number = jsonscanner::scanNumber(at_, end_);
    if (!number.isWellFormed) return false;
    const std::optional<double> value = doubleValue(number, at_);
    if (!value) return false;
    at_ = number.end;
    ::new (values_.push()) JSON(*value);
    return true;
  }

  bool readText() {
    const char* begin = at_ + 1;
    const jsonscanner::Text text = jsonscanner::scanText(begin, end_);
    at_ = text.close;
    if (!text.isWellFormed) return false;
    ++at_;
    if (text.hasEscapes) return readEscaped(begin, text);
    const std::string_view bytes(begin, static_cast<std::size_t>(text.close - begin));
    const Form form = text.isASCII ? Form::ascii : Form::utf8;
    JSON* slot = values_.push();
    if (bytes.size() <= inlineCapacity) {
      placeText(slot, form, bytes);
    } else {
      Block* block = arena_.newBlock(bytes.size(), bytes.size());
      std::memcpy(block->bytes(), bytes.data(), bytes.size());
      placeText(slot, form, block);
    }
    return true;
  }

  bool readEscaped(const char* begin, const jsonscanner::Text& text) {
    const auto bound = static_cast<std::size_t>(text.close - begin);
    char inlineBytes[6 * inlineCapacity];
    const bool mayFitInline = bound <= sizeof inlineBytes;
    Block* block = mayFitInline ? nullptr : arena_.newBlock(0, bound);
    char* out = mayFitInline ? inlineBytes : block->bytes();
    const char* outEnd = unescaped(begin, text.close, out);
    if (outEnd == nullptr) return false;
    const std::string_view bytes(out, static_cast<std::size_t>(outEnd - out));
    const Form form = text.isASCII && unicode::isASCII(bytes) ? Form::ascii : Form::utf8;
    JSON* slot = values_.push();
    if (bytes.size() <= inlineCapacity) {
      placeText(slot, form, bytes);
      return true;
    }
    if (block == nullptr) {
      block = arena_.newBlock(bytes.size(), bytes.size());
      std::memcpy(block->bytes(), bytes.data(), bytes.size());
    }
    block->size = bytes.size();
    placeText(slot, form, block);
    return true;
  }

  /// Moves the values of the innermost open array or object into a block, and that onto the stack in their place.
  void close() {
    const Open open = *(open_ + (open_.size() - 1));
    open_.cut(open_.size() - 1);
    const std::size_t count = values_.size() - open.first;
    Block* block = nullptr;
    if (count > 0) {
      block = arena_.newBlock(count, count * sizeof(JSON));
      if (open.isObject) {
        sortMembers(values_ + open.first, count / 2, block);
      } else {
        std::memcpy(static_cast<void*>(block->values()), values_ + open.first, count * sizeof(JSON));
      }
    }
    values_.cut(open.first);
    place(values_.push(), open.isObject ? Tag::object : Tag::array, block);
  }

  /// Copies members to the block in the order of their keys, of those with the same key the last.
  void sortMembers(const JSON* members, std::size_t count, Block* block) {
    const auto key = [members](std::size_t member) -> const JSON& { return members[2 * member]; };
    const auto copy = [members](JSON* to, std::size_t member) {
      std::memcpy(static_cast<void*>(to), members + 2 * member, 2 * sizeof(JSON));
    };
    order_.clear();
    bool allASCII = true;
    for (std::size_t i = 0; i < count; ++i) {
      if (form(key(i)) != Form::ascii) allASCII = false;
      order_.push_back({leadingBytes(text(key(i))), i});
    }
    if (!allASCII) return sortByCanonicalForm(members, count, block);
    const auto isBefore = [&key](const Ranked& left, const Ranked& right) {
      if (left.rank != right.rank) return left.rank < right.rank;
      const int order = text(key(left.member)).compare(text(key(right.member)));
      return order != 0 ? order < 0 : left.member < right.member;
    };
    if (count <= 16) {
      insertionSort(order_, isBefore);
    } else if (!std::is_sorted(order_.begin(), order_.end(), isBefore)) {
      std::sort(order_.begin(), order_.end(), isBefore);
    }
    JSON* to = block->values();
    for (std::size_t i = 0; i < count; ++i) {
      const bool isLastOfItsKey = i + 1 == count || order_[i].rank != order_[i + 1].rank ||
                                  text(key(order_[i].member)) != text(key(order_[i + 1].member));
      if (!isLastOfItsKey) continue;
      copy(to, order_[i].member);
      to += 2;
    }
    block->size = static_cast<std::size_t>(to - block->values());
  }

  void sortByCanonicalForm(const JSON* members, std::size_t count, Block* block) {
    std::vector<std::pair<std::string, std::size_t>> forms;
    forms.reserve(count);
    for (std::size_t i = 0; i < count; ++i) forms.emplace_back(unicode::canonicalForm(text(members[2 * i])), i);
    std::sort(forms.begin(), forms.end());
    JSON* to = block->values();
    for (std::size_t i = 0; i < count; ++i) {
      if (i + 1 < count && forms[i].first == forms[i + 1].first) continue;
      std::memcpy(static_cast<void*>(to), members + 2 * forms[i].second, 2 * sizeof(JSON));
      to += 2;
    }
    block->size = static_cast<std::size_t>(to - block->values());
  }

  /// A member and the first bytes of its key as a number that orders like them.
  struct Ranked {
    std::uint64_t rank;
    std::size_t member;
  };

  static std::uint64_t leadingBytes(std::string_view key) noexcept {
    std::uint64_t word = 0;
    std::memcpy(&word, key.data(), std::min<std::size_t>(key.size(), 8));
    if constexpr (std::endian::native == std::endian::little) word = __builtin_bswap64(word);
    return word;
  }

  template <class Compare>
  static void insertionSort(std::vector<Ranked>& ranked, Compare isBefore) {
    for (std::size_t i = 1; i < ranked.size(); ++i) {
      const Ranked current = ranked[i];
      std::size_t place = i;
      for (; place > 0 && isBefore(current, ranked[place - 1]); --place) ranked[place] = ranked[place - 1];
      ranked[place] = current;
    }
  }

  const char* at_;
  const char* end_;
  ArenaBuilder arena_;
  ScratchStack<JSON, 64> values_;
  ScratchStack<Open, 32> open_;
  std::vector<Ranked> order_;  // kept between objects for its memory
};

std::optional<JSON> JSON::decoded(std::string_view text) {
  return Storage::Decoder(text).decoded();
}

}  // namespace kelvane

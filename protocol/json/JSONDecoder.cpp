#include <algorithm>
#include <vector>

#include "platform/Unicode.h"
#include "platform/json/JSONScanner.h"
#include "protocol/json/JSONArena.h"
#include "protocol/json/JSONStorage.h"
#include "protocol/json/ScratchStack.h"

namespace kelvane {
/// Reads one JSON text in one pass. Finished values gather on one stack; an array or object takes its own off it, into
/// a block of exactly their size, when it closes.
class JSON::Storage::Decoder {
 public:
  explicit Decoder(std::string_view text) noexcept
      : at_(text.data()), end_(text.data() + text.size()), arena_(text.size()) {}

  std::optional<JSON> decoded() {
    if (std::string_view(at_, static_cast<std::size_t>(end_ - at_)).substr(0, 3) == "\xEF\xBB\xBF") at_ += 3;
    if (!readDocument()) return std::nullopt;
    JSON* root = values_.at(0);
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
      const bool inObject = open_.top().isObject;
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
    const std::optional<double> value = jsonscanner::doubleValue(number, at_);
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
    const char* outEnd = jsonscanner::unescaped(begin, text.close, out);
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
    const Open open = open_.top();
    open_.pop();
    const std::size_t count = values_.size() - open.first;
    Block* block = nullptr;
    if (count > 0) {
      block = arena_.newBlock(count, count * sizeof(JSON));
      if (open.isObject) {
        sortMembers(values_.at(open.first), count / 2, block);
      } else {
        std::memcpy(static_cast<void*>(block->values()), values_.at(open.first), count * sizeof(JSON));
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

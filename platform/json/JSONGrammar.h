#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "platform/Unicode.h"
#include "platform/json/JSONScanner.h"
#include "platform/json/ScratchStack.h"

/// The grammar of JSON (RFC 8259), once for everything that reads JSON. It reads a text once, from start to end, and
/// tells a sink what it finds:
///
///     Mark open(bool isObject, const char* at)           a bracket opens at `at`; the grammar keeps the mark
///     void close(bool isObject, Mark, const char* end)   that bracket closes just before `end`; its mark comes back
///     void string(std::string_view string, JSONString)
///     bool number(const jsonscanner::Number&, std::string_view written)
///     void boolean(bool value, std::string_view written)
///     void null(std::string_view written)
///     char* room(std::size_t bytes)                      memory for a string with escapes, valid until `string`
///     bool loneSurrogate(const char* escape)             half of a surrogate pair; true reads it as U+FFFD
///
/// `written` is the value as it stands in the text, with its quotes. `string` without quotes and escapes points into
/// the text or into the memory from `room`. A sink that returns false refuses the text, and reading stops. So a sink
/// refuses only what is valid JSON but cannot be represented by that sink; the grammar judges everything else.
///
/// Nothing recurses: open brackets lie on a stack of their own, in memory from the heap beyond 32 levels. Time is
/// linear in the text, memory in its depth. The grammar throws only std::bad_alloc; what a sink throws reaches the
/// caller. It is a template, and has one call for keys and strings, so that the compiler puts the sink into it: without
/// that, the decoder runs up to 5 % more instructions.
namespace kelvane {

/// A string in a JSON text.
struct JSONString {
  std::string_view written;  ///< With its quotes.
  bool isASCII;              ///< Of what it says, once its escapes are replaced.
  bool isKey;                ///< Of a member, whose value follows.
};

template <class Sink>
class JSONGrammar {
 public:
  JSONGrammar(std::string_view text, Sink& sink) noexcept
      : at_(text.data()), end_(text.data() + text.size()), sink_(sink) {}

  /// Reads the text; call it once. True if the text is one value, with nothing around it but white space and a
  /// byte-order mark in front.
  bool read() {
    if (rest().starts_with("\xEF\xBB\xBF")) at_ += 3;
    bool valueFollows = true;
    while (true) {
      if (valueFollows) {
        skipSpace();
        if (at_ == end_) return false;
        if (*at_ == '{' || *at_ == '[') {
          const bool isObject = *at_ == '{';
          *open_.push() = {sink_.open(isObject, at_++), isObject};
          skipSpace();
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
      skipSpace();
      if (open_.size() == 0) return at_ == end_;
      const bool inObject = open_.top().isObject;
      valueFollows = take(',');
      if (valueFollows) {
        if (inObject) {
          skipSpace();
          if (!readKey()) return false;
        }
      } else {
        if (!take(inObject ? '}' : ']')) return false;
        close();
      }
    }
  }

  /// Where `read` failed: at the byte, string, number or word that is not permitted there, or at the end of the text.
  const char* at() const noexcept { return at_; }

 private:
  using Mark = decltype(std::declval<Sink&>().open(true, nullptr));

  /// An array or object that is open.
  struct Open {
    Mark mark;
    bool isObject;
  };

  std::string_view rest() const noexcept { return {at_, static_cast<std::size_t>(end_ - at_)}; }

  void skipSpace() noexcept { at_ = jsonscanner::skippingSpace(at_, end_); }

  bool take(char byte) noexcept {
    if (at_ == end_ || *at_ != byte) return false;
    ++at_;
    return true;
  }

  void close() {
    const Open open = open_.top();
    open_.pop();
    sink_.close(open.isObject, open.mark, at_);
  }

  bool readKey() {
    if (at_ == end_ || *at_ != '"' || !readString(true)) return false;
    skipSpace();
    return take(':');
  }

  bool readScalar() {
    switch (*at_) {
      case '"':
        return readString(false);
      case 't':
        return readWord("true", [this](std::string_view written) { sink_.boolean(true, written); });
      case 'f':
        return readWord("false", [this](std::string_view written) { sink_.boolean(false, written); });
      case 'n':
        return readWord("null", [this](std::string_view written) { sink_.null(written); });
      default:
        return readNumber();
    }
  }

  template <class Tell>
  bool readWord(std::string_view word, Tell tell) {
    if (!rest().starts_with(word)) return false;
    tell(rest().substr(0, word.size()));
    at_ += word.size();
    return true;
  }

  bool readNumber() {
    const jsonscanner::Number number = jsonscanner::scanNumber(at_, end_);
    if (!number.isWellFormed) return false;
    if (!sink_.number(number, {at_, static_cast<std::size_t>(number.end - at_)})) return false;
    at_ = number.end;
    return true;
  }

  bool readString(bool isKey) {
    const char* const begin = at_ + 1;
    const jsonscanner::String found = jsonscanner::scanString(begin, end_);
    if (!found.isWellFormed) {
      at_ = found.close;
      return false;
    }
    std::string_view string(begin, static_cast<std::size_t>(found.close - begin));
    bool isASCII = found.isASCII;
    if (found.hasEscapes) {
      char* const out = sink_.room(string.size());
      const auto allowsLone = [this](const char* escape) { return sink_.loneSurrogate(escape); };
      const jsonscanner::Unescaped unescaped = jsonscanner::unescaped(begin, found.close, out, allowsLone);
      if (unescaped.end == nullptr) return false;
      string = {out, static_cast<std::size_t>(unescaped.end - out)};
      isASCII = isASCII && unescaped.isASCII;
    }
    sink_.string(string, {{at_, static_cast<std::size_t>(found.close + 1 - at_)}, isASCII, isKey});
    at_ = found.close + 1;
    return true;
  }

  const char* at_;
  const char* end_;
  Sink& sink_;
  ScratchStack<Open, 32> open_;
};

}  // namespace kelvane

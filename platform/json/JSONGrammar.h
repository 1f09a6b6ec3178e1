#pragma once

#include <algorithm>
#include <cstddef>
#include <string_view>
#include <utility>

#include "platform/json/JSONNumbers.h"
#include "platform/json/JSONRuns.h"
#include "platform/json/JSONStrings.h"
#include "platform/json/ScratchStack.h"

/// The grammar of JSON (RFC 8259), once for everything that reads JSON. It reads a document once, from start to end,
/// and tells a sink what it finds, in the order of the document:
///
///     Mark open(bool isObject, const char* at)           a bracket opens at `at`; the grammar keeps the mark
///     void close(bool isObject, Mark, const char* end)   that bracket closes just before `end`; its mark comes back
///     void string(std::string_view string, JSONString)   a string, or the key of the member whose value comes next
///     bool number(const jsonscanner::Number&, std::string_view written)
///     void boolean(bool value, std::string_view written)
///     void null(std::string_view written)
///     char* room(std::size_t bytes)                      memory for one string, valid until `string`
///     bool loneSurrogate(const char* escape)             half of a surrogate pair; true reads it as U+FFFD
///
/// This sink counts the objects, and takes what else there is:
///
///     struct Counter {
///       int objects = 0;
///       int open(bool isObject, const char*) { return objects += isObject; }
///       void string(std::string_view, const JSONString&) {}
///       …
///     };
///     Counter counter;
///     const bool isJSON = JSONGrammar<Counter>(json, counter).read();
///
/// `written` is the value as it stands in the document, with its quotes. `string` is without quotes and escapes; it
/// points into the document or, if it has escapes or is not ASCII, into the memory from `room`. It is always UTF-8. Any
/// byte of that memory may be written to.
///
/// A sink that returns false refuses the document, and reading stops. So a sink refuses only what is valid JSON but
/// cannot be represented by that sink; the grammar judges everything else. After a refusal, and after malformed JSON,
/// the sink was told what comes before: it must be able to give that up.
///
/// Nothing recurses: open brackets lie on a stack of their own, in memory from the heap beyond 32 levels. Time is
/// linear in the document, memory in its depth. The grammar throws only std::bad_alloc; what a sink throws reaches the
/// caller. A grammar and its sink belong to one thread, and the document must stay as it is while it is read.
///
/// It is a template so that the compiler puts the sink into it: without that, the decoder runs up to 5 % more
/// instructions.
namespace kelvane {

/// A string in a JSON document.
struct JSONString {
  std::string_view written;  ///< With its quotes.
  bool isASCII;              ///< Of what it says, once its escapes are replaced.
  bool isKey;                ///< Of a member, whose value follows.
};

/// Reads one document for one sink. `read` is called once; then `at` says where it stopped.
template <class Sink>
class JSONGrammar {
 public:
  /// Reads nothing yet. Neither `json` nor the sink is copied; both must outlive the grammar.
  JSONGrammar(std::string_view json, Sink& sink) noexcept
      : at_(json.data()), end_(json.data() + json.size()), sink_(sink) {}

  /// Reads the document. True if it is one value, with nothing around it but white space and a byte-order mark in
  /// front, and if the sink refused nothing.
  bool read() {
    const char* at = at_;
    if (std::string_view(at, size(at, end_)).starts_with("\xEF\xBB\xBF")) at += 3;
    bool isKey = false;  // whether a key comes next, or a value
    while (true) {
      at = jsonscanner::skippingSpace(at, end_);
      if (at == end_) return failed(at);
      if (*at == '"') {
        at = readString(at, isKey);
        if (at == nullptr) return false;
        if (isKey) {
          at = jsonscanner::skippingSpace(at, end_);
          if (at == end_ || *at != ':') return failed(at);
          ++at;
          isKey = false;
          continue;
        }
      } else if (isKey) {
        return failed(at);
      } else if (*at == '{' || *at == '[') {
        const bool isObject = *at == '{';
        *open_.push() = {sink_.open(isObject, at), isObject};
        at = jsonscanner::skippingSpace(at + 1, end_);
        if (at == end_ || *at != (isObject ? '}' : ']')) {
          isKey = isObject;
          continue;
        }
        close(++at);
      } else {
        at = readScalar(at);
        if (at == nullptr) return false;
      }
      // Behind a value.
      while (true) {
        at = jsonscanner::skippingSpace(at, end_);
        if (open_.size() == 0) return at == end_ || failed(at);
        if (at == end_) return failed(at);
        const bool inObject = open_.top().isObject;
        if (*at == ',') {
          ++at;
          isKey = inObject;
          break;
        }
        if (*at != (inObject ? '}' : ']')) return failed(at);
        close(++at);
      }
    }
  }

  /// Where `read` failed: at the byte, string, number or word that is not permitted there, or at the end of the
  /// document.
  const char* at() const noexcept { return at_; }

 private:
  using Mark = decltype(std::declval<Sink&>().open(true, nullptr));

  /// An array or object that is open. Its kind says which bracket closes it, and whether a comma is followed by a key.
  struct Open {
    Mark mark;
    bool isObject;
  };

  // What reads a part of the document takes where that starts, and returns its end, or nullptr after `failed`. So the
  // place is in a register all the time.

  bool failed(const char* at) noexcept {
    at_ = at;
    return false;
  }

  const char* failure(const char* at) noexcept {
    at_ = at;
    return nullptr;
  }

  static std::size_t size(const char* begin, const char* end) noexcept { return static_cast<std::size_t>(end - begin); }

  void close(const char* end) {
    sink_.close(open_.top().isObject, open_.top().mark, end);
    open_.pop();
  }

  /// A word or a number. What begins like none of them is a number that is not well-formed.
  const char* readScalar(const char* at) {
    switch (*at) {
      case 't':
        return readWord(at, "true", [this](std::string_view written) { sink_.boolean(true, written); });
      case 'f':
        return readWord(at, "false", [this](std::string_view written) { sink_.boolean(false, written); });
      case 'n':
        return readWord(at, "null", [this](std::string_view written) { sink_.null(written); });
      default:
        return readNumber(at);
    }
  }

  template <class Tell>
  const char* readWord(const char* at, std::string_view word, Tell tell) {
    const std::string_view written(at, std::min(size(at, end_), word.size()));
    if (written != word) return failure(at);
    tell(written);
    return at + word.size();
  }

  const char* readNumber(const char* at) {
    jsonscanner::Number number;
    jsonscanner::scanNumber(at, end_, number);
    if (!number.isWellFormed) return failure(at);
    if (!sink_.number(number, {at, size(at, number.end)})) return failure(at);
    return number.end;
  }

  /// Most strings are plain: what they say is what is written.
  const char* readString(const char* at, bool isKey) {
    const char* const begin = at + 1;
    const char* const plainEnd = jsonscanner::skippingPlain(begin, end_);
    if (plainEnd == end_ || *plainEnd != '"') [[unlikely]] {
      return readOtherString(at, plainEnd, isKey);
    }
    sink_.string({begin, size(begin, plainEnd)}, {{at, size(at, plainEnd + 1)}, true, isKey});
    return plainEnd + 1;
  }

  /// A string with escapes or beyond ASCII, whose bytes before `plainEnd` have neither.
  const char* readOtherString(const char* at, const char* plainEnd, bool isKey) {
    const char* const begin = at + 1;
    const char* const close = jsonscanner::closingQuote(plainEnd, end_);
    if (close != nullptr) {
      char* const out = sink_.room(size(begin, close) + jsonscanner::unescapedSlack);
      const auto allowsLone = [](void* sink, const char* escape) {
        return static_cast<Sink*>(sink)->loneSurrogate(escape);
      };
      const jsonscanner::Unescaped unescaped = jsonscanner::unescaped(begin, close, end_, out, allowsLone, &sink_);
      if (unescaped.end != nullptr) {
        sink_.string({out, size(out, unescaped.end)}, {{at, size(at, close + 1)}, unescaped.isASCII, isKey});
        return close + 1;
      }
    }
    const char* const fault = jsonscanner::faultInString(begin, end_);
    return failure(fault != nullptr ? fault : at);
  }

  const char* at_;
  const char* end_;
  Sink& sink_;
  ScratchStack<Open, 32> open_;
};

}  // namespace kelvane

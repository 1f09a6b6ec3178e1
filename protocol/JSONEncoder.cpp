#include <charconv>
#include <cmath>
#include <vector>

#include "platform/JSONScanner.h"
#include "platform/Unicode.h"
#include "protocol/JSONCoding.h"
#include "protocol/JSONStorage.h"

namespace kelvane {
namespace {

/// Gathers output in a small piece of memory that stays in the cache, and hands it on whenever that is full.
class Output {
 public:
  /// Room for that many bytes, at most `stageSize`; `advance` says how many were written.
  char* room(std::size_t bytes) {
    if (bytes > stageSize - used_) flush();
    return stage_ + used_;
  }
  void advance(char* end) noexcept { used_ = static_cast<std::size_t>(end - stage_); }

  void put(char byte) {
    char* at = room(1);
    *at = byte;
    advance(at + 1);
  }

  void put(std::string_view bytes) {
    if (bytes.size() > stageSize / 2) {
      flush();
      out_.append(bytes);
    } else {
      char* at = room(bytes.size());
      std::memcpy(at, bytes.data(), bytes.size());
      advance(at + bytes.size());
    }
  }

  std::string finish() {
    flush();
    return std::move(out_);
  }

 private:
  static constexpr std::size_t stageSize = 4096;

  void flush() {
    out_.append(stage_, used_);
    used_ = 0;
  }

  std::string out_;
  std::size_t used_ = 0;
  char stage_[stageSize];
};

void putEscape(Output& out, char byte) {
  switch (byte) {
    case '"':
      return out.put("\\\"");
    case '\\':
      return out.put("\\\\");
    case '\b':
      return out.put("\\b");
    case '\f':
      return out.put("\\f");
    case '\n':
      return out.put("\\n");
    case '\r':
      return out.put("\\r");
    case '\t':
      return out.put("\\t");
    default: {
      constexpr char digits[] = "0123456789abcdef";
      const char escape[] = {'\\', 'u', '0', '0', digits[byte >> 4], digits[byte & 0xF]};
      out.put({escape, sizeof escape});
    }
  }
}

/// Where the run of bytes at the front ends that stand in a text as they are; what is not ASCII does.
const char* skippingUnescaped(const char* at, const char* end) noexcept {
  while (true) {
    at = jsonscanner::skippingPlain(at, end);
    if (at == end || static_cast<signed char>(*at) >= 0) return at;
    while (at != end && static_cast<signed char>(*at) < 0) ++at;
  }
}

void putText(Output& out, std::string_view text) {
  out.put('"');
  const char* at = text.data();
  const char* end = at + text.size();
  while (true) {
    const char* special = skippingUnescaped(at, end);
    out.put({at, static_cast<std::size_t>(special - at)});
    if (special == end) break;
    putEscape(out, *special);
    at = special + 1;
  }
  out.put('"');
}

/// Only for finite numbers.
void putNumber(Output& out, double value) {
  constexpr std::size_t longest = 32;  // "-2.2250738585072014e-308" has 24
  char* at = out.room(longest);
  if (const auto integer = jsonInteger(value)) {
    out.advance(std::to_chars(at, at + longest, *integer).ptr);
  } else {
    out.advance(std::to_chars(at, at + longest, value).ptr);
  }
}

}  // namespace

/// Writes one value, nested ones by a stack of what is left of each array and object around them.
class JSON::Storage::Encoder {
 public:
  /// Nothing when the value holds a number that JSON cannot write.
  std::optional<std::string> encoded(const JSON& root) {
    Rest rest{&root, &root + 1, '\0'};
    while (true) {
      while (rest.next == rest.end) {
        if (rest.close == '\0') return out_.finish();
        out_.put(rest.close);
        rest = around_.back();
        around_.pop_back();
      }
      if (rest.close != '\0' && !rest.isFirst) out_.put(',');
      rest.isFirst = false;
      if (rest.close == '}') {
        putTextOf(*rest.next++);
        out_.put(':');
      }
      const JSON& value = *rest.next++;
      switch (tag(value)) {
        case Tag::boolean:
          out_.put(value.boolean_.value ? "true" : "false");
          break;
        case Tag::number:
          if (!std::isfinite(value.number_.value)) return std::nullopt;
          putNumber(out_, value.number_.value);
          break;
        case Tag::inlineText:
        case Tag::sharedText:
          putTextOf(value);
          break;
        case Tag::array:
        case Tag::object: {
          const bool isArray = tag(value) == Tag::array;
          Block* values = block(value);
          around_.push_back(rest);
          rest = {nullptr, nullptr, isArray ? ']' : '}'};
          if (values != nullptr) {
            rest.next = values->values();
            rest.end = rest.next + values->size;
          }
          out_.put(isArray ? '[' : '{');
          break;
        }
        default:
          out_.put("null");
      }
    }
  }

 private:
  struct Rest {
    const JSON* next;
    const JSON* end;
    char close;  // the bracket that ends it; NUL around the root
    bool isFirst = true;
  };

  void putTextOf(const JSON& value) {
    if (form(value) == Form::illFormed) {
      putText(out_, unicode::replacingInvalidUTF8(text(value)));
    } else {
      putText(out_, text(value));
    }
  }

  Output out_;
  std::vector<Rest> around_;
};

std::string JSON::encoded() const {
  return Storage::Encoder().encoded(*this).value_or("null");
}

}  // namespace kelvane

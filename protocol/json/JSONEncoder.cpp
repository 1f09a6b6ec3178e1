#include <algorithm>
#include <charconv>
#include <cmath>

#include "platform/Unicode.h"
#include "platform/json/JSONRuns.h"
#include "platform/json/ScratchStack.h"
#include "platform/json/ShortestDouble.h"
#include "platform/unicode/Processor.h"
#include "protocol/JSONCoding.h"
#include "protocol/json/JSONStorage.h"

// How a value becomes JSON. One loop writes value after value; what is left of the arrays and objects around the
// current value is on a stack, so nothing recurses. Members are stored in key order, so they are written as they come.
//
// Output goes through a small buffer. The loop asks once per member for room for everything that is short (a comma, a
// key and a value that are stored inline, a number) and then writes without further checks. Only longer strings ask
// again: they are copied in runs that need no escapes, 16 bytes at a time where the processor can.
namespace kelvane {
namespace {

constexpr std::size_t longestEscape = 6;  // \u001f

char* putEscape(char byte, char* to) noexcept {
  *to++ = '\\';
  switch (byte) {
    case '"':
    case '\\':
      *to++ = byte;
      return to;
    case '\b':
      *to++ = 'b';
      return to;
    case '\f':
      *to++ = 'f';
      return to;
    case '\n':
      *to++ = 'n';
      return to;
    case '\r':
      *to++ = 'r';
      return to;
    case '\t':
      *to++ = 't';
      return to;
    default: {
      constexpr char digits[] = "0123456789abcdef";
      const char escape[] = {'u', '0', '0', digits[byte >> 4], digits[byte & 0xF]};
      std::memcpy(to, escape, sizeof escape);
      return to + sizeof escape;
    }
  }
}

/// Copies [from, end) to `to` and escapes what needs it. `to` has room for `longestEscape` times as many bytes.
char* copyEscaping(const char* from, const char* end, char* to) noexcept {
  while (from != end) {
    const std::size_t plain = jsonscanner::copyUnescaped(from, end, to);
    from += plain;
    to += plain;
    if (from != end) to = putEscape(*from++, to);
  }
  return to;
}

/// The size of a string with its escapes.
std::size_t escapedSize(std::string_view string) noexcept {
  std::size_t size = 0;
  for (const char byte : string) {
    const bool isShort = byte == '"' || byte == '\\' || (byte >= '\b' && byte <= '\r' && byte != '\v');
    size += isShort ? 2 : static_cast<unsigned char>(byte) < ' ' ? longestEscape : 1;
  }
  return size;
}

/// Appends a string of any length with its escapes. It is written where it stays; std::string sets to zero what it
/// grows by, so it grows in steps that stay in the processor's cache.
void appendWithEscapes(std::string_view string, std::string& out) {
  constexpr std::size_t step = std::size_t{16} << 10;
  // Most strings have few escapes. The room for those that have more is counted, so that none has its room twice.
  const auto roomFor = [](std::size_t bytes) { return bytes + bytes / 16 + 64; };
  std::size_t size = out.size();
  if (out.capacity() - size < roomFor(string.size())) out.reserve(size + roomFor(string.size()));
  const char* from = string.data();
  const char* const stringEnd = from + string.size();
  while (from != stringEnd) {
    const auto left = static_cast<std::size_t>(stringEnd - from);
    const char* const end = from + std::min(left, step);
    const std::size_t room = roomFor(static_cast<std::size_t>(end - from));
    if (out.capacity() - size < room) out.reserve(size + escapedSize({from, left}) + roomFor(step));
    out.resize(size + room);
    char* to = out.data() + size;
    const char* const limit = to + room;
    while (from != end && limit - to >= end - from + static_cast<std::ptrdiff_t>(longestEscape)) {
      const std::size_t plain = jsonscanner::copyUnescaped(from, end, to);
      from += plain;
      to += plain;
      if (from != end) to = putEscape(*from++, to);
    }
    size = static_cast<std::size_t>(to - out.data());
  }
  out.resize(size);
}

/// Collects output in a small buffer that stays in the processor's cache, and appends it to a string whenever it is
/// full.
class Output {
 public:
  static constexpr std::size_t stageSize = 4096;

  explicit Output(std::string& out) noexcept : out_(out) {}

  /// Makes room for that many bytes, at most `stageSize`. They can then be put without a check.
  void ensure(std::size_t bytes) {
    if (bytes > static_cast<std::size_t>(stage_ + stageSize - at_)) flush();
  }

  // These need room that `ensure` made.
  void put(char byte) noexcept { *at_++ = byte; }
  void put(std::string_view bytes) noexcept {
    std::memcpy(at_, bytes.data(), bytes.size());
    at_ += bytes.size();
  }
  char* at() noexcept { return at_; }
  void advance(char* at) noexcept { at_ = at; }

  /// Puts a string of any length with its escapes, and needs no room.
  void putEscaped(std::string_view string) {
    flush();
    appendWithEscapes(string, out_);
  }

  /// Appends what is in the buffer.
  void flush() {
    // Up to a megabyte, capacity grows by four instead of two. Each step frees a buffer, which the system may take back
    // and give out again, so fewer steps are faster.
    constexpr std::size_t largeOutput = std::size_t{1} << 20;
    const std::string_view bytes(stage_, static_cast<std::size_t>(at_ - stage_));
    const std::size_t needed = out_.size() + bytes.size();
    if (needed > out_.capacity() && needed > stageSize && needed < largeOutput) out_.reserve(4 * needed);
    out_.append(bytes);
    at_ = stage_;
  }

 private:
  std::string& out_;
  char* at_ = stage_;
  char stage_[stageSize];
};

void putString(Output& out, std::string_view string) {
  // A string of this size fits into the buffer even if every byte is escaped.
  constexpr std::size_t longestStaged = (Output::stageSize - 2) / longestEscape;
  const bool isLong = string.size() > longestStaged;
  out.ensure(1);
  out.put('"');
  if (isLong) {
    out.putEscaped(string);
  } else {
    out.ensure(string.size() * longestEscape + 1);
    out.advance(copyEscaping(string.data(), string.data() + string.size(), out.at()));
  }
  out.put('"');
}

/// Writes a finite number. There must be `roomForDouble`.
void putNumber(Output& out, double value) {
  if (const auto integer = jsonInteger(value)) {
    out.advance(std::to_chars(out.at(), out.at() + roomForDouble, *integer).ptr);
  } else {
    out.advance(writeShortest(value, out.at()));
  }
}

}  // namespace

/// Writes one value.
class JSON::Storage::Encoder {
 public:
  explicit Encoder(std::string& out) noexcept : out_(out) {}

  /// Appends the value. False if it contains a NaN or an infinity, which JSON cannot represent; a part of it may have
  /// been appended then.
  bool append(const JSON& root) {
    Rest rest{&root, &root + 1, '\0', true};
    while (true) {
      while (rest.next == rest.end) {
        if (rest.close == '\0') {
          out_.flush();
          return true;
        }
        out_.ensure(1);
        out_.put(rest.close);
        rest = around_.top().rest();
        around_.pop();
      }
      // Room for all that follows, except strings that are not stored inline.
      out_.ensure(roomForMember);
      if (!rest.isFirst) out_.put(',');
      rest.isFirst = false;
      if (rest.close == '}') {
        putStringOf(*rest.next++);
        out_.put(':');
      }
      const JSON& value = *rest.next++;
      switch (tag(value)) {
        case Tag::null:
          out_.put("null");
          break;
        case Tag::boolean:
          out_.put(value.boolean_.value ? "true" : "false");
          break;
        case Tag::number:
          if (!std::isfinite(value.number_.value)) return false;
          putNumber(out_, value.number_.value);
          break;
        case Tag::inlineString:
        case Tag::sharedString:
          putStringOf(value);
          break;
        case Tag::array:
        case Tag::object: {
          const bool isArray = tag(value) == Tag::array;
          Block* values = block(value);
          *around_.push() = Around(rest);
          rest = {nullptr, nullptr, isArray ? ']' : '}', true};
          if (values != nullptr) {
            rest.next = values->values();
            rest.end = rest.next + values->size;
          }
          out_.put(isArray ? '[' : '{');
        }
      }
    }
  }

 private:
  static constexpr std::size_t roomForString = inlineCapacity * longestEscape + 2;
  /// A comma, a key and a value that are stored inline, and a colon. Nothing else that is put without a check is
  /// longer.
  static constexpr std::size_t roomForMember = 2 * roomForString + 2;
  static_assert(roomForDouble <= roomForString);

  /// What is left of an array or object.
  struct Rest {
    const JSON* next;
    const JSON* end;
    char close;  // the bracket that ends it; NUL around the root
    bool isFirst;
  };

  /// The same in two words, for one that is left for what is nested in it. A text may nest millions of them.
  class Around {
   public:
    explicit Around(const Rest& rest) noexcept
        : next_(rest.next), leftAndClose_(static_cast<std::uint64_t>(rest.end - rest.next) << 8 | closeOf(rest)) {}
    Rest rest() const noexcept {
      return {next_, next_ + (leftAndClose_ >> 8), static_cast<char>(leftAndClose_ & 0xFF), false};
    }

   private:
    static std::uint64_t closeOf(const Rest& rest) noexcept { return static_cast<unsigned char>(rest.close); }

    const JSON* next_;
    std::uint64_t leftAndClose_;
  };

  /// Writes a string. Needs `roomForString`. Afterwards there is room for what is left of a member.
  void putStringOf(const JSON& value) {
    if (form(value) != Form::illFormed && tag(value) == Tag::inlineString) {
      putInlineString(value);
    } else {
      putString(out_, form(value) == Form::illFormed ? std::string_view(unicode::replacingInvalidUTF8(stringOf(value)))
                                                     : stringOf(value));
      out_.ensure(roomForMember);
    }
  }

  void putInlineString(const JSON& value) {
    out_.put('"');
#if defined(KELVANE_SSE2)
    // One load reads the whole value; the shift drops its head. Most short strings need no escapes and are written by
    // one store, which may write more than their bytes: the room is there, and the next output overwrites it.
    const __m128i bytes =
        _mm_srli_si128(_mm_loadu_si128(reinterpret_cast<const __m128i*>(&value)), offsetof(InlineString, bytes));
    const unsigned mask = (1U << value.head_.length) - 1;
    if ((jsonscanner::escapedBytes(bytes) & mask) == 0) {
      _mm_storeu_si128(reinterpret_cast<__m128i*>(out_.at()), bytes);
      out_.advance(out_.at() + value.head_.length);
      out_.put('"');
      return;
    }
#endif
    const std::string_view string = stringOf(value);
    out_.advance(copyEscaping(string.data(), string.data() + string.size(), out_.at()));
    out_.put('"');
  }

  Output out_;
  ScratchStack<Around, 32> around_;
};

bool JSON::appendEncoded(std::string& out) const {
  const std::size_t size = out.size();
  Storage::Encoder encoder(out);
  const bool isAppended = encoder.append(*this);
  if (!isAppended) out.resize(size);
  return isAppended;
}

void JSON::appendEscaped(std::string_view string, std::string& out) {
  if (unicode::isValidUTF8(string)) {
    appendWithEscapes(string, out);
  } else {
    appendWithEscapes(unicode::replacingInvalidUTF8(string), out);
  }
}

std::string JSON::encoded() const {
  std::string json;
  if (!appendEncoded(json)) json = "null";
  return json;
}

}  // namespace kelvane

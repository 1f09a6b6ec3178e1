#include "platform/json/JSONText.h"

#include <cstring>

#include "platform/Unicode.h"
#include "platform/json/JSONScanner.h"

namespace kelvane {
namespace {

using Kind = JSONText::Kind;
using Value = JSONText::Value;

/// The number that the escape \\uXXXX at the front has; nothing where there is none.
std::optional<unsigned> unitOfEscape(const char* at, const char* end) noexcept {
  if (end - at < 6 || at[0] != '\\' || at[1] != 'u') return std::nullopt;
  return jsonscanner::hexadecimal(at + 2, end);
}

/// Makes every escape of a lone surrogate one of U+FFFD, which takes as many bytes.
void replaceLoneSurrogates(std::string& json) noexcept {
  const char* const end = json.data() + json.size();
  const auto isWithin = [](std::optional<unsigned> unit, unsigned first, unsigned behind) {
    return unit && *unit >= first && *unit < behind;
  };
  for (std::size_t at = json.find('\\'); at != std::string::npos; at = json.find('\\', at)) {
    const char* const escape = json.data() + at;
    const auto unit = unitOfEscape(escape, end);
    if (!isWithin(unit, 0xD800, 0xE000)) {
      at += 2;
    } else if (isWithin(unit, 0xD800, 0xDC00) && isWithin(unitOfEscape(escape + 6, end), 0xDC00, 0xE000)) {
      at += 12;
    } else {
      std::memcpy(json.data() + at, "\\ufffd", 6);
      at += 6;
    }
  }
}

/// Goes over a JSON text from front to back. What fails leaves it where the text ceased to be JSON.
class Reader {
 public:
  Reader(std::string_view text, std::size_t offset) noexcept
      : begin_(text.data()), at_(begin_ + offset), end_(begin_ + text.size()) {}

  std::size_t offset() const noexcept { return static_cast<std::size_t>(at_ - begin_); }

  std::optional<Value> readDocument() {
    if (std::string_view(at_, static_cast<std::size_t>(end_ - at_)).starts_with("\xEF\xBB\xBF")) at_ += 3;
    skipBlanks();
    const auto root = readValue();
    if (!root) return std::nullopt;
    skipBlanks();
    return at_ == end_ ? root : std::nullopt;
  }

  std::optional<Value> readValue() {
    Value value{Kind::null, offset(), 0};
    std::string open;  // the brackets that close what is open
    for (bool valueFollows = true; valueFollows || !open.empty();) {
      skipBlanks();
      if (valueFollows && (take('{') || take('['))) {
        const bool isObject = at_[-1] == '{';
        if (open.empty()) value.kind = isObject ? Kind::object : Kind::array;
        open += isObject ? '}' : ']';
        skipBlanks();
        if (at_ != end_ && *at_ == open.back()) {
          valueFollows = false;
        } else if (isObject && !readKey()) {
          return std::nullopt;
        }
      } else if (valueFollows) {
        const auto kind = readScalar();
        if (!kind) return std::nullopt;
        if (open.empty()) value.kind = *kind;
        valueFollows = false;
      } else if (take(',')) {
        valueFollows = true;
        skipBlanks();
        if (open.back() == '}' && !readKey()) return std::nullopt;
      } else {
        if (!take(open.back())) return std::nullopt;
        open.pop_back();
      }
    }
    value.end = offset();
    return value;
  }

  /// A key and its colon; what the key says.
  std::optional<std::string> readKey() {
    auto key = readText();
    skipBlanks();
    return key && take(':') ? key : std::nullopt;
  }

  std::optional<std::string> readText() {
    if (at_ == end_ || *at_ != '"') return std::nullopt;
    const jsonscanner::Text text = jsonscanner::scanText(at_ + 1, end_);
    if (!text.isWellFormed) {
      at_ = text.close;
      return std::nullopt;
    }
    std::string said(at_ + 1, text.close);
    if (text.hasEscapes) {
      replaceLoneSurrogates(said);
      const std::string escaped = said;
      const char* saidEnd = jsonscanner::unescaped(escaped.data(), escaped.data() + escaped.size(), said.data());
      if (saidEnd == nullptr) return std::nullopt;
      said.resize(static_cast<std::size_t>(saidEnd - said.data()));
    }
    at_ = text.close + 1;
    return said;
  }

  void skipBlanks() noexcept { at_ = jsonscanner::skippingBlanks(at_, end_); }

  bool take(char byte) noexcept {
    if (at_ == end_ || *at_ != byte) return false;
    ++at_;
    return true;
  }

 private:
  std::optional<Kind> readScalar() {
    if (at_ == end_) return std::nullopt;
    if (*at_ == '"') return readText() ? std::optional(Kind::string) : std::nullopt;
    if (readWord("null")) return Kind::null;
    if (readWord("true") || readWord("false")) return Kind::boolean;
    const jsonscanner::Number number = jsonscanner::scanNumber(at_, end_);
    if (!number.isWellFormed) return std::nullopt;
    at_ = number.end;
    return Kind::number;
  }

  bool readWord(std::string_view word) noexcept {
    if (!std::string_view(at_, static_cast<std::size_t>(end_ - at_)).starts_with(word)) return false;
    at_ += word.size();
    return true;
  }

  const char* begin_;
  const char* at_;
  const char* end_;
};

}  // namespace

std::optional<JSONText> JSONText::read(std::string text) {
  const auto root = Reader(text, 0).readDocument();
  return root ? std::optional(JSONText(std::move(text), *root)) : std::nullopt;
}

std::optional<std::size_t> JSONText::fault(std::string_view text) {
  Reader reader(text, 0);
  return reader.readDocument() ? std::nullopt : std::optional(reader.offset());
}

std::string JSONText::decodable() const {
  constexpr std::string_view mantissa = "1e";
  constexpr std::string_view exponent = "308";
  std::string json = text_;
  replaceLoneSurrogates(json);
  const char* const end = json.data() + json.size();
  for (const char* at = json.data(); at != end;) {
    if (*at == '"') {
      at = jsonscanner::scanText(at + 1, end).close + 1;
    } else if (*at == '-' || (*at >= '0' && *at <= '9')) {
      const jsonscanner::Number number = jsonscanner::scanNumber(at, end);
      if (!jsonscanner::doubleValue(number, at)) {
        // The shortest number that is too large, 2e308, has room for this one.
        char* digits = json.data() + (at - json.data()) + (number.isNegative ? 1 : 0);
        const auto size = static_cast<std::size_t>(number.end - digits);
        std::memset(digits, '0', size);
        std::memcpy(digits, mantissa.data(), mantissa.size());
        std::memcpy(digits + size - exponent.size(), exponent.data(), exponent.size());
      }
      at = number.end;
    } else {
      ++at;
    }
  }
  return json;
}

std::string JSONText::string(const Value& value) const {
  return *Reader(text_, value.begin).readText();
}

std::vector<JSONText::Member> JSONText::members(const Value& object) const {
  std::vector<Member> members;
  Reader reader(text_, object.begin + 1);
  reader.skipBlanks();
  if (reader.take('}')) return members;
  do {
    reader.skipBlanks();
    const std::size_t begin = reader.offset();
    std::string key = *reader.readKey();
    reader.skipBlanks();
    members.push_back({std::move(key), begin, *reader.readValue()});
    reader.skipBlanks();
  } while (reader.take(','));
  return members;
}

std::optional<JSONText::Value> JSONText::find(Path path) const {
  return find(root_, path.begin(), path.end());
}

std::optional<JSONText::Value> JSONText::find(const Value& at, const std::string_view* key,
                                              const std::string_view* end) const {
  std::optional<Value> value = at;
  for (; key != end && value; ++key) {
    const auto members = value->kind == Kind::object ? this->members(*value) : std::vector<Member>();
    value.reset();
    for (const Member& member : members) {
      if (unicode::equivalent(member.key, *key)) value = member.value;
    }
  }
  return value;
}

std::string quotedJSON(std::string_view text) {
  constexpr char digits[] = "0123456789abcdef";
  std::string quoted = "\"";
  for (const char byte : text) {
    if (byte == '"' || byte == '\\') {
      quoted.append({'\\', byte});
    } else if (static_cast<unsigned char>(byte) < ' ') {
      quoted.append({'\\', 'u', '0', '0', digits[byte >> 4], digits[byte & 0xF]});
    } else {
      quoted += byte;
    }
  }
  return quoted += '"';
}

}  // namespace kelvane

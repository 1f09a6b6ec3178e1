#include "quorvel/files/TemporaryName.h"

#include <unistd.h>

#include <charconv>
#include <system_error>

#include "quorvel/files/FNV1a.h"
#include "quorvel/files/SystemCalls.h"

namespace quorvel {
namespace {

constexpr std::size_t digits = 16;

std::string hexadecimal(std::uint64_t number, std::size_t width) {
  char text[digits];
  const char* end = std::to_chars(text, text + digits, number, 16).ptr;
  const auto size = static_cast<std::size_t>(end - text);
  return std::string(width > size ? width - size : 0, '0').append(text, size);
}

std::optional<std::uint64_t> number(std::string_view text) noexcept {
  std::uint64_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, 16);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return value;
}

}  // namespace

std::uint64_t TemporaryName::hash(std::string_view scriptName) noexcept {
  return fnv1a(scriptName);
}

TemporaryName TemporaryName::fresh(std::string_view scriptName) {
  TemporaryName name{hash(scriptName), 0, std::nullopt};
  if (::getentropy(&name.random, sizeof name.random) != 0) throw std::system_error(lastError(), "getentropy");
  return name;
}

std::optional<TemporaryName> TemporaryName::parse(std::string_view name) noexcept {
  constexpr std::size_t shortForm = prefix.size() + digits + 1 + digits;
  if (!name.starts_with(prefix) || name.size() < shortForm || name[prefix.size() + digits] != '-') return std::nullopt;
  const auto script = number(name.substr(prefix.size(), digits));
  const auto random = number(name.substr(prefix.size() + digits + 1, digits));
  if (!script || !random) return std::nullopt;
  TemporaryName parsed{*script, *random, std::nullopt};
  if (name.size() == shortForm) return parsed;
  if (name[shortForm] != '-') return std::nullopt;
  parsed.inode = number(name.substr(shortForm + 1));
  if (!parsed.inode) return std::nullopt;
  return parsed;
}

std::string TemporaryName::text() const {
  std::string name(prefix);
  name.append(hexadecimal(script, digits)).append("-").append(hexadecimal(random, digits));
  if (inode) name.append("-").append(hexadecimal(*inode, 1));
  return name;
}

}  // namespace quorvel

#include "scripttools/Arguments.h"

namespace kelvane {

std::optional<std::string_view> suppliedString(std::string_view key, const JSON::Object& arguments) {
  const JSON* const value = arguments.find(key);
  const auto string = value ? value->string() : std::nullopt;
  return string && !string->empty() ? string : std::nullopt;
}

}  // namespace kelvane

#pragma once

#include <optional>
#include <string_view>

#include "protocol/JSON.h"

namespace kelvane {

/// The string under the key of an optional argument. std::nullopt if the key is missing, if its value is not a string,
/// or if the string is empty. Throws nothing. `requiredString` (protocol/Tool.h) reads arguments that must be there.
///
/// The view lives as long as the arguments; so it cannot be taken from a temporary.
std::optional<std::string_view> suppliedString(std::string_view key, const JSON::Object& arguments);
std::optional<std::string_view> suppliedString(std::string_view key, JSON::Object&& arguments) = delete;

}  // namespace kelvane

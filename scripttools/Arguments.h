#pragma once

#include <optional>
#include <string_view>

#include "protocol/JSON.h"

namespace kelvane {

/// The text under the key of an argument that may be left out: nothing when there is none, when it is no text, or when
/// it is empty. Never a failure. The view lives as long as the arguments; required ones are read by `requiredString`.
std::optional<std::string_view> suppliedString(std::string_view key, const JSON::Object& arguments);
std::optional<std::string_view> suppliedString(std::string_view key, JSON::Object&& arguments) = delete;

}  // namespace kelvane

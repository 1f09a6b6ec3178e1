#pragma once

#include <string_view>

/// The style and the script of the page that "kelvane review" makes.
namespace kelvane {

extern const std::string_view reviewStyle;
extern const std::string_view reviewScript;

}  // namespace kelvane

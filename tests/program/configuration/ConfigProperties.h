#pragma once

#include <string>
#include <string_view>

/// What holds for every text and every command, whatever is in them. Each answers with the promise that is broken, or
/// with nothing. The random tests and the fuzz targets share them.
namespace kelvane {

std::string brokenByClaudeConfig(std::string_view text, std::string_view command);

std::string brokenByCodexConfig(std::string_view text, std::string_view command);

}  // namespace kelvane

#pragma once

#include <string>
#include <string_view>
#include <vector>

/// The Codex editor's rules written down a second time, in the plainest way: over characters, a step at a time, as slow
/// as it comes.
namespace kelvane::oracle {

using Characters = std::vector<std::string>;

Characters characters(std::string_view text);

std::string removing(std::string_view text);
std::string adding(std::string_view command, std::string_view text);
bool names(std::string_view command, std::string_view text);

}  // namespace kelvane::oracle

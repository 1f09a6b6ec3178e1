#pragma once

#include <string>
#include <string_view>
#include <vector>

/// A second implementation of the rules for the Codex client's file: simple and slow, one character at a time.
namespace kelvane::oracle {

using Characters = std::vector<std::string>;

Characters characters(std::string_view text);

std::string removing(std::string_view text);
std::string adding(std::string_view command, std::string_view text);
bool names(std::string_view command, std::string_view text);

}  // namespace kelvane::oracle

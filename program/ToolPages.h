#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "protocol/Tool.h"

/// What a person reads about the tools. Everything is made from the tools themselves: their names, descriptions and
/// schemas.
namespace kelvane {

/// A tool, and whether it changes scripts.
struct DescribedTool {
  Tool tool;
  bool changesScripts = false;
};

/// Every tool, in the order that clients see. They are for reading about only: they have no library to work on.
std::vector<DescribedTool> everyTool();

/// The arguments that a tool takes: first those that it needs, in the order of its schema, then the others by name.
struct ToolArgument {
  std::string name;
  std::string description;
  bool isNeeded = false;
};
std::vector<ToolArgument> argumentsOf(const Tool& tool);

/// The names, separated by commas.
std::string listed(const std::vector<std::string>& names);

/// Throws the UsageError for a tool that there is not, with the name that was probably meant and those there are.
[[noreturn]] void refuseUnknownTool(std::string_view name);

/// The page of all tools: what each does, and its arguments; optional ones are in brackets.
std::string helpOnTools();

/// The page of one tool, for "kelvane call TOOL --help". Throws UsageError if there is no such tool.
std::string helpOnTool(const std::string& name);

}  // namespace kelvane

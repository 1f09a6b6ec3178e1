#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "program/CommandLine.h"

/// What the environment says. What is typed goes before variables that stand for options, and they go before the
/// settings.
/// Not to be called while another thread changes the environment.
namespace kelvane {

/// The variable for "--allow-writes".
inline constexpr std::string_view allowWritesVariable = "KELVANE_ALLOW_WRITES";

/// The value of an environment variable. Empty if it is not set, or set to nothing.
std::optional<std::string> variable(std::string_view name);

/// Whether a variable switches something on ("1") or off ("0"). Empty if it is not set. Throws UsageError for any other
/// value.
std::optional<bool> switchVariable(std::string_view name);

/// Whether a program of this name can be started, because a folder of PATH has it. Asks the system once for each
/// folder.
bool isOnPath(std::string_view program);

/// Adds each option of the command that has a variable which is set, unless the option was typed. Throws UsageError as
/// above.
void addVariables(const Command& command, Arguments& arguments);

}  // namespace kelvane

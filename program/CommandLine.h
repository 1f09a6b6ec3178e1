#pragma once

#include <CLI/App.hpp>
#include <functional>
#include <string_view>

namespace kelvane {

/// What a command does once the command line was understood; it returns the exit status, or throws.
using Action = std::function<int()>;

/// Adds a command to the program, with its help as it is printed. The command's options are added to what is returned;
/// `chosen` becomes the action when the command is the one that was typed.
CLI::App& addCommand(CLI::App& program, std::string_view name, std::string_view help, Action& chosen, Action action);

/// Reads the command line into what the commands' options are bound to. True when a help or the version was asked for
/// and printed, and there is nothing more to do. Throws UsageError for what it cannot understand, with the option or
/// command that was probably meant.
bool parse(CLI::App& program, int argc, const char* const* argv);

}  // namespace kelvane

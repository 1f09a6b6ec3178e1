#include "program/CommandLine.h"

#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "program/Nearest.h"
#include "program/Process.h"

namespace kelvane {
namespace {

// "--name=" as two arguments: CLI11 takes the empty text for a missing one, and the next argument for it.
std::vector<std::string> arguments(int argc, const char* const* argv) {
  std::vector<std::string> arguments;
  for (int i = 1; i < argc; ++i) {
    std::string argument = argv[i];
    const bool isEmptyValue = argument.starts_with("--") && argument.find('=') == argument.size() - 1;
    if (isEmptyValue) argument.pop_back();
    arguments.push_back(std::move(argument));
    if (isEmptyValue) arguments.emplace_back();
  }
  return arguments;
}

std::string commandName(const CLI::App& command) {
  return command.get_parent() == nullptr ? "kelvane" : "kelvane " + command.get_name();
}

std::vector<std::string> optionsOf(const CLI::App& command) {
  std::vector<std::string> names;
  for (const CLI::Option* option : command.get_options()) {
    if (option->nonpositional()) names.push_back("--" + option->get_lnames().front());
  }
  return names;
}

std::vector<std::string> commandsOf(const CLI::App& program) {
  std::vector<std::string> names;
  for (const CLI::App* command : program.get_subcommands(nullptr)) names.push_back(command->get_name());
  return names;
}

// About the first of the arguments that `command` has no place for.
[[noreturn]] void refuse(const std::string& argument, const CLI::App& command) {
  const std::string name = commandName(command);
  const std::string more = " \"" + name + " --help\" says what there is.";
  const auto saying = [&](const std::string& sentence, const std::string& typed,
                          const std::vector<std::string>& names) {
    const std::string meant = suggestion(typed, names);
    return UsageError(sentence + (meant.empty() ? more : meant));
  };
  if (argument.starts_with('-')) {
    throw saying("\"" + name + "\" has no option \"" + argument + "\".", argument.substr(0, argument.find('=')),
                 optionsOf(command));
  }
  if (command.get_parent() == nullptr) {
    throw saying("There is no command \"" + argument + "\".", argument, commandsOf(command));
  }
  throw UsageError("\"" + name + "\" has no use for \"" + argument + "\"." + more);
}

const CLI::App& typedCommand(const CLI::App& program) {
  const std::vector<CLI::App*> commands = program.get_subcommands();
  return commands.empty() ? program : *commands.front();
}

// `first` is the first argument.
void refuseExtras(const CLI::App& program, const std::string& first) {
  const CLI::App& command = typedCommand(program);
  // Behind the command all is the command's, though what stands behind "--" there is left to the program.
  const bool isAllTheCommands = first == command.get_name();
  const std::vector<std::string> extras = command.remaining(false);
  if (isAllTheCommands && !extras.empty()) refuse(extras.front(), command);
  const std::vector<std::string> others = program.remaining(false);
  if (!others.empty()) refuse(others.front(), isAllTheCommands ? command : program);
  if (!extras.empty()) refuse(extras.front(), command);
}

}  // namespace

CLI::App& addCommand(CLI::App& program, std::string_view name, std::string_view help, Action& chosen, Action action) {
  CLI::App& command = *program.add_subcommand(std::string(name));
  command.formatter_fn([help](const CLI::App*, const std::string&, CLI::AppFormatMode) { return std::string(help); });
  command.callback([&chosen, action = std::move(action)] { chosen = action; });
  return command;
}

bool parse(CLI::App& program, int argc, const char* const* argv) {
  std::vector<std::string> typed = arguments(argc, argv);
  const std::string first = typed.empty() ? std::string() : typed.front();
  std::reverse(typed.begin(), typed.end());  // as CLI11 wants them
  try {
    program.parse(std::move(typed));
  } catch (const CLI::CallForHelp&) {
    if (program.get_subcommands().empty()) refuseExtras(program, first);  // help on a command that there is not
    print(program.help());
    return true;
  } catch (const CLI::CallForVersion& version) {
    print(std::string(version.what()) + '\n');
    return true;
  } catch (const CLI::ExtrasError&) {
    refuseExtras(program, first);
  } catch (const CLI::ParseError& error) {
    const std::string name = commandName(typedCommand(program));
    throw UsageError("\"" + name + "\" was not understood (" + error.what() + "). \"" + name +
                     " --help\" says how it is used.");
  }
  return false;
}

}  // namespace kelvane

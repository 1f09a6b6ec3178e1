#include "program/CommandLine.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "program/Nearest.h"
#include "program/Process.h"
#include "quorvel/files/SystemReason.h"

namespace kelvane {
namespace {

using Names = std::vector<std::string>;

bool asksForHelp(std::string_view argument) {
  return argument == helpOption.name || argument == "-h";
}

// A dash alone and a negative number are words.
bool isOption(std::string_view argument) {
  return argument.size() > 1 && argument[0] == '-' && (argument[1] < '0' || argument[1] > '9');
}

[[noreturn]] void refuse(const std::string& sentence, const std::string& meant, const std::string& program) {
  throw UsageError(sentence + (meant.empty() ? " Run: " + program + " --help" : meant));
}

[[noreturn]] void refuseOption(std::string_view argument, const Names& names, const std::string& program) {
  refuse(quorvel::inQuotes(program) + " has no option " + quorvel::inQuotes(argument) + ".",
         suggestion(argument.substr(0, argument.find('=')), names), program);
}

/// Reads what stands behind a command's name.
class Reading {
 public:
  Reading(const Command& command, std::span<const char* const> typed)
      : command_(command), program_("kelvane " + std::string(command.name)), left_(typed) {}

  Arguments arguments() {
    bool onlyWords = false;
    while (!left_.empty()) {
      std::string argument = next();
      if (onlyWords || !isOption(argument)) {
        takeWord(std::move(argument));
      } else if (argument == "--") {
        onlyWords = true;
      } else {
        takeOption(argument);
      }
    }
    return std::move(arguments_);
  }

 private:
  std::string next() {
    std::string argument = left_.front();
    left_ = left_.subspan(1);
    return argument;
  }

  void takeWord(std::string word) {
    if (arguments_.words.size() == command_.mostWords) {
      refuse(quorvel::inQuotes(program_) + " does not take " + quorvel::inQuotes(word) + ".", "", program_);
    }
    arguments_.words.push_back(std::move(word));
  }

  void takeOption(const std::string& argument) {
    const std::size_t equals = argument.find('=');
    const std::string name = argument.substr(0, equals);
    const auto option = std::find_if(command_.options.begin(), command_.options.end(),
                                     [&](const Option& each) { return each.name == name; });
    if (option == command_.options.end()) refuseOption(argument, optionNames(), program_);
    if (option->value.empty()) {
      if (equals == std::string::npos) return arguments_.set(*option, "");
      throw UsageError(name + " takes no value. Leave out " + quorvel::inQuotes(argument.substr(equals)) + ".");
    }
    std::string value;
    if (equals != std::string::npos) {
      value = argument.substr(equals + 1);
    } else if (!left_.empty()) {
      value = next();
    }
    if (value.empty()) {
      throw UsageError(name + " needs " + std::string(option->meaning) + ": " + usageOf(*option) + ".");
    }
    if (arguments_.has(*option) && !option->isRepeatable) throw UsageError(name + " is given twice. Give it once.");
    arguments_.set(*option, std::move(value));
  }

  Names optionNames() const {
    Names names;
    for (const Option& option : command_.options) names.emplace_back(option.name);
    names.emplace_back(helpOption.name);
    return names;
  }

  const Command& command_;
  std::string program_;
  std::span<const char* const> left_;
  Arguments arguments_;
};

const Command& commandNamed(std::string_view name, Commands commands) {
  Names names;
  for (const Command* command : commands) {
    if (command == nullptr) continue;
    if (command->name == name) return *command;
    names.emplace_back(command->name);
  }
  names.emplace_back(helpWord);
  refuse("There is no command " + quorvel::inQuotes(name) + ".", suggestion(name, names), "kelvane");
}

}  // namespace

std::string usageOf(const Option& option) {
  std::string text(option.name);
  return option.value.empty() ? text : text.append(" ").append(option.value);
}

Request understand(std::span<const char* const> typed, Commands commands) {
  Request request;
  for (; !typed.empty(); typed = typed.subspan(1)) {
    const std::string_view argument = typed.front();
    if (asksForHelp(argument) || argument == helpWord) {
      request.wantsHelp = true;
    } else if (argument == versionOption.name) {
      return {.wantsVersion = true};
    } else if (isOption(argument) && argument != "--") {
      refuseOption(argument, {std::string(helpOption.name), std::string(versionOption.name)}, "kelvane");
    } else if (argument != "--") {
      request.command = &commandNamed(argument, commands);
      const auto rest = typed.subspan(1);
      const auto onlyWords = std::find(rest.begin(), rest.end(), std::string_view("--"));
      request.wantsHelp = request.wantsHelp || std::any_of(rest.begin(), onlyWords, asksForHelp);
      if (request.wantsHelp) {
        if (!rest.empty() && !isOption(rest.front())) request.topic = rest.front();
      } else {
        request.arguments = Reading(*request.command, rest).arguments();
      }
      break;
    }
  }
  return request;
}

}  // namespace kelvane

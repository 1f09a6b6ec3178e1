#include "program/Environment.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>

#include "program/Process.h"
#include "quorvel/files/SystemReason.h"

namespace kelvane {

std::optional<std::string> variable(std::string_view name) {
  const char* value = std::getenv(std::string(name).c_str());
  if (value == nullptr || *value == '\0') return std::nullopt;
  return value;
}

std::optional<bool> switchVariable(std::string_view name) {
  const auto value = variable(name);
  if (!value) return std::nullopt;
  if (*value == "1") return true;
  if (*value == "0") return false;
  throw UsageError("The environment variable " + std::string(name) + " is " + quorvel::inQuotes(*value) +
                   ". Set it to 1 or 0.");
}

bool isOnPath(std::string_view program) {
  const std::string path = variable("PATH").value_or("");
  for (std::string_view left = path; !left.empty();) {
    const std::string_view folder = left.substr(0, left.find(':'));
    left.remove_prefix(std::min(folder.size() + 1, left.size()));
    if (!folder.empty() && ::access((std::filesystem::path(folder) / program).c_str(), X_OK) == 0) return true;
  }
  return false;
}

void addVariables(const Command& command, Arguments& arguments) {
  for (const Option& option : command.options) {
    if (option.variable.empty() || arguments.has(option)) continue;
    if (!option.value.empty()) {
      if (auto value = variable(option.variable)) arguments.set(option, *std::move(value));
    } else if (switchVariable(option.variable).value_or(false)) {
      arguments.set(option, "");
    }
  }
}

}  // namespace kelvane

#include "program/commands/Commands.h"

namespace kelvane::commands {
namespace {

constexpr const Command* table[] = {
    &setupCommand,       &settingsCommand, &connectCommand,  &disconnectCommand, &doctorCommand, nullptr,
    &listCommand,        &historyCommand,  &diffCommand,     &undoCommand,       &reviewCommand, &showCommand,
    &restoreCommand,     nullptr,          &serveCommand,    &callCommand,       &toolsCommand,  nullptr,
    &completionsCommand, &manualCommand,   &completeCommand,
};

}  // namespace

Commands all() noexcept {
  return table;
}

}  // namespace kelvane::commands

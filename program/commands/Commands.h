#pragma once

#include "program/CommandLine.h"

/// Every command, in a source of its own. The table of them stands in program/main.cpp.
namespace kelvane::commands {

extern const Command settingsCommand;
extern const Command connectCommand;
extern const Command disconnectCommand;
extern const Command doctorCommand;
extern const Command historyCommand;
extern const Command showCommand;
extern const Command restoreCommand;
extern const Command serveCommand;
extern const Command callCommand;

/// What AI clients start: kelvane without a command. Serves as the settings say. Throws an error with complete
/// sentences before it reads anything if they say that the server is off, or name no folder that can be read.
int serveBySettings();

}  // namespace kelvane::commands

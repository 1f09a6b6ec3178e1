#pragma once

#include "program/CommandLine.h"

/// Every command, in a source of its own. The table in Commands.cpp lists them in the order of the help.
///
/// A new command is a source here, a line below, and a line in that table. Its help, its completions and its section of
/// the manual page are made from its record:
///
///     constinit const Command helloCommand = {
///         .name = "hello", .summary = "Greet a person.", .about = "Greets a person.", .mostWords = 1, .run = run};
///
/// They are constants without constructors, so the order in which sources are linked does not matter.
namespace kelvane::commands {

extern const Command setupCommand;
extern const Command settingsCommand;
extern const Command connectCommand;
extern const Command disconnectCommand;
extern const Command doctorCommand;
extern const Command historyCommand;
extern const Command diffCommand;
extern const Command undoCommand;
extern const Command reviewCommand;
extern const Command showCommand;
extern const Command restoreCommand;
extern const Command listCommand;
extern const Command toolsCommand;
extern const Command serveCommand;
extern const Command callCommand;
extern const Command completionsCommand;
extern const Command manualCommand;
extern const Command completeCommand;

/// The table of all commands.
Commands all() noexcept;

/// An option of "doctor": to be content without a connected client.
inline constexpr Option noClientsOption = {"--no-clients", "Ask for no connected AI client."};

/// What AI clients start: kelvane without a command. Serves as the settings say. Throws an error with complete
/// sentences before it reads anything if they say that the server is off, or name no folder that can be read.
int serveBySettings();

}  // namespace kelvane::commands

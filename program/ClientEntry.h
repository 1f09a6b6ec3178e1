#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "program/AIClient.h"

namespace kelvane {

/// Our entry in one of an AI client's files.
struct ClientEntry {
  const AIClient* client;
  std::filesystem::path file;
  std::optional<std::string> command = {};                 ///< Empty if the file has no entry of ours.
  std::optional<std::vector<std::string>> arguments = {};  ///< Empty if they are not an array of strings.
  std::optional<std::string> home = {};                    ///< What it sets HOME to.
  bool isSwitchedOff = false;
  std::string problem = {};  ///< Complete sentences, if the file cannot be read.
  bool isInLines = false;    ///< In that case, whether its lines still register this program.
};

/// Our entries in the files of all known clients, one per file. `executable` is this program. Reads each file; one that
/// cannot be read, or is not of its format, has a `problem`.
std::vector<ClientEntry> entriesOfAllClients(const std::string& executable);

/// Whether any client starts this program, as far as that can be read.
bool anyRegistered(const std::vector<ClientEntry>& entries) noexcept;

/// Whether the settings apply to any client, now or once it is connected. They do not apply to one that starts us with
/// arguments other than "--".
bool dependOnSettings(const std::vector<ClientEntry>& entries);

/// Why a command does not start this program, as the end of a sentence; empty if it does.
std::string faultOf(const std::string& command, const std::string& executable);

/// Whether what the entry starts reads its settings from another home folder than ours. With a library of its own it
/// reads none.
bool readsOtherSettings(const ClientEntry& entry);

}  // namespace kelvane

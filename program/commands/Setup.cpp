#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "platform/FileSystem.h"
#include "platform/HomeFolder.h"
#include "platform/Unicode.h"
#include "program/AIClient.h"
#include "program/ClientEntry.h"
#include "program/Environment.h"
#include "program/Nearest.h"
#include "program/OpenedLibrary.h"
#include "program/OwnSettings.h"
#include "program/Process.h"
#include "program/Registration.h"
#include "program/Wording.h"
#include "program/commands/Commands.h"
#include "quorvel/files/SystemReason.h"

/// All questions are asked before anything is done. Then each step says what it did; the first one that fails ends the
/// setup, but for a client whose file cannot be changed: the others are still connected.
namespace kelvane::commands {
namespace {

namespace fs = std::filesystem;

constexpr Option folderOption = {"--library", "Where the scripts are. Default: ~/Scripts, made if it is missing.",
                                 "DIR", "a folder"};
constexpr Option allowWrites = {"--allow-writes", "Let AI clients change the scripts too."};
constexpr Option clientOption = {"--client", "An AI client to connect, or \"none\". Default: all that are found here.",
                                 "NAME",     "a client",
                                 {},         true};
constexpr Option yesOption = {"--yes", "Ask nothing: what is not typed is as it is set now, or the default."};
constexpr Option options[] = {folderOption, allowWrites, clientOption, yesOption};

constexpr std::string_view welcomeName = "Welcome";
constexpr std::string_view welcomeText =
    "# Welcome\n\n"
    "This is a script: a text that you write and read aloud. A line that begins with a number sign and a space begins "
    "a "
    "chapter.\n\n"
    "# What to try\n\n"
    "Ask your AI client which scripts you have, or how long this one takes to read aloud. If you let it write, ask for "
    "a "
    "shorter version. Then look at what changed with the command \"kelvane diff Welcome\", and take it back with "
    "\"kelvane undo\".\n";

/// What is to be done.
struct Plan {
  fs::path folder;
  bool allowsWrites = false;
  std::vector<std::string> clients;
};

/// Asks at the terminal. Throws an error if there is no answer, because the input has ended.
class Questions {
 public:
  std::string ask(const std::string& question, const std::string& byDefault) const {
    print(question + " [" + byDefault + "] ");
    std::string answer;
    if (!std::getline(std::cin, answer)) throw std::runtime_error("The input ended. Nothing was changed.");
    return answer.empty() ? byDefault : answer;
  }

  bool confirm(const std::string& question, bool byDefault) const {
    while (true) {
      const std::string answer = unicode::lowercased(ask(question, byDefault ? "yes" : "no"));
      if (answer == "y" || answer == "yes") return true;
      if (answer == "n" || answer == "no") return false;
      print("Type yes or no.\n");
    }
  }
};

// "~/Scripts", which only a shell would replace.
fs::path withHome(const std::string& typed) {
  const auto home = homeFolder();
  if (home && typed == "~") return *home;
  if (home && typed.starts_with("~/")) return *home / typed.substr(2);
  return typed;
}

// A client is here if its program can be started, or it has left a configuration or a folder of its own.
bool isHere(const AIClient& client) {
  const auto home = homeFolder();
  std::error_code error;
  for (const fs::path& file : client.files()) {
    const bool hasFolder = file.parent_path() != home && fs::exists(file.parent_path(), error);
    if (hasFolder || fs::exists(file, error)) return true;
  }
  return isOnPath(client.name);
}

std::vector<std::string> typedClients(const Arguments& arguments) {
  std::vector<std::string> known = {"none"};
  for (const AIClient& client : aiClients()) known.emplace_back(client.name);
  std::vector<std::string> clients;
  for (const std::string& typed : arguments.values(clientOption)) {
    if (std::find(known.begin(), known.end(), typed) == known.end()) {
      throw UsageError("There is no client " + quorvel::inQuotes(typed) + "." + suggestion(typed, known) +
                       " Run: kelvane connect --help");
    }
    if (typed != "none") clients.push_back(typed);
  }
  return clients;
}

Plan planned(const Arguments& arguments, const OwnSettings& settings) {
  const bool asks = !arguments.has(yesOption);
  if (asks && ::isatty(STDIN_FILENO) == 0) {
    throw UsageError("Setup cannot ask here, because standard input is not a terminal. Run: kelvane setup --yes");
  }
  Plan plan;
  plan.clients = typedClients(arguments);
  const Questions questions;
  const auto named = settings.namedLibraryFolder();
  std::string folder = named ? named->native() : "~/Scripts";
  if (arguments.has(folderOption)) {
    folder = arguments.value(folderOption);
  } else if (asks) {
    folder = questions.ask("Where are your scripts? A folder that is missing is made.", folder);
  }
  plan.folder = filesystem::standardized(withHome(folder));
  plan.allowsWrites = arguments.has(allowWrites) || settings.store().boolForKey(Preferences::allowsWritesKey);
  if (asks && !arguments.has(allowWrites)) {
    plan.allowsWrites = questions.confirm("May AI clients change the scripts? What they replace is always saved first.",
                                          plan.allowsWrites);
  }
  if (arguments.has(clientOption)) return plan;
  for (const AIClient& client : aiClients()) {
    if (!isHere(client)) continue;
    if (asks && !questions.confirm("Connect " + std::string(client.title) + "?", true)) continue;
    plan.clients.emplace_back(client.name);
  }
  return plan;
}

// Makes the folder, with a script to begin with, unless it is there.
void makeLibrary(const fs::path& folder) {
  const std::string name = quorvel::inQuotes(folder.native());
  std::error_code error;
  const bool isNew = !fs::exists(fs::symlink_status(folder, error));
  if (isNew) fs::create_directories(folder, error);
  if (error == std::errc::not_a_directory) {
    throw std::runtime_error("The folder " + name +
                             " could not be made, because a file is in its way. Choose another.");
  }
  if (error) throw std::runtime_error(quorvel::because("The folder " + name + " could not be made", error));
  const OpenedLibrary opened = openLibrary(folder, usageOf(folderOption));
  if (!isNew) return;
  say("The folder " + name + " is made.");
  const auto lock = opened.library->lock();
  opened.library->write(welcomeText, opened.library->create(welcomeName, std::nullopt));
  say("It has a first script, \"" + std::string(welcomeName) + ".md\".");
}

// False if a client could not be connected.
bool connectClients(const std::vector<std::string>& clients) {
  bool isDone = true;
  for (const std::string& client : clients) {
    Arguments arguments;
    arguments.words = {client};
    isDone = changeRegistration(true, arguments) && isDone;
  }
  return isDone;
}

int run(const Arguments& arguments) {
  const OwnSettings settings;
  const Plan plan = planned(arguments, settings);
  makeLibrary(plan.folder);
  settings.change(OwnSettings::libraryFolderKey, std::string_view(plan.folder.native()));
  settings.change(Preferences::allowsWritesKey, plan.allowsWrites);
  settings.change(Preferences::enabledKey, true);
  say("AI clients get the scripts in " + quorvel::inQuotes(plan.folder.native()) + " and can " +
      (plan.allowsWrites ? "change them." : "only read them."));
  const bool areConnected = connectClients(plan.clients);
  print("\n");
  const bool isAnyConnected = anyRegistered(entriesOfAllClients(ownExecutable()));
  Arguments withoutClients;
  if (!isAnyConnected && plan.clients.empty()) withoutClients.set(noClientsOption, "");
  const int health = doctorCommand.run(withoutClients);
  print(isAnyConnected ? "\nRestart your AI client, and it can use the scripts.\n"
                       : "\nNo AI client is connected yet.\n");
  print(
      "To change an answer later, run one of these:\n\n"
      "  kelvane settings library DIR\n"
      "  kelvane settings allow-writes      (or read-only)\n"
      "  kelvane connect CLIENT             (or disconnect)\n");
  return areConnected && health == done ? done : failed;
}

}  // namespace

constinit const Command setupCommand = {
    .name = "setup",
    .summary = "Set everything up: the folder, the switches, the AI clients.",
    .about =
        "Sets everything up: asks where the scripts are, whether AI clients may change them, and which clients to "
        "connect. Then it does that and checks it. It can be run again at any time.",
    .options = options,
    .notes =
        "A client is found here if its program can be started or its configuration is there. The exit status is 0 if "
        "all is set up, and 1 if something failed; what was done until then is said.",
    .run = run,
};

}  // namespace kelvane::commands

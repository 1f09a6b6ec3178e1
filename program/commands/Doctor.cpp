#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <exception>
#include <optional>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "platform/FileSystem.h"
#include "platform/HomeFolder.h"
#include "program/ClientEntry.h"
#include "program/ClientFile.h"
#include "program/LibraryItems.h"
#include "program/OpenedLibrary.h"
#include "program/OwnSettings.h"
#include "program/Process.h"
#include "program/ServerTrial.h"
#include "program/Wording.h"
#include "program/commands/Commands.h"
#include "quorvel/files/SystemCalls.h"
#include "quorvel/files/SystemReason.h"
#include "quorvel/history/OwnFolder.h"

namespace kelvane::commands {
namespace {

constexpr std::chrono::seconds patience(20);

/// The findings, each printed at once, or all together as JSON at the end.
class Findings {
 public:
  explicit Findings(bool asJSON) : asJSON_(asJSON) {}

  void right(const std::string& sentences) { add("ok", sentences); }
  void remark(const std::string& sentences) { add("note", sentences); }
  void wrong(const std::string& sentences) {
    add("wrong", sentences);
    isAnythingWrong_ = true;
  }

  /// To be called once, after the last finding.
  void finish() const {
    if (asJSON_) print(JSON(findings_).encoded() + '\n');
  }

  bool isAnythingWrong() const noexcept { return isAnythingWrong_; }

 private:
  void add(std::string_view kind, const std::string& sentences) {
    if (asJSON_) {
      findings_.append(JSON::Object{{"kind", kind}, {"text", sentences}});
    } else {
      constexpr std::size_t width = 7;
      say(std::string(kind).append(width - kind.size(), ' ').append(sentences));
    }
  }

  bool asJSON_;
  JSON::Array findings_;
  bool isAnythingWrong_ = false;
};

void lookAtSwitches(const OwnSettings& settings, bool theyCount, Findings& findings) {
  if (const auto problem = settings.problem()) findings.wrong(*problem);
  const Preferences preferences = settings.preferences();
  if (!preferences.isEnabled()) {
    theyCount ? findings.wrong(OwnSettings::serverIsOff) : findings.remark(OwnSettings::serverIsOff);
  } else if (preferences.allowsWrites()) {
    findings.right("The server is switched on, and AI clients can change scripts.");
  } else {
    findings.right(
        "The server is switched on, and AI clients can only read. To let them write, run: kelvane settings "
        "allow-writes");
  }
}

std::int64_t countOfScripts(const quorvel::FolderLibrary& library) {
  const std::vector<LibraryItem> items = itemsOf(library);
  return std::count_if(items.begin(), items.end(), [](const LibraryItem& item) { return !item.isFolder(); });
}

// Why a tool cannot write, as the end of a sentence; empty if it can. Changes nothing.
std::optional<std::string> obstacleToWriting(const std::filesystem::path& root) {
  const std::filesystem::path own = root / quorvel::ownFolderName;
  for (const std::filesystem::path& path : {root, own, own / quorvel::lockFileName, own / quorvel::historyFileName}) {
    const int rights = filesystem::entry(path) == filesystem::EntryKind::directory ? W_OK | X_OK : W_OK;
    if (::faccessat(AT_FDCWD, path.c_str(), rights, AT_EACCESS) == 0 || errno == ENOENT) continue;
    return quorvel::inQuotes(path.native()) + " cannot be written, because " +
           quorvel::SystemReason::of(quorvel::lastError()).reason;
  }
  return std::nullopt;
}

std::optional<OpenedLibrary> lookAtLibrary(const Arguments& arguments, bool isToBeWritten, Findings& findings) {
  try {
    OpenedLibrary opened = openLibraryOf(arguments);
    const quorvel::FolderLibrary& library = *opened.library;
    const std::string folder = quorvel::inQuotes(library.root().native());
    const std::string scripts = counted(countOfScripts(library), "script");
    const auto obstacle = obstacleToWriting(library.root());
    if (!obstacle) {
      findings.right(folder + " can be read and written, and holds " + scripts + ".");
    } else if (isToBeWritten) {
      findings.wrong(folder + " holds " + scripts + ", but " + *obstacle +
                     ". Allow your user to write there, or run: kelvane settings read-only");
    } else {
      findings.right(folder + " can be read but not written, and holds " + scripts + ".");
    }
    if (const std::size_t count = library.countOfUnlistableNames(); count > 0) {
      findings.remark(counted(static_cast<std::int64_t>(count), "name") + (count == 1 ? " in it is" : " in it are") +
                      " not UTF-8 and cannot be listed. Rename the files so that AI clients see them.");
    }
    return opened;
  } catch (const std::exception& error) {
    findings.wrong(error.what());
    return std::nullopt;
  }
}

void lookAtHistory(const quorvel::History& history, Findings& findings) {
  try {
    const std::vector<std::string> problems = history.problems();
    for (const std::string& problem : problems) findings.wrong(problem);
    if (!problems.empty()) return;
    const std::vector<quorvel::HistoryOfScript> scripts = history.scripts();
    std::int64_t versions = 0;
    for (const quorvel::HistoryOfScript& script : scripts) versions += script.versions;
    findings.right(scripts.empty() ? std::string("There is no version history yet. The first change creates it.")
                                   : "The version history is sound: " + counted(versions, "version") + " of " +
                                         counted(static_cast<std::int64_t>(scripts.size()), "script") + ".");
  } catch (const std::exception& error) {
    findings.wrong(error.what());
  }
}

// "answers, with 6 tools", or throws what is wrong.
std::string answer(const std::string& executable, const std::vector<std::string>& arguments) {
  return "answers, with " + counted(static_cast<std::int64_t>(tryServer(executable, arguments, patience)), "tool") +
         ".";
}

void lookAtEntry(const ClientEntry& entry, const std::string& executable, Findings& findings) {
  const std::string starts =
      quorvel::inQuotes(entry.file.native()) + " makes " + std::string(entry.client->title) + " start ";
  const std::string fault = faultOf(*entry.command, executable);
  if (!fault.empty()) {
    findings.wrong(starts + quorvel::inQuotes(*entry.command) + ", which " + fault + ". Run: kelvane connect " +
                   std::string(entry.client->name));
    return;
  }
  const std::string anew = "or rewrite the entry. Run: kelvane connect " + std::string(entry.client->name);
  if (entry.isSwitchedOff) {
    findings.wrong(quorvel::inQuotes(entry.file.native()) + " registers this program but disables it, so " +
                   std::string(entry.client->title) + " does not start it. Remove \"enabled = false\" there, " + anew);
    return;
  }
  if (readsOtherSettings(entry)) {
    findings.wrong(starts + "this program with HOME set to " + quorvel::inQuotes(*entry.home) +
                   ", so it does not read your settings. Remove HOME there, " + anew);
    return;
  }
  const std::string alias = *entry.command == executable ? "" : ", as " + quorvel::inQuotes(*entry.command);
  if (!entry.arguments) {
    findings.wrong(starts + "this program" + alias +
                   ", with arguments that are not an array of strings. Run: kelvane " + "connect " +
                   std::string(entry.client->name));
    return;
  }
  if (entry.arguments->empty()) {
    findings.right(starts + "this program" + alias + ".");
    return;
  }
  std::string with;
  for (const std::string& argument : *entry.arguments) with += (with.empty() ? "" : " ") + argument;
  const std::string program = starts + "this program" + alias + " with \"" + with + "\", which ";
  if (!startsServer(*entry.arguments)) {
    findings.wrong(program + "does not serve. Run: kelvane connect " + std::string(entry.client->name));
    return;
  }
  try {
    findings.right(program + answer(executable, *entry.arguments));
  } catch (const std::exception& error) {
    findings.wrong(program + "does not answer. " + error.what());
  }
}

void lookAtClients(const std::vector<ClientEntry>& entries, const std::string& executable, bool isNoneNeeded,
                   Findings& findings) {
  bool isAnySeen = isNoneNeeded;
  for (const ClientEntry& entry : entries) {
    if (!entry.problem.empty()) findings.wrong(entry.problem);
    if (entry.command) lookAtEntry(entry, executable, findings);
    isAnySeen = isAnySeen || entry.command || !entry.problem.empty();
  }
  for (const ClientEntry& entry : entries) {
    if (entry.command || !entry.problem.empty()) continue;
    const std::string missing = std::string(entry.client->title) + " does not start this program. To register it in " +
                                quorvel::inQuotes(entry.file.native()) + ", run: kelvane connect " +
                                std::string(entry.client->name);
    isAnySeen ? findings.remark(missing) : findings.wrong(missing);
  }
}

void lookAtLeftovers(const quorvel::FileCopies& file, Findings& findings) {
  const LeftoverSentences sentences = sentencesOn(quorvel::leftoversOf(file), file.file());
  if (!sentences.onThoseToDelete.empty()) findings.remark(sentences.onThoseToDelete);
  for (const std::string& sentence : sentences.onTextsThatAreNowhereElse) findings.wrong(sentence);
}

void lookAtServer(const std::string& executable, const std::vector<std::string>& arguments, Findings& findings) {
  try {
    findings.right("Started as an AI client starts it, this program " + answer(executable, arguments));
  } catch (const std::exception& error) {
    findings.wrong("Started as an AI client starts it, this program does not answer. " + std::string(error.what()));
  }
}

int run(const Arguments& arguments) {
  Findings findings(arguments.has(jsonOption));
  const OwnSettings settings;
  const std::string executable = ownExecutable();
  const std::vector<ClientEntry> entries = entriesOfAllClients(executable);
  const bool areNeeded = !arguments.has(libraryOption) || (anyRegistered(entries) && dependOnSettings(entries));
  if (homeFolder() || areNeeded) {
    lookAtSwitches(settings, dependOnSettings(entries), findings);
  } else {
    const std::string andNoClient = entries.empty() ? " and no AI client is set up" : "";
    findings.remark("There is no home folder, so there are no settings" + andNoClient + ". Set HOME to one.");
  }
  const auto opened = lookAtLibrary(arguments, settings.preferences().allowsWrites(), findings);
  if (opened) lookAtHistory(*opened->history, findings);
  lookAtClients(entries, executable, arguments.has(noClientsOption), findings);
  for (const ClientEntry& entry : entries) lookAtLeftovers(clientFile(entry.file), findings);
  if (homeFolder()) lookAtLeftovers(settings.store().copies(), findings);
  if (arguments.has(libraryOption) && opened) {
    const std::string library = std::string(libraryOption.name) + '=' + arguments.value(libraryOption);
    lookAtServer(executable, {"serve", library}, findings);
  } else if (opened && settings.preferences().isEnabled()) {
    lookAtServer(executable, {}, findings);
  }
  findings.finish();
  return findings.isAnythingWrong() ? failed : done;
}

constexpr Option options[] = {libraryOption, noClientsOption, jsonOption};

}  // namespace

constinit const Command doctorCommand = {
    .name = "doctor",
    .summary = "Check the setup, with a fix for each problem.",
    .about =
        "Checks everything an AI client needs, one line per check, with a fix for each problem. It changes nothing.",
    .options = options,
    .notes = "The exit status is 0 if everything is fine, and 1 otherwise.",
    .run = run,
};

}  // namespace kelvane::commands

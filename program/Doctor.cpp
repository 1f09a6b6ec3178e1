#include "program/Doctor.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include "platform/FileSystem.h"
#include "program/AIClient.h"
#include "program/Handshake.h"
#include "program/LibraryOptions.h"
#include "program/OwnSettings.h"
#include "program/Process.h"
#include "program/ScriptHistory.h"
#include "quorvel/library/LibraryError.h"
#include "quorvel/library/OwnFolder.h"
#include "quorvel/settings/FileChange.h"

namespace kelvane {
namespace {

constexpr std::string_view help =
    R"(Looks at all that must be right for an AI client to work on the scripts: a line for each thing, with what to do where
something is not right. Nothing is changed.

Usage: kelvane doctor [--library DIR]

  --library DIR     The folder that holds the scripts; without it, the one of the settings.
  -h, --help        Print this.

The status is 0 when nothing is wrong, and 1 otherwise.
)";

constexpr std::chrono::seconds patience(20);

/// What was found, printed as it is found.
class Findings {
 public:
  void right(const std::string& sentences) { say("ok     ", sentences); }
  void remark(const std::string& sentences) { say("note   ", sentences); }
  void wrong(const std::string& sentences) {
    say("wrong  ", sentences);
    anythingWrong_ = true;
  }

  bool anythingWrong() const noexcept { return anythingWrong_; }

 private:
  static void say(std::string_view mark, const std::string& sentences) {
    print(std::string(mark).append(sentences).append("\n"));
  }

  bool anythingWrong_ = false;
};

std::string named(const std::filesystem::path& file) {
  return "\"" + file.native() + "\"";
}

void lookAtSwitches(const OwnSettings& settings, Findings& findings) {
  if (const auto problem = settings.problem()) findings.wrong(*problem);
  const Preferences preferences = settings.preferences();
  if (!preferences.isEnabled()) {
    findings.wrong("The server is switched off: \"kelvane settings enable\" switches it on.");
  } else if (preferences.allowsWrites()) {
    findings.right("The server is switched on, and AI clients may change scripts.");
  } else {
    findings.right(
        "The server is switched on. AI clients may only read; \"kelvane settings allow-writes\" lets them write.");
  }
}

std::int64_t countOfScripts(const quorvel::FolderLibrary& library) {
  std::vector<quorvel::ScriptItem> waiting = library.contents(library.root());
  std::int64_t count = 0;
  while (!waiting.empty()) {
    quorvel::ScriptItem item = std::move(waiting.back());
    waiting.pop_back();
    count += item.kind == quorvel::ScriptItem::Kind::script;
    if (item.children) {
      for (quorvel::ScriptItem& child : *item.children) waiting.push_back(std::move(child));
    }
  }
  return count;
}

// Why a tool that writes could not, as the end of a sentence; nothing when it could. Leaves everything as it is.
std::optional<std::string> obstacleToWriting(const std::filesystem::path& root) {
  const std::filesystem::path own = root / quorvel::ownFolderName;
  for (const std::filesystem::path& path : {root, own, own / "lock", own / "history.sqlite"}) {
    const int rights = filesystem::entry(path) == filesystem::EntryKind::directory ? W_OK | X_OK : W_OK;
    if (::faccessat(AT_FDCWD, path.c_str(), rights, AT_EACCESS) == 0 || errno == ENOENT) continue;
    return named(path) + " cannot be written, because " + quorvel::reason(errno);
  }
  return std::nullopt;
}

std::optional<OpenedLibrary> lookAtLibrary(const LibraryOptions& options, bool isToBeWritten, Findings& findings) {
  try {
    OpenedLibrary opened = options.open();
    const quorvel::FolderLibrary& library = *opened.library;
    const std::string folder = named(library.root());
    const std::string scripts = counted(countOfScripts(library), "script");
    const auto obstacle = obstacleToWriting(library.root());
    if (!obstacle) {
      findings.right(folder + " can be read and written, and holds " + scripts + ".");
    } else if (isToBeWritten) {
      findings.wrong(folder + " holds " + scripts + ", but " + *obstacle +
                     ". Let your user write there, or say \"kelvane settings read-only\".");
    } else {
      findings.right(folder + " can be read, though not written, and holds " + scripts + ".");
    }
    if (const std::size_t count = library.countOfUnlistableNames(); count > 0) {
      findings.remark(counted(static_cast<std::int64_t>(count), "name") +
                      " in it cannot be listed, being no UTF-8. Rename the files for AI clients to see them.");
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
    findings.right(scripts.empty() ? std::string("There is no version history yet; the first change begins it.")
                                   : "The version history is sound: " + counted(versions, "version") + " of " +
                                         counted(static_cast<std::int64_t>(scripts.size()), "script") + ".");
  } catch (const std::exception& error) {
    findings.wrong(error.what());
  }
}

enum class Registration { none, right, wrong };

Registration lookAtEntry(const AIClient& client, const std::filesystem::path& file, const std::string& executable,
                         Findings& findings) {
  const std::string title(client.title);
  try {
    const std::optional<std::string> text = quorvel::readFile(file);
    const std::optional<std::string> command = text ? client.command(*text) : std::nullopt;
    if (!command) return Registration::none;
    if (*command == executable) {
      findings.right(named(file) + " lets " + title + " start this program.");
      return Registration::right;
    }
    // A relative path is another file in every folder that a client starts in.
    std::error_code error;
    const bool isAbsolute = std::filesystem::path(*command).is_absolute();
    if (isAbsolute && std::filesystem::equivalent(*command, executable, error)) {
      findings.right(named(file) + " lets " + title + " start this program, as \"" + *command + "\".");
      return Registration::right;
    }
    const std::string_view fault = !isAbsolute                                ? "no absolute path"
                                   : std::filesystem::exists(*command, error) ? "not this program"
                                                                              : "not there";
    findings.wrong(named(file) + " lets " + title + " start \"" + *command + "\", which is " + std::string(fault) +
                   ": \"kelvane connect " + std::string(client.name) + "\" registers this one.");
  } catch (const ConfigRefused& error) {
    findings.wrong(named(file) + ": " + error.what());
  } catch (const std::exception& error) {
    findings.wrong(error.what());
  }
  return Registration::wrong;
}

void lookAtClients(const std::string& executable, Findings& findings) {
  bool anyRegistered = false;
  std::vector<std::string> remarks;
  for (const AIClient& client : aiClients()) {
    for (const std::filesystem::path& file : client.files()) {
      const Registration registration = lookAtEntry(client, file, executable, findings);
      anyRegistered = anyRegistered || registration != Registration::none;
      if (registration != Registration::none) continue;
      remarks.push_back(std::string(client.title) + " does not start this program: \"kelvane connect " +
                        std::string(client.name) + "\" registers it in " + named(file) + ".");
    }
  }
  for (const std::string& remark : remarks) anyRegistered ? findings.remark(remark) : findings.wrong(remark);
}

void shakeHands(const std::string& executable, const LibraryOptions& options, Findings& findings) {
  std::vector<std::string> arguments;
  if (!options.folder.empty()) arguments = {"serve", "--library", options.folder};
  try {
    const std::size_t tools = handshake(executable, arguments, patience);
    findings.right("Started as an AI client starts it, this program answers, with " +
                   counted(static_cast<std::int64_t>(tools), "tool") + ".");
  } catch (const std::exception& error) {
    findings.wrong("Started as an AI client starts it, this program does not answer. " + std::string(error.what()));
  }
}

int doctor(const LibraryOptions& options) {
  Findings findings;
  const OwnSettings settings;
  const std::string executable = ownExecutable();
  lookAtSwitches(settings, findings);
  const auto opened = lookAtLibrary(options, settings.preferences().allowsWrites(), findings);
  if (opened) lookAtHistory(*opened->history, findings);
  lookAtClients(executable, findings);
  if (opened && (!options.folder.empty() || settings.preferences().isEnabled())) {
    shakeHands(executable, options, findings);
  }
  return findings.anythingWrong() ? failed : done;
}

}  // namespace

void addDoctor(CLI::App& program, Action& chosen) {
  const auto options = std::make_shared<LibraryOptions>();
  CLI::App& command = addCommand(program, "doctor", help, chosen, [options] { return doctor(*options); });
  options->addLibraryTo(command);
}

}  // namespace kelvane

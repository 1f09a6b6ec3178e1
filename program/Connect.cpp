#include "program/Connect.h"

#include <algorithm>
#include <exception>
#include <filesystem>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "platform/Unicode.h"
#include "program/AIClient.h"
#include "program/ClientFile.h"
#include "program/Nearest.h"
#include "program/OwnSettings.h"
#include "program/Process.h"
#include "program/Wording.h"
#include "program/configuration/LineDiff.h"
#include "quorvel/settings/FileChange.h"
#include "quorvel/settings/FileReading.h"
#include "quorvel/settings/MadeFolder.h"

namespace kelvane {
namespace {

constexpr std::string_view connectHelp =
    R"(Registers this program with an AI client, which then starts it by itself.

Usage: kelvane connect claude|codex [--config FILE] [--dry-run]

  claude           Claude: ~/.claude.json, or .claude.json in CLAUDE_CONFIG_DIR, for the command line, and the desktop
                   app's claude_desktop_config.json; all of them that exist. Where ~/.claude/.config.json exists, or
                   .config.json in CLAUDE_CONFIG_DIR, the command line reads that file instead, so it is changed.
  codex            Codex: ~/.codex/config.toml, or config.toml in CODEX_HOME.
  --config FILE    Register in this file instead.
  --dry-run        Show what would change, or why it would be refused, and change nothing.
  -h, --help       Print this.

Only our entry is changed, and the layout of all else stays. In a TOML file the entry is all from its header to the
next, comments too, and goes to the end of the file. What is taken out is shown. What the client then gets is what
"kelvane settings" shows.

The text before the change is kept beside the file in FILE.before-kelvane, then in FILE.before-kelvane-2 and so on. A
text that is in a copy already gets no other, and nothing is overwritten. The copies may hold secrets, so only you may
read them. Delete those that you no longer need.
)";

constexpr std::string_view disconnectHelp =
    R"(Takes this program out of an AI client's configuration.

Usage: kelvane disconnect claude|codex [--config FILE] [--dry-run]

  claude, codex    Where it was registered: see "kelvane connect --help".
  --config FILE    Take it out of this file instead.
  --dry-run        Show what would change, or why it would be refused, and change nothing.
  -h, --help       Print this.

Only our entry is changed, and the layout of all else stays. In a TOML file the entry is all from its header to the
next, comments too. What is taken out is shown. The text before the change is kept beside the file, as by "kelvane
connect", and the copies that are there stay.
)";

struct ConnectOptions {
  std::string client;
  std::string file;  // as typed; empty when it was not
  bool isDryRun = false;
};

using File = std::filesystem::path;

const AIClient& clientNamed(const std::string& name, const std::string& command) {
  std::vector<std::string> names;
  for (const AIClient& client : aiClients()) {
    if (client.name == name) return client;
    names.emplace_back(client.name);
  }
  if (name.empty()) throw UsageError("Say which AI client: kelvane " + command + " claude, or codex.");
  throw UsageError("There is no AI client \"" + name + "\" that is known." + suggestion(name, names) +
                   " The clients are claude and codex.");
}

/// A registration to be made or taken back, in one file after the other.
class Registration {
 public:
  Registration(const AIClient& client, File executable, bool isConnecting, const ConnectOptions& options)
      : client_(client),
        executable_(std::move(executable)),
        isConnecting_(isConnecting),
        isDryRun_(options.isDryRun),
        makesFolders_(options.file.empty()) {}

  /// False when it could not be done, which was said then.
  bool make(const File& file) const {
    try {
      const bool isThere = quorvel::readFile(file).has_value();
      if (!isThere && !isConnecting_) {
        sayUnchanged(file);
      } else {
        isDryRun_ ? show(file) : change(file, isThere);
      }
      return true;
    } catch (const ConfigRefused& reason) {
      complain(inQuotes(file.native()) + ": " + reason.what());
    } catch (const quorvel::FileError& error) {
      complain(error.what());
    }
    // A path that is no text cannot be pasted either.
    if (isConnecting_ && unicode::isValidUTF8(executable_.native())) {
      printError("These lines are what belongs there:\n\n" + escaped(client_.example(executable_.native())) + '\n');
    }
    return false;
  }

 private:
  ConfigEdit edited(std::string_view text) const {
    return isConnecting_ ? client_.adding(executable_.native(), text) : client_.removing(text);
  }

  void show(const File& file) const {
    std::string before;
    ConfigEdit edit;
    const auto editing = [&](const std::optional<std::string>& text) {
      before = text.value_or("");
      edit = edited(before);
      return edit.text != before ? std::optional(edit.text) : std::nullopt;
    };
    if (std::error_code error; makesFolders_ && !std::filesystem::is_directory(file.parent_path(), error)) {
      editing(std::nullopt);
      quorvel::tryMakingFolder(file.parent_path());
    } else {
      quorvel::tryChangingFile(clientFile(file), editing);
    }
    if (edit.text == before) return sayUnchanged(file);
    print(inQuotes(file.native()) + " would change so:\n" + escaped(lineDiff(before, edit.text)));
    sayDropped(edit);
  }

  void change(const File& file, bool isThere) const {
    if (!isThere) {
      edited("");  // what is refused makes no folder
      // A client that was never started has no folder yet. One that a person names has to be there: it may be a slip.
      if (makesFolders_) quorvel::makeFolder(file.parent_path());
    }
    quorvel::FileCopies copies = clientFile(file);
    ConfigEdit edit;
    const auto editing = [&](const std::optional<std::string>& text) {
      edit = edited(text.value_or(""));
      return edit.text != text.value_or("") ? std::optional(edit.text) : std::nullopt;
    };
    const bool isChanged = quorvel::changeFile(copies, editing);
    isChanged ? sayChanged(file, copies, edit) : sayUnchanged(file);
    sayLeftovers(copies);
  }

  void sayChanged(const File& file, const quorvel::FileCopies& copies, const ConfigEdit& edit) const {
    std::string text(client_.title);
    text.append(isConnecting_ ? " starts this program now: it was registered in "
                              : " starts this program no more: it was taken out of ");
    text.append(inQuotes(file.native())).append(".\n");
    if (copies.last()) text.append("The text before is in ").append(inQuotes(copies.last()->native())).append(".\n");
    print(text);
    sayDropped(edit);
  }

  static void sayLeftovers(const quorvel::FileCopies& copies) {
    const LeftoverSentences sentences = sentencesOn(quorvel::leftoversOf(copies), copies.file());
    if (!sentences.onThoseToDelete.empty()) print(sentences.onThoseToDelete + "\n");
    for (const std::string& sentence : sentences.onTextsThatAreNowhereElse) print(sentence + "\n");
  }

  void sayUnchanged(const File& file) const {
    print(inQuotes(file.native()) +
          (isConnecting_ ? " registers this program already" : " does not register this program") +
          ": nothing to change.\n");
  }

  static void sayDropped(const ConfigEdit& edit) {
    if (edit.dropped.empty()) return;
    std::string text = "Taken out with it:\n";
    for (const std::string& dropped : edit.dropped) text.append("  ").append(escaped(dropped)).append("\n");
    print(text);
  }

  const AIClient& client_;
  File executable_;
  bool isConnecting_;
  bool isDryRun_;
  bool makesFolders_;
};

// What is still to be done before a client that is connected gets anything.
void sayWhatIsMissing() {
  const OwnSettings settings;
  if (const auto problem = settings.problem()) print(onOneLine(*problem) + '\n');
  if (!settings.namedLibraryFolder()) {
    print("It is not known yet where the scripts are: \"kelvane settings library DIR\" says it.\n");
  }
  if (!settings.preferences().isEnabled()) {
    print("The server is still switched off: \"kelvane settings enable\" switches it on.\n");
  }
}

int run(const ConnectOptions& options, bool isConnecting) {
  if (std::error_code error; !options.file.empty() && std::filesystem::exists(options.file, error) &&
                             !std::filesystem::is_regular_file(options.file, error)) {
    throw std::runtime_error(inQuotes(options.file) +
                             " is not a file: give the client's configuration file with --config.");
  }
  const AIClient& client = clientNamed(options.client, isConnecting ? "connect" : "disconnect");
  const Registration registration(client, isConnecting ? ownExecutable() : File(), isConnecting, options);
  const std::vector<File> files = options.file.empty() ? client.files() : std::vector<File>{options.file};
  if (files.empty()) {
    throw std::runtime_error("There is no home folder to look for a client's configuration in: let HOME name one.");
  }
  bool isDone = true;
  for (const File& file : files) isDone = registration.make(file) && isDone;
  if (isConnecting && isDone && !options.isDryRun) sayWhatIsMissing();
  return isDone ? done : failed;
}

void add(std::string_view name, std::string_view help, bool isConnecting, CLI::App& program, Action& chosen) {
  const auto options = std::make_shared<ConnectOptions>();
  CLI::App& command =
      addCommand(program, name, help, chosen, [options, isConnecting] { return run(*options, isConnecting); });
  command.add_option("CLIENT", options->client);
  command.add_option("--config", options->file)->type_name("FILE")->check([](const std::string& typed) {
    return std::string(typed.empty() ? "FILE is empty" : "");
  });
  command.add_flag("--dry-run", options->isDryRun)->disable_flag_override();
}

}  // namespace

void addConnect(CLI::App& program, Action& chosen) {
  add("connect", connectHelp, true, program, chosen);
}

void addDisconnect(CLI::App& program, Action& chosen) {
  add("disconnect", disconnectHelp, false, program, chosen);
}

}  // namespace kelvane

#include "program/Registration.h"

#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "platform/Unicode.h"
#include "program/AIClient.h"
#include "program/ClientFile.h"
#include "program/Nearest.h"
#include "program/Process.h"
#include "program/Wording.h"
#include "program/changes/LineDiff.h"
#include "quorvel/files/SystemReason.h"
#include "quorvel/settings/FileChange.h"
#include "quorvel/settings/FileReading.h"
#include "quorvel/settings/MadeFolder.h"

namespace kelvane {
namespace {

using File = std::filesystem::path;

const AIClient& clientNamed(const std::string& name, const std::string& command) {
  std::vector<std::string> names;
  for (const AIClient& client : aiClients()) {
    if (client.name == name) return client;
    names.emplace_back(client.name);
  }
  if (name.empty()) throw UsageError("Say which AI client: kelvane " + command + " claude, or codex.");
  throw UsageError("\"" + name + "\" is not a known AI client." + suggestion(name, names) +
                   " The clients are claude and codex.");
}

/// A registration to make or to take back, in one file after the other.
class Registration {
 public:
  Registration(const AIClient& client, File executable, bool isConnecting, const Arguments& arguments)
      : client_(client),
        executable_(std::move(executable)),
        isConnecting_(isConnecting),
        isDryRun_(arguments.has(dryRunOption)),
        makesFolders_(!arguments.has(configOption)) {}

  /// False if it could not be done, which it has then said.
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
      complain(quorvel::inQuotes(file.native()) + ": " + reason.what());
    } catch (const quorvel::FileError& error) {
      complain(error.what());
    }
    // A path that is not UTF-8 cannot be pasted either.
    if (isConnecting_ && unicode::isValidUTF8(executable_.native())) {
      printError("Paste these lines into the file:\n\n" + escaped(client_.example(executable_.native())) + '\n');
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
    say(quorvel::inQuotes(file.native()) + " would change like this:");
    print(escaped(lineDiff(before, edit.text)));
    sayDropped(edit);
  }

  void change(const File& file, bool isThere) const {
    if (!isThere) {
      edited("");  // throws before a folder is made in vain
      // A client that was never started has no folder yet. A folder that a person names must exist: it may be misspelt.
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
    say(std::string(client_.title) +
        (isConnecting_ ? " now starts this program. It is registered in "
                       : " no longer starts this program. It is removed from ") +
        quorvel::inQuotes(file.native()) + ".");
    if (copies.last()) say("The old text is in " + quorvel::inQuotes(copies.last()->native()) + ".");
    sayDropped(edit);
  }

  static void sayLeftovers(const quorvel::FileCopies& copies) {
    const LeftoverSentences sentences = sentencesOn(quorvel::leftoversOf(copies), copies.file());
    if (!sentences.onThoseToDelete.empty()) say(sentences.onThoseToDelete);
    for (const std::string& sentence : sentences.onTextsThatAreNowhereElse) say(sentence);
  }

  void sayUnchanged(const File& file) const {
    say(quorvel::inQuotes(file.native()) +
        (isConnecting_ ? " already registers this program" : " does not register this program") +
        ". No change is needed.");
  }

  static void sayDropped(const ConfigEdit& edit) {
    if (edit.dropped.empty()) return;
    std::string text = "Also removed:\n";
    for (const std::string& dropped : edit.dropped) text.append("  ").append(escaped(dropped)).append("\n");
    print(text);
  }

  const AIClient& client_;
  File executable_;
  bool isConnecting_;
  bool isDryRun_;
  bool makesFolders_;
};

}  // namespace

bool changeRegistration(bool isConnecting, const Arguments& arguments) {
  const File named = arguments.value(configOption);
  if (std::error_code error;
      !named.empty() && std::filesystem::exists(named, error) && !std::filesystem::is_regular_file(named, error)) {
    throw std::runtime_error(quorvel::inQuotes(named.native()) +
                             " is not a file. Give the client's configuration file: " + usageOf(configOption) + ".");
  }
  const AIClient& client = clientNamed(arguments.word(0), isConnecting ? "connect" : "disconnect");
  const Registration registration(client, isConnecting ? ownExecutable() : File(), isConnecting, arguments);
  const std::vector<File> files = named.empty() ? client.files() : std::vector<File>{named};
  if (files.empty()) {
    throw std::runtime_error("There is no home folder to look for the client's configuration in. Set HOME to one.");
  }
  bool isDone = true;
  for (const File& file : files) isDone = registration.make(file) && isDone;
  return isDone;
}

}  // namespace kelvane

#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>
#include <vector>

#include "tests/end-to-end/Folder.h"
#include "tests/end-to-end/Program.h"

namespace kelvane::tests {

/// The configuration file of Claude's command line in a home, and the first copy of it.
inline const std::string claudeFile = ".claude.json";
inline const std::string copyOfClaudeFile = claudeFile + ".before-kelvane";

/// A home in which nothing is missing but that AI clients are connected, and what the program says there when it
/// connects them. Files are named by paths in the home.
class ClientHome : public Folder {
 public:
  ClientHome();

  /// For `connect` and `disconnect`, and what else the program can do.
  Start start(std::vector<std::string> words) const;
  Outcome kelvane(std::vector<std::string> words) const { return run(start(std::move(words))); }

  /// A path in the home between quotes, as sentences have it.
  std::string quoted(std::string_view file) const { return '"' + (*this / file).native() + '"'; }

  std::string connected(std::string_view client, std::string_view file) const;
  std::string disconnected(std::string_view client, std::string_view file) const;
  std::string keptBeside(std::string_view file, int number = 1) const;  ///< In the first copy, the second …
  std::string connectedAlready(std::string_view file) const;
  std::string notConnected(std::string_view file) const;
  std::string wouldChange(std::string_view file) const;

  mode_t mode(std::string_view file) const;
};

/// The path that the built program registers.
std::string builtProgram();

/// A text with the path that the built program registers in place of each "/bin/k".
std::string withProgram(std::string_view text, std::string_view program = builtProgram());

/// The lines to paste.
std::string claudeLines(std::string_view program = builtProgram());
std::string codexLines(std::string_view program = builtProgram());

/// What standard error holds when a file is left as it was: why, and the lines to paste.
std::string refused(std::string_view sentences, std::string_view lines);

/// What standard output holds when an edit drops something.
std::string droppedLines(const std::vector<std::string>& dropped);

/// A copy of the program at another place, which goes with its folder.
void copyProgramTo(const std::filesystem::path& file);

}  // namespace kelvane::tests

#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "protocol/JSON.h"
#include "protocol/Tool.h"
#include "tests/scripttools/Watch.h"
#include "tests/support/InMemoryScriptLibrary.h"
#include "tests/support/InMemoryVersionStore.h"
#include "tests/support/TemporaryFolder.h"

namespace kelvane::tests {

/// The result of a tool: its text, or the whole message of its failure.
struct Answer {
  std::string text;
  bool failed = false;

  bool operator==(const Answer&) const = default;
  friend std::ostream& operator<<(std::ostream& stream, const Answer& answer) {
    return stream << (answer.failed ? "failed: " : "answered: ") << answer.text;
  }
};

Answer answered(std::string_view text);
Answer failed(std::string_view message);

/// The call of a row that has a tool and its arguments as JSON text, for messages.
std::string callOf(const auto& row) {
  return std::string(row.tool) + " " + std::string(row.arguments);
}

/// A fixed small library, its history, a watch on both, and all the tools over them:
///
///     Scenes/Deep/Deeper/End.md   one chapter without text
///     Scenes/Deep/Middle.md       words and no chapters
///     Scenes/Intro.md             one chapter
///     Songs/                      an empty folder
///     Empty.md                    an empty script
///     Notes.md                    ten words and no chapters
///     Talk.md                     a preamble and three chapters, the last without text
///     Scenes/readme.txt, Scenes/Loud.MD, .md, Trailing.md. and README: not scripts
///
/// Versions are saved a minute apart, the first at 2025-03-01 14:05:09 GMT.
class Workbench {
 public:
  Workbench();

  /// Runs a tool with the arguments given as JSON text, or as an object (which can hold bytes that are not UTF-8).
  Answer call(std::string_view tool, std::string_view arguments) const;
  Answer call(std::string_view tool, const JSON::Object& arguments) const;

  /// A script's text, and the texts and labels of its versions, newest first. The watch records none of these calls.
  void put(const std::string& identifier, std::string_view text) const;
  std::string textOf(const std::string& identifier) const;
  std::vector<std::string> keptOf(const std::string& identifier) const;
  std::vector<std::string> labelsOf(const std::string& identifier) const;

  /// Creates an empty file that the library does not list.
  void touch(const std::filesystem::path& file) const;

  const TemporaryFolder folder;
  const std::filesystem::path root = folder.path() / "Library";
  const std::shared_ptr<InMemoryScriptLibrary> scripts = std::make_shared<InMemoryScriptLibrary>(root);
  const std::shared_ptr<InMemoryVersionStore> history;
  const std::shared_ptr<Watch> watch = std::make_shared<Watch>();
  const std::shared_ptr<WatchedLibrary> library = std::make_shared<WatchedLibrary>(scripts, watch);
  const std::shared_ptr<WatchedStore> versions;
  const std::vector<Tool> tools;
};

/// A test with a workbench of its own.
class WorkbenchTest : public ::testing::Test, protected Workbench {};

/// The text of Talk.md.
extern const std::string_view talk;

/// The object that a table writes as JSON text.
JSON::Object object(std::string_view text);

}  // namespace kelvane::tests

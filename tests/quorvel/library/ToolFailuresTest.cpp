// What goes wrong on the disk, in the history or with other programs while a tool runs: one sentence as the tool's
// failure, and the text and its history as they were.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <tuple>

#include "protocol/JSON.h"
#include "quorvel/history/SQLite.h"
#include "scripttools/ScriptTools.h"
#include "tests/quorvel/history/OpenedDatabase.h"
#include "tests/quorvel/library/LibraryHouse.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/RowName.h"

namespace quorvel {
namespace {

using kelvane::JSON;
using kelvane::tests::becomeNobody;
using kelvane::tests::inChild;

constexpr std::chrono::milliseconds patience(50);
const std::string talk = "# One\r\n\r\nalpha\r\n\r\n# Two\r\n\r\n\xFF beta";

struct ToolCall {
  const char* tool;
  JSON::Object arguments;
  const char* label;  // of the version that it keeps first

  friend void PrintTo(const ToolCall& row, std::ostream* out) { *out << row.tool; }
};

struct Calamity;

class ToolFailure : public LibraryHouse, public ::testing::WithParamInterface<std::tuple<ToolCall, Calamity>> {
 public:
  ToolFailure() {
    put("Talk.md", talk);
    brief_->snapshot(talk, root / "Talk.md", "kept");
    library.lock();
  }

  // --- Calamities ---

  void damageTheHistory() { put(".kelvane/history.sqlite", std::string(8192, 'x')); }
  void bringANewerHistory() { database().runAll("PRAGMA user_version = 3"); }
  void holdTheHistory() {
    otherProgram_ = std::make_unique<sqlite::Connection>(database());
    otherProgram_->runAll("BEGIN IMMEDIATE");
  }
  void forbidTheHistory() { permit(".kelvane/history.sqlite", 0444); }
  void holdTheLock() { otherWriter_ = library.lock(); }
  void forbidReading() { permit("Talk.md", 0); }
  void forbidWriting() { permit("Talk.md", 0444); }
  void forbidTheFolder() { permit(".", 0555); }
  void fillTheDisk() { calls.lack({"write"}, ENOSPC); }
  void useUpTheQuota() { calls.lack({"write"}, EDQUOT); }
  void breakTheDisk() { calls.lack({"flush"}, EIO); }
  void makeItAFolderMeanwhile() {
    calls.interrupt("openBeneath", [this] {
      std::filesystem::remove(root / "Talk.md");
      std::filesystem::create_directory(root / "Talk.md");
    });
  }
  void deleteItMeanwhile() {
    calls.interrupt("openBeneath", [this] { std::filesystem::remove(root / "Talk.md"); });
  }

 protected:
  /// What the tool fails with.
  std::string failureOf(const ToolCall& call) {
    JSON::Object arguments = call.arguments;
    arguments.set("id", "Talk.md");
    for (const kelvane::Tool& tool : tools_) {
      if (tool.name() == call.tool) return sentenceOf([&] { tool.run(arguments); });
    }
    return "no such tool";
  }

  /// Lets the calamity happen and the tool run, as a user without root's rights where that matters.
  std::string failureOf(const ToolCall& call, const Calamity& calamity);

  sqlite::Connection database() const {
    return openedDatabase(root / ".kelvane/history.sqlite", sqlite::Connection::Access::writing, patience);
  }

  void permit(const std::filesystem::path& file, unsigned mode) const {
    std::filesystem::permissions(root / file, std::filesystem::perms(mode));
  }

  const std::string kept_ = "kept: " + talk + "\n";
  const std::shared_ptr<History> brief_ = std::make_shared<History>(root, std::chrono::system_clock::now, patience);
  const std::vector<kelvane::Tool> tools_ =
      kelvane::ScriptTools(std::make_shared<FolderLibrary>(root, brief_, FolderLibrary::Options{calls, patience}),
                           brief_)
          .tools(true);
  std::unique_ptr<sqlite::Connection> otherProgram_;
  std::unique_ptr<LibraryLock> otherWriter_;
};

struct Calamity {
  const char* description;
  void (ToolFailure::*happen)();
  std::string sentence;
  bool asNobody = false;

  friend void PrintTo(const Calamity& row, std::ostream* out) { *out << row.description; }
};

std::string ToolFailure::failureOf(const ToolCall& call, const Calamity& calamity) {
  if (!calamity.asNobody) {
    (this->*calamity.happen)();
    return failureOf(call);
  }
  giveToNobody();
  (this->*calamity.happen)();
  return inChild([&] {
    becomeNobody();
    return failureOf(call);
  });
}

const std::vector<ToolCall> rewriting = {
    {"update_script", {{"text", "new"}, {"note", "n"}}, "Before — n"},
    {"append_to_script", {{"text", "more"}, {"note", "n"}}, "Before — n"},
    {"add_chapter", {{"title", "X"}}, "Before — added chapter X"},
    {"rename_chapter", {{"chapter", "1"}, {"title", "X"}}, "Before — renamed chapter 1"},
    {"update_chapter", {{"chapter", "1"}, {"text", "new"}}, "Before — rewrote chapter 1"},
    {"move_chapter", {{"chapter", "1"}, {"to", "2"}}, "Before — moved chapter 1 to 2"},
    {"remove_chapter", {{"chapter", "2"}, {"keep_text", "no"}}, "Before — removed chapter 2"},
};

const std::vector<ToolCall> keeping = [] {
  std::vector<ToolCall> calls = rewriting;
  calls.push_back({"save_version", {{"note", "n"}}, "n"});
  return calls;
}();

// --- Before anything was kept ---

class KeepingFailure : public ToolFailure {};

TEST_P(KeepingFailure, isOneSentenceAndKeepsAndWritesNothing) {
  const auto& [call, calamity] = GetParam();
  EXPECT_EQ(failureOf(call, calamity), calamity.sentence) << calamity.description;
  permit("Talk.md", 0644);
  EXPECT_EQ(bytesOf("Talk.md"), talk);
  EXPECT_THAT(names(), ::testing::ElementsAre("Talk.md"));
  otherProgram_.reset();
  if (calamity.happen == &ToolFailure::damageTheHistory) {
    EXPECT_EQ(bytesOf(".kelvane/history.sqlite"), std::string(8192, 'x'));
  } else {
    if (calamity.happen == &ToolFailure::bringANewerHistory) database().runAll("PRAGMA user_version = 2");
    EXPECT_EQ(story("Talk.md"), kept_);
  }
}

const std::string history = "The version history of this library (.kelvane/history.sqlite) ";

const Calamity beforeKeeping[] = {
    {"the history is damaged", &ToolFailure::damageTheHistory,
     history +
         "is damaged, so nothing was changed. Move that file away to start a new one, or restore it from a backup."},
    {"it is from a newer version of the program", &ToolFailure::bringANewerHistory,
     history + "was written by a newer version of this program, so nothing was changed. Update the program."},
    {"another program holds it", &ToolFailure::holdTheHistory,
     history + "has been in use by another program for 1 second, so nothing was changed. Try again in a moment."},
    {"it may not be written", &ToolFailure::forbidTheHistory,
     history +
         "could not be written, because the system does not permit it, so nothing was changed. Check who may read and "
         "write in the folder .kelvane.",
     true},
    {"another writer holds the lock", &ToolFailure::holdTheLock,
     "The library is busy: another program has been writing to it for 0 seconds. Nothing was changed; try again in a "
     "moment."},
    {"the script may not be read", &ToolFailure::forbidReading,
     "\"Talk.md\" could not be read, because the system does not permit it. Check who may read and write there.", true},
};

INSTANTIATE_TEST_SUITE_P(Rows, KeepingFailure,
                         ::testing::Combine(::testing::ValuesIn(keeping), ::testing::ValuesIn(beforeKeeping)),
                         kelvane::tests::RowName());

// --- After the present text was kept ---

class WritingFailure : public ToolFailure {};

TEST_P(WritingFailure, isOneSentenceAndLeavesTheTextWithAVersionOfIt) {
  const auto& [call, calamity] = GetParam();
  EXPECT_EQ(failureOf(call, calamity), calamity.sentence) << calamity.description;
  EXPECT_EQ(bytesOf("Talk.md"), talk);
  EXPECT_THAT(names(), ::testing::ElementsAre("Talk.md"));
  EXPECT_EQ(story("Talk.md"), kept_ + call.label + ": " + talk + "\n");
}

constexpr const char* notPermitted =
    "\"Talk.md\" could not be written, because the system does not permit it. Check who may read and write there.";

const Calamity afterKeeping[] = {
    {"the script may not be written", &ToolFailure::forbidWriting, notPermitted, true},
    {"its folder may not be written", &ToolFailure::forbidTheFolder, notPermitted, true},
    {"the disk is full", &ToolFailure::fillTheDisk,
     "\"Talk.md\" could not be written, because the disk is full. Free some space and try again."},
    {"the quota is used up", &ToolFailure::useUpTheQuota,
     "\"Talk.md\" could not be written, because the disk quota is used up. Free some space and try again."},
    {"the disk fails", &ToolFailure::breakTheDisk,
     "\"Talk.md\" could not be written, because the disk reports an error. Check the disk."},
};

INSTANTIATE_TEST_SUITE_P(Rows, WritingFailure,
                         ::testing::Combine(::testing::ValuesIn(rewriting), ::testing::ValuesIn(afterKeeping)),
                         kelvane::tests::RowName());

// --- The script itself is another one when its turn comes ---

class VanishedScript : public ToolFailure {};

TEST_P(VanishedScript, isOneSentenceAndItsHistoryStays) {
  const auto& [call, calamity] = GetParam();
  EXPECT_EQ(failureOf(call, calamity), "\"Talk.md\" could not be read, because " + calamity.sentence +
                                           " List the library again to see what is there now.")
      << calamity.description;
  EXPECT_FALSE(std::filesystem::is_regular_file(root / "Talk.md"));
  EXPECT_EQ(story("Talk.md"), kept_);
}

const Calamity vanishing[] = {
    {"it becomes a folder", &ToolFailure::makeItAFolderMeanwhile, "it is a folder now."},
    {"it is deleted", &ToolFailure::deleteItMeanwhile, "it is not there any more."},
};

INSTANTIATE_TEST_SUITE_P(Rows, VanishedScript,
                         ::testing::Combine(::testing::ValuesIn(keeping), ::testing::ValuesIn(vanishing)),
                         kelvane::tests::RowName());

}  // namespace
}  // namespace quorvel

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/end-to-end/Client.h"
#include "tests/end-to-end/Folder.h"

namespace kelvane::tests {
namespace {

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;

constexpr std::string_view onlyTalk = R"([{"id":"Talk.md","kind":"script","name":"Talk"}])";

/// One line on standard error that names the folder, nothing on standard output, status 1, and the input not waited
/// for.
void expectRefused(const Start& start, const std::string& folder) {
  Program program(start);  // its input stays open until `finish`
  EXPECT_EQ(program.line(), std::nullopt);
  const Outcome outcome = program.finish();
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.output, "");
  EXPECT_THAT(outcome.errors, AllOf(HasSubstr('"' + folder + '"'), EndsWith(".\n")));
  EXPECT_EQ(std::count(outcome.errors.begin(), outcome.errors.end(), '\n'), 1);
}

TEST(LibraryFolder, thatIsMissingOrNoFolderEndsTheServerAtOnce) {
  const Folder folder;
  folder.put("file", "no folder");
  std::filesystem::create_symlink("nowhere", folder / "dangling");
  std::filesystem::create_symlink("loop", folder / "loop");
  for (const std::string& name :
       std::vector<std::string>{"missing", "file", "dangling", "loop", "file/below", "missing/below"}) {
    SCOPED_TRACE(name);
    const std::string path = (folder / name).native();
    expectRefused(Start{.arguments = {"serve", "--library", path}}, path);
    expectRefused(Start{.arguments = {"serve", "--allow-writes", "--library", path}}, path);
    expectRefused(Start{.arguments = {"call", "list_scripts", "--library", path}}, path);
  }
  EXPECT_FALSE(std::filesystem::exists(folder / "missing"));
}

TEST(LibraryFolder, thatIsTheWholeDiskEndsTheServerAtOnce) {
  const Folder folder;
  std::filesystem::create_symlink("/", folder / "link");
  for (const auto& [typed, path] : {std::pair<std::string, std::string>{"/", "/"},
                                    {"//", "/"},
                                    {"/tmp/..", "/"},
                                    {(folder / "link").native(), (folder / "link").native()}}) {
    EXPECT_EQ(run({"call", "list_scripts", "--library", typed}),
              (Outcome{1, "",
                       '"' + path + "\" is the whole disk. Give the folder that holds the scripts: --library DIR.\n"}));
    expectRefused(Start{.arguments = {"serve", "--library", typed}}, path);
  }
}

TEST(LibraryFolder, thatCannotBeReadEndsTheServerAtOnce) {
  const Folder folder;
  std::filesystem::create_directories(folder / "closed/below");
  folder.giveToNobody();
  std::filesystem::permissions(folder / "closed", std::filesystem::perms::none);
  for (const std::string& name : std::vector<std::string>{"closed", "closed/below"}) {
    SCOPED_TRACE(name);
    const std::string path = (folder / name).native();
    expectRefused(Start{.arguments = {"serve", "--library", path}, .asNobody = true}, path);
  }
  std::filesystem::permissions(folder / "closed", std::filesystem::perms::owner_all);
}

TEST(LibraryFolder, thatIsNamedFromTheCurrentFolderIsServed) {
  const Folder folder;
  folder.put("library/Talk.md", "text");
  for (const std::string& name : std::vector<std::string>{"library", "./library/", "library/../library", "."}) {
    const std::string current = name == "." ? (folder / "library").native() : folder.text();
    EXPECT_EQ(run(Start{.arguments = {"call", "list_scripts", "--library", name}, .folder = current}),
              (Outcome{0, std::string(onlyTalk) + '\n', ""}))
        << name;
  }
}

TEST(LibraryFolder, thatVanishesGivesAnErrorForEachCallUntilItIsBack) {
  const Folder folder;
  folder.put("library/Talk.md", "text");
  Client client((folder / "library").native(), true);
  EXPECT_EQ(client.call("list_scripts"), success(onlyTalk));
  std::filesystem::rename(folder / "library", folder / "away");
  for (int time = 0; time < 2; ++time) {
    for (const char* tool : {"list_scripts", "list_folders"}) {
      const Answer answer = client.call(tool);
      EXPECT_TRUE(answer.isError) << tool << ": " << answer.text;
      EXPECT_THAT(answer.text, AllOf(HasSubstr("The library folder"), HasSubstr((folder / "library").native())));
    }
    EXPECT_EQ(client.call("read_script", {{"id", "Talk.md"}}), failure("Nothing at \"Talk.md\""));
    EXPECT_TRUE(client.call("create_script", {{"name", "New"}}).isError);
    EXPECT_TRUE(client.call("update_script", {{"id", "Talk.md"}, {"text", "t"}, {"note", "n"}}).isError);
    EXPECT_TRUE(client.call("list_chapters", {{"id", "Talk.md"}}).isError);
  }
  EXPECT_FALSE(std::filesystem::exists(folder / "library"));
  std::filesystem::rename(folder / "away", folder / "library");
  EXPECT_EQ(client.call("list_scripts"), success(onlyTalk));
  EXPECT_EQ(client.call("read_script", {{"id", "Talk.md"}}), success("text"));
  EXPECT_FALSE(client.call("update_script", {{"id", "Talk.md"}, {"text", "new"}, {"note", "n"}}).isError);
  client.finish();
  EXPECT_EQ(folder.bytes("library/Talk.md"), "new");
}

TEST(LibraryFolder, thatIsReplacedIsServedAsItIsThen) {
  const Folder folder;
  folder.put("library/Talk.md", "old");
  folder.put("other/Talk.md", "other");
  Client client((folder / "library").native());
  EXPECT_EQ(client.call("read_script", {{"id", "Talk.md"}}), success("old"));
  std::filesystem::rename(folder / "library", folder / "away");
  std::filesystem::rename(folder / "other", folder / "library");
  EXPECT_EQ(client.call("read_script", {{"id", "Talk.md"}}), success("other"));
  client.finish();
}

/// Each reading tool once, and a few that fail.
void readEverything(Client& client) {
  EXPECT_FALSE(client.call("list_scripts").isError);
  EXPECT_FALSE(client.call("list_folders").isError);
  for (const char* tool : {"list_versions", "read_script", "list_chapters"}) {
    EXPECT_FALSE(client.call(tool, {{"id", "Talk.md"}}).isError) << tool;
    EXPECT_TRUE(client.call(tool, {{"id", "missing.md"}}).isError) << tool;
  }
  EXPECT_FALSE(client.call("read_chapter", {{"id", "Talk.md"}, {"chapter", "1"}}).isError);
  EXPECT_TRUE(client.call("read_chapter", {{"id", "Talk.md"}, {"chapter", "2"}}).isError);
}

TEST(LibraryFolder, isLeftAsItIsByReading) {
  const Folder library;
  library.put("Talk.md", "# One\n\nWords\n");
  library.put("Folder/Talk.md", "text");
  const auto before = library.census();
  for (const bool allowingWrites : {false, true}) {
    Client client(library.text(), allowingWrites);
    readEverything(client);
    client.finish();
    EXPECT_EQ(library.census(), before) << "with writes allowed: " << allowingWrites;
  }
}

TEST(LibraryFolder, withAHistoryIsLeftAsItIsByReading) {
  const Folder library;
  library.put("Talk.md", "first");
  ASSERT_EQ(run({"call", "update_script", "id=Talk.md", "text=# One\n\nWords\n", "note=n", "--allow-writes",
                 "--library", library.text()})
                .status,
            0);
  const auto before = library.census();
  Client client(library.text());
  readEverything(client);
  EXPECT_THAT(client.call("list_versions", {{"id", "Talk.md"}}).text, HasSubstr("Before — n"));
  client.finish();
  EXPECT_EQ(library.census(), before);
}

// Nothing looks at the history before a tool needs it.
TEST(LibraryFolder, withADamagedHistoryIsServedAllTheSame) {
  const Folder library;
  library.put("Talk.md", "# One\n\nWords\n");
  library.put(".kelvane/history.sqlite",
              "this is no database, though it is long enough for the head of one: " + std::string(200, 'x'));
  const auto before = library.census();
  Client client(library.text(), true);
  EXPECT_EQ(client.call("list_scripts"), success(onlyTalk));
  EXPECT_EQ(client.call("read_script", {{"id", "Talk.md"}}), success("# One\n\nWords\n"));
  EXPECT_EQ(client.call("read_chapter", {{"id", "Talk.md"}, {"chapter", "1"}}), success("Words"));
  const Answer versions = client.call("list_versions", {{"id", "Talk.md"}});
  EXPECT_TRUE(versions.isError);
  EXPECT_THAT(versions.text, AllOf(HasSubstr("history"), EndsWith(".")));
  EXPECT_EQ(client.call("list_folders"), success("[]"));
  client.finish();
  EXPECT_EQ(library.census(), before);
}

TEST(LibraryFolder, thatMayOnlyBeReadIsReadAndRefusesWrites) {
  const Folder library;
  library.put("Talk.md", "# One\n\nWords\n");
  library.giveToNobody();
  std::filesystem::permissions(library.path(), std::filesystem::perms::owner_read | std::filesystem::perms::owner_exec);
  Client client(library.text(), true, true);
  readEverything(client);
  for (const auto& answer :
       {client.call("update_script", {{"id", "Talk.md"}, {"text", "new"}, {"note", "n"}}),
        client.call("create_script", {{"name", "New"}}), client.call("rename", {{"id", "Talk.md"}, {"name", "New"}}),
        client.call("save_version", {{"id", "Talk.md"}, {"note", "n"}})}) {
    EXPECT_TRUE(answer.isError);
    EXPECT_THAT(answer.text, EndsWith(".")) << "a sentence for the model to read";
  }
  client.finish();
  std::filesystem::permissions(library.path(), std::filesystem::perms::owner_all);
  EXPECT_EQ(library.bytes("Talk.md"), "# One\n\nWords\n");
}

}  // namespace
}  // namespace kelvane::tests

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/end-to-end/Client.h"
#include "tests/end-to-end/Folder.h"

namespace kelvane::tests {
namespace {

using std::filesystem::create_symlink;

/// Every tool that works on a script, with what else it needs.
const std::vector<std::pair<const char*, JSON::Object>> toolsOnScripts = {
    {"list_versions", {}},
    {"read_script", {}},
    {"list_chapters", {}},
    {"read_chapter", {{"chapter", "1"}}},
    {"save_version", {{"note", "n"}}},
    {"update_script", {{"text", "t"}, {"note", "n"}}},
    {"append_to_script", {{"text", "t"}, {"note", "n"}}},
    {"add_chapter", {{"title", "t"}}},
    {"rename_chapter", {{"chapter", "1"}, {"title", "t"}}},
    {"update_chapter", {{"chapter", "1"}, {"text", "t"}}},
    {"move_chapter", {{"chapter", "1"}, {"to", "1"}}},
    {"remove_chapter", {{"chapter", "1"}, {"keep_text", "no"}}},
};

class Identifiers : public testing::Test {
 protected:
  Identifiers() {
    outside.put("secret.md", "a secret");
    outside.put("folder/secret.md", "a secret");
    std::filesystem::create_directory(around / "library");
    std::filesystem::create_directory(around / "library2");
    around.put("library2/secret.md", "a secret");
    around.put("library/Talk.md", "# One\n\nWords\n");
    around.put("library/Folder/Talk.md", "in a folder");
    around.put("library/notes.txt", "no script");
    around.put("library/Loud.MD", "no script either");
    const std::filesystem::path library = around / "library";
    create_symlink(outside / "secret.md", library / "out.md");
    create_symlink(outside.path(), library / "out");
    create_symlink("../library2/secret.md", library / "sibling.md");
    create_symlink(outside / "missing.md", library / "dangling-out.md");
    create_symlink("missing.md", library / "dangling.md");
    create_symlink("loop.md", library / "loop.md");
    create_symlink("ring-b", library / "ring-a");
    create_symlink("ring-a", library / "ring-b");
    create_symlink("Folder/Talk.md", library / "in.md");
    create_symlink("Folder", library / "in");
    create_symlink("in", library / "in2");
  }

  std::string library() const { return (around / "library").native(); }

  Folder around, outside;
};

TEST_F(Identifiers, oneThatLeadsNowhereGoodIsRefusedByEveryTool) {
  const std::string inside = "\" is not inside the library", nothing = "Nothing at \"";
  const std::string longName(300, 'n');
  const std::string longPath = [] {
    std::string path;
    while (path.size() < 5000) path += "folder/";
    return path + "x.md";
  }();
  const struct {
    const char* what;
    std::string id;
    std::string message;
  } cases[] = {
      {"absolute", (outside / "secret.md").native(), '"' + (outside / "secret.md").native() + inside},
      {"absolute, though inside", library() + "/Talk.md", '"' + library() + "/Talk.md" + inside},
      {"the root of all", "/", "\"/" + inside},
      {"two slashes first", "//Talk.md", "\"//Talk.md" + inside},
      {"..", "..", "\".." + inside},
      {"up and away", "../library2/secret.md", "\"../library2/secret.md" + inside},
      {"up and back", "Folder/../Talk.md", "\"Folder/../Talk.md" + inside},
      {"up at the end", "Folder/..", "\"Folder/.." + inside},
      {"up behind nothing", "missing/../Talk.md", "\"missing/../Talk.md" + inside},
      {"up behind two slashes", "Folder//../Talk.md", "\"Folder//../Talk.md" + inside},
      {"a link that leads out", "out.md", "\"out.md" + inside},
      {"through a folder that leads out", "out/secret.md", "\"out/secret.md" + inside},
      {"deeper through it", "out/folder/secret.md", "\"out/folder/secret.md" + inside},
      {"to nothing through it", "out/missing.md", "\"out/missing.md" + inside},
      {"a link to the neighbour whose name begins the same", "sibling.md", "\"sibling.md" + inside},
      {"a link to nothing outside", "dangling-out.md", "\"dangling-out.md" + inside},
      {"a link to nothing inside", "dangling.md", nothing + "dangling.md\""},
      {"a link to itself", "loop.md", nothing + "loop.md\""},
      {"links in a ring", "ring-a/x.md", nothing + "ring-a/x.md\""},
      {"nothing", "missing.md", nothing + "missing.md\""},
      {"a script without its extension", "Talk", nothing + "Talk\""},
      {"a script as a folder", "Talk.md/x.md", nothing + "Talk.md/x.md\""},
      {"another letter case", "talk.md", nothing + "talk.md\""},
      {"a NUL behind a script's name", std::string("Talk.md\0", 8), nothing + std::string("Talk.md\0\"", 9)},
      {"a NUL within", std::string("Talk.md\0.md", 11), nothing + std::string("Talk.md\0.md\"", 12)},
      {"a NUL between pieces", std::string("Folder\0/Talk.md", 15), nothing + std::string("Folder\0/Talk.md\"", 16)},
      {"a name too long for the disk", longName + ".md", nothing + longName + ".md\""},
      {"a path too long for the system", longPath, nothing + longPath + '"'},
      {"a line break", "Talk.md\n", nothing + "Talk.md\n\""},
      {"blanks", " ", nothing + " \""},
      {"quotes", "\"Talk.md\"", nothing + "\"Talk.md\"\""},
      {"a pattern", "*.md", nothing + "*.md\""},
      {"a home", "~/Talk.md", nothing + "~/Talk.md\""},
      {"percents", "%54alk.md", nothing + "%54alk.md\""},
      {"a backslash", "Folder\\Talk.md", nothing + "Folder\\Talk.md\""},
      {"another file", "notes.txt", "\"notes.txt\" is not a script"},
      {"an extension in another case", "Loud.MD", "\"Loud.MD\" is not a script"},
      {"a folder", "Folder", "\"Folder\" is a folder, not a script"},
      {"a folder through a link", "in", "\"in\" is a folder, not a script"},
      {"the library itself", ".", "\".\" is a folder, not a script"},
      {"the empty text", "", "Missing \"id\""},
  };
  const auto before = around.census(), beforeOutside = outside.census();
  Client client(library(), true);
  for (const auto& [what, id, message] : cases) {
    for (const auto& [tool, more] : toolsOnScripts) {
      SCOPED_TRACE(std::string(what) + ", " + tool);
      JSON::Object arguments = more;
      arguments.set("id", id);
      EXPECT_EQ(client.call(tool, arguments), failure(message));
    }
  }
  client.finish();
  // What writers take their turns by is theirs.
  std::filesystem::remove_all(around / "library/.kelvane");
  auto after = around.census();
  after.erase(library());
  auto expected = before;
  expected.erase(library());
  EXPECT_EQ(after, expected);
  EXPECT_EQ(outside.census(), beforeOutside);
}

TEST_F(Identifiers, aFolderToWorkInIsJudgedTheSameWay) {
  const std::string inside = "\" is not inside the library";
  const struct {
    const char* what;
    std::string folder;
    std::string message;
  } cases[] = {
      {"absolute", outside.text(), '"' + outside.text() + inside},
      {"up", "..", "\".." + inside},
      {"up and back", "Folder/..", "\"Folder/.." + inside},
      {"a link that leads out", "out", "\"out" + inside},
      {"through a link that leads out", "out/folder", "\"out/folder" + inside},
      {"nothing", "missing", "Nothing at \"missing\""},
      {"a ring", "ring-a", "Nothing at \"ring-a\""},
      {"a script", "Talk.md", "\"Talk.md\" is a script, not a folder"},
      {"a NUL", std::string("Folder\0x", 8), std::string("Nothing at \"Folder\0x\"", 21)},
  };
  Client client(library(), true);
  for (const auto& [what, folder, message] : cases) {
    SCOPED_TRACE(what);
    EXPECT_EQ(client.call("create_script", {{"name", "New"}, {"folder", folder}}), failure(message));
    EXPECT_EQ(client.call("create_folder", {{"name", "New"}, {"folder", folder}}), failure(message));
  }
  client.finish();
  EXPECT_FALSE(std::filesystem::exists(outside / "New.md"));
  EXPECT_FALSE(std::filesystem::exists(outside / "New"));
}

TEST_F(Identifiers, oneThatStaysInsideIsServedHoweverItIsSpelt) {
  Client client(library());
  for (const char* id : {"Folder/Talk.md", "Folder//Talk.md", "./Folder/./Talk.md", "Folder/Talk.md/", "in.md",
                         "in/Talk.md", "in2/Talk.md"}) {
    EXPECT_EQ(client.call("read_script", {{"id", id}}), success("in a folder")) << id;
  }
  client.finish();
}

TEST_F(Identifiers, aLibraryBehindALinkIsServed) {
  create_symlink("library", around / "link");
  Client client((around / "link").native());
  EXPECT_EQ(client.call("read_script", {{"id", "Talk.md"}}), success("# One\n\nWords\n"));
  EXPECT_EQ(client.call("read_script", {{"id", "out.md"}}), failure("\"out.md\" is not inside the library"));
  client.finish();
}

TEST_F(Identifiers, linksAreNotListed) {
  Client client(library());
  EXPECT_EQ(client.call("list_scripts"),
            success(R"([{"children":[{"id":"Folder/Talk.md","kind":"script","name":"Talk"}],"id":"Folder",)"
                    R"("kind":"folder","name":"Folder"},{"id":"Talk.md","kind":"script","name":"Talk"}])"));
  EXPECT_EQ(client.call("list_folders"), success(R"([{"id":"Folder","name":"Folder"}])"));
  client.finish();
}

TEST(Names, ofEveryKindAreListedAndRead) {
  const std::string longest(252, 'n');
  const std::vector<std::string> names = {
      "with \"quotes\"", "with 'quotes'",    " blanks at both ends ",
      "line\nbreak",     "CR\rand tab\t",    "back\\slash",
      "percent %2F",     "$(rm -rf x); `x`", "-dash",
      "Übung",           "日本語",           "😀👩‍👩‍👧",
      "e\xCC\x81 apart", "two.dots.here",    "\x7F\x01 control",
      longest,
  };
  const Folder library;
  for (const std::string& name : names) library.put(name + ".md", "text of " + name);
  Client client(library.text());
  const std::optional<JSON> list = JSON::decoded(client.call("list_scripts").text);
  ASSERT_TRUE(list && list->items() != nullptr);
  std::vector<std::string> listed;
  for (const JSON& item : *list->items()) {
    listed.emplace_back(*item["name"]->string());
    EXPECT_EQ(*item["id"]->string(), listed.back() + ".md");
    EXPECT_EQ(client.call("read_script", {{"id", *item["id"]->string()}}), success("text of " + listed.back()));
  }
  EXPECT_THAT(listed, testing::UnorderedElementsAreArray(names));
  client.finish();
}

TEST(Names, thatAreNotUTF8AreNotListedAndDoNotHinderTheOthers) {
  const Folder library;
  library.put("Talk.md", "text");
  library.put("caf\xE9.md", "cannot be named");
  library.put("dir\xFF/Inner.md", "cannot be named");
  Client client(library.text());
  EXPECT_EQ(client.call("list_scripts"), success(R"([{"id":"Talk.md","kind":"script","name":"Talk"}])"));
  client.finish();
}

TEST(Names, thatBeginWithADotAreNotListed) {
  const Folder library;
  library.put(".hidden.md", "hidden");
  library.put(".folder/Talk.md", "hidden");
  library.put(".md", "no name");
  Client client(library.text());
  EXPECT_EQ(client.call("list_scripts"), success("[]"));
  client.finish();
}

// What is no file could block whoever opens it, or have no end.
TEST(Entries, thatAreNoFilesAreErrorsAndDoNotBlock) {
  const Folder library;
  ASSERT_EQ(::mkfifo((library / "pipe.md").c_str(), 0666), 0);
  const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  (library / "s.md").native().copy(address.sun_path, sizeof address.sun_path - 1);
  ASSERT_EQ(::bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  ::close(socket);
  create_symlink("/dev/zero", library / "zero.md");
  Client client(library.text(), true);
  EXPECT_EQ(client.call("list_scripts"), success("[]"));
  for (const char* id : {"pipe.md", "s.md"}) {
    for (const char* tool : {"read_script", "list_chapters"}) {
      const Answer answer = client.call(tool, {{"id", id}});
      EXPECT_TRUE(answer.isError) << tool << ' ' << id;
      EXPECT_THAT(answer.text, testing::HasSubstr("could not be read")) << tool;
    }
    const Answer answer = client.call("update_script", {{"id", id}, {"text", "t"}, {"note", "n"}});
    EXPECT_TRUE(answer.isError) << id;
  }
  EXPECT_EQ(client.call("read_script", {{"id", "zero.md"}}), failure("\"zero.md\" is not inside the library"));
  client.finish();
  EXPECT_TRUE(std::filesystem::is_fifo(library / "pipe.md"));
  EXPECT_TRUE(std::filesystem::is_socket(library / "s.md"));
}

TEST(Entries, thatCannotBeReadAreErrorsAndNeverEmptyScripts) {
  const Folder library;
  library.put("Locked.md", "locked");
  library.put("Folder/Inner.md", "inner");
  library.put("Open.md", "open");
  library.giveToNobody();
  std::filesystem::permissions(library / "Locked.md", std::filesystem::perms::none);
  std::filesystem::permissions(library / "Folder", std::filesystem::perms::none);
  Client client(library.text(), true, true);
  EXPECT_EQ(client.call("list_scripts"), success(R"([{"children":[],"id":"Folder","kind":"folder","name":"Folder"},)"
                                                 R"({"id":"Locked.md","kind":"script","name":"Locked"},)"
                                                 R"({"id":"Open.md","kind":"script","name":"Open"}])"));
  for (const auto& [tool, more] : toolsOnScripts) {
    JSON::Object arguments = more;
    arguments.set("id", "Locked.md");
    const Answer answer = client.call(tool, arguments);
    if (std::string_view(tool) == "list_versions") {
      EXPECT_EQ(answer, success("[]"));
    } else {
      EXPECT_TRUE(answer.isError) << tool << ": " << answer.text;
      EXPECT_THAT(answer.text, testing::StartsWith("\"Locked.md\" could not be read")) << tool;
    }
  }
  EXPECT_EQ(client.call("read_script", {{"id", "Folder/Inner.md"}}), failure("Nothing at \"Folder/Inner.md\""));
  EXPECT_EQ(client.call("read_script", {{"id", "Open.md"}}), success("open"));
  client.finish();
  std::filesystem::permissions(library / "Folder", std::filesystem::perms::owner_all);
  std::filesystem::permissions(library / "Locked.md", std::filesystem::perms::owner_all);
  EXPECT_EQ(library.bytes("Locked.md"), "locked");
}

}  // namespace
}  // namespace kelvane::tests

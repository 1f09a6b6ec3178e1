#include "scripttools/Resolution.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "platform/FileSystem.h"
#include "protocol/RPCError.h"
#include "tests/scripttools/Workbench.h"

namespace kelvane::tests {
namespace {

using namespace std::string_literals;
using quorvel::ScriptItem;

std::string described(const ScriptItem& item) {
  return (item.kind == ScriptItem::Kind::folder ? "folder <" : "script <") + item.identifier + "> called <" +
         item.name + ">" + (item.children ? " with children" : "");
}

template <class Resolve>
std::string outcome(Resolve resolve) {
  try {
    return resolve();
  } catch (const RPCError& error) {
    EXPECT_EQ(error.code(), -32602);
    return error.message();
  }
}

std::string item(const std::string& identifier, const quorvel::ScriptLibrary& library) {
  return outcome([&] { return described(itemAt(identifier, library)); });
}

std::string outside(const std::string& identifier) {
  return "\"" + identifier + "\" is not inside the library";
}
std::string nothing(const std::string& identifier) {
  return "Nothing at \"" + identifier + "\"";
}
std::string noScript(const std::string& identifier) {
  return "\"" + identifier + "\" is not a script";
}

class Resolution : public WorkbenchTest {};

TEST_F(Resolution, findsScriptsAndFolders) {
  const struct {
    std::string_view description;
    std::string identifier;
    std::string expected;
  } cases[] = {
      {"the root", "", "folder <> called <Library>"},
      {"the root by a piece that standardizing removes", ".", "folder <> called <Library>"},
      {"and with a slash at its end", "./", "folder <> called <Library>"},
      {"a script", "Talk.md", "script <Talk.md> called <Talk>"},
      {"an empty script", "Empty.md", "script <Empty.md> called <Empty>"},
      {"a folder", "Scenes", "folder <Scenes> called <Scenes>"},
      {"a folder with a slash at its end", "Scenes/", "folder <Scenes> called <Scenes>"},
      {"a script with a slash at its end", "Talk.md/", "script <Talk.md> called <Talk>"},
      {"a script in a folder", "Scenes/Intro.md", "script <Scenes/Intro.md> called <Intro>"},
      {"a piece of one dot", "Scenes/./Intro.md", "script <Scenes/Intro.md> called <Intro>"},
      {"an empty piece", "Scenes//Intro.md", "script <Scenes/Intro.md> called <Intro>"},
      {"a folder far down", "Scenes/Deep/Deeper", "folder <Scenes/Deep/Deeper> called <Deeper>"},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.description);
    EXPECT_EQ(item(each.identifier, *library), each.expected);
  }
}

TEST_F(Resolution, quotesARefusedIdentifierAsItWasSent) {
  const std::string longName(300, 'a');
  const std::string longPath(5000, 'b');
  std::string deepPath;
  for (int depth = 0; depth < 20000; ++depth) deepPath += "a/";
  const struct {
    std::string_view description;
    std::string identifier;
    std::string (*message)(const std::string&);
  } cases[] = {
      {"an absolute path", "/tmp/notes", outside},
      {"the root of all files", "/", outside},
      {"two slashes at the start", "//Talk.md", outside},
      {"an absolute path into the library", root / "Talk.md", outside},
      {"the folder above", "..", outside},
      {"a way out and in again", "../Library/Talk.md", outside},
      {"a way out from further down", "Scenes/../../x", outside},
      {"a way up that stays inside", "Scenes/../Talk.md", outside},
      {"a way up at the end", "Scenes/..", outside},
      {"a way up behind empty pieces", "Scenes//..//Talk.md", outside},
      {"a way up behind a missing folder", "Nope/..", outside},
      {"three dots, which go nowhere", "...", nothing},
      {"a piece that only starts with two dots", "..x/y", nothing},
      {"two dots and a space", ".. ", nothing},
      {"a missing script", "Nope.md", nothing},
      {"a missing folder", "Scenes/Nope", nothing},
      {"a script without its extension", "Talk", nothing},
      {"a script of a folder's name", "Songs.md", nothing},
      {"another letter case", "talk.md", nothing},
      {"something below a script", "Talk.md/x", nothing},
      {"spaces around a name", " Talk.md ", nothing},
      {"quotes", "a \"quoted\" name.md", nothing},
      {"line breaks", "a\r\nb\nc", nothing},
      {"a name too long for the disk", longName, nothing},
      {"a path too long for the system", longPath, nothing},
      {"a path of very many pieces", deepPath, nothing},
      {"bytes that are not UTF-8", "\xff\xfe\xc3.md", nothing},
      {"a NUL behind a script's name", "Talk.md\0"s, nothing},
      {"a NUL and more behind a script's name", "Talk.md\0.md"s, nothing},
      {"a NUL behind a folder's name", "Scenes\0/Intro.md"s, nothing},
      {"a NUL alone", "\0"s, nothing},
      {"two dots and a NUL, which are no way up", "..\0"s, nothing},
      {"an absolute path with a NUL", "/\0"s, outside},
      {"a way up before a NUL", "../\0"s, outside},
      {"another extension", "Scenes/readme.txt", noScript},
      {"the extension in another letter case", "Scenes/Loud.MD", noScript},
      {"no extension", "README", noScript},
      {"only the extension", ".md", noScript},
      {"a dot behind the extension", "Trailing.md.", noScript},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.description);
    EXPECT_EQ(item(each.identifier, *library), each.message(each.identifier));
  }
}

TEST_F(Resolution, comparesNamesByteForByte) {
  const std::string composed = "caf\xc3\xa9.md", decomposed = "cafe\xcc\x81.md", latin1 = "caf\xe9.md";
  touch(root / composed);
  EXPECT_EQ(item(composed, *library), "script <" + composed + "> called <caf\xc3\xa9>");
  EXPECT_EQ(item(decomposed, *library), nothing(decomposed));
  touch(root / latin1);
  EXPECT_EQ(item(latin1, *library), "script <" + latin1 + "> called <caf\xe9>");
}

TEST_F(Resolution, acceptsEveryNameThatADiskCanHold) {
  for (const std::string name :
       {" ", "a \"b\"", "line\nbreak", "\r\n", "tab\t", "a.b", "日本語", "🎬", "-rf", "..x", "~", "%2e"}) {
    SCOPED_TRACE(name);
    touch(root / (name + ".md"));
    EXPECT_EQ(item(name + ".md", *library), "script <" + name + ".md> called <" + name + ">");
    std::filesystem::create_directory(root / name);
    EXPECT_EQ(item(name, *library), "folder <" + name + "> called <" + name + ">");
  }
  std::filesystem::create_directory(root / "folder.md");
  EXPECT_EQ(item("folder.md", *library), "folder <folder.md> called <folder.md>");
}

TEST_F(Resolution, followsLinksThatEndInsideTheLibrary) {
  const auto beside = folder.path();
  std::filesystem::create_directories(beside / "Library2");
  std::filesystem::create_directories(beside / "Outside");
  touch(beside / "Outside/secret.md");
  touch(beside / "Library2/secret.md");
  std::filesystem::create_symlink(root / "Talk.md", beside / "Outside/back.md");
  const struct {
    std::string_view description;
    std::string target;
    std::string identifier;  // with %, the link's own name
    std::string expected;
  } cases[] = {
      {"to a script, relative", "Talk.md", "%", "script <Talk.md> called <Talk>"},
      {"to a script, absolute", root / "Talk.md", "%", "script <Talk.md> called <Talk>"},
      {"to a folder", "Scenes", "%", "folder <Scenes> called <Scenes>"},
      {"on the way", "Scenes", "%/Intro.md", "script <Scenes/Intro.md> called <Intro>"},
      {"to the root", ".", "%", "folder <> called <Library>"},
      {"out and in again", beside / "Outside/back.md", "%", "script <Talk.md> called <Talk>"},
      {"to a file that is no script", "README", "%", "\"%\" is not a script"},
      {"to a file outside", beside / "Outside/secret.md", "%", "\"%\" is not inside the library"},
      {"to a folder outside", "../Outside", "%", "\"%\" is not inside the library"},
      {"to a folder outside, on the way", "../Outside", "%/secret.md", "\"%/secret.md\" is not inside the library"},
      {"to a folder whose name begins like the root's", "../Library2", "%/secret.md",
       "\"%/secret.md\" is not inside the library"},
      {"to the folder above", "..", "%", "\"%\" is not inside the library"},
      {"to a missing file inside", "Nope.md", "%", "Nothing at \"%\""},
      {"to a missing file outside", beside / "Nope.md", "%", "\"%\" is not inside the library"},
      {"to a missing file outside, on the way", "../Outside", "%/Nope", "\"%/Nope\" is not inside the library"},
      {"to itself", "to itself", "%", "Nothing at \"%\""},
      {"in a ring", "ring/ring", "%/ring", "Nothing at \"%/ring\""},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.description);
    const std::string name = each.description == "in a ring" ? "ring" : std::string(each.description);
    std::filesystem::create_symlink(each.target, root / name);
    const auto named = [&](std::string text) {
      for (auto at = text.find('%'); at != text.npos; at = text.find('%', at)) text.replace(at, 1, name);
      return text;
    };
    EXPECT_EQ(item(named(each.identifier), *library), named(each.expected));
  }
}

TEST_F(Resolution, followsLinksOfLinks) {
  std::filesystem::create_symlink("second", root / "first");
  std::filesystem::create_symlink("third", root / "second");
  std::filesystem::create_symlink("Talk.md", root / "third");
  EXPECT_EQ(item("first", *library), "script <Talk.md> called <Talk>");
  std::filesystem::remove(root / "third");
  std::filesystem::create_symlink("../Outside", root / "third");
  EXPECT_EQ(item("first", *library), outside("first"));
}

TEST_F(Resolution, findsNothingAtAPathThatTheSystemCannotOpen) {
  std::filesystem::create_directory_symlink(".", root / "here");
  std::filesystem::create_directory_symlink("../Outside", root / "out");
  std::string longest;  // the longest path that the system opens
  while (true) {
    const std::size_t left = filesystem::longestPath - root.native().size() - longest.size();
    if (left == 0) break;
    // Each piece leaves nothing, or room for another one.
    longest += '/' + std::string(left <= 200 ? left - 1 : left == 201 ? 100 : 199, 'x');
  }
  std::filesystem::create_directories(root.native() + longest);
  longest.erase(0, 1);
  std::string here = "here", out = "out";
  while (here.size() <= filesystem::longestPath) here += "/here";
  while (out.size() <= filesystem::longestPath) out += "/x";
  const std::string emptyPieces(2 * filesystem::longestPath, '/');
  const struct {
    std::string_view description;
    std::string identifier;
    std::string expected;
  } cases[] = {
      {"the longest", longest,
       "folder <" + longest + "> called <" + std::string(longest, longest.rfind('/') + 1) + ">"},
      {"one byte more", longest + "x", nothing(longest + "x")},
      {"a link that leads back, followed again and again", here, nothing(here)},
      {"behind a link that leads out", out, nothing(out)},
      {"a way up in it", here + "/..", outside(here + "/..")},
      {"long only because of empty pieces", "Scenes" + emptyPieces + "Intro.md",
       "script <Scenes/Intro.md> called <Intro>"},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.description);
    EXPECT_EQ(item(each.identifier, *library), each.expected);
  }
}

// A library that returns the right identifiers for every spelling of its root.
class SpelledLibrary : public InMemoryScriptLibrary {
 public:
  using InMemoryScriptLibrary::InMemoryScriptLibrary;
  std::string identifier(const std::filesystem::path& file) const override {
    return InMemoryScriptLibrary(std::filesystem::canonical(root())).identifier(file);
  }
};

TEST_F(Resolution, worksForEverySpellingOfTheRoot) {
  std::filesystem::create_directory_symlink(root, folder.path() / "link");
  std::filesystem::create_directory_symlink("link", folder.path() / "link of a link");
  for (const auto& spelled : {folder.path() / "link", folder.path() / "link of a link", root / "", root / ".",
                              root / "Scenes/..", folder.path() / "link/Scenes/.."}) {
    SCOPED_TRACE(spelled);
    const SpelledLibrary spelledLibrary(spelled);
    EXPECT_EQ(item("", spelledLibrary), "folder <> called <Library>");
    EXPECT_EQ(item("Scenes/Intro.md", spelledLibrary), "script <Scenes/Intro.md> called <Intro>");
    EXPECT_EQ(item("Nope", spelledLibrary), nothing("Nope"));
    EXPECT_EQ(item("..", spelledLibrary), outside(".."));
  }
}

TEST_F(Resolution, findsNothingInALibraryThatWasDeleted) {
  std::filesystem::remove_all(root);
  EXPECT_EQ(item("", *library), nothing(""));
  EXPECT_EQ(item("Talk.md", *library), nothing("Talk.md"));
  EXPECT_EQ(item("/x", *library), outside("/x"));
}

TEST_F(Resolution, refusesAFolderForAScriptAndAScriptForAFolder) {
  const struct {
    std::string_view description;
    std::string identifier;
    std::string script;
    std::string folder;
  } cases[] = {
      {"a script", "Talk.md", "script <Talk.md> called <Talk>", "\"Talk.md\" is a script, not a folder"},
      {"a folder", "Scenes", "\"Scenes\" is a folder, not a script", "Scenes"},
      {"a folder in other words", "./Scenes//Deep/", "\"./Scenes//Deep/\" is a folder, not a script", "Scenes/Deep"},
      {"the root", "", "\"\" is a folder, not a script", ""},
      {"nothing", "Nope", "Nothing at \"Nope\"", "Nothing at \"Nope\""},
      {"no script", "README", "\"README\" is not a script", "\"README\" is not a script"},
      {"outside", "/", "\"/\" is not inside the library", "\"/\" is not inside the library"},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.description);
    EXPECT_EQ(outcome([&] { return described(scriptAt(each.identifier, *library)); }), each.script);
    EXPECT_EQ(outcome([&] { return folderAt(each.identifier, *library).value(); }), each.folder);
  }
}

TEST_F(Resolution, locatesPathsWhereNothingExists) {
  EXPECT_EQ(locate("", *library), root);
  EXPECT_EQ(locate("Scenes/./Nope/x", *library), root / "Scenes/Nope/x");
}

TEST_F(Resolution, joinsTheRootAndAnIdentifierUnchanged) {
  EXPECT_EQ(pathOf("", *library), root);
  EXPECT_EQ(pathOf("Scenes/Intro.md", *library).native(), root.native() + "/Scenes/Intro.md");
}

// A library of which no operation may be called.
class UntouchableLibrary : public InMemoryScriptLibrary {
 public:
  UntouchableLibrary() : InMemoryScriptLibrary("/nonexistent") {}
  const std::filesystem::path& root() const noexcept override {
    ADD_FAILURE() << "the root was asked for";
    return InMemoryScriptLibrary::root();
  }
};

TEST(ResolutionWithoutALook, refusesAbsolutePathsAndPiecesOfTwoDots) {
  const UntouchableLibrary library;
  for (const std::string identifier : {"/tmp/notes", "/", "..", "a/../b", "a/.."}) {
    EXPECT_EQ(item(identifier, library), outside(identifier));
  }
}

TEST(ResolutionWithoutALook, returnsTheTopLevelIfNoFolderIsGiven) {
  EXPECT_EQ(folderAt(std::nullopt, UntouchableLibrary()), std::nullopt);
}

}  // namespace
}  // namespace kelvane::tests

#include "platform/FileSystem.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>

#include "tests/support/ChildProcess.h"
#include "tests/support/TemporaryFolder.h"

namespace kelvane::filesystem {
namespace {

using std::filesystem::path;
using namespace std::string_literals;

/// A folder with a file "file", a folder "folder" and a file "folder/inner" in it; a test adds its links.
class FileSystem : public testing::Test {
 protected:
  FileSystem() {
    std::filesystem::create_directory(root / "folder");
    std::ofstream(root / "file") << "text";
    std::ofstream(root / "folder/inner") << "text";
  }

  void link(const path& name, const path& target) { std::filesystem::create_symlink(target, root / name); }

  std::string resolved(const path& relative) const {
    const std::string whole = resolvingSymbolicLinks(root / relative);
    const std::string inside = root.native() + "/";
    return whole.starts_with(inside) ? whole.substr(inside.size()) : whole;
  }

  const tests::TemporaryFolder temporary;
  const path root = temporary.path();
};

TEST(StandardizedPath, isAbsoluteWithoutDotsAndRepeatedSlashes) {
  const std::string here = std::filesystem::current_path().native();
  const struct {
    const char* what;
    path given;
    std::string expected;
  } rows[] = {
      {"the root", "/", "/"},
      {"many slashes", "///", "/"},
      {"a path that is plain", "/a/b", "/a/b"},
      {"a slash at the end", "/a/b/", "/a/b"},
      {"empty pieces", "//a///b//", "/a/b"},
      {"dots", "/./a/./b/.", "/a/b"},
      {"up", "/a/../b", "/b"},
      {"up at the end", "/a/b/..", "/a"},
      {"up to the root", "/a/..", "/"},
      {"up above the root", "/../../a", "/a"},
      {"names that begin or end with dots", "/.a/..b/c./...", "/.a/..b/c./..."},
      {"nothing", "", here},
      {"the current folder", ".", here},
      {"a relative path", "a/b", here + "/a/b"},
      {"a relative path with dots", "./a/../b/", here + "/b"},
      {"bytes that are no UTF-8", "/\xFF/e\u0301", "/\xFF/e\u0301"},
      {"a NUL", path("/a\0b/../c\0d"s), "/c\0d"s},
      {"spaces and line breaks", "/ a /\n", "/ a /\n"},
  };
  for (const auto& row : rows) EXPECT_EQ(standardized(row.given), row.expected) << row.what;
}

TEST(StandardizedPath, aDeletedCurrentFolderLeadsNowhereElse) {
  EXPECT_EQ(tests::inChild([] {
              const tests::TemporaryFolder temporary;
              std::filesystem::current_path(temporary.path());
              std::filesystem::remove(temporary.path());
              return standardized("etc") + (entry(standardized("etc")) ? " exists" : " is not there");
            }),
            "/proc/self/cwd/etc is not there");
}

TEST_F(FileSystem, anEntryIsAFolderOrAFileOrNothing) {
  link("toFile", "file");
  link("toFolder", "folder");
  link("dangling", "missing");
  link("loop", "loop");
  ASSERT_EQ(::mkfifo((root / "fifo").c_str(), 0600), 0);
  constexpr auto file = EntryKind::file;
  constexpr auto folder = EntryKind::directory;
  const struct {
    const char* what;
    path relative;
    std::optional<EntryKind> expected;
  } rows[] = {
      {"the folder itself", "", folder},
      {"a file", "file", file},
      {"a folder", "folder", folder},
      {"a folder with a slash", "folder/", folder},
      {"a file in it", "folder/inner", file},
      {"what is neither", "fifo", file},
      {"a link to a file", "toFile", file},
      {"a link to a folder", "toFolder", folder},
      {"through a link", "toFolder/inner", file},
      {"nothing", "missing", {}},
      {"below nothing", "missing/inner", {}},
      {"below a file", "file/inner", {}},
      {"a file with a slash", "file/", {}},
      {"a dangling link", "dangling", {}},
      {"a looping link", "loop", {}},
      {"a NUL is never cut off", path("file\0"s), {}},
      {"nor in the midst", path("folder\0x/inner"s), {}},
      {"a name too long", std::string(300, 'x'), {}},
      {"a path too long", path(std::string(5000, '/') + "file"), {}},
      {"another letter case", "File", {}},
  };
  for (const auto& row : rows) EXPECT_EQ(entry(root / row.relative), row.expected) << row.what;
  EXPECT_EQ(entry(""), std::nullopt);
  EXPECT_EQ(entry("/"), folder);
}

TEST_F(FileSystem, followsLinks) {
  std::filesystem::create_directories(root / "folder/deep/deeper");
  link("relative", "folder");
  link("absolute", root / "folder");
  link("untidy", ".//folder/./");
  link("toFile", "folder/inner");
  link("second", "relative");
  link("third", "./second/inner");
  link("out", "/");
  link("folder/up", "..");
  link("folder/deep/deeper/over", "../../../file");
  link("shortcut", "folder/deep/deeper");
  link("dangling", "missing/piece");
  link("danglingAbsolute", "/nonexistent/kelvane");
  link("throughMissing", "missing/../folder/inner");
  link("throughMissingToLink", "missing/../relative/inner");
  link("throughMissingTwice", "missing/piece/../../second");
  link("aboveRoot", "/../../nonexistent");
  const struct {
    const char* what;
    path relative;
    std::string expected;
  } rows[] = {
      {"no link", "folder/inner", "folder/inner"},
      {"what is not there", "missing/piece", "missing/piece"},
      {"below a file", "file/piece/relative", "file/piece/relative"},
      {"a relative link", "relative", "folder"},
      {"an absolute link", "absolute", "folder"},
      {"a link with empty pieces and dots", "untidy/inner", "folder/inner"},
      {"a link to a file", "toFile", "folder/inner"},
      {"through a link", "relative/inner", "folder/inner"},
      {"behind a link there may be nothing", "relative/missing", "folder/missing"},
      {"links to links", "second/inner", "folder/inner"},
      {"links in the targets of links", "third", "folder/inner"},
      {"links among the pieces", "relative/up/absolute/inner", "folder/inner"},
      {"up from where a link led", "shortcut/over", "file"},
      {"\"..\" in what is asked for takes a piece away, link or not", "relative/../file", "file"},
      {"out to the root", "out", "/"},
      {"below the root", "out/nonexistent", "/nonexistent"},
      {"a dangling link is followed all the same", "dangling", "missing/piece"},
      {"also with more behind", "dangling/more", "missing/piece/more"},
      {"a dangling link that leads out", "danglingAbsolute", "/nonexistent/kelvane"},
      {"a link through what is missing", "throughMissing", "folder/inner"},
      {"links behind what is missing", "throughMissingToLink", "folder/inner"},
      {"two pieces that are missing", "throughMissingTwice", "folder"},
      {"above the root is the root", "aboveRoot", "/nonexistent"},
      {"a NUL ends no name", path("relative\0/inner"s), "relative\0/inner"s},
      {"behind a link, too", path("relative/in\0ner"s), "folder/in\0ner"s},
      {"a name too long", std::string(300, 'x') + "/relative", std::string(300, 'x') + "/relative"},
      {"a name too long behind a link", "relative/" + std::string(300, 'x'), "folder/" + std::string(300, 'x')},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(resolved(row.relative), row.expected) << row.what;
    // If something exists, the system finds the same thing.
    std::error_code missing;
    const path canonical = std::filesystem::canonical(standardized(root / row.relative), missing);
    if (!missing && row.relative.native().find('\0') == std::string::npos) {
      EXPECT_EQ(resolvingSymbolicLinks(root / row.relative), canonical) << row.what;
    }
  }
  EXPECT_EQ(resolvingSymbolicLinks("/"), "/");
  EXPECT_EQ(resolvingSymbolicLinks(root / "relative/"), root / "folder") << "no slash at the end";
}

TEST_F(FileSystem, leavesALinkThatLoopsAndThePiecesAfterItAsTheyAre) {
  link("self", "self");
  link("a", "b");
  link("b", "folder/../a");
  link("growing", "growing/growing");
  link("into", "self/more");
  link("toFolder", "folder");
  for (const char* name : {"self", "a", "b", "growing", "into"}) {
    EXPECT_EQ(resolved(name), name);
    EXPECT_EQ(resolved(path("toFolder/..") / name / "toFolder"), path(name) / "toFolder");
    EXPECT_EQ(entry(resolvingSymbolicLinks(root / name)), std::nullopt) << name;
  }
  link("folder/loop", "loop");
  EXPECT_EQ(resolved("toFolder/loop/x"), "folder/loop/x") << "what went before is resolved";
}

TEST_F(FileSystem, followsAsManyLinksAsTheSystem) {
  link("link1", "file");
  for (int count = 2; count <= 41; ++count) link("link" + std::to_string(count), "link" + std::to_string(count - 1));
  EXPECT_EQ(resolved("link40"), "file");
  EXPECT_EQ(entry(root / "link40"), EntryKind::file);
  EXPECT_EQ(resolved("link41"), "link41");
  EXPECT_EQ(entry(root / "link41"), std::nullopt);
  link("toHere", ".");
  EXPECT_EQ(resolved("toHere/toHere/link40"), "file") << "each piece has its own count";
}

TEST_F(FileSystem, followsALinkWithATargetOfAnyLength) {
  std::string target = "folder";
  while (target.size() < 4000) target += "/.";
  link("long", target + "/inner");
  EXPECT_EQ(resolved("long"), "folder/inner");
}

TEST_F(FileSystem, resolvesALongPathQuickly) {
  std::string pieces, dots;
  for (int count = 0; count < 100'000; ++count) pieces += "/x";
  for (int count = 0; count < 100'000; ++count) dots += "/./x/..";
  EXPECT_TRUE(resolvingSymbolicLinks(root.native() + pieces) == root.native() + pieces);
  EXPECT_TRUE(resolvingSymbolicLinks(root.native() + dots) == root);
}

TEST_F(FileSystem, leavesAPieceThatItIsNotPermittedToReadAsItIs) {
  link("folder/link", "inner");
  link("around", "folder/link");
  std::filesystem::permissions(root, std::filesystem::perms(0755));
  std::filesystem::permissions(root / "folder", std::filesystem::perms(0600));
  const std::string answer = tests::inChild([&] {
    tests::becomeNobody();
    std::string kinds;
    for (const char* name : {"file", "folder", "folder/inner", "around"}) kinds += entry(root / name) ? "+" : "-";
    return kinds + " " + resolved("folder/link") + " " + resolved("folder/link/more") + " " + resolved("around");
  });
  EXPECT_EQ(answer, "++-- folder/link folder/link/more folder/link");
  std::filesystem::permissions(root / "folder", std::filesystem::perms(0700));
}

}  // namespace
}  // namespace kelvane::filesystem

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <sys/stat.h>

#include <filesystem>
#include <optional>
#include <string>

#include "quorvel/files/WholeFile.h"
#include "tests/quorvel/library/LibraryHouse.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/RowName.h"

namespace quorvel {
namespace {

using kelvane::tests::becomeNobody;
using kelvane::tests::inChild;

class Reading : public LibraryHouse {};

TEST_F(Reading, givesTheExactBytes) {
  using namespace std::string_view_literals;
  for (const std::string_view text : {""sv, "words"sv, "\xEF\xBB\xBF# a\r\n\r\nb"sv, "\xFF\0\n\xC3"sv}) {
    put("Talk.md", text);
    EXPECT_EQ(library.read(script("Talk.md")), text);
  }
}

TEST_F(Reading, takesTextsOfAnySize) {
  for (const std::size_t size : {4095U, 4096U, 4097U, 1U << 20}) {
    const std::string text(size, 'x');
    put("Talk.md", text);
    EXPECT_EQ(library.read(script("Talk.md")), text) << size;
  }
}

TEST_F(Reading, atOnceIsOnlyForScriptsThatNoLinkLeadsTo) {
  put("Talk.md", "words");
  put("Scenes/End.md", "end");
  put("note.txt", "note");
  put(".md", "hidden");
  std::filesystem::create_directory(root / "Folder.md");
  std::filesystem::create_symlink("Talk.md", root / "link.md");
  std::filesystem::create_symlink("Scenes", root / "way");
  ASSERT_EQ(::mkfifo((root / "pipe.md").c_str(), 0600), 0);
  const struct {
    std::string identifier;
    std::optional<std::string> text;
  } rows[] = {
      {"Talk.md", "words"},
      {"Scenes/End.md", "end"},
      {"./Scenes//End.md", "end"},
      {"link.md", std::nullopt},
      {"way/End.md", std::nullopt},
      {"Folder.md", std::nullopt},
      {"pipe.md", std::nullopt},
      {"note.txt", std::nullopt},
      {".md", std::nullopt},
      {"Missing.md", std::nullopt},
      {"", std::nullopt},
      {"Scenes", std::nullopt},
      {"../Talk.md", std::nullopt},
      {"/Talk.md", std::nullopt},
      {"Scenes/../Talk.md", std::nullopt},
      {std::string("Talk\0.md", 8), std::nullopt},
  };
#ifdef KELVANE_PORTABLE
  for (const auto& row : rows) EXPECT_EQ(library.readAtOnce(row.identifier), std::nullopt) << row.identifier;
#else
  for (const auto& row : rows) EXPECT_EQ(library.readAtOnce(row.identifier), row.text) << row.identifier;
#endif
  const auto lock = library.lock();
  EXPECT_EQ(library.readAtOnce("Talk.md"), std::nullopt) << "the lock decides on the folder";
}

TEST_F(Reading, findsNothingAtOnceInsideTheRootOfTheSystem) {
  put("Talk.md", "words");
  const FolderLibrary whole("/", history);
  EXPECT_EQ(whole.readAtOnce((root / "Talk.md").relative_path().native()), std::nullopt);
}

// Such files say that they are empty until they are read.
TEST_F(Reading, doesNotTrustTheSizeThatTheSystemTells) {
  const Descriptor file(::open("/proc/self/status", O_RDONLY | O_CLOEXEC));
  if (!file) GTEST_SKIP() << "there is no /proc here";
  EXPECT_THAT(readToEnd(file.get()), ::testing::Optional(::testing::StartsWith("Name:")));
}

struct Row {
  const char* description;
  std::string identifier;
  std::string sentence;  // its end

  friend void PrintTo(const Row& row, std::ostream* out) { *out << row.description; }
};

class UnreadableScript : public LibraryHouse, public ::testing::WithParamInterface<Row> {};

TEST_P(UnreadableScript, isAFailureAndNeverAnEmptyText) {
  put("Talk.md");
  put("Scenes/End.md");
  put("secret.md");
  put("Closed/End.md");
  std::filesystem::create_symlink("Talk.md", root / "link.md");
  std::filesystem::create_symlink("Scenes", root / "link");
  std::filesystem::create_symlink("loop.md", root / "loop.md");
  std::filesystem::create_directory(root / "folder.md");
  ASSERT_EQ(::mkfifo((root / "pipe.md").c_str(), 0644), 0);
  std::filesystem::permissions(folder.path(), std::filesystem::perms(0755));
  std::filesystem::permissions(root / "secret.md", std::filesystem::perms::none);
  std::filesystem::permissions(root / "Closed", std::filesystem::perms::none);
  const std::string sentence = inChild([&] {
    becomeNobody();
    return sentenceOf([&] { library.read(script(GetParam().identifier)); });
  });
  std::filesystem::permissions(root / "Closed", std::filesystem::perms::owner_all);
  EXPECT_EQ(sentence, inQuotes(GetParam().identifier) + " could not be read, because " + GetParam().sentence)
      << GetParam().description;
}

const std::string listAgain = " List the library again to see what is there now.";
std::string longPath() {
  std::string path = "x.md";
  while (path.size() < PATH_MAX) path.insert(0, "Scenes/");
  return path;
}

const std::string replaced = "a link or a file has taken the place of it or of a folder above it." + listAgain;
const std::string forbidden = "the system does not permit it. Check who may read and write there.";
const std::string tooLong = "its path is too long for the system. Use shorter names or fewer nested folders.";

const Row rows[] = {
    {"gone", "Missing.md", "it is not there any more." + listAgain},
    {"its folder gone", "Missing/Talk.md", "it is not there any more." + listAgain},
    {"a folder now", "folder.md", "it is a folder now." + listAgain},
    {"the root", "", "it is a folder now." + listAgain},
    {"a pipe now, which would block", "pipe.md", "what is there now is not a file. Move it away and try again."},
    {"a link now", "link.md", replaced},
    {"a link in the place of its folder", "link/End.md", replaced},
    {"a link in a circle", "loop.md", replaced},
    {"a file in the place of its folder", "Talk.md/End.md", replaced},
    {"not permitted", "secret.md", forbidden},
    {"in a folder that is not permitted", "Closed/End.md", forbidden},
    {"a name too long", std::string(300, 'x') + ".md", tooLong},
    {"a path too long", std::string(PATH_MAX, '/') + "x.md", "it is not inside the library."},
    {"a long path", longPath(), tooLong},
    {"upwards", "../Library/Talk.md", "it is not inside the library."},
    {"absolute", "/etc/passwd.md", "it is not inside the library."},
    {"with a NUL", std::string("Talk.md\0.md", 11), "it is not inside the library."},
};

INSTANTIATE_TEST_SUITE_P(Rows, UnreadableScript, ::testing::ValuesIn(rows), kelvane::tests::RowName());

}  // namespace
}  // namespace quorvel

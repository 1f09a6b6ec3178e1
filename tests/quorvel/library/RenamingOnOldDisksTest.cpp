#include "quorvel/files/Renaming.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "quorvel/files/TemporaryName.h"
#include "quorvel/files/WaitForWriters.h"
#include "tests/quorvel/library/LibraryHouse.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/RowName.h"

namespace quorvel {
namespace {

using kelvane::tests::becomeNobody;
using kelvane::tests::inChild;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

// Another program saves a file of one of the two names while a script is renamed by a second name.
struct Meeting {
  const char* description;
  const char* call;  // just before which it does
  const char* name;
  bool isFolder;
  bool isRefused;
  std::vector<std::string> left;

  friend void PrintTo(const Meeting& row, std::ostream* out) { *out << row.description; }
};

class RenamingByASecondName : public LibraryHouse, public ::testing::WithParamInterface<Meeting> {};

TEST_P(RenamingByASecondName, neverUnlinksAFileOfAnotherProgram) {
  const Meeting& meeting = GetParam();
  put("Talk.md", "words");
  const auto theirs = meeting.isFolder ? std::filesystem::path(meeting.name) / "theirs" : meeting.name;
  calls.before = [&, met = false](std::string_view call) mutable {
    if (call == meeting.call && !std::exchange(met, true)) {
      if (meeting.isFolder) {
        std::filesystem::remove(root / meeting.name);
        put(theirs, "theirs");
      } else {
        put("saved~", "theirs");
        std::filesystem::rename(root / "saved~", root / meeting.name);
      }
    }
    return call == "renameToFreeName" ? EINVAL : 0;
  };
  const std::string sentence = sentenceOf([&] { library.rename(script("Talk.md"), "New"); });
  EXPECT_EQ(bytesOf(theirs), "theirs") << meeting.description;
  EXPECT_EQ(names(), meeting.left) << meeting.description;
  EXPECT_THAT(sentence, HasSubstr(meeting.isRefused ? "another program is using it" : "(no failure)"))
      << meeting.description;
}

const Meeting meetings[] = {
    {"the old name, before the second one is given", "link", "Talk.md", false, true, {"Talk.md"}},
    {"the old name, after that", "rename", "Talk.md", false, true, {"Talk.md"}},
    {"the old name, with a folder", "rename", "Talk.md", true, true, {"Talk.md"}},
    {"the old name, when the file has lost it", "unlink", "Talk.md", false, false, {"New.md", "Talk.md"}},
    {"the new name", "rename", "New.md", false, true, {"New.md", "Talk.md"}},
    {"the new name, with a folder", "rename", "New.md", true, true, {"New.md", "Talk.md"}},
};

INSTANTIATE_TEST_SUITE_P(Rows, RenamingByASecondName, ::testing::ValuesIn(meetings), kelvane::tests::RowName());

TEST_F(LibraryHouse, aFileThatCannotLoseItsOldNameKeepsIt) {
  put("Talk.md", "words");
  calls.lack({"renameToFreeName", "rename"}, EPERM);
  EXPECT_THAT(sentenceOf([&] { library.rename(script("Talk.md"), "New"); }), HasSubstr("does not permit it"));
  EXPECT_THAT(names(), ElementsAre("Talk.md"));
  EXPECT_EQ(bytesOf("Talk.md"), "words");
}

TEST_F(LibraryHouse, aRenamingThatWasMadeThoughTheDiskDeniesItCounts) {
  put("Talk.md", "words");
  calls.lack({"renameToFreeName"}, EINVAL);
  calls.renamingToBeDenied = 1;
  EXPECT_EQ(library.rename(script("Talk.md"), "New").identifier, "New.md");
  EXPECT_THAT(names(), ElementsAre("New.md"));
  EXPECT_EQ(bytesOf("New.md"), "words");
}

TEST_F(LibraryHouse, aScriptIsNotRenamedWhileItsLastTextIsStillBeingSaved) {
  put("Talk.md", "new");
  TemporaryName name = TemporaryName::fresh("Talk.md").ofReplacedFile();
  put(name.text(), "half ");
  Descriptor editor(::open((root / name.text()).c_str(), O_WRONLY | O_APPEND | O_CLOEXEC));
  if (waitForWriters(Descriptor(::open((root / name.text()).c_str(), O_RDONLY | O_CLOEXEC)).get(),
                     std::chrono::seconds(0)))
    GTEST_SKIP() << "this disk does not tell who has a file open";
  EXPECT_EQ(
      sentenceOf([&] { impatient().rename(script("Talk.md"), "New"); }),
      "\"Talk.md\" could not be renamed, because an earlier text of it is in a hidden file beside it (its name begins "
      "with .kelvane-), which another program has open for writing or which is larger than 256 MiB. Save and close it "
      "there, or move it away, then try again.");
  ASSERT_EQ(::write(editor.get(), "and whole", 9), 9);
  editor = Descriptor();
  EXPECT_EQ(library.rename(script("Talk.md"), "New").identifier, "New.md");
  EXPECT_THAT(names(), ElementsAre("New.md"));
  EXPECT_THAT(story("New.md"), HasSubstr("half and whole"));
}

TEST_F(LibraryHouse, renamingIsRefusedWhereItCouldReplaceAnotherFile) {
  put("Talk.md", "words");
  calls.before = [](std::string_view call) { return call == "renameToFreeName" ? EINVAL : call == "link" ? EPERM : 0; };
  EXPECT_EQ(sentenceOf([&] { library.rename(script("Talk.md"), "New"); }),
            "\"Talk.md\" could not be renamed, because this disk has no way to rename a file without the danger of "
            "replacing another one. Rename it in another program.");
  EXPECT_THAT(names(), ElementsAre("Talk.md"));
}

TEST_F(LibraryHouse, renamingInAFolderThatIsNotPermittedIsRefused) {
  put("Closed/Talk.md", "words");
  std::filesystem::permissions(folder.path(), std::filesystem::perms(0755));
  ASSERT_TRUE(::geteuid() != 0 || ::chown(root.c_str(), 65534, 65534) == 0);
  std::filesystem::permissions(root / "Closed", std::filesystem::perms(0555));
  for (const bool onOldDisk : {false, true}) {
    if (onOldDisk) calls.lack({"renameToFreeName"}, ENOSYS);
    EXPECT_EQ(inChild([&] {
                becomeNobody();
                return sentenceOf([&] { library.rename(script("Closed/Talk.md"), "New"); });
              }),
              "\"Closed/Talk.md\" could not be renamed, because the system does not permit it. Check who may read and "
              "write there.")
        << onOldDisk;
  }
  EXPECT_THAT(names("Closed"), ElementsAre("Talk.md"));
}

// The disk fails from one call on, once a script is renamed by a second name.
struct FailureHalfWay {
  const char* description;
  std::vector<std::string> failing;
  const char* sentence;
  std::vector<std::string> left;  // "hidden" for a hidden one

  friend void PrintTo(const FailureHalfWay& row, std::ostream* out) { *out << row.description; }
};

class RenamingThatFailsHalfWay : public LibraryHouse, public ::testing::WithParamInterface<FailureHalfWay> {};

TEST_P(RenamingThatFailsHalfWay, isToldWithTheNamesThatAreLeft) {
  const FailureHalfWay& row = GetParam();
  put("Talk.md", "words");
  calls.before = [&](std::string_view call) {
    if (call == "renameToFreeName") return EINVAL;
    return std::find(row.failing.begin(), row.failing.end(), call) == row.failing.end() ? 0 : EIO;
  };
  EXPECT_EQ(sentenceOf([&] { library.rename(script("Talk.md"), "New"); }), row.sentence);
  std::vector<std::string> left = names();
  for (std::string& name : left) {
    EXPECT_EQ(bytesOf(name), "words");
    if (name.starts_with(TemporaryName::prefix)) name = "hidden";
  }
  EXPECT_EQ(left, row.left);
}

const FailureHalfWay failuresHalfWay[] = {
    {"a second name cannot be given",
     {"link"},
     "\"Talk.md\" could not be renamed, because the disk reports an error. Check the disk.",
     {"Talk.md"}},
    {"the first name cannot be taken away",
     {"rename", "unlink"},
     "\"Talk.md\" could not be renamed, because the disk reports an error, and it has a second name now, \"New.md\". "
     "Check the disk, then delete the name that you do not want.",
     {"New.md", "Talk.md"}},
    {"the temporary name cannot be taken away",
     {"unlink"},
     "\"Talk.md\" was renamed to \"New.md\", with a hidden file left beside it, because the disk reports an error. "
     "Check the disk.",
     {"hidden", "New.md"}},
    {"the temporary name cannot be taken away, and the folder not flushed",
     {"unlink", "flush"},
     "\"Talk.md\" was renamed to \"New.md\", with a hidden file left beside it, but that may not outlast a power "
     "failure, because the disk reports an error. Check the disk.",
     {"hidden", "New.md"}},
};

INSTANTIATE_TEST_SUITE_P(Rows, RenamingThatFailsHalfWay, ::testing::ValuesIn(failuresHalfWay),
                         kelvane::tests::RowName());

}  // namespace
}  // namespace quorvel

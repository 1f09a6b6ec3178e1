#include <grp.h>
#include <unistd.h>

#include "tests/quorvel/settings/StagedFiles.h"
#include "tests/support/ChildProcess.h"

namespace quorvel::changes {
namespace {

FileEdit to(const std::string& text) {
  return [text](const auto&) { return std::optional(text); };
}

// Where no file can be made without a name, who we are tells.
TEST(FileChange, refusesAnOwnerThatCannotBeKeptAlsoWhenItIsOnlyTried) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can make files of other users";
  constexpr uid_t nobody = 65534;
  constexpr gid_t other = 4242;
  const std::string owner = "it belongs to another user and would become yours. Run this as its owner.";
  const std::string group = "its group would change. Run this as a member of that group.";
  const struct {
    const char* description;
    uid_t uid;
    gid_t gid;
    gid_t member;  // which we are also of
    gid_t folder;  // whose new files are of that group, or 0
    bool isRoot;
    std::string because;  // or nothing
  } cases[] = {
      {"our own", nobody, nobody, nobody, 0, false, ""},
      {"another user's", 0, nobody, nobody, 0, false, owner},
      {"another group's", nobody, other, nobody, 0, false, group},
      {"both", 0, other, nobody, 0, false, owner},
      {"another group's that we are of, too", nobody, other, other, 0, false, ""},
      {"a group that the folder gives", nobody, other, nobody, other, false, ""},
      {"our group where the folder gives another", nobody, nobody, nobody, other, false, ""},
      {"another user's, as root", nobody, other, 0, 0, true, ""},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.description);
    const TemporaryFolder folder;
    const fs::path file = folder.path() / "f";
    put(file, "old");
    ASSERT_EQ(::chown(file.c_str(), row.uid, row.gid), 0);
    ASSERT_EQ(::chmod(file.c_str(), 0666), 0);
    ASSERT_EQ(::chown(folder.path().c_str(), 0, row.folder), 0);
    ASSERT_EQ(::chmod(folder.path().c_str(), row.folder == 0 ? 0777 : 02777), 0);
    const std::string expected =
        row.because.empty() ? "(no failure)" : '"' + file.native() + "\" could not be written, because " + row.because;
    const auto asUs = [&](const std::function<void(FileCopies&)>& attempt, bool hasUnnamedFiles) {
      return kelvane::tests::inChild([&]() -> std::string {
        const gid_t groups[] = {row.member};
        if (!row.isRoot && (::setgroups(1, groups) != 0 || ::setgid(nobody) != 0 || ::setuid(nobody) != 0)) return "?";
        StagedCalls calls;
        calls.hasUnnamedFiles = hasUnnamedFiles;
        FileCopies copies(
            file, ".copy", [](const std::string&) { return false; }, calls);
        return errorOf([&] { attempt(copies); });
      });
    };
    const auto attempt = [](const FileCopies& copies) { tryChangingFile(copies, to("new")); };
    EXPECT_EQ(asUs(attempt, true), expected);
    EXPECT_EQ(asUs(attempt, false), expected) << "without unnamed files";
    EXPECT_EQ(got(file), "old");
    EXPECT_EQ(asUs([](FileCopies& copies) { quorvel::changeFile(copies, to("new")); }, true), expected);
    EXPECT_EQ(entries(folder.path()), 1U);
  }
}

}  // namespace
}  // namespace quorvel::changes

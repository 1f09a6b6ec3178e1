#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "tests/quorvel/library/LibraryHouse.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/RowName.h"

namespace quorvel {
namespace {

using kelvane::tests::becomeNobody;
using kelvane::tests::inChild;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

// The two ways in which a text gets to its place: exchanged, and renamed over where the system cannot exchange.
class Writing : public LibraryHouse, public ::testing::WithParamInterface<bool> {
 protected:
  Writing() {
    if (!GetParam()) calls.lack({"exchange"}, EINVAL);
    put("Talk.md", "old");
    history->snapshot("old", root / "Talk.md", "kept");
  }

  struct stat statusOf(const std::filesystem::path& file) const {
    struct stat status {};
    EXPECT_EQ(::lstat((root / file).c_str(), &status), 0);
    return status;
  }
};

INSTANTIATE_TEST_SUITE_P(Ways, Writing, ::testing::Bool(),
                         [](const auto& way) { return way.param ? "exchanged" : "renamedOver"; });

TEST_P(Writing, replacesTheWholeTextAndLeavesNothingElse) {
  using namespace std::string_view_literals;
  for (const std::string_view text : {"new"sv, ""sv, "longer than it was before"sv, "\xFF\0\r\n"sv}) {
    library.write(text, script("Talk.md"));
    EXPECT_EQ(bytesOf("Talk.md"), text);
    EXPECT_THAT(names(), ElementsAre("Talk.md"));
  }
}

TEST_P(Writing, keepsNothingThatTheHistoryHolds) {
  library.write("new", script("Talk.md"));
  EXPECT_EQ(story("Talk.md"), "kept: old\n");
}

TEST_P(Writing, keepsWhatTheHistoryDoesNotHold) {
  put("Talk.md", "from elsewhere");
  library.write("new", script("Talk.md"));
  EXPECT_EQ(story("Talk.md"), "kept: old\nBefore — saved by another program meanwhile: from elsewhere\n");
}

TEST_P(Writing, worksInAFolderBelow) {
  put("Scenes/Deep/End.md", "old");
  library.write("new", script("Scenes/Deep/End.md"));
  EXPECT_EQ(bytesOf("Scenes/Deep/End.md"), "new");
  EXPECT_THAT(names("Scenes/Deep"), ElementsAre("End.md"));
  EXPECT_EQ(story("Scenes/Deep/End.md"), "Before — saved by another program meanwhile: old\n");
}

TEST_P(Writing, worksOnTheLongestFileName) {
  const std::string name = std::string(252, 'x') + ".md";
  put(name, "old");
  library.write("new", script(name));
  EXPECT_EQ(bytesOf(name), "new");
}

TEST_P(Writing, keepsTheModeWithItsSpecialBits) {
  for (const mode_t mode : {0600U, 0644U, 0660U, 0755U, 0640U, 04755U}) {
    ASSERT_EQ(::chmod((root / "Talk.md").c_str(), mode), 0);
    library.write("new", script("Talk.md"));
    EXPECT_EQ(statusOf("Talk.md").st_mode & 07777, mode);
  }
}

TEST_P(Writing, keepsOwnerAndGroup) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can give a file away";
  ASSERT_EQ(::chown((root / "Talk.md").c_str(), 1234, 4321), 0);
  library.write("new", script("Talk.md"));
  EXPECT_EQ(statusOf("Talk.md").st_uid, 1234U);
  EXPECT_EQ(statusOf("Talk.md").st_gid, 4321U);
}

TEST_P(Writing, keepsAttributesAndAccessListsAndTakesNoneFromTheFolder) {
  const std::string file = root / "Talk.md";
  put("Plain.md", "old");
  if (::setxattr(file.c_str(), "user.colour", "blue", 4, 0) != 0) GTEST_SKIP() << "no attributes on this disk";
  // Version 2; read and write for the owner, all for the user 65534, read for the group, mask all, nothing for others.
  const unsigned char list[] = {2, 0,   0,   0,   1,   0,   6,  0, 255, 255, 255, 255, 2,   0,  7,
                                0, 254, 255, 0,   0,   4,   0,  4, 0,   255, 255, 255, 255, 16, 0,
                                7, 0,   255, 255, 255, 255, 32, 0, 0,   0,   255, 255, 255, 255};
  if (::setxattr(file.c_str(), "system.posix_acl_access", list, sizeof list, 0) != 0)
    GTEST_SKIP() << "no access lists on this disk";
  ASSERT_EQ(::setxattr(root.c_str(), "system.posix_acl_default", list, sizeof list, 0), 0);

  library.write("new", script("Talk.md"));
  library.write("new", script("Plain.md"));

  char value[256];
  EXPECT_EQ(::getxattr(file.c_str(), "user.colour", value, sizeof value), 4);
  EXPECT_EQ(std::string(value, 4), "blue");
  ASSERT_EQ(::getxattr(file.c_str(), "system.posix_acl_access", value, sizeof value), ssize_t{sizeof list});
  EXPECT_EQ(std::string(value, sizeof list), std::string(reinterpret_cast<const char*>(list), sizeof list));
  EXPECT_LT(::getxattr((root / "Plain.md").c_str(), "system.posix_acl_access", value, sizeof value), 0);
  EXPECT_EQ(statusOf("Plain.md").st_mode & 07777, 0644U);
}

TEST_P(Writing, leavesTheOldTextToOtherHardLinks) {
  std::filesystem::create_hard_link(root / "Talk.md", root / "Other.md");
  library.write("new", script("Talk.md"));
  EXPECT_EQ(bytesOf("Talk.md"), "new");
  EXPECT_EQ(bytesOf("Other.md"), "old");
}

TEST_P(Writing, leavesALinkInThePlaceOfTheScriptAlone) {
  put("Target.md", "old");
  std::filesystem::remove(root / "Talk.md");
  std::filesystem::create_symlink("Target.md", root / "Talk.md");
  EXPECT_THAT(sentenceOf([&] { library.write("new", script("Talk.md")); }), HasSubstr("has taken the place of it"));
  EXPECT_TRUE(std::filesystem::is_symlink(root / "Talk.md"));
  EXPECT_EQ(bytesOf("Target.md"), "old");
  EXPECT_THAT(names(), ElementsAre("Talk.md", "Target.md"));
}

TEST_P(Writing, readersSeeTheOldTextOrTheNewOne) {
  const std::string one(100'000, '1');
  const std::string two(100'000, '2');
  put("Talk.md", one);
  kelvane::tests::ChildProcess writer([&] {
    // The last of these is the second text, so that the reader meets it however slow it is.
    for (int count = 0; count <= 100; ++count) library.write(count % 2 == 0 ? two : one, script("Talk.md"));
    return std::string("done");
  });
  int seen[2] = {0, 0};
  for (int count = 0; count < 2000 || (seen[1] == 0 && count < 1'000'000); ++count) {
    const std::string text = library.read(script("Talk.md"));
    ASSERT_TRUE(text == one || text == two) << text.size();
    ++seen[text == two];
  }
  EXPECT_EQ(writer.answer(), "done");
  EXPECT_GT(seen[0], 0);
  EXPECT_GT(seen[1], 0);
}

// --- What goes wrong ---

struct Fault {
  const char* description;
  const char* call;
  int time;  // which of the calls fails, 1 for the first
  int error;
  const char* sentence;

  friend void PrintTo(const Fault& row, std::ostream* out) { *out << row.description; }
};

class WritingFault : public LibraryHouse, public ::testing::WithParamInterface<std::tuple<Fault, bool>> {};

std::string nameOfFault(const ::testing::TestParamInfo<std::tuple<Fault, bool>>& row) {
  const auto& [fault, isExchanged] = row.param;
  return kelvane::tests::nameMadeOf(fault.description) + (isExchanged ? "Exchanged" : "RenamedOver");
}

TEST_P(WritingFault, isOneSentenceAndChangesNothing) {
  const Fault& fault = std::get<0>(GetParam());
  const bool exchanges = std::get<1>(GetParam());
  put("Talk.md", "old");
  history->snapshot("old", root / "Talk.md", "kept");
  calls.before = [&, left = fault.time](std::string_view call) mutable {
    if (call == fault.call && --left == 0) return fault.error;
    return call == "exchange" && !exchanges ? EINVAL : 0;
  };
  EXPECT_EQ(sentenceOf([&] { library.write("new", script("Talk.md")); }), fault.sentence) << fault.description;
  EXPECT_EQ(bytesOf("Talk.md"), "old");
  EXPECT_EQ(story("Talk.md"), "kept: old\n");
  EXPECT_THAT(names(), ElementsAre("Talk.md"));
}

const Fault faults[] = {
    {"the disk is full", "write", 1, ENOSPC,
     "\"Talk.md\" could not be written, because the disk is full. Free some space and try again."},
    {"the quota is used up", "write", 1, EDQUOT,
     "\"Talk.md\" could not be written, because the disk quota is used up. Free some space and try again."},
    {"the text is too large", "write", 1, EFBIG,
     "\"Talk.md\" could not be written, because it would be larger than the system allows. Make it smaller, or raise "
     "the "
     "limit (ulimit -f)."},
    {"the disk fails", "write", 1, EIO,
     "\"Talk.md\" could not be written, because the disk reports an error. Check the disk."},
    {"the disk turns out to be full when it is flushed", "flush", 1, ENOSPC,
     "\"Talk.md\" could not be written, because the disk is full. Free some space and try again."},
    {"the disk fails when it is flushed", "flush", 1, EIO,
     "\"Talk.md\" could not be written, because the disk reports an error. Check the disk."},
    {"the temporary file cannot get its second name", "rename", 1, EROFS,
     "\"Talk.md\" could not be written, because the disk is read-only. Make the disk writable and try again."},
    {"something that nobody thought of", "write", 1, EDOM,
     "\"Talk.md\" could not be written, because the system says: Numerical argument out of domain. "
     "Check the disk and try again."},
};

INSTANTIATE_TEST_SUITE_P(Rows, WritingFault, ::testing::Combine(::testing::ValuesIn(faults), ::testing::Bool()),
                         nameOfFault);

const Fault exchangeFaults[] = {
    {"the script is gone meanwhile", "exchange", 1, ENOENT,
     "\"Talk.md\" could not be written, because it is not there any more. List the library again to see what is there "
     "now."},
    {"the folder does not permit it", "exchange", 1, EACCES,
     "\"Talk.md\" could not be written, because the system does not permit it. Check who may read and write there."},
    {"the folder is full", "exchange", 1, ENOSPC,
     "\"Talk.md\" could not be written, because the disk is full. Free some space and try again."},
};

INSTANTIATE_TEST_SUITE_P(Exchange, WritingFault,
                         ::testing::Combine(::testing::ValuesIn(exchangeFaults), ::testing::Values(true)), nameOfFault);

const Fault renameFaults[] = {
    {"the folder is full", "rename", 2, ENOSPC,
     "\"Talk.md\" could not be written, because the disk is full. Free some space and try again."},
    {"the system permits neither", "rename", 2, EPERM,
     "\"Talk.md\" could not be written, because the system does not permit it. Check who may read and write there."},
};

INSTANTIATE_TEST_SUITE_P(RenameOver, WritingFault,
                         ::testing::Combine(::testing::ValuesIn(renameFaults), ::testing::Values(false)), nameOfFault);

TEST_F(WritingFault, shortAndInterruptedWritesAreFinished) {
  class Slow : public SystemCalls {
   public:
    long write(int file, const void* bytes, std::size_t count) const noexcept override {
      if (++made_ % 2 == 1) {
        errno = EINTR;
        return -1;
      }
      return SystemCalls::write(file, bytes, std::min<std::size_t>(count, 3));
    }

   private:
    mutable int made_ = 0;
  };
  const Slow slow;
  put("Talk.md", "old");
  FolderLibrary(root, history, {slow, std::chrono::milliseconds(50)}).write("ten bytes.", script("Talk.md"));
  EXPECT_EQ(bytesOf("Talk.md"), "ten bytes.");
}

TEST_P(Writing, saysWhatIsTrueWhenTheFolderCannotBeFlushed) {
  calls.before = [&, flushes = 0](std::string_view call) mutable {
    if (call == "flush" && ++flushes == 2) return EIO;
    return call == "exchange" && !GetParam() ? EINVAL : 0;
  };
  EXPECT_EQ(sentenceOf([&] { library.write("new", script("Talk.md")); }),
            "The new text of \"Talk.md\" is in its place, but it may not outlast a power failure, because the disk "
            "reports an error. Check the disk, then write the text again.");
  EXPECT_EQ(bytesOf("Talk.md"), "new");
  EXPECT_THAT(names(), ElementsAre("Talk.md"));
  EXPECT_EQ(story("Talk.md"), "kept: old\n");
}

TEST_P(Writing, worksWhereFoldersNeedNoFlushing) {
  calls.before = [&, flushes = 0](std::string_view call) mutable {
    if (call == "flush" && ++flushes == 2) return EINVAL;
    return call == "exchange" && !GetParam() ? EINVAL : 0;
  };
  library.write("new", script("Talk.md"));
  EXPECT_EQ(bytesOf("Talk.md"), "new");
  EXPECT_THAT(names(), ElementsAre("Talk.md"));
}

TEST_P(Writing, worksWhereFilesHaveNoSecondNames) {
  calls.lack({"exchange", "link"}, EPERM);
  put("Talk.md", "from elsewhere");
  library.write("new", script("Talk.md"));
  EXPECT_EQ(bytesOf("Talk.md"), "new");
  EXPECT_THAT(names(), ElementsAre("Talk.md"));
  EXPECT_EQ(story("Talk.md"), "kept: old\nBefore — saved by another program meanwhile: from elsewhere\n");
}

TEST_P(Writing, aFolderThatIsMovedAwayMeanwhileKeepsTheOldText) {
  put("Scenes/End.md", "old");
  const auto outside = folder.path() / "Outside";
  calls.before = [&](std::string_view call) {
    if (call == "exchange" && !std::filesystem::exists(outside)) std::filesystem::rename(root / "Scenes", outside);
    return call == "exchange" && !GetParam() ? EINVAL : 0;
  };
  EXPECT_EQ(sentenceOf([&] { library.write("new", script("Scenes/End.md")); }),
            "\"Scenes/End.md\" could not be written, because it is not there any more. List the library again to see "
            "what is there now.");
  EXPECT_EQ(bytesOf(outside / "End.md"), "old");
  EXPECT_THAT(names(outside), ElementsAre("End.md"));
}

TEST_P(Writing, aScriptThatIsGoneIsNotMadeAgain) {
  std::filesystem::remove(root / "Talk.md");
  EXPECT_EQ(sentenceOf([&] { library.write("new", script("Talk.md")); }),
            "\"Talk.md\" could not be written, because it is not there any more. List the library again to see what is "
            "there now.");
  EXPECT_THAT(names(), ElementsAre());
}

TEST_P(Writing, aScriptThatBecameAFolderStaysOne) {
  std::filesystem::remove(root / "Talk.md");
  put("Talk.md/End.md");
  EXPECT_EQ(sentenceOf([&] { library.write("new", script("Talk.md")); }),
            "\"Talk.md\" could not be written, because it is a folder now. List the library again to see what is there "
            "now.");
  EXPECT_THAT(names(), ElementsAre("Talk.md"));
  EXPECT_THAT(names("Talk.md"), ElementsAre("End.md"));
}

TEST_P(Writing, aPipeInItsPlaceIsLeftAlone) {
  std::filesystem::remove(root / "Talk.md");
  ASSERT_EQ(::mkfifo((root / "Talk.md").c_str(), 0644), 0);
  EXPECT_EQ(sentenceOf([&] { library.write("new", script("Talk.md")); }),
            "\"Talk.md\" could not be written, because what is there now is not a file. Move it away and try again.");
  EXPECT_TRUE(std::filesystem::is_fifo(root / "Talk.md"));
}

// What follows is done as a user without root's rights.
class WritingAsNobody : public LibraryHouse {
 protected:
  WritingAsNobody() {
    put("Scenes/Talk.md", "old");
    put(".kelvane/lock", "");
    giveToNobody();
  }

  std::string written() {
    return inChild([&] {
      becomeNobody();
      history->snapshot("old", root / "Scenes/Talk.md", "kept");
      return sentenceOf([&] { library.write("new", script("Scenes/Talk.md")); });
    });
  }
};

const char* const forbidden =
    "\"Scenes/Talk.md\" could not be written, because the system does not permit it. Check who may read and write "
    "there.";

TEST_F(WritingAsNobody, worksOnOnesOwnFiles) {
  EXPECT_EQ(written(), "(no failure)");
  EXPECT_EQ(bytesOf("Scenes/Talk.md"), "new");
}

TEST_F(WritingAsNobody, aReadOnlyFileIsRefused) {
  std::filesystem::permissions(root / "Scenes/Talk.md", std::filesystem::perms(0444));
  EXPECT_EQ(written(), forbidden);
  EXPECT_EQ(bytesOf("Scenes/Talk.md"), "old");
}

TEST_F(WritingAsNobody, aReadOnlyFolderIsRefused) {
  std::filesystem::permissions(root / "Scenes", std::filesystem::perms(0555));
  EXPECT_EQ(written(), forbidden);
  EXPECT_EQ(bytesOf("Scenes/Talk.md"), "old");
}

TEST_F(WritingAsNobody, anUnreadableFileIsRefused) {
  std::filesystem::permissions(root / "Scenes/Talk.md", std::filesystem::perms(0222));
  EXPECT_EQ(written(), forbidden);
  std::filesystem::permissions(root / "Scenes/Talk.md", std::filesystem::perms(0644));
  EXPECT_EQ(bytesOf("Scenes/Talk.md"), "old");
}

TEST_F(WritingAsNobody, aFileWhoseOwnerCannotBeKeptIsRefused) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can give a file away";
  ASSERT_EQ(::chown((root / "Scenes/Talk.md").c_str(), 1234, 65534), 0);
  std::filesystem::permissions(root / "Scenes/Talk.md", std::filesystem::perms(0666));
  EXPECT_EQ(written(),
            "\"Scenes/Talk.md\" could not be written without changing who may read and write it, because the system "
            "does not permit it. Check who may read and write there.");
  EXPECT_EQ(bytesOf("Scenes/Talk.md"), "old");
  EXPECT_THAT(names("Scenes"), ElementsAre("Talk.md"));
}

// In a child: a disk of that size at a folder, for the child alone. False where the system does not let us.
bool mountSmallDisk(const std::filesystem::path& at, const char* options) {
  const int spaces = ::geteuid() == 0 ? CLONE_NEWNS : CLONE_NEWNS | CLONE_NEWUSER;
  return ::unshare(spaces) == 0 && ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
         ::mount("tmpfs", at.c_str(), "tmpfs", 0, options) == 0;
}

TEST_F(WritingFault, aDiskThatIsReallyFullLeavesEverythingAsItWas) {
  const std::string result = inChild([&]() -> std::string {
    if (!mountSmallDisk(root, "size=400k")) return "no disk";
    put("Talk.md", "old");
    history->snapshot("old", root / "Talk.md", "kept");
    const std::string sentence = sentenceOf([&] { library.write(std::string(1'000'000, 'x'), script("Talk.md")); });
    std::string after = sentence + '\n' + bytesOf("Talk.md") + ' ' + std::to_string(names().size()) + '\n';
    library.write("small enough", script("Talk.md"));
    return after + bytesOf("Talk.md") + '\n' + story("Talk.md");
  });
  if (result == "no disk") GTEST_SKIP() << "the system lets us mount no disk of our own";
  EXPECT_EQ(result,
            "\"Talk.md\" could not be written, because the disk is full. Free some space and try again.\n"
            "old 1\n"
            "small enough\n"
            "kept: old\n");
}

TEST_F(WritingFault, aDiskThatIsReallyReadOnlyIsRefused) {
  const std::string result = inChild([&]() -> std::string {
    if (!mountSmallDisk(root, "size=1m")) return "no disk";
    put("Talk.md", "old");
    library.create("Made", std::nullopt);
    if (::mount(nullptr, root.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr) != 0) return "no disk";
    return sentenceOf([&] { library.write("new", script("Talk.md")); }) + '\n' +
           sentenceOf([&] { library.create("New", std::nullopt); }) + '\n' +
           sentenceOf([&] { library.createFolder("New", std::nullopt); }) + '\n' + sentenceOf([&] { library.lock(); }) +
           '\n' + bytesOf("Talk.md");
  });
  if (result == "no disk") GTEST_SKIP() << "the system lets us mount no disk of our own";
  const std::string why = " because the disk is read-only. Make the disk writable and try again.\n";
  EXPECT_EQ(result, "\"Talk.md\" could not be written," + why + "The script \"New\" could not be made," + why +
                        "The folder \"New\" could not be made," + why + "The library could not be locked for writing," +
                        why + "old");
}

TEST_F(WritingFault, aLimitOnTheSizeOfFilesIsRefused) {
  put("Talk.md", "old");
  history->snapshot("old", root / "Talk.md", "kept");
  EXPECT_EQ(inChild([&] {
              ::signal(SIGXFSZ, SIG_IGN);
              const rlimit limit{100, 100};
              if (::setrlimit(RLIMIT_FSIZE, &limit) != 0) return std::string("no limit was set");
              return sentenceOf([&] { library.write(std::string(1000, 'x'), script("Talk.md")); });
            }),
            "\"Talk.md\" could not be written, because it would be larger than the system allows. Make it smaller, or "
            "raise the "
            "limit (ulimit -f).");
  EXPECT_EQ(bytesOf("Talk.md"), "old");
  EXPECT_THAT(names(), ElementsAre("Talk.md"));
}

}  // namespace
}  // namespace quorvel

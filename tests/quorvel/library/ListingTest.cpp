#include "quorvel/library/Listing.h"

#include <dirent.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <tuple>
#include <utility>

#include "platform/Unicode.h"
#include "tests/quorvel/SystemAbilities.h"
#include "tests/quorvel/library/LibraryHouse.h"
#include "tests/support/ChildProcess.h"

namespace quorvel {
namespace {

using kelvane::tests::becomeNobody;
using kelvane::tests::inChild;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::StartsWith;

class Listing : public LibraryHouse {};

TEST_F(Listing, isATreeOfFoldersAndScriptsInTheOrderThatAPersonExpects) {
  for (const char* file : {"Take 10.md", "Take 2.md", "écran.md", "Zoo.md", "Scenes 10/a.md", "Scenes 2/b.md",
                           "Scenes 2/Deep/c.md", "Scenes 2/Deep/Deeper/d.md"}) {
    put(file);
  }
  EXPECT_EQ(tree(),
            "[Scenes 2]\n"
            "  [Deep]\n"
            "    [Deeper]\n"
            "      d\n"
            "    c\n"
            "  b\n"
            "[Scenes 10]\n"
            "  a\n"
            "écran\n"
            "Take 2\n"
            "Take 10\n"
            "Zoo\n");
}

TEST_F(Listing, letterCaseAndAccentsBreakTies) {
  for (const char* name : {"coté", "COTE", "côte", "cote", "COTÉ", "Côte", "Take 07", "take 7", "Take 7"}) {
    put(std::string(name) + ".md");
    put(std::string(name) + "/x.md");
  }
  std::string folders, scripts;
  for (const std::string name : {"COTE", "cote", "COTÉ", "coté", "Côte", "côte", "Take 07", "Take 7", "take 7"}) {
    folders += '[' + name + "]\n  x\n";
    scripts += name + '\n';
  }
  EXPECT_EQ(tree(), folders + scripts);
}

TEST_F(Listing, holdsScriptsAndFoldersAndNothingElse) {
  put("Talk.md");
  put("v1.2.md");
  put("a \"quoted\"\nname.md");
  for (const char* file : {"notes.txt", "Loud.MD", "README", "Talkmd", "Talk.md~", ".md", ".hidden.md", ".folder/x.md",
                           ".kelvane/lock", ".kelvane-0123456789abcdef-0123456789abcdef-1f"}) {
    put(file);
  }
  std::filesystem::create_directory(root / "folder.md");
  std::filesystem::create_symlink("Talk.md", root / "link.md");
  std::filesystem::create_symlink("folder.md", root / "link");
  std::filesystem::create_symlink("/", root / "up");
  ASSERT_EQ(::mkfifo((root / "pipe.md").c_str(), 0600), 0);
  EXPECT_EQ(tree(), "[folder.md]\na \"quoted\"\nname\nTalk\nv1.2\n");
}

TEST_F(Listing, aSocketIsNotListed) {
  const Descriptor socket(::socket(AF_UNIX, SOCK_STREAM, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  const std::string path = root / "socket.md";
  ASSERT_LT(path.size(), sizeof address.sun_path);
  path.copy(address.sun_path, path.size());
  ASSERT_EQ(::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  EXPECT_EQ(tree(), "");
}

TEST_F(Listing, namesThatAreNotUTF8AreLeftOutAndCounted) {
  put("Talk.md");
  put("bad\xFF.md");
  put("bad\xC3/inside.md");
  put("Scenes/\xE2\x82.md");
  put("not a script \xFF.txt");
  put(".hidden\xFF.md");
  EXPECT_EQ(tree(), "[Scenes]\nTalk\n");
  EXPECT_EQ(library.countOfUnlistableNames(), 3U);
}

TEST_F(Listing, countsNoNamesWhenAllCanBeListed) {
  put("Scenes/Talk.md");
  EXPECT_EQ(library.countOfUnlistableNames(), 0U);
}

TEST_F(Listing, theContentsOfAFolderHaveIdentifiersFromTheRoot) {
  put("Scenes/Deep/End.md");
  const auto items = library.contents(root / "Scenes");
  ASSERT_EQ(items.size(), 1U);
  EXPECT_EQ(items[0].identifier, "Scenes/Deep");
  EXPECT_EQ(items[0].children->at(0).identifier, "Scenes/Deep/End.md");
}

TEST_F(Listing, aFolderThatCannotBeReadIsListedWithoutChildren) {
  put("Closed/Talk.md");
  put("Open/Talk.md");
  std::filesystem::permissions(root / "Closed", std::filesystem::perms::none);
  std::filesystem::permissions(folder.path(), std::filesystem::perms(0755));
  const std::string listed = inChild([&] {
    becomeNobody();
    return tree();
  });
  std::filesystem::permissions(root / "Closed", std::filesystem::perms::owner_all);
  EXPECT_EQ(listed, "[Closed]\n[Open]\n  Talk\n");
}

TEST_F(Listing, aFolderThatMayNotBeReadOrWentMeanwhileIsListedWithoutChildren) {
  put("Scenes/Talk.md");
  put("Zoo.md");
  for (const int error : {EACCES, ENOENT, ENOTDIR, ELOOP, ESTALE}) {
    SCOPED_TRACE(::strerrorname_np(error));
    calls.before = [error, left = 2](std::string_view call) mutable {
      return call == "openBeneath" && --left == 0 ? error : 0;
    };
    EXPECT_EQ(tree(), "[Scenes]\nZoo\n");
    EXPECT_EQ(library.countOfUnlistableNames(), 0U);
  }
}

TEST_F(Listing, aFailureThatIsNotTheFoldersOwnIsOneOfTheWholeAndNoShorterListing) {
  const struct {
    int error;
    const char* why;
  } rows[] = {
      {EMFILE, "too many files are open. Close some programs and try again."},
      {ENFILE, "too many files are open. Close some programs and try again."},
      {ENOMEM, "the system is out of memory. Close some programs and try again."},
      {EIO, "the disk reports an error. Check the disk."},
      {EINTR, "the system says: Interrupted system call. Check the disk and try again."},
      {ENOTCONN, "the system says: Transport endpoint is not connected. Check the disk and try again."},
  };
  put("Scenes/Deep/Talk.md");
  put("Zoo.md");
  const std::string whole = tree();
  for (const bool hasBlocks : {true, false}) {
    for (const auto& [error, why] : rows) {
      SCOPED_TRACE(std::string(::strerrorname_np(error)) + (hasBlocks ? "" : " without blocks of entries"));
      int failures = 0;
      for (bool isReached = true; isReached; ++failures) {
        isReached = false;
        calls.before = [&, error = error, left = failures](std::string_view call) mutable {
          if (call == "readEntries" && !hasBlocks) return ENOSYS;
          if (!readsFolders(call) || left-- != 0) return 0;
          isReached = true;
          return error;
        };
        const std::string sentence = sentenceOf([&] { EXPECT_EQ(tree(), whole) << "at call " << failures; });
        EXPECT_EQ(sentence.ends_with(std::string("could not be read, because ") + why), isReached) << sentence;
      }
      EXPECT_GT(failures, 6) << "three folders are opened and read";
    }
  }
}

// Where names may be read and nothing behind them may be looked at, as this is, asking the disk for more would fail.
TEST_F(Listing, takesNoMoreThanTheNamesAndTypesOfEntries) {
  put("Names/Deep/Talk.md");
  put("Names/Talk.md");
  put("Names/notes.txt");
  std::filesystem::permissions(root / "Names", std::filesystem::perms(0444));
  std::filesystem::permissions(folder.path(), std::filesystem::perms(0755));
  const std::string listed = inChild([&] {
    becomeNobody();
    return tree();
  });
  std::filesystem::permissions(root / "Names", std::filesystem::perms::owner_all);
  EXPECT_EQ(listed, "[Names]\n  [Deep]\n  Talk\n");
}

// A file system that does not keep the types of entries beside their names.
TEST_F(Listing, theTypesOfEntriesAreAskedForWhereTheDiskDoesNotTellThem) {
  class Typeless : public SystemCalls {
   public:
    long readEntries(int, void*, std::size_t) const noexcept override { return errno = ENOSYS, -1; }
    const dirent* nextEntry(DIR* folder) const noexcept override {
      const dirent* entry = SystemCalls::nextEntry(folder);
      if (entry != nullptr) const_cast<dirent*>(entry)->d_type = DT_UNKNOWN;
      return entry;
    }
  };
  put("Scenes/Deep/Talk.md");
  put("Closed/Talk.md");
  put("Zoo.md");
  put("notes.txt");
  std::filesystem::create_symlink("Zoo.md", root / "link.md");
  std::filesystem::create_symlink("Scenes", root / "link");
  ASSERT_EQ(::mkfifo((root / "pipe.md").c_str(), 0600), 0);
  std::filesystem::permissions(root / "Closed", std::filesystem::perms(0444));  // its names may be read, and no more
  std::filesystem::permissions(folder.path(), std::filesystem::perms(0755));
  const Typeless typeless;
  const FolderLibrary onIt(root, history, {typeless});
  const std::string listed = inChild([&] {
    becomeNobody();
    return tree(onIt.contents(root));
  });
  std::filesystem::permissions(root / "Closed", std::filesystem::perms::owner_all);
  EXPECT_EQ(listed, "[Closed]\n[Scenes]\n  [Deep]\n    Talk\nZoo\n");
}

TEST_F(Listing, anEntryWhoseTypeCannotBeToldIsAFailure) {
  // Says once that there is an entry, of a name that the system cannot ask about.
  class Unaskable : public SystemCalls {
   public:
    long readEntries(int, void*, std::size_t) const noexcept override { return errno = ENOSYS, -1; }
    const dirent* nextEntry(DIR* folder) const noexcept override {
      if (std::exchange(isTold_, true)) return SystemCalls::nextEntry(folder);
      alignas(dirent) static char made[sizeof(dirent) + 300];
      std::memset(made + offsetof(dirent, d_name), 'n', 300);
      auto* const entry = reinterpret_cast<dirent*>(made);
      entry->d_type = DT_UNKNOWN;
      return entry;
    }

   private:
    mutable bool isTold_ = false;
  };
  const Unaskable unaskable;
  const FolderLibrary onIt(root, history, {unaskable});
  EXPECT_EQ(sentenceOf([&] { onIt.contents(root); }),
            "The folder \"" + root.native() +
                "\" could not be read, because its path is too long for the system. Use shorter names or fewer nested "
                "folders.");
}

TEST_F(Listing, aLibraryThatCannotBeReadIsAFailure) {
  put("Talk.md");
  std::filesystem::permissions(folder.path(), std::filesystem::perms(0755));
  std::filesystem::permissions(root, std::filesystem::perms::none);
  const std::string sentence = inChild([&] {
    becomeNobody();
    return sentenceOf([&] { library.requireReadable(); }) + "\n" + sentenceOf([&] { tree(); });
  });
  std::filesystem::permissions(root, std::filesystem::perms::owner_all);
  const std::string why =
      "could not be read, because the system does not permit it. Check who may read and write there.";
  const std::string notOpened =
      "could not be opened, because the system does not permit it. Check who may read and write there.";
  const std::string libraryFolder = "The library folder \"" + root.native() + "\" ";
  EXPECT_EQ(sentence,
            libraryFolder + why + "\n" +
                (systemPassesUnread() ? "The folder \"" + root.native() + "\" " + why : libraryFolder + notOpened));
}

TEST_F(Listing, aLibraryThatVanishesIsAFailureUntilItIsBack) {
  put("Talk.md");
  EXPECT_NO_THROW(library.requireReadable());
  EXPECT_EQ(tree(), "Talk\n");
  const auto away = folder.path() / "Away";
  std::filesystem::rename(root, away);
  const std::string sentence =
      "The library folder \"" + root.native() +
      "\" could not be opened, because it is not there any more. List the library again to see "
      "what is there now.";
  EXPECT_EQ(sentenceOf([&] { tree(); }), sentence);
  EXPECT_EQ(sentenceOf([&] { library.read(script("Talk.md")); }), sentence);
  EXPECT_EQ(sentenceOf([&] { library.write("text", script("Talk.md")); }), sentence);
  EXPECT_EQ(sentenceOf([&] { library.create("New", std::nullopt); }), sentence);
  EXPECT_EQ(sentenceOf([&] { library.lock(); }), sentence);
  EXPECT_THAT(sentenceOf([&] { library.requireReadable(); }), HasSubstr("could not be read, because it is not there"));
  EXPECT_THAT(sentenceOf([&] { library.countOfUnlistableNames(); }), HasSubstr("because it is not there"));
  EXPECT_FALSE(std::filesystem::exists(root));
  std::filesystem::rename(away, root);
  EXPECT_EQ(tree(), "Talk\n");
}

TEST_F(Listing, aFileInThePlaceOfTheLibraryIsAFailure) {
  std::filesystem::remove(root);
  std::ofstream(root) << "a file";
  EXPECT_THAT(sentenceOf([&] { library.requireReadable(); }), StartsWith("The library folder \"" + root.native()));
  EXPECT_THAT(sentenceOf([&] { tree(); }), HasSubstr("a link or a file has taken the place of it"));
}

TEST_F(Listing, aLibraryReachedThroughALinkIsListedAndReadLikeAnyOther) {
  put("Scenes/Talk.md", "words");
  const auto link = folder.path() / "link";
  std::filesystem::create_directory_symlink(root, link);
  FolderLibrary linked(link, std::make_shared<History>(link));
  EXPECT_EQ(linked.root(), link);
  EXPECT_EQ(tree(linked.contents(link)), "[Scenes]\n  Talk\n");
  EXPECT_EQ(linked.read(script("Scenes/Talk.md")), "words");
  EXPECT_EQ(linked.identifier(link / "Scenes/Talk.md"), "Scenes/Talk.md");
  EXPECT_EQ(linked.identifier(root / "Scenes/Talk.md"), "Scenes/Talk.md");
  EXPECT_EQ(linked.identifier(root), "");
  EXPECT_EQ(sentenceOf([&] { linked.identifier(folder.path() / "Talk.md"); }),
            "\"" + (folder.path() / "Talk.md").native() + "\" is not inside the library.");
}

TEST_F(Listing, theRootIsMadeAbsoluteAtOnce) {
  put("Talk.md");
  const auto before = std::filesystem::current_path();
  std::filesystem::current_path(folder.path());
  FolderLibrary relative("./Library/../Library/", history);
  std::filesystem::current_path("/");
  EXPECT_EQ(relative.root(), root);
  EXPECT_EQ(tree(relative.contents(root)), "Talk\n");
  std::filesystem::current_path(before);
}

// What is inside begins with the root's path and a slash, and no path begins with two.
TEST_F(Listing, nothingIsInsideALibraryThatIsTheWholeDisk) {
  const FolderLibrary disk("/", std::make_shared<History>("/"));
  EXPECT_EQ(disk.identifier("/"), "");
  EXPECT_EQ(sentenceOf([&] { disk.identifier("/etc/x.md"); }), "\"/etc/x.md\" is not inside the library.");
}

// What has so long a path that nobody could open it by that path.
TEST_F(Listing, whatIsNestedTooDeepForAPathIsLeftOut) {
  Descriptor at(::open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  const std::string name(9, 'd');
  for (std::size_t depth = 0; depth < PATH_MAX / 10 + 50; ++depth) {
    ASSERT_EQ(::mkdirat(at.get(), name.c_str(), 0777), 0);
    at = Descriptor(::openat(at.get(), name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  }
  std::size_t depth = 0;
  const auto items = library.contents(root);
  for (const auto* level = &items; !level->empty(); level = &*level->front().children) {
    ++depth;
    const std::string path = root.native() + '/' + level->front().identifier;
    ASSERT_LT(path.size(), std::size_t{PATH_MAX});
    ASSERT_EQ(level->front().children->size(), path.size() + 10 < PATH_MAX ? 1U : 0U) << path.size();
  }
  EXPECT_EQ(depth, (PATH_MAX - 1 - root.native().size()) / 10);
}

// A sanitizer makes a pipe now and then, and reports what is not there if it cannot.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr rlim_t forASanitizer = 2;
#elif defined(__has_feature)
constexpr rlim_t forASanitizer = __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) ? 2 : 0;
#else
constexpr rlim_t forASanitizer = 0;
#endif

TEST_F(Listing, needsNoMoreThanAFewOpenFiles) {
  for (int folderNumber = 0; folderNumber < 60; ++folderNumber) put("a/" + std::to_string(folderNumber) + "/b/c.md");
  EXPECT_EQ(inChild([&] {
              rlimit few{8 + forASanitizer, 8 + forASanitizer};
              if (::setrlimit(RLIMIT_NOFILE, &few) != 0) return std::string("no limit was set");
              const auto items = library.contents(root);
              return std::to_string(items.at(0).children->size()) + " and " +
                     std::to_string(items.at(0).children->at(59).children->at(0).children->size());
            }),
            "60 and 1");
}

TEST_F(Listing, aFolderWithoutTheRightToListItCanStillBePassedThrough) {
  if (!systemPassesUnread()) GTEST_SKIP() << noUnreadPassing;
  put("Closed/Talk.md", "words");
  std::filesystem::permissions(folder.path(), std::filesystem::perms(0755));
  std::filesystem::permissions(root / "Closed", std::filesystem::perms(0711));
  std::filesystem::permissions(root, std::filesystem::perms(0711));
  EXPECT_EQ(inChild([&] {
              becomeNobody();
              return library.read(script("Closed/Talk.md"));
            }),
            "words");
}

}  // namespace
}  // namespace quorvel

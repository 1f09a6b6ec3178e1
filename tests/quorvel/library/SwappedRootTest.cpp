// Another program moves the whole library folder away, and makes a new one with its name, at any moment of a call.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "quorvel/files/OpenedRoot.h"
#include "tests/quorvel/SystemAbilities.h"
#include "tests/quorvel/history/HistoryCalls.h"
#include "tests/quorvel/library/OtherPrograms.h"
#include "tests/support/ChildProcess.h"

namespace quorvel {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

constexpr const char* old = "kept: old\n";

/// How many calls SQLite makes at most to close the database, behind the last look at where it is.
constexpr int closing = 3;

/// A call, made of the operations that tools and commands make of it, and what is there when it is acknowledged.
struct Call {
  const char* what;
  std::function<void()> make;
  std::function<bool()> isDone;
};

class SwappedRoot : public OtherPrograms {
 protected:
  SwappedRoot() { std::filesystem::copy(root, fresh, std::filesystem::copy_options::recursive); }

  void startAfresh() const {
    std::filesystem::remove_all(root);
    std::filesystem::remove_all(away);
    std::filesystem::copy(fresh, root, std::filesystem::copy_options::recursive);
  }

  void swap() const {
    std::filesystem::rename(root, away);
    std::filesystem::create_directory(root);
    put("Talk.md", "of the new library");
  }

  void swapBack() const {
    std::filesystem::remove_all(root);
    std::filesystem::rename(away, root);
  }

  void update() {
    const auto lock = library.lock();
    history->snapshot(library.readToReplace(script("Talk.md")), root / "Talk.md", "Before — note");
    library.write("new", script("Talk.md"));
  }

  void saveVersion() {
    const auto lock = library.lock();
    history->snapshot(library.readToReplace(script("Talk.md")), root / "Talk.md", "note");
  }

  void restore() {
    const auto lock = library.lock();
    library.recreate("Scenes/Gone.md", "again");
  }

  std::vector<Call> everyCall() {
    return {
        {"update", [&] { update(); },
         [&] { return bytesOf("Talk.md") == "new" && story("Talk.md") == std::string(old) + "Before — note: old\n"; }},
        {"save a version", [&] { saveVersion(); },
         [&] { return bytesOf("Talk.md") == "old" && story("Talk.md") == std::string(old) + "note: old\n"; }},
        {"create",
         [&] {
           const auto lock = library.lock();
           library.write("first", library.create("Another", std::nullopt));
         },
         [&] { return bytesOf("Another.md") == "first" && bytesOf("Talk.md") == "old"; }},
        {"create a folder",
         [&] {
           const auto lock = library.lock();
           library.createFolder("Scenes", std::nullopt);
         },
         [&] { return std::filesystem::is_directory(root / "Scenes") && bytesOf("Talk.md") == "old"; }},
        {"rename",
         [&] {
           const auto lock = library.lock();
           library.rename(script("Talk.md"), "Speech");
         },
         [&] { return bytesOf("Speech.md") == "old" && story("Speech.md") == old && !isThere("Talk.md"); }},
        {"restore what is gone", [&] { restore(); },
         [&] { return bytesOf("Scenes/Gone.md") == "again" && bytesOf("Talk.md") == "old"; }},
        {"write without the lock", [&] { writeNew(); }, [&] { return bytesOf("Talk.md") == "new"; }},
    };
  }

  bool isThere(const char* file) const { return std::filesystem::exists(root / file); }

  /// Whether the text that the script had, and the one that it has, can be had in the library.
  bool hasLostNothing() const {
    const char* talk = isThere("Speech.md") ? "Speech.md" : "Talk.md";
    const std::string text = bytesOf(talk);
    return (text == "old" || text == "new") && story(talk).starts_with(old);
  }

  const std::filesystem::path away = folder.path() / "Away";
  const std::filesystem::path fresh = folder.path() / "Fresh";
};

TEST_F(SwappedRoot, atAnyMomentACallIsDoneInOneLibraryOrFailsAndTheNewOneIsLeftAlone) {
  for (const auto& [what, make, isDone] : everyCall()) {
    int swaps = 0;
    int done = 0;
    int refused = 0;
    for (int time = 1;; ++time) {
      SCOPED_TRACE(std::string(what) + ", call " + std::to_string(time));
      startAfresh();
      int made = 0;
      std::string sentence;
      {
        const auto count = [&](std::string_view) {
          if (++made == time) swap();
          return 0;
        };
        calls.before = count;
        historyCalls.before = count;
        sentence = sentenceOf(make);
      }
      calls.before = historyCalls.before = [](std::string_view) { return 0; };
      if (made < time) break;
      ++swaps;
      if (sentence == "(no failure)") {
        ++done;  // the swap came behind the last look
        EXPECT_LT(made - time, closing);
        swapBack();
        EXPECT_TRUE(isDone());
        continue;
      }
      ++refused;
      EXPECT_EQ(bytesOf("Talk.md"), "of the new library") << sentence;
      EXPECT_EQ(story("Talk.md"), "") << sentence;
      EXPECT_EQ(std::distance(std::filesystem::directory_iterator(root), {}), 1) << sentence;
      EXPECT_THAT(sentence, HasSubstr("moved away or replaced"));
      const bool saysThatItIsDone = sentence.find(" was written, but ") != std::string::npos ||
                                    sentence.find(" was made, but ") != std::string::npos;
      swapBack();
      EXPECT_TRUE(hasLostNothing()) << sentence;
      // The first of two operations may be what is done.
      const bool isOneOperation = std::string(what) != "create" && std::string(what) != "restore what is gone";
      EXPECT_TRUE(!saysThatItIsDone || !isOneOperation || isDone()) << sentence;
      EXPECT_THAT(history->problems(), ::testing::IsEmpty()) << sentence;
    }
    std::cout << what << ": " << swaps << " swaps, " << done << " done, " << refused << " refused\n";
    EXPECT_GT(refused, 1) << what;
  }
}

TEST_F(SwappedRoot, aCallThatSeesItsFolderComeBackIsDoneInIt) {
  int done = 0;
  int refused = 0;
  for (int time = 1;; ++time) {
    SCOPED_TRACE("call " + std::to_string(time));
    startAfresh();
    int made = 0;
    std::string sentence;
    {
      const auto count = [&](std::string_view) {
        ++made;
        if (made == time) swap();
        if (made == time + 3) swapBack();
        return 0;
      };
      calls.before = count;
      historyCalls.before = count;
      sentence = sentenceOf([&] { update(); });
    }
    calls.before = historyCalls.before = [](std::string_view) { return 0; };
    if (made < time) break;
    if (made < time + 3) swapBack();
    (sentence == "(no failure)" ? done : refused) += 1;
    EXPECT_TRUE(hasLostNothing()) << sentence;
    if (sentence == "(no failure)") {
      EXPECT_EQ(bytesOf("Talk.md"), "new");
      EXPECT_EQ(story("Talk.md"), std::string(old) + "Before — note: old\n");
    }
  }
  EXPECT_GT(done, 3);
  EXPECT_GT(refused, 3);
}

TEST_F(SwappedRoot, isReportedWithWhereTheFolderIsNow) {
  calls.interrupt("exchange", [&] { swap(); });
  EXPECT_EQ(sentenceOf([&] { writeNew(); }),
            "\"Talk.md\" could not be written, because the library folder " + inQuotes(root.native()) +
                " was moved away or replaced by another meanwhile and is now " + inQuotes(away.native()) +
                ". Look which folder is the right one, put it in its place and try again.");
  swapBack();
  EXPECT_EQ(bytesOf("Talk.md"), "old");
  EXPECT_EQ(leftovers(), 0U);
}

TEST_F(SwappedRoot, isReportedIfTheFolderWasDeleted) {
  calls.interrupt("exchange", [&] {
    swap();
    std::filesystem::remove_all(away);
  });
  EXPECT_THAT(sentenceOf([&] { writeNew(); }), StartsWith("\"Talk.md\" could not be written, because "));
  EXPECT_EQ(bytesOf("Talk.md"), "of the new library");
}

TEST_F(SwappedRoot, afterTheLastStepThatCanBeUndoneIsReportedWithWhatIsWhere) {
  calls.interrupt("unlink", [&] { swap(); });
  EXPECT_EQ(sentenceOf([&] { writeNew(); }),
            "The new text of \"Talk.md\" was written, but in a folder that is not the library any more, because the "
            "library folder " +
                inQuotes(root.native()) + " was moved away or replaced by another meanwhile and is now " +
                inQuotes(away.native()) + ". Look which folder is the right one, put it in its place and try again.");
  swapBack();
  EXPECT_EQ(bytesOf("Talk.md"), "new");
}

TEST_F(SwappedRoot, givesNoLockOnAFolderThatIsNotTheLibraryAnyMore) {
  const auto held = OpenedRoot::find(root);
  swap();
  EXPECT_EQ(sentenceOf([&] { library.lock(); }),
            "The library could not be locked for writing, because its folder, or \".kelvane\" in it, was moved away or "
            "replaced by another again and again. Nothing was changed; stop what moves it and try again.");
}

// Two libraries that change places every few milliseconds: an update's version and text are in one of them together.
TEST_F(SwappedRoot, byAnotherProcessAllTheTimeNoAcknowledgedWordIsLost) {
  const auto otherRoot = folder.path() / "Other";
  std::filesystem::copy(root, otherRoot, std::filesystem::copy_options::recursive);
  int ends[2];
  ASSERT_EQ(::pipe(ends), 0);
  kelvane::tests::ChildProcess swapper([&] {
    ::close(ends[1]);
    const Descriptor at(::open(folder.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    ::fcntl(ends[0], F_SETFL, O_NONBLOCK);
    char byte;
    int made = 0;
    while (::read(ends[0], &byte, 1) < 0) {
      swapInAnyWay(at.get(), "Library", "Other");
      std::this_thread::sleep_for(std::chrono::milliseconds(++made % 40));
    }
    return std::to_string(made);
  });
  ::close(ends[0]);
  std::vector<std::string> acknowledged;
  int refused = 0;
  const auto began = std::chrono::steady_clock::now();
  const auto lasted = [&] { return std::chrono::steady_clock::now() - began; };
  FolderLibrary patient(root, history);
  for (int count = 0; lasted() < std::chrono::seconds(1) ||
                      (lasted() < std::chrono::seconds(60) && (acknowledged.empty() || refused == 0));
       ++count) {
    const std::string text = "text " + std::to_string(count);
    try {
      const auto lock = patient.lock();
      history->snapshot(patient.readToReplace(script("Talk.md")), root / "Talk.md", text);
      patient.write(text, script("Talk.md"));
      acknowledged.push_back(text);
    } catch (const std::exception&) {
      ++refused;
    }
  }
  ::close(ends[1]);
  const std::string made = swapper.answer();
  std::cout << acknowledged.size() << " acknowledged, " << refused << " refused, " << made << " swaps\n";
  EXPECT_GT(acknowledged.size(), 0U);
  EXPECT_GT(refused, 0);
  const History other(otherRoot);
  const auto isWholeIn = [](const std::string& text, const History& kept, const std::filesystem::path& within) {
    std::ifstream stream(within / "Talk.md");
    const std::string present(std::istreambuf_iterator<char>(stream), {});
    const auto entries = kept.entries("Talk.md");
    const bool isLabelled = std::any_of(entries.begin(), entries.end(), [&](const auto& e) { return e.label == text; });
    return isLabelled && (present == text || kept.hasVersionWith(text, "Talk.md"));
  };
  for (const std::string& text : acknowledged)
    EXPECT_TRUE(isWholeIn(text, *history, root) || isWholeIn(text, other, otherRoot)) << text;
}

}  // namespace
}  // namespace quorvel

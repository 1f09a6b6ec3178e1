// Scripts that are larger than a script may be, and ones that grow while they are read.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include "protocol/JSON.h"
#include "quorvel/files/WholeFile.h"
#include "quorvel/settings/FileChange.h"
#include "quorvel/settings/FileCopies.h"
#include "quorvel/settings/FileReading.h"
#include "scripttools/ScriptTools.h"
#include "tests/quorvel/library/LibraryHouse.h"

namespace quorvel {
namespace {

using kelvane::JSON;
using ::testing::ElementsAre;

const std::string tooLargeFor =
    ", because it is larger than 256 MiB, the largest size of a script. Split it into "
    "several scripts.";

class LargestText : public LibraryHouse {
 protected:
  LargestText() : LibraryHouse(kelvane::tests::folderInMemory()) {
    put("Talk.md", "old");
    history->snapshot("old", root / "Talk.md", "kept");
  }

  /// Gives a file that size without writing to it.
  void stretch(const std::filesystem::path& file, std::uintmax_t bytes) const {
    std::ofstream(root / file, std::ios::app).close();
    std::filesystem::resize_file(root / file, bytes);
  }

  std::string failureOf(const std::string& name, JSON::Object arguments) {
    for (const kelvane::Tool& tool : tools_) {
      if (tool.name() == name) return sentenceOf([&] { tool.run(arguments); });
    }
    return "no such tool";
  }

  const std::vector<kelvane::Tool> tools_ =
      kelvane::ScriptTools(std::make_shared<FolderLibrary>(root, history, FolderLibrary::Options{calls}), history)
          .tools(true);
};

constexpr std::uintmax_t fiveGiB = std::uintmax_t{5} << 30;

TEST_F(LargestText, isSaidAtOnceByEveryToolThatReads) {
  stretch("Talk.md", fiveGiB);
  int reads = 0;
  calls.before = [&](std::string_view call) {
    reads += call == "read";
    return 0;
  };
  const struct {
    const char* tool;
    JSON::Object arguments;
  } rows[] = {
      {"read_script", {}},
      {"list_chapters", {}},
      {"read_chapter", {{"chapter", "1"}}},
      {"save_version", {{"note", "n"}}},
      {"update_script", {{"text", "new"}, {"note", "n"}}},
      {"append_to_script", {{"text", "more"}, {"note", "n"}}},
      {"add_chapter", {{"title", "X"}}},
      {"rename_chapter", {{"chapter", "1"}, {"title", "X"}}},
      {"update_chapter", {{"chapter", "1"}, {"text", "new"}}},
      {"move_chapter", {{"chapter", "1"}, {"to", "2"}}},
      {"remove_chapter", {{"chapter", "1"}, {"keep_text", "no"}}},
  };
  for (const auto& row : rows) {
    JSON::Object arguments = row.arguments;
    arguments.set("id", "Talk.md");
    EXPECT_EQ(failureOf(row.tool, arguments), "\"Talk.md\" could not be read" + tooLargeFor) << row.tool;
  }
  EXPECT_EQ(reads, 0);
  EXPECT_EQ(std::filesystem::file_size(root / "Talk.md"), fiveGiB);
  EXPECT_THAT(names(), ElementsAre("Talk.md"));
  EXPECT_EQ(story("Talk.md"), "kept: old\n");
}

TEST_F(LargestText, isReadToItsLastByte) {
  stretch("Talk.md", largestText);
  EXPECT_EQ(library.read(script("Talk.md")).size(), largestText);
  stretch("Talk.md", largestText + 1);
  EXPECT_EQ(sentenceOf([&] { library.read(script("Talk.md")); }), "\"Talk.md\" could not be read" + tooLargeFor);
}

TEST_F(LargestText, isNotExceededByWhatIsWrittenOrKept) {
  const std::string text(largestText + 1, 'x');
  const std::string newText =
      " could not be written, because the new text is larger than 256 MiB, the largest size of "
      "a script. Split it into several scripts.";
  EXPECT_EQ(sentenceOf([&] { library.write(text, script("Talk.md")); }), "\"Talk.md\"" + newText);
  EXPECT_EQ(failureOf("append_to_script", {{"id", "Talk.md"}, {"text", text}, {"note", "n"}}), "\"Talk.md\"" + newText);
  EXPECT_EQ(bytesOf("Talk.md"), "old");
  EXPECT_EQ(failureOf("create_script", {{"name", "New"}, {"text", text}}), "\"New.md\"" + newText);
  EXPECT_EQ(
      sentenceOf([&] { history->snapshot(text, root / "Talk.md", "n"); }),
      "No version of \"Talk.md\" was saved, because the text is larger than 256 MiB, the largest size of a script. "
      "Split it into several scripts.");
  EXPECT_THAT(names(), ElementsAre("Talk.md"));
}

TEST_F(LargestText, thatAnotherProgramSavedMeanwhileStaysInItsPlace) {
  for (const bool exchanges : {true, false}) {
    put("Talk.md", "old");
    calls.before = [&, isSaved = false](std::string_view call) mutable {
      if (call == "exchange" && !std::exchange(isSaved, true)) {
        put("saved", "");
        stretch("saved", fiveGiB);
        std::filesystem::rename(root / "saved", root / "Talk.md");
      }
      return call == "exchange" && !exchanges ? EINVAL : 0;
    };
    EXPECT_EQ(sentenceOf([&] { library.write("new", script("Talk.md")); }),
              "\"Talk.md\" could not be written, because what another program has saved there is larger than 256 MiB, "
              "the largest size of a script. Split it into several scripts.");
    EXPECT_EQ(std::filesystem::file_size(root / "Talk.md"), fiveGiB);
    EXPECT_THAT(names(), ElementsAre("Talk.md"));
  }
}

TEST_F(LargestText, holdsForFilesOfThePersonToo) {
  stretch("settings.json", fiveGiB);
  const std::string sentence = "\"" + (root / "settings.json").native() +
                               "\" could not be read, because it is larger than 256 MiB. Check that it is the right "
                               "file, and make it smaller if it is.";
  EXPECT_EQ(sentenceOf([&] { readFile(root / "settings.json"); }), sentence);
  FileCopies copies(root / "settings.json", ".before");
  EXPECT_EQ(sentenceOf([&] { changeFile(copies, [](const auto&) { return "new"; }); }), sentence);
  EXPECT_EQ(std::filesystem::file_size(root / "settings.json"), fiveGiB);
}

TEST_F(LargestText, endsAFileThatHasNoEnd) {
  const Descriptor zeros(::open("/dev/zero", O_RDONLY | O_CLOEXEC));
  if (!zeros) GTEST_SKIP() << "there is no /dev/zero here";
  EXPECT_EQ(readToEnd(zeros.get()).error(), std::errc::file_too_large);
}

class GrowingText : public LargestText {
 protected:
  /// Another program adds to the script before each read of ours.
  void letItGrow() {
    calls.before = [this](std::string_view call) {
      if (call == "read") std::ofstream(root / "Talk.md", std::ios::app) << " and more";
      return 0;
    };
  }
};

TEST_F(GrowingText, isRefusedWhileItGrowsAndReadAfterwards) {
  letItGrow();
  const std::string sentence =
      "\"Talk.md\" could not be read, because another program is using it. Close it there and try again.";
  EXPECT_EQ(sentenceOf([&] { library.read(script("Talk.md")); }), sentence);
  EXPECT_EQ(failureOf("append_to_script", {{"id", "Talk.md"}, {"text", "x"}, {"note", "n"}}), sentence);
  calls.before = [](std::string_view) { return 0; };
  EXPECT_EQ(library.read(script("Talk.md")), bytesOf("Talk.md"));
  EXPECT_THAT(bytesOf("Talk.md"), ::testing::StartsWith("old and more"));
}

TEST_F(GrowingText, whenItCameBackIsPutBackWithAllThatWasAdded) {
  calls.before = [&, isSaved = false](std::string_view call) mutable {
    if (call == "read" && !std::exchange(isSaved, true)) {
      for (const std::string& name : names()) {
        if (bytesOf(name) == "old") std::ofstream(root / name, std::ios::app) << " and more";
      }
    }
    return 0;
  };
  EXPECT_EQ(sentenceOf([&] { library.write("new", script("Talk.md")); }),
            "\"Talk.md\" could not be written, because another program is using it. Close it there and try again.");
  EXPECT_EQ(bytesOf("Talk.md"), "old and more");
  EXPECT_THAT(names(), ElementsAre("Talk.md"));
}

TEST_F(GrowingText, thatShrinksIsWhatIsLeft) {
  calls.interrupt("read", [this] { std::filesystem::resize_file(root / "Talk.md", 2); });
  EXPECT_EQ(library.read(script("Talk.md")), "ol");
}

}  // namespace
}  // namespace quorvel

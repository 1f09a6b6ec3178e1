// What every version store promises, whatever it keeps its versions in.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "quorvel/history/History.h"
#include "tests/support/InMemoryVersionStore.h"
#include "tests/support/TemporaryFolder.h"

namespace quorvel {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Optional;
using Moment = std::chrono::system_clock::time_point;

template <typename Store>
class VersionStoreContract : public ::testing::Test {
 protected:
  static std::unique_ptr<VersionStore> made(const std::filesystem::path& root, std::function<Moment()> clock) {
    if constexpr (std::is_same_v<Store, History>) {
      return std::make_unique<History>(root, std::move(clock));
    } else {
      return std::make_unique<Store>(std::move(clock));
    }
  }

  std::vector<std::string> labels(std::string_view identifier) const {
    std::vector<std::string> labels;
    for (const ScriptVersion& version : store->versions(root / identifier)) labels.push_back(version.name);
    return labels;
  }

  const kelvane::tests::TemporaryFolder folder;
  const std::filesystem::path root = folder.path();
  Moment now = Moment(1'700'000'000'123ms);
  const std::unique_ptr<VersionStore> store = made(root, [this] { return now; });
};

using Stores = ::testing::Types<kelvane::tests::InMemoryVersionStore, History>;

struct Names {
  template <typename Store>
  static std::string GetName(int) {
    return std::is_same_v<Store, History> ? "onDisk" : "inMemory";
  }
};

TYPED_TEST_SUITE(VersionStoreContract, Stores, Names);

TYPED_TEST(VersionStoreContract, aScriptOfWhichNothingWasKeptHasNoVersions) {
  EXPECT_THAT(this->labels("Talk.md"), IsEmpty());
  this->store->snapshot("words", this->root / "Other.md", "");
  EXPECT_THAT(this->labels("Talk.md"), IsEmpty());
}

TYPED_TEST(VersionStoreContract, theVersionAnsweredIsTheOneListed) {
  const auto version = this->store->snapshot("one  two\nthree", this->root / "Talk.md", "before the cut");
  EXPECT_THAT(version, Optional(ScriptVersion{this->now, "before the cut", 3}));
  EXPECT_THAT(this->store->versions(this->root / "Talk.md"), ElementsAre(*version));
}

TYPED_TEST(VersionStoreContract, anEmptyTextIsNotKept) {
  EXPECT_EQ(this->store->snapshot("", this->root / "Talk.md", "label"), std::nullopt);
  EXPECT_THAT(this->labels("Talk.md"), IsEmpty());
}

TYPED_TEST(VersionStoreContract, versionsComeNewestFirstWhateverTheClockSays) {
  for (const auto& [label, moment] : {std::pair{"first", 9s}, {"second", 9s}, {"third", 4s}, {"fourth", 5s}}) {
    this->now = Moment(moment);
    this->store->snapshot("words", this->root / "Talk.md", label);
  }
  EXPECT_THAT(this->labels("Talk.md"), ElementsAre("fourth", "third", "second", "first"));
}

TYPED_TEST(VersionStoreContract, theSameTextTwiceIsTwoVersions) {
  for (int i = 0; i < 2; ++i) EXPECT_TRUE(this->store->snapshot("words", this->root / "Talk.md", "again"));
  EXPECT_THAT(this->labels("Talk.md"), ElementsAre("again", "again"));
}

TYPED_TEST(VersionStoreContract, momentsAreKeptToTheMillisecondAtLeast) {
  for (const auto moment : {0ms, 1ms, -1ms, 1'700'000'000'999ms, -86'400'001ms, 9'000'000'000'001ms}) {
    this->now = Moment(moment);
    EXPECT_EQ(this->store->snapshot("words", this->root / "Talk.md", "")->saved, this->now);
    EXPECT_EQ(this->store->versions(this->root / "Talk.md").front().saved, this->now);
  }
}

TYPED_TEST(VersionStoreContract, aVersionIsListedWithTheMomentItWasAnsweredWithHoweverFineTheClock) {
  this->now += 987'654ns;
  const auto version = this->store->snapshot("words", this->root / "Talk.md", "");
  EXPECT_THAT(this->store->versions(this->root / "Talk.md"), ElementsAre(*version));
}

TYPED_TEST(VersionStoreContract, labelsAreAnyBytes) {
  using namespace std::string_literals;
  const struct {
    const char* what;
    std::string label;
  } cases[] = {
      {"nothing", ""},
      {"a dash", "Before — tightened the intro"},
      {"quotes and what SQL and patterns know", R"('); DROP TABLE versions; -- "%_*?[)"},
      {"line breaks and tabs", "one\ntwo\r\n\tthree"},
      {"a NUL in the middle", "a\0b"s},
      {"NULs alone", "\0\0"s},
      {"bytes that are not UTF-8", "\xff\xfe\x80"},
      {"half a character", "caf\xc3"},
      {"a letter and its mark, not composed", "cafe\u0301"},
      {"a long one", std::string(100'000, 'x')},
  };
  for (const auto& [what, label] : cases) {
    EXPECT_EQ(this->store->snapshot("words", this->root / "Talk.md", label)->name, label) << what;
    EXPECT_EQ(this->labels("Talk.md").front(), label) << what;
  }
  EXPECT_EQ(this->labels("Talk.md").size(), std::size(cases));
}

TYPED_TEST(VersionStoreContract, scriptsAreToldApartByTheBytesOfTheirPaths) {
  const std::string_view identifiers[] = {
      "Talk.md",        "talk.md",       "Talk.md ",       "Talk",      "Folder/Talk.md", "Folder/Deep/Talk.md",
      "%.md",           "_.md",          "*.md",           "?.md",      "[a].md",         "a.md",
      "caf\u00e9.md",   "cafe\u0301.md", "\xff.md",        "\xfe.md",   "quote\"'.md",    "line\nbreak.md",
      "back\\slash.md", "Folder0.md",    "Folder/.hidden", "Folder.md",
  };
  for (const std::string_view identifier : identifiers)
    this->store->snapshot("words", this->root / identifier, identifier);
  for (const std::string_view identifier : identifiers) EXPECT_THAT(this->labels(identifier), ElementsAre(identifier));
}

TYPED_TEST(VersionStoreContract, wordsAreRunsOfCharactersThatAreNotWhiteSpace) {
  const struct {
    const char* what;
    std::string_view text;
    std::size_t words;
  } cases[] = {
      {"blanks and line breaks", "  \n", 0},
      {"runs of blanks", "one  two\nthree", 3},
      {"CR LF is one character", "one\r\ntwo", 2},
      {"a no-break blank", "one\u00a0two", 2},
      {"an ideographic blank", "one\u3000two", 2},
      {"a zero width space is none", "one\u200btwo", 1},
      {"a blank with a combining mark begins with white space", "one \u0301two", 2},
      {"a prepending mark takes the blank behind it along", "one\u0600 two", 1},
      {"bytes that are not UTF-8", "\xff \xfe", 2},
  };
  for (const auto& [what, text, words] : cases) {
    EXPECT_EQ(this->store->snapshot(text, this->root / "Talk.md", "")->words, words) << what;
    EXPECT_EQ(this->store->versions(this->root / "Talk.md").front().words, words) << what;
  }
}

TYPED_TEST(VersionStoreContract, threadsAtOnceLoseNothing) {
  constexpr int threadCount = 4;
  constexpr int each = 10;
  std::vector<std::thread> threads;
  std::atomic<int> listed = 0;
  for (int thread = 0; thread < threadCount; ++thread) {
    threads.emplace_back([this, thread, &listed] {
      for (int i = 0; i < each; ++i) {
        this->store->snapshot("words", this->root / "Shared.md", std::to_string(thread));
        this->store->snapshot("words", this->root / std::to_string(thread), std::to_string(i));
        listed += this->store->versions(this->root / "Shared.md").empty() ? 0 : 1;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  const auto shared = this->labels("Shared.md");
  EXPECT_EQ(listed, threadCount * each);
  for (int thread = 0; thread < threadCount; ++thread) {
    EXPECT_EQ(std::count(shared.begin(), shared.end(), std::to_string(thread)), each);
    EXPECT_THAT(this->labels(std::to_string(thread)), ElementsAre("9", "8", "7", "6", "5", "4", "3", "2", "1", "0"));
  }
}

}  // namespace
}  // namespace quorvel

// What the check of a history finds, and that it finds nothing in a sound one.
#include "tests/quorvel/history/HistoryHouse.h"

namespace quorvel {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StartsWith;

class HistoryCheck : public HistoryHouse {
 protected:
  void startAfresh() {
    std::filesystem::remove_all(root / ".kelvane");
    history.setAside("Talk.md");
    save("one", "Talk.md");
    history.setAside("Talk.md");
    for (const auto* text : {"two", "three", "two"}) save(text, "Talk.md");
    save("other", "Other \"one\".md");
  }
};

TEST_F(HistoryCheck, aValidHistoryHasNoProblems) {
  startAfresh();
  EXPECT_THAT(history.problems(), IsEmpty());
}

TEST_F(HistoryCheck, everyBrokenRuleIsReported) {
  const struct {
    const char* what;
    const char* done;
    const char* sentence;
  } cases[] = {
      {"a version taken out", "DELETE FROM versions WHERE number = 2",
       R"(The history of "Talk.md" lacks a version: their numbers have a gap.)"},
      {"the last version of a script taken out",
       "DELETE FROM versions WHERE script = (SELECT id FROM scripts WHERE identifier = CAST('Other \"one\".md' AS "
       "BLOB))",
       R"(The history of "Other "one".md" is listed without a version.)"},
      {"an earlier script taken out", "UPDATE scripts SET earlier = 2 WHERE earlier = 1",
       R"(The history of "Talk.md" lacks an earlier script: their numbers have a gap.)"},
      {"a text taken out", "DELETE FROM texts WHERE bytes = CAST('other' AS BLOB)",
       R"(The history of "Other "one".md" has a version whose text is missing or has another size.)"},
      {"a size that is not the text's", "UPDATE versions SET size = 9 WHERE number = 3",
       R"(The history of "Talk.md" has a version whose text is missing or has another size.)"},
      {"a text changed", "UPDATE texts SET bytes = CAST('thrEe' AS BLOB) WHERE id = 3",
       "Text 3 of the version history has other bytes than were kept."},
      {"a script taken out", "DELETE FROM scripts WHERE identifier = CAST('Other \"one\".md' AS BLOB)",
       "The version history has versions of a script that it does not list."},
  };
  for (const auto& [what, done, sentence] : cases) {
    startAfresh();
    change(done);
    EXPECT_THAT(history.problems(), ElementsAre(sentence)) << what;
  }
}

TEST_F(HistoryCheck, damageIsReportedAlsoInPagesThatNoReadingNeeds) {
  startAfresh();
  save(std::string(20'000, 'x'), "Long.md");
  std::string bytes = read(database);
  const std::size_t page = bytes.find(std::string(4'000, 'x')) / 4096;
  ASSERT_GT(page, 0U);
  bytes.replace(page * 4096, 4, std::string(4, '\x7f'));  // where the text goes on
  write(database, bytes);
  EXPECT_EQ(story("Talk.md"), "two three two");
  ASSERT_FALSE(history.problems().empty());
  EXPECT_THAT(history.problems().front(), StartsWith("The file of the version history is damaged: "));
}

TEST_F(HistoryCheck, aMissingIndexEntryIsReported) {
  startAfresh();
  change(
      "PRAGMA writable_schema = ON;"
      "UPDATE sqlite_schema SET sql = 'CREATE INDEX textsByHash ON texts (id)' WHERE name = 'textsByHash'");
  EXPECT_FALSE(history.problems().empty());
}

}  // namespace
}  // namespace quorvel

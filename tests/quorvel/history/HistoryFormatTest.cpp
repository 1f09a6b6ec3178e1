// How a history of an earlier format becomes one of today's, shown with made-up formats.
#include "quorvel/history/HistoryFile.h"
#include "tests/quorvel/history/HistoryCalls.h"
#include "tests/quorvel/history/HistoryHouse.h"
#include "tests/support/ChildProcess.h"

namespace quorvel {
namespace {

using ::testing::HasSubstr;

constexpr std::string_view one = "CREATE TABLE old (x BLOB); INSERT INTO old VALUES ('kept')";
constexpr std::string_view two =
    "CREATE TABLE new (x BLOB, y INTEGER); INSERT INTO new SELECT x, length(x) FROM old; DROP TABLE old";
constexpr std::string_view three = "UPDATE new SET y = y + 100";
constexpr std::string_view broken = "CREATE TABLE half (x BLOB); INSERT INTO nowhere VALUES (1)";

class HistoryFormats : public HistoryHouse {
 protected:
  using Steps = std::vector<std::string_view>;

  /// Those whose formats before the last have other tables.
  static HistoryMigrations changingTables(const Steps& steps) { return {steps, steps.size()}; }

  void makeOf(const Steps& steps) const {
    HistoryFile(root, patience, changingTables(steps)).writing(OpenedRoot::find(root)).run("COMMIT");
  }

  std::int64_t format() const { return integer("PRAGMA user_version"); }
};

TEST_F(HistoryFormats, connectionsFlushEverythingAndUseNoTemporaryFiles) {
  const HistoryFile file(root, patience);
  sqlite::Connection writing = file.writing(OpenedRoot::find(root));
  EXPECT_EQ(writing.integer("PRAGMA synchronous"), 3) << "extra";
  EXPECT_EQ(writing.integer("PRAGMA temp_store"), 2) << "in memory";
  {
    auto mode = writing.prepare("PRAGMA journal_mode");
    ASSERT_TRUE(mode.next());
    EXPECT_EQ(mode.bytes(0), "delete");
  }
  writing.run("COMMIT");
  EXPECT_EQ(file.reading(OpenedRoot::find(root))->integer("PRAGMA temp_store"), 2) << "in memory";
}

TEST_F(HistoryFormats, aReaderSeesOneStateUntilItEnds) {
  save("one", "Talk.md");
  {
    auto reading = HistoryFile(root, patience).reading(OpenedRoot::find(root));
    ASSERT_TRUE(reading);
    EXPECT_THAT(sentenceOf([&] { save("two", "Talk.md"); }), HasSubstr("in use by another program"));
    EXPECT_EQ(reading->integer("SELECT count(*) FROM versions"), 1);
  }
  save("two", "Talk.md");
  EXPECT_EQ(HistoryFile(root, patience).reading(OpenedRoot::find(root))->integer("SELECT count(*) FROM versions"), 2);
}

TEST_F(HistoryFormats, aDatabaseTakesTheStepsThatItLacks) {
  const struct {
    const char* what;
    Steps before;
  } cases[] = {
      {"nothing yet", {}},
      {"the first format", {one}},
      {"the second", {one, two}},
      {"the last", {one, two, three}},
  };
  for (const auto& [what, before] : cases) {
    std::filesystem::remove_all(root / ".kelvane");
    if (!before.empty()) makeOf(before);
    makeOf({one, two, three});
    EXPECT_EQ(format(), 3) << what;
    EXPECT_EQ(integer("PRAGMA application_id"), historyApplicationID) << what;
    EXPECT_EQ(integer("SELECT y FROM new WHERE x = 'kept'"), 104) << what;
  }
}

TEST_F(HistoryFormats, anEmptyFileTakesAllSteps) {
  write(database, "");
  makeOf({one, two});
  EXPECT_EQ(format(), 2);
}

TEST_F(HistoryFormats, aReaderTakesAnEarlierFormatAsItIsIfItHasTheTablesOfToday) {
  const struct {
    const char* what;
    Steps before;
    std::int64_t afterwards, y;
  } cases[] = {
      {"other tables", {one}, 3, 104},
      {"the same tables, another y", {one, two}, 2, 4},
      {"today's", {one, two, three}, 3, 104},
  };
  const Steps steps{one, two, three};
  for (const auto& [what, before, afterwards, y] : cases) {
    std::filesystem::remove_all(root / ".kelvane");
    makeOf(before);
    auto connection = HistoryFile(root, patience, {steps, 2}).reading(OpenedRoot::find(root));
    ASSERT_TRUE(connection) << what;
    EXPECT_EQ(connection->integer("SELECT y FROM new"), y) << what;
    EXPECT_EQ(format(), afterwards) << what;
  }
}

TEST_F(HistoryFormats, aReaderBringsAnEarlierFormatWithOtherTablesUpToDateFirst) {
  makeOf({one});
  const Steps steps{one, two};
  auto connection = HistoryFile(root, patience, changingTables(steps)).reading(OpenedRoot::find(root));
  ASSERT_TRUE(connection);
  EXPECT_EQ(connection->integer("SELECT y FROM new"), 4);
  EXPECT_EQ(format(), 2);
}

TEST_F(HistoryFormats, aReaderWithoutPermissionToWriteReportsAFormatWithOtherTables) {
  makeOf({one});
  std::filesystem::permissions(root, std::filesystem::perms(0755));
  std::filesystem::permissions(root / ".kelvane", std::filesystem::perms(0555));
  std::filesystem::permissions(database, std::filesystem::perms(0444));
  EXPECT_EQ(kelvane::tests::inChild([this] {
              kelvane::tests::becomeNobody();
              const Steps steps{one, two};
              const HistoryFile file(root, patience, changingTables(steps));
              try {
                file.reading(OpenedRoot::find(root));
              } catch (const sqlite::Error& error) {
                return std::string(file.failure(error, HistoryUse::reading).what());
              }
              return std::string("(no failure)");
            }),
            "The version history of this library (.kelvane/history.sqlite) could not be read, because the system does "
            "not permit it. Check who may read and write in the folder .kelvane.");
  EXPECT_EQ(format(), 1);
}

TEST_F(HistoryFormats, aReaderGivesUpWhenAnotherProgramBringsTheEarlierFormatBack) {
  makeOf({one});
  const Steps steps{one, "CREATE TABLE another (x)"};
  const std::string earlier = read(database);
  HistoryCalls calls;
  int opened = 0;
  calls.before = [&](std::string_view call) {
    if (call == "open" && !std::filesystem::exists(journal) && ++opened < 20) write(database, earlier);
    return 0;
  };
  const HistoryFile file(root, patience, changingTables(steps), calls);
  try {
    file.reading(OpenedRoot::find(root));
    ADD_FAILURE() << "read";
  } catch (const sqlite::Error& error) {
    EXPECT_THAT(file.failure(error, HistoryUse::reading).what(), HasSubstr("has been in use by another program"));
  }
  EXPECT_LT(opened, 10);
}

TEST_F(HistoryFormats, aFailedStepLeavesTheEarlierFormat) {
  makeOf({one});
  const std::string before = read(database);
  const Steps steps{one, two, broken};
  EXPECT_THROW(HistoryFile(root, patience, changingTables(steps)).writing(OpenedRoot::find(root)), sqlite::Error);
  EXPECT_THROW(HistoryFile(root, patience, changingTables(steps)).reading(OpenedRoot::find(root)), sqlite::Error);
  EXPECT_EQ(read(database), before);
}

TEST_F(HistoryFormats, aProcessKilledBetweenTheStepsLeavesTheEarlierFormat) {
  makeOf({one});
  kelvane::tests::inChild([this]() -> std::string {
    const Steps steps{one, two};
    const auto connection = HistoryFile(root, patience, changingTables(steps)).writing(OpenedRoot::find(root));
    kelvane::tests::dieAtOnce();
  });
  EXPECT_EQ(format(), 1);
  EXPECT_EQ(integer("SELECT count(*) FROM old"), 1);
}

TEST_F(HistoryFormats, aLaterFormatIsReportedAndLeftAsItIs) {
  makeOf({one, two, three});
  const std::string before = read(database);
  const Steps steps{one, two};
  const HistoryFile file(root, patience, changingTables(steps));
  EXPECT_THAT(sentenceOf([&] { file.reading(OpenedRoot::find(root)); }), HasSubstr("newer version"));
  EXPECT_THAT(sentenceOf([&] { file.writing(OpenedRoot::find(root)); }), HasSubstr("newer version"));
  EXPECT_EQ(read(database), before);
}

}  // namespace
}  // namespace quorvel

#include "quorvel/history/HistoryTexts.h"

#include "tests/quorvel/history/HistoryHouse.h"

namespace quorvel {
namespace {

using HistoryTexts = HistoryHouse;

TEST(HistoryTextHash, isFNV1a) {
  const struct {
    std::string_view text;
    std::uint64_t hash;
  } cases[] = {
      {"", 0xcbf29ce484222325},
      {"a", 0xaf63dc4c8601ec8c},
      {"foobar", 0x85944171f73967e8},
      {"\xff", 0xaf64724c8602eb6e},
      {"one two three\n", static_cast<std::uint64_t>(-4237172126326747551)},
  };
  for (const auto& [text, hash] : cases) EXPECT_EQ(static_cast<std::uint64_t>(textHash(text)), hash) << text;
}

TEST_F(HistoryTexts, areFoundByTheirBytesWhateverTheirHash) {
  sqlite::Connection connection = HistoryFile(root, patience).writing(OpenedRoot::find(root));
  EXPECT_EQ(findText(connection, "one"), std::nullopt);
  const std::int64_t one = saveText(connection, "one");
  const std::int64_t two = saveText(connection, "two");
  EXPECT_NE(one, two);
  EXPECT_EQ(saveText(connection, "one"), one);
  connection.run("UPDATE texts SET hash = ?", textHash("three"));
  EXPECT_EQ(findText(connection, "three"), std::nullopt) << "the hash is there, the bytes are not";
  const std::int64_t three = saveText(connection, "three");
  EXPECT_EQ(findText(connection, "three"), three);
}

}  // namespace
}  // namespace quorvel

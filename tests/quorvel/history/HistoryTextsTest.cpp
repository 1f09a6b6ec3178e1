#include "quorvel/history/HistoryTexts.h"

#include "tests/quorvel/history/HistoryHouse.h"

namespace quorvel {
namespace {

using HistoryTexts = HistoryHouse;

/// The bytes over which the hash's authors publish its values.
std::string publishedBytes(std::size_t count) {
  std::string bytes;
  for (std::uint64_t state = 2654435761U; bytes.size() < count; state *= 11400714785074694797U)
    bytes += static_cast<char>(state >> 56);
  return bytes;
}

TEST(HistoryTextHash, isXXH3) {
  const struct {
    std::string text;
    std::uint64_t hash;
  } cases[] = {
      {"", 0x2d06800538d394c2},
      {publishedBytes(1), 0xc44bdff4074eecdb},
      {publishedBytes(6), 0x27b56a84cd2d7325},
      {publishedBytes(12), 0xa713daf0dfbb77e7},
      {publishedBytes(24), 0xa3fe70bf9d3510eb},
      {publishedBytes(48), 0x397da259ecba1f11},
      {publishedBytes(80), 0xbcdefbbb2c47c90a},
      {publishedBytes(195), 0xcd94217ee362ec3a},
      {publishedBytes(403), 0xcdeb804d65c6dea4},
      {publishedBytes(512), 0x617e49599013cb6b},
      {publishedBytes(2048), 0xdd59e2c3a5f038e0},
      {publishedBytes(2240), 0x6e73a90539cf2948},
      {publishedBytes(2367), 0xcb37aeb9e5d361ed},
      {"one two three\n", 3904698145035227066},
      {"new words", static_cast<std::uint64_t>(-3111151199089853101)},
  };
  for (const auto& [text, hash] : cases)
    EXPECT_EQ(static_cast<std::uint64_t>(textHash(text)), hash) << text.size() << " bytes";
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

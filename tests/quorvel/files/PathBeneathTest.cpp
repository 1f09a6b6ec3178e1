#include "quorvel/files/PathBeneath.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <string_view>

namespace quorvel {
namespace {

using namespace std::string_view_literals;
using ::testing::ElementsAre;

std::string spelt(std::string_view path) {
  const auto beneath = PathBeneath::of(path);
  return beneath ? beneath->string() : "no path";
}

TEST(PathBeneath, hasOneSpellingOnly) {
  const struct {
    std::string_view path, spelt;
  } rows[] = {
      {"", ""},       {".", ""},          {"./", ""},           {"a", "a"},       {"a/", "a"},
      {"a/b", "a/b"}, {"a//b", "a/b"},    {"a/./b/.", "a/b"},   {"./a", "a"},     {"...", "..."},
      {"..a", "..a"}, {"a/b..", "a/b.."}, {".a/. b", ".a/. b"}, {"\xFF", "\xFF"}, {"a..b/c", "a..b/c"},
  };
  for (const auto& row : rows) EXPECT_EQ(spelt(row.path), row.spelt) << row.path;
}

TEST(PathBeneath, cannotLeadOut) {
  for (const std::string_view path :
       {"/"sv, "/a"sv, "/etc/passwd"sv, ".."sv, "../"sv, "../a"sv, "a/.."sv, "a/../b"sv, "./.."sv, "a\0b"sv, "\0"sv}) {
    EXPECT_EQ(spelt(path), "no path") << path;
  }
}

TEST(PathBeneath, isMadeOfPieces) {
  const PathBeneath empty;
  EXPECT_THAT(empty.pieces(), ElementsAre());
  EXPECT_EQ(empty.name(), "");
  EXPECT_TRUE(empty.parent().isTheFolderItself());
  const PathBeneath path = *PathBeneath::of("a//./b/.c.md");
  EXPECT_THAT(path.pieces(), ElementsAre("a", "b", ".c.md"));
  EXPECT_EQ(path.name(), ".c.md");
  EXPECT_EQ(path.parent().string(), "a/b");
  EXPECT_EQ(path.parent().parent().string(), "a");
  EXPECT_TRUE(path.parent().parent().parent().isTheFolderItself());
}

TEST(PathBeneath, getsLongerByOneName) {
  EXPECT_EQ(PathBeneath().child("a").string(), "a");
  EXPECT_EQ(PathBeneath().child("a").child("b", ".md").string(), "a/b.md");
}

}  // namespace
}  // namespace quorvel

#include <gtest/gtest.h>

#include <string>

#include "platform/QuorvelCore.h"

namespace quorvel {
namespace {

TEST(TextEdit, replacesItsRangeAndNothingElse) {
  struct Row {
    const char* description;
    const char* text;
    TextEdit edit;
    const char* edited;
  };
  const Row rows[] = {
      {"in the middle", "abcdef", {{2, 4}, "XYZ"}, "abXYZef"},
      {"the whole", "abc", {{0, 3}, "x"}, "x"},
      {"an insertion at the start", "abc", {{0, 0}, "x"}, "xabc"},
      {"an insertion at the end", "abc", {{3, 3}, "x"}, "abcx"},
      {"a deletion", "abc", {{1, 2}, ""}, "ac"},
      {"nothing", "abc", {{1, 1}, ""}, "abc"},
      {"into an empty text", "", {{0, 0}, "x"}, "x"},
      {"amid bytes that are not UTF-8", "\xFF\xC3\xFE", {{1, 2}, "\x80"}, "\xFF\x80\xFE"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.description);
    EXPECT_EQ(row.edit.applied(row.text), row.edited);
  }
}

}  // namespace
}  // namespace quorvel

#include <gtest/gtest.h>

#include <string>

#include "platform/QuorvelLibrary.h"
#include "tests/quorvel/core/Texts.h"

namespace quorvel {
namespace {

using tests::shown;

TEST(ScriptText, appendsAfterAnEmptyLine) {
  struct Row {
    const char* description;
    std::string existing;
    std::string added;
    std::string text;
  };
  const Row rows[] = {
      {"to an empty text", "", "x", "x"},
      {"to a text without final line break", "a", "x", "a\n\nx"},
      {"to a text with one", "a\n", "x", "a\n\nx"},
      {"to a text that ends in an empty line", "a\n\n", "x", "a\n\nx"},
      {"to a text with more: none is removed", "a\n\n\n\n", "x", "a\n\n\n\nx"},
      {"what is added stays as it is", "a\n", "\nx\r\n\n", "a\n\n\nx\r\n\n"},
      {"a heading is added as one", "a", "# X\n", "a\n\n# X\n"},
      {"CR LF without final line break", "a\r\nb", "x", "a\r\nb\r\n\r\nx"},
      {"CR LF", "a\r\n", "x", "a\r\n\r\nx"},
      {"CR LF and an empty line", "a\r\n\r\n", "x", "a\r\n\r\nx"},
      {"the added text does not decide on the line break", "a", "x\r\ny\r\n", "a\n\nx\r\ny\r\n"},
      {"LF takes the CR LF of the text", "a\r\n", "\nx\n\ny\n", "a\r\n\r\n\r\nx\r\n\r\ny\r\n"},
      {"LF beside CR LF stays", "a\r\n", "x\r\ny\nz", "a\r\n\r\nx\r\ny\nz"},
      {"CR LF stays amid LF", "a\nb\n", "x\r\ny", "a\nb\n\nx\r\ny"},
      {"LF stays where both are as frequent", "a\r\nb\n", "x\ny", "a\r\nb\n\nx\ny"},
      {"LF takes the more frequent CR LF", "a\r\nb\r\nc\nd", "x\ny", "a\r\nb\r\nc\nd\r\n\r\nx\r\ny"},
      {"a CR alone becomes no line break", "a\r\n", "x\ry\n\r", "a\r\n\r\nx\ry\r\n\r"},
      {"more CR LF than LF", "a\r\nb\r\nc\nd", "x", "a\r\nb\r\nc\nd\r\n\r\nx"},
      {"as many CR LF as LF", "a\r\nb\nc", "x", "a\r\nb\nc\n\nx"},
      {"more LF than CR LF", "a\r\n\n\n", "x", "a\r\n\n\nx"},
      {"the last line ends in spaces", "a  \n", "x", "a  \n\nx"},
      {"the empty line has white space", "a\n \t\n", "x", "a\n \t\nx"},
      {"the empty line has no line break", "a\n \t", "x", "a\n \t\nx"},
      {"a line break alone is an empty line", "\n", "x", "\nx"},
      {"spaces alone", "  ", "x", "  \nx"},
      {"a CR alone at the end becomes a line break", "a\r", "x", "a\r\n\nx"},
      {"a CR alone at the end amid CR LF", "a\r\n\r", "x", "a\r\n\r\r\nx"},
      {"a byte-order mark alone", "\xEF\xBB\xBF", "x", "\xEF\xBB\xBFx"},
      {"a byte-order mark and a text",
       "\xEF\xBB\xBF"
       "a",
       "x",
       "\xEF\xBB\xBF"
       "a\n\nx"},
      {"bytes that are not UTF-8", "\xFF\xC3", "\xA9", "\xFF\xC3\n\n\xA9"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.description);
    EXPECT_EQ(shown(ScriptText::appending(row.added, row.existing)), shown(row.text));
  }
}

}  // namespace
}  // namespace quorvel

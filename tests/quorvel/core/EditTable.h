#pragma once

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <string_view>

#include "platform/QuorvelCore.h"
#include "tests/quorvel/core/Texts.h"

/// Runs a row of a table of chapter edits.
namespace quorvel::tests {

/// The script's text after the edit; "no edit" where there is none.
template <typename Edit>
std::string edited(std::string_view text, Edit edit) {
  const Script script{std::string(text)};
  const std::optional<TextEdit> change = edit(script);
  return change ? shown(change->applied(text)) : "no edit";
}

/// Expects what is in the row, and the same with CR LF throughout, behind a byte-order mark, and both; and with CR LF
/// in the script for a client that sends LF. `editWith` is given a function to pass every text of the client's through
/// and gives the edit as a function of the script. A row whose script has no line break stays with LF, which is what
/// such a script uses.
template <typename EditWith>
void expectWithEveryLineBreak(const char* description, std::string_view text, std::string_view expected,
                              EditWith editWith) {
  const auto asItIs = [](std::string_view given) { return std::string(given); };
  const std::string bom(byteOrderMark);
  SCOPED_TRACE(description);
  EXPECT_EQ(edited(text, editWith(asItIs)), shown(expected)) << "with LF";
  EXPECT_EQ(edited(bom + std::string(text), editWith(asItIs)), shown(bom + std::string(expected))) << "behind a mark";
  if (text.find('\n') == std::string_view::npos) return;
  EXPECT_EQ(edited(withCRLF(text), editWith(withCRLF)), shown(withCRLF(expected))) << "with CR LF";
  EXPECT_EQ(edited(bom + withCRLF(text), editWith(withCRLF)), shown(bom + withCRLF(expected))) << "both";
  EXPECT_EQ(edited(withCRLF(text), editWith(asItIs)), shown(withCRLF(expected))) << "LF given to a script with CR LF";
}

}  // namespace quorvel::tests

#pragma once

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <string_view>

#include "platform/QuorvelCore.h"
#include "tests/quorvel/core/Texts.h"

/// Runs a row of a table of chapter edits.
namespace quorvel::tests {

/// The script's text after the edit, or "no edit" for std::nullopt.
template <typename Edit>
std::string edited(std::string_view text, Edit edit) {
  const Script script{std::string(text)};
  const std::optional<TextEdit> change = edit(script);
  return change ? shown(change->applied(text)) : "no edit";
}

/// Expects the row's result in five variants: as it is, with CR LF throughout, after a byte-order mark, with both, and
/// with CR LF in the script only, as for a client that sends LF. `editWith` gets a function that converts the client's
/// texts, and returns the edit as a function of the script. A script without a line break uses LF, so it has no CR LF
/// variants.
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

#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

/// Randomly generated chapter edits, and the search for a small one that still fails.
namespace quorvel::tests {

/// A script in pieces, most of them one line each, and the arguments of an edit. Any piece of either text can be left
/// out. Use positions modulo the number of chapters.
struct GeneratedEdit {
  std::vector<std::string> script;
  std::vector<std::string> given;
  std::string title;
  std::size_t chapter = 0;
  std::size_t other = 0;

  std::string text() const;
  std::string givenText() const;
  std::string described() const;
};

/// What is wrong with the result of an edit. Empty if it is right, or if the script does not permit the edit.
using Property = std::function<std::optional<std::string>(const GeneratedEdit&)>;

using Generator = std::function<GeneratedEdit(std::uint64_t seed)>;

/// Any script: with text before the first chapter, empty chapters, equal titles, byte-order marks, LF and CR LF in one
/// script, no final line break, bytes that are not UTF-8, headings in the given text.
GeneratedEdit anyEdit(std::uint64_t seed);

/// A script as the edits write it: one kind of line break, one empty line between a heading and its text and before a
/// heading, and one or no line break at the end.
GeneratedEdit editOfACanonicalScript(std::uint64_t seed);

/// The failing edit without the pieces that it does not need to fail.
GeneratedEdit shrunk(GeneratedEdit failing, const Property& property);

/// Checks the property for many generated edits. If one fails, the running test fails with the smallest edit found. The
/// first seed is printed, and read from KELVANE_SEED if that is set.
void expectForGeneratedEdits(const Generator& generator, const Property& property);

}  // namespace quorvel::tests

#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

/// Randomly generated chapter edits, and the search for a small one that still fails.
namespace quorvel::tests {

/// A script in pieces, most of them a line each, and what an edit of it is given. Any piece can be left out of either
/// text. Positions are to be taken modulo whatever they are positions in.
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

/// What is wrong with the answer to an edit; nothing when all is well, or when the edit cannot be made in that script.
using Property = std::function<std::optional<std::string>(const GeneratedEdit&)>;

using Generator = std::function<GeneratedEdit(std::uint64_t seed)>;

/// Anything goes: text before the first chapter, empty chapters, equal titles, byte-order marks, LF and CR LF in one
/// script, no final line break, bytes that are not UTF-8, headings in the given text.
GeneratedEdit anyEdit(std::uint64_t seed);

/// A script as the edits themselves write it: one kind of line break, one blank line between a heading and its text
/// and before a heading, and at the end one line break or none.
GeneratedEdit editOfACanonicalScript(std::uint64_t seed);

/// The failing edit with as few pieces as leaving out some of them can give while the property still fails.
GeneratedEdit shrunk(GeneratedEdit failing, const Property& property);

/// Fails the running test with the smallest edit found when the property fails for one of many generated edits. The
/// seed of the first is printed and is KELVANE_SEED's where that is set.
void expectForGeneratedEdits(const Generator& generator, const Property& property);

}  // namespace quorvel::tests

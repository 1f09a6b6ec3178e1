#include "tests/quorvel/core/GeneratedEdits.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "tests/quorvel/core/Texts.h"
#include "tests/support/Random.h"

namespace quorvel::tests {
namespace {

constexpr std::size_t editsARun = 2000;

class Dice {
 public:
  explicit Dice(std::uint64_t seed) : engine_(seed) {}

  std::size_t below(std::size_t bound) { return static_cast<std::size_t>(engine_() % bound); }
  bool oneIn(std::size_t bound) { return below(bound) == 0; }

  template <typename Choices>
  std::string oneOf(const Choices& choices) {
    return *(std::begin(choices) + static_cast<std::ptrdiff_t>(below(std::size(choices))));
  }

 private:
  std::mt19937_64 engine_;
};

const std::string bom(byteOrderMark);

const std::vector<std::string> lines = {
    "# A",
    "# A",
    "# B",
    "# The end",
    "# ",
    "#  ",
    "#  A \t",
    "# # A",
    "# caf\xC3\xA9",
    "# cafe\xCC\x81",
    "# \xFF",
    "# \xCC\x81x",
    "# x\xD8\x80 ",
    "# a\rb",
    "#",
    "#x",
    "## x",
    " # x",
    "one two",
    "one",
    "  three four  ",
    "",
    "",
    "",
    "  ",
    "\t",
    "\xE3\x80\x80",
    " \xCC\x81",
    "\xCC\x81",
    "x\xD8\x80 ",
    "caf\xC3\xA9",
    "\xFF\xC3",
    "\xE3\x80",
    "\xC2",
    "\x85",
    "a\r# b",
    "\r",
    "x\r",
    bom,
    bom + "# x",
    bom + " x",
    "\xE2\x80\xA8# x",
    "\xC2\x85",
    std::string(1, '\0'),
};

const std::vector<std::string> titles = {
    "X",
    "A",
    "The end",
    "  X ",
    "a\nb",
    "a\r\n# b",
    "\n# x",
    "# x",
    "# A",
    "# # A",
    " #  # \xCC\x81x",
    "# ",
    "#",
    "",
    " ",
    "\r\n",
    "\xFF",
    "\xCC\x81x",
    "x\xD8\x80",
    "x\xD8\x80 ",
    "a\xC2\x85"
    "b",
    "a\fb",
    "\xE3\x80\x80",
};

enum class Breaks { lf, crlf, mixed };

std::vector<std::string> generatedLines(Dice& dice, std::size_t count, Breaks breaks) {
  std::vector<std::string> pieces;
  for (std::size_t line = 0; line < count; ++line) {
    const bool withCarriageReturn = breaks == Breaks::mixed ? dice.oneIn(2) : breaks == Breaks::crlf;
    const bool endsInNone = line + 1 == count && dice.oneIn(2);
    pieces.push_back(dice.oneOf(lines) + (endsInNone ? "" : withCarriageReturn ? "\r\n" : "\n"));
  }
  return pieces;
}

std::string joined(const std::vector<std::string>& pieces) {
  std::string text;
  for (const std::string& piece : pieces) text += piece;
  return text;
}

/// Leaves out as many pieces as possible: first halves, then quarters, finally single ones.
void shrink(std::vector<std::string>& pieces, const std::function<bool()>& stillFails) {
  for (std::size_t length = std::max<std::size_t>(pieces.size(), 1);; length = (length + 1) / 2) {
    for (std::size_t begin = 0; begin < pieces.size();) {
      const std::vector<std::string> before = pieces;
      const std::size_t end = std::min(begin + length, pieces.size());
      pieces.erase(pieces.begin() + static_cast<std::ptrdiff_t>(begin),
                   pieces.begin() + static_cast<std::ptrdiff_t>(end));
      if (stillFails()) continue;
      pieces = before;
      begin = end;
    }
    if (length == 1) return;
  }
}

}  // namespace

std::string GeneratedEdit::text() const {
  return joined(script);
}

std::string GeneratedEdit::givenText() const {
  return joined(given);
}

std::string GeneratedEdit::described() const {
  return "script " + shown(text()) + ", given text " + shown(givenText()) + ", title " + shown(title) + ", chapter " +
         std::to_string(chapter) + ", other " + std::to_string(other);
}

GeneratedEdit anyEdit(std::uint64_t seed) {
  Dice dice(seed);
  const auto breaks = static_cast<Breaks>(dice.below(3));
  GeneratedEdit edit;
  if (dice.oneIn(4)) edit.script.push_back(bom);
  for (std::string& line : generatedLines(dice, dice.below(14), breaks)) edit.script.push_back(std::move(line));
  edit.given = generatedLines(dice, dice.below(5), dice.oneIn(4) ? Breaks::mixed : dice.oneIn(2) ? Breaks::lf : breaks);
  edit.title = dice.oneOf(titles);
  edit.chapter = dice.below(12);
  edit.other = dice.below(12);
  return edit;
}

GeneratedEdit editOfACanonicalScript(std::uint64_t seed) {
  static const std::vector<std::string> passages = {"one", "one\n  two", "one\n\n\ntwo", "\xFF", "## x\n#", bom + "x"};
  Dice dice(seed);
  GeneratedEdit edit = anyEdit(seed);
  std::vector<std::string> blocks;
  if (dice.oneIn(3)) blocks.push_back(dice.oneOf(passages));
  for (std::size_t chapters = dice.below(4); chapters > 0; --chapters) {
    blocks.push_back(dice.oneIn(4) ? "# " : "# A" + dice.oneOf(passages).substr(0, 1));
    if (!dice.oneIn(3)) blocks.push_back(dice.oneOf(passages));
  }
  edit.script.clear();
  if (dice.oneIn(4)) edit.script.push_back(bom);
  const bool usesCRLF = dice.oneIn(2);
  const bool endsInBreak = dice.oneIn(2);
  for (std::size_t block = 0; block < blocks.size(); ++block) {
    const bool isLast = block + 1 == blocks.size();
    const std::string piece = blocks[block] + (!isLast ? "\n\n" : endsInBreak ? "\n" : "");
    edit.script.push_back(usesCRLF ? withCRLF(piece) : piece);
  }
  return edit;
}

GeneratedEdit shrunk(GeneratedEdit failing, const Property& property) {
  const auto stillFails = [&] { return property(failing).has_value(); };
  shrink(failing.script, stillFails);
  shrink(failing.given, stillFails);
  return failing;
}

void expectForGeneratedEdits(const Generator& generator, const Property& property) {
  const std::uint64_t first = kelvane::tests::firstSeed();
  for (std::uint64_t seed = first; seed < first + editsARun; ++seed) {
    const GeneratedEdit edit = generator(seed);
    if (!property(edit)) continue;
    const GeneratedEdit smallest = shrunk(edit, property);
    ADD_FAILURE() << "KELVANE_SEED=" << seed << ": " << *property(smallest) << "\nfor " << smallest.described();
    return;
  }
}

}  // namespace quorvel::tests

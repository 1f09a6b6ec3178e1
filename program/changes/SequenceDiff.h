#pragma once

#include <algorithm>
#include <cstddef>
#include <string_view>
#include <vector>

/// How one sequence of pieces of text (lines, or words) becomes another.
namespace kelvane {

using Pieces = std::vector<std::string_view>;

/// The lines of a text, with their line feeds; the last one may have none. Views of the text.
Pieces linesOf(std::string_view text);

/// A piece of either sequence: '-' goes, '+' comes, ' ' stays.
struct Step {
  char sign;
  std::string_view piece;
};

/// How many comparisons of two pieces are left. Searches that share one together take no longer than one search.
struct Comparisons {
  std::size_t left = 1'000'000;
};

/// The steps that lead from one sequence to the other: those with '-' and ' ' are the old one, those with '+' and ' '
/// the new one. Pieces that go stand before those that come in their place. Usually there are as few changes as
/// possible; if the sequences have little in common, or no comparisons are left, there may be more, so that the time
/// stays bounded: it is linear in the sequences, and so is the memory. The views are those of the arguments.
std::vector<Step> stepsBetween(const Pieces& old, const Pieces& fresh, Comparisons& comparisons);

/// The same, with comparisons of its own.
std::vector<Step> stepsBetween(const Pieces& old, const Pieces& fresh);

/// Which steps a person needs to see: the changes, and up to `around` steps before and after each. For anything that
/// has a `sign` as a step has.
template <class Signed>
std::vector<bool> nearChanges(const std::vector<Signed>& steps, std::size_t around) {
  std::vector<bool> isNear(steps.size());
  for (std::size_t at = 0; at < steps.size(); ++at) {
    if (steps[at].sign == ' ') continue;
    const std::size_t end = std::min(at + around + 1, steps.size());
    for (std::size_t near = at - std::min(at, around); near < end; ++near) isNear[near] = true;
  }
  return isNear;
}

}  // namespace kelvane

#include "program/changes/SequenceDiff.h"

#include <algorithm>
#include <cstddef>
#include <dtl/dtl.hpp>
#include <unordered_map>

namespace kelvane {
namespace {

// If sequences have more pieces between the first change and the last, or more pairs of them must be compared than
// comparisons are left, all these pieces count as changed.
constexpr std::size_t mostPieces = 200'000;

// Compares pieces by their numbers, as often as there are comparisons left. dtl itself searches without a limit. Once
// none is left, this calls all pieces equal, which ends the search within one round. Its result means nothing then.
class LimitedComparison : public dtl::Compare<int> {
 public:
  explicit LimitedComparison(Comparisons* comparisons) : left_(&comparisons->left) {}

  bool impl(const int& old, const int& fresh) const override {
    if (*left_ == 0) return true;
    --*left_;
    return old == fresh;
  }

 private:
  std::size_t* left_;
};

// The shortest way from one sequence to the other; empty where it takes too long to find.
//
// dtl has room for two million places; when they are used up, it goes on in a way that need not be the shortest. It
// uses one for each comparison that fails, and at most one for each piece besides. So the limits keep it below that.
std::vector<Step> shortestWay(const Pieces& old, const Pieces& fresh, Comparisons& comparisons) {
  if (comparisons.left == 0 || old.size() + fresh.size() > mostPieces) return {};
  // Pieces can be long; their numbers are compared at once.
  std::unordered_map<std::string_view, int> numbers;
  const auto numbered = [&numbers](const Pieces& pieces) {
    std::vector<int> result;
    for (const std::string_view piece : pieces) {
      result.push_back(numbers.try_emplace(piece, static_cast<int>(numbers.size())).first->second);
    }
    return result;
  };
  constexpr bool linesThatGoFirst = true;
  dtl::Diff<int, std::vector<int>, LimitedComparison> diff(numbered(old), numbered(fresh), linesThatGoFirst,
                                                           LimitedComparison(&comparisons));
  diff.compose();
  if (comparisons.left == 0) return {};

  std::vector<Step> way;
  auto goes = old.begin();
  auto comes = fresh.begin();
  for (const auto& [number, info] : diff.getSes().getSequence()) {
    if (info.type == dtl::SES_ADD) {
      way.push_back({'+', *comes++});
    } else {
      way.push_back({info.type == dtl::SES_DELETE ? '-' : ' ', *goes++});
      if (info.type == dtl::SES_COMMON) ++comes;
    }
  }
  return way;
}

}  // namespace

Pieces linesOf(std::string_view text) {
  Pieces lines;
  while (!text.empty()) {
    const std::size_t size = std::min(text.find('\n'), text.size() - 1) + 1;
    lines.push_back(text.substr(0, size));
    text.remove_prefix(size);
  }
  return lines;
}

std::vector<Step> stepsBetween(const Pieces& old, const Pieces& fresh, Comparisons& comparisons) {
  // What both begin and end with is left out first: most texts change in one place.
  const auto [oldBegin, freshBegin] = std::mismatch(old.begin(), old.end(), fresh.begin(), fresh.end());
  const auto front = oldBegin - old.begin();
  const auto most = static_cast<std::ptrdiff_t>(std::min(old.size(), fresh.size())) - front;
  const auto [oldEnd, freshEnd] = std::mismatch(old.rbegin(), old.rbegin() + most, fresh.rbegin());
  const Pieces goes(oldBegin, oldEnd.base());
  const Pieces comes(freshBegin, freshEnd.base());
  std::vector<Step> steps;
  for (auto piece = old.begin(); piece != oldBegin; ++piece) steps.push_back({' ', *piece});
  const std::vector<Step> way = shortestWay(goes, comes, comparisons);
  steps.insert(steps.end(), way.begin(), way.end());
  if (way.empty()) {
    for (const std::string_view piece : goes) steps.push_back({'-', piece});
    for (const std::string_view piece : comes) steps.push_back({'+', piece});
  }
  for (auto piece = oldEnd.base(); piece != old.end(); ++piece) steps.push_back({' ', *piece});
  return steps;
}

std::vector<Step> stepsBetween(const Pieces& old, const Pieces& fresh) {
  Comparisons comparisons;
  return stepsBetween(old, fresh, comparisons);
}

}  // namespace kelvane

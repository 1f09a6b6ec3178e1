#include "program/configuration/LineDiff.h"

#include <algorithm>
#include <cstddef>
#include <dtl/dtl.hpp>
#include <unordered_map>
#include <vector>

namespace kelvane {
namespace {

using Lines = std::vector<std::string_view>;

constexpr std::size_t around = 3;

// Where texts have more lines between the first change and the last, or more pairs of them must be compared, all these
// lines are shown as changed.
constexpr std::size_t mostLines = 200'000;
constexpr std::size_t mostComparisons = 1'000'000;

// With their line breaks.
Lines linesOf(std::string_view text) {
  Lines lines;
  while (!text.empty()) {
    const std::size_t size = std::min(text.find('\n'), text.size() - 1) + 1;
    lines.push_back(text.substr(0, size));
    text.remove_prefix(size);
  }
  return lines;
}

// A line of either text, as it is shown.
struct Step {
  char sign;
  std::string_view line;
};

// Compares lines by their numbers, as often as there are comparisons left. dtl itself searches without a limit. Once
// none is left, this calls all lines equal, which ends the search within one round. Its result means nothing then.
class LimitedComparison : public dtl::Compare<int> {
 public:
  explicit LimitedComparison(std::size_t* left) : left_(left) {}

  bool impl(const int& old, const int& fresh) const override {
    if (*left_ == 0) return true;
    --*left_;
    return old == fresh;
  }

 private:
  std::size_t* left_;
};

// The shortest way from one text to the other; empty where it takes too long to find.
//
// dtl has room for two million places; when they are used up, it goes on in a way that need not be the shortest. It
// uses one for each comparison that fails, and at most one for each line besides. So the limits above keep it below
// that.
std::vector<Step> shortestWay(const Lines& old, const Lines& fresh) {
  if (old.size() + fresh.size() > mostLines) return {};
  // Lines can be long; their numbers are compared at once.
  std::unordered_map<std::string_view, int> numbers;
  const auto numbered = [&numbers](const Lines& lines) {
    std::vector<int> result;
    for (const std::string_view line : lines) {
      result.push_back(numbers.try_emplace(line, static_cast<int>(numbers.size())).first->second);
    }
    return result;
  };
  std::size_t left = mostComparisons;
  constexpr bool linesThatGoFirst = true;
  dtl::Diff<int, std::vector<int>, LimitedComparison> diff(numbered(old), numbered(fresh), linesThatGoFirst,
                                                           LimitedComparison(&left));
  diff.compose();
  if (left == 0) return {};

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

std::vector<Step> stepsBetween(const Lines& old, const Lines& fresh) {
  const auto [oldBegin, freshBegin] = std::mismatch(old.begin(), old.end(), fresh.begin(), fresh.end());
  const auto front = oldBegin - old.begin();
  const auto most = static_cast<std::ptrdiff_t>(std::min(old.size(), fresh.size())) - front;
  const auto [oldEnd, freshEnd] = std::mismatch(old.rbegin(), old.rbegin() + most, fresh.rbegin());
  const Lines goes(oldBegin, oldEnd.base());
  const Lines comes(freshBegin, freshEnd.base());
  std::vector<Step> steps;
  for (auto line = old.begin(); line != oldBegin; ++line) steps.push_back({' ', *line});
  const std::vector<Step> way = shortestWay(goes, comes);
  steps.insert(steps.end(), way.begin(), way.end());
  if (way.empty()) {
    for (const std::string_view line : goes) steps.push_back({'-', line});
    for (const std::string_view line : comes) steps.push_back({'+', line});
  }
  for (auto line = oldEnd.base(); line != old.end(); ++line) steps.push_back({' ', *line});
  return steps;
}

// Which steps a person sees: the changes, and some lines around each.
std::vector<bool> seen(const std::vector<Step>& steps) {
  std::vector<bool> seen(steps.size());
  for (std::size_t at = 0; at < steps.size(); ++at) {
    if (steps[at].sign == ' ') continue;
    const std::size_t end = std::min(at + around + 1, steps.size());
    for (std::size_t near = at - std::min(at, around); near < end; ++near) seen[near] = true;
  }
  return seen;
}

}  // namespace

std::string lineDiff(std::string_view before, std::string_view after) {
  const std::vector<Step> steps = stepsBetween(linesOf(before), linesOf(after));
  const std::vector<bool> isSeen = seen(steps);
  std::string text;
  std::size_t line = 1;
  for (std::size_t at = 0; at < steps.size(); ++at) {
    const auto& [sign, shown] = steps[at];
    if (isSeen[at]) {
      const bool isFirst = at == 0 || !isSeen[at - 1];
      if (isFirst) text.append("@@ line ").append(std::to_string(line)).append(" @@\n");
      text.append(1, sign).append(shown);
      if (!shown.ends_with('\n')) text.append("\n\\ No line break at the end\n");
    }
    if (sign != '+') ++line;
  }
  return text;
}

}  // namespace kelvane

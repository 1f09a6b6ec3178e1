#include "program/configuration/LineDiff.h"

#include <algorithm>
#include <cstddef>
#include <vector>

namespace kelvane {
namespace {

using Lines = std::vector<std::string_view>;

constexpr std::size_t around = 3;

// More lines than this that go or come, and all between the first and the last are shown as changed.
constexpr std::ptrdiff_t mostChanges = 500;

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

// The shortest way from one text to the other (E. Myers, An O(ND) Difference Algorithm, 1986). `furthest[d]` holds, for
// each diagonal of d changes, how far into `old` one gets.
std::vector<Step> shortestWay(const Lines& old, const Lines& fresh) {
  const auto oldSize = static_cast<std::ptrdiff_t>(old.size());
  const auto freshSize = static_cast<std::ptrdiff_t>(fresh.size());
  const auto oldLine = [&](std::ptrdiff_t at) { return old[static_cast<std::size_t>(at)]; };
  const auto freshLine = [&](std::ptrdiff_t at) { return fresh[static_cast<std::size_t>(at)]; };
  std::vector<std::vector<std::ptrdiff_t>> furthest;
  const auto reached = [&](std::ptrdiff_t changes, std::ptrdiff_t diagonal) {
    return furthest[static_cast<std::size_t>(changes)][static_cast<std::size_t>(diagonal + changes)];
  };
  // Whether the way to a diagonal comes by a line of `fresh`, from the diagonal above, rather than by one of `old`.
  const auto comesByFresh = [&](std::ptrdiff_t changes, std::ptrdiff_t diagonal) {
    return diagonal == -changes ||
           (diagonal != changes && reached(changes - 1, diagonal - 1) < reached(changes - 1, diagonal + 1));
  };

  std::ptrdiff_t changes = 0;
  for (bool arrived = false; !arrived; ++changes) {
    if (changes > mostChanges) return {};
    furthest.emplace_back(static_cast<std::size_t>(2 * changes + 1));
    for (std::ptrdiff_t diagonal = -changes; diagonal <= changes && !arrived; diagonal += 2) {
      std::ptrdiff_t at = 0;
      if (changes > 0) {
        at = comesByFresh(changes, diagonal) ? reached(changes - 1, diagonal + 1)
                                             : reached(changes - 1, diagonal - 1) + 1;
      }
      while (at < oldSize && at - diagonal < freshSize && at - diagonal >= 0 &&
             oldLine(at) == freshLine(at - diagonal)) {
        ++at;
      }
      furthest.back()[static_cast<std::size_t>(diagonal + changes)] = at;
      arrived = at == oldSize && at - diagonal == freshSize;
    }
  }

  std::vector<Step> way;
  std::ptrdiff_t at = oldSize;
  std::ptrdiff_t diagonal = oldSize - freshSize;
  while (--changes > 0) {
    const bool byFresh = comesByFresh(changes, diagonal);
    const std::ptrdiff_t from = reached(changes - 1, byFresh ? diagonal + 1 : diagonal - 1);
    for (const std::ptrdiff_t start = byFresh ? from : from + 1; at > start; --at)
      way.push_back({' ', oldLine(at - 1)});
    diagonal += byFresh ? 1 : -1;
    way.push_back(byFresh ? Step{'+', freshLine(at - diagonal)} : Step{'-', oldLine(from)});
    at = from;
  }
  for (; at > 0; --at) way.push_back({' ', oldLine(at - 1)});
  std::reverse(way.begin(), way.end());
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

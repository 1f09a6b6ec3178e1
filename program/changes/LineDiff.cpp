#include "program/changes/LineDiff.h"

#include <algorithm>
#include <cstddef>
#include <vector>

#include "program/changes/SequenceDiff.h"

namespace kelvane {
namespace {

constexpr std::size_t around = 3;

// With their line breaks.
Pieces linesOf(std::string_view text) {
  Pieces lines;
  while (!text.empty()) {
    const std::size_t size = std::min(text.find('\n'), text.size() - 1) + 1;
    lines.push_back(text.substr(0, size));
    text.remove_prefix(size);
  }
  return lines;
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

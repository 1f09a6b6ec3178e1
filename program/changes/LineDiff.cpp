#include "program/changes/LineDiff.h"

#include <algorithm>
#include <cstddef>
#include <vector>

#include "program/changes/SequenceDiff.h"

namespace kelvane {
namespace {

constexpr std::size_t around = 3;

}  // namespace

std::string lineDiff(std::string_view before, std::string_view after) {
  const std::vector<Step> steps = stepsBetween(linesOf(before), linesOf(after));
  const std::vector<bool> isSeen = nearChanges(steps, around);
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

#include "program/Nearest.h"

#include <algorithm>
#include <cstddef>
#include <utility>

namespace kelvane {
namespace {

// The optimal string alignment distance, row by row.
std::size_t slips(std::string_view from, std::string_view to) {
  std::vector<std::size_t> beforeLast(to.size() + 1), last(to.size() + 1), row(to.size() + 1);
  for (std::size_t j = 0; j <= to.size(); ++j) row[j] = j;
  for (std::size_t i = 1; i <= from.size(); ++i) {
    beforeLast = std::exchange(last, row);
    row[0] = i;
    for (std::size_t j = 1; j <= to.size(); ++j) {
      row[j] = std::min({last[j] + 1, row[j - 1] + 1, last[j - 1] + (from[i - 1] == to[j - 1] ? 0 : 1)});
      if (i > 1 && j > 1 && from[i - 1] == to[j - 2] && from[i - 2] == to[j - 1]) {
        row[j] = std::min(row[j], beforeLast[j - 2] + 1);
      }
    }
  }
  return row[to.size()];
}

}  // namespace

std::optional<std::string> nearest(std::string_view typed, const std::vector<std::string>& names) {
  std::optional<std::string> best;
  std::size_t fewest = 0;
  for (const std::string& name : names) {
    const std::size_t allowed = name.size() / 3;
    if (typed.size() > name.size() + allowed) continue;  // so that a long text costs nothing
    const std::size_t count = slips(typed, name);
    if (count > allowed || (best && count >= fewest)) continue;
    best = name;
    fewest = count;
  }
  return best;
}

std::string suggestion(std::string_view typed, const std::vector<std::string>& names) {
  const std::optional<std::string> name = nearest(typed, names);
  return name ? " Did you mean \"" + *name + "\"?" : std::string();
}

}  // namespace kelvane

#include "quorvel/library/FreeNumber.h"

namespace quorvel {

std::size_t findFreeNumber(std::size_t first, const std::function<bool(std::size_t)>& isUsed) {
  constexpr std::size_t askedInTurn = 100;
  constexpr std::size_t mostEntries = std::size_t{1} << 30;  // no folder holds so many, whatever a disk says
  for (std::size_t number = first; number < first + askedInTurn; ++number) {
    if (!isUsed(number)) return number;
  }
  std::size_t used = first + askedInTurn - 1;
  std::size_t step = askedInTurn;
  for (; step < mostEntries && isUsed(used + step); step *= 2) used += step;
  std::size_t free = used + step;
  while (free - used > 1) {
    const std::size_t middle = used + (free - used) / 2;
    (isUsed(middle) ? used : free) = middle;
  }
  return free;
}

}  // namespace quorvel

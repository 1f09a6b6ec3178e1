#include "quorvel/library/FreeNumber.h"

namespace quorvel {

std::size_t findFreeNumber(std::size_t first, const std::function<bool(std::size_t)>& isTaken) {
  constexpr std::size_t lookedAtInTurn = 100;
  std::size_t taken = first;
  for (; taken < first + lookedAtInTurn; ++taken) {
    if (!isTaken(taken)) return taken;
  }
  --taken;
  std::size_t step = lookedAtInTurn;
  // No folder holds so many; a disk that says so is not asked for ever.
  constexpr std::size_t mostEntries = std::size_t{1} << 30;
  while (step < mostEntries && isTaken(taken + step)) {
    taken += step;
    step *= 2;
  }
  std::size_t free = taken + step;
  while (free - taken > 1) {
    const std::size_t middle = taken + (free - taken) / 2;
    (isTaken(middle) ? taken : free) = middle;
  }
  return free;
}

}  // namespace quorvel

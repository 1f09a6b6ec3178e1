#include "platform/QuorvelLibrary.h"

#include <cstddef>
#include <utility>

#include "platform/FreeMemory.h"

// The tree of items is walked with a stack of levels, one for each folder from the root to the current one. A library
// may be nested deeper than the call stack permits, so nothing recurses. A level takes its items out of their parent,
// so that destroying the tree does not recurse either.

namespace quorvel {
namespace {

struct Level {
  std::vector<ScriptItem> items;
  std::size_t next = 0;
};

}  // namespace

std::optional<std::string> ScriptLibrary::readAtOnce(std::string_view) const {
  return std::nullopt;
}

void ScriptLibrary::visit(ItemVisitor& visitor) const {
  // The items of a folder are freed when it is complete. So that what the visitor makes of them takes their place
  // instead of being added to them, their memory is given back meanwhile.
  constexpr std::size_t betweenReturns = 10'000;
  std::size_t sinceReturn = 0;
  std::vector<Level> path;
  path.push_back({contents(root())});
  while (true) {
    Level& level = path.back();
    if (level.next < level.items.size()) {
      ScriptItem& item = level.items[level.next];
      if (auto children = std::exchange(item.children, std::nullopt)) {
        visitor.enter(item);
        path.push_back({*std::move(children)});
      } else {
        visitor.meet(item);
        ++level.next;
      }
      ++sinceReturn;
    } else {
      path.pop_back();
      if (path.empty()) return;
      Level& above = path.back();
      visitor.leave(above.items[above.next++]);
    }
    if (sinceReturn >= betweenReturns) {
      kelvane::returnFreeMemory();
      sinceReturn = 0;
    }
  }
}

}  // namespace quorvel

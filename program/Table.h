#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace kelvane {

using TableRow = std::vector<std::string>;

/// Rows as lines with columns of equal width. The first `columnsOfNumbers` columns end under each other, the others
/// begin under each other, and the last one is as long as it is. Unless `width` is 0, a last cell that would go beyond
/// it is put below the others and broken between words. Takes time linear in the cells, which must be on one line each.
std::string table(const std::vector<TableRow>& rows, std::size_t columnsOfNumbers, std::size_t width = 0);

}  // namespace kelvane
